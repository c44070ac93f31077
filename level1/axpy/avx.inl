// AXPY of the 256-bit branches: 6 (AVX) and 7 (AVX2 with FMA).
//
// Register budget: eight ymm registers in 32-bit code. A pass keeps alpha
// (complex: ar and ai) and at most six working vectors live, so nothing
// spills. Unit stride: y is peeled to 32 bytes and x read where it lies;
// short vectors, and a y not aligned to its element, go singly.
//
// What differs between the two branches:
//   x loads      branch 6 reads x in 128-bit halves: on AVX-only cores a
//                256-bit load that splits a cache line costs far more than
//                two 128-bit loads. Branch 7 reads x by 256-bit loads.
//   real step    branch 6: y + alpha*x, two roundings; branch 7: one fused
//                step on every path, singles included.
//   complex      t = ai*swap(x); then ar*x - t in the real lanes and
//                ar*x + t in the imaginary lanes, by mul and addsub on
//                branch 6, by one fmaddsub on branch 7; then + y.
//   tails        branch 7 has a one-vector pass after the main pass;
//                branch 6 goes singly.
//   ZAXPY        branch 6 finishes one vector at a time; branch 7 loads
//                four x vectors first. Branch 7's general path runs
//                (y_re + ar*x_re) - ai*x_im, (y_im + ar*x_im) + ai*x_re, each
//                bracket one fused step, so its rounding differs from that
//                of its unit path.
// Elsewhere the single-element code rounds in the order of the vector code,
// so a result never depends on the path that served it.
//
// The branch pieces of the kernels, and the general path the two real types
// share, are macros: routed through inline functions or the lane kinds
// (even an identity function for alpha), the compiler swaps operands and
// turns loop compares around, and the loops must stay as they are.
#if ZVA_BRANCH == 7
#define AXPY_LOADX_PD(p) _mm256_loadu_pd(p)
#define AXPY_LOADX_PS(p) _mm256_loadu_ps(p)
#define AXPY_MADD_PD(a, x, y) _mm256_fmadd_pd(a, x, y)
#define AXPY_MADD_PS(a, x, y) _mm256_fmadd_ps(a, x, y)
#define AXPY_ALPHA1_D(a) _mm_set_sd(a)
#define AXPY_ALPHA1_S(a) _mm_set_ss(a)
#else
#define AXPY_LOADX_PD(p) simd::d_halves(p, (p) + 2)
#define AXPY_LOADX_PS(p) simd::f_halves(p, (p) + 4)
#define AXPY_MADD_PD(a, x, y) _mm256_add_pd(y, _mm256_mul_pd(a, x))
#define AXPY_MADD_PS(a, x, y) _mm256_add_ps(y, _mm256_mul_ps(a, x))
#define AXPY_ALPHA1_D(a) (a)
#define AXPY_ALPHA1_S(a) (a)
#endif

// General path of the real types: two elements a pass, each stored before
// the next is read, so incy = 0 accumulates every product into one element
// in order.
#define AXPY_REAL_STRIDED(one)     \
    x += vec_start(n, incx);       \
    y += vec_start(n, incy);       \
    int k = n;                     \
    for (; k >= 2; k -= 2) {       \
        one(a1, x, y);             \
        x += incx;                 \
        y += incy;                 \
        one(a1, x, y);             \
        x += incx;                 \
        y += incy;                 \
    }                              \
    if (k) one(a1, x, y)

