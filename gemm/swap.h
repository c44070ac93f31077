// The swap form of the 128-bit branches (5, and 4 on processors with
// SSE4.1): the 2 x 4 kernel in D and the 4 x 4 kernel in S.
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

#include "gemm/cpack.h"
#include "gemm/edge.h"

namespace zva::gemm_swap {
namespace {

constexpr int nr = 4, ku = 4;

// The forms of D (2 rows, the stage a copy of the panel) and S (4 rows,
// the stage widened: (x0 x1 x2 x3) becomes (x0 x0 x1 x1) (x2 x2 x3 x3)).
// Per step a is multiplied by the two stage vectors and by their copies
// with the 64-bit halves exchanged.
struct form_d {
    using R = double;
    using V = __m128d;
    static constexpr int mr = 2, widen = 1;
    static V load(const R* p) { return _mm_load_pd(p); }
    static V swap(V x) { return _mm_shuffle_pd(x, x, 1); }
    static V mul(V a, V b) { return _mm_mul_pd(a, b); }
    static V add(V a, V b) { return _mm_add_pd(a, b); }
    static V zero() { return _mm_setzero_pd(); }
    static void stage_step(R* st, const R* x) {
        _mm_store_pd(st, _mm_load_pd(x));
        _mm_store_pd(st + 2, _mm_load_pd(x + 2));
    }
    // acc0 = (00, 11), acc1 = (01, 10), acc2 = (02, 13), acc3 = (03, 12).
    static void columns(V acc0, V acc1, V acc2, V acc3, V* col) {
        col[0] = _mm_move_sd(acc1, acc0), col[1] = _mm_move_sd(acc0, acc1);
        col[2] = _mm_move_sd(acc3, acc2), col[3] = _mm_move_sd(acc2, acc3);
    }
    template <bool Aligned> static void add_column(R* c, V v) {
        if (Aligned) {
            _mm_store_pd(c, _mm_add_pd(_mm_load_pd(c), v));
        } else {
            V x = _mm_loadh_pd(_mm_loadl_pd(_mm_setzero_pd(), c), c + 1);
            x = _mm_add_pd(x, v);
            _mm_storel_pd(c, x);
            _mm_storeh_pd(c + 1, x);
        }
    }
};

struct form_s {
    using R = float;
    using V = __m128;
    static constexpr int mr = 4, widen = 2;
    static V load(const R* p) { return _mm_load_ps(p); }
    static V swap(V x) { return _mm_shuffle_ps(x, x, 0x4e); }
    static V mul(V a, V b) { return _mm_mul_ps(a, b); }
    static V add(V a, V b) { return _mm_add_ps(a, b); }
    static V zero() { return _mm_setzero_ps(); }
    static void stage_step(R* st, const R* x) {
        const V v = _mm_load_ps(x);
        _mm_store_ps(st, _mm_unpacklo_ps(v, v));
        _mm_store_ps(st + 4, _mm_unpackhi_ps(v, v));
    }
    // acc0 = (00 10 21 31), acc1 = (01 11 20 30), acc2 = (02 12 23 33),
    // acc3 = (03 13 22 32).
    static void columns(V acc0, V acc1, V acc2, V acc3, V* col) {
        col[0] = _mm_shuffle_ps(acc0, acc1, 0xe4), col[1] = _mm_shuffle_ps(acc1, acc0, 0xe4);
        col[2] = _mm_shuffle_ps(acc2, acc3, 0xe4), col[3] = _mm_shuffle_ps(acc3, acc2, 0xe4);
    }
    template <bool Aligned> static void add_column(R* c, V v) {
        if (Aligned) {
            _mm_store_ps(c, _mm_add_ps(_mm_load_ps(c), v));
        } else {
            const __m128d lo = _mm_castps_pd(_mm_add_ps(_mm_loadu_ps(c), v));
            _mm_storel_pd((double*)c, lo);
            _mm_storeh_pd((double*)(c + 2), lo);
        }
    }
};

// Stage of one panel: per step of k the four values of the columns, from
// the packed panel, or gathered from the caller's B with the last group of
// k padded with zeros; then widened for S.
template <class F>
void fill_stage(typename F::R* stage, const typename F::R* b, int ldb, int k, int cols,
                bool packed, bool notb) {
    using R = typename F::R;
    const int kk = (k + ku - 1) / ku * ku;
    if (packed) {
        for (int l = 0; l < kk; ++l) F::stage_step(stage + l * nr * F::widen, b + l * nr);
        return;
    }
    alignas(16) R x[nr];
    for (int l = 0; l < kk; ++l) {
        for (int j = 0; j < nr; ++j)
            x[j] = l < k && j < cols ? (notb ? b[l + (long)j * ldb] : b[j + (long)l * ldb]) : R(0);
        F::stage_step(stage + l * nr * F::widen, x);
    }
}

#define ZVA_SWAP_STEP(l)                                                       \
    {                                                                          \
        V a0 = F::load(ap + F::mr * (l));                                      \
        V b01 = F::load(sp + sw * (l));                                        \
        V b23 = F::load(sp + sw * (l) + sw / 2);                               \
        asm volatile("" : "+x"(a0), "+x"(b01), "+x"(b23));                     \
        acc0 = F::add(acc0, F::mul(b01, a0));                                  \
        acc1 = F::add(acc1, F::mul(F::swap(b01), a0));                         \
        acc2 = F::add(acc2, F::mul(b23, a0));                                  \
        acc3 = F::add(acc3, F::mul(F::swap(b23), a0));                         \
        asm volatile("" : "+x"(acc0), "+x"(acc1), "+x"(acc2), "+x"(acc3));     \
    }

template <class F, bool Aligned>
void kernel(int m0, int n, int k, const typename F::R* a, int sa, const typename F::R* b,
            int ldb, typename F::R* c, int ldc, typename F::R* stage, bool packed, bool notb) {
    using R = typename F::R;
    using V = typename F::V;
    constexpr int sw = nr * F::widen;  // stage reals per step
    const int kk = (k + ku - 1) / ku * ku;
    for (int j = 0; j < n; j += nr) {
        const int cols = n - j < nr ? n - j : nr;
        const R* bj = packed ? b + (long)(j / nr) * ldb : b + (notb ? (long)j * ldb : (long)j);
        fill_stage<F>(stage, bj, ldb, k, cols, packed, notb);
        R* cj = c + (long)j * ldc;
        for (int i = 0; i < m0; i += F::mr) {
            const R* ap = a + (long)(i / F::mr) * sa;
            const R* sp = stage;
            R* ct = cj + i;
            for (int q = 0; q < cols; ++q)
                _mm_prefetch((const char*)(ct + (long)q * ldc) + 0x10, _MM_HINT_T0);
            V acc0 = F::zero(), acc1 = F::zero(), acc2 = F::zero(), acc3 = F::zero();
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
                ap += 8 * F::mr, sp += 8 * sw;
            }
            if (l >= 4) {
                ZVA_SWAP_STEP(0)
                ZVA_SWAP_STEP(1)
                ZVA_SWAP_STEP(2)
                ZVA_SWAP_STEP(3)
            }
            V col[4];
            F::columns(acc0, acc1, acc2, acc3, col);
            for (int q = cols - 1; q >= 0; --q)
                F::template add_column<Aligned>(ct + (long)q * ldc, col[q]);
        }
    }
}
#undef ZVA_SWAP_STEP

template <class F>
void block_multiply(Ch, Ch transb, I pm, I pn, I pk, const typename F::R*,
                    const typename F::R* a, I plda, const typename F::R* b, I pldb,
                    const typename F::R* beta, typename F::R* c, I pldc, typename F::R* stage,
                    int mode) {
    using R = typename F::R;
    const int m = *pm, n = *pn, k = *pk, sa = *plda, ldc = *pldc;
    if (m <= 0 || n <= 0) return;
    const int m0 = m - m % F::mr, r = m % F::mr;
    const bool packed = mode == 2, notb = (*transb & ~0x20) == 'N';
    if (m0) {
        if ((((uintptr_t)c | (uintptr_t)ldc * sizeof(R)) & 15) == 0)
            kernel<F, true>(m0, n, k, a, sa, b, *pldb, c, ldc, stage, packed, notb);
        else
            kernel<F, false>(m0, n, k, a, sa, b, *pldb, c, ldc, stage, packed, notb);
    }
    if (r) {
        static const R one = 1;
        gemm_edge::edge<R, F::mr, nr, false>(r, n, k, a + (long)(m0 / F::mr) * sa, b, *pldb,
                                             c + m0, ldc, beta ? beta : &one, mode, *transb);
    }
}

}  // namespace
}  // namespace zva::gemm_swap

#define ZVA_GEMM_SWAP_BLOCK(p, F, T)                                           \
    void p##block_multiply(Ch ta, Ch tb, I m, I n, I k, const T* al,          \
                           const T* a, I lda, const T* b, I ldb, const T* be, \
                           T* c, I ldc, T* stage, int mode) {                  \
        gemm_swap::block_multiply<gemm_swap::F>(ta, tb, m, n, k, al, a, lda,   \
                                                b, ldb, be, c, ldc, stage,     \
                                                mode);                         \
    }
// The swap rows of one branch, D (2 x 4) and S (4 x 4).
#define ZVA_GEMM_SWAP                                                          \
    ZVA_GEMM_RPACK(dgemm_, double, 2, 4, 4)                                    \
    ZVA_GEMM_SWAP_BLOCK(dgemm_, form_d, double)                                \
    ZVA_GEMM_RPACK(sgemm_, float, 4, 4, 4)                                     \
    ZVA_GEMM_SWAP_BLOCK(sgemm_, form_s, float)
