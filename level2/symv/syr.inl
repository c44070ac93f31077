// The rank-1 and rank-2 updates of one triangle of A, for every branch:
// SYR, SYR2 (S, D): A := alpha*x*x' + A, A := alpha*x*y' + alpha*y*x' + A;
// HER, HER2 (C, Z) with conjugate transposes; and, on branches 4 to 7, the
// column slices that the threads of SYR and SYR2 run.
//
// One text for all branches, over the registers of lanes.inl:
//   branches 2 to 5  SSE2 to SSE4.2  128-bit passes, 16-byte boundary
//   branch 6         AVX             256-bit passes, 32-byte boundary
//   branch 7         AVX2 and FMA    as 6, every update fused, and a pass
//                                    of one register (SYR2 pairs: half a
//                                    register) after the wide ones
// The branches differ in the widths of the row passes (one_col, pair_cols)
// and in the fused steps; on ZHER (branches 4 to 7) and CHER (branch 4) the
// rows of a column with unit increment are one call of the branch's AXPY.
// Eight vector registers: a SYR2 pair holds its four factors, x, y and the
// two columns.
//
// A column j whose x(j) (SYR2, HER2: x(j) and y(j)) is exactly zero is
// skipped, so NaN elsewhere in x does not reach it; HER and HER2 still clear
// the imaginary part of its diagonal. Each element gets its products in
// the order of the sources: (a + t1*x(i)) + t2*y(i).
#include <immintrin.h>

#include <type_traits>

#include "frame/scalar.h"
#include "level1/kernels.h"
#include "level2/kernels.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

#include "level2/symv/lanes.inl"

// Rows a pass: one column with NSRC sources, and the column pairs of SYR2.
template <class T, int NSRC>
constexpr shape one_col =
    by_type<T, shape{2, branch == 7}, shape{4, branch == 7}, shape{branch >= 6 ? 2 : 4, branch == 7},
            shape{branch >= 6 ? 4 : NSRC == 2 && branch >= 3 ? 1 : 2, branch == 7}>;
constexpr shape pair_cols{1, branch == 7 ? 2 : 0};

// Rows [0, m) of NCOL columns from c, lda apart: column k gets the products
// of its factors t[k][q] with the sources src[q], in source order.
template <class T, int NCOL, int NSRC, shape S, class X>
NOI void update(int m, T* c, int lda, const T (&t)[NCOL][NSRC], const X (&src)[NSRC]) {
    if (m <= 0) return;
    walk<T, S>(m, c, [&](auto Kc, auto Uc, int i0, int i1) ZI_L {
        constexpr int K = decltype(Kc)::value, U = decltype(Uc)::value;
        using V = rv<T, K>;
        using v = typename V::v;
        if (i0 >= i1) return;
        fac<T, K> f[NCOL][NSRC];
        each<NCOL>([&](int k) ZI_L { each<NSRC>([&](int q) ZI_L { f[k][q] = factor<T, K>(t[k][q]); }); });
        for (int i = i0; i < i1; i += U * K) {
            each<U>([&](int u) ZI_L {
                const int r = i + u * K;
                v s[NSRC];
                each<NSRC>([&](int q) ZI_L { s[q] = src[q].template v<K>(r); });
                each<NCOL>([&](int k) ZI_L {
                    T* p = c + k * lda + r;
                    v av = V::ld(p);
                    each<NSRC>([&](int q) ZI_L { av = plus(av, f[k][q], s[q]); });
                    V::st(p, av);
                });
            });
        }
    });
}

// The triangle's part of column j: rows [0, j] or [j, n).
template <bool Up> ZI int rows_from(int j) { return Up ? 0 : j; }
template <bool Up> ZI int rows_of(int n, int j) { return Up ? j + 1 : n - j; }

// ---- SYR, HER ---------------------------------------------------------------------

template <class T, bool Up, class X>
void syr_cols(int n, const T& alpha, X x, T* a, int lda, int first, int last) {
    for (int j = first; j < last; ++j) {
        const T xj = *x.at(j);
        if (is_zero(xj)) continue;
        const T t[1][1] = {{alpha * xj}};
        const X s[1] = {x.sub(rows_from<Up>(j))};
        update<T, 1, 1, one_col<T, 1>>(rows_of<Up>(n, j), a + j * lda + rows_from<Up>(j), lda, t, s);
    }
}

// The AXPY kernel of the branch walks the rows of these (unit increment).
template <class T>
constexpr bool her_by_axpy = sizeof(T) == 16 ? branch >= 4 : branch == 4;

