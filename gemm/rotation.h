// The rotation form of the 256-bit branches (6 and 7): packing and the 4 x 4
// kernel in D. Branch 7 compiles the very same kernel as branch 6 (separate
// multiply and add); only its edge rows fuse.
//
// Per step of k one vector of A (4 rows) and one of B (4 columns) are loaded
// and four products are formed against the rotations of both: a*b, a*b'
// (halves of b exchanged), a'*b and a'*b' (neighbours of a exchanged). Each
// lane of each accumulator is one element of the tile, so every element is a
// running sum in increasing k, started at zero and added to C once per call.
#pragma once
#include <immintrin.h>

#include "gemm/edge.h"
#include "gemm/engine.h"

namespace zva::gemm_rot {
namespace {

constexpr int mr = 4, nr = 4, ku = 4;

inline int round_ku(int k) { return (k + ku - 1) / ku * ku; }

// ---- packing ---------------------------------------------------------------

// Panel of A: step l holds rows i0..i0+3 of column l, times alpha.
void copy_a_n(I pm, I pk, const double* a, I plda, double* buf, I pstride, const double* alpha) {
    const int m = *pm, k = *pk, lda = *plda, stride = *pstride;
    if (m < 1 || k < 1) return;
    const int kk = round_ku(k), full = m / mr, rest = m % mr;
    const double al = *alpha;
    const __m256d va = _mm256_set1_pd(al);
    for (int l = 0; l < k; ++l) {
        const double* col = a + (long)l * lda;
        double* dst = buf + l * mr;
        for (int p = 0; p < full; ++p)
            _mm256_store_pd(dst + (long)p * stride, _mm256_mul_pd(va, _mm256_loadu_pd(col + p * mr)));
        for (int r = 0; r < rest; ++r) dst[(long)full * stride + r] = al * col[full * mr + r];
    }
    const int panels = full + (rest ? 1 : 0);
    for (int p = 0; p < panels; ++p)
        for (int l = k; l < kk; ++l) _mm256_store_pd(buf + (long)p * stride + l * mr, _mm256_setzero_pd());
}

// Element (i, l) at a[l + i*lda]: four rows are read along k and turned
// into steps by a 4 x 4 transpose.
void copy_a_t(I pm, I pk, const double* a, I plda, double* buf, I pstride, const double* alpha) {
    const int m = *pm, k = *pk, lda = *plda, stride = *pstride;
    if (m < 1 || k < 1) return;
    const int kk = round_ku(k), full = m / mr, rest = m % mr, k4 = k & ~3;
    const double al = *alpha;
    const __m256d va = _mm256_set1_pd(al);
    for (int p = 0; p < full; ++p) {
        const double* r0 = a + (long)p * mr * lda;
        double* dst = buf + (long)p * stride;
        int l = 0;
        for (; l < k4; l += 4) {
            __m256d x0 = _mm256_loadu_pd(r0 + l), x1 = _mm256_loadu_pd(r0 + lda + l);
            __m256d x2 = _mm256_loadu_pd(r0 + 2L * lda + l), x3 = _mm256_loadu_pd(r0 + 3L * lda + l);
            __m256d t0 = _mm256_unpacklo_pd(x0, x1), t1 = _mm256_unpackhi_pd(x0, x1);
            __m256d t2 = _mm256_unpacklo_pd(x2, x3), t3 = _mm256_unpackhi_pd(x2, x3);
            _mm256_store_pd(dst + (l + 0) * mr, _mm256_mul_pd(va, _mm256_permute2f128_pd(t0, t2, 0x20)));
            _mm256_store_pd(dst + (l + 1) * mr, _mm256_mul_pd(va, _mm256_permute2f128_pd(t1, t3, 0x20)));
            _mm256_store_pd(dst + (l + 2) * mr, _mm256_mul_pd(va, _mm256_permute2f128_pd(t0, t2, 0x31)));
            _mm256_store_pd(dst + (l + 3) * mr, _mm256_mul_pd(va, _mm256_permute2f128_pd(t1, t3, 0x31)));
        }
        for (; l < k; ++l)
            for (int r = 0; r < mr; ++r) dst[l * mr + r] = al * r0[(long)r * lda + l];
        for (l = k; l < kk; ++l) _mm256_store_pd(dst + l * mr, _mm256_setzero_pd());
    }
    if (rest) {
        double* dst = buf + (long)full * stride;
        for (int r = 0; r < rest; ++r) {
            const double* row = a + (long)(full * mr + r) * lda;
            for (int l = 0; l < k; ++l) dst[l * mr + r] = al * row[l];
        }
        for (int l = k; l < kk; ++l) _mm256_store_pd(dst + l * mr, _mm256_setzero_pd());
    }
}

// Panel of B: step l holds columns j0..j0+3 of row l; missing columns are
// zero. Element (l, j) at b[l + j*ldb]: four columns are read along k and
// transposed.
void copy_b_n(I pk, I pn, const double* b, I pldb, double* buf, I pstride, const double*) {
    const int k = *pk, n = *pn, ldb = *pldb, stride = *pstride;
    if (k < 1 || n < 1) return;
    const int kk = round_ku(k), full = n / nr, rest = n % nr, k4 = k & ~3;
    for (int p = 0; p < full; ++p) {
        const double* c0 = b + (long)p * nr * ldb;
        double* dst = buf + (long)p * stride;
        int l = 0;
        for (; l < k4; l += 4) {
            __m256d x0 = _mm256_loadu_pd(c0 + l), x1 = _mm256_loadu_pd(c0 + ldb + l);
            __m256d x2 = _mm256_loadu_pd(c0 + 2L * ldb + l), x3 = _mm256_loadu_pd(c0 + 3L * ldb + l);
            __m256d t0 = _mm256_unpacklo_pd(x0, x1), t1 = _mm256_unpackhi_pd(x0, x1);
            __m256d t2 = _mm256_unpacklo_pd(x2, x3), t3 = _mm256_unpackhi_pd(x2, x3);
            _mm256_store_pd(dst + (l + 0) * nr, _mm256_permute2f128_pd(t0, t2, 0x20));
            _mm256_store_pd(dst + (l + 1) * nr, _mm256_permute2f128_pd(t1, t3, 0x20));
            _mm256_store_pd(dst + (l + 2) * nr, _mm256_permute2f128_pd(t0, t2, 0x31));
            _mm256_store_pd(dst + (l + 3) * nr, _mm256_permute2f128_pd(t1, t3, 0x31));
        }
        for (; l < k; ++l)
            for (int j = 0; j < nr; ++j) dst[l * nr + j] = c0[(long)j * ldb + l];
        for (l = k; l < kk; ++l) _mm256_store_pd(dst + l * nr, _mm256_setzero_pd());
    }
    if (rest) {
        double* dst = buf + (long)full * stride;
        for (int l = 0; l < kk; ++l)
            for (int j = 0; j < nr; ++j)
                dst[l * nr + j] = l < k && j < rest ? b[(long)(full * nr + j) * ldb + l] : 0.0;
    }
}

// Element (l, j) at b[j + l*ldb]: a step is four neighbours in memory.
void copy_b_t(I pk, I pn, const double* b, I pldb, double* buf, I pstride, const double*) {
    const int k = *pk, n = *pn, ldb = *pldb, stride = *pstride;
    if (k < 1 || n < 1) return;
    const int kk = round_ku(k), full = n / nr, rest = n % nr;
    for (int l = 0; l < k; ++l) {
        const double* row = b + (long)l * ldb;
        double* dst = buf + l * nr;
        for (int p = 0; p < full; ++p) _mm256_store_pd(dst + (long)p * stride, _mm256_loadu_pd(row + p * nr));
        if (rest)
            for (int j = 0; j < nr; ++j) dst[(long)full * stride + j] = j < rest ? row[full * nr + j] : 0.0;
    }
    const int panels = full + (rest ? 1 : 0);
    for (int p = 0; p < panels; ++p)
        for (int l = k; l < kk; ++l) _mm256_store_pd(buf + (long)p * stride + l * nr, _mm256_setzero_pd());
}

// ---- the 4 x 4 kernel --------------------------------------------------------

// The empty asm statements keep each step's operands and sums in registers
// in program order: left alone, the compiler hoists the rotations of later
// steps and spills the accumulators.
#define ZVA_ROT_STEP(off)                                                      \
    {                                                                          \
        __m256d a0 = _mm256_load_pd(ap + (off));                               \
        __m256d b0 = _mm256_load_pd(bp + (off));                               \
        asm volatile("" : "+x"(a0), "+x"(b0));                                 \
        const __m256d b1 = _mm256_permute2f128_pd(b0, b0, 1);                  \
        acc0 = _mm256_add_pd(acc0, _mm256_mul_pd(a0, b0));                     \
        acc1 = _mm256_add_pd(acc1, _mm256_mul_pd(a0, b1));                     \
        const __m256d a1 = _mm256_permute_pd(a0, 5);                           \
        acc2 = _mm256_add_pd(acc2, _mm256_mul_pd(a1, b0));                     \
        acc3 = _mm256_add_pd(acc3, _mm256_mul_pd(a1, b1));                     \
        asm volatile("" : "+x"(acc0), "+x"(acc1), "+x"(acc2), "+x"(acc3));     \
    }

template <bool Aligned>
inline void add_column(double* c, __m256d v) {
    if (Aligned) _mm256_store_pd(c, _mm256_add_pd(_mm256_load_pd(c), v));
    else _mm256_storeu_pd(c, _mm256_add_pd(_mm256_loadu_pd(c), v));
}

// Tiles over m0 rows (a multiple of 4) and n columns.
template <bool Aligned>
void kernel(int m0, int n, int k, const double* a, int sa, const double* b, int sb, double* c,
            int ldc) {
    for (int j = 0; j < n; j += nr) {
        const double* bp0 = b + (long)(j / nr) * sb;
        const int cols = n - j < nr ? n - j : nr;
        double* cj = c + (long)j * ldc;
        for (int i = 0; i < m0; i += mr) {
            const double* ap = a + (long)(i / mr) * sa;
            const double* bp = bp0;
            double* ct = cj + i;
            _mm_prefetch((const char*)ap + 0x1c0, _MM_HINT_T0);
            _mm_prefetch((const char*)bp + 0x40, _MM_HINT_T0);
            for (int q = 0; q < cols; ++q)
                _mm_prefetch((const char*)(ct + (long)q * ldc) + 0x40, _MM_HINT_T0);
            __m256d acc0 = _mm256_setzero_pd(), acc1 = _mm256_setzero_pd();
            __m256d acc2 = _mm256_setzero_pd(), acc3 = _mm256_setzero_pd();
            int l = k;
            for (; l >= 8; l -= 8) {
                _mm_prefetch((const char*)ap + 0x200, _MM_HINT_T0);
                ZVA_ROT_STEP(0)
                ZVA_ROT_STEP(4)
                _mm_prefetch((const char*)ap + 0x240, _MM_HINT_T0);
                ZVA_ROT_STEP(8)
                ZVA_ROT_STEP(12)
                _mm_prefetch((const char*)ap + 0x280, _MM_HINT_T0);
                ZVA_ROT_STEP(16)
                ZVA_ROT_STEP(20)
                _mm_prefetch((const char*)ap + 0x2c0, _MM_HINT_T0);
                ZVA_ROT_STEP(24)
                ZVA_ROT_STEP(28)
                ap += 32, bp += 32;
            }
            if (l >= 4) {
                ZVA_ROT_STEP(0)
                ZVA_ROT_STEP(4)
                ZVA_ROT_STEP(8)
                ZVA_ROT_STEP(12)
            }
            // Back to columns: moves only.
            const __m256d t0 = _mm256_blend_pd(acc0, acc2, 0xa), t1 = _mm256_blend_pd(acc2, acc0, 0xa);
            const __m256d t2 = _mm256_blend_pd(acc1, acc3, 0xa), t3 = _mm256_blend_pd(acc3, acc1, 0xa);
            const __m256d u0 = _mm256_unpacklo_pd(t0, t1), u1 = _mm256_unpackhi_pd(t0, t1);
            const __m256d u2 = _mm256_unpacklo_pd(t2, t3), u3 = _mm256_unpackhi_pd(t2, t3);
            const __m256d col0 = _mm256_blend_pd(u0, u2, 0xc), col1 = _mm256_blend_pd(u1, u3, 0xc);
            const __m256d col2 = _mm256_blend_pd(u2, u0, 0xc), col3 = _mm256_blend_pd(u3, u1, 0xc);
            switch (cols) {
            case 4: add_column<Aligned>(ct + 3L * ldc, col3); [[fallthrough]];
            case 3: add_column<Aligned>(ct + 2L * ldc, col2); [[fallthrough]];
            case 2: add_column<Aligned>(ct + 1L * ldc, col1); [[fallthrough]];
            default: add_column<Aligned>(ct, col0);
            }
        }
    }
}
#undef ZVA_ROT_STEP

template <bool FusedEdge>
void block_multiply(Ch, Ch transb, I pm, I pn, I pk, const double*, const double* a, I plda,
                    const double* b, I pldb, const double* beta, double* c, I pldc, double*,
                    int mode) {
    const int m = *pm, n = *pn, k = *pk, sa = *plda, ldc = *pldc;
    if (m <= 0 || n <= 0) return;
    const int m0 = m - m % mr, r = m % mr;
    if (m0) {
        if ((((uintptr_t)c | (uintptr_t)ldc * 8) & 31) == 0)
            kernel<true>(m0, n, k, a, sa, b, *pldb, c, ldc);
        else
            kernel<false>(m0, n, k, a, sa, b, *pldb, c, ldc);
    }
    if (r) {
        static const double one = 1.0;
        gemm_edge::edge<double, mr, nr, FusedEdge>(r, n, k, a + (long)(m0 / mr) * sa, b, *pldb,
                                                   c + m0, ldc, beta ? beta : &one, mode,
                                                   *transb);
    }
}

}  // namespace
}  // namespace zva::gemm_rot

