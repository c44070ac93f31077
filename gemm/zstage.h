// The Z engine of branches 3 and 2: fixed blocks, no record, tiles of 2 x 2.
// Every value of a B panel is duplicated into both halves of a vector in
// the stage (br0, bi0, br1, bi1 per step), so that the inner run has no
// shuffle; A holds per step (re a0, re a1) and (im a0, im a1).
//
// Per column the real part takes + ar*br, then - ai*bi, the imaginary part
// + ai*br, then + ar*bi, one running sum each over a chunk. k is cut into
// chunks of 80; the short first chunk comes from the end of k and merges
// beta into C, the others add. Each chunk's sum is rounded into C in turn.
// Branch 3 duplicates with movddup, branch 2 by a load and an unpack.
#pragma once
#include <emmintrin.h>
#include <stdint.h>

#include "gemm/bstage.h"
#include "gemm/cpack.h"

namespace zva::gemm_zstage {
namespace {

using namespace gemm_bstage;

constexpr int q = 80;          // steps of k per chunk
constexpr int row_block = 160; // rows of A packed at a time
constexpr int max_cols = 2000; // columns of B packed at a time

enum merge { add_to_c, store_c, scale_c_first };

// Stage of one packed panel of two columns: four duplicated values per step.
template <__m128d (*Dup)(const double*)>
inline void fill_stage(double* stage, const double* panel, int kk) {
    for (int l = 0; l < 4 * kk; ++l) {
        if ((l & 15) == 0) _mm_prefetch((const char*)(panel + l) + 0x80, _MM_HINT_T0);
        _mm_store_pd(stage + 2 * l, Dup(panel + l));
    }
}

#define ZVA_ZB_STEP(l)                                                         \
    {                                                                          \
        const __m128d xr = _mm_load_pd(ap + 4 * (l)), xi = _mm_load_pd(ap + 4 * (l) + 2); \
        const double* s = sp + 8 * (l);                                        \
        re0 = _mm_add_pd(re0, _mm_mul_pd(xr, _mm_load_pd(s)));                 \
        re0 = _mm_sub_pd(re0, _mm_mul_pd(xi, _mm_load_pd(s + 2)));             \
        im0 = _mm_add_pd(im0, _mm_mul_pd(xi, _mm_load_pd(s)));                 \
        im0 = _mm_add_pd(im0, _mm_mul_pd(xr, _mm_load_pd(s + 2)));             \
        re1 = _mm_add_pd(re1, _mm_mul_pd(xr, _mm_load_pd(s + 4)));             \
        re1 = _mm_sub_pd(re1, _mm_mul_pd(xi, _mm_load_pd(s + 6)));             \
        im1 = _mm_add_pd(im1, _mm_mul_pd(xi, _mm_load_pd(s + 4)));             \
        im1 = _mm_add_pd(im1, _mm_mul_pd(xr, _mm_load_pd(s + 6)));             \
        asm volatile("" : "+x"(re0), "+x"(im0), "+x"(re1), "+x"(im1));         \
    }

// One element of C from its sum: beta other than 0 and 1 reads the table
// (re, im, -im, re), so that beta*C is (cr, cr)*(re, im) + (ci, ci)*(-im, re),
// rounded before the sum is added.
template <bool Aligned>
inline void merge_element(double* c, __m128d acc, merge how, const double* table) {
    __m128d x;
    if (how != store_c) x = Aligned ? _mm_load_pd(c) : _mm_loadh_pd(_mm_load_sd(c), c + 1);
    if (how == add_to_c) {
        acc = _mm_add_pd(x, acc);
    } else if (how == scale_c_first) {
        const __m128d cr = _mm_unpacklo_pd(x, x), ci = _mm_unpackhi_pd(x, x);
        const __m128d bc = _mm_add_pd(_mm_mul_pd(cr, _mm_load_pd(table)),
                                      _mm_mul_pd(ci, _mm_load_pd(table + 2)));
        acc = _mm_add_pd(bc, acc);
    }
    if (Aligned) {
        _mm_store_pd(c, acc);
    } else {
        _mm_storel_pd(c, acc);
        _mm_storeh_pd(c + 1, acc);
    }
}

// m (even) rows of packed A against n (even) columns of packed B over kk
// steps (a multiple of 4). Full accumulating chunks are one straight run of
// 80 steps; the first chunk tests for its end after every 4 steps.
template <__m128d (*Dup)(const double*), bool Straight, bool Aligned>
void kernel(int m, int n, int kk, const double* a, const double* b, c64* c, int ldc,
            double* stage, merge how, const double* table) {
    for (int j = 0; j < n; j += 2) {
        fill_stage<Dup>(stage, b + (long)j * 2 * kk, kk);
        for (int i = 0; i < m; i += 2) {
            double* ct = (double*)(c + i + (long)j * ldc);
            const double* ap = a + (long)i * 2 * kk;
            const double* sp = stage;
            __m128d re0 = _mm_setzero_pd(), im0 = _mm_setzero_pd();
            __m128d re1 = _mm_setzero_pd(), im1 = _mm_setzero_pd();
            if (Straight) {
#pragma GCC unroll 80
                for (int l = 0; l < q; ++l) ZVA_ZB_STEP(l)
            } else {
                for (int l = 0; l < kk; l += 4) {
                    _mm_prefetch((const char*)(ap + 4 * l) + 0x100, _MM_HINT_T0);
                    ZVA_ZB_STEP(l)
                    ZVA_ZB_STEP(l + 1)
                    ZVA_ZB_STEP(l + 2)
                    ZVA_ZB_STEP(l + 3)
                }
            }
            // (re of rows 0 and 1) and (im ...) back to (re, im) pairs.
            const long l2 = 2L * ldc;
            merge_element<Aligned>(ct, _mm_unpacklo_pd(re0, im0), how, table);
            merge_element<Aligned>(ct + 2, _mm_unpackhi_pd(re0, im0), how, table);
            merge_element<Aligned>(ct + l2, _mm_unpacklo_pd(re1, im1), how, table);
            merge_element<Aligned>(ct + l2 + 2, _mm_unpackhi_pd(re1, im1), how, table);
        }
    }
}
#undef ZVA_ZB_STEP

template <__m128d (*Dup)(const double*)>
void run(bool straight, int m, int n, int kk, const double* a, const double* b, c64* c, int ldc,
         double* stage, merge how, const double* table) {
    const bool aligned = ((uintptr_t)c & 15) == 0;
    if (straight) {
        if (aligned) kernel<Dup, true, true>(m, n, kk, a, b, c, ldc, stage, how, table);
        else kernel<Dup, true, false>(m, n, kk, a, b, c, ldc, stage, how, table);
    } else {
        if (aligned) kernel<Dup, false, true>(m, n, kk, a, b, c, ldc, stage, how, table);
        else kernel<Dup, false, false>(m, n, kk, a, b, c, ldc, stage, how, table);
    }
}

template <__m128d (*Dup)(const double*)>
void engine(Ch ta, Ch tb, I pm, I pn, I pk, const c64* alpha, const c64* a, I plda,
            const c64* b, I pldb, const c64* beta, c64* c, I pldc,
            sig_gemm_serial<c64>* direct, sig_gemm_scale_c<c64>* scale_c) {
    const plain<c64> p{direct, scale_c};
    if (alpha_zero(p, pm, pn, alpha, beta, c, pldc)) return;
    const int m = *pm, n = *pn, k = *pk, lda = *plda, ldb = *pldb, ldc = *pldc;
    if (m < 4 || k < 8 || n < 4) {
        direct(ta, tb, pm, pn, pk, alpha, a, plda, b, pldb, beta, c, pldc);
        return;
    }
    const char la = *ta & ~0x20, lb = *tb & ~0x20;
    const bool nota = la == 'N', notb = lb == 'N';
    const int nb = n < max_cols ? n : max_cols;
    char* blk = (char*)scratch_alloc((uint32_t)nb * 1280 + 228608, 128);
    if (err_no_memory(blk, "xzgemm")) {
        direct(ta, tb, pm, pn, pk, alpha, a, plda, b, pldb, beta, c, pldc);
        return;
    }
    double* pa = (double*)align_up(blk, 4096);
    double* pb = (double*)align_up(blk + 220416, 4096);
    double* stage = (double*)(align_up(blk + 213504, 128) + 512);
    alignas(16) const double table[4] = {beta->re, beta->im, -beta->im, beta->re};

    const int m2 = m - m % 2, n2 = n - n % 2;
    const c64 one{1, 0};
    for (int t = 0; t < chunk_count(k, q); ++t) {
        const chunk ch = chunk_at(k, q, t);
        const int kk = (ch.len + 3) & ~3;
        const c64* bet = t == 0 ? beta : &one;
        const merge how = is_one(*bet) ? add_to_c : is_zero(*bet) ? store_c : scale_c_first;
        for (int j = 0; j < n2; j += nb) {
            const int cols = n2 - j < nb ? n2 - j : nb;
            const int sb = 2 * kk;
            const c64* bj = at_b(b, notb, ldb, ch.start, j);
            c64* pbc = (c64*)pb;
            if (notb) gemm_cpack::copy_b<2, 4, false, false>(&ch.len, &cols, bj, pldb, pbc, &sb, &one);
            else if (lb == 'C') gemm_cpack::copy_b<2, 4, true, true>(&ch.len, &cols, bj, pldb, pbc, &sb, &one);
            else gemm_cpack::copy_b<2, 4, true, false>(&ch.len, &cols, bj, pldb, pbc, &sb, &one);
            for (int i = 0; i < m2; i += row_block) {
                const int rows = m2 - i < row_block ? m2 - i : row_block;
                const int sa = 2 * kk;
                const c64* ai = at_a(a, nota, lda, i, ch.start);
                c64* pac = (c64*)pa;
                if (nota) gemm_cpack::copy_a<2, 4, false, false, true, false>(&rows, &ch.len, ai, plda, pac, &sa, alpha);
                else if (la == 'C') gemm_cpack::copy_a<2, 4, true, true, true, false>(&rows, &ch.len, ai, plda, pac, &sa, alpha);
                else gemm_cpack::copy_a<2, 4, true, false, true, false>(&rows, &ch.len, ai, plda, pac, &sa, alpha);
                run<Dup>(t > 0 && kk == q, rows, cols, kk, pa, pb, c + i + (long)j * ldc, ldc,
                         stage, how, table);
            }
        }
        // The odd last row, by the plain multiply over this chunk.
        if (m % 2 && n2) {
            const int one_row = 1;
            direct(ta, tb, &one_row, &n2, &ch.len, alpha, at_a(a, nota, lda, m - 1, ch.start),
                   plda, at_b(b, notb, ldb, ch.start, 0), pldb, bet, c + (m - 1), pldc);
        }
    }
    // The odd last column by the matrix-vector product; a conjugated row of
    // B is copied into the A area first.
    const bool fits = (long)k * 16 <= 200000;
    if (n % 2 && (lb != 'C' || fits)) {
        columns_by_gemv<c64>(*ta, *tb, m, n, k, n2, alpha, a, lda, b, ldb, beta, c, ldc,
                             (c64*)pa);
    } else if (n % 2) {
        const int one_col = 1;
        direct(ta, tb, pm, &one_col, pk, alpha, a, plda, at_b(b, notb, ldb, 0, n2), pldb, beta,
               c + (long)n2 * ldc, pldc);
    }
    scratch_free(blk);
}

}  // namespace
}  // namespace zva::gemm_zstage

