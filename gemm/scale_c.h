// Register lanes of the two plain multiply-engine kernels (the scaling of C
// and the unpacked multiply), written once for 128-bit SSE2, 256-bit AVX and
// 256-bit AVX with fused multiply-add, and the scaling of C built on them.
//
// Everything here lives in an unnamed namespace on purpose: each branch
// object that includes this header gets its own copy, compiled with that
// branch's flags, so the linker can never hand one branch another branch's
// instructions.
#pragma once
#include <immintrin.h>

#include <cstdint>

#include "frame/types.h"

namespace zva::gemm_plain {
namespace {

// A lane kind: a register type v holding W elements of type T (real or
// complex), with the moves and the arithmetic the recipes need.
//   load/store   W consecutive elements, any alignment, nothing beyond them
//   gather       W elements s apart
//   tgroup       G consecutive elements from each of W columns ld apart,
//                turned into G registers; lane r of register t holds
//                element t of column r
//   madd(s,a,b)  s + a*b, rounded twice, or once where Fma is set
// Complex kinds add pair (one (re, im) pattern in every element), swp
// (exchange re and im), flip (xor, to change signs exactly) and bre/bim
// (the real or imaginary part of one element in every lane).

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

#ifdef __AVX__

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

#endif  // __AVX__

// ---- helpers on scalars -----------------------------------------------

// Exact compares: a NaN is neither zero nor one.
inline bool is_zero(float x) { return x == 0.0f; }
inline bool is_zero(double x) { return x == 0.0; }
inline bool is_zero(const c32& x) { return x.re == 0.0f && x.im == 0.0f; }
inline bool is_zero(const c64& x) { return x.re == 0.0 && x.im == 0.0; }
inline bool is_one(float x) { return x == 1.0f; }
inline bool is_one(double x) { return x == 1.0; }
inline bool is_one(const c32& x) { return x.re == 1.0f && x.im == 0.0f; }
inline bool is_one(const c64& x) { return x.re == 1.0 && x.im == 0.0; }

// Elements to step over one at a time before p sits on a 32-byte boundary,
// at most limit; 0 when element boundaries never meet one (a double at a
// 4-byte offset, say), for then no peel helps.
template <class T>
int peel32(const T* p, int limit) {
    const unsigned low = static_cast<unsigned>(reinterpret_cast<uintptr_t>(p)) & 31u;
    const unsigned off = (32u - low) & 31u;
    if (off % sizeof(T)) return 0;
    const int e = static_cast<int>(off / sizeof(T));
    return e < limit ? e : limit;
}

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

// ---- C := beta*C ------------------------------------------------------

// Rows i0 to i1 - 1 of nc columns, in steps of the kind's width.
template <class L>
inline void scale_rows(typename L::T* col, int ldc, int nc, int i0, int i1, bool zero,
                       const factor<L>& f) {
    for (int i = i0; i < i1; i += L::W)
        for (int q = 0; q < nc; ++q) {
            typename L::T* e = col + q * ldc + i;
            L::store(e, zero ? L::zero() : times(f, L::load(e)));
        }
}

// Four columns at a time. Rows are peeled one by one until the first column
// of the group reaches a 32-byte boundary, then go by wide lanes, then one
// by one again; the other three columns follow the same row split. beta = 1
// leaves C alone (a complex 1 would turn an infinity's partner into NaN),
// beta = 0 stores zeros without reading C.
template <class L1, class LV>
void scale_c(int m, int n, const typename L1::T* beta, typename L1::T* c, int ldc) {
    using T = typename L1::T;
    if (m <= 0 || n <= 0 || is_one(*beta)) return;
    const bool zero = is_zero(*beta);
    const factor<L1> f1 = make_factor<L1>(*beta);
    const factor<LV> fv = make_factor<LV>(*beta);
    for (int j = 0; j < n; j += 4) {
        const int nc = n - j < 4 ? n - j : 4;
        T* const col = c + j * ldc;
        const int p = LV::W > 1 ? peel32(col, m) : 0;
        const int mv = p + (m - p) / LV::W * LV::W;
        scale_rows<L1>(col, ldc, nc, 0, p, zero, f1);
        scale_rows<LV>(col, ldc, nc, p, mv, zero, fv);
        scale_rows<L1>(col, ldc, nc, mv, m, zero, f1);
    }
}

}  // namespace
}  // namespace zva::gemm_plain