namespace zva::ZVA_NS {
namespace {

// Real singles: branch 7 keeps alpha in the low lane of a register
// (AXPY_ALPHA1_*) for the fused step; branch 6 rounds product and sum apart.
#if ZVA_BRANCH == 7
inline void d_one(__m128d a, const double* x, double* y) {
    _mm_store_sd(y, _mm_fmadd_sd(a, _mm_load_sd(x), _mm_load_sd(y)));
}

inline void s_one(__m128 a, const float* x, float* y) {
    _mm_store_ss(y, _mm_fmadd_ss(a, _mm_load_ss(x), _mm_load_ss(y)));
}
#else
inline void d_one(double a, const double* x, double* y) { *y = *y + a * *x; }

inline void s_one(float a, const float* x, float* y) { *y = *y + a * *x; }
#endif

// One complex single in the low half of a register; 64-bit moves need no
// alignment and touch exactly the element.
inline void c_one(__m128 ar, __m128 ai, const c32* x, c32* y) {
    // The element fills both halves, so the unused lanes compute on real
    // data and raise no flag a zero lane would (0 * inf).
    const __m128 xv = _mm_castpd_ps(_mm_loaddup_pd(reinterpret_cast<const double*>(x)));
    const __m128 yv = _mm_castpd_ps(_mm_loaddup_pd(reinterpret_cast<const double*>(y)));
    const __m128 t = _mm_mul_ps(ai, _mm_permute_ps(xv, 0xB1));
#if ZVA_BRANCH == 7
    const __m128 r = _mm_add_ps(yv, _mm_fmaddsub_ps(ar, xv, t));
#else
    const __m128 r = _mm_add_ps(yv, _mm_addsub_ps(_mm_mul_ps(ar, xv), t));
#endif
    _mm_storel_pi(reinterpret_cast<__m64*>(y), r);
}

inline __m256 c_vec(__m256 ar, __m256 ai, __m256 xv) {
    const __m256 t = _mm256_mul_ps(ai, _mm256_permute_ps(xv, 0xB1));
#if ZVA_BRANCH == 7
    return _mm256_fmaddsub_ps(ar, xv, t);
#else
    return _mm256_addsub_ps(_mm256_mul_ps(ar, xv), t);
#endif
}

inline void z_one(__m128d ar, __m128d ai, const c64* x, c64* y) {
    const __m128d xv = _mm_loadu_pd(&x->re);
    const __m128d t = _mm_mul_pd(ai, _mm_permute_pd(xv, 1));
#if ZVA_BRANCH == 7
    const __m128d r = _mm_add_pd(_mm_loadu_pd(&y->re), _mm_fmaddsub_pd(ar, xv, t));
#else
    const __m128d r = _mm_add_pd(_mm_loadu_pd(&y->re), _mm_addsub_pd(_mm_mul_pd(ar, xv), t));
#endif
    _mm_storeu_pd(&y->re, r);
}

inline __m256d z_vec(__m256d ar, __m256d ai, __m256d xv) {
    const __m256d t = _mm256_mul_pd(ai, _mm256_permute_pd(xv, 5));
#if ZVA_BRANCH == 7
    return _mm256_fmaddsub_pd(ar, xv, t);
#else
    return _mm256_addsub_pd(_mm256_mul_pd(ar, xv), t);
#endif
}

#if ZVA_BRANCH == 7
// General-path element: two chained fused steps. nai = (-ai, ai); the
// negation is exact, so lane 0 rounds s_re - ai*x_im once.
inline void z_one_strided(__m128d ar, __m128d nai, const c64* x, c64* y) {
    const __m128d xv = _mm_loadu_pd(&x->re);
    const __m128d s = _mm_fmadd_pd(ar, xv, _mm_loadu_pd(&y->re));
    _mm_storeu_pd(&y->re, _mm_fmadd_pd(nai, _mm_permute_pd(xv, 1), s));
}
#endif

}  // namespace

template <> void axpy<double>(const int* pn, const double* palpha, const double* x, const int* pincx, double* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const double alpha = *palpha;
    if (alpha == 0.0) return;  // either sign; NaN goes on
    const int incx = *pincx, incy = *pincy;
    const auto a1 = AXPY_ALPHA1_D(alpha);

    if (incx == 1 && incy == 1) {
        int i = 0;
        const int peel = n < 16 ? -1 : peel_to_32(y, 8);
        if (peel >= 0 && n >= peel + 16) {
            for (; i < peel; ++i) d_one(a1, x + i, y + i);
            const __m256d a4 = _mm256_set1_pd(alpha);
            const int m = n - ((n - peel) & 15);
            for (; i < m; i += 16) {
                __m256d v0 = AXPY_LOADX_PD(x + i);
                __m256d v1 = AXPY_LOADX_PD(x + i + 4);
                __m256d v2 = AXPY_LOADX_PD(x + i + 8);
                __m256d v3 = AXPY_LOADX_PD(x + i + 12);
                v0 = AXPY_MADD_PD(a4, v0, _mm256_load_pd(y + i));
                v1 = AXPY_MADD_PD(a4, v1, _mm256_load_pd(y + i + 4));
                v2 = AXPY_MADD_PD(a4, v2, _mm256_load_pd(y + i + 8));
                v3 = AXPY_MADD_PD(a4, v3, _mm256_load_pd(y + i + 12));
                _mm256_store_pd(y + i, v0);
                _mm256_store_pd(y + i + 4, v1);
                _mm256_store_pd(y + i + 8, v2);
                _mm256_store_pd(y + i + 12, v3);
            }
#if ZVA_BRANCH == 7
            for (; n - i >= 4; i += 4)
                _mm256_store_pd(y + i, _mm256_fmadd_pd(a4, _mm256_loadu_pd(x + i),
                                                       _mm256_load_pd(y + i)));
#endif
        }
        for (; i < n; ++i) d_one(a1, x + i, y + i);
        return;
    }

    AXPY_REAL_STRIDED(d_one);
}

template <> void axpy<float>(const int* pn, const float* palpha, const float* x, const int* pincx, float* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const float alpha = *palpha;
    if (alpha == 0.0f) return;
    const int incx = *pincx, incy = *pincy;
    const auto a1 = AXPY_ALPHA1_S(alpha);

    if (incx == 1 && incy == 1) {
        int i = 0;
        const int peel = n < 16 ? -1 : peel_to_32(y, 4);
        if (peel >= 0 && n >= peel + 16) {
            for (; i < peel; ++i) s_one(a1, x + i, y + i);
            const __m256 a8 = _mm256_set1_ps(alpha);
            const int m = n - ((n - peel) & 15);
            for (; i < m; i += 16) {
                __m256 v0 = AXPY_LOADX_PS(x + i);
                __m256 v1 = AXPY_LOADX_PS(x + i + 8);
                v0 = AXPY_MADD_PS(a8, v0, _mm256_load_ps(y + i));
                v1 = AXPY_MADD_PS(a8, v1, _mm256_load_ps(y + i + 8));
                _mm256_store_ps(y + i, v0);
                _mm256_store_ps(y + i + 8, v1);
            }
#if ZVA_BRANCH == 7
            for (; n - i >= 8; i += 8)  // runs at most once
                _mm256_store_ps(y + i, _mm256_fmadd_ps(a8, _mm256_loadu_ps(x + i),
                                                       _mm256_load_ps(y + i)));
#endif
        }
        for (; i < n; ++i) s_one(a1, x + i, y + i);
        return;
    }

    AXPY_REAL_STRIDED(s_one);
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
                __m256 v0 = AXPY_LOADX_PS(xp);
                __m256 v1 = AXPY_LOADX_PS(xp + 8);
                v0 = _mm256_add_ps(_mm256_load_ps(yp), c_vec(ar8, ai8, v0));
                v1 = _mm256_add_ps(_mm256_load_ps(yp + 8), c_vec(ar8, ai8, v1));
                _mm256_store_ps(yp, v0);
                _mm256_store_ps(yp + 8, v1);
            }
#if ZVA_BRANCH == 7
            for (; n - i >= 4; i += 4) {  // runs at most once
                float* yp = &y[i].re;
                _mm256_store_ps(yp, _mm256_add_ps(_mm256_load_ps(yp),
                                                  c_vec(ar8, ai8, _mm256_loadu_ps(&x[i].re))));
            }
#endif
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
    const __m128d ar2 = _mm_set1_pd(ar);
#if ZVA_BRANCH == 6
    const __m128d ai2 = _mm_set1_pd(ai);  // the general path needs it too
#endif

