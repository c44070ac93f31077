// GBMV, y := alpha*op(A)*x + beta*y on a band of kl sub- and ku
// super-diagonals, for S, D, C and Z on every branch.
//
// Prologue: m or n of 0 returns; alpha = 0 with beta = 1 returns; y is
// scaled by beta first (beta = 0 writes zeros), then alpha = 0 returns.
//
// Column j holds rows max(0, j - ku) .. min(m - 1, j + kl). The columns fall
// into three runs by where the band meets the edges: the head (columns
// 0 .. min(n, ku) - 1, first row 0), the body, and the tail from
// max(min(m, n) - kl, min(n, ku)) on. Within a run, at unit strides, the
// columns go in pairs: a row only the first column of a pair holds (its
// top) is done ahead of the rows both hold, a row only the second holds
// (its bottom) after them; an odd last column goes alone.
//   not transposed  t_c = alpha*x[j + c] for every column, also where x is
//                   zero, so a zero x meets an infinity or NaN in A; then
//                   y[i] += t0*a(i, j) + t1*a(i, j + 1), fused on branch 7
//   transposed      two dots over the shared rows, each x loaded once for
//                   both; y[j] += alpha*s (fused on branch 7)
// Other strides: one column at a time, y updated element by element, or the
// dot over x gathered.
//
// Branch pieces live in the row vocabulary (rows.h): passes of 16 rows in
// the real types on the 256-bit branches and of 8 on the others, a pass of
// one vector after them on branch 7, and the complex products of the
// branch's AXPY kernel.
#include "level2/band/rows.h"
#include "level2/kernels.h"

