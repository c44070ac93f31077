// GEMV kernels, branch 3: SSE3, 128-bit vectors, no fused multiply-add, so
// every product is rounded before it is added.  SSE3 brings movddup,
// movsldup/movshdup for the broadcasts, addsubps/addsubpd for the complex
// product and lddqu for unaligned single loads.
//
// Register budget: 8 xmm registers in 32-bit mode.  Where the scalars of a
// block do not fit next to its accumulators (D eight columns, Z four) they
// stay in an aligned stack array and enter as memory operands: a load per
// use, no spill.
//
// Columns per pass: as many of the first width as fit, then at most one of
// each following width, except that single columns repeat for the rest:
//   D  N unit 8,4,2,1   T unit 4,2,1   N and T strided 4,1
//   S  4,1 on every path
//   Z  N and T unit 4,2,1   C unit and every strided path 2,1
//   C  the prologue here, then six lower kernels {unit, strided} x {N, T, C}:
//      two columns a pass, rows 4, 2, 1; a single column last.
// Not-transposed sums are left-to-right chains y + t0*a0 + t1*a1 + ... in
// every path, peel and tail included, so a row's result does not depend on
// where the row falls.
#include <cstdint>
#include <cstring>
#include <immintrin.h>

#include "level2/kernels.h"

namespace zva::b3 {
namespace {

// Generic tuning fuses a pair of 64-bit loads into one movupd, which the
// Prescott-class cores of this branch run slower than two halves (above all
// across a cache line).  The D and Z loops are tuned for those cores; no
// instruction set changes.  Their helpers are always_inline to cross the
// tuning boundary.
#define GEMV_HALF_TUNE __attribute__((target("tune=nocona"), noinline))
#define GEMV_INLINE __attribute__((always_inline)) inline

// A complex single seen as one 64-bit unit; c32 arrays may be only 4-aligned.
typedef double c32_bits __attribute__((may_alias, aligned(4)));

GEMV_INLINE bool aligned16(const void* p) { return ((uintptr_t)p & 15) == 0; }

// Only the first byte counts; real types know no conjugate.
enum op_kind { OP_N, OP_T, OP_C };
inline op_kind op_of(const char* trans, bool complex_type) {
    const char c = *trans;
    if (c == 'N' || c == 'n') return OP_N;
    if (!complex_type || c == 'T' || c == 't') return OP_T;
    return OP_C;
}

// First used element of a strided vector of n elements.
template <class T>
inline T* first_used(T* p, int n, int inc) {
    return inc >= 0 ? p : p + (long)(1 - n) * inc;
}

// Whole vector when 16-aligned, two 64-bit halves otherwise.  The halves are
// two plain scalar loads, which the compiler places at their use (a load
// builtin would stay where it is written, and a row's loads would pile up
// ahead of its arithmetic and spill).
template <bool AL>
GEMV_INLINE __m128d ld2(const double* p) {
    if (AL) return _mm_load_pd(p);
    return _mm_set_pd(p[1], p[0]);
}
template <bool AL>
GEMV_INLINE void st2(double* p, __m128d v) {
    if (AL) {
        _mm_store_pd(p, v);
    } else {
        _mm_storel_pd(p, v);
        _mm_storeh_pd(p + 1, v);
    }
}

GEMV_INLINE __m128 ldu(const float* p) {
    return _mm_castsi128_ps(_mm_lddqu_si128((const __m128i*)p));
}

// ---- Complex products ------------------------------------------------------
//
// a * s for a complex scalar s given as re = (sr, sr), im = (si, si):
//   (ar*sr - ai*si, ai*sr + ar*si)
// conj(a) * s takes re = (-sr, -sr), im = (si, si), the sign of A's imaginary
// part folded into the scalar:
//   (ai*si + ar*sr, ar*si - ai*sr)
// Both are the swapped-pair multiply and one addsub.

// s is a with its halves swapped.
template <bool CONJ>
GEMV_INLINE __m128d zprod_s(__m128d a, __m128d s, __m128d re, __m128d im) {
    if (CONJ) return _mm_addsub_pd(_mm_mul_pd(s, im), _mm_mul_pd(a, re));
    return _mm_addsub_pd(_mm_mul_pd(a, re), _mm_mul_pd(s, im));
}
template <bool CONJ>
GEMV_INLINE __m128d zprod(__m128d a, __m128d re, __m128d im) {
    return zprod_s<CONJ>(a, _mm_shuffle_pd(a, a, 1), re, im);
}
// With an element of A: unaligned, the swapped pair comes from its own two
// half loads instead of a shuffle, which also spares a register.
template <bool CONJ, bool AL>
GEMV_INLINE __m128d zprod_at(const c64* p, __m128d re, __m128d im) {
    if (AL) return zprod<CONJ>(_mm_load_pd(&p->re), re, im);
    return zprod_s<CONJ>(_mm_set_pd(p->im, p->re), _mm_set_pd(p->re, p->im), re,
                         im);
}
template <bool CONJ>
GEMV_INLINE void zscal(const c64* s, __m128d& re, __m128d& im) {
    re = _mm_loaddup_pd(&s->re);
    im = _mm_loaddup_pd(&s->im);
    if (CONJ) re = _mm_xor_pd(re, _mm_set1_pd(-0.0));
}
GEMV_INLINE void zscal_reg(__m128d s, __m128d& re, __m128d& im) {
    re = _mm_unpacklo_pd(s, s);
    im = _mm_unpackhi_pd(s, s);
}

template <bool CONJ>
GEMV_INLINE __m128 cprod(__m128 a, __m128 re, __m128 im) {
    const __m128 s = _mm_shuffle_ps(a, a, 0xb1);
    if (CONJ) return _mm_addsub_ps(_mm_mul_ps(s, im), _mm_mul_ps(a, re));
    return _mm_addsub_ps(_mm_mul_ps(a, re), _mm_mul_ps(s, im));
}
// Two complex scalars (one per 64-bit lane) split into re and im vectors.
template <bool CONJ>
GEMV_INLINE void cscal(__m128 s, __m128& re, __m128& im) {
    re = _mm_moveldup_ps(s);
    im = _mm_movehdup_ps(s);
    if (CONJ) re = _mm_xor_ps(re, _mm_set1_ps(-0.0f));
}

// One complex single in both halves: the upper lanes repeat the lower ones
// and raise no flag of their own.
GEMV_INLINE __m128 c_dup(const c32* p) {
    return _mm_castpd_ps(_mm_set1_pd(*(const c32_bits*)p));
}
GEMV_INLINE void c_st1(c32* p, __m128 v) { _mm_storel_pi((__m64*)p, v); }
GEMV_INLINE __m128 c_ld2(const c32* p) { return ldu(&p->re); }
GEMV_INLINE __m128 c_gather(const c32* p, const c32* q) {
    return _mm_loadh_pi(_mm_loadl_pi(_mm_setzero_ps(), (const __m64*)p),
                        (const __m64*)q);
}

// ============================================================================
// DGEMV
// ============================================================================

// beta scaling of y; beta != 1.
GEMV_HALF_TUNE void d_scale(int n, double b, double* y, int incy) {
    if (incy == 1) {
        if (b == 0.0) {
            if (n >= 13) {
                std::memset(y, 0, (size_t)n * sizeof(double));
                return;
            }
            for (; n >= 8; n -= 8, y += 8)
#pragma GCC unroll 8
                for (int k = 0; k < 8; ++k) y[k] = 0.0;
            for (; n > 0; --n) *y++ = 0.0;
            return;
        }
        if (n >= 16) {
            if (((uintptr_t)y & 7) == 0 && ((uintptr_t)y & 8)) {
                *y = *y * b;
                ++y;
                --n;
            }
            const __m128d vb = _mm_set1_pd(b);
            if (aligned16(y)) {
                for (; n >= 16; n -= 16, y += 16)
#pragma GCC unroll 8
                    for (int k = 0; k < 16; k += 2)
                        st2<true>(y + k, _mm_mul_pd(ld2<true>(y + k), vb));
                for (; n >= 4; n -= 4, y += 4) {
                    st2<true>(y, _mm_mul_pd(ld2<true>(y), vb));
                    st2<true>(y + 2, _mm_mul_pd(ld2<true>(y + 2), vb));
                }
            } else {
                for (; n >= 16; n -= 16, y += 16)
#pragma GCC unroll 8
                    for (int k = 0; k < 16; k += 2)
                        st2<false>(y + k, _mm_mul_pd(ld2<false>(y + k), vb));
                for (; n >= 4; n -= 4, y += 4) {
                    st2<false>(y, _mm_mul_pd(ld2<false>(y), vb));
                    st2<false>(y + 2, _mm_mul_pd(ld2<false>(y + 2), vb));
                }
            }
        }
        for (; n > 0; --n, ++y) *y = *y * b;
        return;
    }
    // y points at its first used element.
    if (b == 0.0) {
        for (; n >= 8; n -= 8)
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k, y += incy) *y = 0.0;
        for (; n > 0; --n, y += incy) *y = 0.0;
        return;
    }
    for (; n >= 2; n -= 2) {
        y[0] = y[0] * b;
        y[incy] = y[incy] * b;
        y += 2 * incy;
    }
    if (n) *y = *y * b;
}

// x of the dot form: contiguous, or strided and gathered by pairs.
struct dx_unit {
    const double* p;
    GEMV_INLINE double at(int i) const { return p[i]; }
    GEMV_INLINE __m128d pair(int i) const { return _mm_set_pd(p[i + 1], p[i]); }
};
struct dx_step {
    const double* p;
    int inc;
    GEMV_INLINE double at(int i) const { return p[i * inc]; }
    GEMV_INLINE __m128d pair(int i) const {
        return _mm_set_pd(p[(i + 1) * inc], p[i * inc]);
    }
};

// Vector part of the dot: one accumulator per column, started by the first
// product, then reduced lane by lane into t.  Returns the next row.
template <int C, bool AL, class X>
GEMV_INLINE int d_dot_vec(int i, int m, const double* a, int lda, X x,
                          double* t) {
    __m128d acc[C];
    {
        const __m128d xv = x.pair(i);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            acc[k] = _mm_mul_pd(ld2<AL>(a + k * lda + i), xv);
        i += 2;
    }
    // One vector of rows a pass: a second x vector in flight would push the
    // four-column block past 8 registers.
    for (; i + 2 <= m; i += 2) {
        const __m128d xv = x.pair(i);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            acc[k] =
                _mm_add_pd(acc[k], _mm_mul_pd(ld2<AL>(a + k * lda + i), xv));
    }
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) {
        t[k] = t[k] + _mm_cvtsd_f64(acc[k]);
        t[k] = t[k] + _mm_cvtsd_f64(_mm_unpackhi_pd(acc[k], acc[k]));
    }
    return i;
}

