// TRMV, x := op(A)*x, and TRSV, x := inv(op(A))*x, for S, D, C, Z on every
// branch: the kernels behind the TRMV and TRSV dispatch points and the
// slice kernel of the threaded TRMV (branches 4 to 7).
//
// TRMV walks the triangle in blocks of 64 rows (D, C) or 32 (S, Z) in an
// order that reads every old x before it is overwritten; the rectangles
// between blocks go to the branch's GEMV kernel (called directly, so no
// nested team), the block's own triangle to trmv_base. TRSV walks blocks of
// 32 in the order of the substitution, trsv_base solving each block and the
// threaded GEMV driver doing the updates, so its thresholds decide whether
// a block update forks.
//
// One text for all branches: the walks of level2/rowwalk.h over the lane
// kinds of the branch (vectors of 128 bits up to branch 5, 256 from 6,
// fused in 7). Rows a pass in the triangles, in vectors of the branch:
//   update (not transposed), 4 columns or one    4, then 1 on branch 7, 1 row
//   dot (transposed), 4 columns                  1, then 128 bits on 7, 1 row
//   dot, one column                              4, then 1 on branch 7, 1 row
// Eight ymm or xmm registers: the 4-column update keeps four row vectors
// and takes the column factors from memory where they do not fit.
#include <immintrin.h>

#include <type_traits>

#include "frame/scalar.h"
#include "level2/drivers.h"
#include "level2/kernels.h"
#include "level2/rowwalk.h"

