// AXPY for branch 5: SSE up to SSE4.1, 128-bit vectors. 32-bit code has
// eight xmm registers: a pass keeps alpha (complex: ar, ai and the sign mask),
// the carried x vector of the shifted loops and two or three working vectors.
//
// Multiply and add are separate: real y + alpha*x on every path. Complex:
// (y + ar*x) + sign*(ai*swap(x)), the sign applied to the product, so the
// real lane is (y_re + ar*x_re) - ai*x_im and the imaginary lane
// (y_im + ar*x_im) + ai*x_re, bit for bit what the scalar code computes, in
// any rounding mode. So no result depends on the path that took it.
#include <immintrin.h>

#include <cstdint>

#include "level1/kernels.h"

namespace zva::b5 {
namespace {

inline unsigned addr_bits(const void* p) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p));
}

inline void s_one(float a, const float* x, float* y) { *y = *y + a * *x; }
inline void d_one(double a, const double* x, double* y) { *y = *y + a * *x; }

// Both parts of x are read before y is written: x may be y itself.
inline void c_one(float ar, float ai, const c32* x, c32* y) {
    const float xr = x->re, xi = x->im;
    const float re = (y->re + ar * xr) - ai * xi;
    const float im = (y->im + ar * xi) + ai * xr;
    y->re = re;
    y->im = im;
}

inline __m128 s_step(__m128 yv, __m128 xv, __m128 a) {
    return _mm_add_ps(yv, _mm_mul_ps(xv, a));
}
inline __m128d d_step(__m128d yv, __m128d xv, __m128d a) {
    return _mm_add_pd(yv, _mm_mul_pd(xv, a));
}

// pshufd swaps re and im without a register copy (shufps needs one, and the
// allocator adds a second); where x is not aligned the compiler reads it
// twice instead, an L1 load cheaper than the two moves.
inline __m128 c_step(__m128 yv, __m128 xv, __m128 ar, __m128 ai, __m128 sg) {
    const __m128 sw = _mm_castsi128_ps(_mm_shuffle_epi32(_mm_castps_si128(xv), 0xB1));
    const __m128 s = _mm_add_ps(yv, _mm_mul_ps(xv, ar));
    return _mm_add_ps(s, _mm_xor_ps(_mm_mul_ps(sw, ai), sg));
}
inline __m128d z_step(__m128d yv, __m128d xv, __m128d ar, __m128d ai, __m128d sg) {
    const __m128d sw = _mm_castsi128_pd(_mm_shuffle_epi32(_mm_castpd_si128(xv), 0x4E));
    const __m128d s = _mm_add_pd(yv, _mm_mul_pd(xv, ar));
    return _mm_add_pd(s, _mm_xor_pd(_mm_mul_pd(sw, ai), sg));
}

// x vector of a loop whose x lies P floats past a 16-byte boundary, from two
// aligned loads: lanes P..3 of lo, then lanes 0..P-1 of hi. One instruction
// each: shufps stays in the float domain for the half shift, palignr does
// the odd shifts that shufps would need two steps for.
template <int P>
inline __m128 s_join(__m128 lo, __m128 hi) {
    if constexpr (P == 2)
        return _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(1, 0, 3, 2));
    else
        return _mm_castsi128_ps(
            _mm_alignr_epi8(_mm_castps_si128(hi), _mm_castps_si128(lo), 4 * P));
}

// The first carried vector: x[0 .. 3-P] in lanes P..3, read without touching
// the floats before x.
template <int P>
inline __m128 s_first(const float* x) {
    if constexpr (P == 1) {
        const __m128 h = _mm_loadh_pi(_mm_load_ss(x), reinterpret_cast<const __m64*>(x + 1));
        return _mm_shuffle_ps(h, h, _MM_SHUFFLE(3, 2, 0, 0));
    } else if constexpr (P == 2) {
        return _mm_loadh_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(x));
    } else {
        return _mm_load1_ps(x);
    }
}

// Unit stride, y 16-aligned, x P floats past a boundary. The 64-pass runs
// while its last aligned load still lies within x; the 8-tail reads x
// unaligned, which costs nothing extra on these processors for two vectors.
template <int P>
void s_unit_shifted(int n, __m128 av, float a, const float* x, float* y) {
    if (n >= 68 - P) {
        __m128 prev = s_first<P>(x);
        const float* xb = x + (4 - P);  // first 16-byte boundary inside x
        do {
#pragma GCC unroll 16
            for (int j = 0; j < 64; j += 4) {
                const __m128 cur = _mm_load_ps(xb + j);
                const __m128 xv = s_join<P>(prev, cur);
                prev = cur;
                _mm_store_ps(y + j, s_step(_mm_load_ps(y + j), xv, av));
            }
            n -= 64;
            x += 64;
            xb += 64;
            y += 64;
        } while (n >= 68 - P);
    }
    for (; n >= 8; n -= 8, x += 8, y += 8) {
        _mm_store_ps(y, s_step(_mm_load_ps(y), _mm_loadu_ps(x), av));
        _mm_store_ps(y + 4, s_step(_mm_load_ps(y + 4), _mm_loadu_ps(x + 4), av));
    }
    for (; n > 0; --n) s_one(a, x++, y++);
}

