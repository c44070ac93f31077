// The rotation form of the 256-bit branches (6 and 7): packing and the
// kernels of the four types (D 4 x 4, S 8 x 4, C 4 x 2, Z 2 x 2). Branch 7 compiles the very same kernel as branch 6 (separate
// multiply and add); only its edge rows fuse.
//
// Per step of k one vector of A (4 rows) and one of B (4 columns) are loaded
// and four products are formed against the rotations of both: a*b, a*b'
// (halves of b exchanged), a'*b and a'*b' (neighbours of a exchanged). Each
// lane of each accumulator is one element of the tile, so every element is a
// running sum in increasing k, started at zero and added to C once per call.
#pragma once
#include <immintrin.h>

#include "gemm/cpack.h"
#include "gemm/edge.h"
#include "gemm/engine.h"
#include "gemm/pack.h"

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

// ---- the kernels ---------------------------------------------------------

// The forms of the four types. Per step: a vector of A (`a_step` reals) and
// one of B (`b_step` reals, broadcast to both halves for single precision),
// the rotations a' and b', and at the end of a tile the columns back in
// order: `cols` 256-bit columns of C of `mr` elements each.
struct form_d {
    using R = double;
    using V = __m256d;
    static constexpr int mr = 4, nr = 4, a_step = 4, b_step = 4, cols = 4;
    static constexpr bool prefetch_b = true;
    static V load_a(const R* p) { return _mm256_load_pd(p); }
    static V load_b(const R* p) { return _mm256_load_pd(p); }
    static V rot_a(V a) { return _mm256_permute_pd(a, 5); }
    static V rot_b(V b) { return _mm256_permute2f128_pd(b, b, 1); }
    static V mul(V a, V b) { return _mm256_mul_pd(a, b); }
    static V add(V a, V b) { return _mm256_add_pd(a, b); }
    static V zero() { return _mm256_setzero_pd(); }
    static V loadc(const R* p, bool al) { return al ? _mm256_load_pd(p) : _mm256_loadu_pd(p); }
    static void storec(R* p, V v, bool al) { al ? _mm256_store_pd(p, v) : _mm256_storeu_pd(p, v); }
    // acc0 = (00 11 22 33), acc1 = (02 13 20 31), acc2 = (10 01 32 23),
    // acc3 = (12 03 30 21): blends and unpacks only move data.
    static void columns(V acc0, V acc1, V acc2, V acc3, V* col) {
        const V t0 = _mm256_blend_pd(acc0, acc2, 0xa), t1 = _mm256_blend_pd(acc2, acc0, 0xa);
        const V t2 = _mm256_blend_pd(acc1, acc3, 0xa), t3 = _mm256_blend_pd(acc3, acc1, 0xa);
        const V u0 = _mm256_unpacklo_pd(t0, t1), u1 = _mm256_unpackhi_pd(t0, t1);
        const V u2 = _mm256_unpacklo_pd(t2, t3), u3 = _mm256_unpackhi_pd(t2, t3);
        col[0] = _mm256_blend_pd(u0, u2, 0xc), col[1] = _mm256_blend_pd(u1, u3, 0xc);
        col[2] = _mm256_blend_pd(u2, u0, 0xc), col[3] = _mm256_blend_pd(u3, u1, 0xc);
    }
};

struct form_s {
    using R = float;
    using V = __m256;
    static constexpr int mr = 8, nr = 4, a_step = 8, b_step = 4, cols = 4;
    static constexpr bool prefetch_b = true;
    static V load_a(const R* p) { return _mm256_load_ps(p); }
    static V load_b(const R* p) { return _mm256_broadcast_ps((const __m128*)p); }
    static V rot_a(V a) { return _mm256_permute_ps(a, 0xb1); }
    static V rot_b(V b) { return _mm256_permute_ps(b, 0x4e); }
    static V mul(V a, V b) { return _mm256_mul_ps(a, b); }
    static V add(V a, V b) { return _mm256_add_ps(a, b); }
    static V zero() { return _mm256_setzero_ps(); }
    static V loadc(const R* p, bool al) { return al ? _mm256_load_ps(p) : _mm256_loadu_ps(p); }
    static void storec(R* p, V v, bool al) { al ? _mm256_store_ps(p, v) : _mm256_storeu_ps(p, v); }
    // In each half (rows 0-3, rows 4-7) the lanes are placed as in D.
    static void columns(V acc0, V acc1, V acc2, V acc3, V* col) {
        const V t0 = _mm256_blend_ps(acc0, acc2, 0xaa), t1 = _mm256_blend_ps(acc2, acc0, 0xaa);
        const V t2 = _mm256_blend_ps(acc1, acc3, 0xaa), t3 = _mm256_blend_ps(acc3, acc1, 0xaa);
        const V u0 = _mm256_unpacklo_ps(t0, t1), u1 = _mm256_unpackhi_ps(t0, t1);
        const V u2 = _mm256_unpacklo_ps(t2, t3), u3 = _mm256_unpackhi_ps(t2, t3);
        col[0] = _mm256_shuffle_ps(u0, u3, 0x44), col[1] = _mm256_shuffle_ps(u0, u3, 0xee);
        col[2] = _mm256_shuffle_ps(u2, u1, 0x44), col[3] = _mm256_shuffle_ps(u2, u1, 0xee);
    }
};

