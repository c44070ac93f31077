// DOT of branches 4 (SSSE3) and 5 (SSE4.1): 128-bit vectors, no fused step.
//
// Register budget: eight xmm registers; four accumulators, x, y and one
// product term (the complex products of CDOT: four accumulators, x and two
// products).
//
// Real types: unit stride needs x and y aligned to their element. y is
// peeled to 16 bytes into a scalar sum s; the tail after the vector passes
// goes singly into s too, and s takes the reduced vector sum last. Whether x
// then shares y's 16-byte phase picks the pass:
//   D  in phase: 32 a pass, pair k of the pass into accumulator k mod 4,
//      then pairs into the first. Out of phase: 32 a pass, then 4 a pass
//      into the first two.
//   S  in phase: 64 a pass, vector k into accumulator k mod 4, then single
//      vectors into the first. Out of phase: 64, then 8 into the first two.
// The x of another phase is read by unaligned loads; the sums do not depend
// on how it is read. General path: D gathers 8 a pass (nonzero increments,
// n >= 8) and sums the rest in s, which again takes the vector sum last;
// S sums every element in order in one scalar.
//
// CDOT keeps the straight products x*y and the crossed ones x*swap(y) in two
// pairs of accumulators (vector k into pair member k mod 2), 32 a pass, then
// one vector at a time and singles into the first ones; at the end each
// pair is summed, folded, and the real and imaginary parts are formed from
// the four sums. Its general path is scalar: each element's product, then
// the add. ZDOT: four accumulators of one complex, 16 a pass (element k into
// k mod 4) on unit stride; then on every path 2 a pass into the first two
// and a last single into the first. Four loops by the phases of x and y
// serve each unit path; they differ in their loads only. The two branches
// share these texts whole.
namespace zva::ZVA_NS {
namespace {

template <bool A> inline __m128d d_ld(const double* p) {
    if constexpr (A) return _mm_load_pd(p);
    else return _mm_loadu_pd(p);
}
template <bool A> inline __m128 s_ld(const float* p) {
    if constexpr (A) return _mm_load_ps(p);
    else return _mm_loadu_ps(p);
}

inline double d_reduce(const __m128d* a) {
    const __m128d b = _mm_add_pd(_mm_add_pd(a[0], a[1]), _mm_add_pd(a[2], a[3]));
    return _mm_cvtsd_f64(_mm_add_sd(b, _mm_unpackhi_pd(b, b)));
}
inline float s_reduce(const __m128* a) {
    __m128 b = _mm_add_ps(_mm_add_ps(a[0], a[1]), _mm_add_ps(a[2], a[3]));
    b = _mm_add_ps(b, _mm_movehl_ps(b, b));
    return _mm_cvtss_f32(_mm_add_ss(b, _mm_movehdup_ps(b)));
}

// D unit stride from element i (y 16-aligned): In says whether x is too.
template <bool In> void d_unit(const double* x, const double* y, int n, int& i, __m128d* a) {
    for (; n - i >= 32; i += 32) {
#pragma GCC unroll 16
        for (int k = 0; k < 16; ++k)
            a[k & 3] = _mm_add_pd(a[k & 3], _mm_mul_pd(d_ld<In>(x + i + 2 * k), _mm_load_pd(y + i + 2 * k)));
    }
    if constexpr (In) {
        for (; n - i >= 2; i += 2) a[0] = _mm_add_pd(a[0], _mm_mul_pd(_mm_load_pd(x + i), _mm_load_pd(y + i)));
    } else {
        for (; n - i >= 4; i += 4) {
            a[0] = _mm_add_pd(a[0], _mm_mul_pd(_mm_loadu_pd(x + i), _mm_load_pd(y + i)));
            a[1] = _mm_add_pd(a[1], _mm_mul_pd(_mm_loadu_pd(x + i + 2), _mm_load_pd(y + i + 2)));
        }
    }
}

template <bool In> void s_unit(const float* x, const float* y, int n, int& i, __m128* a) {
    for (; n - i >= 64; i += 64) {
#pragma GCC unroll 16
        for (int k = 0; k < 16; ++k)
            a[k & 3] = _mm_add_ps(a[k & 3], _mm_mul_ps(s_ld<In>(x + i + 4 * k), _mm_load_ps(y + i + 4 * k)));
    }
    if constexpr (In) {
        for (; n - i >= 4; i += 4) a[0] = _mm_add_ps(a[0], _mm_mul_ps(_mm_load_ps(x + i), _mm_load_ps(y + i)));
    } else {
        for (; n - i >= 8; i += 8) {
            a[0] = _mm_add_ps(a[0], _mm_mul_ps(_mm_loadu_ps(x + i), _mm_load_ps(y + i)));
            a[1] = _mm_add_ps(a[1], _mm_mul_ps(_mm_loadu_ps(x + i + 4), _mm_load_ps(y + i + 4)));
        }
    }
}

// ---- CDOT: straight and crossed products --------------------------------------

// p += x*y, q += x*swap(y) for one vector (two complex, or one in the low
// half with the upper half zero).
inline void c_acc(__m128 xv, __m128 yv, __m128& p, __m128& q) {
    p = _mm_add_ps(p, _mm_mul_ps(xv, yv));
    q = _mm_add_ps(q, _mm_mul_ps(xv, _mm_shuffle_ps(yv, yv, 0xB1)));
}

template <bool XA, bool YA> void c_unit(const c32* x, const c32* y, int n, int& i, __m128* p, __m128* q) {
    for (; n - i >= 32; i += 32) {
#pragma GCC unroll 16
        for (int k = 0; k < 16; ++k)
            c_acc(s_ld<XA>(&x[i + 2 * k].re), s_ld<YA>(&y[i + 2 * k].re), p[k & 1], q[k & 1]);
    }
    for (; n - i >= 2; i += 2) c_acc(s_ld<XA>(&x[i].re), s_ld<YA>(&y[i].re), p[0], q[0]);
}

inline __m128 c_load1(const c32* p) {
    return _mm_castpd_ps(_mm_load_sd(reinterpret_cast<const double*>(p)));
}

template <bool Conj> c32* c_dot(c32* res, int n, const c32* x, int incx, const c32* y, int incy) {
    if (incx == 1 && incy == 1) {
        __m128 p[2] = {_mm_setzero_ps(), _mm_setzero_ps()}, q[2] = {_mm_setzero_ps(), _mm_setzero_ps()};
        int i = 0;
        const bool xa = !(addr_bits(x) & 15), ya = !(addr_bits(y) & 15);
        if (xa && ya) c_unit<true, true>(x, y, n, i, p, q);
        else if (xa) c_unit<true, false>(x, y, n, i, p, q);
        else if (ya) c_unit<false, true>(x, y, n, i, p, q);
        else c_unit<false, false>(x, y, n, i, p, q);
        for (; i < n; ++i) c_acc(c_load1(x + i), c_load1(y + i), p[0], q[0]);
        __m128 ps = _mm_add_ps(p[0], p[1]), qs = _mm_add_ps(q[0], q[1]);
        ps = _mm_add_ps(ps, _mm_movehl_ps(ps, ps));  // sum xr*yr, sum xi*yi
        qs = _mm_add_ps(qs, _mm_movehl_ps(qs, qs));  // sum xr*yi, sum xi*yr
        float pv[4], qv[4];
        _mm_storeu_ps(pv, ps);
        _mm_storeu_ps(qv, qs);
        res->re = Conj ? pv[0] + pv[1] : pv[0] - pv[1];
        res->im = Conj ? qv[0] - qv[1] : qv[0] + qv[1];
        return res;
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    float re = 0.0f, im = 0.0f;
    for (int i = 0; i < n; ++i, x += incx, y += incy) {
        if constexpr (Conj) {
            re = re + (x->re * y->re + x->im * y->im);
            im = im + (x->re * y->im - x->im * y->re);
        } else {
            re = re + (x->re * y->re - x->im * y->im);
            im = im + (x->re * y->im + x->im * y->re);
        }
    }
    res->re = re;
    res->im = im;
    return res;
}

// ---- ZDOT: four accumulators of one complex ----------------------------------

template <bool Conj> inline __m128d z_mul(__m128d xv, __m128d yv) {
    if constexpr (Conj) xv = _mm_xor_pd(xv, _mm_setr_pd(0.0, -0.0));
    const __m128d t = _mm_mul_pd(_mm_unpackhi_pd(xv, xv), _mm_shuffle_pd(yv, yv, 1));
    return _mm_addsub_pd(_mm_mul_pd(_mm_movedup_pd(xv), yv), t);
}

template <bool Conj, bool XA, bool YA> void z_unit(const c64* x, const c64* y, int n, int& i, __m128d* a) {
    for (; n - i >= 16; i += 16) {
#pragma GCC unroll 16
        for (int k = 0; k < 16; ++k)
            a[k & 3] = _mm_add_pd(a[k & 3], z_mul<Conj>(d_ld<XA>(&x[i + k].re), d_ld<YA>(&y[i + k].re)));
    }
}

template <bool Conj> c64* z_dot(c64* res, int n, const c64* x, int incx, const c64* y, int incy) {
    __m128d a[4] = {_mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd()};
    int i = 0;
    if (incx == 1 && incy == 1) {
        const bool xa = !(addr_bits(x) & 15), ya = !(addr_bits(y) & 15);
        if (xa && ya) z_unit<Conj, true, true>(x, y, n, i, a);
        else if (xa) z_unit<Conj, true, false>(x, y, n, i, a);
        else if (ya) z_unit<Conj, false, true>(x, y, n, i, a);
        else z_unit<Conj, false, false>(x, y, n, i, a);
    } else {
        x += vec_start(n, incx);
        y += vec_start(n, incy);
    }
    auto e = [&](int k) { return z_mul<Conj>(_mm_loadu_pd(&x[k * incx].re), _mm_loadu_pd(&y[k * incy].re)); };
    for (; n - i >= 2; i += 2) {
        a[0] = _mm_add_pd(a[0], e(i));
        a[1] = _mm_add_pd(a[1], e(i + 1));
    }
    if (i < n) a[0] = _mm_add_pd(a[0], e(i));
    _mm_storeu_pd(&res->re, _mm_add_pd(_mm_add_pd(a[0], a[1]), _mm_add_pd(a[2], a[3])));
    return res;
}

}  // namespace

template <> double dot<double>(const int* pn, const double* x, const int* pincx, const double* y,
                               const int* pincy) {
    const int n = *pn;
    if (n <= 0) return 0.0;
    int incx = *pincx, incy = *pincy;
    __m128d a[4] = {_mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd(), _mm_setzero_pd()};
    double s = 0.0;
    int i = 0;
    if (incx == 1 && incy == 1 && !(addr_bits(x) & 7) && !(addr_bits(y) & 7)) {
        if (addr_bits(y) & 15) s += x[i] * y[i], ++i;
        if (addr_bits(x + i) & 15) d_unit<false>(x, y, n, i, a);
        else d_unit<true>(x, y, n, i, a);
    } else {
        x += vec_start(n, incx);
        y += vec_start(n, incy);
        if (incx != 0 && incy != 0)
            for (; n - i >= 8; i += 8)
                for (int k = 0; k < 4; ++k) {
                    const double* xp = x + (i + 2 * k) * incx;
                    const double* yp = y + (i + 2 * k) * incy;
                    a[k] = _mm_add_pd(a[k], _mm_mul_pd(_mm_setr_pd(xp[0], xp[incx]), _mm_setr_pd(yp[0], yp[incy])));
                }
    }
    for (; i < n; ++i) s += x[i * incx] * y[i * incy];
    return s + d_reduce(a);
}

template <> float dot<float>(const int* pn, const float* x, const int* pincx, const float* y,
                             const int* pincy) {
    const int n = *pn;
    if (n <= 0) return 0.0f;
    const int incx = *pincx, incy = *pincy;
    float s = 0.0f;
    int i = 0;
    if (incx == 1 && incy == 1 && !(addr_bits(x) & 3) && !(addr_bits(y) & 3)) {
        __m128 a[4] = {_mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps(), _mm_setzero_ps()};
        const int peel = static_cast<int>((16u - (addr_bits(y) & 15u)) & 15u) / 4;
        for (; i < peel && i < n; ++i) s += x[i] * y[i];
        if (addr_bits(x + i) & 15) s_unit<false>(x, y, n, i, a);
        else s_unit<true>(x, y, n, i, a);
        for (; i < n; ++i) s += x[i] * y[i];
        return s + s_reduce(a);
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (; i < n; ++i) s += x[i * incx] * y[i * incy];
    return s;
}

template <> c32* dotc<c32>(c32* res, const int* n, const c32* x, const int* incx, const c32* y,
                           const int* incy) {
    return c_dot<true>(res, *n, x, *incx, y, *incy);
}
template <> c32* dotu<c32>(c32* res, const int* n, const c32* x, const int* incx, const c32* y,
                           const int* incy) {
    return c_dot<false>(res, *n, x, *incx, y, *incy);
}
template <> c64* dotc<c64>(c64* res, const int* n, const c64* x, const int* incx, const c64* y,
                           const int* incy) {
    return z_dot<true>(res, *n, x, *incx, y, *incy);
}
template <> c64* dotu<c64>(c64* res, const int* n, const c64* x, const int* incx, const c64* y,
                           const int* incy) {
    return z_dot<false>(res, *n, x, *incx, y, *incy);
}

}  // namespace zva::ZVA_NS
