// Lane kinds of the 256-bit branches: AVX (6) and AVX2 with fused
// multiply-add (7). The same operations as the 128-bit kinds; the single-
// element kinds are shared, with madd fused where Fma is set.
#pragma once
#include "simd/lanes128.h"

#ifndef __AVX__
#error "the 256-bit lanes are for the AVX branches only"
#endif

namespace zva::simd {
namespace {


inline __m256 f_halves(const float* lo, const float* hi) {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(lo)), _mm_loadu_ps(hi), 1);
}
inline __m256d d_halves(const double* lo, const double* hi) {
    return _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(lo)), _mm_loadu_pd(hi), 1);
}

template <bool Fma>
struct F256 {
    using T = float;
    using R = float;
    using v = __m256;
    static constexpr bool cplx = false;
    static constexpr int W = 8, G = 4;
    static v zero() { return _mm256_setzero_ps(); }
    static v set1(float x) { return _mm256_set1_ps(x); }
    static v load(const float* p) { return _mm256_loadu_ps(p); }
    static void store(float* p, v x) { _mm256_storeu_ps(p, x); }
    static v bcast(const float* p) { return _mm256_broadcast_ss(p); }
    static v gather(const float* p, int s) {
        return _mm256_setr_ps(p[0], p[s], p[2 * s], p[3 * s], p[4 * s], p[5 * s], p[6 * s],
                              p[7 * s]);
    }
    // Columns r and r + 4 share a register, one per half; the 4 x 4
    // transpose then runs inside both halves at once.
    static void tgroup(const float* p, int ld, v* o) {
        const __m256 y0 = f_halves(p, p + 4 * ld), y1 = f_halves(p + ld, p + 5 * ld);
        const __m256 y2 = f_halves(p + 2 * ld, p + 6 * ld), y3 = f_halves(p + 3 * ld, p + 7 * ld);
        const __m256 t0 = _mm256_unpacklo_ps(y0, y1), t1 = _mm256_unpackhi_ps(y0, y1);
        const __m256 t2 = _mm256_unpacklo_ps(y2, y3), t3 = _mm256_unpackhi_ps(y2, y3);
        o[0] = _mm256_shuffle_ps(t0, t2, 0x44);
        o[1] = _mm256_shuffle_ps(t0, t2, 0xEE);
        o[2] = _mm256_shuffle_ps(t1, t3, 0x44);
        o[3] = _mm256_shuffle_ps(t1, t3, 0xEE);
    }
    static v mul(v a, v b) { return _mm256_mul_ps(a, b); }
    static v add(v a, v b) { return _mm256_add_ps(a, b); }
    static v madd(v s, v a, v b) {
        if constexpr (Fma) return _mm256_fmadd_ps(a, b, s);
        else return _mm256_add_ps(s, _mm256_mul_ps(a, b));
    }
};

template <bool Fma>
struct D256 {
    using T = double;
    using R = double;
    using v = __m256d;
    static constexpr bool cplx = false;
    static constexpr int W = 4, G = 2;
    static v zero() { return _mm256_setzero_pd(); }
    static v set1(double x) { return _mm256_set1_pd(x); }
    static v load(const double* p) { return _mm256_loadu_pd(p); }
    static void store(double* p, v x) { _mm256_storeu_pd(p, x); }
    static v bcast(const double* p) { return _mm256_broadcast_sd(p); }
    static v gather(const double* p, int s) {
        return _mm256_setr_pd(p[0], p[s], p[2 * s], p[3 * s]);
    }
    static void tgroup(const double* p, int ld, v* o) {
        const __m256d y0 = d_halves(p, p + 2 * ld), y1 = d_halves(p + ld, p + 3 * ld);
        o[0] = _mm256_unpacklo_pd(y0, y1);
        o[1] = _mm256_unpackhi_pd(y0, y1);
    }
    static v mul(v a, v b) { return _mm256_mul_pd(a, b); }
    static v add(v a, v b) { return _mm256_add_pd(a, b); }
    static v madd(v s, v a, v b) {
        if constexpr (Fma) return _mm256_fmadd_pd(a, b, s);
        else return _mm256_add_pd(s, _mm256_mul_pd(a, b));
    }
};

