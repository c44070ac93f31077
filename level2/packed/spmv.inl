// SPMV and HPMV, y := alpha*A*x + beta*y with A symmetric (S, D) or
// Hermitian (C, Z) in packed storage, on every branch.
//
// y is scaled by beta first (beta = 0 writes zeros, so NaNs in y go); then
// one walk over each group of stored columns both adds t_k*a_k into y and
// forms the dot products s_k = sum conj(a_k)*x that stand for the other
// triangle; the small diagonal block of the group comes last, by scalars:
// y[j] += t0*a(j, j) + t1*a(j, j + 1) + ... + alpha*s_j. No x(j) is tested
// for zero. HPMV takes the diagonal as real.
//
// Columns a group: real types pairs on the unit path, the odd last column
// alone by a longer walk with two dot accumulators; complex types blocks of
// four, then the rest alone. Non-unit increments: real types one column at a
// time, complex lower pairs, complex upper blocks of four.
//
// Rows a pass by branch and type (W the register width in elements):
//   group   W, and on branch 7 in the real types a W/2 pass
//   alone   4W (D) or 2W; on branch 7 then W; Z on branches 2 to 5 one row
// Branch 7 fuses the y update (and the real dots); the others round each
// product. The rest of the differences live in lanes.inl. Registers: a real
// pair keeps t0, t1 and two dot sums next to y, x and a column; a complex
// block of four takes its factors from the stack. Branches 6 and 7 prefetch
// the columns of the unit path 1 KiB ahead.
#include "level2/packed/lanes.inl"

