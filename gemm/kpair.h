// The k-pair layout of branch 4 without SSE4.1, shared by D and S.
//
// Panels keep two neighbouring steps of k together: per pair (l, l+1) an A
// panel holds a(i, l), a(i, l+1) for each of its rows and a B panel
// b(l, j), b(l+1, j) for each of its two columns; a lone last column keeps
// its values one after the other. The kernels form dot products in vector
// lanes, even steps in one lane and odd steps in the other, and join the
// lanes at the end: an element is (sum over even k) + (sum over odd k),
// whatever the unrolling.
#pragma once
#include "frame/signatures.h"

namespace zva::gemm_kpair {
namespace {

constexpr int nr = 2, group = 8;  // the stage holds 8 columns

inline int pad2(int k) { return (k + 1) & ~1; }

// Offset of element (l, j) in a pair layout of `width` rows or columns.
inline long kp_at(int l, int j, int width) { return (long)(l >> 1) * 2 * width + j * 2 + (l & 1); }
inline int b_width(int j, int n) { return j - j % nr + nr <= n ? nr : 1; }

template <int MR, bool Trans, class T>
void copy_a(I pm, I pk, const T* a, I plda, T* buf, I pstride, const T* alpha) {
    const int m = *pm, k = *pk, lda = *plda, stride = *pstride;
    if (m < 1 || k < 1) return;
    const int kk = pad2(k);
    const T al = *alpha;
    for (int i = 0; i < m; ++i) {
        T* dst = buf + (long)(i / MR) * stride;
        for (int l = 0; l < k; ++l)
            dst[kp_at(l, i % MR, MR)] = al * (Trans ? a[l + (long)i * lda] : a[i + (long)l * lda]);
    }
    if (k < kk)
        for (int p = 0; p < (m + MR - 1) / MR; ++p)
            for (int r = 0; r < MR; ++r) buf[(long)p * stride + kp_at(k, r, MR)] = T(0);
}

template <bool Trans, class T>
void copy_b(I pk, I pn, const T* b, I pldb, T* buf, I pstride, const T*) {
    const int k = *pk, n = *pn, ldb = *pldb, stride = *pstride;
    if (k < 1 || n < 1) return;
    const int kk = pad2(k);
    for (int j = 0; j < n; ++j) {
        T* dst = buf + (long)(j / nr) * stride;
        const int width = b_width(j, n);
        for (int l = 0; l < k; ++l)
            dst[kp_at(l, j % nr, width)] = Trans ? b[j + (long)l * ldb] : b[l + (long)j * ldb];
        if (k < kk) dst[kp_at(k, j % nr, width)] = T(0);
    }
}

// The last rows (fewer than MR): four partial sums over k, joined pairwise,
// then the steps beyond a multiple of 4; C := C*beta + sum.
template <int MR, class T>
void edge_rows(int r, int n, int k, const T* a, const T* b, int ldb, T* c, int ldc, T beta,
               bool packed, bool notb) {
    const int k4 = k & ~3;
    for (int i = 0; i < r; ++i) {
        for (int j = 0; j < n; ++j) {
            auto bv = [&](int l) {
                if (!packed) return notb ? b[l + (long)j * ldb] : b[j + (long)l * ldb];
                return b[(long)(j / nr) * ldb + kp_at(l, j % nr, b_width(j, n))];
            };
            auto av = [&](int l) { return a[kp_at(l, i, MR)]; };
            T s0 = 0, s1 = 0, s2 = 0, s3 = 0;
            int l = 0;
            for (; l < k4; l += 4) {
                s0 += av(l) * bv(l);
                s1 += av(l + 1) * bv(l + 1);
                s2 += av(l + 2) * bv(l + 2);
                s3 += av(l + 3) * bv(l + 3);
            }
            T s = (s0 + s1) + (s2 + s3);
            for (; l < k; ++l) s += av(l) * bv(l);
            T* cp = c + i + (long)j * ldc;
            *cp = *cp * beta + s;
        }
    }
}

}  // namespace
}  // namespace zva::gemm_kpair

// The four copy routines of a k-pair row.
#define ZVA_GEMM_KPAIR_PACK(p, T, MR)                                          \
    void p##copy_a_n(I m, I k, const T* a, I lda, T* buf, I s, const T* al) {  \
        gemm_kpair::copy_a<MR, false>(m, k, a, lda, buf, s, al);               \
    }                                                                          \
    void p##copy_a_t(I m, I k, const T* a, I lda, T* buf, I s, const T* al) {  \
        gemm_kpair::copy_a<MR, true>(m, k, a, lda, buf, s, al);                \
    }                                                                          \
    void p##copy_b_n(I k, I n, const T* b, I ldb, T* buf, I s, const T* x) {   \
        gemm_kpair::copy_b<false>(k, n, b, ldb, buf, s, x);                    \
    }                                                                          \
    void p##copy_b_t(I k, I n, const T* b, I ldb, T* buf, I s, const T* x) {   \
        gemm_kpair::copy_b<true>(k, n, b, ldb, buf, s, x);                     \
    }