// t[k] = sum over rows of x[i]*a[i, k]: row 0 starts t, a scalar peel brings
// row 1 of the last column to 16 bytes, then vectors, then the tail.
template <int C, class X>
GEMV_INLINE void d_dot(int m, const double* a, int lda, X x, double* t) {
    const double x0 = x.at(0);
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) t[k] = x0 * a[k * lda];
    int i = 1;
    if (m - 1 >= 4) {
        const double* last = a + (C - 1) * lda + 1;
        if (((uintptr_t)last & 7) == 0) {
            if ((uintptr_t)last & 8) {
                const double xi = x.at(1);
#pragma GCC unroll 8
                for (int k = 0; k < C; ++k) t[k] = t[k] + xi * a[k * lda + 1];
                i = 2;
            }
            // The last column is aligned now; the others are when lda is even.
            if (C == 1 || (lda & 1) == 0)
                i = d_dot_vec<C, true>(i, m, a, lda, x, t);
            else
                i = d_dot_vec<C, false>(i, m, a, lda, x, t);
        }
    }
    for (; i < m; ++i) {
        const double xi = x.at(i);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k) t[k] = t[k] + xi * a[k * lda + i];
    }
}

// Transposed: x over the rows, one y element per column.
template <bool UNIT, class X>
GEMV_HALF_TUNE void d_t(int m, int n, double al, const double* a, int lda, X x,
                        double* y, int incy) {
    if (UNIT) incy = 1;
    double t[4];
    int j = 0;
    for (; j + 4 <= n; j += 4, a += 4 * lda, y += 4 * incy) {
        d_dot<4>(m, a, lda, x, t);
#pragma GCC unroll 8
        for (int k = 0; k < 4; ++k) y[k * incy] = y[k * incy] + al * t[k];
    }
    if (UNIT && n - j >= 2) {
        d_dot<2>(m, a, lda, x, t);
        y[0] = y[0] + al * t[0];
        y[1] = y[1] + al * t[1];
        j += 2;
        a += 2 * lda;
        y += 2;
    }
    for (; j < n; ++j, a += lda, y += incy) {
        d_dot<1>(m, a, lda, x, t);
        y[0] = y[0] + al * t[0];
    }
}

// One row of the update, scalar: the same chain as the vectors.
template <int C>
GEMV_INLINE void d_row(int i, const double* a, int lda, const double* ts,
                       double* y) {
    double s = y[i];
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) s = s + ts[k] * a[k * lda + i];
    y[i] = s;
}