namespace zva::ZVA_NS {
namespace {

// What the letters ask for: upper triangle, transposed, conjugated (complex
// "C" only), diagonal read.
struct tri_op {
    bool up, tr, cj, nonunit;
};
template <class T> tri_op tri_of(Ch uplo, Ch trans, Ch diag) {
    const bool tr = (*trans & ~0x20) != 'N';
    const bool cj = !std::is_arithmetic_v<T> && (*trans & ~0x20) == 'C';
    return {(*uplo & ~0x20) == 'U', tr, cj, (*diag & ~0x20) == 'N'};
}

template <class T> constexpr T unit_value() {
    if constexpr (std::is_arithmetic_v<T>) return T(1);
    else return T{1, 0};
}

// The first element, in memory, of logical elements [first, first + count)
// of a vector whose element k lies at p + k*inc: where a BLAS routine wants
// the vector's pointer.
template <class T> T* blas_ptr(T* p, int inc, int first, int count) {
    return p + (long)(inc >= 0 ? first : first + count - 1) * inc;
}

// ---- one block's triangle ---------------------------------------------------

// Widths of the walks; TL the narrower pass of branch 7.
template <class T> using TL = tail7<lanev<T>>;
template <class T> using TH = tail7<half_lane<T>>;

template <int N> constexpr std::integral_constant<int, N> cols{};

// x := op(A)*x on an n x n triangle in place; x's element k at xp + k*inc.
// Columns in groups of 4 and n mod 4 single ones; the walk goes up from the
// first column for (U, N) and (L, T), single columns last, and down from the
// last column for the other two, single columns first, so that every x(j)
// is read before it is overwritten.

template <class T, bool XU>
void trmv_base(const tri_op& o, int n, const T* a, int lda, T* xp, int inc) {
    using S = lane1<T>;
    using AV = vec<const T, true>;
    const vec<T, XU> x = vec_of<T, XU>(xp, inc);
    auto at = [&](int r, int c) { return a + r + (long)c * lda; };
    auto elem = [&](int r, int c) { return conj_if<S>(S::load(at(r, c)), o.cj); };
    // x(j) := a(j, j)*x(j).
    auto diag = [&](int j) {
        if (o.nonunit) S::store(x.at(j), mul_f<S>(elem(j, j), fac_of<S>(*x.at(j))));
    };
    // Not transposed: rows [r0, r1) += a(r0.., c0..c0+NC) * x(c0..).
    auto rect = [&](auto nc, int r0, int r1, int c0) {
        constexpr int NC = decltype(nc)::value;
        T f[NC];
        AV src[NC];
        for (int k = 0; k < NC; ++k) f[k] = *x.at(c0 + k), src[k] = {at(r0, c0 + k), 1};
        upd_rows<NC, 4, TL<T>>(r1 - r0, vec<T, XU>{x.at(r0), inc}, src, f);
    };
    // Transposed: x(c0 + k) += the dot of column c0 + k over rows [r0, r1);
    // the triangle step `inside` runs between the dot and the add.
    auto dots = [&](auto nc, int r0, int r1, int c0, auto inside) {
        constexpr int NC = decltype(nc)::value;
        T d[NC];
        const vec<const T, XU> xs{x.at(r0), inc};
        if constexpr (NC == 4) dot_rows<4, 1, TH<T>>(r1 - r0, at(r0, c0), lda, xs, o.cj, d);
        else dot_rows<1, 4, TL<T>>(r1 - r0, at(r0, c0), lda, xs, o.cj, d);
        inside();
        for (int k = 0; k < NC; ++k) *x.at(c0 + k) = sc_add(*x.at(c0 + k), d[k]);
    };
    // The 4 x 4 triangle at (j, j), in scalar steps: each element is the
    // diagonal product, then the products of its partners in column order.
    const bool ascend = o.up != o.tr;
    auto tri4 = [&](int j) {
        for (int s = 0; s < 4; ++s) {
            const int r = ascend ? s : 3 - s;
            reg<S> acc = o.nonunit ? mul_f<S>(elem(j + r, j + r), fac_of<S>(*x.at(j + r)))
                                   : S::load(x.at(j + r));
            for (int q = 0; q < 4; ++q) {
                if (ascend ? q <= r : q >= r) continue;
                const reg<S> e = o.tr ? elem(j + q, j + r) : elem(j + r, j + q);
                acc = upd<S>(acc, e, fac_of<S>(*x.at(j + q)));
            }
            S::store(x.at(j + r), acc);
        }
    };
    const int n4 = n & ~3;
    if (!o.tr && o.up) {
        for (int j = 0; j < n4; j += 4) rect(cols<4>, 0, j, j), tri4(j);
        for (int j = n4; j < n; ++j) rect(cols<1>, 0, j, j), diag(j);
    } else if (!o.tr) {
        for (int j = n - 1; j >= n4; --j) rect(cols<1>, j + 1, n, j), diag(j);
        for (int j = n4 - 4; j >= 0; j -= 4) rect(cols<4>, j + 4, n, j), tri4(j);
    } else if (o.up) {
        for (int j = n - 1; j >= n4; --j) dots(cols<1>, 0, j, j, [&] { diag(j); });
        for (int j = n4 - 4; j >= 0; j -= 4) dots(cols<4>, 0, j, j, [&] { tri4(j); });
    } else {
        for (int j = 0; j < n4; j += 4) dots(cols<4>, j + 4, n, j, [&] { tri4(j); });
        for (int j = n4; j < n; ++j) dots(cols<1>, j + 1, n, j, [&] { diag(j); });
    }
}

// x := inv(op(A))*x on an n x n triangle, n <= 32. Not transposed, a
// column sweep: x(j) := x(j) / a(j, j), then the rest of the block loses
// x(j)*a(:, j). Transposed, the dot form: with unit stride two elements a
// step, each from the dot of its column with the solved elements, then the
// 2 x 2 corner; otherwise one element a step.
template <class T, bool XU>
void trsv_base(const tri_op& o, int n, const T* a, int lda, T* xp, int inc) {
    using CV = vec<const T, XU>;
    const vec<T, XU> x = vec_of<T, XU>(xp, inc);
    auto at = [&](int r, int c) { return a + r + (long)c * lda; };
    auto elem = [&](int r, int c) { return sc_conj(*at(r, c), o.cj); };
    auto solve = [&](int j, T rhs) { *x.at(j) = o.nonunit ? sc_div(rhs, elem(j, j)) : rhs; };
    auto sweep = [&](int j, int r0, int r1) {
        solve(j, *x.at(j));
        const T f = sc_neg(*x.at(j));
        const vec<const T, true> src{at(r0, j), 1};
        upd_rows<1, 4, TL<T>>(r1 - r0, vec<T, XU>{x.at(r0), inc}, &src, &f);
    };
    // Column j solved from the dot over rows [r0, r1).
    auto single = [&](int j, int r0, int r1) {
        T d;
        dot_rows<1, 4, TL<T>>(r1 - r0, at(r0, j), lda, CV{x.at(r0), inc}, o.cj, &d);
        solve(j, sc_sub(*x.at(j), d));
    };
    // Columns c and c + 1 (c first in the substitution when fwd) from the
    // dots over rows [r0, r1), then the corner element between them.
    auto pair = [&](int c, int r0, int r1, bool fwd) {
        T d[2];
        dot_rows<2, 1, void>(r1 - r0, at(r0, c), lda, CV{x.at(r0), inc}, o.cj, d);
        const int p = fwd ? c : c + 1, q = fwd ? c + 1 : c;
        solve(p, sc_sub(*x.at(p), d[p - c]));
        const T corner = fwd ? elem(c, c + 1) : elem(c + 1, c);
        solve(q, sc_sub(sc_sub(*x.at(q), d[q - c]), sc_mul(corner, *x.at(p))));
    };
    if (!o.tr) {
        if (o.up)
            for (int j = n - 1; j >= 0; --j) sweep(j, 0, j);
        else
            for (int j = 0; j < n; ++j) sweep(j, j + 1, n);
    } else if (!XU) {
        if (o.up)
            for (int j = 0; j < n; ++j) single(j, 0, j);
        else
            for (int j = n - 1; j >= 0; --j) single(j, j + 1, n);
    } else if (o.up) {
        int j = 0;
        for (; j + 2 <= n; j += 2) pair(j, 0, j, true);
        if (j < n) single(j, 0, j);
    } else {
        int j = n - 1;
        for (; j >= 1; j -= 2) pair(j - 1, j + 1, n, false);
        if (j == 0) single(0, 1, n);
    }
}

template <class F> void by_stride(int inc, F&& f) {
    if (inc == 1) f(std::true_type{});
    else f(std::false_type{});
}

// ---- the walks --------------------------------------------------------------

// Rows [r0, r1) x columns [c0, c1) of A in one matrix-vector product by
// gemv_fn: not transposed, dst(rows) += alpha*A*src(columns); transposed,
// dst(columns) += alpha*op(A)'*src(rows). Vectors as in blas_ptr.
template <class T, class G>
void rect_product(G gemv_fn, const tri_op& o, Ch trans, const T* alpha, const T* a, int lda,
                  int r0, int r1, int c0, int c1, const T* src, int sinc, T* dst, int inc) {
    int m = r1 - r0, k = c1 - c0;
    if (m <= 0 || k <= 0) return;
    const T one = unit_value<T>();
    const int xf = o.tr ? r0 : c0, xc = o.tr ? m : k, yf = o.tr ? c0 : r0, yc = o.tr ? k : m;
    gemv_fn(o.tr ? trans : "N", &m, &k, alpha, a + r0 + (long)c0 * lda, &lda,
            blas_ptr(src, sinc, xf, xc), &sinc, &one, blas_ptr(dst, inc, yf, yc), &inc);
}

template <class T> constexpr int trmv_block = sizeof(T) == 8 ? 64 : 32;
constexpr int trsv_block = 32;

// Rows [s, e) of x := op(A)*x, x's element k at xl + k*inc. src holds the
// old x (element k at src + k*sinc): the private copy in a slice, x itself
// in the whole call, where every element is read before it is written.
// (L, N) and (U, T) walk the blocks from the last to the first, the other
// two from the first; then one product adds the rectangle outside the
// slice's triangle.
template <class T>
void trmv_walk(Ch uplo, Ch trans, Ch diag, int n, const T* a, int lda, T* xl, int inc, int s,
               int e, const T* src, int sinc) {
    const tri_op o = tri_of<T>(uplo, trans, diag);
    const T one = unit_value<T>();
    // x(rows) or x(columns) gets the product with the old x in src.
    auto mv = [&](int r0, int r1, int c0, int c1) {
        rect_product(&ZVA_NS::gemv<T>, o, trans, &one, a, lda, r0, r1, c0, c1, src, sinc, xl, inc);
    };
    auto base = [&](int b0, int b1) {
        by_stride(inc, [&](auto u) {
            trmv_base<T, decltype(u)::value>(o, b1 - b0, a + b0 + (long)b0 * lda, lda, xl + (long)b0 * inc, inc);
        });
    };
    auto block = [&](int b0) {
        const int b1 = b0 + trmv_block<T> < e ? b0 + trmv_block<T> : e;
        if (!o.tr) o.up ? mv(s, b0, b0, b1) : mv(b1, e, b0, b1);
        base(b0, b1);
        if (o.tr) o.up ? mv(s, b0, b0, b1) : mv(b1, e, b0, b1);
    };
    const int nb = (e - s + trmv_block<T> - 1) / trmv_block<T>;
    if (o.up != o.tr)
        for (int k = 0; k < nb; ++k) block(s + k * trmv_block<T>);
    else
        for (int k = nb - 1; k >= 0; --k) block(s + k * trmv_block<T>);
    if (!o.tr) o.up ? mv(s, e, e, n) : mv(s, e, 0, s);
    else o.up ? mv(0, s, s, e) : mv(e, n, s, e);
}

// x := inv(op(A))*x: blocks of 32 in the order of the substitution, the
// rest of n / 32 last. Transposed (left-looking): the block first loses the
// product of the solved part, then is solved; not transposed
// (right-looking): the block is solved, then the unsolved part loses its
// product. Each product goes to the threaded GEMV driver.
template <class T>
void trsv_walk(Ch uplo, Ch trans, Ch diag, int n, const T* a, int lda, T* xl, int inc) {
    const tri_op o = tri_of<T>(uplo, trans, diag);
    const T minus = sc_neg(unit_value<T>());
    // x(rows) or x(columns) loses the product with the solved elements.
    auto mv = [&](int r0, int r1, int c0, int c1) {
        rect_product(&::zva::gemv<T>, o, trans, &minus, a, lda, r0, r1, c0, c1, xl, inc, xl, inc);
    };
    auto base = [&](int b0, int b1) {
        by_stride(inc, [&](auto u) {
            trsv_base<T, decltype(u)::value>(o, b1 - b0, a + b0 + (long)b0 * lda, lda, xl + (long)b0 * inc, inc);
        });
    };
    // Forward for (L, N) and (U, T).
    const bool fwd = o.up == o.tr;
    // The solved part lies above the block going forward, below it going
    // back; the unsolved part on the other side.
    auto block = [&](int b0, int b1) {
        if (o.tr) fwd ? mv(0, b0, b0, b1) : mv(b1, n, b0, b1);
        base(b0, b1);
        if (!o.tr) fwd ? mv(b1, n, b0, b1) : mv(0, b0, b0, b1);
    };
    if (fwd)
        for (int b0 = 0; b0 < n; b0 += trsv_block) block(b0, b0 + trsv_block < n ? b0 + trsv_block : n);
    else
        for (int b1 = n; b1 > 0; b1 -= trsv_block) block(b1 > trsv_block ? b1 - trsv_block : 0, b1);
}

}  // namespace

template <class T>
void trmv(Ch uplo, Ch trans, Ch diag, I n, const T* a, I lda, T* x, I incx, L, L, L) {
    if (*n <= 0) return;
    T* xl = x + vec_start(*n, *incx);
    trmv_walk<T>(uplo, trans, diag, *n, a, *lda, xl, *incx, 0, *n, xl, *incx);
}

template <class T>
void trsv(Ch uplo, Ch trans, Ch diag, I n, const T* a, I lda, T* x, I incx, L, L, L) {
    if (*n <= 0) return;
    trsv_walk<T>(uplo, trans, diag, *n, a, *lda, x + vec_start(*n, *incx), *incx);
}

ZVA_INSTANTIATE_TYPES(trmv)
ZVA_INSTANTIATE_TYPES(trsv)

#if ZVA_BRANCH >= 4
// One thread's rows [first, last) of the threaded TRMV; work holds the old
// x in logical order.
template <class T>
void trmv_region(Ch uplo, Ch trans, Ch diag, I n, const T* a, I lda, T* x, I incx, T* work,
                 int first, int last) {
    if (first >= last) return;
    T* xl = x + vec_start(*n, *incx);
    trmv_walk<T>(uplo, trans, diag, *n, a, *lda, xl, *incx, first, last, work, 1);
}

ZVA_INSTANTIATE_TYPES(trmv_region)
#endif

}  // namespace zva::ZVA_NS
