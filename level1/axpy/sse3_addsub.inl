// SAXPY, CAXPY and ZAXPY of branch 3 (SSE3), after DAXPY in sse2.inl.
// SSE3 gives movddup for the broadcasts, addsubps/addsubpd for the complex
// product and lddqu for unaligned loads.
namespace zva::ZVA_NS {

// ---- SAXPY -------------------------------------------------------------

namespace {

// A complex single as one 64-bit unit; c32 arrays may be only 4-aligned.
typedef double c32_bits __attribute__((may_alias, aligned(4)));

// lddqu: on the Prescott-class cores of this branch it avoids the
// cache-line split penalty of movups; elsewhere it is a plain unaligned load.
inline __m128 load_split(const float* p) {
    return _mm_castsi128_ps(_mm_lddqu_si128((const __m128i*)p));
}

void s_singles(int n, float a, const float* x, float* y) {
    for (int i = 0; i < n; ++i) y[i] = y[i] + x[i] * a;
}

}  // namespace

template <> void axpy<float>(const int* n_, const float* alpha, const float* x,
           const int* incx_, float* y, const int* incy_) {
    int n = *n_;
    if (n <= 0) return;
    const float a = *alpha;
    if (zero_bits(a)) return;
    const int incx = *incx_, incy = *incy_;

    if (incx == 1 && incy == 1) {
        // A y that is not 4-aligned can never be 16-aligned: singles only.
        if (((uintptr_t)y & 3) == 0) {
            int peel = (int)((-(uintptr_t)y & 15) >> 2);
            if (peel > n) peel = n;
            s_singles(peel, a, x, y);
            x += peel;
            y += peel;
            n -= peel;
            const __m128 va = _mm_set1_ps(a);
            if (((uintptr_t)x & 15) == 0) {
                for (; n >= 8; n -= 8, x += 8, y += 8) {
                    __m128 x0 = _mm_load_ps(x), x1 = _mm_load_ps(x + 4);
                    x0 = _mm_add_ps(_mm_load_ps(y), _mm_mul_ps(x0, va));
                    x1 = _mm_add_ps(_mm_load_ps(y + 4), _mm_mul_ps(x1, va));
                    _mm_store_ps(y, x0);
                    _mm_store_ps(y + 4, x1);
                }
            } else {
                for (; n >= 8; n -= 8, x += 8, y += 8) {
                    __m128 x0 = load_split(x), x1 = load_split(x + 4);
                    x0 = _mm_add_ps(_mm_load_ps(y), _mm_mul_ps(x0, va));
                    x1 = _mm_add_ps(_mm_load_ps(y + 4), _mm_mul_ps(x1, va));
                    _mm_store_ps(y, x0);
                    _mm_store_ps(y + 4, x1);
                }
            }
        }
        s_singles(n, a, x, y);
        return;
    }

    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (; n >= 2; n -= 2) {
        y[0] = y[0] + x[0] * a;
        x += incx;
        y += incy;
        y[0] = y[0] + x[0] * a;
        x += incx;
        y += incy;
    }
    if (n) y[0] = y[0] + x[0] * a;
}

// ---- CAXPY -------------------------------------------------------------
//
// Every element, vector or single, takes the same steps:
//   re = y_re + (ar*x_re - ai*x_im),  im = y_im + (ar*x_im + ai*x_re)
// with each product rounded, so a result does not depend on its path.

namespace {

inline __m128 c_step(__m128 xv, __m128 yv, __m128 var, __m128 vai) {
    const __m128 t1 = _mm_mul_ps(xv, var);
    const __m128 t2 = _mm_mul_ps(_mm_shuffle_ps(xv, xv, 0xb1), vai);
    return _mm_add_ps(yv, _mm_addsub_ps(t1, t2));
}

// One element through movddup, so the upper lanes repeat it and raise no
// flag of their own.
inline void c_single(const c32* x, c32* y, __m128 var, __m128 vai) {
    const __m128 xv = _mm_castpd_ps(_mm_set1_pd(*(const c32_bits*)x));
    const __m128 yv = _mm_castpd_ps(_mm_set1_pd(*(const c32_bits*)y));
    *(c32_bits*)y = _mm_cvtsd_f64(_mm_castps_pd(c_step(xv, yv, var, vai)));
}

// y 16-aligned; x read by aligned or split loads.  16 a pass, 2, one.
template <bool XALIGNED>
inline __m128 c_load_x(const float* p) {
    return XALIGNED ? _mm_load_ps(p) : load_split(p);
}

template <bool XALIGNED>
void c_unit(int n, const c32* x, c32* y, __m128 var, __m128 vai) {
    const float* xs = &x->re;
    float* ys = &y->re;
    for (; n >= 16; n -= 16, xs += 32, ys += 32) {
#pragma GCC unroll 4
        for (int k = 0; k < 32; k += 8) {
            __m128 r0 = c_step(c_load_x<XALIGNED>(xs + k),
                               _mm_load_ps(ys + k), var, vai);
            __m128 r1 = c_step(c_load_x<XALIGNED>(xs + k + 4),
                               _mm_load_ps(ys + k + 4), var, vai);
            _mm_store_ps(ys + k, r0);
            _mm_store_ps(ys + k + 4, r1);
        }
    }
    for (; n >= 2; n -= 2, xs += 4, ys += 4)
        _mm_store_ps(ys, c_step(c_load_x<XALIGNED>(xs), _mm_load_ps(ys),
                                var, vai));
    if (n) c_single((const c32*)xs, (c32*)ys, var, vai);
}

}  // namespace

template <> void axpy<c32>(const int* n_, const c32* alpha, const c32* x, const int* incx_,
           c32* y, const int* incy_) {
    int n = *n_;
    if (n <= 0) return;
    if (zero_bits(alpha->re) && zero_bits(alpha->im)) return;
    const int incx = *incx_, incy = *incy_;
    const __m128 var = _mm_set1_ps(alpha->re);
    const __m128 vai = _mm_set1_ps(alpha->im);

    if (incx == 1 && incy == 1 && ((uintptr_t)y & 7) == 0) {
        if ((uintptr_t)y & 8) {
            c_single(x, y, var, vai);
            ++x;
            ++y;
            --n;
        }
        if (((uintptr_t)x & 15) == 0)
            c_unit<true>(n, x, y, var, vai);
        else
            c_unit<false>(n, x, y, var, vai);
        return;
    }

    // Strided, or a y that no element peel can bring to 16 bytes.
    if (incx == 1 && incy == 1) {
        for (int i = 0; i < n; ++i) c_single(x + i, y + i, var, vai);
        return;
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (; n > 0; --n, x += incx, y += incy) c_single(x, y, var, vai);
}

// ---- ZAXPY -------------------------------------------------------------
//
// x_re and x_im are broadcast by movddup straight from memory, which needs
// no alignment of x and no shuffle:
//   t1 = x_re * (ar, ai), t2 = x_im * (ai, ar), y + addsub(t1, t2)
//   re = y_re + (ar*x_re - ai*x_im),  im = y_im + (ai*x_re + ar*x_im)
// The same steps serve every path.

namespace {

inline __m128d z_prod(const c64* x, __m128d va, __m128d vas) {
    const __m128d t1 = _mm_mul_pd(_mm_loaddup_pd(&x->re), va);
    const __m128d t2 = _mm_mul_pd(_mm_loaddup_pd(&x->im), vas);
    return _mm_addsub_pd(t1, t2);
}

}  // namespace

template <> void axpy<c64>(const int* n_, const c64* alpha, const c64* x, const int* incx_,
           c64* y, const int* incy_) {
    int n = *n_;
    if (n <= 0) return;
    if (zero_bits(alpha->re) && zero_bits(alpha->im)) return;
    const int incx = *incx_, incy = *incy_;
    const __m128d va = _mm_loadu_pd(&alpha->re);
    const __m128d vas = _mm_shuffle_pd(va, va, 1);

    if (incx == 1 && incy == 1) {
        // An element fills a vector: only y's alignment picks the variant.
        if (((uintptr_t)y & 15) == 0) {
            for (; n >= 8; n -= 8, x += 8, y += 8) {
#pragma GCC unroll 4
                for (int k = 0; k < 8; k += 2) {
                    __m128d r0 = _mm_add_pd(_mm_load_pd(&y[k].re),
                                            z_prod(x + k, va, vas));
                    __m128d r1 = _mm_add_pd(_mm_load_pd(&y[k + 1].re),
                                            z_prod(x + k + 1, va, vas));
                    _mm_store_pd(&y[k].re, r0);
                    _mm_store_pd(&y[k + 1].re, r1);
                }
            }
            for (; n > 0; --n, ++x, ++y)
                _mm_store_pd(&y->re, _mm_add_pd(_mm_load_pd(&y->re),
                                                z_prod(x, va, vas)));
        } else {
            for (; n >= 8; n -= 8, x += 8, y += 8) {
#pragma GCC unroll 4
                for (int k = 0; k < 8; k += 2) {
                    __m128d r0 = _mm_add_pd(_mm_loadu_pd(&y[k].re),
                                            z_prod(x + k, va, vas));
                    __m128d r1 = _mm_add_pd(_mm_loadu_pd(&y[k + 1].re),
                                            z_prod(x + k + 1, va, vas));
                    _mm_storeu_pd(&y[k].re, r0);
                    _mm_storeu_pd(&y[k + 1].re, r1);
                }
            }
            for (; n > 0; --n, ++x, ++y)
                _mm_storeu_pd(&y->re, _mm_add_pd(_mm_loadu_pd(&y->re),
                                                 z_prod(x, va, vas)));
        }
        return;
    }

    x += vec_start(n, incx);
    y += vec_start(n, incy);
    // Each element is stored before the next is read: incy = 0 sums in order.
    for (; n >= 4; n -= 4) {
#pragma GCC unroll 4
        for (int k = 0; k < 4; ++k, x += incx, y += incy)
            _mm_storeu_pd(&y->re, _mm_add_pd(_mm_loadu_pd(&y->re),
                                             z_prod(x, va, vas)));
    }
    for (; n > 0; --n, x += incx, y += incy)
        _mm_storeu_pd(&y->re,
                      _mm_add_pd(_mm_loadu_pd(&y->re), z_prod(x, va, vas)));
}

}  // namespace zva::ZVA_NS
