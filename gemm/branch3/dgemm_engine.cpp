// The D engine of branch 3: fixed blocks, no record. Tiles of 2 rows by 4
// columns, with every B value of a panel duplicated into both halves of a
// vector in the stage, so that the inner run needs no shuffle. Chunks of
// 128 steps of k; the first (short) chunk merges beta, the others add.
#include <pmmintrin.h>

#include "gemm/bstage.h"
#include "gemm/pack.h"

namespace zva::b3 {
namespace {

using namespace gemm_bstage;

constexpr int q = 128;         // steps of k per chunk
constexpr int row_block = 512; // rows of A packed at a time
constexpr int max_cols = 2000; // columns of B packed at a time

enum merge { add_to_c, store_c, scale_c_first };

// Four duplicated vectors per step of k, one per column of the panel.
inline void fill_stage(double* stage, const double* panel, int kk) {
    for (int l = 0; l < kk * 4; ++l) {
        if ((l & 15) == 0) _mm_prefetch((const char*)(panel + l) + 0x80, _MM_HINT_T0);
        _mm_store_pd(stage + 2 * l, _mm_loaddup_pd(panel + l));
    }
}

#define ZVA_B3_STEP(l)                                                         \
    {                                                                          \
        const __m128d x = _mm_load_pd(ap + 2 * (l));                           \
        const double* s = sp + 8 * (l);                                        \
        acc0 = _mm_add_pd(acc0, _mm_mul_pd(x, _mm_load_pd(s)));                \
        acc1 = _mm_add_pd(acc1, _mm_mul_pd(x, _mm_load_pd(s + 2)));            \
        acc2 = _mm_add_pd(acc2, _mm_mul_pd(x, _mm_load_pd(s + 4)));            \
        acc3 = _mm_add_pd(acc3, _mm_mul_pd(x, _mm_load_pd(s + 6)));            \
        asm volatile("" : "+x"(acc0), "+x"(acc1), "+x"(acc2), "+x"(acc3));     \
    }

inline void merge_column(double* c, __m128d acc, merge how, __m128d beta) {
    if (how == add_to_c) acc = _mm_add_pd(_mm_loadu_pd(c), acc);
    else if (how == scale_c_first) acc = _mm_add_pd(acc, _mm_mul_pd(beta, _mm_loadu_pd(c)));
    _mm_storeu_pd(c, acc);
}

// m (even) rows of packed A against n (a multiple of 4) columns of packed B
// over kk steps (a multiple of 4). Full accumulating chunks are one straight
// run of 128 steps.
template <bool Straight>
void kernel(int m, int n, int kk, const double* a, const double* b, double* c, int ldc,
            double* stage, merge how, double beta) {
    const __m128d vb = _mm_set1_pd(beta);
    for (int j = 0; j < n; j += 4) {
        fill_stage(stage, b + (long)j * kk, kk);
        for (int i = 0; i < m; i += 2) {
            double* ct = c + i + (long)j * ldc;
            for (int t = 0; t < 4; ++t) _mm_prefetch((const char*)(ct + (long)t * ldc), _MM_HINT_NTA);
            const double* ap = a + (long)i * kk;
            const double* sp = stage;
            __m128d acc0 = _mm_setzero_pd(), acc1 = _mm_setzero_pd();
            __m128d acc2 = _mm_setzero_pd(), acc3 = _mm_setzero_pd();
            if (Straight) {
#pragma GCC unroll 128
                for (int l = 0; l < q; ++l) {
                    if ((l & 3) == 0) _mm_prefetch((const char*)(ap + 2 * l) + 0x40, _MM_HINT_T0);
                    ZVA_B3_STEP(l)
                }
            } else {
                for (int l = 0; l < kk; l += 4) {
                    _mm_prefetch((const char*)(ap + 2 * l) + 0x40, _MM_HINT_T0);
                    ZVA_B3_STEP(l)
                    ZVA_B3_STEP(l + 1)
                    ZVA_B3_STEP(l + 2)
                    ZVA_B3_STEP(l + 3)
                }
            }
            merge_column(ct, acc0, how, vb);
            merge_column(ct + ldc, acc1, how, vb);
            merge_column(ct + 2L * ldc, acc2, how, vb);
            merge_column(ct + 3L * ldc, acc3, how, vb);
        }
    }
}
#undef ZVA_B3_STEP

void engine(Ch ta, Ch tb, I pm, I pn, I pk, const double* alpha, const double* a, I plda,
            const double* b, I pldb, const double* beta, double* c, I pldc) {
    const plain<double> p{gemm_direct<double>, gemm_scale_c<double>};
    if (head(p, ta, tb, pm, pn, pk, alpha, a, plda, b, pldb, beta, c, pldc)) return;
    const int m = *pm, n = *pn, k = *pk, lda = *plda, ldb = *pldb, ldc = *pldc;
    const bool nota = (*ta & ~0x20) == 'N', notb = (*tb & ~0x20) == 'N';
    const int nb = n < max_cols ? n : max_cols;
    char* blk = (char*)scratch_alloc((uint32_t)nb * 1024 + 551168, 128);
    if (err_no_memory(blk, "xdgemm")) {
        gemm_direct<double>(ta, tb, pm, pn, pk, alpha, a, plda, b, pldb, beta, c, pldc);
        return;
    }
    double* pa = (double*)(((uintptr_t)blk & ~(uintptr_t)4095) + 4096);
    double* pb = (double*)(((uintptr_t)(blk + 532992) & ~(uintptr_t)4095) + 4096);
    double* stage = (double*)(((uintptr_t)(blk + (long)nb * 1024 + 541184) & ~(uintptr_t)127) + 384);

    const int m2 = m - m % 2, n4 = n - n % 4;
    const double one = 1.0;
    for (int t = 0; t < chunk_count(k, q); ++t) {
        const chunk ch = chunk_at(k, q, t);
        const int kk = (ch.len + 3) & ~3;
        const double* bet = t == 0 ? beta : &one;
        const merge how = t > 0 || *bet == 1.0 ? add_to_c : *bet == 0.0 ? store_c : scale_c_first;
        for (int j = 0; j < n4; j += nb) {
            const int cols = n4 - j < nb ? n4 - j : nb;
            const int sb = 4 * kk;
            if (notb) gemm_pack::copy_b<4, 4, false>(&ch.len, &cols, at_b(b, notb, ldb, ch.start, j), pldb, pb, &sb, (const double*)nullptr);
            else gemm_pack::copy_b<4, 4, true>(&ch.len, &cols, at_b(b, notb, ldb, ch.start, j), pldb, pb, &sb, (const double*)nullptr);
            for (int i = 0; i < m2; i += row_block) {
                const int rows = m2 - i < row_block ? m2 - i : row_block;
                const int sa = 2 * kk;
                if (nota) gemm_pack::copy_a<2, 4, false>(&rows, &ch.len, at_a(a, nota, lda, i, ch.start), plda, pa, &sa, alpha);
                else gemm_pack::copy_a<2, 4, true>(&rows, &ch.len, at_a(a, nota, lda, i, ch.start), plda, pa, &sa, alpha);
                double* cij = c + i + (long)j * ldc;
                if (t > 0 && kk == q) kernel<true>(rows, cols, kk, pa, pb, cij, ldc, stage, how, 1.0);
                else kernel<false>(rows, cols, kk, pa, pb, cij, ldc, stage, how, *bet);
            }
        }
        // The odd last row, by the plain multiply over this chunk.
        if (m % 2 && n4) {
            const int one_row = 1;
            gemm_direct<double>(ta, tb, &one_row, &n4, &ch.len, alpha, at_a(a, nota, lda, m - 1, ch.start),
                         plda, at_b(b, notb, ldb, ch.start, 0), pldb, bet, c + (m - 1), pldc);
        }
    }
    scratch_free(blk);
    columns_by_gemv(*ta, *tb, m, n, k, n4, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace

void dgemm_serial(Ch ta, Ch tb, I m, I n, I k, const double* alpha, const double* a, I lda,
                  const double* b, I ldb, const double* beta, double* c, I ldc) {
    engine(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace zva::b3