    if (incx == 1 && incy == 1) {
#if ZVA_BRANCH == 7
        const __m128d ai2 = _mm_set1_pd(ai);
#endif
        int i = 0;
        const int peel = n < 8 ? -1 : peel_to_32(y, 16);
        if (peel >= 0 && n >= peel + 8) {
            for (; i < peel; ++i) z_one(ar2, ai2, x + i, y + i);
            const __m256d ar4 = _mm256_set1_pd(ar), ai4 = _mm256_set1_pd(ai);
            const int m = n - ((n - peel) & 7);
            for (; i < m; i += 8) {
                const double* xp = &x[i].re;
                double* yp = &y[i].re;
#if ZVA_BRANCH == 7
                // Four x vectors and alpha in two leave one register for t.
                __m256d v0 = _mm256_loadu_pd(xp);
                __m256d v1 = _mm256_loadu_pd(xp + 4);
                __m256d v2 = _mm256_loadu_pd(xp + 8);
                __m256d v3 = _mm256_loadu_pd(xp + 12);
                v0 = _mm256_add_pd(_mm256_load_pd(yp), z_vec(ar4, ai4, v0));
                v1 = _mm256_add_pd(_mm256_load_pd(yp + 4), z_vec(ar4, ai4, v1));
                v2 = _mm256_add_pd(_mm256_load_pd(yp + 8), z_vec(ar4, ai4, v2));
                v3 = _mm256_add_pd(_mm256_load_pd(yp + 12), z_vec(ar4, ai4, v3));
                _mm256_store_pd(yp, v0);
                _mm256_store_pd(yp + 4, v1);
                _mm256_store_pd(yp + 8, v2);
                _mm256_store_pd(yp + 12, v3);
#else
                // One vector at a time: x and t per vector plus alpha in
                // four registers, so the singles' alpha stays live without
                // a spill.
                _mm256_store_pd(yp, _mm256_add_pd(_mm256_load_pd(yp),
                                                  z_vec(ar4, ai4, AXPY_LOADX_PD(xp))));
                _mm256_store_pd(yp + 4, _mm256_add_pd(_mm256_load_pd(yp + 4),
                                                      z_vec(ar4, ai4, AXPY_LOADX_PD(xp + 4))));
                _mm256_store_pd(yp + 8, _mm256_add_pd(_mm256_load_pd(yp + 8),
                                                      z_vec(ar4, ai4, AXPY_LOADX_PD(xp + 8))));
                _mm256_store_pd(yp + 12, _mm256_add_pd(_mm256_load_pd(yp + 12),
                                                       z_vec(ar4, ai4, AXPY_LOADX_PD(xp + 12))));
#endif
            }
#if ZVA_BRANCH == 7
            for (; n - i >= 2; i += 2) {
                double* yp = &y[i].re;
                _mm256_store_pd(yp, _mm256_add_pd(_mm256_load_pd(yp),
                                                  z_vec(ar4, ai4, _mm256_loadu_pd(&x[i].re))));
            }
#endif
        }
        for (; i < n; ++i) z_one(ar2, ai2, x + i, y + i);
        return;
    }

#if ZVA_BRANCH == 7
    const __m128d nai = _mm_set_pd(ai, -ai);
#endif
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k) {
#if ZVA_BRANCH == 7
        z_one_strided(ar2, nai, x, y);
#else
        z_one(ar2, ai2, x, y);
#endif
        x += incx;
        y += incy;
    }
}

}  // namespace zva::ZVA_NS

#undef AXPY_LOADX_PD
#undef AXPY_LOADX_PS
#undef AXPY_MADD_PD
#undef AXPY_MADD_PS
#undef AXPY_ALPHA1_D
#undef AXPY_ALPHA1_S
#undef AXPY_REAL_STRIDED