// x(j) = 0 leaves the column, but the diagonal loses its imaginary part.
// Otherwise a(j, j) gets the real part of x(j)*t, before the rows for uplo
// L and after them for uplo U.
template <class T, bool Up, class X>
void her_cols(int n, R_<T> alpha, X x, T* a, int lda) {
    for (int j = 0; j < n; ++j) {
        const T xj = *x.at(j);
        T* c = a + j * lda;
        T& dj = c[j];
        if (is_zero(xj)) {
            dj.im = 0;
            continue;
        }
        const T t = {alpha * xj.re, -(alpha * xj.im)};
        const R_<T> dre = xj.re * t.re - xj.im * t.im;
        if (!Up) dj = {dj.re + dre, 0};
        const int r0 = Up ? 0 : j + 1, m = Up ? j : n - j - 1;
        if constexpr (X::unit && her_by_axpy<T>) {
            static constexpr int one = 1;
            if (m > 0) axpy<T>(&m, &t, x.at(r0), &one, c + r0, &one);
        } else {
            const T tt[1][1] = {{t}};
            const X s[1] = {x.sub(r0)};
            update<T, 1, 1, one_col<T, 1>>(m, c + r0, lda, tt, s);
        }
        if (Up) dj = {dj.re + dre, 0};
    }
}

// ---- SYR2, HER2 --------------------------------------------------------------------

template <class T, class X> ZI bool both_zero(const X& x, const X& y, int j) {
    return is_zero(*x.at(j)) && is_zero(*y.at(j));
}

// Column j alone: t1 = alpha*y(j) for x, t2 = alpha*x(j) for y.
template <class T, bool Up, class X>
ZI void syr2_one(int n, int j, const T& alpha, const X& x, const X& y, T* a, int lda) {
    const int r0 = rows_from<Up>(j);
    const T t[1][2] = {{alpha * *y.at(j), alpha * *x.at(j)}};
    const X s[2] = {x.sub(r0), y.sub(r0)};
    update<T, 1, 2, one_col<T, 2>>(rows_of<Up>(n, j), a + j * lda + r0, lda, t, s);
}

// Unit increments: pairs (j, j + 1) in one walk where neither column is
// zero, then a last column. The slices of the threaded form start at
// multiples of 8, so they pair the columns as the whole call does.
template <class T, bool Up, class X>
void syr2_cols(int n, const T& alpha, X x, X y, T* a, int lda, int first, int last) {
    int j = first;
    if constexpr (X::unit) {
        for (; j + 1 < last; j += 2) {
            const bool z0 = both_zero<T>(x, y, j), z1 = both_zero<T>(x, y, j + 1);
            if (z0 || z1) {
                if (!z0) syr2_one<T, Up>(n, j, alpha, x, y, a, lda);
                if (!z1) syr2_one<T, Up>(n, j + 1, alpha, x, y, a, lda);
                continue;
            }
            const T t[2][2] = {{alpha * y.p[j], alpha * x.p[j]}, {alpha * y.p[j + 1], alpha * x.p[j + 1]}};
            T* c = a + j * lda;
            // The element that only one of the two columns holds goes alone.
            const int lone = Up ? j + 1 : j, r0 = Up ? 0 : j + 1, m = Up ? j + 1 : n - j - 1;
            const T tl[1][2] = {{t[Up][0], t[Up][1]}};
            const X sl[2] = {x.sub(lone), y.sub(lone)}, s[2] = {x.sub(r0), y.sub(r0)};
            if (!Up) update<T, 1, 2, one_col<T, 2>>(1, c + lone, lda, tl, sl);
            update<T, 2, 2, pair_cols>(m, c + r0, lda, t, s);
            if (Up) update<T, 1, 2, one_col<T, 2>>(1, c + lda + lone, lda, tl, sl);
        }
        // With uplo L and n odd the last column is its diagonal element
        // alone, which gets alpha*((2*x)*y).
        if (!Up && j < last && j == n - 1) {
            if (!both_zero<T>(x, y, j)) {
                T& d = a[j * lda + j];
                d = madd(d, alpha, (2 * x.p[j]) * y.p[j]);
            }
            return;
        }
    }
    for (; j < last; ++j)
        if (!both_zero<T>(x, y, j)) syr2_one<T, Up>(n, j, alpha, x, y, a, lda);
}

// t1 = alpha*conj(y(j)) for x, t2 = conj(alpha*x(j)) for y; the diagonal
// gets the real part of x(j)*t1 + y(j)*t2 and loses its imaginary part.
template <class T, bool Up, class X>
void her2_cols(int n, const T& alpha, X x, X y, T* a, int lda) {
    for (int j = 0; j < n; ++j) {
        T* c = a + j * lda;
        T& dj = c[j];
        if (both_zero<T>(x, y, j)) {
            dj.im = 0;
            continue;
        }
        const T xj = *x.at(j), yj = *y.at(j);
        const T t1 = times(alpha, T{yj.re, -yj.im}), ax = times(alpha, xj);
        const T t2 = {ax.re, -ax.im};
        const R_<T> dre = (xj.re * t1.re - xj.im * t1.im) + (yj.re * t2.re - yj.im * t2.im);
        if (!Up) dj = {dj.re + dre, 0};
        const int r0 = Up ? 0 : j + 1;
        const T t[1][2] = {{t1, t2}};
        const X s[2] = {x.sub(r0), y.sub(r0)};
        update<T, 1, 2, one_col<T, 2>>(Up ? j : n - j - 1, c + r0, lda, t, s);
        if (Up) dj = {dj.re + dre, 0};
    }
}

