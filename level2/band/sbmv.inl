// SBMV and HBMV, y := alpha*A*x + beta*y for a symmetric (S, D) or
// Hermitian (C, Z) band of k diagonals on each side, of which one triangle
// is stored, on every branch.
//
// Prologue as in GBMV: n = 0 returns, alpha = 0 with beta = 1 returns, y is
// scaled by beta, then alpha = 0 returns.
//
// One pass over the stored triangle: for column j, t = alpha*x[j]; each
// stored off-diagonal a(i, j) is loaded once and serves both y[i] += t*a(i, j)
// and s += a(i, j)*x[i] (conj(a(i, j)) in HBMV); then y[j] += t*a(j, j) +
// alpha*s, with the real part of the diagonal in HBMV. No test of x[j].
// k = 0 is a diagonal multiply.
//   SBMV, unit strides: columns in pairs j, j + 1: the element of their 2 x 2
//   block first (a(j, j + 1) upper, a(j + 1, j) lower), the row only one of
//   them holds, then the shared rows with y peeled to the vector boundary,
//   one vector a pass; an odd last column goes alone, with longer passes.
//   HBMV: one column at a time on every branch.
//   Other strides: one column at a time, element by element.
#include "level2/band/rows.h"
#include "level2/kernels.h"

namespace zva::ZVA_NS {
namespace {

template <class T> BAND_ZI T diag_term(const T& t, const T& d) {
    if constexpr (cx<T>) return {t.re * d.re, t.im * d.re};  // the real part of the diagonal
    else return t * d;
}

// Column j alone: its off-diagonal rows, then y[j] += t*a(j, j) + alpha*s.
template <class T, bool Unit>
BAND_ZI void sb_column(bool upper, int j, int n, int k, const T& alpha, const T* p, const T* x, int incx, T* y,
                       int incy) {
    int lo, hi;
    tri_col(upper, j, n, k, lo, hi);
    const T t = mulT(alpha, x[j * incx]);
    const fac<T> f = simd::make_factor<VL<T>>(t);
    const T* ap = p + lo;
    T s = T{};
    cols<T, 1, true, true, cx<T>, Unit>(hi - lo + 1, &ap, &f, y + lo * incy, incy, x + lo * incx, incx, &s);
    T& yj = y[j * incy];
    yj = addT(addT(yj, diag_term(t, p[j])), mulT(alpha, s));
}

}  // namespace

template <class T>
void sbmv(Ch uplo, I pn, I pk, const T* palpha, const T* a, I plda, const T* x, I pincx, const T* pbeta, T* y,
          I pincy, L) {
    const int n = *pn;
    if (n == 0) return;
    const T alpha = *palpha, beta = *pbeta;
    if (is_zero(alpha) && is_one(beta)) return;
    const int k = *pk, lda = *plda, incx = *pincx, incy = *pincy;
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    scale_y(n, beta, y, incy);
    if (is_zero(alpha)) return;
    const bool upper = (*uplo & 0xDF) == 'U';
    // a(i, j) = col(j)[i]
    auto col = [&](int j) { return a + static_cast<ptrdiff_t>(j) * (lda - 1) + (upper ? k : 0); };
    if (k == 0) {
        for (int j = 0; j < n; ++j) {
            T& yj = y[j * incy];
            yj = addT(yj, diag_term(mulT(alpha, x[j * incx]), col(j)[j]));
        }
        return;
    }
    if (incx != 1 || incy != 1) {
        for (int j = 0; j < n; ++j) sb_column<T, false>(upper, j, n, k, alpha, col(j), x, incx, y, incy);
        return;
    }
    int j = 0;
    if constexpr (!cx<T>) {
        for (; j + 1 < n; j += 2) {
            const T* p0 = col(j);
            const T* p1 = col(j + 1);
            const T t[2] = {alpha * x[j], alpha * x[j + 1]};
            const fac<T> f[2] = {simd::make_factor<VL<T>>(t[0]), simd::make_factor<VL<T>>(t[1])};
            T s[2] = {0, 0};
            // The 2 x 2 block's off-diagonal element: row j of column j + 1
            // (upper), or row j + 1 of column j (lower).
            if (upper) {
                const T b = p1[j];
                y[j] += t[1] * b;
                s[1] += b * x[j];
            } else {
                const T b = p0[j + 1];
                y[j + 1] += t[0] * b;
                s[0] += b * x[j + 1];
            }
            const tri_pair r = tri_rows(upper, j, n, k);
            if (r.extra >= 0) {
                const int c = upper ? 0 : 1;
                const T ae = (c ? p1 : p0)[r.extra];
                upd1(y + r.extra, &ae, f[c]);
                s[c] += ae * x[r.extra];
            }
            const T* p[2] = {p0 + r.lo, p1 + r.lo};
            cols<T, 2, true, true, false, true>(r.hi - r.lo + 1, p, f, y + r.lo, 1, x + r.lo, 1, s);
            y[j] = y[j] + t[0] * p0[j] + alpha * s[0];
            y[j + 1] = y[j + 1] + t[1] * p1[j + 1] + alpha * s[1];
        }
    }
    for (; j < n; ++j) sb_column<T, true>(upper, j, n, k, alpha, col(j), x, 1, y, 1);
}

ZVA_INSTANTIATE_TYPES(sbmv)

}  // namespace zva::ZVA_NS