// Complex: the real part of an element is the horizontal difference of the
// lanes (ar*br, ai*bi) of the accumulators of a*b and a*b', the imaginary
// part the horizontal sum of (ai*br, ar*bi) of those of a'*b and a'*b'.
// Both sums stay apart over the whole block and meet once, here.
struct form_z : form_d {
    static constexpr int mr = 2, nr = 2, cols = 2;
    static constexpr bool prefetch_b = false;
    static void columns(V acc0, V acc1, V acc2, V acc3, V* col) {
        const V re = _mm256_hsub_pd(acc0, acc1);  // (00 01 11 10)
        const V im = _mm256_hadd_pd(acc2, acc3);
        const V lo = _mm256_unpacklo_pd(re, im), hi = _mm256_unpackhi_pd(re, im);
        col[0] = _mm256_blend_pd(lo, hi, 0xc), col[1] = _mm256_blend_pd(hi, lo, 0xc);
    }
};

struct form_c : form_s {
    static constexpr int mr = 4, nr = 2, cols = 2;
    static constexpr bool prefetch_b = false;
    static void columns(V acc0, V acc1, V acc2, V acc3, V* col) {
        const V re = _mm256_hsub_ps(acc0, acc1);  // per half (00 11 01 10)
        const V im = _mm256_hadd_ps(acc2, acc3);
        const V lo = _mm256_unpacklo_ps(re, im), hi = _mm256_unpackhi_ps(re, im);
        col[0] = _mm256_blend_ps(lo, hi, 0xcc), col[1] = _mm256_blend_ps(hi, lo, 0xcc);
    }
};

// The empty asm statements keep each step's operands and sums in registers
// in program order: left alone, the compiler hoists the rotations of later
// steps and spills the accumulators.
#define ZVA_ROT_STEP(s)                                                        \
    {                                                                          \
        V a0 = F::load_a(ap + (s) * F::a_step);                                \
        V b0 = F::load_b(bp + (s) * F::b_step);                                \
        asm volatile("" : "+x"(a0), "+x"(b0));                                 \
        const V b1 = F::rot_b(b0);                                             \
        acc0 = F::add(acc0, F::mul(a0, b0));                                   \
        acc1 = F::add(acc1, F::mul(a0, b1));                                   \
        const V a1 = F::rot_a(a0);                                             \
        acc2 = F::add(acc2, F::mul(a1, b0));                                   \
        acc3 = F::add(acc3, F::mul(a1, b1));                                   \
        asm volatile("" : "+x"(acc0), "+x"(acc1), "+x"(acc2), "+x"(acc3));     \
    }

