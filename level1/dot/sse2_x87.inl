// SDOT and the complex dots of branch 2: SSE2 vectors, scalar work on the
// x87 unit at its register width (the caller's control word), rounded once
// when the sum is stored.
namespace zva::ZVA_NS {
namespace {

// Five sums, five elements a pass, added in turn; then singles.
float s_x87(int n, const float* x, int incx, const float* y, int incy) {
    long double a0 = 0, a1 = 0, a2 = 0, a3 = 0, a4 = 0;
    for (; n >= 5; n -= 5, x += 5 * incx, y += 5 * incy) {
        a0 += (long double)x[0] * y[0];
        a1 += (long double)x[incx] * y[incy];
        a2 += (long double)x[2 * incx] * y[2 * incy];
        a3 += (long double)x[3 * incx] * y[3 * incy];
        a4 += (long double)x[4 * incx] * y[4 * incy];
    }
    long double s = (((a0 + a1) + a2) + a3) + a4;
    for (; n > 0; --n, x += incx, y += incy) s += (long double)*x * *y;
    return (float)s;
}

// Two floats of x by 64-bit halves, for an x out of y's 16-byte phase.
inline __m128 s_halves(const float* p) {
    const __m128 lo = _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(p));
    return _mm_loadh_pi(lo, reinterpret_cast<const __m64*>(p + 2));
}

// CDOT vectors: straight products x*y and crossed x*swap(y).
template <bool A> inline void c_acc(const c32* x, const c32* y, __m128& p, __m128& q) {
    const __m128 xv = A ? _mm_load_ps(&x->re) : _mm_loadu_ps(&x->re);
    const __m128 yv = A ? _mm_load_ps(&y->re) : _mm_loadu_ps(&y->re);
    p = _mm_add_ps(p, _mm_mul_ps(xv, yv));
    q = _mm_add_ps(q, _mm_mul_ps(xv, _mm_shuffle_ps(yv, yv, 0xB1)));
}
template <bool A> int c_vectors(int n, const c32*& x, const c32*& y, __m128& p, __m128& q) {
    for (; n >= 16; n -= 16, x += 16, y += 16)
        for (int k = 0; k < 16; k += 2) c_acc<A>(x + k, y + k, p, q);
    for (; n >= 2; n -= 2, x += 2, y += 2) c_acc<A>(x, y, p, q);
    return n;
}

template <bool Conj> c32* c_dot(c32* res, int n, const c32* x, int incx, const c32* y, int incy) {
    long double re = 0, im = 0;
    if (incx == incy && (incx == 1 || incx == -1)) {
        // Forward from the given pointers, as for incx = incy = 1.
        __m128 p = _mm_setzero_ps(), q = _mm_setzero_ps();
        if (!(addr_bits(x) & 15) && !(addr_bits(y) & 15)) n = c_vectors<true>(n, x, y, p, q);
        else n = c_vectors<false>(n, x, y, p, q);
        p = _mm_add_ps(p, _mm_movehl_ps(p, p));  // sum xr*yr, sum xi*yi
        q = _mm_add_ps(q, _mm_movehl_ps(q, q));  // sum xr*yi, sum xi*yr
        float pv[4], qv[4];
        _mm_storeu_ps(pv, p);
        _mm_storeu_ps(qv, q);
        re = Conj ? pv[0] + pv[1] : pv[0] - pv[1];
        im = Conj ? qv[0] - qv[1] : qv[0] + qv[1];
        incx = incy = 1;
    } else {
        x += vec_start(n, incx);
        y += vec_start(n, incy);
        for (; n >= 4; n -= 4, x += 4 * incx, y += 4 * incy)
            for (int k = 0; k < 4; ++k)
                x87_cstep<Conj>(re, im, x[k * incx].re, x[k * incx].im, y[k * incy].re, y[k * incy].im);
    }
    for (; n > 0; --n, x += incx, y += incy) x87_cstep<Conj>(re, im, x->re, x->im, y->re, y->im);
    res->re = (float)re;
    res->im = (float)im;
    return res;
}

// ZDOTU: even elements in a0, odd in a1, added at the end, then the last
// one. ZDOTC: the same two sums over passes of 8 on unit stride, then the
// x87 unit for the tail, or for everything on other strides.
template <bool Conj> c64* z_dot(c64* res, int n, const c64* x, int incx, const c64* y, int incy) {
    const bool unit = incx == 1 && incy == 1;
    if (!unit) {
        x += vec_start(n, incx);
        y += vec_start(n, incy);
    }
    auto e = [&](const c64* xp, const c64* yp) {
        return z_mul<Conj>(_mm_loadu_pd(&xp->re), _mm_loadu_pd(&yp->re));
    };
    long double re = 0, im = 0;
    if (!Conj || unit) {
        const int pass = Conj ? 8 : 2;
        __m128d a0 = _mm_setzero_pd(), a1 = _mm_setzero_pd();
        for (; n >= pass; n -= pass)
            for (int k = 0; k < pass; k += 2, x += 2 * incx, y += 2 * incy) {
                a0 = _mm_add_pd(a0, e(x, y));
                a1 = _mm_add_pd(a1, e(x + incx, y + incy));
            }
        __m128d s = _mm_add_pd(a0, a1);
        if constexpr (!Conj) {
            if (n > 0) s = _mm_add_pd(s, e(x, y));
            _mm_storeu_pd(&res->re, s);
            return res;
        }
        double sv[2];
        _mm_storeu_pd(sv, s);
        re = sv[0];
        im = sv[1];
    }
    for (; n > 0; --n, x += incx, y += incy) x87_cstep<Conj>(re, im, x->re, x->im, y->re, y->im);
    res->re = (double)re;
    res->im = (double)im;
    return res;
}

}  // namespace