// The row functions of one branch.
#define ZVA_GEMM_ROTATION_D(fused_edge)                                        \
    void dgemm_copy_a_n(I m, I k, const double* a, I lda, double* buf, I s,    \
                        const double* alpha) {                                 \
        gemm_rot::copy_a_n(m, k, a, lda, buf, s, alpha);                       \
    }                                                                          \
    void dgemm_copy_a_t(I m, I k, const double* a, I lda, double* buf, I s,    \
                        const double* alpha) {                                 \
        gemm_rot::copy_a_t(m, k, a, lda, buf, s, alpha);                       \
    }                                                                          \
    void dgemm_copy_b_n(I k, I n, const double* b, I ldb, double* buf, I s,    \
                        const double* x) {                                     \
        gemm_rot::copy_b_n(k, n, b, ldb, buf, s, x);                           \
    }                                                                          \
    void dgemm_copy_b_t(I k, I n, const double* b, I ldb, double* buf, I s,    \
                        const double* x) {                                     \
        gemm_rot::copy_b_t(k, n, b, ldb, buf, s, x);                           \
    }                                                                          \
    void dgemm_block_multiply(Ch ta, Ch tb, I m, I n, I k, const double* al,   \
                              const double* a, I lda, const double* b, I ldb,  \
                              const double* be, double* c, I ldc,              \
                              double* stage, int mode) {                       \
        gemm_rot::block_multiply<fused_edge>(ta, tb, m, n, k, al, a, lda, b,   \
                                             ldb, be, c, ldc, stage, mode);    \
    }