// Vector rows of the update, y 16-aligned at row i.  Eight columns: one
// vector of rows a pass, eight streams of A; fewer: four vectors a pass.
template <int C, bool AL>
GEMV_INLINE int d_upd_vec(int i, int m, const double* a, int lda,
                          const __m128d* tv, double* y) {
    if (C == 8) {
        // Three walking column pointers reach all eight columns by offsets
        // of lda, 2*lda and 4*lda: few general registers in 32-bit mode.
        const double* p0 = a + i;
        const double* p3 = p0 + 3 * lda;
        const double* p6 = p0 + 6 * lda;
        double* yp = y + i;
        for (int r = (m - i) >> 1; r > 0;
             --r, p0 += 2, p3 += 2, p6 += 2, yp += 2) {
            __m128d s = _mm_load_pd(yp);
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p0), tv[0]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p0 + lda), tv[1]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p0 + 2 * lda), tv[2]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p3), tv[3]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p0 + 4 * lda), tv[4]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p3 + 2 * lda), tv[5]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p6), tv[6]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p6 + lda), tv[7]));
            _mm_store_pd(yp, s);
        }
        return i + ((m - i) & ~1);
    }
    // Each vector is finished and stored before the next one's loads: the
    // scalars stay in registers and nothing spills.
    for (; i + 8 <= m; i += 8) {
#pragma GCC unroll 4
        for (int r = 0; r < 8; r += 2) {
            __m128d s = _mm_load_pd(y + i + r);
#pragma GCC unroll 8
            for (int k = 0; k < C; ++k)
                s = _mm_add_pd(s,
                               _mm_mul_pd(ld2<AL>(a + k * lda + i + r), tv[k]));
            _mm_store_pd(y + i + r, s);
        }
    }
    for (; i + 2 <= m; i += 2) {
        __m128d s = _mm_load_pd(y + i);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(a + k * lda + i), tv[k]));
        _mm_store_pd(y + i, s);
    }
    return i;
}

// C columns into y: alpha folded into x once per column, y read and written
// once.  peel < 0: y is not 8-aligned, every row scalar.
template <int C>
GEMV_INLINE void d_upd(int m, int peel, const double* a, int lda,
                       const double* x, double al, double* y) {
    double ts[C];
    __m128d tv[C];
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) {
        ts[k] = al * x[k];
        tv[k] = _mm_set1_pd(ts[k]);
    }
    int i = 0;
    if (peel >= 0) {
        for (; i < peel; ++i) d_row<C>(i, a, lda, ts, y);
        if (aligned16(a + i) && (C == 1 || (lda & 1) == 0))
            i = d_upd_vec<C, true>(i, m, a, lda, tv, y);
        else
            i = d_upd_vec<C, false>(i, m, a, lda, tv, y);
    }
    for (; i < m; ++i) d_row<C>(i, a, lda, ts, y);
}

GEMV_HALF_TUNE void d_n_unit(int m, int n, double al, const double* a, int lda,
                             const double* x, double* y) {
    int peel = -1;
    if (((uintptr_t)y & 7) == 0) peel = ((uintptr_t)y & 8) && m ? 1 : 0;
    int j = 0;
    for (; j + 8 <= n; j += 8)
        d_upd<8>(m, peel, a + j * lda, lda, x + j, al, y);
    if (n - j >= 4) {
        d_upd<4>(m, peel, a + j * lda, lda, x + j, al, y);
        j += 4;
    }
    if (n - j >= 2) {
        d_upd<2>(m, peel, a + j * lda, lda, x + j, al, y);
        j += 2;
    }
    if (n - j) d_upd<1>(m, peel, a + j * lda, lda, x + j, al, y);
}

// Strided: alpha*x in scalars, rows in a scalar loop over strided y.
GEMV_HALF_TUNE void d_n_step(int m, int n, double al, const double* a, int lda,
                             const double* x, int incx, double* y, int incy) {
    int j = 0;
    for (; j + 4 <= n; j += 4, a += 4 * lda, x += 4 * incx) {
        const double t0 = al * x[0], t1 = al * x[incx];
        const double t2 = al * x[2 * incx], t3 = al * x[3 * incx];
        const double *a0 = a, *a1 = a + lda, *a2 = a + 2 * lda,
                     *a3 = a + 3 * lda;
        double* yp = y;
        for (int i = 0; i < m; ++i, yp += incy)
            *yp = *yp + t0 * a0[i] + t1 * a1[i] + t2 * a2[i] + t3 * a3[i];
    }
    for (; j < n; ++j, a += lda, x += incx) {
        const double t = al * x[0];
        double* yp = y;
        int i = 0;
        for (; i + 2 <= m; i += 2, yp += 2 * incy) {
            yp[0] = yp[0] + t * a[i];
            yp[incy] = yp[incy] + t * a[i + 1];
        }
        if (i < m) *yp = *yp + t * a[i];
    }
}

// ============================================================================
// SGEMV
// ============================================================================

void s_scale(int n, float b, float* y, int incy) {
    if (incy == 1) {
        if (b == 0.0f) {
            if (n >= 25) {
                std::memset(y, 0, (size_t)n * sizeof(float));
                return;
            }
            for (; n > 0; --n) *y++ = 0.0f;
            return;
        }
        if (n >= 16) {
            if (((uintptr_t)y & 3) == 0)
                for (; !aligned16(y); --n, ++y) *y = *y * b;
            const __m128 vb = _mm_set1_ps(b);
            if (aligned16(y)) {
                for (; n >= 16; n -= 16, y += 16)
#pragma GCC unroll 4
                    for (int k = 0; k < 16; k += 4)
                        _mm_store_ps(y + k, _mm_mul_ps(_mm_load_ps(y + k), vb));
                for (; n >= 4; n -= 4, y += 4)
                    _mm_store_ps(y, _mm_mul_ps(_mm_load_ps(y), vb));
            } else {
                for (; n >= 16; n -= 16, y += 16)
#pragma GCC unroll 4
                    for (int k = 0; k < 16; k += 4)
                        _mm_storeu_ps(y + k, _mm_mul_ps(ldu(y + k), vb));
                for (; n >= 4; n -= 4, y += 4)
                    _mm_storeu_ps(y, _mm_mul_ps(ldu(y), vb));
            }
        }
        for (; n > 0; --n, ++y) *y = *y * b;
        return;
    }
    if (b == 0.0f) {
        for (; n >= 8; n -= 8)
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k, y += incy) *y = 0.0f;
        for (; n > 0; --n, y += incy) *y = 0.0f;
        return;
    }
    for (; n >= 2; n -= 2) {
        y[0] = y[0] * b;
        y[incy] = y[incy] * b;
        y += 2 * incy;
    }
    if (n) *y = *y * b;
}