namespace zva::ZVA_NS {
namespace {

struct band_cols {
    int m, kl, ku;
    BAND_ZI int lo(int j) const { return j - ku > 0 ? j - ku : 0; }
    BAND_ZI int hi(int j) const { return j + kl < m - 1 ? j + kl : m - 1; }
};

// Walks the runs, pairs within each, then the odd column: pair(j), one(j).
template <class P, class O> BAND_ZI void gb_runs(int m, int n, const band_cols& b, P&& pair, O&& one) {
    const int h = n < b.ku ? n : b.ku;
    const int mn = m < n ? m : n;
    const int body_end = mn - b.kl > h ? mn - b.kl : h;
    const int edge[4] = {0, h, body_end, n};
    for (int r = 0; r < 3; ++r) {
        int j = edge[r];
        for (; j + 1 < edge[r + 1]; j += 2) pair(j);
        if (j < edge[r + 1]) one(j);
    }
}

template <class T>
void gb_notrans(const band_cols& b, int n, const T& alpha, const T* a, int lda, const T* x, int incx, T* y,
                int incy) {
    auto col = [&](int j) { return a + static_cast<ptrdiff_t>(j) * (lda - 1) + b.ku; };
    if (incx == 1 && incy == 1) {
        auto one = [&](int j) {
            const int lo = b.lo(j);
            const T* p = col(j) + lo;
            const fac<T> t = simd::make_factor<VL<T>>(mulT(alpha, x[j]));
            cols<T, 1, true, false, false, true>(b.hi(j) - lo + 1, &p, &t, y + lo, 1, nullptr, 0, nullptr);
        };
        auto pair = [&](int j) {
            const int lo0 = b.lo(j), hi0 = b.hi(j), lo1 = b.lo(j + 1), hi1 = b.hi(j + 1);
            const T* p0 = col(j);
            const T* p1 = col(j + 1);
            const fac<T> t[2] = {simd::make_factor<VL<T>>(mulT(alpha, x[j])),
                                 simd::make_factor<VL<T>>(mulT(alpha, x[j + 1]))};
            const int top = lo1 < hi0 + 1 ? lo1 : hi0 + 1;
            for (int i = lo0; i < top; ++i) upd1(y + i, p0 + i, t[0]);
            const T* p[2] = {p0 + lo1, p1 + lo1};
            cols<T, 2, true, false, false, true>(hi0 - lo1 + 1, p, t, y + lo1, 1, nullptr, 0, nullptr);
            for (int i = hi0 + 1 > lo1 ? hi0 + 1 : lo1; i <= hi1; ++i) upd1(y + i, p1 + i, t[1]);
        };
        gb_runs(b.m, n, b, pair, one);
        return;
    }
    for (int j = 0; j < n; ++j) {
        const int lo = b.lo(j);
        const T* p = col(j) + lo;
        const fac<T> t = simd::make_factor<VL<T>>(mulT(alpha, x[j * incx]));
        cols<T, 1, true, false, false, false>(b.hi(j) - lo + 1, &p, &t, y + lo * incy, incy, nullptr, 0, nullptr);
    }
}

// y[j] += alpha*s, one fused step in the real types on branch 7.
template <class T> BAND_ZI void add_scaled(T* y, const T& s, const fac<T>& alpha) {
    using S = SL<T>;
    S::store(y, acc<S>(S::load(y), S::load(&s), narrow<S, T>(alpha)));
}

template <class T, bool Cj>
void gb_trans(const band_cols& b, int n, const T& alpha, const T* a, int lda, const T* x, int incx, T* y,
              int incy) {
    auto col = [&](int j) { return a + static_cast<ptrdiff_t>(j) * (lda - 1) + b.ku; };
    const fac<T> al = simd::make_factor<VL<T>>(alpha);
    if (incx == 1 && incy == 1) {
        auto one = [&](int j) {
            const int lo = b.lo(j);
            const T* p = col(j) + lo;
            T s = T{};
            cols<T, 1, false, true, Cj, true>(b.hi(j) - lo + 1, &p, nullptr, nullptr, 0, x + lo, 1, &s);
            add_scaled(y + j, s, al);
        };
        auto pair = [&](int j) {
            const int lo0 = b.lo(j), hi0 = b.hi(j), lo1 = b.lo(j + 1), hi1 = b.hi(j + 1);
            const T* p0 = col(j);
            const T* p1 = col(j + 1);
            T s[2] = {T{}, T{}};
            const int top = lo1 < hi0 + 1 ? lo1 : hi0 + 1;
            for (int i = lo0; i < top; ++i) s[0] = addT(s[0], mulT(cj<Cj>(p0[i]), x[i]));
            const T* p[2] = {p0 + lo1, p1 + lo1};
            cols<T, 2, false, true, Cj, true>(hi0 - lo1 + 1, p, nullptr, nullptr, 0, x + lo1, 1, s);
            for (int i = hi0 + 1 > lo1 ? hi0 + 1 : lo1; i <= hi1; ++i) s[1] = addT(s[1], mulT(cj<Cj>(p1[i]), x[i]));
            add_scaled(y + j, s[0], al);
            add_scaled(y + j + 1, s[1], al);
        };
        gb_runs(b.m, n, b, pair, one);
        return;
    }
    for (int j = 0; j < n; ++j) {
        const int lo = b.lo(j);
        const T* p = col(j) + lo;
        T s = T{};
        cols<T, 1, false, true, Cj, false>(b.hi(j) - lo + 1, &p, nullptr, nullptr, 0, x + lo * incx, incx, &s);
        add_scaled(y + j * incy, s, al);
    }
}

}  // namespace

template <class T>
void gbmv(Ch trans, I pm, I pn, I pkl, I pku, const T* palpha, const T* a, I plda, const T* x, I pincx,
          const T* pbeta, T* y, I pincy, L) {
    const int m = *pm, n = *pn;
    if (m == 0 || n == 0) return;
    const T alpha = *palpha, beta = *pbeta;
    if (is_zero(alpha) && is_one(beta)) return;
    const char tr = static_cast<char>(*trans & 0xDF);
    const int incx = *pincx, incy = *pincy, lda = *plda;
    const int lenx = tr == 'N' ? n : m, leny = tr == 'N' ? m : n;
    x += vec_start(lenx, incx);
    y += vec_start(leny, incy);
    scale_y(leny, beta, y, incy);
    if (is_zero(alpha)) return;
    const band_cols b{m, *pkl, *pku};
    if (tr == 'N') gb_notrans(b, n, alpha, a, lda, x, incx, y, incy);
    else if (tr == 'T') gb_trans<T, false>(b, n, alpha, a, lda, x, incx, y, incy);
    else gb_trans<T, cx<T>>(b, n, alpha, a, lda, x, incx, y, incy);  // "C"
}

ZVA_INSTANTIATE_TYPES(gbmv)

}  // namespace zva::ZVA_NS
