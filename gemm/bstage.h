// What the self-contained D engines of branches 3 and 2 share: the head
// that settles alpha = 0 and the small shapes, the cut of k into chunks,
// and the columns that go through the matrix-vector product.
//
// k is cut into a first chunk of k mod q steps (q if that is 0), taken from
// the end of the range and done first, because it is the one whose kernel
// merges beta into C; the chunks of exactly q steps follow from 0 upward.
// Each chunk's sum is rounded into C before the next begins.
#pragma once
#include <stdint.h>

#include "frame/check.h"
#include "frame/memory.h"
#include "gemm/kernels.h"
#include "level2/drivers.h"

namespace zva::gemm_bstage {
namespace {

struct plain {
    sig_gemm_serial<double>* direct;
    sig_gemm_scale_c<double>* scale_c;
};

// Returns true when the call is settled here.
inline bool head(const plain& p, Ch ta, Ch tb, I pm, I pn, I pk, const double* alpha,
                 const double* a, I lda, const double* b, I ldb, const double* beta, double* c,
                 I ldc) {
    const int m = *pm, n = *pn, k = *pk;
    if (m <= 0 || n <= 0) return true;
    if (*alpha == 0.0) {
        if (*beta != 1.0) p.scale_c(pm, pn, beta, c, ldc);
        return true;
    }
    if (m < 4 || k < 8 || n < 8) {
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

inline const double* at_a(const double* a, bool nota, int lda, int i, int l) {
    return a + (nota ? i + (long)l * lda : l + (long)i * lda);
}
inline const double* at_b(const double* b, bool notb, int ldb, int l, int j) {
    return b + (notb ? l + (long)j * ldb : j + (long)l * ldb);
}

// Columns j0 .. n-1 of C, one matrix-vector product each with the caller's
// alpha and beta.
inline void columns_by_gemv(bool nota, bool notb, int m, int n, int k, int j0,
                            const double* alpha, const double* a, int lda, const double* b,
                            int ldb, const double* beta, double* c, int ldc) {
    static const int one = 1;
    for (int j = j0; j < n; ++j) {
        const double* x = at_b(b, notb, ldb, 0, j);
        const int incx = notb ? 1 : ldb;
        if (nota) gemv<double>("N", &m, &k, alpha, a, &lda, x, &incx, beta, c + (long)j * ldc, &one);
        else gemv<double>("T", &k, &m, alpha, a, &lda, x, &incx, beta, c + (long)j * ldc, &one);
    }
}

inline char* align_up(char* p, uintptr_t q) { return (char*)(((uintptr_t)p + q - 1) & ~(q - 1)); }

}  // namespace
}  // namespace zva::gemm_bstage