struct sx_unit {
    const float* p;
    GEMV_INLINE float at(int i) const { return p[i]; }
    GEMV_INLINE __m128 quad(int i) const { return ldu(p + i); }
};
// Strided x: pairs of loads, then a merge.
struct sx_step {
    const float* p;
    int inc;
    GEMV_INLINE float at(int i) const { return p[i * inc]; }
    GEMV_INLINE __m128 quad(int i) const {
        const float* q = p + i * inc;
        const __m128 lo = _mm_unpacklo_ps(_mm_load_ss(q), _mm_load_ss(q + inc));
        const __m128 hi =
            _mm_unpacklo_ps(_mm_load_ss(q + 2 * inc), _mm_load_ss(q + 3 * inc));
        return _mm_movelh_ps(lo, hi);
    }
};

template <int C, class X>
GEMV_INLINE void s_dot_row(int i, const float* a, int lda, X x, float* t) {
    const float xi = x.at(i);
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) t[k] = t[k] + xi * a[k * lda + i];
}

template <int C, class X>
GEMV_INLINE void s_dot(int m, const float* a, int lda, X x, float* t) {
    const float x0 = x.at(0);
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) t[k] = x0 * a[k * lda];
    int i = 1, r = m - 1;
    if (r >= 4) {
        const float* last = a + (C - 1) * lda + 1;
        if (((uintptr_t)last & 3) == 0) {
            for (int p = (int)((-(uintptr_t)last & 15) >> 2); p > 0;
                 --p, ++i, --r)
                s_dot_row<C>(i, a, lda, x, t);
            if (r >= 8) {
                __m128 acc[C];
                {
                    const __m128 x0v = x.quad(i), x1v = x.quad(i + 4);
#pragma GCC unroll 8
                    for (int k = 0; k < C; ++k) {
                        const float* c = a + k * lda + i;
                        acc[k] = _mm_mul_ps(ldu(c), x0v);
                        acc[k] =
                            _mm_add_ps(acc[k], _mm_mul_ps(ldu(c + 4), x1v));
                    }
                    i += 8;
                    r -= 8;
                }
                for (; r >= 8; r -= 8, i += 8) {
                    const __m128 x0v = x.quad(i), x1v = x.quad(i + 4);
#pragma GCC unroll 8
                    for (int k = 0; k < C; ++k) {
                        const float* c = a + k * lda + i;
                        acc[k] = _mm_add_ps(acc[k], _mm_mul_ps(ldu(c), x0v));
                        acc[k] =
                            _mm_add_ps(acc[k], _mm_mul_ps(ldu(c + 4), x1v));
                    }
                }
#pragma GCC unroll 8
                for (int k = 0; k < C; ++k) {
                    const __m128 v = acc[k];
                    t[k] = t[k] + _mm_cvtss_f32(v);
                    t[k] = t[k] + _mm_cvtss_f32(_mm_shuffle_ps(v, v, 1));
                    t[k] = t[k] + _mm_cvtss_f32(_mm_movehl_ps(v, v));
                    t[k] = t[k] + _mm_cvtss_f32(_mm_shuffle_ps(v, v, 3));
                }
            }
        }
    }
    // More than 7 left only when the vector loop could not run.
    for (; r >= 8; r -= 8)
        for (int q = 0; q < 8; ++q, ++i) s_dot_row<C>(i, a, lda, x, t);
    switch (r) {
        case 7:
            s_dot_row<C>(i++, a, lda, x, t);
            [[fallthrough]];
        case 6:
            s_dot_row<C>(i++, a, lda, x, t);
            [[fallthrough]];
        case 5:
            s_dot_row<C>(i++, a, lda, x, t);
            [[fallthrough]];
        case 4:
            s_dot_row<C>(i++, a, lda, x, t);
            [[fallthrough]];
        case 3:
            s_dot_row<C>(i++, a, lda, x, t);
            [[fallthrough]];
        case 2:
            s_dot_row<C>(i++, a, lda, x, t);
            [[fallthrough]];
        case 1:
            s_dot_row<C>(i++, a, lda, x, t);
            [[fallthrough]];
        default:
            break;
    }
}

template <bool UNIT, class X>
__attribute__((noinline)) void s_t(int m, int n, float al, const float* a,
                                   int lda, X x, float* y, int incy) {
    if (UNIT) incy = 1;
    float t[4];
    int j = 0;
    for (; j + 4 <= n; j += 4, a += 4 * lda, y += 4 * incy) {
        s_dot<4>(m, a, lda, x, t);
#pragma GCC unroll 8
        for (int k = 0; k < 4; ++k) y[k * incy] = y[k * incy] + al * t[k];
    }
    for (; j < n; ++j, a += lda, y += incy) {
        s_dot<1>(m, a, lda, x, t);
        y[0] = y[0] + al * t[0];
    }
}

template <int C>
GEMV_INLINE void s_row(int i, const float* a, int lda, const float* ts,
                       float* y) {
    float s = y[i];
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) s = s + ts[k] * a[k * lda + i];
    y[i] = s;
}

// C columns into y.  Vectors of 8 rows a pass on a 16-aligned y (A read
// unaligned); a fall-through of up to 7 rows ends the row loop.
template <int C>
GEMV_INLINE void s_upd(int m, const float* a, int lda, const float* x, float al,
                       float* y) {
    float ts[C];
    __m128 tv[C];
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) {
        ts[k] = al * x[k];
        tv[k] = _mm_set1_ps(ts[k]);
    }
    int i = 0, r = m;
    if (((uintptr_t)y & 3) == 0) {
        for (; r > 0 && !aligned16(y + i); ++i, --r) s_row<C>(i, a, lda, ts, y);
        for (; r >= 8; r -= 8, i += 8) {
#pragma GCC unroll 2
            for (int q = 0; q < 8; q += 4) {
                __m128 s = _mm_load_ps(y + i + q);
#pragma GCC unroll 8
                for (int k = 0; k < C; ++k)
                    s = _mm_add_ps(s,
                                   _mm_mul_ps(ldu(a + k * lda + i + q), tv[k]));
                _mm_store_ps(y + i + q, s);
            }
        }
    }
    for (; r >= 8; r -= 8)
        for (int q = 0; q < 8; ++q, ++i) s_row<C>(i, a, lda, ts, y);
    switch (r) {
        case 7:
            s_row<C>(i++, a, lda, ts, y);
            [[fallthrough]];
        case 6:
            s_row<C>(i++, a, lda, ts, y);
            [[fallthrough]];
        case 5:
            s_row<C>(i++, a, lda, ts, y);
            [[fallthrough]];
        case 4:
            s_row<C>(i++, a, lda, ts, y);
            [[fallthrough]];
        case 3:
            s_row<C>(i++, a, lda, ts, y);
            [[fallthrough]];
        case 2:
            s_row<C>(i++, a, lda, ts, y);
            [[fallthrough]];
        case 1:
            s_row<C>(i++, a, lda, ts, y);
            [[fallthrough]];
        default:
            break;
    }
}

