// The k-pair rows of branch 4 in D and S, for processors without SSE4.1:
// tiles of 2 x 2 (D) and 4 x 2 (S), in groups of 8 columns of the stage.
#include <emmintrin.h>
#include <pmmintrin.h>
#include <stdint.h>

#include "gemm/kernels.h"
#include "gemm/kpair.h"

namespace zva::b4 {
namespace {

using namespace gemm_kpair;

constexpr int mr = 2;

// Stage of up to 8 columns: the packed panels one after the other (mode 2),
// or the same layout gathered from the caller's B (mode 3).
void fill_stage(double* stage, int sstride, const double* b, int ldb, int k, int cols, bool packed,
                bool notb) {
    const int kk = pad2(k);
    if (packed) {
        for (int p = 0; p < (cols + 1) / 2; ++p) {
            const double* src = b + (long)p * ldb;
            double* dst = stage + (long)p * sstride;
            const int len = (2 * p + 2 <= cols ? 2 : 1) * kk;
            _mm_prefetch((const char*)src + 0x200, _MM_HINT_NTA);
            for (int l = 0; l < len; l += 2) _mm_store_pd(dst + l, _mm_load_pd(src + l));
        }
        return;
    }
    for (int j = 0; j < cols; ++j) {
        double* dst = stage + (long)(j / nr) * sstride;
        const int width = j - j % nr + nr <= cols ? nr : 1;
        for (int l = 0; l < k; ++l)
            dst[kp_at(l, j % nr, width)] = notb ? b[l + (long)j * ldb] : b[j + (long)l * ldb];
        if (k < kk) dst[kp_at(k, j % nr, width)] = 0.0;
    }
}

// The 128-bit vector of each type. A vector of A holds the two steps of a
// pair for one row (D) or for two rows (S); a vector of the stage holds the
// same two steps of one column, twice over for S to meet both rows.
template <class T> struct kp_vec;
template <> struct kp_vec<double> {
    using V = __m128d;
    static constexpr int h = 2;  // elements per vector
    // Both B vectors in registers, A loaded as late as possible: four
    // accumulators, three operands and a product fit the eight registers.
    static constexpr bool hold_b = true;
    static V zero() { return _mm_setzero_pd(); }
    static V load(const double* p) { return _mm_load_pd(p); }
    static V madd(V acc, V a, V b) { return _mm_add_pd(acc, _mm_mul_pd(a, b)); }
};
template <> struct kp_vec<float> {
    using V = __m128;
    static constexpr int h = 4;
    // B read from the stage at each use, as a memory operand of the product.
    static constexpr bool hold_b = false;
    static V zero() { return _mm_setzero_ps(); }
    static V load(const float* p) { return _mm_load_ps(p); }
    static V madd(V acc, V a, V b) { return _mm_add_ps(acc, _mm_mul_ps(a, b)); }
};

// One pair of steps of k; the second vector of A is loaded only once the
// first is done with. The empty asm pins the four accumulators to registers
// at every step of the unrolled run.
#define ZVA_KP_PAIR(p)                                                                   \
    {                                                                                    \
        if constexpr (K::hold_b) {                                                       \
            const V b0 = K::load(bp + 2 * h * (p)), b1 = K::load(bp + 2 * h * (p) + h);  \
            const V a0 = K::load(ap + 2 * h * (p));                                      \
            acc00 = K::madd(acc00, a0, b0);                                              \
            acc01 = K::madd(acc01, a0, b1);                                              \
            const V a1 = K::load(ap + 2 * h * (p) + h);                                  \
            acc10 = K::madd(acc10, a1, b0);                                              \
            acc11 = K::madd(acc11, a1, b1);                                              \
        } else {                                                                         \
            const V a0 = K::load(ap + 2 * h * (p));                                      \
            acc00 = K::madd(acc00, a0, K::load(bp + 2 * h * (p)));                       \
            acc01 = K::madd(acc01, a0, K::load(bp + 2 * h * (p) + h));                   \
            const V a1 = K::load(ap + 2 * h * (p) + h);                                  \
            acc10 = K::madd(acc10, a1, K::load(bp + 2 * h * (p)));                       \
            acc11 = K::madd(acc11, a1, K::load(bp + 2 * h * (p) + h));                   \
        }                                                                                \
        asm volatile("" : "+x"(acc00), "+x"(acc01), "+x"(acc10), "+x"(acc11));           \
    }

// A panel of A against a full pair of columns of the stage; pairs = k'/2.
// out holds (first vector of A, column 0), (first, column 1), (second,
// column 0), (second, column 1).
template <class T>
inline void tile_pair(const T* ap, const T* bp, int pairs, typename kp_vec<T>::V* out) {
    using K = kp_vec<T>;
    using V = typename K::V;
    constexpr int h = K::h;
    V acc00 = K::zero(), acc01 = K::zero();
    V acc10 = K::zero(), acc11 = K::zero();
    if (pairs >= 128) {
        // The whole block of 256 steps as one straight run.
#pragma GCC unroll 128
        for (int p = 0; p < 128; ++p) ZVA_KP_PAIR(p)
    } else {
        int p = 0;
        for (; p + 16 <= pairs; p += 16) {
#pragma GCC unroll 16
            for (int q = 0; q < 16; ++q) ZVA_KP_PAIR(p + q)
        }
        for (; p < pairs; ++p) ZVA_KP_PAIR(p)
    }
    out[0] = acc00, out[1] = acc01, out[2] = acc10, out[3] = acc11;
}
#undef ZVA_KP_PAIR

// A panel of A against a lone column; out[0] and out[2] as above.
template <class T>
inline void tile_lone(const T* ap, const T* bp, int pairs, typename kp_vec<T>::V* out) {
    using K = kp_vec<T>;
    using V = typename K::V;
    constexpr int h = K::h;
    V acc0 = K::zero(), acc1 = K::zero();
    for (int p = 0; p < pairs; ++p) {
        const V b0 = K::load(bp + h * p);
        acc0 = K::madd(acc0, K::load(ap + 2 * h * p), b0);
        acc1 = K::madd(acc1, K::load(ap + 2 * h * p + h), b0);
    }
    out[0] = acc0, out[2] = acc1;
}

// Sum of the even-step lane and the odd-step lane, added to C.
inline void add_joined(double* c, __m128d acc) {
    *c += _mm_cvtsd_f64(_mm_hadd_pd(acc, acc));
}

void block_multiply(Ch, Ch transb, I pm, I pn, I pk, const double*, const double* a, I plda,
                    const double* b, I pldb, const double* beta, double* c, I pldc,
                    double* stage, int mode) {
    const int m = *pm, n = *pn, k = *pk, sa = *plda, ldb = *pldb, ldc = *pldc;
    if (m <= 0 || n <= 0) return;
    const bool packed = mode == 2, notb = (*transb & ~0x20) == 'N';
    const int m0 = m - m % mr, pairs = pad2(k) / 2, sstride = 2 * pad2(k);
    for (int j = 0; j < n; j += group) {
        const int cols = n - j < group ? n - j : group;
        const double* bj = packed ? b + (long)(j / nr) * ldb : b + (notb ? (long)j * ldb : j);
        fill_stage(stage, sstride, bj, ldb, k, cols, packed, notb);
        for (int i = 0; i < m0; i += mr) {
            const double* ap = a + (long)(i / mr) * sa;
            for (int q = 0; q < cols; q += nr) {
                __m128d acc[4];
                double* ct = c + i + (long)(j + q) * ldc;
                if (q + 1 < cols) {
                    tile_pair(ap, stage + (long)(q / nr) * sstride, pairs, acc);
                    add_joined(ct, acc[0]);
                    add_joined(ct + 1, acc[2]);
                    add_joined(ct + ldc, acc[1]);
                    add_joined(ct + ldc + 1, acc[3]);
                } else {
                    tile_lone(ap, stage + (long)(q / nr) * sstride, pairs, acc);
                    add_joined(ct, acc[0]);
                    add_joined(ct + 1, acc[2]);
                }
            }
        }
    }
    if (m % mr)
        edge_rows<mr>(m % mr, n, packed ? pad2(k) : k, a + (long)(m0 / mr) * sa, b, ldb,
                      c + m0, ldc, beta ? *beta : 1.0, packed, notb);
}

}  // namespace

ZVA_GEMM_KPAIR_PACK(dgemm_kp_, double, 2)
void dgemm_kp_block_multiply(Ch ta, Ch tb, I m, I n, I k, const double* al, const double* a,
                             I lda, const double* b, I ldb, const double* be, double* c, I ldc,
                             double* stage, int mode) {
    (void)ta;
    block_multiply(ta, tb, m, n, k, al, a, lda, b, ldb, be, c, ldc, stage, mode);
}


// ---- S: rows of 4, each pair of rows one vector per pair of steps --------
namespace {

constexpr int mr_s = 4;

// Stage of up to 8 columns: per column and pair of steps the vector
// (b(l), b(l+1), b(l), b(l+1)), to meet two rows of A at once. Columns of a
// panel follow each other per pair; panels are 4*kk floats apart.
void fill_stage_s(float* stage, const float* b, int ldb, int k, int cols, bool packed, bool notb) {
    const int kk = pad2(k), pairs = kk / 2;
    for (int j = 0; j < cols; ++j) {
        const int width = b_width(j, cols);
        float* dst = stage + (long)(j / nr) * 4 * kk + (j % nr) * 4;
        const float* src = b + (long)(j / nr) * ldb;
        if (packed && (j % nr) == 0 && (j & 7) == 0)
            _mm_prefetch((const char*)src + 0x200, _MM_HINT_NTA);
        for (int p = 0; p < pairs; ++p) {
            float x0, x1;
            const int l = 2 * p;
            if (packed) {
                x0 = src[kp_at(l, j % nr, width)], x1 = src[kp_at(l + 1, j % nr, width)];
            } else {
                auto at = [&](int q) {
                    return q >= k ? 0.0f : notb ? b[q + (long)j * ldb] : b[j + (long)q * ldb];
                };
                x0 = at(l), x1 = at(l + 1);
            }
            _mm_store_ps(dst + (long)p * 4 * width, _mm_setr_ps(x0, x1, x0, x1));
        }
    }
}

// Even lane + odd lane of each row, added to one column of four rows.
inline void add_joined4(float* c, __m128 rows01, __m128 rows23) {
    const __m128 h = _mm_hadd_ps(rows01, rows23);  // (r0 r1 r2 r3)
    _mm_storeu_ps(c, _mm_add_ps(_mm_loadu_ps(c), h));
}

void block_multiply_s(Ch transb, I pm, I pn, I pk, const float* a, I plda, const float* b,
                      I pldb, const float* beta, float* c, I pldc, float* stage, int mode) {
    const int m = *pm, n = *pn, k = *pk, sa = *plda, ldb = *pldb, ldc = *pldc;
    if (m <= 0 || n <= 0) return;
    const bool packed = mode == 2, notb = (*transb & ~0x20) == 'N';
    const int m0 = m - m % mr_s, pairs = pad2(k) / 2, sstride = 4 * pad2(k);
    for (int j = 0; j < n; j += group) {
        const int cols = n - j < group ? n - j : group;
        const float* bj = packed ? b + (long)(j / nr) * ldb : b + (notb ? (long)j * ldb : j);
        fill_stage_s(stage, bj, ldb, k, cols, packed, notb);
        for (int i = 0; i < m0; i += mr_s) {
            const float* ap = a + (long)(i / mr_s) * sa;
            for (int q = 0; q < cols; q += nr) {
                __m128 acc[4];
                float* ct = c + i + (long)(j + q) * ldc;
                const float* sp = stage + (long)(q / nr) * sstride;
                if (q + 1 < cols) {
                    tile_pair(ap, sp, pairs, acc);
                    add_joined4(ct, acc[0], acc[2]);
                    add_joined4(ct + ldc, acc[1], acc[3]);
                } else {
                    tile_lone(ap, sp, pairs, acc);
                    add_joined4(ct, acc[0], acc[2]);
                }
            }
        }
    }
    if (m % mr_s)
        edge_rows<mr_s>(m % mr_s, n, packed ? pad2(k) : k, a + (long)(m0 / mr_s) * sa, b, ldb,
                        c + m0, ldc, beta ? *beta : 1.0f, packed, notb);
}

}  // namespace

ZVA_GEMM_KPAIR_PACK(sgemm_kp_, float, 4)
void sgemm_kp_block_multiply(Ch, Ch tb, I m, I n, I k, const float*, const float* a, I lda,
                             const float* b, I ldb, const float* be, float* c, I ldc,
                             float* stage, int mode) {
    block_multiply_s(tb, m, n, k, a, lda, b, ldb, be, c, ldc, stage, mode);
}

}  // namespace zva::b4
