// SPR, HPR, SPR2 and HPR2, the packed rank-one and rank-two updates, on
// every branch: A := alpha*x*x' + A, A := alpha*x*y' + alpha*y*x' + A (the
// Hermitian forms with the published conjugates).
//
// Unlike the products of this family, the updates skip a column whose x(j)
// (SPR2: x(j) and y(j)) is zero in every part, as the reference does, so
// such a column is not even read; HPR and HPR2 still clear the imaginary
// part of its diagonal entry. A NaN compares unequal and goes on. Per
// column: t0 := alpha*x(j) (SPR2: alpha*y(j)), t1 := alpha*x(j); then
// ap(i, j) += x[i]*t0 (+ y[i]*t1), each term one fused step on branch 7;
// the Hermitian diagonal gets real(ap) + real(x(j)*t0 + y(j)*t1) and a zero
// imaginary part.
//
// Rows a pass (W the register width in elements), the column peeled to a
// register boundary first:
//   real     branch 7: 16, then W (unit) or 4; branch 6: 16 (unit) or 8;
//            branches 2 to 5: 8
//   complex  8, and on branch 7 then W; Z on branches 2 to 5: 2 (HPR) or 1
// ZHPR on branches 4 to 7 and CHPR on branch 4 hand each column of the unit
// path to the AXPY kernel of their branch and then fix the diagonal.
// Registers: the factors (two per complex one) and one working register a
// row access; nothing is carried from row to row.
#include "level2/packed/lanes.inl"

namespace zva::ZVA_NS {
namespace {

template <class T, bool Unit, bool Two>
constexpr passes rank_rows = !cplx<T> ? (branch == 7 ? passes{16, Unit ? W<T> : 4, 0}
                                                     : passes{branch == 6 && Unit ? 16 : 8, 0, 0})
                                      : W<T> == 1 ? passes{Two ? 1 : 2, 0, 0}
                                                  : passes{8, branch == 7 ? W<T> : 0, 0};

template <class T, bool Unit, bool Two>
constexpr bool via_axpy = !Two && Unit && (__is_same(T, c64) ? branch >= 4 : __is_same(T, c32) && branch == 4);

// alpha*v with a real alpha on a complex v (HPR), or a plain product.
template <class T, class A>
PK_ZI T scaled(A alpha, T v) {
    if constexpr (cplx<T> && !cplx<A>) return s_rmul(alpha, v);
    else return s_mul(alpha, v);
}

// Every column of the update, in ascending order. y is x again in SPR.
template <class T, class A, bool Two, bool Unit>
void rank_cols(int n, bool upper, A alpha, vec<T, Unit> x, vec<T, Unit> y, T* ap) {
    constexpr passes P = rank_rows<T, Unit, Two>;
    for (int j = 0; j < n; ap += col_len(upper, n, j), ++j) {
        T* a = upper ? ap : ap - j;  // by row
        const T xj = x[j];
        const T yj = Two ? y[j] : T{};
        if (is_zero(xj) && is_zero(yj)) {
            if constexpr (cplx<T>) a[j].im = 0;
            continue;
        }
        T t0, t1{};  // t0 multiplies x, t1 multiplies y
        if constexpr (Two) {
            t0 = s_mul(alpha, s_conj(yj));
            t1 = s_conj(s_mul(alpha, xj));
        } else {
            t0 = scaled(alpha, s_conj(xj));
        }
        if constexpr (via_axpy<T, Unit, Two>) {
            const int r0 = upper ? 0 : j, len = col_len(upper, n, j), one = 1;
            axpy<T>(&len, &t0, &x[r0], &one, a + r0, &one);
            a[j].im = 0;
            continue;
        }
        // The Hermitian diagonal is left to the end; a real one is a row.
        const int d = cplx<T> ? 1 : 0;
        const int r0 = upper ? 0 : j + d, r1 = upper ? j + 1 - d : n;
        const fac<T> f0 = fac_of(t0), f1 = fac_of(t1);
        walk<T, P>(r0, r1, a + r0, [&](auto w, int i, auto) PK_ZL {
            V<T> v = ld<w>(a + i);
            if constexpr (cplx<T>) {
                v = add(v, times(ldv<w>(x, i), f0));
                if constexpr (Two) v = add(v, times(ldv<w>(y, i), f1));
            } else {
                v = madd(v, ldv<w>(x, i), f0.r);
                if constexpr (Two) v = madd(v, ldv<w>(y, i), f1.r);
            }
            st<w>(a + i, v);
        });
        if constexpr (cplx<T>) {
            R_<T> dd = s_re_mul(xj, t0);
            if constexpr (Two) dd = dd + s_re_mul(yj, t1);
            a[j] = T{a[j].re + dd, 0};
        }
    }
}

}  // namespace

template <class T, class A>
void spr(const char* uplo, const int* pn, const A* palpha, const T* px, const int* pincx, T* ap, int) {
    const int n = *pn;
    if (n == 0) return;
    const A alpha = *palpha;
    if (is_zero(alpha)) return;
    const bool upper = letter(uplo) == 'U';
    const int incx = *pincx;
    if (incx == 1) {
        const vec<T, true> x = vec_at<T, true>(px, n, 1);
        rank_cols<T, A, false>(n, upper, alpha, x, x, ap);
    } else {
        const vec<T, false> x = vec_at<T, false>(px, n, incx);
        rank_cols<T, A, false>(n, upper, alpha, x, x, ap);
    }
}

template <class T>
void spr2(const char* uplo, const int* pn, const T* palpha, const T* px, const int* pincx, const T* py,
          const int* pincy, T* ap, int) {
    const int n = *pn;
    if (n == 0) return;
    const T alpha = *palpha;
    if (is_zero(alpha)) return;
    const bool upper = letter(uplo) == 'U';
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1) {
        rank_cols<T, T, true>(n, upper, alpha, vec_at<T, true>(px, n, 1), vec_at<T, true>(py, n, 1), ap);
    } else {
        rank_cols<T, T, true>(n, upper, alpha, vec_at<T, false>(px, n, incx),
                              vec_at<T, false>(py, n, incy), ap);
    }
}

template decltype(spr<float, float>) spr<float, float>;
template decltype(spr<double, double>) spr<double, double>;
template decltype(spr<c32, float>) spr<c32, float>;
template decltype(spr<c64, double>) spr<c64, double>;
ZVA_INSTANTIATE_TYPES(spr2)

}  // namespace zva::ZVA_NS
