// AXPY for branch 6: AVX without FMA, 256-bit vectors. In 32-bit code there
// are only eight vector registers; no pass keeps more than seven live.
//
// Multiply and add round separately: y + alpha*x for the real types, and for
// complex (ar*x - ai*x_im, ar*x_im + ai*x_re) by one add-subtract, then + y.
// The single-element code rounds in the same order as the vector code, so a
// result never depends on the path that served it.
//
// x is read in 128-bit halves: y is peeled to 32 bytes but x keeps its own
// phase, and on AVX-only cores a 256-bit load that splits a cache line costs
// far more than two 128-bit loads. Complex x is read the same way.
#include <immintrin.h>

#include <cstdint>

#include "level1/kernels.h"

namespace zva::b6 {
namespace {

// Elements to peel until y sits on a 32-byte boundary, or -1 when it never
// will (y not aligned to its element size).
inline int peel_to_32(const void* y, unsigned elem) {
    const unsigned a = static_cast<unsigned>(reinterpret_cast<uintptr_t>(y)) & 31u;
    if (a == 0) return 0;
    if (a % elem) return -1;
    return static_cast<int>((32u - a) / elem);
}

inline __m256d load_halves(const double* p) {
    return _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(p)), _mm_loadu_pd(p + 2), 1);
}

inline __m256 load_halves(const float* p) {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(p)), _mm_loadu_ps(p + 4), 1);
}

inline void d_one(double a, const double* x, double* y) { *y = *y + a * *x; }

inline void s_one(float a, const float* x, float* y) { *y = *y + a * *x; }

// One complex single in the low half of a register; 64-bit moves need no
// alignment and touch exactly the element.
inline void c_one(__m128 ar, __m128 ai, const c32* x, c32* y) {
    // The element fills both halves, so the unused lanes compute on real
    // data and raise no flag a zero lane would (0 * inf).
    const __m128 xv = _mm_castpd_ps(_mm_loaddup_pd(reinterpret_cast<const double*>(x)));
    const __m128 yv = _mm_castpd_ps(_mm_loaddup_pd(reinterpret_cast<const double*>(y)));
    const __m128 t = _mm_mul_ps(ai, _mm_permute_ps(xv, 0xB1));
    const __m128 r = _mm_add_ps(yv, _mm_addsub_ps(_mm_mul_ps(ar, xv), t));
    _mm_storel_pi(reinterpret_cast<__m64*>(y), r);
}

inline __m256 c_vec(__m256 ar, __m256 ai, __m256 xv) {
    const __m256 t = _mm256_mul_ps(ai, _mm256_permute_ps(xv, 0xB1));
    return _mm256_addsub_ps(_mm256_mul_ps(ar, xv), t);
}

inline void z_one(__m128d ar, __m128d ai, const c64* x, c64* y) {
    const __m128d xv = _mm_loadu_pd(&x->re);
    const __m128d t = _mm_mul_pd(ai, _mm_permute_pd(xv, 1));
    const __m128d r = _mm_add_pd(_mm_loadu_pd(&y->re), _mm_addsub_pd(_mm_mul_pd(ar, xv), t));
    _mm_storeu_pd(&y->re, r);
}

inline __m256d z_vec(__m256d ar, __m256d ai, __m256d xv) {
    const __m256d t = _mm256_mul_pd(ai, _mm256_permute_pd(xv, 5));
    return _mm256_addsub_pd(_mm256_mul_pd(ar, xv), t);
}

}  // namespace

template <> void axpy<double>(const int* pn, const double* palpha, const double* x, const int* pincx, double* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const double alpha = *palpha;
    if (alpha == 0.0) return;  // either sign; NaN goes on
    const int incx = *pincx, incy = *pincy;

    if (incx == 1 && incy == 1) {
        int i = 0;
        const int peel = n < 16 ? -1 : peel_to_32(y, 8);
        if (peel >= 0 && n >= peel + 16) {
            for (; i < peel; ++i) d_one(alpha, x + i, y + i);
            const __m256d a4 = _mm256_set1_pd(alpha);
            const int m = n - ((n - peel) & 15);
            for (; i < m; i += 16) {
                __m256d v0 = load_halves(x + i);
                __m256d v1 = load_halves(x + i + 4);
                __m256d v2 = load_halves(x + i + 8);
                __m256d v3 = load_halves(x + i + 12);
                v0 = _mm256_add_pd(_mm256_load_pd(y + i), _mm256_mul_pd(a4, v0));
                v1 = _mm256_add_pd(_mm256_load_pd(y + i + 4), _mm256_mul_pd(a4, v1));
                v2 = _mm256_add_pd(_mm256_load_pd(y + i + 8), _mm256_mul_pd(a4, v2));
                v3 = _mm256_add_pd(_mm256_load_pd(y + i + 12), _mm256_mul_pd(a4, v3));
                _mm256_store_pd(y + i, v0);
                _mm256_store_pd(y + i + 4, v1);
                _mm256_store_pd(y + i + 8, v2);
                _mm256_store_pd(y + i + 12, v3);
            }
        }
        for (; i < n; ++i) d_one(alpha, x + i, y + i);
        return;
    }

    // Strided: each element is stored before the next is read, so incy = 0
    // accumulates every product into one element in order.
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    int k = n;
    for (; k >= 2; k -= 2) {
        d_one(alpha, x, y);
        x += incx;
        y += incy;
        d_one(alpha, x, y);
        x += incx;
        y += incy;
    }
    if (k) d_one(alpha, x, y);
}

