// DOT of branches 2 (SSE2) and 3 (SSE3): 128-bit vectors, no fused step,
// x87 scalar paths on branch 2.
//
// Register budget: eight xmm registers; four accumulators, x, y and one
// product term.
//
// DDOT, one text for both: the unit path opens on incx*incy = 1 (so
// incx = incy = -1 walks both vectors forward) when x and y share a 16-byte
// phase; a phase of 8 peels one product into lane 0 of the first
// accumulator. 16 a pass (pair k into accumulator k mod 4), then at most one
// block of 8 (all four), 4 (the first two), 2 (the first) and a single
// (lane 0 of the first). Everything else: one element a pass in order.
//
// SDOT and the complex kernels are each branch's own:
//   branch 3  SDOT as DDOT with four-lane vectors: a peel of up to three
//             products into lane 0, 32 a pass (vector k into k mod 4), then
//             16, 8, 4 and singles, all before the reduction. CDOT: four
//             accumulators of two complex, addsub products, 16 a pass, then
//             one vector and a single into the first. ZDOT: four of one
//             complex, 8 a pass, then singles into the first.
//   branch 2  SDOT: incx = incy = +-1 with both vectors 4-aligned; peeled
//             products fill the lanes of the first accumulator in order,
//             then 16 (same phase, aligned) or 32 (other phase, x by 64-bit
//             halves) a pass into two accumulators, the reduction, singles.
//             Otherwise the x87 unit: five sums, five a pass, added in turn.
//             CDOT: straight and crossed products in two accumulators, 16
//             a pass, then one vector; the last single and the general path
//             on the x87 unit. ZDOTC: two accumulators, 8 a pass, the tail
//             and the general path on the x87 unit; ZDOTU: even and odd
//             elements in two sums, added at the end, then the last one.
// x87 sums keep the x87 register width (the control word is the caller's)
// until they are stored.
namespace zva::ZVA_NS {
namespace {

inline double d_reduce(__m128d a0, __m128d a1, __m128d a2, __m128d a3) {
    const __m128d b = _mm_add_pd(_mm_add_pd(a0, a1), _mm_add_pd(a2, a3));
    return _mm_cvtsd_f64(_mm_add_sd(b, _mm_unpackhi_pd(b, b)));
}
inline float s_fold(__m128 b) {
    b = _mm_add_ps(b, _mm_movehl_ps(b, b));
    return _mm_cvtss_f32(_mm_add_ss(b, _mm_shuffle_ps(b, b, 1)));
}
inline __m128d d_step(__m128d a, const double* x, const double* y) {
    return _mm_add_pd(a, _mm_mul_pd(_mm_load_pd(x), _mm_load_pd(y)));
}
inline __m128 s_step(__m128 a, __m128 x, __m128 y) { return _mm_add_ps(a, _mm_mul_ps(x, y)); }
inline __m128 c_load1(const c32* p) {
    return _mm_castpd_ps(_mm_load_sd(reinterpret_cast<const double*>(p)));
}

// x and y 16-aligned, n >= 0 elements.
double d_unit(int n, const double* x, const double* y, __m128d a0) {
    __m128d a1 = _mm_setzero_pd(), a2 = _mm_setzero_pd(), a3 = _mm_setzero_pd();
    for (; n >= 16; n -= 16, x += 16, y += 16) {
        a0 = d_step(d_step(a0, x, y), x + 8, y + 8);
        a1 = d_step(d_step(a1, x + 2, y + 2), x + 10, y + 10);
        a2 = d_step(d_step(a2, x + 4, y + 4), x + 12, y + 12);
        a3 = d_step(d_step(a3, x + 6, y + 6), x + 14, y + 14);
    }
    if (n & 8) {
        a0 = d_step(a0, x, y);
        a1 = d_step(a1, x + 2, y + 2);
        a2 = d_step(a2, x + 4, y + 4);
        a3 = d_step(a3, x + 6, y + 6);
        x += 8, y += 8;
    }
    if (n & 4) {
        a0 = d_step(a0, x, y);
        a1 = d_step(a1, x + 2, y + 2);
        x += 4, y += 4;
    }
    if (n & 2) {
        a0 = d_step(a0, x, y);
        x += 2, y += 2;
    }
    if (n & 1) a0 = _mm_add_sd(a0, _mm_mul_sd(_mm_load_sd(x), _mm_load_sd(y)));
    return d_reduce(a0, a1, a2, a3);
}

template <bool Conj> inline void x87_cstep(long double& re, long double& im, long double xr,
                                           long double xi, long double yr, long double yi) {
    if constexpr (Conj) {
        re = re + (xr * yr + xi * yi);
        im = im + (xr * yi - xi * yr);
    } else {
        re = re + (xr * yr - xi * yi);
        im = im + (xr * yi + xi * yr);
    }
}

#if ZVA_BRANCH == 3
// Unaligned complex pairs by lddqu, which never splits a load on a line.
inline __m128 lddqu(const c32* p) {
    return _mm_castsi128_ps(_mm_lddqu_si128(reinterpret_cast<const __m128i*>(p)));
}
template <bool Conj> inline __m128 c_mul(__m128 xv, __m128 yv) {
    if constexpr (Conj) xv = _mm_xor_ps(xv, _mm_setr_ps(0.f, -0.f, 0.f, -0.f));
    const __m128 t = _mm_mul_ps(_mm_movehdup_ps(xv), _mm_shuffle_ps(yv, yv, 0xB1));
    return _mm_addsub_ps(_mm_mul_ps(_mm_moveldup_ps(xv), yv), t);
}
template <bool Conj> inline __m128d z_mul(__m128d xv, __m128d yv) {
    if constexpr (Conj) xv = _mm_xor_pd(xv, _mm_setr_pd(0.0, -0.0));
    const __m128d t = _mm_mul_pd(_mm_unpackhi_pd(xv, xv), _mm_shuffle_pd(yv, yv, 1));
    return _mm_addsub_pd(_mm_mul_pd(_mm_movedup_pd(xv), yv), t);
}
#else
// x_re*y + (x_im*swap(y) with one sign flipped): the sign constant stands in
// for addsub.
template <bool Conj> inline __m128d z_mul(__m128d xv, __m128d yv) {
    const __m128d sg = Conj ? _mm_setr_pd(0.0, -0.0) : _mm_setr_pd(-0.0, 0.0);
    const __m128d t = _mm_mul_pd(_mm_unpackhi_pd(xv, xv), _mm_shuffle_pd(yv, yv, 1));
    return _mm_add_pd(_mm_mul_pd(_mm_unpacklo_pd(xv, xv), yv), _mm_xor_pd(t, sg));
}
#endif

}  // namespace

template <> double dot<double>(const int* pn, const double* x, const int* pincx, const double* y,
                               const int* pincy) {
    int n = *pn;
    if (n <= 0) return 0.0;
    const int incx = *pincx, incy = *pincy;
    if ((unsigned)incx * (unsigned)incy == 1u) {
        const unsigned px = addr_bits(x) & 15, py = addr_bits(y) & 15;
        if (px == 0 && py == 0) return d_unit(n, x, y, _mm_setzero_pd());
        if (px == 8 && py == 8)
            return d_unit(n - 1, x + 1, y + 1, _mm_add_sd(_mm_setzero_pd(), _mm_set_sd(x[0] * y[0])));
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    double s = 0.0;
    for (; n > 0; --n, x += incx, y += incy) s += *x * *y;
    return s;
}

#if ZVA_BRANCH == 3
template <> float dot<float>(const int* pn, const float* x, const int* pincx, const float* y,
                             const int* pincy) {
    int n = *pn;
    if (n <= 0) return 0.0f;
    const int incx = *pincx, incy = *pincy;
    const unsigned px = addr_bits(x) & 15, py = addr_bits(y) & 15;
    if ((unsigned)incx * (unsigned)incy == 1u && px == py && !(px & 3)) {
        __m128 a0 = _mm_setzero_ps(), a1 = a0, a2 = a0, a3 = a0;
        for (int p = (int)((16 - px) & 15) / 4; p > 0 && n > 0; --p, --n, ++x, ++y)
            a0 = _mm_add_ss(a0, _mm_mul_ss(_mm_load_ss(x), _mm_load_ss(y)));
        auto v = [&](__m128 a, int k) { return s_step(a, _mm_load_ps(x + k), _mm_load_ps(y + k)); };
        for (; n >= 32; n -= 32, x += 32, y += 32) {
            a0 = v(v(a0, 0), 16);
            a1 = v(v(a1, 4), 20);
            a2 = v(v(a2, 8), 24);
            a3 = v(v(a3, 12), 28);
        }
        if (n & 16) {
            a0 = v(a0, 0), a1 = v(a1, 4), a2 = v(a2, 8), a3 = v(a3, 12);
            x += 16, y += 16;
        }
        if (n & 8) {
            a0 = v(a0, 0), a1 = v(a1, 4);
            x += 8, y += 8;
        }
        if (n & 4) {
            a0 = v(a0, 0);
            x += 4, y += 4;
        }
        for (n &= 3; n > 0; --n, ++x, ++y) a0 = _mm_add_ss(a0, _mm_mul_ss(_mm_load_ss(x), _mm_load_ss(y)));
        return s_fold(_mm_add_ps(_mm_add_ps(a0, a1), _mm_add_ps(a2, a3)));
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    float s = 0.0f;
    for (; n > 0; --n, x += incx, y += incy) s += *x * *y;
    return s;
}

namespace {
template <bool Conj> c32* c_dot(c32* res, int n, const c32* x, int incx, const c32* y, int incy) {
    __m128 a0 = _mm_setzero_ps(), a1 = a0, a2 = a0, a3 = a0;
    if (incx == 1 && incy == 1) {
        auto v = [&](__m128 a, int k) {
            return _mm_add_ps(a, c_mul<Conj>(lddqu(&x[k]), lddqu(&y[k])));
        };
        for (; n >= 16; n -= 16, x += 16, y += 16) {
            a0 = v(v(a0, 0), 8);
            a1 = v(v(a1, 2), 10);
            a2 = v(v(a2, 4), 12);
            a3 = v(v(a3, 6), 14);
        }
        for (; n >= 2; n -= 2, x += 2, y += 2) a0 = v(a0, 0);
    } else {
        x += vec_start(n, incx);
        y += vec_start(n, incy);
    }
    for (; n > 0; --n, x += incx, y += incy) a0 = _mm_add_ps(a0, c_mul<Conj>(c_load1(x), c_load1(y)));
    const __m128 b = _mm_add_ps(_mm_add_ps(a0, a1), _mm_add_ps(a2, a3));
    _mm_storel_pi(reinterpret_cast<__m64*>(res), _mm_add_ps(b, _mm_movehl_ps(b, b)));
    return res;
}

template <bool Conj> c64* z_dot(c64* res, int n, const c64* x, int incx, const c64* y, int incy) {
    __m128d a0 = _mm_setzero_pd(), a1 = a0, a2 = a0, a3 = a0;
    auto v = [&](__m128d a, int k) {
        return _mm_add_pd(a, z_mul<Conj>(_mm_loadu_pd(&x[k].re), _mm_loadu_pd(&y[k].re)));
    };
    if (incx == 1 && incy == 1) {
        for (; n >= 8; n -= 8, x += 8, y += 8) {
            a0 = v(v(a0, 0), 4);
            a1 = v(v(a1, 1), 5);
            a2 = v(v(a2, 2), 6);
            a3 = v(v(a3, 3), 7);
        }
    } else {
        x += vec_start(n, incx);
        y += vec_start(n, incy);
    }
    for (; n > 0; --n, x += incx, y += incy) a0 = v(a0, 0);
    _mm_storeu_pd(&res->re, _mm_add_pd(_mm_add_pd(a0, a1), _mm_add_pd(a2, a3)));
    return res;
}
}  // namespace
#else
}  // namespace zva::ZVA_NS
#include "level1/dot/sse2_x87.inl"
namespace zva::ZVA_NS {
#endif

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
