// The split complex form of the 128-bit branches (5 and 4): C in tiles of
// 4 x 2, Z in tiles of 2 x 2. The packed A holds per step the real parts of
// the panel's rows, then their imaginary parts; the stage splits B into
// real and imaginary vectors, so that the loop never multiplies a pair.
//
// Per element and step the real part takes + ar*br, then - ai*bi, and the
// imaginary part + ar*bi, then + ai*br: one running sum each, in increasing
// k, whatever the unrolling. Two stages give the same bits:
//  - Bcast false: (br0 br0 br1 br1) and (bi0 bi0 bi1 bi1) for C, (br0 br1)
//    and (bi0 bi1) for Z; the rows are multiplied as they are and with the
//    halves of the vector exchanged;
//  - Bcast true (processors without SSE4.1): each of br0, bi0, br1, bi1
//    fills a whole vector, and the loop has no shuffle.
#pragma once
#include <emmintrin.h>
#include <stdint.h>

#include "gemm/cpack.h"
#include "gemm/edge.h"

namespace zva::gemm_split {
namespace {

constexpr int nr = 2, ku = 2;

struct form_z {
    using T = c64;
    using R = double;
    using V = __m128d;
    static constexpr int mr = 2, w = 2;  // rows, reals per vector
    static V load(const R* p) { return _mm_load_pd(p); }
    static void store(R* p, V v) { _mm_store_pd(p, v); }
    static V set1(R x) { return _mm_set1_pd(x); }
    static V swap(V x) { return _mm_shuffle_pd(x, x, 1); }
    static V mul(V a, V b) { return _mm_mul_pd(a, b); }
    static V add(V a, V b) { return _mm_add_pd(a, b); }
    static V sub(V a, V b) { return _mm_sub_pd(a, b); }
    static V zero() { return _mm_setzero_pd(); }
    // (br0 br1), (bi0 bi1) from the pairs of one step.
    static void split(R* st, const R* x) {
        const V p0 = _mm_loadu_pd(x), p1 = _mm_loadu_pd(x + 2);
        _mm_store_pd(st, _mm_unpacklo_pd(p0, p1));
        _mm_store_pd(st + 2, _mm_unpackhi_pd(p0, p1));
    }
    // Lanes of the unexchanged sums: (00, 11); of the exchanged: (10, 01).
    static void columns(V re0, V re1, V* re) {
        re[0] = _mm_unpacklo_pd(re0, re1), re[1] = _mm_unpackhi_pd(re1, re0);
    }
    // One column of mr elements: C += (re, im) interleaved.
    static void add_column(R* c, V re, V im) {
        _mm_storeu_pd(c, _mm_add_pd(_mm_loadu_pd(c), _mm_unpacklo_pd(re, im)));
        _mm_storeu_pd(c + 2, _mm_add_pd(_mm_loadu_pd(c + 2), _mm_unpackhi_pd(re, im)));
    }
};

struct form_c {
    using T = c32;
    using R = float;
    using V = __m128;
    static constexpr int mr = 4, w = 4;
    static V load(const R* p) { return _mm_load_ps(p); }
    static void store(R* p, V v) { _mm_store_ps(p, v); }
    static V set1(R x) { return _mm_set1_ps(x); }
    static V swap(V x) { return _mm_shuffle_ps(x, x, 0x4e); }
    static V mul(V a, V b) { return _mm_mul_ps(a, b); }
    static V add(V a, V b) { return _mm_add_ps(a, b); }
    static V sub(V a, V b) { return _mm_sub_ps(a, b); }
    static V zero() { return _mm_setzero_ps(); }
    // (br0 br0 br1 br1), (bi0 bi0 bi1 bi1) from (br0 bi0 br1 bi1).
    static void split(R* st, const R* x) {
        const V p = _mm_loadu_ps(x);
        _mm_store_ps(st, _mm_shuffle_ps(p, p, 0xa0));
        _mm_store_ps(st + 4, _mm_shuffle_ps(p, p, 0xf5));
    }
    // Unexchanged lanes: (00 10 21 31); exchanged: (20 30 01 11).
    static void columns(V re0, V re1, V* re) {
        re[0] = _mm_movelh_ps(re0, re1), re[1] = _mm_movehl_ps(re0, re1);
    }
    static void add_column(R* c, V re, V im) {
        _mm_storeu_ps(c, _mm_add_ps(_mm_loadu_ps(c), _mm_unpacklo_ps(re, im)));
        _mm_storeu_ps(c + 4, _mm_add_ps(_mm_loadu_ps(c + 4), _mm_unpackhi_ps(re, im)));
    }
};

// Reals of stage per step.
template <class F, bool Bcast> constexpr int stage_step = Bcast ? 4 * F::w : 2 * F::w;

// Stage of one panel of two columns over kk steps (k real ones, zeros
// after). From the packed panel, or from the caller's B by its letter; the
// letter "C" conjugates here as 0 - bi.
template <class F, bool Bcast>
void fill_stage(typename F::R* stage, const typename F::T* b, int ldb, int k, int kk, int cols,
                bool packed, char tb) {
    using R = typename F::R;
    using T = typename F::T;
    const bool notb = (tb & 0x4e) == 0x4e, conj = !notb && (tb & 0x43) == 0x43;
    constexpr int sw = stage_step<F, Bcast>;
    for (int l = 0; l < kk; ++l) {
        alignas(16) R x[4];
        if (packed) {
            const R* p = (const R*)(b + l * nr);
            x[0] = p[0], x[1] = p[1], x[2] = p[2], x[3] = p[3];
        } else {
            for (int j = 0; j < nr; ++j) {
                T v{};
                if (l < k && j < cols) {
                    v = notb ? b[l + (long)j * ldb] : b[j + (long)l * ldb];
                    if (conj) v.im = R(0) - v.im;
                }
                x[2 * j] = v.re, x[2 * j + 1] = v.im;
            }
        }
        R* st = stage + l * sw;
        if (Bcast)
            for (int q = 0; q < 4; ++q) F::store(st + q * F::w, F::set1(x[q]));
        else
            F::split(st, x);
    }
}

// One step: the real part + ar*br then - ai*bi, the imaginary part + ar*bi
// then + ai*br. B is read from the stage at each use, so that four
// accumulators, the two A vectors and a product fit the eight registers;
// the empty asm statements keep the compiler from hoisting loads of later
// steps and spilling the sums.
#define ZVA_SPLIT_MAC(re, im, xr, xi, br, bi)                                  \
    re = F::add(re, F::mul(xr, F::load(br)));                                  \
    re = F::sub(re, F::mul(xi, F::load(bi)));                                  \
    im = F::add(im, F::mul(xr, F::load(bi)));                                  \
    im = F::add(im, F::mul(xi, F::load(br)));
#define ZVA_SPLIT_STEP(ap, sp)                                                 \
    {                                                                          \
        V xr = F::load(ap), xi = F::load((ap) + F::w);                         \
        asm volatile("" : "+x"(xr), "+x"(xi));                                 \
        if (Bcast) {                                                           \
            ZVA_SPLIT_MAC(re0, im0, xr, xi, sp, (sp) + F::w)                   \
            ZVA_SPLIT_MAC(re1, im1, xr, xi, (sp) + 2 * F::w, (sp) + 3 * F::w)  \
        } else {                                                               \
            ZVA_SPLIT_MAC(re0, im0, xr, xi, sp, (sp) + F::w)                   \
            xr = F::swap(xr), xi = F::swap(xi);                                \
            ZVA_SPLIT_MAC(re1, im1, xr, xi, sp, (sp) + F::w)                   \
        }                                                                      \
        asm volatile("" : "+x"(re0), "+x"(im0), "+x"(re1), "+x"(im1));         \
    }

template <class F, bool Bcast>
void kernel(int m0, int n, int k, const typename F::T* a, int sa, const typename F::T* b,
            int ldb, typename F::T* c, int ldc, typename F::R* stage, bool packed, char tb) {
    using R = typename F::R;
    using V = typename F::V;
    constexpr int sw = stage_step<F, Bcast>, aw = 2 * F::w;
    const int kk = (k + ku - 1) / ku * ku;
    const bool notb = (tb & 0x4e) == 0x4e;
    for (int j = 0; j < n; j += nr) {
        const int cols = n - j < nr ? n - j : nr;
        const typename F::T* bj =
            packed ? b + (long)(j / nr) * ldb : b + (notb ? (long)j * ldb : (long)j);
        fill_stage<F, Bcast>(stage, bj, ldb, k, kk, cols, packed, tb);
        for (int i = 0; i < m0; i += F::mr) {
            const R* ap = (const R*)(a + (long)(i / F::mr) * sa);
            const R* sp = stage;
            V re0 = F::zero(), im0 = F::zero(), re1 = F::zero(), im1 = F::zero();
            int l = 0;
            for (; l + 16 <= kk; l += 16) {
                _mm_prefetch((const char*)ap + 0x400, _MM_HINT_T0);
#pragma GCC unroll 16
                for (int s = 0; s < 16; ++s) ZVA_SPLIT_STEP(ap + s * aw, sp + s * sw)
                ap += 16 * aw, sp += 16 * sw;
            }
            for (; l < kk; ++l, ap += aw, sp += sw) ZVA_SPLIT_STEP(ap, sp)
            V re[2], im[2];
            if (Bcast) {
                re[0] = re0, im[0] = im0, re[1] = re1, im[1] = im1;
            } else {
                F::columns(re0, re1, re);
                F::columns(im0, im1, im);
            }
            R* ct = (R*)(c + i + (long)j * ldc);
            for (int q = 0; q < cols; ++q) F::add_column(ct + 2L * q * ldc, re[q], im[q]);
        }
    }
}

#undef ZVA_SPLIT_STEP
#undef ZVA_SPLIT_MAC

template <class F, bool Bcast>
void block_multiply(Ch, Ch transb, I pm, I pn, I pk, const typename F::T*,
                    const typename F::T* a, I plda, const typename F::T* b, I pldb,
                    const typename F::T* beta, typename F::T* c, I pldc, typename F::T* stage,
                    int mode) {
    using T = typename F::T;
    const int m = *pm, n = *pn, k = *pk, sa = *plda, ldc = *pldc;
    if (m <= 0 || n <= 0) return;
    const int m0 = m - m % F::mr, r = m % F::mr;
    if (m0)
        kernel<F, Bcast>(m0, n, k, a, sa, b, *pldb, c, ldc, (typename F::R*)stage, mode == 2,
                         *transb);
    if (r) {
        static const T one = gemm_edge::unit<T>();
        gemm_edge::edge_c<T, F::mr, nr, false, true>(r, n, k, a + (long)(m0 / F::mr) * sa, b,
                                                     *pldb, c + m0, ldc, beta ? beta : &one,
                                                     mode, *transb);
    }
}

}  // namespace
}  // namespace zva::gemm_split

#define ZVA_GEMM_SPLIT_BLOCK(p, F, T, bcast)                                   \
    void p##block_multiply(Ch ta, Ch tb, I m, I n, I k, const T* al,          \
                           const T* a, I lda, const T* b, I ldb, const T* be, \
                           T* c, I ldc, T* stage, int mode) {                  \
        gemm_split::block_multiply<gemm_split::F, bcast>(                      \
            ta, tb, m, n, k, al, a, lda, b, ldb, be, c, ldc, stage, mode);     \
    }
// The split rows of one branch in C and Z; both stages share the packing.
#define ZVA_GEMM_SPLIT(p, bcast)                                               \
    ZVA_GEMM_CPACK(c##p, c32, 4, 2, 2, true, false)                            \
    ZVA_GEMM_SPLIT_BLOCK(c##p, form_c, c32, bcast)                             \
    ZVA_GEMM_CPACK(z##p, c64, 2, 2, 2, true, false)                            \
    ZVA_GEMM_SPLIT_BLOCK(z##p, form_z, c64, bcast)
