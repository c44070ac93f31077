// The row vocabulary of the band kernels (GBMV, SBMV and HBMV, TBMV, TBSV):
// what one or two band columns do over the rows they share, written once
// over the lane kinds of the branch.
//
//   cols   the walk of C = 1 or 2 columns over rows they share: an update
//          y[i] += t_c*a_c[i] (Upd), a dot s_c += a_c[i]*x[i] (Dot, with
//          conj(a) where Cj), or both from the same loaded a (SBMV, HBMV).
//          Unit stride: singles until the updated vector (the read one for
//          a dot alone) sits on the vector boundary, passes of U vectors,
//          on branch 7 passes of one vector, singles. Other strides: one
//          element a step, dots by gathered vectors.
//   scale_y  y := beta*y ahead of GBMV, SBMV, HBMV.
//
// Register budget: eight vector registers in 32-bit code. A pair update
// keeps t0, t1 (complex: their real and imaginary parts) beside y and one
// column's vector; a pair of dots keeps two accumulators a column (real) or
// the plain and the swapped product sums (complex), x and one a.
//
// Sums. Updates add the columns in order, y + t0*a0 + t1*a1, each step
// fused on branch 7 in the real types; complex products are formed as in
// the AXPY kernel of the branch (fmaddsub on 7, addsub on 3 to 6, a
// sign-flipped product on 2) and then added. Dots multiply and add apart on
// every branch; complex dots keep a*x and a*swap(x) lane-wise and form the
// real and imaginary parts from them at the end.
//
// Included only by branch code, in an unnamed namespace: each branch object
// gets its own copy, compiled with its flags.
#pragma once
#include <immintrin.h>

#include <utility>

#include "simd/branch.h"  // first: it names the branch's namespace
#include "frame/scalar.h"
#include "level1/vecops.h"

#define BAND_ZI inline __attribute__((always_inline))