// ---- entries ------------------------------------------------------------------------

// f(up) with uplo as a constant.
template <class F> ZI void by_uplo(Ch uplo, F&& f) {
    if (*uplo == 'U' || *uplo == 'u') f(std::true_type{});
    else f(std::false_type{});
}

template <class T>
void syr_entry(Ch uplo, int n, const R_<T>& alpha, const T* x, int incx, T* a, int lda, int first, int last) {
    if (n <= 0 || is_zero(alpha)) return;
    by_uplo(uplo, [&](auto up) ZI_L {
        constexpr bool Up = decltype(up)::value;
        auto go = [&](auto xv) ZI_L {
            if constexpr (cplx<T>) her_cols<T, Up>(n, alpha, xv, a, lda);
            else syr_cols<T, Up>(n, alpha, xv, a, lda, first, last);
        };
        if (incx == 1) go(unit_vec<const T>{x});
        else go(step_vec<const T>{x + vec_start(n, incx), incx});
    });
}

// Both increments 1 take the unit path; otherwise both vectors are strided.
template <class T>
void syr2_entry(Ch uplo, int n, const T& alpha, const T* x, int incx, const T* y, int incy, T* a, int lda,
                int first, int last) {
    if (n <= 0 || is_zero(alpha)) return;
    by_uplo(uplo, [&](auto up) ZI_L {
        constexpr bool Up = decltype(up)::value;
        auto go = [&](auto xv, auto yv) ZI_L {
            if constexpr (cplx<T>) her2_cols<T, Up>(n, alpha, xv, yv, a, lda);
            else syr2_cols<T, Up>(n, alpha, xv, yv, a, lda, first, last);
        };
        if (incx == 1 && incy == 1)
            go(unit_vec<const T>{x}, unit_vec<const T>{y});
        else
            go(step_vec<const T>{x + vec_start(n, incx), incx}, step_vec<const T>{y + vec_start(n, incy), incy});
    });
}

}  // namespace

template <class T, class A> void syr(Ch uplo, I n, const A* alpha, const T* x, I incx, T* a, I lda, L) {
    syr_entry<T>(uplo, *n, *alpha, x, *incx, a, *lda, 0, *n);
}
template <class T, class A> void her(Ch uplo, I n, const A* alpha, const T* x, I incx, T* a, I lda, L) {
    syr_entry<T>(uplo, *n, *alpha, x, *incx, a, *lda, 0, *n);
}
template <class T>
void syr2(Ch uplo, I n, const T* alpha, const T* x, I incx, const T* y, I incy, T* a, I lda, L) {
    syr2_entry<T>(uplo, *n, *alpha, x, *incx, y, *incy, a, *lda, 0, *n);
}
template <class T>
void her2(Ch uplo, I n, const T* alpha, const T* x, I incx, const T* y, I incy, T* a, I lda, L) {
    syr2_entry<T>(uplo, *n, *alpha, x, *incx, y, *incy, a, *lda, 0, *n);
}

template decltype(syr<float, float>) syr<float, float>;
template decltype(syr<double, double>) syr<double, double>;
template decltype(her<c32, float>) her<c32, float>;
template decltype(her<c64, double>) her<c64, double>;
template decltype(syr2<float>) syr2<float>;
template decltype(syr2<double>) syr2<double>;
template decltype(her2<c32>) her2<c32>;
template decltype(her2<c64>) her2<c64>;

#if ZVA_BRANCH >= 4
template <class T>
void syr_region(Ch uplo, I n, const T* alpha, const T* x, I incx, T* a, I lda, int first, int last) {
    syr_entry<T>(uplo, *n, *alpha, x, *incx, a, *lda, first, last);
}
template <class T>
void syr2_region(Ch uplo, I n, const T* alpha, const T* x, I incx, const T* y, I incy, T* a, I lda, int first,
                 int last) {
    syr2_entry<T>(uplo, *n, *alpha, x, *incx, y, *incy, a, *lda, first, last);
}
template decltype(syr_region<float>) syr_region<float>;
template decltype(syr_region<double>) syr_region<double>;
template decltype(syr2_region<float>) syr2_region<float>;
template decltype(syr2_region<double>) syr2_region<double>;
#endif

}  // namespace zva::ZVA_NS
