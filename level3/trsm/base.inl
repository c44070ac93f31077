// The smallest blocks of TRSM, alpha already applied.
//
// Column sweep (D and S, side "R", up to 64 columns by 256 rows): one column
// of B at a time in the order of the substitution, two columns of B per pass
// over the rows: 16 rows a pass on the branch's widest lanes (after a peel to
// their boundary), then 4, then one. Non-unit diagonals multiply by a
// reciprocal. Branch 7 subtracts by fused multiply-add (of the negated
// coefficient, which is the same rounding as a fused negative one).
//
// Four-row blocks (S, C and Z, up to 64 triangle rows): the triangle rows go
// in blocks of four in the order of the substitution, then a rest (S: up to
// three rows at once; C and Z: two, then one). For a block, the reciprocals
// of its diagonal are made first; then for each vector of the free dimension
// (columns of B on the left, gathered; rows on the right) four accumulators
// take the sums over the rows already solved, and the 4x4 triangle is solved
// by multiplying with the reciprocals. A complex product is two multiply-adds
// on broadcast real and imaginary parts of A; a conjugated A only changes the
// sign pattern of the second one.
#include <immintrin.h>

#include <type_traits>

#include "frame/scalar.h"
#include "level3/trsm/trsm.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

// a - b on any lane register.
inline __m128 vsub(__m128 a, __m128 b) { return _mm_sub_ps(a, b); }
inline __m128d vsub(__m128d a, __m128d b) { return _mm_sub_pd(a, b); }
#if ZVA_BRANCH >= 6
inline __m256 vsub(__m256 a, __m256 b) { return _mm256_sub_ps(a, b); }
inline __m256d vsub(__m256d a, __m256d b) { return _mm256_sub_pd(a, b); }
#endif

// Four floats with the multiply-add of the branch, for the 4-row passes of
// S where the wide lanes hold eight.
struct S4 : simd::F128 {
    static v madd(v s, v a, v b) {
        if constexpr (branch == 7) return _mm_fmadd_ps(a, b, s);
        else return simd::F128::madd(s, a, b);
    }
};

// Rows [0, m) of a column pass: body<L>(i) handles the L::W rows from i. The
// peel puts the widest vectors on their boundary in ref.
template <class T, class Body>
[[gnu::always_inline]] inline void rows_pass(int m, const T* ref, Body body) {
    using LV = lanev<T>;
    using L4 = std::conditional_t<(LV::W > 4), S4, LV>;
    using L1 = lane1<T>;
    int i = 0;
    if (m >= 16) {
        const unsigned off = (unsigned)-addr_bits(ref) & (sizeof(typename LV::v) - 1);
        const int peel = off % sizeof(T) ? 0 : (int)(off / sizeof(T));
        for (; i < peel; ++i) body.template operator()<L1>(i);
    }
    for (; i + 16 <= m; i += 16) {
#pragma GCC unroll 8
        for (int u = 0; u < 16; u += LV::W) body.template operator()<LV>(i + u);
    }
    for (; i + 4 <= m; i += 4) {
#pragma GCC unroll 4
        for (int u = 0; u < 4; u += L4::W) body.template operator()<L4>(i + u);
    }
    for (; i < m; ++i) body.template operator()<L1>(i);
}

// d *= r over m rows.
template <class T> void scale_col(int m, T* d, T r) {
    rows_pass(m, d, [&]<class L>(int i) { L::store(d + i, L::mul(L::load(d + i), L::set1(r))); });
}

}  // namespace

