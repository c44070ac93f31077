// Lane kinds of the 128-bit branches (SSE2 to SSE4.2), and the single-element
// lanes every branch uses at the edges of a vector.
//
// A lane kind is a plain struct of static inline operations on a register
// type v that holds W elements of type T (real or complex):
//   load/store   W consecutive elements, any alignment, nothing beyond them
//   bcast        one element in every lane
//   gather       W elements s apart
//   tgroup       G consecutive elements from each of W columns ld apart,
//                turned into G registers; lane r of register t holds
//                element t of column r
//   madd(s,a,b)  s + a*b, rounded twice, or once where Fma is set
// Complex kinds add pair (one (re, im) pattern in every element), swp
// (exchange re and im), flip (xor, to change signs exactly) and bre/bim
// (the real or imaginary part of one element in every lane).
//
// Included only by branch code, in an unnamed namespace: each branch object
// gets its own copy, compiled with that branch's flags.
#pragma once
#include <immintrin.h>

#include "frame/scalar.h"

namespace zva::simd {
namespace {

template <bool Fma>
struct F1 {
    using T = float;
    using R = float;
    using v = __m128;
    static constexpr bool cplx = false;
    static constexpr int W = 1, G = 1;
    static v zero() { return _mm_setzero_ps(); }
    static v set1(float x) { return _mm_set1_ps(x); }
    static v load(const float* p) { return _mm_load_ss(p); }
    static void store(float* p, v x) { _mm_store_ss(p, x); }
    static v bcast(const float* p) { return _mm_load_ss(p); }
    static v gather(const float* p, int) { return _mm_load_ss(p); }
    static void tgroup(const float* p, int, v* o) { o[0] = _mm_load_ss(p); }
    static v mul(v a, v b) { return _mm_mul_ss(a, b); }
    static v add(v a, v b) { return _mm_add_ss(a, b); }
    static v madd(v s, v a, v b) {
        if constexpr (Fma) return _mm_fmadd_ss(a, b, s);
        else return _mm_add_ss(s, _mm_mul_ss(a, b));
    }
};

template <bool Fma>
struct D1 {
    using T = double;
    using R = double;
    using v = __m128d;
    static constexpr bool cplx = false;
    static constexpr int W = 1, G = 1;
    static v zero() { return _mm_setzero_pd(); }
    static v set1(double x) { return _mm_set1_pd(x); }
    static v load(const double* p) { return _mm_load_sd(p); }
    static void store(double* p, v x) { _mm_store_sd(p, x); }
    static v bcast(const double* p) { return _mm_load_sd(p); }
    static v gather(const double* p, int) { return _mm_load_sd(p); }
    static void tgroup(const double* p, int, v* o) { o[0] = _mm_load_sd(p); }
    static v mul(v a, v b) { return _mm_mul_sd(a, b); }
    static v add(v a, v b) { return _mm_add_sd(a, b); }
    static v madd(v s, v a, v b) {
        if constexpr (Fma) return _mm_fmadd_sd(a, b, s);
        else return _mm_add_sd(s, _mm_mul_sd(a, b));
    }
};

struct F128 {
    using T = float;
    using R = float;
    using v = __m128;
    static constexpr bool cplx = false;
    static constexpr int W = 4, G = 4;
    static v zero() { return _mm_setzero_ps(); }
    static v set1(float x) { return _mm_set1_ps(x); }
    static v load(const float* p) { return _mm_loadu_ps(p); }
    static void store(float* p, v x) { _mm_storeu_ps(p, x); }
    static v bcast(const float* p) { return _mm_set1_ps(*p); }
    static v gather(const float* p, int s) {
        return _mm_setr_ps(p[0], p[s], p[2 * s], p[3 * s]);
    }
    static void tgroup(const float* p, int ld, v* o) {
        __m128 r0 = _mm_loadu_ps(p), r1 = _mm_loadu_ps(p + ld);
        __m128 r2 = _mm_loadu_ps(p + 2 * ld), r3 = _mm_loadu_ps(p + 3 * ld);
        _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
        o[0] = r0;
        o[1] = r1;
        o[2] = r2;
        o[3] = r3;
    }
    static v mul(v a, v b) { return _mm_mul_ps(a, b); }
    static v add(v a, v b) { return _mm_add_ps(a, b); }
    static v madd(v s, v a, v b) { return _mm_add_ps(s, _mm_mul_ps(a, b)); }
};

struct D128 {
    using T = double;
    using R = double;
    using v = __m128d;
    static constexpr bool cplx = false;
    static constexpr int W = 2, G = 2;
    static v zero() { return _mm_setzero_pd(); }
    static v set1(double x) { return _mm_set1_pd(x); }
    static v load(const double* p) { return _mm_loadu_pd(p); }
    static void store(double* p, v x) { _mm_storeu_pd(p, x); }
    static v bcast(const double* p) { return _mm_set1_pd(*p); }
    static v gather(const double* p, int s) { return _mm_loadh_pd(_mm_load_sd(p), p + s); }
    static void tgroup(const double* p, int ld, v* o) {
        const __m128d x0 = _mm_loadu_pd(p), x1 = _mm_loadu_pd(p + ld);
        o[0] = _mm_unpacklo_pd(x0, x1);
        o[1] = _mm_unpackhi_pd(x0, x1);
    }
    static v mul(v a, v b) { return _mm_mul_pd(a, b); }
    static v add(v a, v b) { return _mm_add_pd(a, b); }
    static v madd(v s, v a, v b) { return _mm_add_pd(s, _mm_mul_pd(a, b)); }
};

// One single-precision complex element in the low 64 bits.
inline __m128 c32_half(const c32* p) {
    return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
}

template <bool Fma>
struct C1 {
    using T = c32;
    using R = float;
    using v = __m128;
    static constexpr bool cplx = true;
    static constexpr int W = 1, G = 1;
    static v zero() { return _mm_setzero_ps(); }
    static v set1(float x) { return _mm_set1_ps(x); }
    static v pair(float re, float im) { return _mm_setr_ps(re, im, re, im); }
    static v load(const c32* p) { return c32_half(p); }
    static void store(c32* p, v x) {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_castps_si128(x));
    }
    static v gather(const c32* p, int) { return c32_half(p); }
    static void tgroup(const c32* p, int, v* o) { o[0] = c32_half(p); }
    static v bre(const c32* p) { return _mm_set1_ps(p->re); }
    static v bim(const c32* p) { return _mm_set1_ps(p->im); }
    static v swp(v a) { return _mm_shuffle_ps(a, a, 0xB1); }
    static v flip(v a, v m) { return _mm_xor_ps(a, m); }
    static v mul(v a, v b) { return _mm_mul_ps(a, b); }
    static v add(v a, v b) { return _mm_add_ps(a, b); }
    static v madd(v s, v a, v b) {
        if constexpr (Fma) return _mm_fmadd_ps(a, b, s);
        else return _mm_add_ps(s, _mm_mul_ps(a, b));
    }
};

struct C128 {
    using T = c32;
    using R = float;
    using v = __m128;
    static constexpr bool cplx = true;
    static constexpr int W = 2, G = 2;
    static v zero() { return _mm_setzero_ps(); }
    static v set1(float x) { return _mm_set1_ps(x); }
    static v pair(float re, float im) { return _mm_setr_ps(re, im, re, im); }
    static v load(const c32* p) { return _mm_loadu_ps(&p->re); }
    static void store(c32* p, v x) { _mm_storeu_ps(&p->re, x); }
    static v gather(const c32* p, int s) { return _mm_movelh_ps(c32_half(p), c32_half(p + s)); }
    static void tgroup(const c32* p, int ld, v* o) {
        const __m128 x0 = _mm_loadu_ps(&p->re), x1 = _mm_loadu_ps(&p[ld].re);
        o[0] = _mm_movelh_ps(x0, x1);
        o[1] = _mm_movehl_ps(x1, x0);
    }
    static v bre(const c32* p) { return _mm_set1_ps(p->re); }
    static v bim(const c32* p) { return _mm_set1_ps(p->im); }
    static v swp(v a) { return _mm_shuffle_ps(a, a, 0xB1); }
    static v flip(v a, v m) { return _mm_xor_ps(a, m); }
    static v mul(v a, v b) { return _mm_mul_ps(a, b); }
    static v add(v a, v b) { return _mm_add_ps(a, b); }
    static v madd(v s, v a, v b) { return _mm_add_ps(s, _mm_mul_ps(a, b)); }
};

// One double-precision complex element fills a 128-bit register, so this
// kind serves as both the single and the wide lane on the 128-bit branches.
template <bool Fma>
struct Z128 {
    using T = c64;
    using R = double;
    using v = __m128d;
    static constexpr bool cplx = true;
    static constexpr int W = 1, G = 1;
    static v zero() { return _mm_setzero_pd(); }
    static v set1(double x) { return _mm_set1_pd(x); }
    static v pair(double re, double im) { return _mm_setr_pd(re, im); }
    static v load(const c64* p) { return _mm_loadu_pd(&p->re); }
    static void store(c64* p, v x) { _mm_storeu_pd(&p->re, x); }
    static v gather(const c64* p, int) { return _mm_loadu_pd(&p->re); }
    static void tgroup(const c64* p, int, v* o) { o[0] = _mm_loadu_pd(&p->re); }
    static v bre(const c64* p) { return _mm_set1_pd(p->re); }
    static v bim(const c64* p) { return _mm_set1_pd(p->im); }
    static v swp(v a) { return _mm_shuffle_pd(a, a, 1); }
    static v flip(v a, v m) { return _mm_xor_pd(a, m); }
    static v mul(v a, v b) { return _mm_mul_pd(a, b); }
    static v add(v a, v b) { return _mm_add_pd(a, b); }
    static v madd(v s, v a, v b) {
        if constexpr (Fma) return _mm_fmadd_pd(a, b, s);
        else return _mm_add_pd(s, _mm_mul_pd(a, b));
    }
};

// The lanes of the 128-bit branches: single lanes and wide lanes by type.
struct lanes128 {
    using s1 = F1<false>;
    using sv = F128;
    using d1 = D1<false>;
    using dv = D128;
    using c1 = C1<false>;
    using cv = C128;
    using z1 = Z128<false>;
    using zv = Z128<false>;
};

// The single (one) and wide lane kind of element type T in a branch's set K.
template <class K, class T> struct by_type;
template <class K> struct by_type<K, float> { using one = typename K::s1; using wide = typename K::sv; };
template <class K> struct by_type<K, double> { using one = typename K::d1; using wide = typename K::dv; };
template <class K> struct by_type<K, c32> { using one = typename K::c1; using wide = typename K::cv; };
template <class K> struct by_type<K, c64> { using one = typename K::z1; using wide = typename K::zv; };
template <class K, class T> using one = typename by_type<K, T>::one;
template <class K, class T> using wide = typename by_type<K, T>::wide;

// A scalar factor spread over a lane kind. Complex: x*s is
// (xr*sr - xi*si, xi*sr + xr*si), each product rounded, then one add; the
// subtraction is an add of a sign-flipped product, which is exact.
template <class L>
struct factor {
    typename L::v r, i, neg;
};

template <class L>
factor<L> make_factor(const typename L::T& s) {
    using R = typename L::R;
    factor<L> f;
    if constexpr (L::cplx) {
        f.r = L::set1(s.re);
        f.i = L::set1(s.im);
        f.neg = L::pair(-R(0), R(0));
    } else {
        f.r = L::set1(s);
        f.i = f.r;
        f.neg = f.r;
    }
    return f;
}

template <class L>
inline typename L::v times(const factor<L>& f, typename L::v x) {
    if constexpr (L::cplx)
        return L::add(L::mul(x, f.r), L::flip(L::mul(L::swp(x), f.i), f.neg));
    else
        return L::mul(x, f.r);
}

// ---- added for level 3 (TRMM) ---------------------------------------------

// The sum of all lanes of a register of real elements, upper half onto
// lower and again; and of a register of complex elements, as one value.
inline double total(__m128d x) { return _mm_cvtsd_f64(_mm_add_sd(x, _mm_unpackhi_pd(x, x))); }
inline float total(__m128 x) {
    const __m128 h = _mm_add_ps(x, _mm_movehl_ps(x, x));
    return _mm_cvtss_f32(_mm_add_ss(h, _mm_shuffle_ps(h, h, 1)));
}
inline c64 total_pairs(__m128d x) {
    c64 r;
    _mm_storeu_pd(&r.re, x);
    return r;
}
inline c32 total_pairs(__m128 x) {
    c32 r;
    _mm_storel_pi(reinterpret_cast<__m64*>(&r), _mm_add_ps(x, _mm_movehl_ps(x, x)));
    return r;
}

}  // namespace
}  // namespace zva::simd