__attribute__((noinline)) void s_n_unit(int m, int n, float al, const float* a,
                                        int lda, const float* x, float* y) {
    int j = 0;
    for (; j + 4 <= n; j += 4) s_upd<4>(m, a + j * lda, lda, x + j, al, y);
    for (; j < n; ++j) s_upd<1>(m, a + j * lda, lda, x + j, al, y);
}

__attribute__((noinline)) void s_n_step(int m, int n, float al, const float* a,
                                        int lda, const float* x, int incx,
                                        float* y, int incy) {
    int j = 0;
    for (; j + 4 <= n; j += 4, a += 4 * lda, x += 4 * incx) {
        const float t0 = al * x[0], t1 = al * x[incx];
        const float t2 = al * x[2 * incx], t3 = al * x[3 * incx];
        const float *a0 = a, *a1 = a + lda, *a2 = a + 2 * lda,
                    *a3 = a + 3 * lda;
        float* yp = y;
        for (int i = 0; i < m; ++i, yp += incy)
            *yp = *yp + t0 * a0[i] + t1 * a1[i] + t2 * a2[i] + t3 * a3[i];
    }
    for (; j < n; ++j, a += lda, x += incx) {
        const float t = al * x[0];
        float* yp = y;
        int i = 0;
        for (; i + 2 <= m; i += 2, yp += 2 * incy) {
            yp[0] = yp[0] + t * a[i];
            yp[incy] = yp[incy] + t * a[i + 1];
        }
        if (i < m) *yp = *yp + t * a[i];
    }
}

// ============================================================================
// ZGEMV
// ============================================================================

// y * beta, beta != 1, both parts tested by the caller.
GEMV_HALF_TUNE void z_scale(int n, const c64* beta, c64* y, int incy) {
    const bool zero = beta->re == 0.0 && beta->im == 0.0;
    if (incy == 1) {
        if (zero) {
            if (n >= 7) {
                std::memset((void*)y, 0, (size_t)n * sizeof(c64));
                return;
            }
            for (; n > 0; --n, ++y) y->re = y->im = 0.0;
            return;
        }
        __m128d re, im;
        zscal<false>(beta, re, im);
        // A 16-byte element is one vector: nothing to peel.
        if (aligned16(y)) {
            for (; n >= 16; n -= 16, y += 16)
#pragma GCC unroll 16
                for (int k = 0; k < 16; ++k)
                    st2<true>(&y[k].re,
                              zprod<false>(ld2<true>(&y[k].re), re, im));
            for (; n >= 4; n -= 4, y += 4)
#pragma GCC unroll 4
                for (int k = 0; k < 4; ++k)
                    st2<true>(&y[k].re,
                              zprod<false>(ld2<true>(&y[k].re), re, im));
            for (; n > 0; --n, ++y)
                st2<true>(&y->re, zprod<false>(ld2<true>(&y->re), re, im));
        } else {
            for (; n >= 16; n -= 16, y += 16)
#pragma GCC unroll 16
                for (int k = 0; k < 16; ++k)
                    st2<false>(&y[k].re,
                               zprod<false>(ld2<false>(&y[k].re), re, im));
            for (; n >= 4; n -= 4, y += 4)
#pragma GCC unroll 4
                for (int k = 0; k < 4; ++k)
                    st2<false>(&y[k].re,
                               zprod<false>(ld2<false>(&y[k].re), re, im));
            for (; n > 0; --n, ++y)
                st2<false>(&y->re, zprod<false>(ld2<false>(&y->re), re, im));
        }
        return;
    }
    if (zero) {
        for (; n >= 8; n -= 8)
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k, y += incy) y->re = y->im = 0.0;
        for (; n > 0; --n, y += incy) y->re = y->im = 0.0;
        return;
    }
    __m128d re, im;
    zscal<false>(beta, re, im);
    for (; n >= 2; n -= 2) {
        const __m128d v0 = zprod<false>(ld2<false>(&y[0].re), re, im);
        const __m128d v1 = zprod<false>(ld2<false>(&y[incy].re), re, im);
        st2<false>(&y[0].re, v0);
        st2<false>(&y[incy].re, v1);
        y += 2 * incy;
    }
    if (n) st2<false>(&y->re, zprod<false>(ld2<false>(&y->re), re, im));
}

// t[k] = sum over rows of op(a[i, k]) * x[i], in row order: a 16-byte
// element fills the vector, so t itself is the accumulator and no peel is
// needed; the columns share A's alignment.
template <int C, bool CONJ, bool AL>
GEMV_INLINE void z_dot(int m, const c64* a, int lda, const c64* x, int incx,
                       __m128d* t) {
    __m128d re, im;
    zscal<CONJ>(x, re, im);
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) t[k] = zprod_at<CONJ, AL>(&a[k * lda], re, im);
    for (int i = 1; i < m; ++i) {
        zscal<CONJ>(x + i * incx, re, im);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            t[k] =
                _mm_add_pd(t[k], zprod_at<CONJ, AL>(&a[k * lda + i], re, im));
    }
}

template <int C, bool CONJ>
GEMV_INLINE void z_dot_any(int m, const c64* a, int lda, const c64* x, int incx,
                           __m128d* t) {
    if (aligned16(a))
        z_dot<C, CONJ, true>(m, a, lda, x, incx, t);
    else
        z_dot<C, CONJ, false>(m, a, lda, x, incx, t);
}

GEMV_INLINE void z_add_y(c64* y, __m128d t, __m128d are, __m128d aim) {
    st2<false>(&y->re,
               _mm_add_pd(ld2<false>(&y->re), zprod<false>(t, are, aim)));
}

// Transposed and conjugate: unit increments 4,2,1 (conjugate 2,1), strided
// 2,1.  x and y point at their first used elements.
template <bool CONJ, bool UNIT>
GEMV_HALF_TUNE void z_t(int m, int n, const c64* alpha, const c64* a, int lda,
                        const c64* x, int incx, c64* y, int incy) {
    if (UNIT) incx = incy = 1;
    __m128d are, aim;
    zscal<false>(alpha, are, aim);
    __m128d t[4];
    int j = 0;
    if (UNIT && !CONJ) {
        for (; j + 4 <= n; j += 4, a += 4 * lda, y += 4) {
            z_dot_any<4, CONJ>(m, a, lda, x, incx, t);
#pragma GCC unroll 8
            for (int k = 0; k < 4; ++k) z_add_y(y + k, t[k], are, aim);
        }
    }
    for (; j + 2 <= n; j += 2, a += 2 * lda, y += 2 * incy) {
        z_dot_any<2, CONJ>(m, a, lda, x, incx, t);
        z_add_y(y, t[0], are, aim);
        z_add_y(y + incy, t[1], are, aim);
    }
    if (j < n) {
        z_dot_any<1, CONJ>(m, a, lda, x, incx, t);
        z_add_y(y, t[0], are, aim);
    }
}

