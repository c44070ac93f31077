// The swap form of the 128-bit branches (5, and 4 on processors with
// SSE4.1): the 2 x 4 kernel in D.
//
// For each panel of four columns the stage buffer is filled first, from the
// packed panel (mode 2) or gathered from the caller's B (mode 3, with the
// last group of k padded with zeros). Per step of k a pair of rows a is
// multiplied by (b0 b1), (b1 b0), (b2 b3) and (b3 b2): each lane of the four
// accumulators is one element of the tile, a running sum in increasing k,
// added to C once per call. SSE2 operations only, so that branch 4 runs the
// same code with the same results.
#pragma once
#include <emmintrin.h>
#include <stdint.h>

#include "gemm/edge.h"
#include "gemm/pack.h"

namespace zva::gemm_swap {
namespace {

constexpr int mr = 2, nr = 4, ku = 4;

// Stage of one panel: per step of k the four values of the columns.
void fill_stage(double* stage, const double* b, int ldb, int k, int cols, bool packed, bool notb) {
    const int kk = (k + ku - 1) / ku * ku;
    if (packed) {
        for (int l = 0; l < kk * nr; l += 2) _mm_store_pd(stage + l, _mm_load_pd(b + l));
        return;
    }
    for (int l = 0; l < k; ++l)
        for (int j = 0; j < nr; ++j)
            stage[l * nr + j] = j < cols ? (notb ? b[l + (long)j * ldb] : b[j + (long)l * ldb]) : 0.0;
    for (int l = k * nr; l < kk * nr; ++l) stage[l] = 0.0;
}

#define ZVA_SWAP_STEP(l)                                                       \
    {                                                                          \
        __m128d a0 = _mm_load_pd(ap + 2 * (l));                                \
        __m128d b01 = _mm_load_pd(sp + 4 * (l));                               \
        __m128d b23 = _mm_load_pd(sp + 4 * (l) + 2);                           \
        asm volatile("" : "+x"(a0), "+x"(b01), "+x"(b23));                     \
        acc0 = _mm_add_pd(acc0, _mm_mul_pd(b01, a0));                          \
        acc1 = _mm_add_pd(acc1, _mm_mul_pd(_mm_shuffle_pd(b01, b01, 1), a0));  \
        acc2 = _mm_add_pd(acc2, _mm_mul_pd(b23, a0));                          \
        acc3 = _mm_add_pd(acc3, _mm_mul_pd(_mm_shuffle_pd(b23, b23, 1), a0));  \
        asm volatile("" : "+x"(acc0), "+x"(acc1), "+x"(acc2), "+x"(acc3));     \
    }

template <bool Aligned> inline void add_column(double* c, __m128d v) {
    if (Aligned) {
        _mm_store_pd(c, _mm_add_pd(_mm_load_pd(c), v));
    } else {
        __m128d x = _mm_loadl_pd(_mm_setzero_pd(), c);
        x = _mm_loadh_pd(x, c + 1);
        x = _mm_add_pd(x, v);
        _mm_storel_pd(c, x);
        _mm_storeh_pd(c + 1, x);
    }
}

template <bool Aligned>
void kernel(int m0, int n, int k, const double* a, int sa, const double* b, int ldb, double* c,
            int ldc, double* stage, bool packed, bool notb) {
    const int kk = (k + ku - 1) / ku * ku;
    for (int j = 0; j < n; j += nr) {
        const int cols = n - j < nr ? n - j : nr;
        const double* bj = packed ? b + (long)(j / nr) * ldb
                                  : b + (notb ? (long)j * ldb : (long)j);
        fill_stage(stage, bj, ldb, k, cols, packed, notb);
        double* cj = c + (long)j * ldc;
        for (int i = 0; i < m0; i += mr) {
            const double* ap = a + (long)(i / mr) * sa;
            const double* sp = stage;
            double* ct = cj + i;
            for (int q = 0; q < cols; ++q)
                _mm_prefetch((const char*)(ct + (long)q * ldc) + 0x10, _MM_HINT_T0);
            __m128d acc0 = _mm_setzero_pd(), acc1 = _mm_setzero_pd();
            __m128d acc2 = _mm_setzero_pd(), acc3 = _mm_setzero_pd();
            int l = kk;
            for (; l >= 8; l -= 8) {
                _mm_prefetch((const char*)ap + 0x600, _MM_HINT_T0);
                ZVA_SWAP_STEP(0)
                ZVA_SWAP_STEP(1)
                ZVA_SWAP_STEP(2)
                ZVA_SWAP_STEP(3)
                _mm_prefetch((const char*)ap + 0x640, _MM_HINT_T0);
                ZVA_SWAP_STEP(4)
                ZVA_SWAP_STEP(5)
                ZVA_SWAP_STEP(6)
                ZVA_SWAP_STEP(7)
                ap += 16, sp += 32;
            }
            if (l >= 4) {
                ZVA_SWAP_STEP(0)
                ZVA_SWAP_STEP(1)
                ZVA_SWAP_STEP(2)
                ZVA_SWAP_STEP(3)
            }
            // acc0 = (00, 11), acc1 = (01, 10), acc2 = (02, 13), acc3 = (03, 12).
            switch (cols) {
            case 4: add_column<Aligned>(ct + 3L * ldc, _mm_move_sd(acc2, acc3)); [[fallthrough]];
            case 3: add_column<Aligned>(ct + 2L * ldc, _mm_move_sd(acc3, acc2)); [[fallthrough]];
            case 2: add_column<Aligned>(ct + 1L * ldc, _mm_move_sd(acc0, acc1)); [[fallthrough]];
            default: add_column<Aligned>(ct, _mm_move_sd(acc1, acc0));
            }
        }
    }
}
#undef ZVA_SWAP_STEP

void block_multiply(Ch, Ch transb, I pm, I pn, I pk, const double*, const double* a, I plda,
                    const double* b, I pldb, const double* beta, double* c, I pldc,
                    double* stage, int mode) {
    const int m = *pm, n = *pn, k = *pk, sa = *plda, ldc = *pldc;
    if (m <= 0 || n <= 0) return;
    const int m0 = m - m % mr, r = m % mr;
    const bool packed = mode == 2, notb = (*transb & ~0x20) == 'N';
    if (m0) {
        if ((((uintptr_t)c | (uintptr_t)ldc * 8) & 15) == 0)
            kernel<true>(m0, n, k, a, sa, b, *pldb, c, ldc, stage, packed, notb);
        else
            kernel<false>(m0, n, k, a, sa, b, *pldb, c, ldc, stage, packed, notb);
    }
    if (r) {
        static const double one = 1.0;
        gemm_edge::edge<double, mr, nr, false>(r, n, k, a + (long)(m0 / mr) * sa, b, *pldb,
                                               c + m0, ldc, beta ? beta : &one, mode, *transb);
    }
}

}  // namespace
}  // namespace zva::gemm_swap