// B(m x n) * inv(op(A)), n <= 64. Without transposition column j is formed
// from the columns already solved (the coefficients of column j of A) and
// multiplied by the reciprocal last; with it, column j is multiplied first
// and the later columns lose their part of it (again column j of A).
template <class T>
void trsm_sweep(const trsm_case& c, int m, int n, const T* a, int lda, T* b, int ldb) {
    auto col = [&](int j) { return b + (long)j * ldb; };
    auto coef = [&](int k, int j) { return -a[k + (long)j * lda]; };
    for (int s = 0; s < n; ++s) {
        const int j = c.forward ? s : n - 1 - s;
        T* bj = col(j);
        const T r = c.unit ? T(1) : T(1) / a[j + (long)j * lda];
        if (!c.trans) {
            // columns already solved: before j going forward, after it going back
            const int k0 = c.forward ? 0 : j + 1, k1 = c.forward ? j : n;
            int k = k0;
            for (; k + 2 <= k1; k += 2) {
                const T c0 = coef(k, j), c1 = coef(k + 1, j);
                const T *x0 = col(k), *x1 = col(k + 1);
                rows_pass(m, bj, [&]<class L>(int i) {
                    typename L::v y = L::madd(L::load(bj + i), L::set1(c0), L::load(x0 + i));
                    L::store(bj + i, L::madd(y, L::set1(c1), L::load(x1 + i)));
                });
            }
            if (k < k1) {
                const T c0 = coef(k, j);
                const T* x0 = col(k);
                rows_pass(m, bj, [&]<class L>(int i) {
                    L::store(bj + i, L::madd(L::load(bj + i), L::set1(c0), L::load(x0 + i)));
                });
            }
            if (!c.unit) scale_col(m, bj, r);
        } else {
            if (!c.unit) scale_col(m, bj, r);
            // columns still to come: after j going forward, before it going back
            const int k0 = c.forward ? j + 1 : 0, k1 = c.forward ? n : j;
            int k = k0;
            for (; k + 2 <= k1; k += 2) {
                const T c0 = coef(k, j), c1 = coef(k + 1, j);
                T *d0 = col(k), *d1 = col(k + 1);
                rows_pass(m, d1, [&]<class L>(int i) {
                    const typename L::v x = L::load(bj + i);
                    L::store(d0 + i, L::madd(L::load(d0 + i), L::set1(c0), x));
                    L::store(d1 + i, L::madd(L::load(d1 + i), L::set1(c1), x));
                });
            }
            if (k < k1) {
                const T c0 = coef(k, j);
                T* d0 = col(k);
                rows_pass(m, d0, [&]<class L>(int i) {
                    L::store(d0 + i, L::madd(L::load(d0 + i), L::set1(c0), L::load(bj + i)));
                });
            }
        }
    }
}
template decltype(trsm_sweep<float>) trsm_sweep<float>;
template decltype(trsm_sweep<double>) trsm_sweep<double>;

namespace {

// What a four-row block knows of its call. B(t, f) is b[t*ts + f*fs] for
// triangle index t and free index f; the coefficient of x_k in row t is
// A[t*st + k*sk], conjugated when conj.
template <class T> struct rows_view {
    const T* a;
    long st, sk;
    T* b;
    long ts, fs;
    bool conj;
};

template <class T> inline T reciprocal(T d, bool) { return T(1) / d; }
// 1/(x + iy) as the plain quotient of (1, 0) by it, without scaling; single
// precision works in double and rounds at the end.
template <class C> inline C complex_reciprocal(C d, bool conj) {
    const double x = d.re, y = conj ? -(double)d.im : (double)d.im;
    const double q = x * x + y * y;
    return {(decltype(d.re))((1 * x + 0 * y) / q), (decltype(d.re))((0 * x - 1 * y) / q)};
}
inline c32 reciprocal(c32 d, bool conj) { return complex_reciprocal(d, conj); }
inline c64 reciprocal(c64 d, bool conj) { return complex_reciprocal(d, conj); }

// W consecutive free indices of row t: in place on the right, gathered from W
// columns on the left.
template <class L> inline typename L::v get(const typename L::T* p, long fs) {
    return fs == 1 ? L::load(p) : L::gather(p, (int)fs);
}
template <class L> inline void put(typename L::T* p, long fs, typename L::v x) {
    if (fs == 1 || L::W == 1) {
        L::store(p, x);
    } else {
        alignas(32) typename L::T lanes_of[L::W];
        L::store(lanes_of, x);
        for (int w = 0; w < L::W; ++w) p[w * fs] = lanes_of[w];
    }
}

// s + e*x for an element e of A (broadcast) and lanes x; xs is x with its
// parts swapped and signed for the imaginary part of e.
template <class L>
[[gnu::always_inline]] inline typename L::v times_add(typename L::v s, const typename L::T* e,
                                                       typename L::v x, typename L::v xs) {
    if constexpr (L::cplx) return L::madd(L::madd(s, L::bre(e), x), L::bim(e), xs);
    else return L::madd(s, L::bcast(e), x);
}
// e*x alone.
template <class L>
[[gnu::always_inline]] inline typename L::v times(const typename L::T* e, typename L::v x,
                                                  typename L::v xs) {
    if constexpr (L::cplx) return L::add(L::mul(L::bre(e), x), L::mul(L::bim(e), xs));
    else return L::mul(L::bcast(e), x);
}
// x with its parts swapped and the sign pattern for e*x: (-xi, xr), or for a
// conjugated e (xi, -xr).
template <class L> inline typename L::v partner(typename L::v x, typename L::v mask) {
    if constexpr (L::cplx) return L::flip(L::swp(x), mask);
    else return x;
}
template <class L> inline typename L::v partner_mask(bool conj) {
    using R = typename L::R;
    if constexpr (L::cplx) return conj ? L::pair(R(0), -R(0)) : L::pair(-R(0), R(0));
    else return L::zero();
}

// The largest triangle that reaches the four-row blocks: S's second level.
constexpr int max_rows = 64;

// One block of NB triangle rows t[0..NB) (in the order of the substitution)
// for the W free indices from f: the sums over the nk solved rows from k0,
// whose coefficients cf holds k by k, then the NB x NB triangle.
template <class L, int NB>
[[gnu::always_inline]] inline void rows_block(const rows_view<typename L::T>& v, const int* t,
                                              const typename L::T* rcp,
                                              const typename L::T* cf, int k0, int nk, int f,
                                              bool unit, typename L::v mask) {
    using V = typename L::v;
    V acc[NB];
#pragma GCC unroll 4
    for (int r = 0; r < NB; ++r) acc[r] = L::zero();
    typename L::T* bf = v.b + f * v.fs;
    const typename L::T* xk = bf + k0 * v.ts;
    for (int k = 0; k < nk; ++k, xk += v.ts, cf += NB) {
        const V x = get<L>(xk, v.fs), xs = partner<L>(x, mask);
#pragma GCC unroll 4
        for (int r = 0; r < NB; ++r) acc[r] = times_add<L>(acc[r], cf + r, x, xs);
    }
#pragma GCC unroll 4
    for (int r = 0; r < NB; ++r) acc[r] = vsub(get<L>(bf + t[r] * v.ts, v.fs), acc[r]);
#pragma GCC unroll 4
    for (int r = 0; r < NB; ++r) {
        if (!unit) acc[r] = times<L>(rcp + r, acc[r], partner<L>(acc[r], partner_mask<L>(false)));
        const V xs = partner<L>(acc[r], mask);
#pragma GCC unroll 4
        for (int q = r + 1; q < NB; ++q)
            acc[q] = vsub(acc[q], times<L>(v.a + t[q] * v.st + t[r] * v.sk, acc[r], xs));
    }
#pragma GCC unroll 4
    for (int r = 0; r < NB; ++r) put<L>(bf + t[r] * v.ts, v.fs, acc[r]);
}

// NB triangle rows from p on (going down from p when backward) over all of
// the free dimension, W at a time and then one. The rows' coefficients of
// the solved part are copied once, side by side, so that the inner loop
// walks one pointer.
template <class T, int NB>
void rows_of_block(const rows_view<T>& v, int p, bool forward, int tdim, int fdim, bool unit) {
    using LV = lanev<T>;
    using L1 = lane1<T>;
    int t[NB];
    for (int r = 0; r < NB; ++r) t[r] = forward ? p + r : p - r;
    // conjugated reciprocals where op(A) conjugates
    T rcp[NB] = {};
    if (!unit)
        for (int r = 0; r < NB; ++r) rcp[r] = reciprocal(v.a[t[r] * (v.st + v.sk)], v.conj);
    const int k0 = forward ? 0 : p + 1, nk = forward ? p : tdim - p - 1;
    alignas(16) T cf[NB * max_rows];
    for (int k = 0; k < nk; ++k)
        for (int r = 0; r < NB; ++r) cf[k * NB + r] = v.a[t[r] * v.st + (k0 + k) * v.sk];
    const typename LV::v mv = partner_mask<LV>(v.conj);
    const typename L1::v m1 = partner_mask<L1>(v.conj);
    int f = 0;
    for (; f + LV::W <= fdim; f += LV::W) rows_block<LV, NB>(v, t, rcp, cf, k0, nk, f, unit, mv);
    for (; f < fdim; ++f) rows_block<L1, NB>(v, t, rcp, cf, k0, nk, f, unit, m1);
}

}  // namespace