namespace zva::ZVA_NS {
namespace {

template <class T> using VL = lanev<T>;
template <class T> using SL = lane1<T>;
template <class T> using fac = simd::factor<VL<T>>;
template <class T> inline constexpr bool cx = VL<T>::cplx;
inline constexpr unsigned vbytes = branch >= 6 ? 32 : 16;
using K0 = std::integral_constant<int, 0>;

// ---- scalars -----------------------------------------------------------------

template <class T> BAND_ZI T mulT(const T& a, const T& b) {
    if constexpr (cx<T>) return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
    else return a * b;
}
template <class T> BAND_ZI T addT(const T& a, const T& b) {
    if constexpr (cx<T>) return {a.re + b.re, a.im + b.im};
    else return a + b;
}
template <class T> BAND_ZI T subT(const T& a, const T& b) {
    if constexpr (cx<T>) return {a.re - b.re, a.im - b.im};
    else return a - b;
}
template <class T> BAND_ZI T negT(const T& a) {
    if constexpr (cx<T>) return {-a.re, -a.im};
    else return -a;
}
template <bool Cj, class T> BAND_ZI T cj(const T& a) {
    if constexpr (Cj && cx<T>) return {a.re, -a.im};
    else return a;
}

// x / a with no test of the parts. Single complex: widened to double,
// x*conj(a) over ar^2 + ai^2 by one two-lane division, rounded back.
// Double complex: the same quotient on the x87 unit, two divisions.
BAND_ZI float divT(float x, float a) { return x / a; }
BAND_ZI double divT(double x, double a) { return x / a; }
BAND_ZI c32 divT(c32 x, c32 a) {
    const double xr = x.re, xi = x.im, ar = a.re, ai = a.im;
    const __m128d q = _mm_div_pd(_mm_setr_pd(xr * ar + xi * ai, xi * ar - xr * ai),
                                 _mm_set1_pd(ar * ar + ai * ai));
    c32 r;
    _mm_storel_pi(reinterpret_cast<__m64*>(&r), _mm_cvtpd_ps(q));
    return r;
}
BAND_ZI c64 divT(c64 x, c64 a) {
    const long double xr = x.re, xi = x.im, ar = a.re, ai = a.im;
    const long double d = ar * ar + ai * ai;
    return {static_cast<double>((xr * ar + xi * ai) / d), static_cast<double>((xi * ar - xr * ai) / d)};
}

// ---- lanes -------------------------------------------------------------------

// The single lane kind takes the factors of the wide one: its register is
// the wide register's low half, which holds the same pattern.
BAND_ZI __m128 low(__m128 v) { return v; }
BAND_ZI __m128d low(__m128d v) { return v; }
#ifdef __AVX__
BAND_ZI __m128 low(__m256 v) { return _mm256_castps256_ps128(v); }
BAND_ZI __m128d low(__m256d v) { return _mm256_castpd256_pd128(v); }
#endif
template <class L, class T> BAND_ZI simd::factor<L> narrow(const fac<T>& f) {
    return {low(f.r), low(f.i), low(f.neg)};
}

template <class L, class T> BAND_ZI auto factor_of(const fac<T>& f) {
    if constexpr (__is_same(L, VL<T>)) return f;
    else return narrow<L, T>(f);
}

// a*t, complex as in the AXPY kernel of the branch.
template <class L> BAND_ZI typename L::v cmul(typename L::v a, const simd::factor<L>& f) {
    if constexpr (!L::cplx) return L::mul(a, f.r);
    else if constexpr (branch == 7) return fmaddsub(a, f.r, L::mul(L::swp(a), f.i));
    else if constexpr (branch >= 3) return addsub(L::mul(a, f.r), L::mul(L::swp(a), f.i));
    else return simd::times(f, a);
}

// s + a*t: one fused step in the real types on branch 7.
template <class L> BAND_ZI typename L::v acc(typename L::v s, typename L::v a, const simd::factor<L>& f) {
    if constexpr (!L::cplx) return L::madd(s, a, f.r);
    else return L::add(s, cmul<L>(a, f));
}

// Sum of the lanes; complex: the real part from a*x (its odd lanes
// subtracted, or added where conjugated) and the imaginary part from
// a*swap(x) (odd lanes added, or subtracted where conjugated).
template <class L, bool Cj> BAND_ZI typename L::T reduce(const typename L::v* s) {
    if constexpr (!L::cplx) {
        return lanes_sum(s[0]);
    } else {
        using R = typename L::R;
        const typename L::v odd = L::pair(R(0), -R(0));
        const R re = lanes_sum(Cj ? s[0] : L::flip(s[0], odd));
        const R im = lanes_sum(Cj ? L::flip(s[1], odd) : s[1]);
        return {re, im};
    }
}

// ---- the walk of the rows ----------------------------------------------------

template <int N, class F> BAND_ZI void unroll(F&& f) {
    [&]<int... K>(std::integer_sequence<int, K...>) __attribute__((always_inline)) {
        (f(std::integral_constant<int, K>{}), ...);
    }(std::make_integer_sequence<int, N>{});
}

// Rows [0, len): singles until `al` is on the vector boundary (no peel for
// a null al), passes of U vectors, passes of one vector where One, singles.
// f(lane kind, row, slot of the vector in its pass).
template <class T, int U, bool One, class F> BAND_ZI void walk(int len, const void* al, F&& f) {
    using V = VL<T>;
    using S = SL<T>;
    constexpr int W = V::W, P = U * W;
    int i = 0;
    if (len >= P) {
        const int p = al ? peel_to(al, vbytes, sizeof(T)) : 0;
        if (p > 0 && len - p >= P)
            for (; i < p; ++i) f(S{}, i, K0{});
        for (; i <= len - P; i += P)
            unroll<U>([&](auto k) __attribute__((always_inline)) { f(V{}, i + k * W, k); });
    }
    if constexpr (One && U > 1)
        for (; i <= len - W; i += W) f(V{}, i, K0{});
    for (; i < len; ++i) f(S{}, i, K0{});
}

// Rows a pass by the table of the family: updates and dots of real types
// 16 on the 256-bit branches (32 for one S column on branch 7) and 8 on the
// others; C 8; Z 8 on the 256-bit branches, else 1 for a pair, 2 alone. The
// combined walk of SBMV and HBMV goes one vector a pass for a pair.
template <class T, int C, bool Upd, bool Dot> constexpr int pass_vectors() {
    constexpr int W = VL<T>::W;
    int rows;
    if constexpr (!cx<T>) rows = branch >= 6 ? (sizeof(T) == 4 && C == 1 && branch == 7 ? 32 : 16) : 8;
    else if constexpr (sizeof(T) == 8) rows = 8;
    else rows = branch >= 6 ? 8 : 3 - C;
    if (Upd && Dot) rows = C == 2 ? W : (cx<T> ? rows / 2 : rows);
    return rows / W > 0 ? rows / W : 1;
}

// The walk of C columns a[c] over rows [0, len) they share. Upd: y[i] +=
// t[c]*a[c][i]; Dot: s[c] += (conj) a[c][i]*x[i]. Unit: x and y at unit
// stride, else incx and incy apart (y only with Upd, x only with Dot).
template <class T, int C, bool Upd, bool Dot, bool Cj, bool Unit>
BAND_ZI void cols(int len, const T* const* a, const fac<T>* t, T* y, int incy, const T* x, int incx,
                  T* s) {
    using V = VL<T>;
    using S = SL<T>;
    constexpr int U = pass_vectors<T, C, Upd, Dot>();
    // Dot accumulators of a column: complex the plain and the swapped
    // products; real, up to 4 slots for a dot of one column, 2 otherwise.
    constexpr int Amax = C == 2 || Upd ? 2 : 4;
    constexpr int A = cx<T> ? 2 : (U < Amax ? U : Amax);
    typename V::v av[C][A];
    typename S::v as[C][2];
    if constexpr (Dot)
        for (int c = 0; c < C; ++c) {
            for (int q = 0; q < A; ++q) av[c][q] = V::zero();
            as[c][0] = as[c][1] = S::zero();
        }
    auto step = [&](auto l, int i, auto k) __attribute__((always_inline)) {
        using L = decltype(l);
        typename L::v ac[C];
        for (int c = 0; c < C; ++c) ac[c] = L::load(a[c] + i);
        if constexpr (Upd) {
            T* yp = y + (Unit ? i : i * incy);
            typename L::v v = L::load(yp);
            for (int c = 0; c < C; ++c) v = acc<L>(v, ac[c], factor_of<L, T>(t[c]));
            L::store(yp, v);
        }
        if constexpr (Dot) {
            // Element loads, not the gather instruction: on Zen 3 that made
            // strided DTBMV 1.9 times slower, and qemu-i386 7.2 faults on it.
            const typename L::v xv = Unit ? L::load(x + i) : L::gather(x + i * incx, incx);
            constexpr bool wide = __is_same(L, V);
            for (int c = 0; c < C; ++c) {
                auto& sc = [&]() -> auto& {
                    if constexpr (wide) return av[c];
                    else return as[c];
                }();
                if constexpr (cx<T>) {
                    sc[0] = L::add(sc[0], L::mul(ac[c], xv));
                    sc[1] = L::add(sc[1], L::mul(ac[c], L::swp(xv)));
                } else {
                    constexpr int q = wide ? decltype(k)::value % A : 0;
                    sc[q] = L::add(sc[q], L::mul(ac[c], xv));
                }
            }
        }
    };
    if constexpr (Unit) {
        walk<T, U, branch == 7>(len, Upd ? static_cast<const void*>(y) : x, step);
    } else if constexpr (Upd) {
        for (int i = 0; i < len; ++i) step(S{}, i, K0{});
    } else {
        walk<T, U, branch == 7>(len, nullptr, step);
    }
    if constexpr (Dot)
        for (int c = 0; c < C; ++c) {
            if constexpr (!cx<T>) {
                if constexpr (A == 4) av[c][0] = V::add(V::add(av[c][0], av[c][1]), V::add(av[c][2], av[c][3]));
                else if constexpr (A == 2) av[c][0] = V::add(av[c][0], av[c][1]);
            }
            T r = reduce<V, Cj>(av[c]);
            if constexpr (!__is_same(S, V)) r = addT(r, reduce<S, Cj>(as[c]));
            s[c] = addT(s[c], r);
        }
}

// One row of one column: y += t*a (fused on branch 7 in the real types).
template <class T> BAND_ZI void upd1(T* y, const T* a, const fac<T>& t) {
    using S = SL<T>;
    S::store(y, acc<S>(S::load(y), S::load(a), narrow<S, T>(t)));
}

// y := beta*y; beta = 0 writes zeros (a NaN in y does not survive), beta = 1
// leaves y alone. y is the first logical element.
template <class T> void scale_y(int n, const T& beta, T* y, int incy) {
    using V = VL<T>;
    using S = SL<T>;
    if (is_one(beta)) return;
    if (is_zero(beta)) {
        // About 100 bytes and up: one block fill.
        if (incy == 1 && n >= 13) {
            __builtin_memset(static_cast<void*>(y), 0, static_cast<unsigned>(n) * sizeof(T));
            return;
        }
        const int step = incy == 1 && cx<T> ? 4 : 8;
        int i = 0;
        for (; i <= n - step; i += step)
            for (int q = 0; q < step; ++q) y[(i + q) * incy] = T{};
        for (; i < n; ++i) y[i * incy] = T{};
        return;
    }
    const fac<T> f = simd::make_factor<V>(beta);
    auto step = [&](auto l, int i, auto) __attribute__((always_inline)) {
        using L = decltype(l);
        T* p = y + i * incy;
        L::store(p, cmul<L>(L::load(p), factor_of<L, T>(f)));
    };
    if (incy == 1 && n >= 16 && peel_to(y, vbytes, sizeof(T)) >= 0)
        walk<T, (16 / V::W > 0 ? 16 / V::W : 1), true>(n, y, step);
    else
        for (int i = 0; i < n; ++i) step(S{}, i, K0{});
}

// ---- band geometry -------------------------------------------------------------

// Rows of a triangular band pair, columns j and j + 1 (k >= 1), outside
// their 2 x 2 diagonal block: [lo, hi] both columns hold, and the one row
// that only one of them holds (upper: the top row of column j; lower: the
// bottom row of column j + 1), or -1.
struct tri_pair {
    int lo, hi, extra;
};
BAND_ZI tri_pair tri_rows(bool upper, int j, int n, int k) {
    if (upper) return {j + 1 - k > 0 ? j + 1 - k : 0, j - 1, j - k >= 0 ? j - k : -1};
    return {j + 2, j + k < n - 1 ? j + k : n - 1, j + 1 + k <= n - 1 ? j + 1 + k : -1};
}

// The off-diagonal rows of one column of a triangular band: [lo, hi].
BAND_ZI void tri_col(bool upper, int j, int n, int k, int& lo, int& hi) {
    if (upper) lo = j - k > 0 ? j - k : 0, hi = j - 1;
    else lo = j + 1, hi = j + k < n - 1 ? j + k : n - 1;
}

}  // namespace
}  // namespace zva::ZVA_NS