void s_unit(int n, float a, const float* x, float* y) {
    int peel = static_cast<int>(((0u - addr_bits(y)) & 15u) >> 2);
    if (peel > n) peel = n;
    n -= peel;
    for (; peel > 0; --peel) s_one(a, x++, y++);
    if (n == 0) return;

    const __m128 av = _mm_set1_ps(a);
    switch ((addr_bits(x) & 15u) >> 2) {
        case 1: s_unit_shifted<1>(n, av, a, x, y); return;
        case 2: s_unit_shifted<2>(n, av, a, x, y); return;
        case 3: s_unit_shifted<3>(n, av, a, x, y); return;
        default: break;
    }
    for (; n >= 64; n -= 64, x += 64, y += 64) {
#pragma GCC unroll 16
        for (int j = 0; j < 64; j += 4)
            _mm_store_ps(y + j, s_step(_mm_load_ps(y + j), _mm_load_ps(x + j), av));
    }
    for (; n >= 4; n -= 4, x += 4, y += 4)
        _mm_store_ps(y, s_step(_mm_load_ps(y), _mm_load_ps(x), av));
    for (; n > 0; --n) s_one(a, x++, y++);
}

void d_unit(int n, double a, const double* x, double* y) {
    if (addr_bits(y) & 8u) {
        d_one(a, x++, y++);
        if (--n == 0) return;
    }
    const __m128d av = _mm_set1_pd(a);
    if ((addr_bits(x) & 15u) == 0) {
        for (; n >= 32; n -= 32, x += 32, y += 32) {
#pragma GCC unroll 16
            for (int j = 0; j < 32; j += 2)
                _mm_store_pd(y + j, d_step(_mm_load_pd(y + j), _mm_load_pd(x + j), av));
        }
        for (; n >= 2; n -= 2, x += 2, y += 2)
            _mm_store_pd(y, d_step(_mm_load_pd(y), _mm_load_pd(x), av));
        if (n) d_one(a, x, y);
        return;
    }
    // x one element past a boundary: aligned loads from x + 1, each vector
    // joined from the high half of the previous load and the low half of
    // the next by shufpd. The pass needs x[32] for its last load.
    if (n >= 33) {
        __m128d prev = _mm_loaddup_pd(x);
        do {
#pragma GCC unroll 16
            for (int j = 0; j < 32; j += 2) {
                const __m128d cur = _mm_load_pd(x + j + 1);
                const __m128d xv = _mm_shuffle_pd(prev, cur, 1);
                prev = cur;
                _mm_store_pd(y + j, d_step(_mm_load_pd(y + j), xv, av));
            }
            n -= 32;
            x += 32;
            y += 32;
        } while (n >= 33);
    }
    for (; n >= 4; n -= 4, x += 4, y += 4) {
        _mm_store_pd(y, d_step(_mm_load_pd(y), _mm_loadu_pd(x), av));
        _mm_store_pd(y + 2, d_step(_mm_load_pd(y + 2), _mm_loadu_pd(x + 2), av));
    }
    for (; n > 0; --n) d_one(a, x++, y++);
}

// One loop for each pair of phases; aligned operands fold into the
// arithmetic, the others go by movups.
template <bool XA, bool YA>
void c_unit(int n, float ar, float ai, const c32* x, c32* y) {
    const float* xf = &x->re;
    float* yf = &y->re;
    const __m128 arv = _mm_set1_ps(ar), aiv = _mm_set1_ps(ai);
    const __m128 sg = _mm_set_ps(0.0f, -0.0f, 0.0f, -0.0f);
    auto ld_x = [](const float* p) { return XA ? _mm_load_ps(p) : _mm_loadu_ps(p); };
    auto ld_y = [](const float* p) { return YA ? _mm_load_ps(p) : _mm_loadu_ps(p); };
    auto st_y = [](float* p, __m128 v) {
        if constexpr (YA)
            _mm_store_ps(p, v);
        else
            _mm_storeu_ps(p, v);
    };
    for (; n >= 32; n -= 32, xf += 64, yf += 64) {
#pragma GCC unroll 16
        for (int j = 0; j < 64; j += 4)
            st_y(yf + j, c_step(ld_y(yf + j), ld_x(xf + j), arv, aiv, sg));
    }
    for (; n >= 2; n -= 2, xf += 4, yf += 4) st_y(yf, c_step(ld_y(yf), ld_x(xf), arv, aiv, sg));
    if (n)
        c_one(ar, ai, reinterpret_cast<const c32*>(xf), reinterpret_cast<c32*>(yf));
}