// Update rows, four a pass, then single rows; the same chain on every row.
// An element is a whole vector, so no peel can align y: a y off the 16-byte
// boundary is read and written by halves.  Each row is stored before the
// next row's loads, which keeps the block's scalars in registers.
template <int C, bool AL, bool YAL>
GEMV_INLINE void z_upd_rows(int m, const c64* a, int lda, const __m128d* tr,
                            const __m128d* ti, c64* y) {
    int i = 0;
    for (; i + 4 <= m; i += 4) {
#pragma GCC unroll 4
        for (int q = 0; q < 4; ++q) {
            __m128d s = ld2<YAL>(&y[i + q].re);
#pragma GCC unroll 8
            for (int k = 0; k < C; ++k)
                s = _mm_add_pd(
                    s, zprod_at<false, AL>(&a[k * lda + i + q], tr[k], ti[k]));
            st2<YAL>(&y[i + q].re, s);
        }
    }
    for (; i < m; ++i) {
        __m128d s = ld2<YAL>(&y[i].re);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            s = _mm_add_pd(s,
                           zprod_at<false, AL>(&a[k * lda + i], tr[k], ti[k]));
        st2<YAL>(&y[i].re, s);
    }
}

template <int C>
GEMV_INLINE void z_upd(int m, const c64* a, int lda, const c64* x, __m128d are,
                       __m128d aim, c64* y) {
    __m128d tr[C], ti[C];
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k)
        zscal_reg(zprod<false>(ld2<false>(&x[k].re), are, aim), tr[k], ti[k]);
    if (aligned16(y)) {
        if (aligned16(a))
            z_upd_rows<C, true, true>(m, a, lda, tr, ti, y);
        else
            z_upd_rows<C, false, true>(m, a, lda, tr, ti, y);
    } else {
        if (aligned16(a))
            z_upd_rows<C, true, false>(m, a, lda, tr, ti, y);
        else
            z_upd_rows<C, false, false>(m, a, lda, tr, ti, y);
    }
}

GEMV_HALF_TUNE void z_n_unit(int m, int n, const c64* alpha, const c64* a,
                             int lda, const c64* x, c64* y) {
    __m128d are, aim;
    zscal<false>(alpha, are, aim);
    int j = 0;
    for (; j + 4 <= n; j += 4)
        z_upd<4>(m, a + j * lda, lda, x + j, are, aim, y);
    if (n - j >= 2) {
        z_upd<2>(m, a + j * lda, lda, x + j, are, aim, y);
        j += 2;
    }
    if (n - j) z_upd<1>(m, a + j * lda, lda, x + j, are, aim, y);
}

// Strided: two columns a pass with alpha*x in scalars, rows one at a time;
// the last column with rows in pairs.  A's columns share its alignment.
template <bool AL>
GEMV_INLINE void z_n_step_rows(int m, int n, __m128d are, __m128d aim,
                               const c64* a, int lda, const c64* x, int incx,
                               c64* y, int incy) {
    int j = 0;
    for (; j + 2 <= n; j += 2, a += 2 * lda, x += 2 * incx) {
        __m128d r0, i0, r1, i1;
        zscal_reg(zprod<false>(ld2<false>(&x[0].re), are, aim), r0, i0);
        zscal_reg(zprod<false>(ld2<false>(&x[incx].re), are, aim), r1, i1);
        const c64 *a0 = a, *a1 = a + lda;
        c64* yp = y;
        for (int i = 0; i < m; ++i, yp += incy) {
            __m128d s = ld2<false>(&yp->re);
            s = _mm_add_pd(s, zprod_at<false, AL>(&a0[i], r0, i0));
            s = _mm_add_pd(s, zprod_at<false, AL>(&a1[i], r1, i1));
            st2<false>(&yp->re, s);
        }
    }
    if (j < n) {
        __m128d r0, i0;
        zscal_reg(zprod<false>(ld2<false>(&x[0].re), are, aim), r0, i0);
        c64* yp = y;
        int i = 0;
        for (; i + 2 <= m; i += 2, yp += 2 * incy) {
            const __m128d s0 = _mm_add_pd(ld2<false>(&yp[0].re),
                                          zprod_at<false, AL>(&a[i], r0, i0));
            const __m128d s1 =
                _mm_add_pd(ld2<false>(&yp[incy].re),
                           zprod_at<false, AL>(&a[i + 1], r0, i0));
            st2<false>(&yp[0].re, s0);
            st2<false>(&yp[incy].re, s1);
        }
        if (i < m)
            st2<false>(&yp->re, _mm_add_pd(ld2<false>(&yp->re),
                                           zprod_at<false, AL>(&a[i], r0, i0)));
    }
}

GEMV_HALF_TUNE void z_n_step(int m, int n, const c64* alpha, const c64* a,
                             int lda, const c64* x, int incx, c64* y,
                             int incy) {
    __m128d are, aim;
    zscal<false>(alpha, are, aim);
    if (aligned16(a))
        z_n_step_rows<true>(m, n, are, aim, a, lda, x, incx, y, incy);
    else
        z_n_step_rows<false>(m, n, are, aim, a, lda, x, incx, y, incy);
}

// ============================================================================
// CGEMV: six lower kernels
// ============================================================================

