// The D engine of branch 2: fixed blocks, no record, SSE2 only. Tiles of 4
// rows by 2 columns; B values are duplicated into the stage by a scalar
// load and an unpack. Chunks of 104 steps of k and blocks of 260 rows.
//
// Two forms. The A form scales C first, packs only A and fills the stage
// straight from the caller's B. The packed form packs B as well, and its
// first chunk merges beta into C. Which one runs depends on the shape.
//
// Within each group of 4 steps, rows 0 and 1 of a tile add the steps in
// the order 0, 2, 1, 3 and rows 2 and 3 in the order 0, 1, 2, 3. A chunk of
// 2 mod 4 steps ends with a pair that both halves add in the order 0, 1.
#include <emmintrin.h>

#include "gemm/bstage.h"
#include "gemm/pack.h"

namespace zva::b2 {
namespace {

using namespace gemm_bstage;

constexpr int q = 104;
constexpr int row_block = 260;
constexpr int max_cols = 2000;

enum merge { add_to_c, store_c, scale_c_first };

inline __m128d dup(const double* p) {
    const __m128d x = _mm_load_sd(p);
    return _mm_unpacklo_pd(x, x);
}

// Stage of two columns: per step two duplicated vectors. From a packed panel
// of two columns, or from the caller's B: for "N" two columns ldb apart, for
// other letters two neighbours, ldb apart from step to step. Zero steps pad
// up to kk.
inline void stage_packed(double* stage, const double* panel, int kk) {
    for (int l = 0; l < 2 * kk; ++l) {
        if ((l & 15) == 0) _mm_prefetch((const char*)(panel + l) + 0x80, _MM_HINT_T0);
        _mm_store_pd(stage + 2 * l, dup(panel + l));
    }
}
inline void stage_in_place(double* stage, const double* b, int ldb, bool notb, int k, int kk,
                           int cols) {
    for (int l = 0; l < k; ++l) {
        const double* p0 = notb ? b + l : b + (long)l * ldb;
        const double* p1 = notb ? p0 + ldb : p0 + 1;
        if (notb) _mm_prefetch((const char*)p0 + 0x200, _MM_HINT_NTA);
        _mm_store_pd(stage + 4 * l, dup(p0));
        _mm_store_pd(stage + 4 * l + 2, cols > 1 ? dup(p1) : _mm_setzero_pd());
    }
    for (int l = k; l < kk; ++l) {
        _mm_store_pd(stage + 4 * l, _mm_setzero_pd());
        _mm_store_pd(stage + 4 * l + 2, _mm_setzero_pd());
    }
}

#define ZVA_B2_TOP(l)                                                          \
    {                                                                          \
        const __m128d x = _mm_load_pd(ap + 4 * (l));                           \
        acc0 = _mm_add_pd(acc0, _mm_mul_pd(x, _mm_load_pd(sp + 4 * (l))));     \
        acc1 = _mm_add_pd(acc1, _mm_mul_pd(x, _mm_load_pd(sp + 4 * (l) + 2))); \
        asm volatile("" : "+x"(acc0), "+x"(acc1));                             \
    }
#define ZVA_B2_LOW(l)                                                          \
    {                                                                          \
        const __m128d x = _mm_load_pd(ap + 4 * (l) + 2);                       \
        acc2 = _mm_add_pd(acc2, _mm_mul_pd(x, _mm_load_pd(sp + 4 * (l))));     \
        acc3 = _mm_add_pd(acc3, _mm_mul_pd(x, _mm_load_pd(sp + 4 * (l) + 2))); \
        asm volatile("" : "+x"(acc2), "+x"(acc3));                             \
    }
// The empty asm statements keep the steps in program order, which holds the
// live values to the eight registers.
#define ZVA_B2_GROUP(l)                                                        \
    ZVA_B2_TOP(l) ZVA_B2_LOW(l) ZVA_B2_LOW((l) + 1) ZVA_B2_TOP((l) + 2)        \
    ZVA_B2_LOW((l) + 2) ZVA_B2_TOP((l) + 1) ZVA_B2_TOP((l) + 3) ZVA_B2_LOW((l) + 3)

inline void merge_pair(double* c, int rows, __m128d acc, merge how, __m128d beta) {
    double v[2];
    _mm_storeu_pd(v, acc);
    for (int r = 0; r < rows; ++r) {
        if (how == add_to_c) c[r] = c[r] + v[r];
        else if (how == store_c) c[r] = v[r];
        else c[r] = v[r] + beta[r] * c[r];
    }
}

// rows of packed A (panels of 4, the last one partial) against the staged
// pair of columns; kk steps (even). A full chunk of the accumulating kind
// is one straight run of 104 steps.
template <bool Straight>
void tiles(int rows, int cols, int kk, const double* a, const double* sp0, double* c, int ldc,
           merge how, double beta) {
    const __m128d vb = _mm_set1_pd(beta);
    for (int i = 0; i < rows; i += 4) {
        const int r = rows - i < 4 ? rows - i : 4;
        const double* ap = a + (long)i * kk;
        const double* sp = sp0;
        double* ct = c + i;
        _mm_prefetch((const char*)ct, _MM_HINT_T0);
        _mm_prefetch((const char*)(ct + ldc), _MM_HINT_T0);
        __m128d acc0 = _mm_setzero_pd(), acc1 = _mm_setzero_pd();
        __m128d acc2 = _mm_setzero_pd(), acc3 = _mm_setzero_pd();
        if (Straight) {
#pragma GCC unroll 26
            for (int l = 0; l < q; l += 4) { ZVA_B2_GROUP(l) }
        } else {
            int l = 0;
            for (; l + 4 <= kk; l += 4) { ZVA_B2_GROUP(l) }
            if (l < kk) {
                ZVA_B2_TOP(l) ZVA_B2_LOW(l) ZVA_B2_TOP(l + 1) ZVA_B2_LOW(l + 1)
            }
        }
        // Partial panels: the rows that exist are stored.
        merge_pair(ct, r < 2 ? r : 2, acc0, how, vb);
        if (cols > 1) merge_pair(ct + ldc, r < 2 ? r : 2, acc1, how, vb);
        if (r > 2) {
            merge_pair(ct + 2, r - 2, acc2, how, vb);
            if (cols > 1) merge_pair(ct + ldc + 2, r - 2, acc3, how, vb);
        }
    }
}
#undef ZVA_B2_TOP
#undef ZVA_B2_LOW
#undef ZVA_B2_GROUP

// The form of a shape: the A form reads B in place.
bool a_form(bool notb, int m, int n, int k) {
    if (notb) {
        if (n > 100 && n < 600) return m <= k + 100;
        if (n == 600 || (n > 600 && m >= k - 100)) return false;
        return m < 601;
    }
    if (n <= 100 && m < 250 && k > 100) return true;
    if (n < 80) return false;
    return m <= k && m < 300;
}

void engine(Ch ta, Ch tb, I pm, I pn, I pk, const double* alpha, const double* a, I plda,
            const double* b, I pldb, const double* beta, double* c, I pldc) {
    const plain<double> p{gemm_direct<double>, gemm_scale_c<double>};
    if (head(p, ta, tb, pm, pn, pk, alpha, a, plda, b, pldb, beta, c, pldc)) return;
    const int m = *pm, n = *pn, k = *pk, lda = *plda, ldb = *pldb, ldc = *pldc;
    const bool nota = (*ta & ~0x20) == 'N', notb = (*tb & ~0x20) == 'N';
    const bool in_place = a_form(notb, m, n, k);
    const int nb = n < max_cols ? n : max_cols;
    // A panels first, then the stage, then (packed form) B, each aligned
    // inside the one block.
    const uint32_t size = in_place ? 0x37f00 : (uint32_t)nb * 832 + 0x39f00;
    char* blk = (char*)scratch_alloc(size, 128);
    if (err_no_memory(blk, "xdgemm")) {
        gemm_direct<double>(ta, tb, pm, pn, pk, alpha, a, plda, b, pldb, beta, c, pldc);
        return;
    }
    double* pa = (double*)align_up(blk, 4096);
    double* stage = (double*)align_up((char*)(pa + row_block * q), 128);
    double* pb = (double*)align_up((char*)(stage + 4 * q), 4096);

    const int n2 = n - n % 2;
    const double one = 1.0;
    if (in_place && *beta != 1.0) gemm_scale_c<double>(pm, pn, beta, c, pldc);
    for (int t = 0; t < chunk_count(k, q); ++t) {
        const chunk ch = chunk_at(k, q, t);
        const int kk = (ch.len + 1) & ~1;
        const double bet = t == 0 && !in_place ? *beta : 1.0;
        const merge how = bet == 1.0 ? add_to_c : bet == 0.0 ? store_c : scale_c_first;
        const bool straight = kk == q && how == add_to_c;
        for (int j = 0; j < n2; j += nb) {
            const int cols = n2 - j < nb ? n2 - j : nb;
            const int sb = 2 * kk;
            if (!in_place) {
                if (notb) gemm_pack::copy_b<2, 2, false>(&ch.len, &cols, at_b(b, notb, ldb, ch.start, j), pldb, pb, &sb, (const double*)nullptr);
                else gemm_pack::copy_b<2, 2, true>(&ch.len, &cols, at_b(b, notb, ldb, ch.start, j), pldb, pb, &sb, (const double*)nullptr);
            }
            for (int i = 0; i < m; i += row_block) {
                const int rows = m - i < row_block ? m - i : row_block;
                const int sa = 4 * kk;
                if (nota) gemm_pack::copy_a<4, 2, false>(&rows, &ch.len, at_a(a, nota, lda, i, ch.start), plda, pa, &sa, alpha);
                else gemm_pack::copy_a<4, 2, true>(&rows, &ch.len, at_a(a, nota, lda, i, ch.start), plda, pa, &sa, alpha);
                for (int jj = 0; jj < cols; jj += 2) {
                    if (in_place)
                        stage_in_place(stage, at_b(b, notb, ldb, ch.start, j + jj), ldb, notb, ch.len, kk, 2);
                    else
                        stage_packed(stage, pb + (long)jj * kk, kk);
                    double* cij = c + i + (long)(j + jj) * ldc;
                    if (straight) tiles<true>(rows, 2, kk, pa, stage, cij, ldc, how, bet);
                    else tiles<false>(rows, 2, kk, pa, stage, cij, ldc, how, bet);
                }
            }
        }
    }
    scratch_free(blk);
    // The odd last column; in the A form beta is already in C.
    columns_by_gemv(*ta, *tb, m, n, k, n2, alpha, a, lda, b, ldb, in_place ? &one : beta, c, ldc);
}

}  // namespace

void dgemm_serial(Ch ta, Ch tb, I m, I n, I k, const double* alpha, const double* a, I lda,
                  const double* b, I ldb, const double* beta, double* c, I ldc) {
    engine(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc);
}

}  // namespace zva::b2
