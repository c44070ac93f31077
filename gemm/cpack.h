// Packing of complex blocks, in the two layouts of the complex rows: steps
// of (re, im) pairs side by side (Split false), or per step the real parts
// of the panel's rows followed by their imaginary parts (Split true, A
// only; B always keeps its pairs). Conjugation and alpha are folded into A
// here, conjugation into B, so that no kernel knows the letters.
//
// Each element of A goes through one complex multiplication by alpha:
// re = ar*xr - ai*xi, im = ar*xi + ai*xr. With Fused the second product of
// each part is rounded and the first fused into it (one multiply, then one
// fused multiply-add-subtract on the pair), as a vector routine does it.
#pragma once
#include "frame/signatures.h"
#include "gemm/pack.h"

namespace zva::gemm_cpack {
namespace {

template <bool Fused, class R> inline R mad(R a, R b, R c) {
    if constexpr (Fused) return __builtin_fma(a, b, c);
    else return a * b + c;
}

template <bool Fused, class T> inline T times(const T& al, T x) {
    return T{mad<Fused>(al.re, x.re, -(al.im * x.im)), mad<Fused>(al.re, x.im, al.im * x.re)};
}

// Element (i, l) of op(A) at a[i + l*lda] (Trans false) or a[l + i*lda],
// conjugated when Conj. In the last panel only existing rows are written
// on the real steps; the steps from k up to a multiple of KU are zero.
template <int MR, int KU, bool Trans, bool Conj, bool Split, bool Fused, class T>
void copy_a(I pm, I pk, const T* a, I plda, T* buf, I pstride, const T* alpha) {
    using R = decltype(T{}.re);
    const int m = *pm, k = *pk, lda = *plda, stride = *pstride;
    if (m < 1 || k < 1) return;
    const int kk = (k + KU - 1) / KU * KU, panels = (m + MR - 1) / MR;
    const T al = *alpha;
    for (int p = 0; p < panels; ++p) {
        T* dst = buf + (long)p * stride;
        R* dr = (R*)dst;
        const int i0 = p * MR, rows = m - i0 < MR ? m - i0 : MR;
        for (int r = 0; r < rows; ++r) {
            for (int l = 0; l < k; ++l) {
                T x = Trans ? a[l + (long)(i0 + r) * lda] : a[i0 + r + (long)l * lda];
                if (Conj) x.im = -x.im;
                const T v = times<Fused>(al, x);
                if (Split) {
                    dr[l * 2 * MR + r] = v.re;
                    dr[l * 2 * MR + MR + r] = v.im;
                } else {
                    dst[l * MR + r] = v;
                }
            }
        }
        for (int l = k * 2 * MR; l < kk * 2 * MR; ++l) dr[l] = R(0);
    }
}

// Element (l, j) of op(B) at b[l + j*ldb] (Trans false) or b[j + l*ldb];
// step l of a panel holds columns j0 .. j0+NR-1, missing columns zero.
template <int NR, int KU, bool Trans, bool Conj, class T>
void copy_b(I pk, I pn, const T* b, I pldb, T* buf, I pstride, const T*) {
    const int k = *pk, n = *pn, ldb = *pldb, stride = *pstride;
    if (k < 1 || n < 1) return;
    const int kk = (k + KU - 1) / KU * KU, panels = (n + NR - 1) / NR;
    for (int p = 0; p < panels; ++p) {
        T* dst = buf + (long)p * stride;
        const int j0 = p * NR, cols = n - j0 < NR ? n - j0 : NR;
        for (int l = 0; l < kk; ++l) {
            for (int j = 0; j < NR; ++j) {
                T x{};
                if (l < k && j < cols) {
                    x = Trans ? b[j0 + j + (long)l * ldb] : b[l + (long)(j0 + j) * ldb];
                    if (Conj) x.im = -x.im;
                }
                dst[l * NR + j] = x;
            }
        }
    }
}

}  // namespace
}  // namespace zva::gemm_cpack

// The six copy routines of a complex row, named p##copy_a_n and so on.
#define ZVA_GEMM_CPACK(p, T, MR, NR, KU, Split, Fused)                         \
    void p##copy_a_n(I m, I k, const T* a, I lda, T* buf, I s, const T* al) {  \
        gemm_cpack::copy_a<MR, KU, false, false, Split, Fused>(m, k, a, lda,   \
                                                               buf, s, al);    \
    }                                                                          \
    void p##copy_a_t(I m, I k, const T* a, I lda, T* buf, I s, const T* al) {  \
        gemm_cpack::copy_a<MR, KU, true, false, Split, Fused>(m, k, a, lda,    \
                                                              buf, s, al);     \
    }                                                                          \
    void p##copy_a_c(I m, I k, const T* a, I lda, T* buf, I s, const T* al) {  \
        gemm_cpack::copy_a<MR, KU, true, true, Split, Fused>(m, k, a, lda,     \
                                                             buf, s, al);      \
    }                                                                          \
    void p##copy_b_n(I k, I n, const T* b, I ldb, T* buf, I s, const T* x) {   \
        gemm_cpack::copy_b<NR, KU, false, false>(k, n, b, ldb, buf, s, x);     \
    }                                                                          \
    void p##copy_b_t(I k, I n, const T* b, I ldb, T* buf, I s, const T* x) {   \
        gemm_cpack::copy_b<NR, KU, true, false>(k, n, b, ldb, buf, s, x);      \
    }                                                                          \
    void p##copy_b_c(I k, I n, const T* b, I ldb, T* buf, I s, const T* x) {   \
        gemm_cpack::copy_b<NR, KU, true, true>(k, n, b, ldb, buf, s, x);       \
    }

// The four copy routines of a real row in the plain layout (the "C"
// letter takes the transposing ones).
#define ZVA_GEMM_RPACK(p, T, MR, NR, KU)                                       \
    void p##copy_a_n(I m, I k, const T* a, I lda, T* buf, I s, const T* al) {  \
        gemm_pack::copy_a<MR, KU, false>(m, k, a, lda, buf, s, al);            \
    }                                                                          \
    void p##copy_a_t(I m, I k, const T* a, I lda, T* buf, I s, const T* al) {  \
        gemm_pack::copy_a<MR, KU, true>(m, k, a, lda, buf, s, al);             \
    }                                                                          \
    void p##copy_b_n(I k, I n, const T* b, I ldb, T* buf, I s, const T* x) {   \
        gemm_pack::copy_b<NR, KU, false>(k, n, b, ldb, buf, s, x);             \
    }                                                                          \
    void p##copy_b_t(I k, I n, const T* b, I ldb, T* buf, I s, const T* x) {   \
        gemm_pack::copy_b<NR, KU, true>(k, n, b, ldb, buf, s, x);              \
    }
