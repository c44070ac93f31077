// NRM2, the Euclidean norm, in S, D, C, Z on every branch: the kernels
// behind the four NRM2 dispatch points. n <= 0 returns 0.
//
// Three ways to form it, chosen by type and branch:
//
//   routine          branch 7               branch 6               2 to 5
//   DNRM2, DZNRM2    scaled, double, fused  x87 sum of squares     x87 sum of squares
//   SNRM2, SCNRM2    scaled, single, fused  scaled, single         sum of squares
//                                                                  widened to double
//
// Scaled: one pass, strictly in element order, one element at a time;
// squares never leave the type's range, at the cost of a division per
// element. x87: the 64-bit mantissa and 15-bit exponent of the x87 unit hold
// the square of any double, so no scaling is needed. Widened: the square of
// a single cannot overflow a double.
//
// Register budget: the scaled walk needs three scalars; the x87 sums four
// accumulators and one element on the eight-deep x87 stack; the widened sum
// four xmm accumulators and two converted halves.
//
// Increments: the scaled walk steps |incx| from x[0] (a negative increment
// reads the BLAS set in the opposite order, incx = 0 reads x[0] n times).
// The sums of squares walk forward from x for incx = +-1 and start by the
// BLAS rule otherwise.
#include <immintrin.h>

#include <cstdint>

#include "frame/scalar.h"
#include "level1/kernels.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

template <class R> constexpr bool scaled_method() {
    return branch == 7 || (branch == 6 && __is_same(R, float));
}

// ---- scaled -----------------------------------------------------------------

inline float fabs_of(float v) { return __builtin_fabsf(v); }
inline double fabs_of(double v) { return __builtin_fabs(v); }
inline float sqrt_of(float v) { return _mm_cvtss_f32(_mm_sqrt_ss(_mm_set_ss(v))); }
inline double sqrt_of(double v) {
    const __m128d d = _mm_set_sd(v);
    return _mm_cvtsd_f64(_mm_sqrt_sd(d, d));
}

// 1 + (t*t)*ssq: one fused step on branch 7 after the rounded t*t; else
// ssq*t, times t, plus 1, each rounded.
inline float grow(float t, float ssq) {
#if ZVA_BRANCH == 7
    return _mm_cvtss_f32(_mm_fmadd_ss(_mm_set_ss(t * t), _mm_set_ss(ssq), _mm_set_ss(1.0f)));
#else
    return 1.0f + ssq * t * t;
#endif
}
inline double grow(double t, double ssq) {
#if ZVA_BRANCH == 7
    return _mm_cvtsd_f64(_mm_fmadd_sd(_mm_set_sd(t * t), _mm_set_sd(ssq), _mm_set_sd(1.0)));
#else
    return 1.0 + ssq * t * t;
#endif
}

template <class R> struct scaled {
    R scale = 0, ssq = 1;
    // A zero (either sign) changes nothing, so a leading zero divides by
    // nothing; a NaN fails a > scale and turns ssq into NaN.
    void add(R v) {
        if (v == 0) return;
        const R a = fabs_of(v);
        if (a > scale) {
            const R t = scale / a;
            ssq = grow(t, ssq);
            scale = a;
        } else {
            const R t = a / scale;
            ssq = ssq + t * t;
        }
    }
    R result() const { return scale * sqrt_of(ssq); }
};

template <class T> R_<T> nrm2_scaled(int n, const T* x, int incx) {
    using R = R_<T>;
    const int step = incx < 0 ? -incx : incx;
    scaled<R> s;
    if constexpr (__is_same(T, R)) {
        if (n == 1) return fabs_of(x[0]);  // no division, even where x*x overflows
        for (int i = 0; i < n; ++i, x += step) s.add(*x);
    } else if (step == 1) {
        for (int i = 0; i < n; ++i) {
            s.add(x[i].re);
            s.add(x[i].im);
        }
    } else {
        for (int i = 0; i < n; ++i, x += step) {
            s.add(x->re);
            s.add(x->im);
        }
    }
    return s.result();
}

// ---- x87 sum of squares (D and Z below branch 7) -------------------------------
// Each of the three forms below is compiled on every branch and used where
// the table above says (hence maybe_unused).
// The sums are long double, which the compiler keeps on the x87 unit. The
// value is rounded to double on return: the C++ function type asks for it.

inline long double sq(double v) { return (long double)v * (long double)v; }
inline void prefetch_nta(const void* p) { _mm_prefetch(static_cast<const char*>(p), _MM_HINT_NTA); }

constexpr int ahead_bytes = 128;  // unit-stride prefetch distance of DNRM2

[[maybe_unused]] double dnrm2_x87(int n, const double* x, int incx) {
    long double s;
    int i = 0;
    if (incx == 1 || incx == -1) {
        long double a0 = 0, a1 = 0, a2 = 0, a3 = 0;
        for (; n - i >= 4; i += 4) {
            prefetch_nta(reinterpret_cast<const char*>(x + i) + ahead_bytes);
            a0 += sq(x[i]);
            a1 += sq(x[i + 1]);
            a2 += sq(x[i + 2]);
            a3 += sq(x[i + 3]);
        }
        s = (a0 + a1) + (a2 + a3);
        for (; i < n; ++i) s += sq(x[i]);
    } else {
        x += vec_start(n, incx);
        long double a0 = 0, a1 = 0;
        for (; n - i >= 2; i += 2, x += 2 * incx) {
            prefetch_nta(x + 2 * incx);
            a0 += sq(x[0]);
            a1 += sq(x[incx]);
        }
        s = a0 + a1;
        if (i < n) s += sq(x[0]);
    }
    return (double)__builtin_sqrtl(s);
}

