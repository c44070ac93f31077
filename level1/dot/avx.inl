// DOT of the 256-bit branches: 6 (AVX) and 7 (AVX2 with FMA).
//
// Register budget: eight ymm registers in 32-bit code; a pass keeps four
// accumulators, one x and one y vector and one product term live.
//
// Unit stride: short vectors go singly; otherwise y is peeled to 32 bytes
// (its element size must divide the address, else all singly), the peeled
// products are summed in s, and s starts lane 0 (one complex pair) of the
// first accumulator. x is read where it lies. Other increments: the same
// passes by element-wise loads (DDOT: not with an increment 0), singles at
// the end in logical order.
//
// What differs between the two branches:
//   x loads     6 reads x in 128-bit halves, as its AXPY; 7 by 256-bit loads
//   tail        7 runs passes of one vector after the main pass, with s in
//               lane 0 of a fresh accumulator, reduced again; 6 goes singly
//   SDOT        7: four accumulators, 32 a pass; 6: two, 16 a pass
//   complex     t = x_im*swap(y), then x_re*y -/+ t: one fmaddsub on 7, a
//               multiply and addsub on 6. Conjugation flips the sign of x_im
//               on 6; on 7 fmsubadd does the same roundings with no mask.
//   ZDOTU       7's general path has no vectors: even and odd elements in
//               two fused scalar sums, added at the end.
// DOT never fuses a real product with its sum, on 7 either.
#if ZVA_BRANCH == 7
#define DOT_LOADX_PD(p) _mm256_loadu_pd(p)
#define DOT_LOADX_PS(p) _mm256_loadu_ps(p)
#else
#define DOT_LOADX_PD(p) simd::d_halves(p, (p) + 2)
#define DOT_LOADX_PS(p) simd::f_halves(p, (p) + 4)
#endif