namespace zva::ZVA_NS {
namespace {

template <class T> constexpr passes spmv_group = {W<T>, branch == 7 && !cplx<T> ? W<T> / 2 : 0, 0};
template <class T>
constexpr passes spmv_alone = {W<T> == 1 ? 1 : (__is_same(T, double) ? 4 : 2) * W<T>, branch == 7 ? W<T> : 0, 0};
constexpr passes strided_rows = {2, 0, 0};
// The 256-bit branches read the columns ahead: a pass of a pair holds too
// few loads to keep enough lines in flight for the full stream rate, and
// the dot sums leave the load ports room (DSPMV gained about a third).
constexpr int pf_ahead = 1024;

// y := beta*y, beta != 1.
template <class T>
void scale_y(T* y, int n, int inc, T beta) {
    if (is_zero(beta)) {
        if (inc == 1) {
            // Short: stores, 8 elements a pass (4 complex); else a fill.
            if (n >= 13) {
                __builtin_memset(static_cast<void*>(y), 0, static_cast<unsigned>(n) * sizeof(T));
                return;
            }
            constexpr int P = cplx<T> ? 4 : 8;
            int i = 0;
            for (; n - i >= P; i += P) each<P>([&](auto k) PK_ZL { y[i + k] = T{}; });
            for (; i < n; ++i) y[i] = T{};
            return;
        }
        // In memory order: the direction of inc does not matter here.
        const int s = inc < 0 ? -inc : inc;
        int i = 0;
        for (; n - i >= 8; i += 8) each<8>([&](auto k) PK_ZL { y[(i + k) * s] = T{}; });
        for (; i < n; ++i) y[i * s] = T{};
        return;
    }
    const fac<T> b = fac_of(beta);
    auto f = [&](auto w, int i, auto) PK_ZL {
        T* p = y + i;
        if (inc == 1) st<w>(p, times(ld<w>(p), b));
        else stg<w>(y + i * inc, inc, times(ldg<w>(y + i * inc, inc), b));
    };
    if (inc != 1) {
        y += vec_start(n, inc);
        walk<T, strided_rows>(0, n, nullptr, f);
    } else if (n < 16) {
        walk<T, passes{}>(0, n, nullptr, f);
    } else {
        walk<T, passes{16, 4, 0}>(0, n, y, f);
    }
}

// Columns j .. j+K-1 (`col` the first one's entries) of the stored triangle.
// NA dot accumulators per column, taken in turn by the accesses of a pass.
template <class T, int K, passes P, int NA, bool Unit>
void sym_group(int n, bool upper, int j, const T* col, T alpha, vec<T, Unit> x, vec<T, Unit> y) {
    const T* a[K];
    T t[K];
    fac<T> f[K];
    V<T> acc[K][NA];
    for (int k = 0; k < K; ++k) {
        a[k] = by_row(col, upper, j + k);
        col += col_len(upper, n, j + k);
        t[k] = s_mul(alpha, x[j + k]);
    }
    each<K>([&](auto k) PK_ZL {
        f[k] = fac_of(t[k]);
        each<NA>([&](auto u) PK_ZL { acc[k][u] = zero<T>(); });
    });

    // Rows the group shares: above it (upper) or below it (lower).
    const int r0 = upper ? 0 : j + K, r1 = upper ? j : n;
    walk<T, P>(r0, r1, y.align_at(r0), [&](auto w, int i, auto u) PK_ZL {
        V<T> yv = ldv<w>(y, i);
        const V<T> xv = ldv<w>(x, i);
        V<T> xr, xi;
        if constexpr (cplx<T>) xr = dre(xv), xi = neg<T>(dim(xv));  // conj(x)
        each<K>([&](auto k) PK_ZL {
            if constexpr (Unit && vbytes == 32 && w == W<T> && u == 0)
                _mm_prefetch(reinterpret_cast<const char*>(a[k] + i) + pf_ahead, _MM_HINT_T0);
            const V<T> av = ld<w>(a[k] + i);
            V<T>& s = acc[k][u % NA];
            if constexpr (cplx<T>) {
                yv = add(yv, cmul(av, f[k].r, f[k].i));
                s = add(s, cmul(av, xr, xi));  // a*conj(x): the conjugate of the term
            } else {
                yv = madd(yv, av, f[k].r);
                s = madd(s, av, xv);
            }
        });
        stv<w>(y, i, yv);
    });

    // The diagonal block: entry (r, c) of the group from the stored triangle.
    auto entry = [&](int r, int c) PK_ZL -> T {
        if (r == c) {
            if constexpr (cplx<T>) return T{a[c][j + c].re, 0};
            else return a[c][j + c];
        }
        return (upper ? r < c : r > c) ? a[c][j + r] : s_conj(a[r][j + c]);
    };
    for (int r = 0; r < K; ++r) {
        V<T> sv = acc[r][0];
        if constexpr (NA > 1) sv = add(sv, acc[r][1]);
        const T s = s_conj(hsum<T>(sv));
        T v = y[j + r];
        for (int c = 0; c < K; ++c) {
            if constexpr (cplx<T>)
                v = s_add(v, c == r ? s_rmul(entry(r, c).re, t[c]) : s_mul(entry(r, c), t[c]));
            else
                v = s_add(v, s_mul(entry(r, c), t[c]));
        }
        y[j + r] = s_add(v, s_mul(alpha, s));
    }
}

// Every column, in groups of K, then the rest alone.
template <class T, int K, passes P, bool Unit>
void sym_all(int n, bool upper, const T* ap, T alpha, vec<T, Unit> x, vec<T, Unit> y) {
    constexpr passes Alone = Unit ? spmv_alone<T> : strided_rows;
    int j = 0;
    for (; n - j >= K; j += K) {
        sym_group<T, K, P, 1, Unit>(n, upper, j, ap, alpha, x, y);
        for (int k = 0; k < K; ++k) ap += col_len(upper, n, j + k);
    }
    for (; j < n; ++j) {
        sym_group<T, 1, Alone, 2, Unit>(n, upper, j, ap, alpha, x, y);
        ap += col_len(upper, n, j);
    }
}

}  // namespace

template <class T>
void spmv(const char* uplo, const int* pn, const T* palpha, const T* ap, const T* px, const int* pincx,
          const T* pbeta, T* py, const int* pincy, int) {
    const int n = *pn;  // the checker has refused negatives
    if (n == 0) return;
    const T alpha = *palpha, beta = *pbeta;
    if (is_zero(alpha) && is_one(beta)) return;
    const int incx = *pincx, incy = *pincy;
    if (!is_one(beta)) scale_y(py, n, incy, beta);
    if (is_zero(alpha)) return;
    const bool upper = letter(uplo) == 'U';
    if (incx == 1 && incy == 1) {
        const vec<T, true> x = vec_at<T, true>(px, n, 1), y = vec_at<T, true>(py, n, 1);
        sym_all<T, cplx<T> ? 4 : 2, spmv_group<T>>(n, upper, ap, alpha, x, y);
        return;
    }
    const vec<T, false> x = vec_at<T, false>(px, n, incx), y = vec_at<T, false>(py, n, incy);
    if constexpr (!cplx<T>) sym_all<T, 1, strided_rows>(n, upper, ap, alpha, x, y);
    else if (upper) sym_all<T, 4, strided_rows>(n, upper, ap, alpha, x, y);
    else sym_all<T, 2, strided_rows>(n, upper, ap, alpha, x, y);
}

ZVA_INSTANTIATE_TYPES(spmv)

}  // namespace zva::ZVA_NS