template <> float dot<float>(const int* pn, const float* x, const int* pincx, const float* y,
                             const int* pincy) {
    int n = *pn;
    if (n <= 0) return 0.0f;
    const int incx = *pincx, incy = *pincy;
    const unsigned px = addr_bits(x) & 15, py = addr_bits(y) & 15;
    if (incx == incy && (incx == 1 || incx == -1) && !(px & 3) && !(py & 3)) {
        // Forward from the given pointers. Peeled products fill lanes 0, 1,
        // 2 of the first accumulator, in order.
        float lead[4] = {0.0f, 0.0f, 0.0f, 0.0f};
        int p = (int)((16 - py) & 15) / 4;
        if (p > n) p = n;
        for (int k = 0; k < p; ++k) lead[k] = x[k] * y[k];
        __m128 a0 = _mm_add_ps(_mm_setzero_ps(), _mm_loadu_ps(lead)), a1 = _mm_setzero_ps();
        x += p, y += p, n -= p;
        if (px == py) {
            for (; n >= 16; n -= 16, x += 16, y += 16) {
                a0 = s_step(a0, _mm_load_ps(x), _mm_load_ps(y));
                a1 = s_step(a1, _mm_load_ps(x + 4), _mm_load_ps(y + 4));
                a0 = s_step(a0, _mm_load_ps(x + 8), _mm_load_ps(y + 8));
                a1 = s_step(a1, _mm_load_ps(x + 12), _mm_load_ps(y + 12));
            }
        } else {
            for (; n >= 32; n -= 32, x += 32, y += 32)
                for (int k = 0; k < 32; k += 8) {
                    a0 = s_step(a0, s_halves(x + k), _mm_load_ps(y + k));
                    a1 = s_step(a1, s_halves(x + k + 4), _mm_load_ps(y + k + 4));
                }
        }
        float s = s_fold(_mm_add_ps(a0, a1));
        for (; n > 0; --n, ++x, ++y) s += *x * *y;
        return s;
    }
    return s_x87(n, x + vec_start(n, incx), incx, y + vec_start(n, incy), incy);
}

}  // namespace zva::ZVA_NS
