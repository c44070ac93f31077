// Row walks of the level-2 kernels that update or dot a few columns at a
// time (the triangles of TRMV and TRSV, the rank-one updates), over the lane
// kinds of the branch: lanev<T> for the passes, lane1<T> for the single rows.
//
// A walk over m rows: below one pass of its first width every row goes
// singly; otherwise single rows up to the vector boundary of the branch (16
// bytes, 32 on the AVX branches) of the address it aligns on, then passes
// of U vectors, then passes of the narrower kind Tl (none where Tl is void),
// then single rows. An address off the element grid never aligns: all rows
// then go singly.
//
//   update  dst[i] += src_0[i]*f_0 + ... + src_{NC-1}[i]*f_{NC-1}: each row
//           a chain in column order, fused in branch 7, so the peel and the
//           pass widths change no bit of the result
//   dot     out_k = sum of a_k[i]*x[i] (conj(a_k) with CJ): a scalar sum over
//           the peel rows, then the vector accumulators (started at 0) of
//           the passes, folded upper 128 bits onto the lower and then the
//           lanes onto the first, then the narrower pass folded alike, then
//           the tail rows; multiply and add are separate here in every
//           branch (a complex product is one step, fused in branch 7)
//
// Included only by branch code.
#pragma once
#include <type_traits>

#include "frame/scalar.h"
#include "simd/branch.h"
#include "simd/cplx.h"

#define L2_INLINE inline __attribute__((always_inline))
#define L2_LAMBDA_INLINE __attribute__((always_inline))