constexpr int z_ahead_bytes = 32;  // unit-stride prefetch distance of DZNRM2

[[maybe_unused]] double dznrm2_x87(int n, const c64* x, int incx) {
    const bool unit = incx == 1 || incx == -1;
    const int step = unit ? 1 : incx;
    if (!unit) x += vec_start(n, incx);
    long double a0 = 0, a1 = 0, a2 = 0, a3 = 0;
    int i = 0;
    for (; n - i >= 2; i += 2, x += 2 * step) {
        prefetch_nta(unit ? reinterpret_cast<const char*>(x) + z_ahead_bytes
                          : reinterpret_cast<const char*>(x + 2 * step));
        a0 += sq(x[0].re);
        a1 += sq(x[0].im);
        a2 += sq(x[step].re);
        a3 += sq(x[step].im);
    }
    long double s = (a0 + a1) + (a2 + a3);
    if (i < n) s += sq(x[0].re) + sq(x[0].im);
    return (double)__builtin_sqrtl(s);
}

// ---- sum of squares widened to double (S and C below branch 6) -----------------

inline __m128d sq2(__m128d v) { return _mm_mul_pd(v, v); }
// Two singles (or one complex single) widened to two doubles; movsd needs no
// 8-byte alignment.
inline __m128d widen_pair(const float* p) {
    return _mm_cvtps_pd(_mm_castpd_ps(_mm_load_sd(reinterpret_cast<const double*>(p))));
}
inline double lane_sum(__m128d a0, __m128d a1, __m128d a2, __m128d a3) {
    const __m128d r = _mm_add_pd(_mm_add_pd(a0, a1), _mm_add_pd(a2, a3));
    return _mm_cvtsd_f64(_mm_add_sd(r, _mm_unpackhi_pd(r, r)));
}
inline float sqrt_to_single(double s) { return (float)sqrt_of(s); }

// SNRM2: singles until x is 16-aligned, then steps of four singles (two
// widened vectors) into a0, a1, a2, a3 in turn, 32 a pass; blocks of 16,
// 8, 4; singles into lane 0 of a0.
[[maybe_unused]] float snrm2_widened(int n, const float* x, int incx) {
    __m128d a[4] = {_mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd()};
    int i = 0;
    auto one = [&](float v) { a[0] = _mm_add_sd(a[0], sq2(_mm_set_sd(v))); };
    if ((incx == 1 || incx == -1) && (addr_bits(x) & 3u) == 0) {
        for (; i < n && (addr_bits(x + i) & 15u); ++i) one(x[i]);
        auto stepv = [&](int k, const float* p) {
            const __m128 v = _mm_load_ps(p);
            a[k] = _mm_add_pd(a[k], sq2(_mm_cvtps_pd(v)));
            a[k] = _mm_add_pd(a[k], sq2(_mm_cvtps_pd(_mm_movehl_ps(v, v))));
        };
        for (; n - i >= 32; i += 32) {
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k) stepv(k & 3, x + i + 4 * k);
        }
        for (int b = 16; b >= 4; b /= 2)
            if (n - i >= b) {
                for (int k = 0; k < b / 4; ++k) stepv(k, x + i + 4 * k);
                i += b;
            }
        for (; i < n; ++i) one(x[i]);
    } else {
        x += vec_start(n, incx);
        for (; i < n; ++i, x += incx) one(*x);
    }
    return sqrt_to_single(lane_sum(a[0], a[1], a[2], a[3]));
}

// SCNRM2: one complex element (re, im widened) a step, a0 to a3 in turn;
// unit stride 32 a pass once x sits on 16 bytes, otherwise 4 a pass; the
// rest into a0.
[[maybe_unused]] float scnrm2_widened(int n, const c32* x, int incx) {
    __m128d a[4] = {_mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd()};
    int i = 0;
    auto one = [&](int k, const c32* p) { a[k] = _mm_add_pd(a[k], sq2(widen_pair(&p->re))); };
    if ((incx == 1 || incx == -1) && (addr_bits(x) & 7u) == 0) {
        if (n > 0 && (addr_bits(x) & 15u)) one(0, x + i++);
        for (; n - i >= 32; i += 32) {
#pragma GCC unroll 32
            for (int k = 0; k < 32; ++k) one(k & 3, x + i + k);
        }
        for (; i < n; ++i) one(0, x + i);
    } else {
        x += vec_start(n, incx);
        for (; n - i >= 4; i += 4, x += 4 * incx) {
            one(0, x);
            one(1, x + incx);
            one(2, x + 2 * incx);
            one(3, x + 3 * incx);
        }
        for (; i < n; ++i, x += incx) one(0, x);
    }
    return sqrt_to_single(lane_sum(a[0], a[1], a[2], a[3]));
}

}  // namespace

template <class T> R_<T> nrm2(const int* pn, const T* x, const int* pincx) {
    using R = R_<T>;
    const int n = *pn;
    if (n <= 0) return 0;
    const int incx = *pincx;
    if constexpr (scaled_method<R>()) return nrm2_scaled(n, x, incx);
    else if constexpr (__is_same(T, double)) return dnrm2_x87(n, x, incx);
    else if constexpr (__is_same(T, c64)) return dznrm2_x87(n, x, incx);
    else if constexpr (__is_same(T, float)) return snrm2_widened(n, x, incx);
    else return scnrm2_widened(n, x, incx);
}

ZVA_INSTANTIATE_TYPES(nrm2)

}  // namespace zva::ZVA_NS