template <bool Fma>
struct C256 {
    using T = c32;
    using R = float;
    using v = __m256;
    static constexpr bool cplx = true;
    static constexpr int W = 4, G = 2;
    static v zero() { return _mm256_setzero_ps(); }
    static v set1(float x) { return _mm256_set1_ps(x); }
    static v pair(float re, float im) { return _mm256_setr_ps(re, im, re, im, re, im, re, im); }
    static v load(const c32* p) { return _mm256_loadu_ps(&p->re); }
    static void store(c32* p, v x) { _mm256_storeu_ps(&p->re, x); }
    static v gather(const c32* p, int s) {
        const __m128 lo = _mm_movelh_ps(c32_half(p), c32_half(p + s));
        const __m128 hi = _mm_movelh_ps(c32_half(p + 2 * s), c32_half(p + 3 * s));
        return _mm256_insertf128_ps(_mm256_castps128_ps256(lo), hi, 1);
    }
    // Complex elements move as 64-bit units, so this is the double pattern.
    static void tgroup(const c32* p, int ld, v* o) {
        const __m256d y0 = _mm256_castps_pd(f_halves(&p->re, &p[2 * ld].re));
        const __m256d y1 = _mm256_castps_pd(f_halves(&p[ld].re, &p[3 * ld].re));
        o[0] = _mm256_castpd_ps(_mm256_unpacklo_pd(y0, y1));
        o[1] = _mm256_castpd_ps(_mm256_unpackhi_pd(y0, y1));
    }
    static v bre(const c32* p) { return _mm256_broadcast_ss(&p->re); }
    static v bim(const c32* p) { return _mm256_broadcast_ss(&p->im); }
    static v swp(v a) { return _mm256_permute_ps(a, 0xB1); }
    static v flip(v a, v m) { return _mm256_xor_ps(a, m); }
    static v mul(v a, v b) { return _mm256_mul_ps(a, b); }
    static v add(v a, v b) { return _mm256_add_ps(a, b); }
    static v madd(v s, v a, v b) {
        if constexpr (Fma) return _mm256_fmadd_ps(a, b, s);
        else return _mm256_add_ps(s, _mm256_mul_ps(a, b));
    }
};

template <bool Fma>
struct Z256 {
    using T = c64;
    using R = double;
    using v = __m256d;
    static constexpr bool cplx = true;
    static constexpr int W = 2, G = 1;
    static v zero() { return _mm256_setzero_pd(); }
    static v set1(double x) { return _mm256_set1_pd(x); }
    static v pair(double re, double im) { return _mm256_setr_pd(re, im, re, im); }
    static v load(const c64* p) { return _mm256_loadu_pd(&p->re); }
    static void store(c64* p, v x) { _mm256_storeu_pd(&p->re, x); }
    static v gather(const c64* p, int s) { return d_halves(&p->re, &p[s].re); }
    static void tgroup(const c64* p, int ld, v* o) { o[0] = d_halves(&p->re, &p[ld].re); }
    static v bre(const c64* p) { return _mm256_broadcast_sd(&p->re); }
    static v bim(const c64* p) { return _mm256_broadcast_sd(&p->im); }
    static v swp(v a) { return _mm256_permute_pd(a, 5); }
    static v flip(v a, v m) { return _mm256_xor_pd(a, m); }
    static v mul(v a, v b) { return _mm256_mul_pd(a, b); }
    static v add(v a, v b) { return _mm256_add_pd(a, b); }
    static v madd(v s, v a, v b) {
        if constexpr (Fma) return _mm256_fmadd_pd(a, b, s);
        else return _mm256_add_pd(s, _mm256_mul_pd(a, b));
    }
};

// The lanes of the 256-bit branches; Fma fuses madd, single lanes included.
template <bool Fma>
struct lanes256 {
    using s1 = F1<Fma>;
    using sv = F256<Fma>;
    using d1 = D1<Fma>;
    using dv = D256<Fma>;
    using c1 = C1<Fma>;
    using cv = C256<Fma>;
    using z1 = Z128<Fma>;
    using zv = Z256<Fma>;
};

// ---- added for level 3 (TRMM) ---------------------------------------------

// Lane sums of the 256-bit registers: the upper half onto the lower, then
// as in the 128-bit kinds.
inline double total(__m256d x) {
    return total(_mm_add_pd(_mm256_castpd256_pd128(x), _mm256_extractf128_pd(x, 1)));
}
inline float total(__m256 x) {
    return total(_mm_add_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1)));
}
inline c64 total_pairs(__m256d x) {
    return total_pairs(_mm_add_pd(_mm256_castpd256_pd128(x), _mm256_extractf128_pd(x, 1)));
}
inline c32 total_pairs(__m256 x) {
    return total_pairs(_mm_add_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1)));
}

}  // namespace
}  // namespace zva::simd
