// Packing into panels whose steps hold the panel's rows (or columns) side
// by side: step l of an A panel is A(i0 .. i0+MR-1, l) times alpha, step l
// of a B panel is B(l, j0 .. j0+NR-1). Plain loops that the compiler turns
// into the vector moves of the branch it is built for; the packing is paid
// once per block and is far from the cost of the kernels.
//
// k is padded with zero steps up to a multiple of KU; missing columns of the
// last B panel are zero; in the last A panel only existing rows are written
// on the real steps (the edge kernels never read the other slots).
#pragma once
#include "frame/signatures.h"

namespace zva::gemm_pack {
namespace {

template <class T> inline int pad_k(int k, int ku) { return (k + ku - 1) / ku * ku; }

// Element (i, l) of op(A) at a[i + l*lda] (Trans false) or a[l + i*lda].
template <int MR, int KU, bool Trans, class T>
void copy_a(I pm, I pk, const T* a, I plda, T* buf, I pstride, const T* alpha) {
    const int m = *pm, k = *pk, lda = *plda, stride = *pstride;
    if (m < 1 || k < 1) return;
    const int kk = pad_k<T>(k, KU), panels = (m + MR - 1) / MR;
    const T al = *alpha;
    for (int p = 0; p < panels; ++p) {
        T* dst = buf + (long)p * stride;
        const int i0 = p * MR, rows = m - i0 < MR ? m - i0 : MR;
        if (!Trans) {
            for (int l = 0; l < k; ++l) {
                const T* src = a + i0 + (long)l * lda;
                for (int r = 0; r < rows; ++r) dst[l * MR + r] = al * src[r];
            }
        } else {
            for (int r = 0; r < rows; ++r) {
                const T* src = a + (long)(i0 + r) * lda;
                for (int l = 0; l < k; ++l) dst[l * MR + r] = al * src[l];
            }
        }
        for (int l = k * MR; l < kk * MR; ++l) dst[l] = T(0);
    }
}

// Element (l, j) of op(B) at b[l + j*ldb] (Trans false) or b[j + l*ldb].
template <int NR, int KU, bool Trans, class T>
void copy_b(I pk, I pn, const T* b, I pldb, T* buf, I pstride, const T*) {
    const int k = *pk, n = *pn, ldb = *pldb, stride = *pstride;
    if (k < 1 || n < 1) return;
    const int kk = pad_k<T>(k, KU), panels = (n + NR - 1) / NR;
    for (int p = 0; p < panels; ++p) {
        T* dst = buf + (long)p * stride;
        const int j0 = p * NR, cols = n - j0 < NR ? n - j0 : NR;
        if (!Trans) {
            for (int j = 0; j < NR; ++j) {
                const T* src = b + (long)(j0 + j) * ldb;
                if (j < cols)
                    for (int l = 0; l < k; ++l) dst[l * NR + j] = src[l];
                else
                    for (int l = 0; l < k; ++l) dst[l * NR + j] = T(0);
            }
        } else {
            for (int l = 0; l < k; ++l) {
                const T* src = b + j0 + (long)l * ldb;
                for (int j = 0; j < NR; ++j) dst[l * NR + j] = j < cols ? src[j] : T(0);
            }
        }
        for (int l = k * NR; l < kk * NR; ++l) dst[l] = T(0);
    }
}

}  // namespace
}  // namespace zva::gemm_pack