template <> void axpy<float>(const int* pn, const float* palpha, const float* x, const int* pincx, float* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const float alpha = *palpha;
    if (alpha == 0.0f) return;
    const int incx = *pincx, incy = *pincy;

    if (incx == 1 && incy == 1) {
        int i = 0;
        const int peel = n < 16 ? -1 : peel_to_32(y, 4);
        if (peel >= 0 && n >= peel + 16) {
            for (; i < peel; ++i) s_one(alpha, x + i, y + i);
            const __m256 a8 = _mm256_set1_ps(alpha);
            const int m = n - ((n - peel) & 15);
            for (; i < m; i += 16) {
                __m256 v0 = load_halves(x + i);
                __m256 v1 = load_halves(x + i + 8);
                v0 = _mm256_add_ps(_mm256_load_ps(y + i), _mm256_mul_ps(a8, v0));
                v1 = _mm256_add_ps(_mm256_load_ps(y + i + 8), _mm256_mul_ps(a8, v1));
                _mm256_store_ps(y + i, v0);
                _mm256_store_ps(y + i + 8, v1);
            }
        }
        for (; i < n; ++i) s_one(alpha, x + i, y + i);
        return;
    }

    x += vec_start(n, incx);
    y += vec_start(n, incy);
    int k = n;
    for (; k >= 2; k -= 2) {
        s_one(alpha, x, y);
        x += incx;
        y += incy;
        s_one(alpha, x, y);
        x += incx;
        y += incy;
    }
    if (k) s_one(alpha, x, y);
}

template <> void axpy<c32>(const int* pn, const c32* palpha, const c32* x, const int* pincx, c32* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const float ar = palpha->re, ai = palpha->im;
    // One compare for both parts; a NaN in either part makes the sum NaN.
    if (__builtin_fabsf(ar) + __builtin_fabsf(ai) == 0.0f) return;
    const int incx = *pincx, incy = *pincy;
    const __m128 ar1 = _mm_set1_ps(ar), ai1 = _mm_set1_ps(ai);

    if (incx == 1 && incy == 1) {
        int i = 0;
        const int peel = n < 8 ? -1 : peel_to_32(y, 8);
        if (peel >= 0 && n >= peel + 8) {
            for (; i < peel; ++i) c_one(ar1, ai1, x + i, y + i);
            const __m256 ar8 = _mm256_set1_ps(ar), ai8 = _mm256_set1_ps(ai);
            const int m = n - ((n - peel) & 7);
            for (; i < m; i += 8) {
                const float* xp = &x[i].re;
                float* yp = &y[i].re;
                __m256 v0 = load_halves(xp);
                __m256 v1 = load_halves(xp + 8);
                v0 = _mm256_add_ps(_mm256_load_ps(yp), c_vec(ar8, ai8, v0));
                v1 = _mm256_add_ps(_mm256_load_ps(yp + 8), c_vec(ar8, ai8, v1));
                _mm256_store_ps(yp, v0);
                _mm256_store_ps(yp + 8, v1);
            }
        }
        for (; i < n; ++i) c_one(ar1, ai1, x + i, y + i);
        return;
    }

    x += vec_start(n, incx);
    y += vec_start(n, incy);
    int k = n;
    for (; k >= 2; k -= 2) {
        c_one(ar1, ai1, x, y);
        x += incx;
        y += incy;
        c_one(ar1, ai1, x, y);
        x += incx;
        y += incy;
    }
    if (k) c_one(ar1, ai1, x, y);
}

template <> void axpy<c64>(const int* pn, const c64* palpha, const c64* x, const int* pincx, c64* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const double ar = palpha->re, ai = palpha->im;
    if (ar == 0.0 && ai == 0.0) return;
    const int incx = *pincx, incy = *pincy;
    const __m128d ar2 = _mm_set1_pd(ar), ai2 = _mm_set1_pd(ai);

    if (incx == 1 && incy == 1) {
        int i = 0;
        const int peel = n < 8 ? -1 : peel_to_32(y, 16);
        if (peel >= 0 && n >= peel + 8) {
            for (; i < peel; ++i) z_one(ar2, ai2, x + i, y + i);
            const __m256d ar4 = _mm256_set1_pd(ar), ai4 = _mm256_set1_pd(ai);
            const int m = n - ((n - peel) & 7);
            // One vector at a time: x and t per vector plus alpha in four
            // registers, so the singles' alpha stays live without a spill.
            for (; i < m; i += 8) {
                const double* xp = &x[i].re;
                double* yp = &y[i].re;
                _mm256_store_pd(yp, _mm256_add_pd(_mm256_load_pd(yp),
                                                  z_vec(ar4, ai4, load_halves(xp))));
                _mm256_store_pd(yp + 4, _mm256_add_pd(_mm256_load_pd(yp + 4),
                                                      z_vec(ar4, ai4, load_halves(xp + 4))));
                _mm256_store_pd(yp + 8, _mm256_add_pd(_mm256_load_pd(yp + 8),
                                                      z_vec(ar4, ai4, load_halves(xp + 8))));
                _mm256_store_pd(yp + 12, _mm256_add_pd(_mm256_load_pd(yp + 12),
                                                       z_vec(ar4, ai4, load_halves(xp + 12))));
            }
        }
        for (; i < n; ++i) z_one(ar2, ai2, x + i, y + i);
        return;
    }

    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k) {
        z_one(ar2, ai2, x, y);
        x += incx;
        y += incy;
    }
}

}  // namespace zva::b6