// Tiles over m0 rows (a multiple of mr) and n columns; sa, sb and ldc in
// reals. Partial column panels are computed whole (B's missing columns are
// zero) and only their real columns stored.
template <class F, bool Aligned>
void kernel(int m0, int n, int k, const typename F::R* a, long sa, const typename F::R* b,
            long sb, typename F::R* c, long ldc) {
    using V = typename F::V;
    using R = typename F::R;
    constexpr int cw = F::a_step / F::mr;  // reals per element
    for (int j = 0; j < n; j += F::nr) {
        const R* bp0 = b + (long)(j / F::nr) * sb;
        const int cols = n - j < F::nr ? n - j : F::nr;
        R* cj = c + (long)j * ldc;
        for (int i = 0; i < m0; i += F::mr) {
            const R* ap = a + (long)(i / F::mr) * sa;
            const R* bp = bp0;
            R* ct = cj + (long)i * cw;
            _mm_prefetch((const char*)ap + 0x1c0, _MM_HINT_T0);
            if (F::prefetch_b) _mm_prefetch((const char*)bp + 0x40, _MM_HINT_T0);
            for (int q = 0; q < cols; ++q)
                _mm_prefetch((const char*)(ct + q * ldc) + 0x40, _MM_HINT_T0);
            V acc0 = F::zero(), acc1 = F::zero(), acc2 = F::zero(), acc3 = F::zero();
            int l = k;
            for (; l >= 8; l -= 8) {
                _mm_prefetch((const char*)ap + 0x200, _MM_HINT_T0);
                ZVA_ROT_STEP(0)
                ZVA_ROT_STEP(1)
                _mm_prefetch((const char*)ap + 0x240, _MM_HINT_T0);
                ZVA_ROT_STEP(2)
                ZVA_ROT_STEP(3)
                _mm_prefetch((const char*)ap + 0x280, _MM_HINT_T0);
                ZVA_ROT_STEP(4)
                ZVA_ROT_STEP(5)
                _mm_prefetch((const char*)ap + 0x2c0, _MM_HINT_T0);
                ZVA_ROT_STEP(6)
                ZVA_ROT_STEP(7)
                ap += 8 * F::a_step, bp += 8 * F::b_step;
            }
            if (l >= 4) {
                ZVA_ROT_STEP(0)
                ZVA_ROT_STEP(1)
                ZVA_ROT_STEP(2)
                ZVA_ROT_STEP(3)
            }
            V col[4];
            F::columns(acc0, acc1, acc2, acc3, col);
            for (int q = cols - 1; q >= 0; --q) {
                R* cq = ct + q * ldc;
                F::storec(cq, F::add(F::loadc(cq, Aligned), col[q]), Aligned);
            }
        }
    }
}
#undef ZVA_ROT_STEP

// Rows beyond a multiple of mr go to the edge kernel, which fuses on
// branch 7.
template <class F, class T, bool FusedEdge>
void block_multiply(Ch, Ch transb, I pm, I pn, I pk, const T*, const T* a, I plda, const T* b,
                    I pldb, const T* beta, T* c, I pldc, T*, int mode) {
    using R = typename F::R;
    constexpr int cw = sizeof(T) / sizeof(R);
    const int m = *pm, n = *pn, k = *pk, sa = *plda, ldc = *pldc;
    if (m <= 0 || n <= 0) return;
    const int m0 = m - m % F::mr, r = m % F::mr;
    if (m0) {
        if ((((uintptr_t)c | (uintptr_t)ldc * sizeof(T)) & 31) == 0)
            kernel<F, true>(m0, n, k, (const R*)a, (long)sa * cw, (const R*)b, (long)*pldb * cw,
                            (R*)c, (long)ldc * cw);
        else
            kernel<F, false>(m0, n, k, (const R*)a, (long)sa * cw, (const R*)b, (long)*pldb * cw,
                             (R*)c, (long)ldc * cw);
    }
    if (r) {
        static const T one = gemm_edge::unit<T>();
        const T* ar = a + (long)(m0 / F::mr) * sa;
        if constexpr (cw == 1)
            gemm_edge::edge<T, F::mr, F::nr, FusedEdge>(r, n, k, ar, b, *pldb, c + m0, ldc,
                                                        beta ? beta : &one, mode, *transb);
        else
            gemm_edge::edge_c<T, F::mr, F::nr, FusedEdge, false>(
                r, n, k, ar, b, *pldb, c + m0, ldc, beta ? beta : &one, mode, *transb);
    }
}

}  // namespace
}  // namespace zva::gemm_rot

// The row functions of one branch: D with its own transposing copies, the
// others with the plain packing routines.
#define ZVA_GEMM_ROT_BLOCK(p, F, T, fused_edge)                                \
    void p##block_multiply(Ch ta, Ch tb, I m, I n, I k, const T* al,          \
                           const T* a, I lda, const T* b, I ldb, const T* be, \
                           T* c, I ldc, T* stage, int mode) {                  \
        gemm_rot::block_multiply<gemm_rot::F, T, fused_edge>(                  \
            ta, tb, m, n, k, al, a, lda, b, ldb, be, c, ldc, stage, mode);     \
    }
#define ZVA_GEMM_ROTATION(fused_edge)                                          \
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
    ZVA_GEMM_ROT_BLOCK(dgemm_, form_d, double, fused_edge)                     \
    ZVA_GEMM_RPACK(sgemm_, float, 8, 4, 4)                                     \
    ZVA_GEMM_ROT_BLOCK(sgemm_, form_s, float, fused_edge)                      \
    ZVA_GEMM_CPACK(cgemm_, c32, 4, 2, 4, false, fused_edge)                    \
    ZVA_GEMM_ROT_BLOCK(cgemm_, form_c, c32, fused_edge)                        \
    ZVA_GEMM_CPACK(zgemm_, c64, 2, 2, 4, false, fused_edge)                    \
    ZVA_GEMM_ROT_BLOCK(zgemm_, form_z, c64, fused_edge)