template <bool XA, bool YA>
void z_unit(int n, double ar, double ai, const c64* x, c64* y) {
    const double* xd = &x->re;
    double* yd = &y->re;
    const __m128d arv = _mm_set1_pd(ar), aiv = _mm_set1_pd(ai);
    const __m128d sg = _mm_set_pd(0.0, -0.0);
    auto ld_x = [](const double* p) { return XA ? _mm_load_pd(p) : _mm_loadu_pd(p); };
    auto ld_y = [](const double* p) { return YA ? _mm_load_pd(p) : _mm_loadu_pd(p); };
    auto st_y = [](double* p, __m128d v) {
        if constexpr (YA)
            _mm_store_pd(p, v);
        else
            _mm_storeu_pd(p, v);
    };
    for (; n >= 16; n -= 16, xd += 32, yd += 32) {
#pragma GCC unroll 16
        for (int j = 0; j < 32; j += 2)
            st_y(yd + j, z_step(ld_y(yd + j), ld_x(xd + j), arv, aiv, sg));
    }
    for (; n >= 2; n -= 2, xd += 4, yd += 4) {
        st_y(yd, z_step(ld_y(yd), ld_x(xd), arv, aiv, sg));
        st_y(yd + 2, z_step(ld_y(yd + 2), ld_x(xd + 2), arv, aiv, sg));
    }
    if (n) st_y(yd, z_step(ld_y(yd), ld_x(xd), arv, aiv, sg));
}

}  // namespace

template <> void axpy<float>(const int* pn, const float* palpha, const float* x, const int* pincx, float* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const float a = *palpha;
    if (a == 0.0f) return;  // either sign; NaN goes on
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1 && ((addr_bits(x) | addr_bits(y)) & 3u) == 0) {
        s_unit(n, a, x, y);
        return;
    }
    // Each element is stored before the next is read: incy = 0 accumulates
    // every product into one element in order.
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k, x += incx, y += incy) s_one(a, x, y);
}

template <> void axpy<double>(const int* pn, const double* palpha, const double* x, const int* pincx, double* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const double a = *palpha;
    if (a == 0.0) return;
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1 && ((addr_bits(x) | addr_bits(y)) & 7u) == 0) {
        d_unit(n, a, x, y);
        return;
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k, x += incx, y += incy) d_one(a, x, y);
}

template <> void axpy<c32>(const int* pn, const c32* palpha, const c32* x, const int* pincx, c32* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const float ar = palpha->re, ai = palpha->im;
    if (ar == 0.0f && ai == 0.0f) return;
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1) {
        const bool xa = (addr_bits(x) & 15u) == 0, ya = (addr_bits(y) & 15u) == 0;
        if (xa && ya)
            c_unit<true, true>(n, ar, ai, x, y);
        else if (xa)
            c_unit<true, false>(n, ar, ai, x, y);
        else if (ya)
            c_unit<false, true>(n, ar, ai, x, y);
        else
            c_unit<false, false>(n, ar, ai, x, y);
        return;
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k, x += incx, y += incy) c_one(ar, ai, x, y);
}

template <> void axpy<c64>(const int* pn, const c64* palpha, const c64* x, const int* pincx, c64* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const double ar = palpha->re, ai = palpha->im;
    if (ar == 0.0 && ai == 0.0) return;
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1) {
        const bool xa = (addr_bits(x) & 15u) == 0, ya = (addr_bits(y) & 15u) == 0;
        if (xa && ya)
            z_unit<true, true>(n, ar, ai, x, y);
        else if (xa)
            z_unit<true, false>(n, ar, ai, x, y);
        else if (ya)
            z_unit<false, true>(n, ar, ai, x, y);
        else
            z_unit<false, false>(n, ar, ai, x, y);
        return;
    }
    const __m128d arv = _mm_set1_pd(ar), aiv = _mm_set1_pd(ai);
    const __m128d sg = _mm_set_pd(0.0, -0.0);
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k, x += incx, y += incy)
        _mm_storeu_pd(&y->re, z_step(_mm_loadu_pd(&y->re), _mm_loadu_pd(&x->re), arv, aiv, sg));
}

}  // namespace zva::b5
