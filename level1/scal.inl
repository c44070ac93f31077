// SCAL, x := alpha*x, in S, D, C, Z and with a real alpha on a complex
// vector (CSSCAL, ZDSCAL), on every branch: the kernels behind the six
// SCAL dispatch points.
//
// Every kernel: n <= 0 returns. alpha is not looked at: a zero alpha
// multiplies, so infinities and NaNs in x give NaN and negative elements
// -0. Unlike the reference BLAS, a negative increment is no return: the n
// elements x[0], x[|incx|], ... are scaled, the set the negative-increment
// rule reaches from the far end, and as each element is scaled alone the
// direction does not matter. incx = 0 multiplies x[0] n times in turn.
//
// Register budget: eight xmm or ymm registers. A pass keeps alpha (complex:
// ar, ai and the sign mask) and one working vector at a time, so even the
// long passes of branch 5 do not spill.
//
// One text for all branches. What differs is a row of constants per type
// and branch (scal_shape below: vectors a pass, the boundary x is peeled
// to, the tails), and the complex product:
//   branch 7          ar*x -/+ ai*swap(x) in one fmaddsub, ai*swap(x) rounded
//   branches 3, 6     both products rounded, then addsub
//   branches 2, 4, 5  both products rounded, the sign by xor, then add
// The last two round alike. Single elements go by the vector form, so no
// element's value depends on the path that took it.
#include <immintrin.h>

#include <climits>
#include <cstdint>

#include "frame/scalar.h"
#include "level1/kernels.h"
#include "level1/vecops.h"
#include "simd/branch.h"
#include "simd/pairs128.h"

