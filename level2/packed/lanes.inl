// The register layer of the packed family (SPMV, HPMV, SPR, HPR, SPR2, HPR2,
// TPMV, TPSV), included by its three recipes inside a branch namespace.
//
// Every value lives in one full register of the branch, V<T>: 256 bits on
// branches 6 and 7, 128 bits on 2 to 5. A pass of N rows (N below the
// register width: a half, a quarter, one element) loads into the low lanes
// and zeroes the rest, so one text serves the whole vectors, the half
// vectors and the single rows, and a row's arithmetic does not depend on the
// pass that took it. The zero lanes carry 0 * 0 and are never stored.
//
// What differs between branches, all in this file:
//   madd, nmadd   s + a*b and s - a*b: one fused step on branch 7, a rounded
//                 product and an add elsewhere
//   cmul          a*(fr + i fi): fmaddsub on 7, addsub on 3 to 6, a sign
//                 mask and an add on 2 (no SSE3 there); the results agree
//                 bit for bit on 2 to 6
//   dre, dim      real or imaginary part over the pair: movsldup/movddup
//                 from SSE3 on, shuffles on 2
//   gathers       element loads joined in registers
// Register budget: eight vector registers in 32-bit code; column factors
// that do not fit next to the accumulators are kept on the stack and enter
// as memory operands.
#include <immintrin.h>

#include <type_traits>
#include <utility>

#include "frame/scalar.h"
#include "level1/kernels.h"
#include "level2/kernels.h"
#include "simd/branch.h"

#define PK_ZI inline __attribute__((always_inline))
#define PK_ZL __attribute__((always_inline))