// Four triangle rows at a time, then the rest: S takes up to three at once, C
// and Z two and one. At most max_rows triangle rows.
template <class T>
void trsm_rows4(const trsm_case& c, int m, int n, const T* a, int lda, T* b, int ldb) {
    const int tdim = c.left ? m : n, fdim = c.left ? n : m;
    rows_view<T> v;
    v.a = a;
    v.st = c.left != c.trans ? 1 : lda;
    v.sk = c.left != c.trans ? lda : 1;
    v.b = b;
    v.ts = c.left ? 1 : ldb;
    v.fs = c.left ? ldb : 1;
    v.conj = c.conj;
    constexpr bool cplx = sizeof(T) != sizeof(R_<T>);
    int done = 0;
    auto next = [&] { return c.forward ? done : tdim - 1 - done; };
    for (; done + 4 <= tdim; done += 4) rows_of_block<T, 4>(v, next(), c.forward, tdim, fdim, c.unit);
    const int rest = tdim - done;
    if (!cplx && rest == 3) {
        rows_of_block<T, 3>(v, next(), c.forward, tdim, fdim, c.unit);
        return;
    }
    if (rest >= 2) {
        rows_of_block<T, 2>(v, next(), c.forward, tdim, fdim, c.unit);
        done += 2;
    }
    if (tdim - done == 1) rows_of_block<T, 1>(v, next(), c.forward, tdim, fdim, c.unit);
}
template decltype(trsm_rows4<float>) trsm_rows4<float>;
template decltype(trsm_rows4<c32>) trsm_rows4<c32>;
template decltype(trsm_rows4<c64>) trsm_rows4<c64>;

}  // namespace zva::ZVA_NS