// The S, C and Z entries of one of the branches 3 and 2, with its way of
// duplicating a value into both halves of a vector.
#define ZVA_GEMM_STAGED_ENGINES(dup)                                           \
    void sgemm_serial(Ch ta, Ch tb, I m, I n, I k, const float* al,            \
                      const float* a, I lda, const float* b, I ldb,            \
                      const float* be, float* c, I ldc) {                      \
        gemm_klane::engine<float>(ta, tb, m, n, k, al, a, lda, b, ldb, be, c,  \
                                  ldc, gemm_direct<float>, gemm_scale_c<float>);           \
    }                                                                          \
    void cgemm_serial(Ch ta, Ch tb, I m, I n, I k, const c32* al,              \
                      const c32* a, I lda, const c32* b, I ldb, const c32* be, \
                      c32* c, I ldc) {                                         \
        gemm_klane::engine<c32>(ta, tb, m, n, k, al, a, lda, b, ldb, be, c,    \
                                ldc, gemm_direct<c32>, gemm_scale_c<c32>);             \
    }                                                                          \
    void zgemm_serial(Ch ta, Ch tb, I m, I n, I k, const c64* al,              \
                      const c64* a, I lda, const c64* b, I ldb, const c64* be, \
                      c64* c, I ldc) {                                         \
        gemm_zstage::engine<dup>(ta, tb, m, n, k, al, a, lda, b, ldb, be, c,   \
                                 ldc, gemm_direct<c64>, gemm_scale_c<c64>);            \
    }
