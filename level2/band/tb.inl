// TBMV, x := op(A)*x, and TBSV, x := inv(op(A))*x, for a triangular band
// of k diagonals besides the main one, in S, D, C and Z on every branch.
//
// The columns go in the order that leaves unread elements of x intact:
// TBMV from the first column up where (upper) equals (not transposed),
// TBSV the other way round; else from the last down. The diag letter N
// sets nounit, tested per column; with U the diagonal is taken as 1.
//   not transposed  update form: t = x[j] (TBSV: x[j] / a(j, j) first, a
//                   real or complex division, never a reciprocal), then
//                   x[i] += t*a(i, j) (TBSV: x[i] -= t*a(i, j)) over the
//                   column's other rows. No test of x[j]: a zero x[j] meets
//                   infinities and NaNs in A, and a zero diagonal in TBSV.
//   transposed      dot form over the column's other rows, conj(a) for "C":
//                   TBMV x[j] = a(j, j)*x[j] + s, TBSV x[j] = (x[j] - s) /
//                   a(j, j).
// Unit stride: columns in pairs, their 2 x 2 block handled in place, the
// row only one of the two holds singly, the shared rows in one walk.
// Other strides: one column at a time, dots by gathered vectors.
//
// Complex matrices on branches 4 to 7 have a second body for some shapes
// (band_by_columns): one column at a time, the dots by this branch's
// DOTU/DOTC kernels and the updates by the column walk, whose alignment
// rule is that of the branch's AXPY kernel. Branches 3 and 2 always run
// the band body.
#include "level1/kernels.h"
#include "level2/band/rows.h"
#include "level2/kernels.h"