void c_scale(int n, const c32* beta, c32* y, int incy) {
    const bool zero = beta->re == 0.0f && beta->im == 0.0f;
    if (incy == 1) {
        if (zero) {
            if (n >= 13) {
                std::memset((void*)y, 0, (size_t)n * sizeof(c32));
                return;
            }
            for (; n > 0; --n, ++y) y->re = y->im = 0.0f;
            return;
        }
        __m128 re, im;
        cscal<false>(c_dup(beta), re, im);
        if (n >= 16) {
            if (((uintptr_t)y & 7) == 0 && !aligned16(y)) {
                c_st1(y, cprod<false>(c_dup(y), re, im));
                ++y;
                --n;
            }
            float* p = &y->re;
            if (aligned16(p)) {
                for (; n >= 16; n -= 16, p += 32)
#pragma GCC unroll 8
                    for (int k = 0; k < 32; k += 4)
                        _mm_store_ps(p + k,
                                     cprod<false>(_mm_load_ps(p + k), re, im));
                for (; n >= 4; n -= 4, p += 8) {
                    _mm_store_ps(p, cprod<false>(_mm_load_ps(p), re, im));
                    _mm_store_ps(p + 4,
                                 cprod<false>(_mm_load_ps(p + 4), re, im));
                }
            } else {
                for (; n >= 16; n -= 16, p += 32)
#pragma GCC unroll 8
                    for (int k = 0; k < 32; k += 4)
                        _mm_storeu_ps(p + k, cprod<false>(ldu(p + k), re, im));
                for (; n >= 4; n -= 4, p += 8) {
                    _mm_storeu_ps(p, cprod<false>(ldu(p), re, im));
                    _mm_storeu_ps(p + 4, cprod<false>(ldu(p + 4), re, im));
                }
            }
            y = (c32*)p;
        }
        for (; n > 0; --n, ++y) c_st1(y, cprod<false>(c_dup(y), re, im));
        return;
    }
    if (zero) {
        for (; n >= 8; n -= 8)
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k, y += incy) y->re = y->im = 0.0f;
        for (; n > 0; --n, y += incy) y->re = y->im = 0.0f;
        return;
    }
    __m128 re, im;
    cscal<false>(c_dup(beta), re, im);
    for (; n >= 2; n -= 2) {
        const __m128 v0 = cprod<false>(c_dup(y), re, im);
        const __m128 v1 = cprod<false>(c_dup(y + incy), re, im);
        c_st1(y, v0);
        c_st1(y + incy, v1);
        y += 2 * incy;
    }
    if (n) c_st1(y, cprod<false>(c_dup(y), re, im));
}

// Two adjacent elements of a vector; strided ones are gathered.
template <bool UNIT>
GEMV_INLINE __m128 c_pair(const c32* p, int inc) {
    return UNIT ? c_ld2(p) : c_gather(p, p + inc);
}
template <bool UNIT>
GEMV_INLINE void c_put_pair(c32* p, int inc, __m128 v) {
    if (UNIT) {
        _mm_storeu_ps(&p->re, v);
    } else {
        _mm_storel_pi((__m64*)p, v);
        _mm_storeh_pi((__m64*)(p + inc), v);
    }
}

// Not transposed: y := y + A*(alpha*x), two columns a pass.  x and y point
// at their first used elements; UNIT means both increments are 1.
template <int C, bool UNIT>
GEMV_INLINE void c_upd(int m, const c32* a, int lda, const c32* x, int incx,
                       __m128 are, __m128 aim, c32* y, int incy) {
    __m128 tr[C], ti[C];
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k)
        cscal<false>(cprod<false>(c_dup(x + k * incx), are, aim), tr[k], ti[k]);
    int i = 0;
    for (; i + 4 <= m; i += 4) {
#pragma GCC unroll 2
        for (int q = 0; q < 4; q += 2) {
            __m128 s = c_pair<UNIT>(y + (i + q) * incy, incy);
#pragma GCC unroll 8
            for (int k = 0; k < C; ++k)
                s = _mm_add_ps(
                    s, cprod<false>(c_ld2(a + k * lda + i + q), tr[k], ti[k]));
            c_put_pair<UNIT>(y + (i + q) * incy, incy, s);
        }
    }
    if (i + 2 <= m) {
        __m128 s = c_pair<UNIT>(y + i * incy, incy);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            s = _mm_add_ps(s,
                           cprod<false>(c_ld2(a + k * lda + i), tr[k], ti[k]));
        c_put_pair<UNIT>(y + i * incy, incy, s);
        i += 2;
    }
    if (i < m) {
        __m128 s = c_dup(y + i * incy);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            s = _mm_add_ps(s,
                           cprod<false>(c_dup(a + k * lda + i), tr[k], ti[k]));
        c_st1(y + i * incy, s);
    }
}

template <bool UNIT>
__attribute__((noinline)) void c_n(int m, int n, const c32* alpha, const c32* a,
                                   int lda, const c32* x, int incx, c32* y,
                                   int incy) {
    if (UNIT) incx = incy = 1;
    __m128 are, aim;
    cscal<false>(c_dup(alpha), are, aim);
    int j = 0;
    for (; j + 2 <= n; j += 2, a += 2 * lda, x += 2 * incx)
        c_upd<2, UNIT>(m, a, lda, x, incx, are, aim, y, incy);
    if (j < n) c_upd<1, UNIT>(m, a, lda, x, incx, are, aim, y, incy);
}

// Transposed or conjugate dot of C columns: row 0 starts t (a complex in
// both halves), then one accumulator per column over pairs of rows, reduced
// half by half into t, then the odd row.
template <int C, bool CONJ, bool UNIT>
GEMV_INLINE void c_dot(int m, const c32* a, int lda, const c32* x, int incx,
                       __m128* t) {
    __m128 re, im;
    cscal<CONJ>(c_dup(x), re, im);
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) t[k] = cprod<CONJ>(c_dup(a + k * lda), re, im);
    int i = 1, r = m - 1;
    if (r >= 2) {
        __m128 acc[C];
        cscal<CONJ>(c_pair<UNIT>(x + i * incx, incx), re, im);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            acc[k] = cprod<CONJ>(c_ld2(a + k * lda + i), re, im);
        i += 2;
        r -= 2;
        for (; r >= 4; r -= 4, i += 4) {
            cscal<CONJ>(c_pair<UNIT>(x + i * incx, incx), re, im);
#pragma GCC unroll 8
            for (int k = 0; k < C; ++k)
                acc[k] = _mm_add_ps(
                    acc[k], cprod<CONJ>(c_ld2(a + k * lda + i), re, im));
            cscal<CONJ>(c_pair<UNIT>(x + (i + 2) * incx, incx), re, im);
#pragma GCC unroll 8
            for (int k = 0; k < C; ++k)
                acc[k] = _mm_add_ps(
                    acc[k], cprod<CONJ>(c_ld2(a + k * lda + i + 2), re, im));
        }
        if (r >= 2) {
            cscal<CONJ>(c_pair<UNIT>(x + i * incx, incx), re, im);
#pragma GCC unroll 8
            for (int k = 0; k < C; ++k)
                acc[k] = _mm_add_ps(
                    acc[k], cprod<CONJ>(c_ld2(a + k * lda + i), re, im));
            i += 2;
            r -= 2;
        }
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k) {
            t[k] = _mm_add_ps(t[k], _mm_movelh_ps(acc[k], acc[k]));
            t[k] = _mm_add_ps(t[k], _mm_movehl_ps(acc[k], acc[k]));
        }
    }
    if (r) {
        cscal<CONJ>(c_dup(x + i * incx), re, im);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            t[k] =
                _mm_add_ps(t[k], cprod<CONJ>(c_dup(a + k * lda + i), re, im));
    }
}

