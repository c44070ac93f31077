// The k-pair row of branch 4 in D, for processors without SSE4.1.
//
// Panels keep two neighbouring steps of k together: per pair (l, l+1) an A
// panel holds a(i, l), a(i, l+1) for each of its two rows and a B panel
// b(l, j), b(l+1, j) for each of its two columns. The kernel forms dot
// products in vector lanes, even steps in one lane and odd steps in the
// other, and joins the lanes at the end: an element is (sum over even k) +
// (sum over odd k), whatever the unrolling.
#include <emmintrin.h>
#include <pmmintrin.h>
#include <stdint.h>

#include "gemm/kernels.h"

namespace zva::b4 {
namespace {

constexpr int mr = 2, nr = 2, group = 8;  // the stage holds 8 columns

inline int pad2(int k) { return (k + 1) & ~1; }

// Offset of B(l, j) in a k-pair panel; a lone last column keeps its values
// one after the other, which is the same as a pair layout of width 1.
inline long kp_at(int l, int j, int width) { return (long)(l >> 1) * 2 * width + j * 2 + (l & 1); }

template <bool Trans>
void copy_a(I pm, I pk, const double* a, I plda, double* buf, I pstride, const double* alpha) {
    const int m = *pm, k = *pk, lda = *plda, stride = *pstride;
    if (m < 1 || k < 1) return;
    const int kk = pad2(k);
    const double al = *alpha;
    for (int i = 0; i < m; ++i) {
        double* dst = buf + (long)(i / mr) * stride;
        for (int l = 0; l < k; ++l)
            dst[kp_at(l, i % mr, mr)] = al * (Trans ? a[l + (long)i * lda] : a[i + (long)l * lda]);
    }
    if (k < kk)
        for (int p = 0; p < (m + mr - 1) / mr; ++p)
            for (int r = 0; r < mr; ++r) buf[(long)p * stride + kp_at(k, r, mr)] = 0.0;
}

template <bool Trans>
void copy_b(I pk, I pn, const double* b, I pldb, double* buf, I pstride, const double*) {
    const int k = *pk, n = *pn, ldb = *pldb, stride = *pstride;
    if (k < 1 || n < 1) return;
    const int kk = pad2(k);
    for (int j = 0; j < n; ++j) {
        double* dst = buf + (long)(j / nr) * stride;
        const int width = j - j % nr + nr <= n ? nr : 1;
        for (int l = 0; l < k; ++l)
            dst[kp_at(l, j % nr, width)] = Trans ? b[j + (long)l * ldb] : b[l + (long)j * ldb];
        if (k < kk) dst[kp_at(k, j % nr, width)] = 0.0;
    }
}

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

// Row 1 of A is loaded only once row 0 is done with, so that the four
// accumulators, three operands and a product fit the eight registers.
#define ZVA_KP_PAIR(p)                                                         \
    {                                                                          \
        const __m128d b0 = _mm_load_pd(bp + 4 * (p)), b1 = _mm_load_pd(bp + 4 * (p) + 2); \
        const __m128d a0 = _mm_load_pd(ap + 4 * (p));                          \
        acc00 = _mm_add_pd(acc00, _mm_mul_pd(a0, b0));                         \
        acc01 = _mm_add_pd(acc01, _mm_mul_pd(a0, b1));                         \
        const __m128d a1 = _mm_load_pd(ap + 4 * (p) + 2);                      \
        acc10 = _mm_add_pd(acc10, _mm_mul_pd(a1, b0));                         \
        acc11 = _mm_add_pd(acc11, _mm_mul_pd(a1, b1));                         \
        asm volatile("" : "+x"(acc00), "+x"(acc01), "+x"(acc10), "+x"(acc11)); \
    }

// Two rows against a full pair of columns; pairs = k'/2.
inline void tile2x2(const double* ap, const double* bp, int pairs, __m128d* out) {
    __m128d acc00 = _mm_setzero_pd(), acc01 = _mm_setzero_pd();
    __m128d acc10 = _mm_setzero_pd(), acc11 = _mm_setzero_pd();
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

// Two rows against a lone column.
inline void tile2x1(const double* ap, const double* bp, int pairs, __m128d* out) {
    __m128d acc0 = _mm_setzero_pd(), acc1 = _mm_setzero_pd();
    for (int p = 0; p < pairs; ++p) {
        const __m128d b0 = _mm_load_pd(bp + 2 * p);
        acc0 = _mm_add_pd(acc0, _mm_mul_pd(_mm_load_pd(ap + 4 * p), b0));
        acc1 = _mm_add_pd(acc1, _mm_mul_pd(_mm_load_pd(ap + 4 * p + 2), b0));
    }
    out[0] = acc0, out[2] = acc1;
}

// Sum of the even-step lane and the odd-step lane, added to C.
inline void add_joined(double* c, __m128d acc) {
    *c += _mm_cvtsd_f64(_mm_hadd_pd(acc, acc));
}

// The last odd row: four partial sums over k, joined pairwise, then the
// steps beyond a multiple of 4; C := C*beta + sum.
void edge_row(int n, int k, const double* a, const double* b, int ldb, double* c, int ldc,
              double beta, bool packed, bool notb, int nfull) {
    const int k4 = k & ~3;
    for (int j = 0; j < n; ++j) {
        auto bv = [&](int l) {
            if (!packed) return notb ? b[l + (long)j * ldb] : b[j + (long)l * ldb];
            const int width = j - j % nr + nr <= nfull ? nr : 1;
            return b[(long)(j / nr) * ldb + kp_at(l, j % nr, width)];
        };
        double s0 = 0, s1 = 0, s2 = 0, s3 = 0;
        int l = 0;
        for (; l < k4; l += 4) {
            s0 += a[kp_at(l, 0, mr)] * bv(l);
            s1 += a[kp_at(l + 1, 0, mr)] * bv(l + 1);
            s2 += a[kp_at(l + 2, 0, mr)] * bv(l + 2);
            s3 += a[kp_at(l + 3, 0, mr)] * bv(l + 3);
        }
        double s = (s0 + s1) + (s2 + s3);
        for (; l < k; ++l) s += a[kp_at(l, 0, mr)] * bv(l);
        double* cp = c + (long)j * ldc;
        *cp = *cp * beta + s;
    }
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
                    tile2x2(ap, stage + (long)(q / nr) * sstride, pairs, acc);
                    add_joined(ct, acc[0]);
                    add_joined(ct + 1, acc[2]);
                    add_joined(ct + ldc, acc[1]);
                    add_joined(ct + ldc + 1, acc[3]);
                } else {
                    tile2x1(ap, stage + (long)(q / nr) * sstride, pairs, acc);
                    add_joined(ct, acc[0]);
                    add_joined(ct + 1, acc[2]);
                }
            }
        }
    }
    if (m % mr)
        edge_row(n, packed ? pad2(k) : k, a + (long)(m0 / mr) * sa, b, ldb, c + m0, ldc,
                 beta ? *beta : 1.0, packed, notb, n);
}

}  // namespace

void dgemm_kp_copy_a_n(I m, I k, const double* a, I lda, double* buf, I s, const double* alpha) {
    copy_a<false>(m, k, a, lda, buf, s, alpha);
}
void dgemm_kp_copy_a_t(I m, I k, const double* a, I lda, double* buf, I s, const double* alpha) {
    copy_a<true>(m, k, a, lda, buf, s, alpha);
}
void dgemm_kp_copy_b_n(I k, I n, const double* b, I ldb, double* buf, I s, const double* x) {
    copy_b<false>(k, n, b, ldb, buf, s, x);
}
void dgemm_kp_copy_b_t(I k, I n, const double* b, I ldb, double* buf, I s, const double* x) {
    copy_b<true>(k, n, b, ldb, buf, s, x);
}
void dgemm_kp_block_multiply(Ch ta, Ch tb, I m, I n, I k, const double* al, const double* a,
                             I lda, const double* b, I ldb, const double* be, double* c, I ldc,
                             double* stage, int mode) {
    (void)ta;
    block_multiply(ta, tb, m, n, k, al, a, lda, b, ldb, be, c, ldc, stage, mode);
}

}  // namespace zva::b4
