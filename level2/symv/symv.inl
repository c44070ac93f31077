// SYMV (S, D) and HEMV (C, Z), y := alpha*A*x + beta*y with one triangle of
// A stored, for every branch: the kernels behind the four main dispatch
// points, also run by the threaded SYMV on its diagonal blocks.
//
// One text for all branches, over the registers of lanes.inl:
//   branches 2 to 5  SSE2 to SSE4.2  128-bit passes, 16-byte boundary
//   branch 6         AVX             256-bit passes, 32-byte boundary
//   branch 7         AVX2 and FMA    as 6, every update of y fused (scalar
//                                    steps too), and a 128-bit pass after
//                                    the 256-bit ones
// The branches differ in the widths of the row passes (block4, column1) and
// in the fused steps. Eight vector registers: a pass over four columns
// keeps the four dot accumulators, x, y and the products in registers; the
// column factors and the columns come from memory as operands.
//
// Columns go in ascending order, four at a time, then singly. One walk over
// a column serves both halves of the product: each stored a(i, j) adds
// t_j*a(i, j) to y(i), with t_j = alpha*x(j), and a(i, j)*x(i) (HEMV:
// conj(a(i, j))*x(i)) to the dot of column j; y(j) then gets alpha times the
// dot. The triangle of a block at the diagonal goes in scalar steps, before
// the walk of the rows for uplo L and after it for uplo U. Other increments
// run the same blocks in scalar code.
#include <immintrin.h>

#include <type_traits>

#include "frame/scalar.h"
#include "level2/kernels.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

#include "level2/symv/lanes.inl"

// Rows a pass: four columns, and a column alone (its wide passes keep two
// dot accumulators in S and D).
template <class T>
constexpr shape block4 = by_type<T, shape{1, branch == 7 ? 2 : 0}, shape{1, branch == 7 ? 2 : 0},
                                 shape{branch == 2 ? 2 : 1, branch == 7 ? 2 : 0},
                                 shape{branch == 2 ? 4 : 1, 0}>;
template <class T>
constexpr shape column1 = by_type<T, shape{2, branch == 7}, shape{4, branch == 7},
                                  shape{branch == 2 ? 1 : 2, branch == 7},
                                  shape{branch >= 3 && branch <= 5 ? 1 : 2, branch == 7}>;

template <class T> ZI R_<T> re_of(const T& a) {
    if constexpr (cplx<T>) return a.re;
    else return a;
}

// Rows [i0, i1) of NC columns, U registers of K rows a pass: y(i) gets the
// products of the factors f, sums the dots (started at 0) of the columns.
// On its own, with the factors behind a pointer: they are read from memory
// at each use and leave the registers to the accumulators, x and y.
template <class T, int NC, int K, int U, class X, class Y>
NOI void pass(int i0, int i1, const T* a, int lda, X x, Y y, const fac<T, K>* f,
              typename rv<T, K>::v* sums) {
    constexpr bool two = NC == 1 && U > 1 && !cplx<T>;
    using V = rv<T, K>;
    using v = typename V::v;
    v acc[NC][2];
    each<NC>([&](int k) ZI_L { acc[k][0] = acc[k][1] = V::zero(); });
    for (int i = i0; i < i1; i += U * K) {
        each<U>([&](int u) ZI_L {
            const int r = i + u * K;
            const xop<T, K> xo = dot_operand<T, K>(x.template v<K>(r));
            v yv = y.template v<K>(r);
            each<NC>([&](int k) ZI_L {
                const v av = V::ld(a + k * lda + r);
                yv = plus(yv, f[k], av);
                v& s = acc[k][two ? u & 1 : 0];
                s = dot(s, av, xo);
            });
            y.template put<K>(r, yv);
        });
    }
    each<NC>([&](int k) ZI_L { sums[k] = two ? add(acc[k][0], acc[k][1]) : acc[k][0]; });
}

// Rows [r0, r1) of NC columns from a (row 0 of the first column): y(i) gets
// the products of the columns' factors t, and d the dots of the columns.
template <class T, int NC, class X, class Y>
ZI void rows(int r0, int r1, const T* a, int lda, X x, Y y, const T* t, typename rv<T, 1>::v* d) {
    constexpr shape S = NC == 4 ? block4<T> : column1<T>;
    const int m = r1 - r0;
    if (m <= 0) return;
    a += r0;
    const X xr = x.sub(r0);
    const Y yr = y.sub(r0);
    auto ph = [&](auto Kc, auto Uc, int i0, int i1) ZI_L {
        constexpr int K = decltype(Kc)::value, U = decltype(Uc)::value;
        using V = rv<T, K>;
        if (i0 >= i1) return;
        fac<T, K> f[NC];
        typename V::v sums[NC];
        each<NC>([&](int k) ZI_L { f[k] = factor<T, K>(t[k]); });
        pass<T, NC, K, U>(i0, i1, a, lda, xr, yr, f, sums);
        each<NC>([&](int k) ZI_L { d[k] = add(d[k], V::fold(sums[k])); });
    };
    if constexpr (X::unit && Y::unit) walk<T, S>(m, yr.p, ph);
    else ph(c_<1>{}, c_<1>{}, 0, m);
}

