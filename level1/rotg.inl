// The generators, scalar code in the element type on every branch: SROTG,
// DROTG (the older published algorithm, without safe scaling), CROTG,
// ZROTG and SROTMG, DROTMG.
//
// Where they part from the published reference:
//   - branch 7 fuses one product into an add where it says so (the sum of
//     squares of ROTG, the u of ROTMG, each pair of CROTG's sum);
//   - CROTG and ZROTG take |v| straight, sqrt(re^2 + im^2), and on 6 and 7
//     add their four squares as two pairs, (ca_im, cb_re) + (ca_re, cb_im);
//   - ROTMG scales by multiplying with rgam and rgamsq, whose values are
//     below, not the exact powers of two; it forms H from t = y1/p1 (or
//     x1/p2) and divides d1, d2 by u through r = 1/u, without testing u;
//   - ROTMG stops a rescaling loop at an infinite d1 or d2, which no
//     factor brings into range, where the published loops spin for ever.
// Square roots by sqrtss/sqrtsd, correctly rounded, no library call.
#include <immintrin.h>

#include <bit>

// Scalar code stays scalar: GCC's SLP vectorizer would pair the products
// of alpha*conj(cb) into one vfmsubadd, fused in spite of -ffp-contract=off.
#pragma GCC optimize("no-tree-slp-vectorize")
#include <cstdint>

#include "level1/kernels.h"
#include "level1/rot/plane.inl"