namespace zva::ZVA_NS {
namespace {

// Elements a main pass: real D and S, complex C and Z.
constexpr int d_pass = 16, c_pass = 8, z_pass = 8;
constexpr int s_pass = branch == 7 ? 32 : 16;

// ---- reductions: upper half onto lower, down to lane 0 (one pair) ----------

inline double d_fold(__m256d b) {
    const __m128d c = _mm_add_pd(_mm256_castpd256_pd128(b), _mm256_extractf128_pd(b, 1));
    return _mm_cvtsd_f64(_mm_add_sd(c, _mm_unpackhi_pd(c, c)));
}
inline float s_fold(__m256 b) {
    __m128 c = _mm_add_ps(_mm256_castps256_ps128(b), _mm256_extractf128_ps(b, 1));
    c = _mm_add_ps(c, _mm_movehl_ps(c, c));
    return _mm_cvtss_f32(_mm_add_ss(c, _mm_movehdup_ps(c)));
}
// One complex single in the low pair, the upper pair zero.
inline __m128 c_fold(__m256 b) {
    const __m128 c = _mm_add_ps(_mm256_castps256_ps128(b), _mm256_extractf128_ps(b, 1));
    const __m128 s = _mm_add_ps(c, _mm_movehl_ps(c, c));
    return _mm_castpd_ps(_mm_move_sd(_mm_setzero_pd(), _mm_castps_pd(s)));
}
inline __m128d z_fold(__m256d b) {
    return _mm_add_pd(_mm256_castpd256_pd128(b), _mm256_extractf128_pd(b, 1));
}

// ---- complex products ---------------------------------------------------------

template <bool Conj> inline __m256 c_mul(__m256 xv, __m256 yv) {
#if ZVA_BRANCH == 7
    const __m256 t = _mm256_mul_ps(_mm256_movehdup_ps(xv), _mm256_permute_ps(yv, 0xB1));
    if constexpr (Conj) return _mm256_fmsubadd_ps(_mm256_moveldup_ps(xv), yv, t);
    else return _mm256_fmaddsub_ps(_mm256_moveldup_ps(xv), yv, t);
#else
    if constexpr (Conj) xv = _mm256_xor_ps(xv, _mm256_setr_ps(0.f, -0.f, 0.f, -0.f, 0.f, -0.f, 0.f, -0.f));
    const __m256 t = _mm256_mul_ps(_mm256_movehdup_ps(xv), _mm256_permute_ps(yv, 0xB1));
    return _mm256_addsub_ps(_mm256_mul_ps(_mm256_moveldup_ps(xv), yv), t);
#endif
}
template <bool Conj> inline __m128 c_mul(__m128 xv, __m128 yv) {
#if ZVA_BRANCH == 7
    const __m128 t = _mm_mul_ps(_mm_movehdup_ps(xv), _mm_permute_ps(yv, 0xB1));
    if constexpr (Conj) return _mm_fmsubadd_ps(_mm_moveldup_ps(xv), yv, t);
    else return _mm_fmaddsub_ps(_mm_moveldup_ps(xv), yv, t);
#else
    if constexpr (Conj) xv = _mm_xor_ps(xv, _mm_setr_ps(0.f, -0.f, 0.f, -0.f));
    const __m128 t = _mm_mul_ps(_mm_movehdup_ps(xv), _mm_permute_ps(yv, 0xB1));
    return _mm_addsub_ps(_mm_mul_ps(_mm_moveldup_ps(xv), yv), t);
#endif
}
template <bool Conj> inline __m256d z_mul(__m256d xv, __m256d yv) {
#if ZVA_BRANCH == 7
    const __m256d t = _mm256_mul_pd(_mm256_permute_pd(xv, 0xF), _mm256_permute_pd(yv, 5));
    if constexpr (Conj) return _mm256_fmsubadd_pd(_mm256_movedup_pd(xv), yv, t);
    else return _mm256_fmaddsub_pd(_mm256_movedup_pd(xv), yv, t);
#else
    if constexpr (Conj) xv = _mm256_xor_pd(xv, _mm256_setr_pd(0.0, -0.0, 0.0, -0.0));
    const __m256d t = _mm256_mul_pd(_mm256_permute_pd(xv, 0xF), _mm256_permute_pd(yv, 5));
    return _mm256_addsub_pd(_mm256_mul_pd(_mm256_movedup_pd(xv), yv), t);
#endif
}
template <bool Conj> inline __m128d z_mul(__m128d xv, __m128d yv) {
#if ZVA_BRANCH == 7
    const __m128d t = _mm_mul_pd(_mm_permute_pd(xv, 3), _mm_permute_pd(yv, 1));
    if constexpr (Conj) return _mm_fmsubadd_pd(_mm_movedup_pd(xv), yv, t);
    else return _mm_fmaddsub_pd(_mm_movedup_pd(xv), yv, t);
#else
    if constexpr (Conj) xv = _mm_xor_pd(xv, _mm_setr_pd(0.0, -0.0));
    const __m128d t = _mm_mul_pd(_mm_permute_pd(xv, 3), _mm_permute_pd(yv, 1));
    return _mm_addsub_pd(_mm_mul_pd(_mm_movedup_pd(xv), yv), t);
#endif
}

// ---- element-wise loads of the general paths --------------------------------

inline __m256d d_gather(const double* p, int s) {
    return _mm256_setr_pd(p[0], p[s], p[2 * s], p[3 * s]);
}
inline __m256 s_gather(const float* p, int s) {
    return _mm256_setr_ps(p[0], p[s], p[2 * s], p[3 * s], p[4 * s], p[5 * s], p[6 * s],
                          p[7 * s]);
}
// A complex single as one 64-bit unit, the upper half zero.
inline __m128 c_load1(const c32* p) {
    return _mm_castpd_ps(_mm_load_sd(reinterpret_cast<const double*>(p)));
}
inline __m256 c_gather(const c32* p, int s) {
    const __m128 lo = _mm_loadh_pi(c_load1(p), reinterpret_cast<const __m64*>(p + s));
    const __m128 hi = _mm_loadh_pi(c_load1(p + 2 * s), reinterpret_cast<const __m64*>(p + 3 * s));
    return _mm256_insertf128_ps(_mm256_castps128_ps256(lo), hi, 1);
}
inline __m256d z_gather(const c64* p, int s) { return simd::d_halves(&p->re, &p[s].re); }

// ---- the passes: a product loader pr(k) gives the products of elements
// k .. k + lanes - 1; the scalar sum s starts lane 0 (pair 0) ---------------

template <class Pr> double d_passes(const Pr& pr, int n, int& i, double s) {
    __m256d a0 = _mm256_setr_pd(s, 0.0, 0.0, 0.0), a1 = _mm256_setzero_pd();
    __m256d a2 = _mm256_setzero_pd(), a3 = _mm256_setzero_pd();
    for (; n - i >= d_pass; i += d_pass) {
        a0 = _mm256_add_pd(a0, pr(i));
        a1 = _mm256_add_pd(a1, pr(i + 4));
        a2 = _mm256_add_pd(a2, pr(i + 8));
        a3 = _mm256_add_pd(a3, pr(i + 12));
    }
    s = d_fold(_mm256_add_pd(_mm256_add_pd(a0, a1), _mm256_add_pd(a2, a3)));
#if ZVA_BRANCH == 7
    if (n - i >= 4) {
        __m256d a = _mm256_setr_pd(s, 0.0, 0.0, 0.0);
        for (; n - i >= 4; i += 4) a = _mm256_add_pd(a, pr(i));
        s = d_fold(a);
    }
#endif
    return s;
}

template <class Pr> float s_passes(const Pr& pr, int n, int& i, float s) {
    __m256 a0 = _mm256_setr_ps(s, 0.f, 0.f, 0.f, 0.f, 0.f, 0.f, 0.f), a1 = _mm256_setzero_ps();
#if ZVA_BRANCH == 7
    __m256 a2 = _mm256_setzero_ps(), a3 = _mm256_setzero_ps();
    for (; n - i >= s_pass; i += s_pass) {
        a0 = _mm256_add_ps(a0, pr(i));
        a1 = _mm256_add_ps(a1, pr(i + 8));
        a2 = _mm256_add_ps(a2, pr(i + 16));
        a3 = _mm256_add_ps(a3, pr(i + 24));
    }
    s = s_fold(_mm256_add_ps(_mm256_add_ps(a0, a1), _mm256_add_ps(a2, a3)));
    if (n - i >= 8) {
        __m256 a = _mm256_setr_ps(s, 0.f, 0.f, 0.f, 0.f, 0.f, 0.f, 0.f);
        for (; n - i >= 8; i += 8) a = _mm256_add_ps(a, pr(i));
        s = s_fold(a);
    }
#else
    for (; n - i >= s_pass; i += s_pass) {
        a0 = _mm256_add_ps(a0, pr(i));
        a1 = _mm256_add_ps(a1, pr(i + 8));
    }
    s = s_fold(_mm256_add_ps(a0, a1));
#endif
    return s;
}

template <class Pr> __m128 c_passes(const Pr& pr, int n, int& i, __m128 s, bool tail) {
    __m256 a0 = _mm256_insertf128_ps(_mm256_setzero_ps(), s, 0), a1 = _mm256_setzero_ps();
    for (; n - i >= c_pass; i += c_pass) {
        a0 = _mm256_add_ps(a0, pr(i));
        a1 = _mm256_add_ps(a1, pr(i + 4));
    }
    s = c_fold(_mm256_add_ps(a0, a1));
    if (branch == 7 && tail && n - i >= 4) {
        __m256 a = _mm256_insertf128_ps(_mm256_setzero_ps(), s, 0);
        for (; n - i >= 4; i += 4) a = _mm256_add_ps(a, pr(i));
        s = c_fold(a);
    }
    return s;
}

template <class Pr> __m128d z_passes(const Pr& pr, int n, int& i, __m128d s, bool tail) {
    __m256d a0 = _mm256_insertf128_pd(_mm256_setzero_pd(), s, 0), a1 = _mm256_setzero_pd();
    __m256d a2 = _mm256_setzero_pd(), a3 = _mm256_setzero_pd();
    for (; n - i >= z_pass; i += z_pass) {
        a0 = _mm256_add_pd(a0, pr(i));
        a1 = _mm256_add_pd(a1, pr(i + 2));
        a2 = _mm256_add_pd(a2, pr(i + 4));
        a3 = _mm256_add_pd(a3, pr(i + 6));
    }
    s = z_fold(_mm256_add_pd(_mm256_add_pd(a0, a1), _mm256_add_pd(a2, a3)));
    if (branch == 7 && tail && n - i >= 2) {
        __m256d a = _mm256_insertf128_pd(_mm256_setzero_pd(), s, 0);
        for (; n - i >= 2; i += 2) a = _mm256_add_pd(a, pr(i));
        s = z_fold(a);
    }
    return s;
}

#if ZVA_BRANCH == 7
// ZDOTU's general path: one element in two fused steps,
// (s_re + x_re*y_re) - x_im*y_im and (s_im + x_re*y_im) + x_im*y_re.
inline __m128d z_fused(__m128d s, const c64* x, const c64* y) {
    const __m128d xv = _mm_loadu_pd(&x->re), yv = _mm_loadu_pd(&y->re);
    s = _mm_fmadd_pd(_mm_movedup_pd(xv), yv, s);
    const __m128d nxi = _mm_xor_pd(_mm_permute_pd(xv, 3), _mm_setr_pd(-0.0, 0.0));
    return _mm_fmadd_pd(nxi, _mm_permute_pd(yv, 1), s);
}
#endif

template <bool Conj>
c32* c_dot(c32* res, int n, const c32* x, int incx, const c32* y, int incy) {
    __m128 s = _mm_setzero_ps();
    int i = 0;
    if (incx == 1 && incy == 1) {
        const int peel = n < c_pass ? -1 : peel_to_32(y, 8);
        if (peel >= 0 && n >= peel + c_pass) {
            for (; i < peel; ++i) s = _mm_add_ps(s, c_mul<Conj>(c_load1(x + i), c_load1(y + i)));
            s = c_passes(
                [&](int k) {
                    return c_mul<Conj>(DOT_LOADX_PS(&x[k].re), _mm256_load_ps(&y[k].re));
                },
                n, i, s, true);
        }
    } else {
        x += vec_start(n, incx);
        y += vec_start(n, incy);
        if (incx != 0 && incy != 0 && n >= c_pass)
            s = c_passes(
                [&](int k) {
                    return c_mul<Conj>(c_gather(x + k * incx, incx), c_gather(y + k * incy, incy));
                },
                n, i, s, false);
    }
    for (; i < n; ++i) s = _mm_add_ps(s, c_mul<Conj>(c_load1(x + i * incx), c_load1(y + i * incy)));
    _mm_storel_pi(reinterpret_cast<__m64*>(res), s);
    return res;
}

template <bool Conj>
c64* z_dot(c64* res, int n, const c64* x, int incx, const c64* y, int incy) {
    __m128d s = _mm_setzero_pd();
    int i = 0;
    if (incx == 1 && incy == 1) {
        const int peel = n < z_pass ? -1 : peel_to_32(y, 16);
        if (peel >= 0 && n >= peel + z_pass) {
            for (; i < peel; ++i)
                s = _mm_add_pd(s, z_mul<Conj>(_mm_loadu_pd(&x[i].re), _mm_loadu_pd(&y[i].re)));
            s = z_passes(
                [&](int k) {
                    return z_mul<Conj>(DOT_LOADX_PD(&x[k].re), _mm256_load_pd(&y[k].re));
                },
                n, i, s, true);
        }
    } else {
        x += vec_start(n, incx);
        y += vec_start(n, incy);
#if ZVA_BRANCH == 7
        if constexpr (!Conj) {
            __m128d s1 = _mm_setzero_pd();
            for (; n - i >= 2; i += 2) {
                s = z_fused(s, x + i * incx, y + i * incy);
                s1 = z_fused(s1, x + (i + 1) * incx, y + (i + 1) * incy);
            }
            s = _mm_add_pd(s, s1);
            if (i < n) s = z_fused(s, x + i * incx, y + i * incy);
            _mm_storeu_pd(&res->re, s);
            return res;
        }
#endif
        if (incx != 0 && incy != 0 && n >= z_pass)
            s = z_passes(
                [&](int k) {
                    return z_mul<Conj>(z_gather(x + k * incx, incx), z_gather(y + k * incy, incy));
                },
                n, i, s, false);
    }
    for (; i < n; ++i)
        s = _mm_add_pd(s, z_mul<Conj>(_mm_loadu_pd(&x[i * incx].re), _mm_loadu_pd(&y[i * incy].re)));
    _mm_storeu_pd(&res->re, s);
    return res;
}

}  // namespace

template <> double dot<double>(const int* pn, const double* x, const int* pincx, const double* y,
                               const int* pincy) {
    const int n = *pn;
    if (n <= 0) return 0.0;
    const int incx = *pincx, incy = *pincy;
    double s = 0.0;
    int i = 0;
    if (incx == 1 && incy == 1) {
        const int peel = n < d_pass ? -1 : peel_to_32(y, 8);
        if (peel >= 0 && n >= peel + d_pass) {
            for (; i < peel; ++i) s += x[i] * y[i];
            s = d_passes(
                [&](int k) { return _mm256_mul_pd(DOT_LOADX_PD(x + k), _mm256_load_pd(y + k)); },
                n, i, s);
        }
        for (; i < n; ++i) s += x[i] * y[i];
        return s;
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    if (incx != 0 && incy != 0 && n >= d_pass)
        s = d_passes(
            [&](int k) {
                return _mm256_mul_pd(d_gather(x + k * incx, incx), d_gather(y + k * incy, incy));
            },
            n, i, s);
    for (; i < n; ++i) s += x[i * incx] * y[i * incy];
    return s;
}

template <> float dot<float>(const int* pn, const float* x, const int* pincx, const float* y,
                             const int* pincy) {
    const int n = *pn;
    if (n <= 0) return 0.0f;
    const int incx = *pincx, incy = *pincy;
    float s = 0.0f;
    int i = 0;
    if (incx == 1 && incy == 1) {
        const int peel = n < s_pass ? -1 : peel_to_32(y, 4);
        if (peel >= 0 && n >= peel + s_pass) {
            for (; i < peel; ++i) s += x[i] * y[i];
            s = s_passes(
                [&](int k) { return _mm256_mul_ps(DOT_LOADX_PS(x + k), _mm256_load_ps(y + k)); },
                n, i, s);
        }
        for (; i < n; ++i) s += x[i] * y[i];
        return s;
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    if (n >= s_pass)
        s = s_passes(
            [&](int k) {
                return _mm256_mul_ps(s_gather(x + k * incx, incx), s_gather(y + k * incy, incy));
            },
            n, i, s);
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

#undef DOT_LOADX_PD
#undef DOT_LOADX_PS
