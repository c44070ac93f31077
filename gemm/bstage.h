// What the self-contained engines of branches 3 and 2 share: the head that
// settles alpha = 0, the cut of k into chunks, and the columns that go
// through the matrix-vector product.
//
// k is cut into a first chunk of k mod q steps (q if that is 0), taken from
// the end of the range and done first, because it is the one whose kernel
// merges beta into C; the chunks of exactly q steps follow from 0 upward.
// Each chunk's sum is rounded into C before the next begins.
#pragma once
#include <stdint.h>

#include "frame/check.h"
#include "frame/memory.h"
#include "frame/scalar.h"
#include "gemm/kernels.h"
#include "level2/drivers.h"

namespace zva::gemm_bstage {
namespace {

template <class T> struct plain {
    sig_gemm_serial<T>* direct;
    sig_gemm_scale_c<T>* scale_c;
};

// Returns true when alpha = 0 settled the call: C is only scaled.
template <class T>
inline bool alpha_zero(const plain<T>& p, I pm, I pn, const T* alpha, const T* beta, T* c, I ldc) {
    if (*pm <= 0 || *pn <= 0) return true;
    if (!is_zero(*alpha)) return false;
    if (!is_one(*beta)) p.scale_c(pm, pn, beta, c, ldc);
    return true;
}

// Returns true when the call is settled here.
inline bool head(const plain<double>& p, Ch ta, Ch tb, I pm, I pn, I pk, const double* alpha,
                 const double* a, I lda, const double* b, I ldb, const double* beta, double* c,
                 I ldc) {
    if (alpha_zero(p, pm, pn, alpha, beta, c, ldc)) return true;
    if (*pm < 4 || *pk < 8 || *pn < 8) {
        p.direct(ta, tb, pm, pn, pk, alpha, a, lda, b, ldb, beta, c, ldc);
        return true;
    }
    return false;
}

struct chunk {
    int start, len;
};
// Chunk t of k (t = 0 is the short one from the end).
inline int chunk_count(int k, int q) { return (k + q - 1) / q; }
inline chunk chunk_at(int k, int q, int t) {
    const int first = k % q ? k % q : q;
    if (t == 0) return {k - first, first};
    return {(t - 1) * q, q};
}

template <class T> inline const T* at_a(const T* a, bool nota, int lda, int i, int l) {
    return a + (nota ? i + (long)l * lda : l + (long)i * lda);
}
template <class T> inline const T* at_b(const T* b, bool notb, int ldb, int l, int j) {
    return b + (notb ? l + (long)j * ldb : j + (long)l * ldb);
}

// Columns j0 .. n-1 of C, one matrix-vector product each with the caller's
// alpha and beta. x is a column or a row of B; a conjugated row is copied
// into `xbuf` (k elements) first, as the product cannot conjugate x.
template <class T>
inline void columns_by_gemv(char ta, char tb, int m, int n, int k, int j0, const T* alpha,
                            const T* a, int lda, const T* b, int ldb, const T* beta, T* c,
                            int ldc, T* xbuf = nullptr) {
    static const int one = 1;
    const bool nota = (ta & ~0x20) == 'N', notb = (tb & ~0x20) == 'N';
    const bool conjb = (tb & ~0x20) == 'C';
    const char* letter = nota ? "N" : (ta & ~0x20) == 'C' ? "C" : "T";
    for (int j = j0; j < n; ++j) {
        const T* x = at_b(b, notb, ldb, 0, j);
        int incx = notb ? 1 : ldb;
        if constexpr (requires { x->re; }) {
            if (conjb) {
                for (int l = 0; l < k; ++l) xbuf[l] = T{x[(long)l * ldb].re, -x[(long)l * ldb].im};
                x = xbuf, incx = 1;
            }
        }
        if (nota) gemv<T>(letter, &m, &k, alpha, a, &lda, x, &incx, beta, c + (long)j * ldc, &one);
        else gemv<T>(letter, &k, &m, alpha, a, &lda, x, &incx, beta, c + (long)j * ldc, &one);
    }
}

inline char* align_up(char* p, uintptr_t q) { return (char*)(((uintptr_t)p + q - 1) & ~(q - 1)); }

}  // namespace
}  // namespace zva::gemm_bstage