namespace zva::ZVA_NS {
namespace {

inline float root(float v) { return _mm_cvtss_f32(_mm_sqrt_ss(_mm_set_ss(v))); }
inline double root(double v) { return _mm_cvtsd_f64(_mm_sqrt_sd(_mm_setzero_pd(), _mm_set_sd(v))); }
inline float absv(float v) { return __builtin_fabsf(v); }
inline double absv(double v) { return __builtin_fabs(v); }

template <class R> void rotg_real(R* pa, R* pb, R* pc, R* ps) {
    const R a = *pa, b = *pb, aa = absv(a), ab = absv(b);
    const R roe = aa > ab ? a : b;
    const R scale = aa + ab;
    R c = 1, s = 0, r = 0, z = 0;
    if (scale != 0) {  // a NaN scale goes on
        const R as = a / scale, bs = b / scale;
        r = scale * root(madd<fused>(as, as, bs * bs));
        if (0 > roe) r = -r;  // -0 and NaN count as positive
        c = a / r;
        s = b / r;
        z = aa > ab ? s : R(1);
        if (ab >= aa && c != 0) z = 1 / c;
    }
    *pa = r;
    *pb = z;
    *pc = c;
    *ps = s;
}

template <class C, class R> void rotg_cplx(C* pa, C* pb, R* pc, C* ps) {
    const C a = *pa, b = *pb;
    const R na = root(a.re * a.re + a.im * a.im);
    if (na == 0) {
        *pc = 0;
        *ps = C{1, 0};
        *pa = b;
        return;
    }
    const R nb = root(b.re * b.re + b.im * b.im);
    const R scale = na + nb;
    const R ar = a.re / scale, ai = a.im / scale, br = b.re / scale, bi = b.im / scale;
    R sum;
    if constexpr (branch >= 6)
        sum = madd<fused>(ai, ai, br * br) + madd<fused>(ar, ar, bi * bi);
    else
        sum = ((ar * ar + ai * ai) + br * br) + bi * bi;
    const R norm = scale * root(sum);
    const R alr = a.re / na, ali = a.im / na;
    *pc = na / norm;
    const R sr = alr * b.re + ali * b.im, si = ali * b.re - alr * b.im;  // alpha*conj(cb)
    *ps = C{sr / norm, si / norm};
    *pa = C{alr * norm, ali * norm};
}

// Constants of ROTMG; rgamsq (double) and rgam (single) are the values
// callers of this library have always had, a little off the powers of two.
template <class R> struct rotmg_k;
template <> struct rotmg_k<double> {
    static constexpr double gam = 4096, gamsq = 16777216, rgam = 0x1p-12;
    static constexpr double rgamsq = std::bit_cast<double>(uint64_t{0x3E6FFFFFFFFFFFA2});
};
template <> struct rotmg_k<float> {
    static constexpr float gam = 4096, gamsq = 16777216, rgamsq = 0x1p-24f;
    static constexpr float rgam = std::bit_cast<float>(uint32_t{0x3980000D});
};

template <class R> void rotmg_real(R* pd1, R* pd2, R* px1, const R* py1, R* param) {
    using K = rotmg_k<R>;
    constexpr R inf = __builtin_inf();
    R d1 = *pd1, d2 = *pd2, x1 = *px1;
    const R y1 = *py1;
    // The zero-H exit: flag -1, H and d1, d2, x1 all zero.
    auto zero_h = [&] {
        param[0] = -1;
        param[1] = param[2] = param[3] = param[4] = 0;
        *pd1 = *pd2 = *px1 = 0;
    };
    if (0 > d1) return zero_h();  // a NaN d1 goes on
    const R p2 = d2 * y1;
    if (p2 == 0) {
        param[0] = -2;
        return;
    }
    const R p1 = d1 * x1, q2 = p2 * y1, q1 = p1 * x1;
    R flag, h11 = 0, h21 = 0, h12 = 0, h22 = 0;
    if (absv(q1) > absv(q2)) {
        const R t = y1 / p1;
        h12 = d2 * t;
        h21 = -(d1 * t);
        const R u = madd<fused>(-h12, h21, R(1));  // 1 - h12*h21
        const R r = 1 / u;
        d1 = d1 * r;
        d2 = d2 * r;
        x1 = x1 * u;
        flag = 0;
    } else if (q2 < 0) {
        return zero_h();
    } else {
        const R t = x1 / p2;
        h11 = d1 * t;
        h22 = d2 * t;
        const R u = madd<fused>(h11, h22, R(1));
        const R r = 1 / u, e1 = d2 * r;
        d2 = d1 * r;
        d1 = e1;
        x1 = y1 * u;
        flag = 1;
    }
    // Rescaling needs all four elements of H.
    auto make_explicit = [&] {
        if (flag == 0) h11 = h22 = 1;
        else if (flag > 0) h21 = -1, h12 = 1;
        flag = -1;
    };
    if (d1 != 0 && (d1 <= K::rgamsq || d1 >= K::gamsq)) {
        make_explicit();
        for (; d1 <= K::rgamsq && d1 != -inf; d1 *= K::gamsq)
            x1 *= K::rgam, h11 *= K::rgam, h12 *= K::rgam;
        for (; d1 >= K::gamsq && d1 != inf; d1 *= K::rgamsq)
            x1 *= K::gam, h11 *= K::gam, h12 *= K::gam;
    }
    if (d2 != 0 && (absv(d2) <= K::rgamsq || absv(d2) >= K::gamsq)) {
        make_explicit();
        for (; absv(d2) <= K::rgamsq; d2 *= K::gamsq) h21 *= K::rgam, h22 *= K::rgam;
        for (; absv(d2) >= K::gamsq && absv(d2) != inf; d2 *= K::rgamsq)
            h21 *= K::gam, h22 *= K::gam;
    }
    // Only the elements the flag names are stored; the rest keep the
    // caller's values.
    if (flag < 0) {
        param[1] = h11, param[2] = h21, param[3] = h12, param[4] = h22;
    } else if (flag == 0) {
        param[2] = h21, param[3] = h12;
    } else {
        param[1] = h11, param[4] = h22;
    }
    param[0] = flag;
    *pd1 = d1;
    *pd2 = d2;
    *px1 = x1;
}

}  // namespace

template <> void rotg<float>(float* a, float* b, float* c, float* s) { rotg_real(a, b, c, s); }
template <> void rotg<double>(double* a, double* b, double* c, double* s) { rotg_real(a, b, c, s); }
template <> void rotg<c32>(c32* a, c32* b, float* c, c32* s) { rotg_cplx(a, b, c, s); }
template <> void rotg<c64>(c64* a, c64* b, double* c, c64* s) { rotg_cplx(a, b, c, s); }

template <> void rotmg<float>(float* d1, float* d2, float* x1, const float* y1, float* param) {
    rotmg_real(d1, d2, x1, y1, param);
}
template <> void rotmg<double>(double* d1, double* d2, double* x1, const double* y1,
                               double* param) {
    rotmg_real(d1, d2, x1, y1, param);
}

}  // namespace zva::ZVA_NS