#define ZVA_GEMM_SWAP_D                                                        \
    void dgemm_copy_a_n(I m, I k, const double* a, I lda, double* buf, I s,    \
                        const double* alpha) {                                 \
        gemm_pack::copy_a<2, 4, false>(m, k, a, lda, buf, s, alpha);           \
    }                                                                          \
    void dgemm_copy_a_t(I m, I k, const double* a, I lda, double* buf, I s,    \
                        const double* alpha) {                                 \
        gemm_pack::copy_a<2, 4, true>(m, k, a, lda, buf, s, alpha);            \
    }                                                                          \
    void dgemm_copy_b_n(I k, I n, const double* b, I ldb, double* buf, I s,    \
                        const double* x) {                                     \
        gemm_pack::copy_b<4, 4, false>(k, n, b, ldb, buf, s, x);               \
    }                                                                          \
    void dgemm_copy_b_t(I k, I n, const double* b, I ldb, double* buf, I s,    \
                        const double* x) {                                     \
        gemm_pack::copy_b<4, 4, true>(k, n, b, ldb, buf, s, x);                \
    }                                                                          \
    void dgemm_block_multiply(Ch ta, Ch tb, I m, I n, I k, const double* al,   \
                              const double* a, I lda, const double* b, I ldb,  \
                              const double* be, double* c, I ldc,              \
                              double* stage, int mode) {                       \
        gemm_swap::block_multiply(ta, tb, m, n, k, al, a, lda, b, ldb, be, c,  \
                                  ldc, stage, mode);                           \
    }