namespace zva::ZVA_NS {
namespace {

#if ZVA_BRANCH >= 6
using vs = __m256;
using vd = __m256d;
#else
using vs = __m128;
using vd = __m128d;
#endif
constexpr int vbytes = sizeof(vs);

template <class T> struct reg_of { using type = vs; };
template <> struct reg_of<double> { using type = vd; };
template <> struct reg_of<c64> { using type = vd; };
template <class T> using V = typename reg_of<T>::type;
template <class T> constexpr int W = vbytes / static_cast<int>(sizeof(T));
template <class T> constexpr bool cplx = sizeof(T) == 2 * sizeof(R_<T>);

template <int N> using cnt = std::integral_constant<int, N>;

// f(cnt<0>), ..., f(cnt<N-1>): indices that are constants, so that small
// arrays of registers indexed by them stay in registers.
template <int N, class F>
PK_ZI void each(F&& f) {
    [&]<int... k>(std::integer_sequence<int, k...>) PK_ZL { (f(cnt<k>{}), ...); }(
        std::make_integer_sequence<int, N>{});
}

// ---- raw moves: B bytes into the low bytes of a register, the rest zero ----

template <int B>
PK_ZI __m128 ld16(const void* p) {
    if constexpr (B == 4) return _mm_load_ss(static_cast<const float*>(p));
    else if constexpr (B == 8) return _mm_castsi128_ps(_mm_loadl_epi64(static_cast<const __m128i*>(p)));
    else return _mm_loadu_ps(static_cast<const float*>(p));
}
template <int B>
PK_ZI void st16(void* p, __m128 v) {
    if constexpr (B == 4) _mm_store_ss(static_cast<float*>(p), v);
    else if constexpr (B == 8) _mm_storel_epi64(static_cast<__m128i*>(p), _mm_castps_si128(v));
    else _mm_storeu_ps(static_cast<float*>(p), v);
}

#if ZVA_BRANCH >= 6
PK_ZI vs widen(__m128 v) { return _mm256_zextps128_ps256(v); }
PK_ZI __m128 low(vs v) { return _mm256_castps256_ps128(v); }
PK_ZI vs bits(vs v) { return v; }
PK_ZI vs bits(vd v) { return _mm256_castpd_ps(v); }
template <class T> PK_ZI V<T> as(vs v) {
    if constexpr (__is_same(V<T>, vd)) return _mm256_castps_pd(v);
    else return v;
}
#else
PK_ZI vs widen(__m128 v) { return v; }
PK_ZI __m128 low(vs v) { return v; }
PK_ZI vs bits(vs v) { return v; }
PK_ZI vs bits(vd v) { return _mm_castpd_ps(v); }
template <class T> PK_ZI V<T> as(vs v) {
    if constexpr (__is_same(V<T>, vd)) return _mm_castps_pd(v);
    else return v;
}
#endif

// B bytes of elements s apart (s counts elements of T), joined pairwise.
template <int B, class T>
PK_ZI __m128 gat16(const T* p, int s) {
    if constexpr (B == sizeof(T)) {
        return ld16<B>(p);
    } else {
        constexpr int h = B / 2 / sizeof(T);
        const __m128 lo = gat16<B / 2>(p, s), hi = gat16<B / 2>(p + h * s, s);
        if constexpr (B == 8) return _mm_unpacklo_ps(lo, hi);
        else return _mm_movelh_ps(lo, hi);
    }
}
template <int B, class T>
PK_ZI void sca16(T* p, int s, __m128 v) {
    if constexpr (B == sizeof(T)) {
        st16<B>(p, v);
    } else {
        constexpr int h = B / 2 / sizeof(T);
        sca16<B / 2>(p, s, v);
        sca16<B / 2>(p + h * s, s, B == 8 ? _mm_shuffle_ps(v, v, 1) : _mm_movehl_ps(v, v));
    }
}

// N elements of T into the low lanes of V<T>: consecutive (ld, st) or s
// elements apart (ldg, stg).
template <int N, class T>
PK_ZI V<T> ld(const T* p) {
    constexpr int B = N * sizeof(T);
#if ZVA_BRANCH >= 6
    if constexpr (B == 32) return as<T>(_mm256_loadu_ps(reinterpret_cast<const float*>(p)));
    else
#endif
        return as<T>(widen(ld16<B>(p)));
}
template <int N, class T>
PK_ZI void st(T* p, V<T> v) {
    constexpr int B = N * sizeof(T);
#if ZVA_BRANCH >= 6
    if constexpr (B == 32) _mm256_storeu_ps(reinterpret_cast<float*>(p), bits(v));
    else
#endif
        st16<B>(p, low(bits(v)));
}
template <int N, class T>
PK_ZI V<T> ldg(const T* p, int s) {
    constexpr int B = N * sizeof(T);
#if ZVA_BRANCH >= 6
    if constexpr (B == 32) {
        return as<T>(_mm256_insertf128_ps(widen(gat16<16>(p, s)), gat16<16>(p + 16 / sizeof(T) * s, s), 1));
    } else
#endif
    {
        return as<T>(widen(gat16<B>(p, s)));
    }
}
template <int N, class T>
PK_ZI void stg(T* p, int s, V<T> v) {
    constexpr int B = N * sizeof(T);
#if ZVA_BRANCH >= 6
    if constexpr (B == 32) {
        sca16<16>(p, s, _mm256_castps256_ps128(bits(v)));
        sca16<16>(p + 16 / sizeof(T) * s, s, _mm256_extractf128_ps(bits(v), 1));
        return;
    }
#endif
    sca16<B>(p, s, low(bits(v)));
}

// A vector of the BLAS: element i at p[i] (Unit) or p[i*s], p already moved
// to the first logical element by the start rule.
template <class T, bool Unit>
struct vec {
    T* p;
    int s;
    PK_ZI T& operator[](int i) const { return Unit ? p[i] : p[i * s]; }
    // The address to align a walk on, or none.
    PK_ZI const T* align_at(int i) const { return Unit ? p + i : nullptr; }
};
template <class T, bool Unit>
vec<T, Unit> vec_at(const T* p, int n, int inc) {
    // Inputs are only read through this; outputs come in as T* anyway.
    T* q = const_cast<T*>(p);
    return {Unit ? q : q + vec_start(n, inc), inc};
}
template <int N, class T, bool U>
PK_ZI V<T> ldv(const vec<T, U>& x, int i) {
    if constexpr (U) return ld<N>(x.p + i);
    else return ldg<N>(x.p + i * x.s, x.s);
}
template <int N, class T, bool U>
PK_ZI void stv(const vec<T, U>& x, int i, V<T> v) {
    if constexpr (U) st<N>(x.p + i, v);
    else stg<N>(x.p + i * x.s, x.s, v);
}

// ---- arithmetic, overloaded on the register ---------------------------------

#if ZVA_BRANCH >= 6
#define PK_OP2(name, op)                                                           \
    PK_ZI vs name(vs a, vs b) { return _mm256_##op##_ps(a, b); }                   \
    PK_ZI vd name(vd a, vd b) { return _mm256_##op##_pd(a, b); }
template <class T> PK_ZI V<T> splat(R_<T> x) {
    if constexpr (__is_same(V<T>, vd)) return _mm256_set1_pd(x);
    else return _mm256_set1_ps(x);
}
template <class T> PK_ZI V<T> zero() { return as<T>(_mm256_setzero_ps()); }
PK_ZI vs swp(vs a) { return _mm256_permute_ps(a, 0xB1); }
PK_ZI vd swp(vd a) { return _mm256_permute_pd(a, 5); }
PK_ZI vs dre(vs a) { return _mm256_moveldup_ps(a); }
PK_ZI vs dim(vs a) { return _mm256_movehdup_ps(a); }
PK_ZI vd dre(vd a) { return _mm256_movedup_pd(a); }
PK_ZI vd dim(vd a) { return _mm256_permute_pd(a, 15); }
#else
#define PK_OP2(name, op)                                                           \
    PK_ZI vs name(vs a, vs b) { return _mm_##op##_ps(a, b); }                      \
    PK_ZI vd name(vd a, vd b) { return _mm_##op##_pd(a, b); }
template <class T> PK_ZI V<T> splat(R_<T> x) {
    if constexpr (__is_same(V<T>, vd)) return _mm_set1_pd(x);
    else return _mm_set1_ps(x);
}
template <class T> PK_ZI V<T> zero() { return as<T>(_mm_setzero_ps()); }
PK_ZI vs swp(vs a) { return _mm_shuffle_ps(a, a, 0xB1); }
PK_ZI vd swp(vd a) { return _mm_shuffle_pd(a, a, 1); }
#if ZVA_BRANCH >= 3
PK_ZI vs dre(vs a) { return _mm_moveldup_ps(a); }
PK_ZI vs dim(vs a) { return _mm_movehdup_ps(a); }
PK_ZI vd dre(vd a) { return _mm_movedup_pd(a); }
#else
PK_ZI vs dre(vs a) { return _mm_shuffle_ps(a, a, 0xA0); }
PK_ZI vs dim(vs a) { return _mm_shuffle_ps(a, a, 0xF5); }
PK_ZI vd dre(vd a) { return _mm_unpacklo_pd(a, a); }
#endif
PK_ZI vd dim(vd a) { return _mm_unpackhi_pd(a, a); }
#endif
PK_OP2(add, add)
PK_OP2(sub, sub)
PK_OP2(mul, mul)
PK_OP2(vxor, xor)
#if ZVA_BRANCH >= 3
PK_OP2(addsub, addsub)
#endif
#undef PK_OP2

#if ZVA_BRANCH == 7
PK_ZI vs madd(vs s, vs a, vs b) { return _mm256_fmadd_ps(a, b, s); }
PK_ZI vd madd(vd s, vd a, vd b) { return _mm256_fmadd_pd(a, b, s); }
PK_ZI vs nmadd(vs s, vs a, vs b) { return _mm256_fnmadd_ps(a, b, s); }
PK_ZI vd nmadd(vd s, vd a, vd b) { return _mm256_fnmadd_pd(a, b, s); }
#else
template <class X> PK_ZI X madd(X s, X a, X b) { return add(s, mul(a, b)); }
template <class X> PK_ZI X nmadd(X s, X a, X b) { return sub(s, mul(a, b)); }
#endif

// An exact sign change of every lane.
template <class T> PK_ZI V<T> neg(V<T> a) { return vxor(a, splat<T>(-R_<T>(0))); }

// a*(fr + i*fi) on every pair, fr and fi the parts over each pair:
// (ar*fr - ai*fi, ai*fr + ar*fi).
template <class X>
PK_ZI X cmul(X a, X fr, X fi) {
#if ZVA_BRANCH == 7
    if constexpr (__is_same(X, vs)) return _mm256_fmaddsub_ps(a, fr, mul(swp(a), fi));
    else return _mm256_fmaddsub_pd(a, fr, mul(swp(a), fi));
#elif ZVA_BRANCH >= 3
    return addsub(mul(a, fr), mul(swp(a), fi));
#else
    X m;  // -0 in the real lanes: the subtraction as an exact sign change
    if constexpr (__is_same(X, vs)) m = _mm_setr_ps(-0.0f, 0.0f, -0.0f, 0.0f);
    else m = _mm_setr_pd(-0.0, 0.0);
    return add(mul(a, fr), vxor(mul(swp(a), fi), m));
#endif
}

// A scalar factor over a register: both parts broadcast (complex), or the
// value in every lane (real; i unused).
template <class T>
struct fac {
    V<T> r, i;
};
template <class T>
PK_ZI fac<T> fac_of(T t) {
    if constexpr (cplx<T>) return {splat<T>(t.re), splat<T>(t.im)};
    else return {splat<T>(t), splat<T>(t)};
}
// a*t.
template <class T>
PK_ZI V<T> times(V<T> a, const fac<T>& t) {
    if constexpr (cplx<T>) return cmul(a, t.r, t.i);
    else return mul(a, t.r);
}

// ---- sums across a register -------------------------------------------------

// The two 128-bit halves of v added (a 128-bit v as it is).
#if ZVA_BRANCH >= 6
PK_ZI __m128d halves(vd v) { return _mm_add_pd(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1)); }
PK_ZI __m128 halves(vs v) { return _mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1)); }
#else
PK_ZI __m128d halves(vd v) { return v; }
PK_ZI __m128 halves(vs v) { return v; }
#endif

// The lanes (real) or the pairs (complex) of v added, halves first.
template <class T>
PK_ZI T hsum(V<T> v) {
    T r;
    if constexpr (__is_same(V<T>, vd)) {
        const __m128d h = halves(v);
        if constexpr (cplx<T>) _mm_storeu_pd(&r.re, h);
        else r = _mm_cvtsd_f64(_mm_add_sd(h, _mm_unpackhi_pd(h, h)));
    } else {
        __m128 h = halves(v);
        h = _mm_add_ps(h, _mm_movehl_ps(h, h));
        if constexpr (cplx<T>) _mm_storel_pi(reinterpret_cast<__m64*>(&r), h);
        else r = _mm_cvtss_f32(_mm_add_ss(h, _mm_shuffle_ps(h, h, 1)));
    }
    return r;
}

// ---- scalars ----------------------------------------------------------------

template <class T> PK_ZI T s_mul(T a, T b) {
    if constexpr (cplx<T>) return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
    else return a * b;
}
template <class T> PK_ZI T s_add(T a, T b) {
    if constexpr (cplx<T>) return {a.re + b.re, a.im + b.im};
    else return a + b;
}
template <class T> PK_ZI T s_sub(T a, T b) {
    if constexpr (cplx<T>) return {a.re - b.re, a.im - b.im};
    else return a - b;
}
template <class T> PK_ZI T s_conj(T a) {
    if constexpr (cplx<T>) return {a.re, -a.im};
    else return a;
}
// The real part of a times a complex t, or the product of two reals.
template <class T> PK_ZI T s_rmul(R_<T> d, T t) {
    if constexpr (cplx<T>) return {d * t.re, d * t.im};
    else return d * t;
}
// The real part of a*b, as the reference forms it.
template <class T> PK_ZI R_<T> s_re_mul(T a, T b) {
    if constexpr (cplx<T>) return a.re * b.re - a.im * b.im;
    else return a * b;
}

// ---- row walks ----------------------------------------------------------------

// Rows a pass, largest first; every walk ends with single rows. A pass below
// the register width is one access of that many rows, a larger one several
// whole registers.
struct passes {
    int a, b, c;
    constexpr bool operator==(const passes&) const = default;
};

template <class T, int N, class F>
PK_ZI void one_pass(int& i, int end, F& f) {
    constexpr int A = N < W<T> ? N : W<T>;
    for (; end - i >= N; i += N)
        each<N / A>([&](auto u) PK_ZL { f(cnt<A>{}, i + u * A, u); });
}

// Rows [r0, r1): f(cnt<A>, row, cnt<u>) for each access of A rows, u its
// place in the pass. Where the walk stores at `at` (row r0) it first takes
// single rows up to a register boundary, if the array is element-aligned and
// the walk is long enough for the first pass.
template <class T, passes P, class F>
PK_ZI void walk(int r0, int r1, const T* at, F&& f) {
    int i = r0;
    if (at && r1 - r0 >= P.a) {
        const int pe = peel_to(at, vbytes, sizeof(T));
        if (pe > 0) {
            const int e = r0 + (pe < r1 - r0 ? pe : r1 - r0);
            one_pass<T, 1>(i, e, f);
        }
    }
    if constexpr (P.a > 1) one_pass<T, P.a>(i, r1, f);
    if constexpr (P.b > 1) one_pass<T, P.b>(i, r1, f);
    if constexpr (P.c > 1) one_pass<T, P.c>(i, r1, f);
    one_pass<T, 1>(i, r1, f);
}

// Only the first byte of a letter counts, in either case.
PK_ZI char letter(const char* c) { return static_cast<char>(*c & 0xDF); }

// Column j of a packed triangle, indexed by row: upper columns start at row
// 0, lower ones at row j; `col` is where the column's entries begin.
template <class T>
PK_ZI const T* by_row(const T* col, bool upper, int j) {
    return upper ? col : col - j;
}
// Entries of column j.
PK_ZI int col_len(bool upper, int n, int j) { return upper ? j + 1 : n - j; }

}  // namespace
}  // namespace zva::ZVA_NS