template <bool CONJ, bool UNIT>
__attribute__((noinline)) void c_t(int m, int n, const c32* alpha, const c32* a,
                                   int lda, const c32* x, int incx, c32* y,
                                   int incy) {
    if (UNIT) incx = incy = 1;
    __m128 are, aim;
    cscal<false>(c_dup(alpha), are, aim);
    __m128 t[2];
    int j = 0;
    for (; j + 2 <= n; j += 2, a += 2 * lda, y += 2 * incy) {
        c_dot<2, CONJ, UNIT>(m, a, lda, x, incx, t);
        c_st1(y, _mm_add_ps(c_dup(y), cprod<false>(t[0], are, aim)));
        c_st1(y + incy,
              _mm_add_ps(c_dup(y + incy), cprod<false>(t[1], are, aim)));
    }
    if (j < n) {
        c_dot<1, CONJ, UNIT>(m, a, lda, x, incx, t);
        c_st1(y, _mm_add_ps(c_dup(y), cprod<false>(t[0], are, aim)));
    }
}

}  // namespace

// ============================================================================
// Kernels
// ============================================================================

void sgemv(const char* trans, const int* m_, const int* n_, const float* alpha,
           const float* a, const int* lda_, const float* x, const int* incx_,
           const float* beta, float* y, const int* incy_) {
    const int m = *m_, n = *n_;
    if (m <= 0 || n <= 0) return;
    const float al = *alpha, be = *beta;
    if (al == 0.0f && be == 1.0f) return;
    const bool notrans = op_of(trans, false) == OP_N;
    const int lda = *lda_, incx = *incx_, incy = *incy_;
    const int lenx = notrans ? n : m, leny = notrans ? m : n;
    y = first_used(y, leny, incy);
    if (be != 1.0f) s_scale(leny, be, y, incy);
    if (al == 0.0f) return;
    if (incx == 1 && incy == 1) {
        if (notrans)
            s_n_unit(m, n, al, a, lda, x, y);
        else
            s_t<true>(m, n, al, a, lda, sx_unit{x}, y, 1);
        return;
    }
    x = first_used(x, lenx, incx);
    if (notrans)
        s_n_step(m, n, al, a, lda, x, incx, y, incy);
    else
        s_t<false>(m, n, al, a, lda, sx_step{x, incx}, y, incy);
}

void dgemv(const char* trans, const int* m_, const int* n_, const double* alpha,
           const double* a, const int* lda_, const double* x, const int* incx_,
           const double* beta, double* y, const int* incy_) {
    const int m = *m_, n = *n_;
    if (m <= 0 || n <= 0) return;
    const double al = *alpha, be = *beta;
    if (al == 0.0 && be == 1.0) return;
    const bool notrans = op_of(trans, false) == OP_N;
    const int lda = *lda_, incx = *incx_, incy = *incy_;
    const int lenx = notrans ? n : m, leny = notrans ? m : n;
    y = first_used(y, leny, incy);
    if (be != 1.0) d_scale(leny, be, y, incy);
    if (al == 0.0) return;
    if (incx == 1 && incy == 1) {
        if (notrans)
            d_n_unit(m, n, al, a, lda, x, y);
        else
            d_t<true>(m, n, al, a, lda, dx_unit{x}, y, 1);
        return;
    }
    x = first_used(x, lenx, incx);
    if (notrans)
        d_n_step(m, n, al, a, lda, x, incx, y, incy);
    else
        d_t<false>(m, n, al, a, lda, dx_step{x, incx}, y, incy);
}

void cgemv(const char* trans, const int* m_, const int* n_, const c32* alpha,
           const c32* a, const int* lda_, const c32* x, const int* incx_,
           const c32* beta, c32* y, const int* incy_) {
    const int m = *m_, n = *n_;
    if (m <= 0 || n <= 0) return;
    const bool a0 = alpha->re == 0.0f && alpha->im == 0.0f;
    const bool b1 = beta->re == 1.0f && beta->im == 0.0f;
    if (a0 && b1) return;
    const op_kind op = op_of(trans, true);
    const int lda = *lda_, incx = *incx_, incy = *incy_;
    const int lenx = op == OP_N ? n : m, leny = op == OP_N ? m : n;
    y = first_used(y, leny, incy);
    if (!b1) c_scale(leny, beta, y, incy);
    if (a0) return;
    if (incx == 1 && incy == 1) {
        if (op == OP_N)
            c_n<true>(m, n, alpha, a, lda, x, 1, y, 1);
        else if (op == OP_T)
            c_t<false, true>(m, n, alpha, a, lda, x, 1, y, 1);
        else
            c_t<true, true>(m, n, alpha, a, lda, x, 1, y, 1);
        return;
    }
    x = first_used(x, lenx, incx);
    if (op == OP_N)
        c_n<false>(m, n, alpha, a, lda, x, incx, y, incy);
    else if (op == OP_T)
        c_t<false, false>(m, n, alpha, a, lda, x, incx, y, incy);
    else
        c_t<true, false>(m, n, alpha, a, lda, x, incx, y, incy);
}

void zgemv(const char* trans, const int* m_, const int* n_, const c64* alpha,
           const c64* a, const int* lda_, const c64* x, const int* incx_,
           const c64* beta, c64* y, const int* incy_) {
    const int m = *m_, n = *n_;
    if (m <= 0 || n <= 0) return;
    const bool a0 = alpha->re == 0.0 && alpha->im == 0.0;
    const bool b1 = beta->re == 1.0 && beta->im == 0.0;
    if (a0 && b1) return;
    const op_kind op = op_of(trans, true);
    const int lda = *lda_, incx = *incx_, incy = *incy_;
    const int lenx = op == OP_N ? n : m, leny = op == OP_N ? m : n;
    y = first_used(y, leny, incy);
    if (!b1) z_scale(leny, beta, y, incy);
    if (a0) return;
    if (incx == 1 && incy == 1) {
        if (op == OP_N)
            z_n_unit(m, n, alpha, a, lda, x, y);
        else if (op == OP_T)
            z_t<false, true>(m, n, alpha, a, lda, x, 1, y, 1);
        else
            z_t<true, true>(m, n, alpha, a, lda, x, 1, y, 1);
        return;
    }
    x = first_used(x, lenx, incx);
    if (op == OP_N)
        z_n_step(m, n, alpha, a, lda, x, incx, y, incy);
    else if (op == OP_T)
        z_t<false, false>(m, n, alpha, a, lda, x, incx, y, incy);
    else
        z_t<true, false>(m, n, alpha, a, lda, x, incx, y, incy);
}

}  // namespace zva::b3