namespace zva::ZVA_NS {
namespace {

template <class L> using reg = typename L::v;

constexpr unsigned vec_bytes = branch >= 6 ? 32 : 16;

// The 128-bit kind of the AVX branches, for the narrower passes of branch 7.
template <class T> struct half_of { using type = void; };
#if ZVA_BRANCH >= 6
template <> struct half_of<float> { using type = simd::F128; };
template <> struct half_of<double> { using type = simd::D128; };
template <> struct half_of<c32> { using type = simd::C128; };
#endif
template <class T> using half_lane = typename half_of<T>::type;
// Branch 7 only: the narrower pass of a walk, else none.
template <class L> using tail7 = std::conditional_t<branch == 7, L, void>;

// ---- scalars --------------------------------------------------------------

template <class T> L2_INLINE T sc_add(T a, T b) {
    if constexpr (requires { a.re; }) return {a.re + b.re, a.im + b.im};
    else return a + b;
}
template <class T> L2_INLINE T sc_sub(T a, T b) {
    if constexpr (requires { a.re; }) return {a.re - b.re, a.im - b.im};
    else return a - b;
}
template <class T> L2_INLINE T sc_mul(T a, T b) {
    if constexpr (requires { a.re; }) return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
    else return a * b;
}
template <class T> L2_INLINE T sc_neg(T a) {
    if constexpr (requires { a.re; }) return {-a.re, -a.im};
    else return -a;
}
template <class T> L2_INLINE T sc_conj(T a, bool cj) {
    if constexpr (requires { a.re; }) return cj ? T{a.re, -a.im} : a;
    else return a;
}
// x / a; complex by Smith's scaling, which keeps |a|^2 from overflowing.
template <class T> T sc_div(T x, T a) {
    if constexpr (requires { a.re; }) {
        auto ar = a.re, ai = a.im;
        if ((ai < 0 ? -ai : ai) <= (ar < 0 ? -ar : ar)) {
            auto r = ai / ar, d = ar + ai * r;
            return {(x.re + x.im * r) / d, (x.im - x.re * r) / d};
        }
        auto r = ar / ai, d = ai + ar * r;
        return {(x.re * r + x.im) / d, (x.im * r - x.re) / d};
    } else {
        return x / a;
    }
}

// ---- registers --------------------------------------------------------------

// A column factor over the lanes of L: real, or real and imaginary part.
template <class L> struct fac { reg<L> r, i; };
template <class L> L2_INLINE fac<L> fac_of(const typename L::T& t) {
    if constexpr (L::cplx) return {L::set1(t.re), L::set1(t.im)};
    else return {L::set1(t), L::set1(t)};
}
// a*f, and s + a*f (one fused step for the reals of branch 7).
template <class L> L2_INLINE reg<L> mul_f(reg<L> a, const fac<L>& f) {
    if constexpr (L::cplx) return simd::cmul(a, f.r, f.i);
    else return L::mul(a, f.r);
}
template <class L> L2_INLINE reg<L> upd(reg<L> s, reg<L> a, const fac<L>& f) {
    if constexpr (L::cplx) return L::add(s, simd::cmul(a, f.r, f.i));
    else return L::madd(s, a, f.r);
}
// Imaginary parts negated where cj is set.
template <class L> L2_INLINE reg<L> conj_if(reg<L> a, bool cj) {
    if constexpr (L::cplx) {
        using R = typename L::R;
        return cj ? L::flip(a, L::pair(R(0), -R(0))) : a;
    } else {
        return a;
    }
}

// The lanes of v added: the upper 128 bits onto the lower, then the lanes
// onto the first, in order.
template <class L> typename L::T fold(reg<L> v) {
    using T = typename L::T;
    alignas(32) T t[L::W];
    L::store(t, v);
    int w = L::W;
    if (sizeof(reg<L>) == 32) {
        w /= 2;
        for (int k = 0; k < w; ++k) t[k] = sc_add(t[k], t[k + w]);
    }
    T s = t[0];
    for (int k = 1; k < w; ++k) s = sc_add(s, t[k]);
    return s;
}

// ---- operands ---------------------------------------------------------------

// Element i of a vector: contiguous (Unit) or inc apart, read into a lane
// kind (W elements from i) or stored from one.
template <class T, bool Unit> struct vec {
    T* p;
    int inc;
    L2_INLINE T* at(int i) const { return Unit ? p + i : p + (long)i * inc; }
    template <class L> L2_INLINE reg<L> get(int i) const {
        if constexpr (Unit || L::W == 1) return L::load(at(i));
        else return L::gather(at(i), inc);
    }
};
template <class T, bool Unit> L2_INLINE vec<T, Unit> vec_of(T* p, int inc) { return {p, inc}; }

// Rows to do singly before the passes: all of them below one pass of
// `first` rows or where p never aligns.
template <class T> L2_INLINE int peel_rows(const T* p, int m, int first) {
    if (m < first) return m;
    const int e = peel_to(p, vec_bytes, sizeof(T));
    return e < 0 ? m : e < m ? e : m;
}

// ---- update form ------------------------------------------------------------

// dst[i] += sum over k of src[k][i]*f[k] for i in [0, m); dst contiguous
// (peeled to its boundary) or strided (every row singly).
template <int NC, int U, class Tl, class T, bool DU, class Src>
void upd_rows(int m, vec<T, DU> dst, const Src* src, const T* f) {
    using V = lanev<T>;
    using S = lane1<T>;
    constexpr int W = V::W;
    int i = 0;
    const int pe = DU ? peel_rows(dst.p, m, U * W) : m;
    auto one = [&](auto lane, int r) L2_LAMBDA_INLINE {
        using K = decltype(lane);
        reg<K> s = dst.template get<K>(r);
        #pragma GCC unroll 4
        for (int k = 0; k < NC; ++k) s = upd<K>(s, src[k].template get<K>(r), fac_of<K>(f[k]));
        K::store(dst.at(r), s);
    };
    for (; i < pe; ++i) one(S{}, i);
    if constexpr (DU) {
        for (; i + U * W <= m; i += U * W) {
            reg<V> s[U];
            #pragma GCC unroll 4
            for (int u = 0; u < U; ++u) s[u] = V::load(dst.p + i + u * W);
            #pragma GCC unroll 4
            for (int k = 0; k < NC; ++k) {
                const fac<V> fk = fac_of<V>(f[k]);
                #pragma GCC unroll 4
                for (int u = 0; u < U; ++u) s[u] = upd<V>(s[u], src[k].template get<V>(i + u * W), fk);
            }
            #pragma GCC unroll 4
            for (int u = 0; u < U; ++u) V::store(dst.p + i + u * W, s[u]);
        }
        if constexpr (!std::is_void_v<Tl>)
            for (; i + Tl::W <= m; i += Tl::W) one(Tl{}, i);
    }
    for (; i < m; ++i) one(S{}, i);
}

// ---- dot form ---------------------------------------------------------------

// out[k] = sum over i in [0, m) of a_k[i]*x[i], with a_k = a + k*lda, conj(a_k)
// with cj. The peel aligns the last column.
template <int NC, int U, class Tl, class T, class X>
void dot_rows(int m, const T* a, int lda, const X& x, bool cj, T* out) {
    using V = lanev<T>;
    using S = lane1<T>;
    constexpr int W = V::W;
    // Complex: the sum of a*conj(x) is conj of the sum of conj(a)*x, so the
    // sign goes on x once a row, not on every column.
    auto step = [&](auto lane, reg<decltype(lane)>* c, int r) L2_LAMBDA_INLINE {
        using K = decltype(lane);
        const reg<K> xv = x.template get<K>(r);
        if constexpr (K::cplx) {
            const reg<K> xr = simd::dre(xv), xi = cj ? simd::neg(simd::dim(xv)) : simd::dim(xv);
            #pragma GCC unroll 4
            for (int k = 0; k < NC; ++k) c[k] = K::add(c[k], simd::cmul(K::load(a + k * lda + r), xr, xi));
        } else {
            #pragma GCC unroll 4
            for (int k = 0; k < NC; ++k) c[k] = K::add(c[k], K::mul(K::load(a + k * lda + r), xv));
        }
    };
    auto result = [&](T s) L2_LAMBDA_INLINE { return sc_conj(s, cj); };
    T sum[NC];
    int i = 0;
    const int pe = peel_rows(a + (NC - 1) * lda, m, U * W);
    reg<S> cs[NC];
    #pragma GCC unroll 4
    for (int k = 0; k < NC; ++k) cs[k] = S::zero();
    for (; i < pe; ++i) step(S{}, cs, i);
    #pragma GCC unroll 4
    for (int k = 0; k < NC; ++k) S::store(sum + k, cs[k]);
    if (i + U * W <= m) {
        reg<V> c[U][NC];
        #pragma GCC unroll 4
        for (int u = 0; u < U; ++u)
            #pragma GCC unroll 4
            for (int k = 0; k < NC; ++k) c[u][k] = V::zero();
        for (; i + U * W <= m; i += U * W)
            #pragma GCC unroll 4
            for (int u = 0; u < U; ++u) step(V{}, c[u], i + u * W);
        if constexpr (std::is_same_v<Tl, V>)
            for (; i + W <= m; i += W) step(V{}, c[0], i);
        #pragma GCC unroll 4
        for (int k = 0; k < NC; ++k) {
            reg<V> t = c[0][k];
            if constexpr (U == 2) t = V::add(t, c[1][k]);
            if constexpr (U == 4) t = V::add(V::add(t, c[1][k]), V::add(c[2][k], c[3][k]));
            sum[k] = sc_add(sum[k], fold<V>(t));
        }
    }
    if constexpr (!std::is_void_v<Tl> && !std::is_same_v<Tl, V>) {
        if (i + Tl::W <= m) {
            reg<Tl> h[NC];
            #pragma GCC unroll 4
            for (int k = 0; k < NC; ++k) h[k] = Tl::zero();
            for (; i + Tl::W <= m; i += Tl::W) step(Tl{}, h, i);
            #pragma GCC unroll 4
            for (int k = 0; k < NC; ++k) sum[k] = sc_add(sum[k], fold<Tl>(h[k]));
        }
    }
    #pragma GCC unroll 4
    for (int k = 0; k < NC; ++k) cs[k] = S::zero();
    for (; i < m; ++i) step(S{}, cs, i);
    #pragma GCC unroll 4
    for (int k = 0; k < NC; ++k) {
        T t;
        S::store(&t, cs[k]);
        out[k] = result(sc_add(sum[k], t));
    }
}

}  // namespace
}  // namespace zva::ZVA_NS
