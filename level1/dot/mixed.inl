// SDSDOT and DSDOT on every branch: single x and y widened to double, so
// each product is exact and only the sums round.
//
// Layout: four accumulators of the branch's double width (4 lanes on 6 and
// 7, 2 below), the start value (sb, or 0) in lane 0 of the first; passes of
// 16 (6, 7) or 8 (2 to 5) from that many elements on; the reduction of DDOT;
// then on branch 7 passes of 4 with the sum in lane 0 of a fresh
// accumulator; then singles. Branch 7 adds by fused steps in the main pass:
// with exact products that rounds the same as a separate add.
//
// The strided path (incx = incy > 0) and the general path (start rule) run
// the same loops; only unit stride loads whole vectors.
namespace zva::ZVA_NS {
namespace {

#if ZVA_BRANCH >= 6
using mx_v = __m256d;
constexpr int mx_w = 4;
inline mx_v mx_load(const float* p) { return _mm256_cvtps_pd(_mm_loadu_ps(p)); }
inline mx_v mx_gather(const float* p, int s) {
    return _mm256_cvtps_pd(_mm_setr_ps(p[0], p[s], p[2 * s], p[3 * s]));
}
inline mx_v mx_first(double s) { return _mm256_setr_pd(s, 0.0, 0.0, 0.0); }
inline mx_v mx_zero() { return _mm256_setzero_pd(); }
inline mx_v mx_add(mx_v a, mx_v b) { return _mm256_add_pd(a, b); }
inline mx_v mx_madd(mx_v a, mx_v x, mx_v y) {
#if ZVA_BRANCH == 7
    return _mm256_fmadd_pd(x, y, a);
#else
    return _mm256_add_pd(a, _mm256_mul_pd(x, y));
#endif
}
inline double mx_fold(mx_v b) {
    const __m128d c = _mm_add_pd(_mm256_castpd256_pd128(b), _mm256_extractf128_pd(b, 1));
    return _mm_cvtsd_f64(_mm_add_sd(c, _mm_unpackhi_pd(c, c)));
}
#else
using mx_v = __m128d;
constexpr int mx_w = 2;
inline mx_v mx_load(const float* p) {
    return _mm_cvtps_pd(_mm_castpd_ps(_mm_load_sd(reinterpret_cast<const double*>(p))));
}
inline mx_v mx_gather(const float* p, int s) { return _mm_setr_pd(p[0], p[s]); }
inline mx_v mx_first(double s) { return _mm_setr_pd(s, 0.0); }
inline mx_v mx_zero() { return _mm_setzero_pd(); }
inline mx_v mx_add(mx_v a, mx_v b) { return _mm_add_pd(a, b); }
inline mx_v mx_madd(mx_v a, mx_v x, mx_v y) { return _mm_add_pd(a, _mm_mul_pd(x, y)); }
inline double mx_fold(mx_v c) { return _mm_cvtsd_f64(_mm_add_sd(c, _mm_unpackhi_pd(c, c))); }
#endif
constexpr int mx_pass = 4 * mx_w;

template <bool Unit>
double mixed_dot(int n, double s, const float* x, int incx, const float* y, int incy) {
    auto ld = [&](const float* p, int k, int inc) {
        if constexpr (Unit) return mx_load(p + k);
        else return mx_gather(p + k * inc, inc);
    };
    int i = 0;
    if (n >= mx_pass) {
        mx_v a0 = mx_first(s), a1 = mx_zero(), a2 = mx_zero(), a3 = mx_zero();
        for (; n - i >= mx_pass; i += mx_pass) {
            a0 = mx_madd(a0, ld(x, i, incx), ld(y, i, incy));
            a1 = mx_madd(a1, ld(x, i + mx_w, incx), ld(y, i + mx_w, incy));
            a2 = mx_madd(a2, ld(x, i + 2 * mx_w, incx), ld(y, i + 2 * mx_w, incy));
            a3 = mx_madd(a3, ld(x, i + 3 * mx_w, incx), ld(y, i + 3 * mx_w, incy));
        }
        s = mx_fold(mx_add(mx_add(a0, a1), mx_add(a2, a3)));
#if ZVA_BRANCH == 7
        if (n - i >= 4) {
            mx_v a = mx_first(s);
            for (; n - i >= 4; i += 4)
                a = _mm256_add_pd(a, _mm256_mul_pd(ld(x, i, incx), ld(y, i, incy)));
            s = mx_fold(a);
        }
#endif
    }
    for (; i < n; ++i) s += (double)x[i * incx] * (double)y[i * incy];
    return s;
}

double mixed(int n, double s, const float* x, int incx, const float* y, int incy) {
    if (n <= 0) return s;
    if (incx == 1 && incy == 1) return mixed_dot<true>(n, s, x, 1, y, 1);
    // Equal positive strides walk forward from the given pointers, as the
    // start rule does for them; every other pair starts by the rule.
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    return mixed_dot<false>(n, s, x, incx, y, incy);
}

}  // namespace

float sdsdot(const int* n, const float* sb, const float* x, const int* incx, const float* y,
             const int* incy) {
    return (float)mixed(*n, (double)*sb, x, *incx, y, *incy);
}

double dsdot(const int* n, const float* x, const int* incx, const float* y, const int* incy) {
    return mixed(*n, 0.0, x, *incx, y, *incy);
}

}  // namespace zva::ZVA_NS