namespace zva::ZVA_NS {
namespace {

struct tb_shape {
    bool upper, nounit;
    int n, k, incx;
};

// Column j alone. L1: the dot by the level-1 kernel of the branch.
template <class T, bool Solve, bool Nt, bool Cj, bool Unit, bool L1>
BAND_ZI void tb_column(const tb_shape& s, int j, const T* p, T* x) {
    int lo, hi;
    tri_col(s.upper, j, s.n, s.k, lo, hi);
    const int len = hi - lo + 1;
    const int incx = Unit ? 1 : s.incx;
    const T* ap = p + lo;
    T& xj = x[j * incx];
    if constexpr (Nt) {
        T t = xj;
        if constexpr (Solve) {
            if (s.nounit) xj = t = divT(t, p[j]);
            t = negT(t);
        } else if (s.nounit) {
            xj = mulT(t, p[j]);
        }
        const fac<T> f = simd::make_factor<VL<T>>(t);
        cols<T, 1, true, false, false, Unit>(len, &ap, &f, x + lo * incx, incx, nullptr, 0, nullptr);
    } else {
        T d = T{};
        if (len > 0) {
            if constexpr (L1) {
                // The kernel starts a negative increment at the far end.
                const T* xs = x + (incx > 0 ? lo : hi) * incx;
                const int one = 1;
                if constexpr (Cj) dotc<T>(&d, &len, ap, &one, xs, &incx);
                else dotu<T>(&d, &len, ap, &one, xs, &incx);
            } else {
                cols<T, 1, false, true, Cj, Unit>(len, &ap, nullptr, nullptr, 0, x + lo * incx, incx, &d);
            }
        }
        if constexpr (Solve) {
            T t = len > 0 ? subT(xj, d) : xj;
            if (s.nounit) t = divT(t, cj<Cj>(p[j]));
            xj = t;
        } else {
            T t = s.nounit ? mulT(cj<Cj>(p[j]), xj) : xj;
            xj = len > 0 ? addT(t, d) : t;
        }
    }
}

// Columns j and j + 1 at unit stride (k >= 1).
template <class T, bool Solve, bool Nt, bool Cj>
BAND_ZI void tb_pair(const tb_shape& s, int j, const T* p0, const T* p1, T* x) {
    const bool up = s.upper, nu = s.nounit;
    const tri_pair r = tri_rows(up, j, s.n, s.k);
    const int c = up ? 0 : 1;  // the column that holds the extra row
    const T* pc = c ? p1 : p0;
    const T* p[2] = {p0 + r.lo, p1 + r.lo};
    // a(j, j + 1) (upper) or a(j + 1, j) (lower), conjugated for "C".
    const T b = cj<Cj>(up ? p1[j] : p0[j + 1]);
    const T d0 = cj<Cj>(p0[j]), d1 = cj<Cj>(p1[j + 1]);
    const T x0 = x[j], x1 = x[j + 1];
    if constexpr (Nt) {
        T t[2];
        if constexpr (!Solve) {
            t[0] = x0, t[1] = x1;
            const T y0 = nu ? mulT(x0, d0) : x0, y1 = nu ? mulT(x1, d1) : x1;
            x[j] = up ? addT(y0, mulT(x1, b)) : y0;
            x[j + 1] = up ? y1 : addT(y1, mulT(x0, b));
        } else if (up) {
            t[1] = nu ? divT(x1, d1) : x1;
            t[0] = subT(x0, mulT(t[1], b));
            if (nu) t[0] = divT(t[0], d0);
        } else {
            t[0] = nu ? divT(x0, d0) : x0;
            t[1] = subT(x1, mulT(t[0], b));
            if (nu) t[1] = divT(t[1], d1);
        }
        if constexpr (Solve) {
            x[j] = t[0], x[j + 1] = t[1];
            t[0] = negT(t[0]), t[1] = negT(t[1]);
        }
        const fac<T> f[2] = {simd::make_factor<VL<T>>(t[0]), simd::make_factor<VL<T>>(t[1])};
        if (r.extra >= 0) upd1(x + r.extra, pc + r.extra, f[c]);
        cols<T, 2, true, false, false, true>(r.hi - r.lo + 1, p, f, x + r.lo, 1, nullptr, 0, nullptr);
    } else {
        T sd[2] = {T{}, T{}};
        if (r.extra >= 0) sd[c] = mulT(cj<Cj>(pc[r.extra]), x[r.extra]);
        cols<T, 2, false, true, Cj, true>(r.hi - r.lo + 1, p, nullptr, nullptr, 0, x + r.lo, 1, sd);
        if constexpr (!Solve) {
            const T y0 = nu ? mulT(d0, x0) : x0, y1 = nu ? mulT(d1, x1) : x1;
            x[j] = up ? addT(y0, sd[0]) : addT(addT(y0, mulT(b, x1)), sd[0]);
            x[j + 1] = up ? addT(addT(y1, mulT(b, x0)), sd[1]) : addT(y1, sd[1]);
        } else if (up) {
            T t0 = subT(x0, sd[0]);
            if (nu) t0 = divT(t0, d0);
            T t1 = subT(subT(x1, sd[1]), mulT(b, t0));
            if (nu) t1 = divT(t1, d1);
            x[j] = t0, x[j + 1] = t1;
        } else {
            T t1 = subT(x1, sd[1]);
            if (nu) t1 = divT(t1, d1);
            T t0 = subT(subT(x0, sd[0]), mulT(b, t1));
            if (nu) t0 = divT(t0, d0);
            x[j] = t0, x[j + 1] = t1;
        }
    }
}

// All columns in the order of the operation; pairs where Pairs.
template <class T, bool Solve, bool Nt, bool Cj, bool Unit, bool Pairs, bool L1>
void tb_walk(const tb_shape& s, const T* a, int lda, T* x) {
    auto col = [&](int j) { return a + static_cast<ptrdiff_t>(j) * (lda - 1) + (s.upper ? s.k : 0); };
    const int n = s.n;
    const bool up = (s.upper == Nt) != Solve;
    if (up) {
        int j = 0;
        if constexpr (Pairs)
            for (; j + 1 < n; j += 2) tb_pair<T, Solve, Nt, Cj>(s, j, col(j), col(j + 1), x);
        for (; j < n; ++j) tb_column<T, Solve, Nt, Cj, Unit, L1>(s, j, col(j), x);
    } else {
        int j = n - 1;
        if constexpr (Pairs)
            for (; j >= 1; j -= 2) tb_pair<T, Solve, Nt, Cj>(s, j - 1, col(j - 1), col(j), x);
        for (; j >= 0; --j) tb_column<T, Solve, Nt, Cj, Unit, L1>(s, j, col(j), x);
    }
}

// Where a complex band goes column by column through the level-1 kernels
// (branches 4 to 7); n counts columns, k does not enter.
template <class T, bool Solve> bool band_by_columns(bool upper, bool nt, int n) {
    if constexpr (!Solve) {
        if constexpr (sizeof(T) == 8) return upper ? !nt && n >= 500 : nt;  // CTBMV
        else return n >= 128 && !(upper && nt && n < 900);                  // ZTBMV
    } else {
        if constexpr (sizeof(T) == 8) return !nt && n >= 500;  // CTBSV
        else return !(!upper && nt && n < 400);                // ZTBSV
    }
}

template <class T, bool Solve, bool Nt, bool Cj>
void tb_form(const tb_shape& s, const T* a, int lda, T* x) {
    if constexpr (cx<T> && branch >= 4) {
        if (band_by_columns<T, Solve>(s.upper, Nt, s.n)) {
            if (s.incx == 1) tb_walk<T, Solve, Nt, Cj, true, false, true>(s, a, lda, x);
            else tb_walk<T, Solve, Nt, Cj, false, false, true>(s, a, lda, x);
            return;
        }
    }
    if (s.incx != 1) {
        tb_walk<T, Solve, Nt, Cj, false, false, false>(s, a, lda, x);
    } else if (s.k == 0) {
        tb_walk<T, Solve, Nt, Cj, true, false, false>(s, a, lda, x);
    } else {
        tb_walk<T, Solve, Nt, Cj, true, true, false>(s, a, lda, x);
    }
}

template <class T, bool Solve>
BAND_ZI void tb_kernel(Ch uplo, Ch trans, Ch diag, I pn, I pk, const T* a, I plda, T* x, I pincx) {
    const int n = *pn;
    if (n == 0) return;
    const int incx = *pincx;
    const tb_shape s{(*uplo & 0xDF) == 'U', (*diag & 0xDF) == 'N', n, *pk, incx};
    x += vec_start(n, incx);
    const char tr = static_cast<char>(*trans & 0xDF);
    if (tr == 'N') tb_form<T, Solve, true, false>(s, a, *plda, x);
    else if (tr == 'T') tb_form<T, Solve, false, false>(s, a, *plda, x);
    else tb_form<T, Solve, false, cx<T>>(s, a, *plda, x);  // "C"
}

}  // namespace

template <class T> void tbmv(Ch uplo, Ch trans, Ch diag, I n, I k, const T* a, I lda, T* x, I incx, L, L, L) {
    tb_kernel<T, false>(uplo, trans, diag, n, k, a, lda, x, incx);
}

template <class T> void tbsv(Ch uplo, Ch trans, Ch diag, I n, I k, const T* a, I lda, T* x, I incx, L, L, L) {
    tb_kernel<T, true>(uplo, trans, diag, n, k, a, lda, x, incx);
}

ZVA_INSTANTIATE_TYPES(tbmv)
ZVA_INSTANTIATE_TYPES(tbsv)

}  // namespace zva::ZVA_NS