namespace zva::ZVA_NS {
namespace {

// The unit-stride shape of one kernel.
struct scal_shape {
    int min_n;       // shorter vectors go singly
    int align;       // x is peeled to this boundary in bytes
    bool any_phase;  // x off its element size: vectors anyway (else singly)
    int vecs;        // vectors a pass
    bool tail;       // after the passes, one vector at a time
    bool cascade;    // after the passes, one block of half, quarter ... a pass
    int unroll;      // elements a pass on the general path
};

template <class T> constexpr scal_shape shape_of() {
    constexpr int b = branch;
    if constexpr (__is_same(T, double)) {
        if (b == 7) return {16, 32, false, 4, true, false, 2};
        if (b == 6) return {16, 32, false, 4, false, false, 2};
        if (b == 5) return {16, 16, false, 8, true, false, 2};
        if (b == 4) return {8, 16, true, 8, true, false, 1};
        if (b == 3) return {16, 16, true, 8, false, true, 4};
        return {8, 16, true, 4, false, false, 2};
    } else if constexpr (__is_same(T, float)) {
        if (b == 7) return {16, 32, false, 2, true, false, 2};
        if (b == 6) return {16, 32, false, 2, false, false, 2};
        if (b == 5) return {8, 16, true, 16, true, false, 1};
        if (b == 4) return {8, 16, true, 8, true, false, 1};
        return {8, 16, true, 2, false, false, 2};
    } else if constexpr (__is_same(T, c32)) {
        if (b == 7) return {8, 32, false, 2, true, false, 2};
        if (b == 6) return {8, 32, false, 2, false, false, 2};
        if (b == 5) return {32, 16, true, 16, true, false, 1};
        return {16, 16, true, 8, true, false, 1};
    } else {
        if (b >= 6) return {8, 32, false, 4, true, false, 2};
        if (b >= 4) return {32, 16, true, 32, false, false, 1};
        if (b == 3) return {8, 16, true, 8, false, false, 1};
        return {2, 16, true, 2, false, false, 2};
    }
}

// alpha in registers of lane kind L: real, or (ar, ai, sign) for complex.
template <class L> struct scal_alpha {
    typename L::v r, i, sg;
};

template <class L, class A> scal_alpha<L> alpha_of(const A& a) {
    scal_alpha<L> f;
    if constexpr (L::cplx) {
        f.r = L::set1(a.re);
        f.i = L::set1(a.im);
        f.sg = L::pair(-typename L::R(0), typename L::R(0));
    } else {
        f.r = L::set1(a);
    }
    return f;
}

template <class L> inline typename L::v times(const scal_alpha<L>& f, typename L::v x) {
    if constexpr (!L::cplx) {
        return L::mul(x, f.r);
    } else {
        const typename L::v t = L::mul(L::swp(x), f.i);
        if constexpr (branch == 7) return fmaddsub(f.r, x, t);
        else if constexpr (branch == 3 || branch == 6) return addsub(L::mul(f.r, x), t);
        else return L::add(L::mul(x, f.r), L::flip(t, f.sg));
    }
}

// One element by the vector form. A complex single fills both halves of
// its register, so the unused lanes compute on real data.
template <class T> struct single;
template <> struct single<float> {
    using L = simd::F1<false>;
    static void run(const scal_alpha<L>& f, float* p) { *p = *p * _mm_cvtss_f32(f.r); }
};
template <> struct single<double> {
    using L = simd::D1<false>;
    static void run(const scal_alpha<L>& f, double* p) { *p = *p * _mm_cvtsd_f64(f.r); }
};
template <> struct single<c32> {
    using L = simd::C1<false>;
    static void run(const scal_alpha<L>& f, c32* p) {
        simd::store_pair(&p->re, times(f, simd::dup_pair(p)));
    }
};
template <> struct single<c64> {
    using L = simd::Z128<false>;
    static void run(const scal_alpha<L>& f, c64* p) { L::store(p, times(f, L::load(p))); }
};

// Unit stride: the peel, passes of S.vecs vectors, the tails, singles.
template <class T, class A> void scal_unit(int n, const A& a, T* x) {
    using L = lanev<T>;
    constexpr scal_shape S = shape_of<T>();
    constexpr int W = L::W, P = S.vecs * W;
    const auto f1 = alpha_of<typename single<T>::L>(a);
    int i = 0;
    if (n >= S.min_n) {
        int peel = peel_to(x, S.align, sizeof(T));
        if (peel < 0 && S.any_phase) peel = 0;
        if (peel >= 0 && n >= peel + S.min_n) {
            for (; i < peel; ++i) single<T>::run(f1, x + i);
            const auto f = alpha_of<L>(a);
            for (; n - i >= P; i += P) {
#pragma GCC unroll 32
                for (int k = 0; k < P; k += W) L::store(x + i + k, times(f, L::load(x + i + k)));
            }
            if constexpr (S.cascade) {
                for (int b = P / 2; b >= W; b /= 2)
                    if (n - i >= b) {
                        for (int k = 0; k < b; k += W) L::store(x + i + k, times(f, L::load(x + i + k)));
                        i += b;
                    }
            } else if constexpr (S.tail && W > 1) {
                for (; n - i >= W; i += W) L::store(x + i, times(f, L::load(x + i)));
            }
        }
    }
    for (; i < n; ++i) single<T>::run(f1, x + i);
}

// General path: |incx| apart from x[0], S.unroll elements a pass; each
// element is stored before the next is read, so incx = 0 scales x[0] n
// times in turn.
template <class T, class A> void scal_strided(int n, const A& a, T* x, int step) {
    constexpr int U = shape_of<T>().unroll;
    const auto f1 = alpha_of<typename single<T>::L>(a);
    int k = n;
    for (; k >= U; k -= U) {
#pragma GCC unroll 4
        for (int u = 0; u < U; ++u, x += step) single<T>::run(f1, x);
    }
    for (; k > 0; --k, x += step) single<T>::run(f1, x);
}

}  // namespace

template <class T, class A> void scal(const int* pn, const A* alpha, T* x, const int* pincx) {
    const int n = *pn;
    if (n <= 0) return;
    const int incx = *pincx;
    constexpr bool cplx = __is_same(T, c32) || __is_same(T, c64);
    if constexpr (!cplx || __is_same(T, A)) {
        // |incx| = 1 is the unit path of the complex types; the real ones
        // take it for incx = 1 only.
        if (incx == 1 || (cplx && incx == -1)) {
            scal_unit(n, *alpha, x);
            return;
        }
        scal_strided(n, *alpha, x, incx < 0 ? -incx : incx);
    } else {
        // Real alpha on a complex vector: the real kernel on 2n parts at
        // unit stride; otherwise both parts of each element, 2 a pass.
        if (incx == 1 && n <= INT_MAX / 2) {
            const int n2 = 2 * n, one = 1;
            scal<A, A>(&n2, alpha, &x->re, &one);
            return;
        }
        const A a = *alpha;
        const int step = incx < 0 ? -incx : incx;
        int k = n;
        for (; k >= 2; k -= 2, x += 2 * step) {
            x->re = x->re * a;
            x->im = x->im * a;
            x[step].re = x[step].re * a;
            x[step].im = x[step].im * a;
        }
        if (k) x->re = x->re * a, x->im = x->im * a;
    }
}

template decltype(scal<float, float>) scal<float, float>;
template decltype(scal<double, double>) scal<double, double>;
template decltype(scal<c32, c32>) scal<c32, c32>;
template decltype(scal<c64, c64>) scal<c64, c64>;
template decltype(scal<c32, float>) scal<c32, float>;
template decltype(scal<c64, double>) scal<c64, double>;

}  // namespace zva::ZVA_NS
