// SAXPY, CAXPY and ZAXPY of branch 2 (SSE2), after DAXPY in sse2.inl.
// The scalar parts of SAXPY and CAXPY run on the x87 unit; their sums keep
// the x87 register width until the store rounds them to float.
namespace zva::ZVA_NS {

// ---- SAXPY -------------------------------------------------------------

namespace {

// x87 scalar code, five a pass, then singles.  alpha*x is formed and added
// to y at the x87 precision in force (the control word is left as the
// caller set it); the sum keeps that width until the store rounds it to
// float.
__attribute__((target("fpmath=387"), noinline)) void s_x87(
    int n, const float* alpha, const float* x, int incx, float* y, int incy) {
    const long double a = *alpha;
    for (; n >= 5; n -= 5) {
        y[0] = (float)((long double)y[0] + a * (long double)x[0]);
        x += incx;
        y += incy;
        y[0] = (float)((long double)y[0] + a * (long double)x[0]);
        x += incx;
        y += incy;
        y[0] = (float)((long double)y[0] + a * (long double)x[0]);
        x += incx;
        y += incy;
        y[0] = (float)((long double)y[0] + a * (long double)x[0]);
        x += incx;
        y += incy;
        y[0] = (float)((long double)y[0] + a * (long double)x[0]);
        x += incx;
        y += incy;
    }
    for (; n > 0; --n, x += incx, y += incy)
        y[0] = (float)((long double)y[0] + a * (long double)x[0]);
}

// y 16-aligned: 16 a pass; x read by aligned or unaligned loads.
template <bool XALIGNED>
inline __m128 s_load_x(const float* p) {
    return XALIGNED ? _mm_load_ps(p) : _mm_loadu_ps(p);
}

template <bool XALIGNED>
void s_pass16(int passes, float a, const float* x, float* y) {
    const __m128 va = _mm_set1_ps(a);
    for (; passes > 0; --passes, x += 16, y += 16) {
        __m128 x0 = s_load_x<XALIGNED>(x), x1 = s_load_x<XALIGNED>(x + 4);
        __m128 x2 = s_load_x<XALIGNED>(x + 8), x3 = s_load_x<XALIGNED>(x + 12);
        x0 = _mm_add_ps(_mm_load_ps(y), _mm_mul_ps(x0, va));
        x1 = _mm_add_ps(_mm_load_ps(y + 4), _mm_mul_ps(x1, va));
        x2 = _mm_add_ps(_mm_load_ps(y + 8), _mm_mul_ps(x2, va));
        x3 = _mm_add_ps(_mm_load_ps(y + 12), _mm_mul_ps(x3, va));
        _mm_store_ps(y, x0);
        _mm_store_ps(y + 4, x1);
        _mm_store_ps(y + 8, x2);
        _mm_store_ps(y + 12, x3);
    }
}

}  // namespace

template <> void axpy<float>(const int* n_, const float* alpha, const float* x,
           const int* incx_, float* y, const int* incy_) {
    int n = *n_;
    if (n <= 0) return;
    const float a = *alpha;
    if (zero_bits(a)) return;
    const int incx = *incx_, incy = *incy_;

    // incx = incy = -1 pairs the same elements as +1: walk both forward.
    if (incx == incy && (incx == 1 || incx == -1)) {
        // A y that is not 4-aligned can never be 16-aligned: all on x87.
        if (((uintptr_t)y & 3) == 0) {
            int peel = (int)((-(uintptr_t)y & 15) >> 2);
            if (peel > n) peel = n;
            if (peel) {
                s_x87(peel, alpha, x, 1, y, 1);
                x += peel;
                y += peel;
                n -= peel;
            }
            if (n >= 16) {
                const int done = n & ~15;
                if (((uintptr_t)x & 15) == 0)
                    s_pass16<true>(n >> 4, a, x, y);
                else
                    s_pass16<false>(n >> 4, a, x, y);
                x += done;
                y += done;
                n -= done;
            }
        }
        if (n) s_x87(n, alpha, x, 1, y, 1);
        return;
    }

    s_x87(n, alpha, x + vec_start(n, incx), incx, y + vec_start(n, incy),
          incy);
}

// ---- CAXPY -------------------------------------------------------------

namespace {

// x87 scalar code, four a pass, then singles:
//   re = (y_re + ar*x_re) - ai*x_im,  im = (y_im + ar*x_im) + ai*x_re
// each step at the x87 precision in force, the sums kept at that width
// until the store rounds them to float.  All four inputs are read before
// either part is stored.
__attribute__((target("fpmath=387"), always_inline)) inline void c_x87_one(
    long double ar, long double ai, const c32* x, c32* y) {
    const long double xr = x->re, xi = x->im;
    const long double yr = y->re, yi = y->im;
    const float re = (float)((yr + ar * xr) - ai * xi);
    const float im = (float)((yi + ar * xi) + ai * xr);
    y->re = re;
    y->im = im;
}

__attribute__((target("fpmath=387"), noinline)) void c_x87(
    int n, const c32* alpha, const c32* x, int incx, c32* y, int incy) {
    const long double ar = alpha->re, ai = alpha->im;
    for (; n >= 4; n -= 4) {
        c_x87_one(ar, ai, x, y);
        x += incx;
        y += incy;
        c_x87_one(ar, ai, x, y);
        x += incx;
        y += incy;
        c_x87_one(ar, ai, x, y);
        x += incx;
        y += incy;
        c_x87_one(ar, ai, x, y);
        x += incx;
        y += incy;
    }
    for (; n > 0; --n, x += incx, y += incy) c_x87_one(ar, ai, x, y);
}

// Vector steps: y + ar*x first, then the swapped product with the sign
// folded into the alpha constant, (-ai, ai): two multiplies, two adds.
//   re = (y_re + ar*x_re) + (-ai)*x_im,  im = (y_im + ar*x_im) + ai*x_re
inline __m128 c_step(__m128 xv, __m128 yv, __m128 var, __m128 vai) {
    const __m128 s = _mm_add_ps(yv, _mm_mul_ps(xv, var));
    return _mm_add_ps(s, _mm_mul_ps(_mm_shuffle_ps(xv, xv, 0xb1), vai));
}

template <bool XALIGNED>
inline __m128 c_load_x(const float* p) {
    return XALIGNED ? _mm_load_ps(p) : _mm_loadu_ps(p);
}

// y 16-aligned: 16 a pass, then 2 a pass; returns the elements left (0, 1).
template <bool XALIGNED>
int c_unit(int n, const c32* x, c32* y, __m128 var, __m128 vai) {
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
    return n;
}

}  // namespace

template <> void axpy<c32>(const int* n_, const c32* alpha, const c32* x, const int* incx_,
           c32* y, const int* incy_) {
    int n = *n_;
    if (n <= 0) return;
    const float ar = alpha->re, ai = alpha->im;
    if (zero_bits(ar) && zero_bits(ai)) return;
    const int incx = *incx_, incy = *incy_;

    // incx = incy = -1 pairs the same elements as +1: walk both forward.
    if (incx == incy && (incx == 1 || incx == -1)) {
        // A y that is not 8-aligned can never be 16-aligned: all on x87.
        if (((uintptr_t)y & 7) == 0) {
            if ((uintptr_t)y & 8) {
                c_x87(1, alpha, x, 1, y, 1);
                ++x;
                ++y;
                --n;
            }
            const __m128 var = _mm_set1_ps(ar);
            const __m128 vai = _mm_xor_ps(_mm_set1_ps(ai),
                                          _mm_set_ps(0.0f, -0.0f, 0.0f, -0.0f));
            const int left = ((uintptr_t)x & 15) == 0
                                 ? c_unit<true>(n, x, y, var, vai)
                                 : c_unit<false>(n, x, y, var, vai);
            x += n - left;
            y += n - left;
            n = left;
        }
        if (n) c_x87(n, alpha, x, 1, y, 1);
        return;
    }

    c_x87(n, alpha, x + vec_start(n, incx), incx, y + vec_start(n, incy),
          incy);
}

// ---- ZAXPY -------------------------------------------------------------
//
// No alignment work: each element is read and written by a pair of 64-bit
// moves, which take any address.  Every path runs the same steps:
//   re = (y_re + ar*x_re) + (-ai)*x_im,  im = (y_im + ar*x_im) + ai*x_re
//
// Generic tuning would fuse each pair into movupd, which the SSE2-only cores
// of this branch (Pentium 4, K8) run slower than two 64-bit moves, split
// across cache lines above all; tuning zaxpy for them keeps the pairs.  The
// helpers must be always_inline to cross that tuning boundary.

namespace {

__attribute__((always_inline)) inline __m128d z_load(const c64* p) {
    return _mm_loadh_pd(_mm_load_sd(&p->re), &p->im);
}

__attribute__((always_inline)) inline void z_store(c64* p, __m128d v) {
    _mm_storel_pd(&p->re, v);
    _mm_storeh_pd(&p->im, v);
}

__attribute__((always_inline)) inline __m128d z_step(__m128d xv, __m128d yv,
                                                     __m128d var,
                                                     __m128d vai) {
    const __m128d s = _mm_add_pd(yv, _mm_mul_pd(xv, var));
    return _mm_add_pd(s, _mm_mul_pd(_mm_shuffle_pd(xv, xv, 1), vai));
}

// The loops under the old cores' tuning; the prologue stays generic so that
// the frame's helpers still inline into it.
__attribute__((target("tune=pentium4"), noinline)) void z_unit(
    int n, const c64* x, c64* y, __m128d var, __m128d vai) {
    for (; n >= 2; n -= 2, x += 2, y += 2) {
        const __m128d x0 = z_load(x), x1 = z_load(x + 1);
        const __m128d r0 = z_step(x0, z_load(y), var, vai);
        const __m128d r1 = z_step(x1, z_load(y + 1), var, vai);
        z_store(y, r0);
        z_store(y + 1, r1);
    }
    if (n) z_store(y, z_step(z_load(x), z_load(y), var, vai));
}

// Each element is stored before the next is read: incy = 0 sums in order.
__attribute__((target("tune=pentium4"), noinline)) void z_strided(
    int n, const c64* x, int incx, c64* y, int incy, __m128d var,
    __m128d vai) {
    for (; n > 0; --n, x += incx, y += incy)
        z_store(y, z_step(z_load(x), z_load(y), var, vai));
}

}  // namespace

template <> void axpy<c64>(const int* n_, const c64* alpha, const c64* x, const int* incx_,
           c64* y, const int* incy_) {
    const int n = *n_;
    if (n <= 0) return;
    const double ar = alpha->re, ai = alpha->im;
    if (zero_bits(ar) && zero_bits(ai)) return;
    const int incx = *incx_, incy = *incy_;
    const __m128d var = _mm_set1_pd(ar);
    const __m128d vai = _mm_xor_pd(_mm_set1_pd(ai), _mm_set_pd(0.0, -0.0));

    if (incx == 1 && incy == 1)
        z_unit(n, x, y, var, vai);
    else
        z_strided(n, x + vec_start(n, incx), incx, y + vec_start(n, incy),
                  incy, var, vai);
}

}  // namespace zva::ZVA_NS