// Columns j to j + NC - 1: four, or one rest column.
template <class T, bool Up, int NC, class X, class Y>
NOI void columns(int n, int j, const T& alpha, const T* a, int lda, X x, Y y) {
    using S1 = rv<T, 1>;
    using v1 = typename S1::v;
    T t[NC];
    fac<T, 1> f[NC];
    v1 d[NC];
    each<NC>([&](int k) ZI_L {
        t[k] = times(alpha, *x.at(j + k));
        f[k] = factor<T, 1>(t[k]);
        d[k] = S1::zero();
    });
    const T* c = a + j * lda;
    // The triangle at the diagonal; the diagonal itself is one real number
    // in HEMV, whose imaginary part is never read.
    auto corner = [&]() ZI_L {
        each<NC>([&](int k) ZI_L {
            const T* ck = c + k * lda + j;
            for (int m = Up ? 0 : k + 1; m < (Up ? k : NC); ++m) {
                const v1 av = S1::ld(ck + m);
                T* ym = y.at(j + m);
                S1::st(ym, plus(S1::ld(ym), f[k], av));
                d[k] = dot(d[k], av, dot_operand<T, 1>(x.template v<1>(j + m)));
            }
            T* yk = y.at(j + k);
            S1::st(yk, madd(S1::ld(yk), S1::set(re_of(ck[k])), S1::ld(&t[k])));
        });
    };
    if constexpr (!Up) corner();
    rows<T, NC>(Up ? 0 : j + NC, Up ? j : n, c, lda, x, y, t, d);
    if constexpr (Up) corner();
    const fac<T, 1> al = factor<T, 1>(alpha);
    each<NC>([&](int k) ZI_L {
        T* yk = y.at(j + k);
        S1::st(yk, plus(S1::ld(yk), al, d[k]));
    });
}

template <class T, bool Up, class X, class Y>
void sweep(int n, const T& alpha, const T* a, int lda, X x, Y y) {
    int j = 0;
    for (; j + 4 <= n; j += 4) columns<T, Up, 4>(n, j, alpha, a, lda, x, y);
    for (; j < n; ++j) columns<T, Up, 1>(n, j, alpha, a, lda, x, y);
}

template <class T>
void sym_kernel(Ch uplo, I pn, const T* palpha, const T* a, I plda, const T* x, I pincx,
                const T* pbeta, T* y, I pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const T alpha = *palpha;
    if (is_zero(alpha) && is_one(*pbeta)) return;
    if (!is_one(*pbeta)) {
        // beta*y by the prologue of this branch's GEMV kernel, which with
        // alpha = 0 reads neither A nor x.
        static constexpr int one = 1;
        static constexpr T zero{};
        gemv<T>("N", pn, &one, &zero, a, plda, x, pincx, pbeta, y, pincy);
    }
    if (is_zero(alpha)) return;
    const bool up = *uplo == 'U' || *uplo == 'u';
    const int lda = *plda, incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1) {
        const unit_vec<const T> xv{x};
        const unit_vec<T> yv{y};
        if (up) sweep<T, true>(n, alpha, a, lda, xv, yv);
        else sweep<T, false>(n, alpha, a, lda, xv, yv);
    } else {
        const step_vec<const T> xv{x + vec_start(n, incx), incx};
        const step_vec<T> yv{y + vec_start(n, incy), incy};
        if (up) sweep<T, true>(n, alpha, a, lda, xv, yv);
        else sweep<T, false>(n, alpha, a, lda, xv, yv);
    }
}

}  // namespace

template <class T>
void symv(Ch uplo, I n, const T* alpha, const T* a, I lda, const T* x, I incx, const T* beta, T* y,
          I incy, L) {
    sym_kernel(uplo, n, alpha, a, lda, x, incx, beta, y, incy);
}
template <class T>
void hemv(Ch uplo, I n, const T* alpha, const T* a, I lda, const T* x, I incx, const T* beta, T* y,
          I incy, L) {
    sym_kernel(uplo, n, alpha, a, lda, x, incx, beta, y, incy);
}

template decltype(symv<float>) symv<float>;
template decltype(symv<double>) symv<double>;
template decltype(hemv<c32>) hemv<c32>;
template decltype(hemv<c64>) hemv<c64>;

}  // namespace zva::ZVA_NS
