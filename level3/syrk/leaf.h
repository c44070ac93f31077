// The leaf kernels: C += alpha*X*op(Y)' on the triangle of one diagonal
// block, without blocking, every element one sum over k in registers that
// alpha multiplies before it is added to C. They serve DSYRK's leaves, the
// 32-wide diagonal triangles of ZHERK, and every band kernel whose
// temporary block could not be had.
//
// Four columns of C at a time, with an accumulator each, and a vector on
// the rows of C: for "N" the lanes load a piece of a column of X, for the
// other letters they gather a piece of a row; the column's element of Y is broadcast (complex:
// its real and imaginary parts, against X and X with its parts exchanged,
// the conjugations folded into sign masks). At most seven of the eight
// vector registers are live. DSYRK's other letters put the lanes on the
// long dimension, k, instead, and fold each sum across the lanes at the
// end. Where a group of rows cuts the diagonal, only the triangle's
// elements are read and written; Hermitian diagonals keep an imaginary part
// of 0. 128-bit lanes on branches 2 to 5, 256-bit on 6 and 7, fused
// multiply-add on 7.
#pragma once
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

// f.template operator()<NC>() for a column count of 1 to 4.
template <class F> inline void by_count(int nc, F f) {
    switch (nc) {
        case 4: f.template operator()<4>(); break;
        case 3: f.template operator()<3>(); break;
        case 2: f.template operator()<2>(); break;
        case 1: f.template operator()<1>(); break;
        default: break;
    }
}

// C += alpha*X*op(Y)' on the triangle of order n at c. Row r of op(X) is
// row r of X for "N", else its column r (conjugated where conjx); likewise
// for Y, conjugated once more where conjy.
template <class T> struct leaf_args {
    int n, k;
    T alpha;
    const T* x;
    int ldx;
    const T* y;
    int ldy;
    T* c;
    int ldc;
    bool notrans, conjx, conjy, herm;
};

// Where the lanes of a leaf lie: on rows of C, loaded from a column of X
// ("N") or gathered from a row of it, or along k (DSYRK's other letters).
enum lanes_on : int { rows_loaded, rows_gathered, along_k };

inline double fold(__m128d v) { return _mm_cvtsd_f64(_mm_add_sd(v, _mm_unpackhi_pd(v, v))); }
#if ZVA_BRANCH >= 6
inline double fold(__m256d v) {
    return fold(_mm_add_pd(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1)));
}
#endif

// Which elements of a block of C a leaf writes: all, or those on and above
// (on and below) the diagonal where the block cuts it.
enum cut : int { whole, cut_upper, cut_lower };

// W rows of C from i against NC columns from j.
template <class L, lanes_on On, int NC, cut Cut = whole>
inline void leaf_rows_block(const leaf_args<typename L::T>& p, int i, int j) {
    using T = typename L::T;
    using v = typename L::v;
    v acc[NC];
#pragma GCC unroll 4
    for (int q = 0; q < NC; ++q) acc[q] = L::zero();
    v ma = L::zero(), mp = L::zero();
    if constexpr (L::cplx) {
        const typename L::R neg = -0.0, pos = 0.0;
        ma = L::pair(pos, p.conjx ? neg : pos);
        mp = L::pair(p.conjx == p.conjy ? neg : pos, p.conjy ? neg : pos);
    }
    // Element l of row r of op(X) at x + l*sx + r*rx; of op(Y) at y + l*sy.
    constexpr bool n = On == rows_loaded;
    const int sx = n ? p.ldx : 1, rx = n ? 1 : p.ldx;
    const int sy = n ? p.ldy : 1, ry = n ? 1 : p.ldy;
    const T* xl = p.x + (ptrdiff_t)i * rx;
    const T* yl = p.y + (ptrdiff_t)j * ry;
    for (int l = 0; l < p.k; ++l, xl += sx, yl += sy) {
        const v x = On == rows_loaded ? L::load(xl) : L::gather(xl, rx);
        if constexpr (L::cplx) {
            const v xe = L::flip(x, ma), xs = L::flip(L::swp(x), mp);
#pragma GCC unroll 4
            for (int q = 0; q < NC; ++q)
                acc[q] = L::madd(L::madd(acc[q], xe, L::bre(yl + q * ry)), xs, L::bim(yl + q * ry));
        } else {
#pragma GCC unroll 4
            for (int q = 0; q < NC; ++q) acc[q] = L::madd(acc[q], x, L::bcast(yl + q * ry));
        }
    }
    const simd::factor<L> al = simd::make_factor<L>(p.alpha);
#pragma GCC unroll 4
    for (int q = 0; q < NC; ++q) {
        T* e = p.c + i + (ptrdiff_t)(j + q) * p.ldc;
        if constexpr (Cut == whole) {
            L::store(e, L::add(L::load(e), simd::times(al, acc[q])));
        } else {
            T s[L::W];
            L::store(s, simd::times(al, acc[q]));
            for (int t = 0; t < L::W; ++t) {
                if (Cut == cut_upper ? i + t > j + q : i + t < j + q) continue;
                if constexpr (L::cplx) {
                    e[t].re += s[t].re;
                    e[t].im = p.herm && i + t == j + q ? 0 : e[t].im + s[t].im;
                } else {
                    e[t] += s[t];
                }
            }
        }
    }
}

// DSYRK, letters other than "N": row i of C against NC columns from j, the
// lanes along k.
template <int NC> inline void leaf_k_block(const leaf_args<double>& p, int i, int j) {
    using L = lanev<double>;
    using L1 = lane1<double>;
    typename L::v acc[NC];
#pragma GCC unroll 4
    for (int q = 0; q < NC; ++q) acc[q] = L::zero();
    const double* xi = p.x + (ptrdiff_t)i * p.ldx;
    const double* yj = p.y + (ptrdiff_t)j * p.ldy;
    int l = 0;
    for (; l + L::W <= p.k; l += L::W) {
        const typename L::v x = L::load(xi + l);
#pragma GCC unroll 4
        for (int q = 0; q < NC; ++q) acc[q] = L::madd(acc[q], x, L::load(yj + q * p.ldy + l));
    }
    typename L1::v s[NC];
#pragma GCC unroll 4
    for (int q = 0; q < NC; ++q) s[q] = L1::set1(fold(acc[q]));
    for (; l < p.k; ++l) {
        const typename L1::v x = L1::load(xi + l);
#pragma GCC unroll 4
        for (int q = 0; q < NC; ++q) s[q] = L1::madd(s[q], x, L1::load(yj + q * p.ldy + l));
    }
    const typename L1::v al = L1::set1(p.alpha);
#pragma GCC unroll 4
    for (int q = 0; q < NC; ++q) {
        double* e = p.c + i + (ptrdiff_t)(j + q) * p.ldc;
        L1::store(e, L1::add(L1::load(e), L1::mul(al, s[q])));
    }
}

// Rows i0 to i1 - 1 against NC columns from j.
template <class T, lanes_on On, int NC>
inline void leaf_rows(const leaf_args<T>& p, int i0, int i1, int j) {
    int i = i0;
    if constexpr (On == along_k) {
        for (; i < i1; ++i) leaf_k_block<NC>(p, i, j);
    } else {
        for (; i + lanev<T>::W <= i1; i += lanev<T>::W) leaf_rows_block<lanev<T>, On, NC>(p, i, j);
        for (; i < i1; ++i) leaf_rows_block<lane1<T>, On, NC>(p, i, j);
    }
}

// One leaf: groups of four columns; the rows wholly inside the triangle
// first ("U") or last ("L"). The four rows that cut the diagonal go by
// vectors cut at the diagonal where the lanes are rows and no wider than
// four, otherwise (and in a narrower last group) one by one.
template <class T, bool Upper, lanes_on On> void leaf(const leaf_args<T>& p) {
    using LV = lanev<T>;
    constexpr cut band = Upper ? cut_upper : cut_lower;
    constexpr bool cut_vectors = On != along_k && LV::W <= 4;
    for (int j = 0; j < p.n; j += 4) {
        const int nc = p.n - j < 4 ? p.n - j : 4;
        if (Upper) by_count(nc, [&]<int NC>() { leaf_rows<T, On, NC>(p, 0, j, j); });
        if (cut_vectors && nc == 4) {
            // Rows i .. i + W - 1 meet columns i .. j + 3 ("U") or j .. i + W - 1.
            for (int i = j; i < j + 4; i += LV::W) {
                const int first = Upper ? i : j, count = Upper ? j + 4 - i : i + LV::W - j;
                by_count(count, [&]<int NC>() { leaf_rows_block<LV, On, NC, band>(p, i, first); });
            }
        } else {
            for (int r = 0; r < nc; ++r) {
                // Row j + r meets columns j + r .. j + nc - 1 ("U") or j .. j + r.
                const int first = Upper ? j + r : j, count = Upper ? nc - r : r + 1;
                by_count(count, [&]<int NC>() {
                    if constexpr (On == along_k) leaf_k_block<NC>(p, j + r, first);
                    else leaf_rows_block<lane1<T>, On, NC, band>(p, j + r, first);
                });
            }
        }
        if (!Upper) by_count(nc, [&]<int NC>() { leaf_rows<T, On, NC>(p, j + nc, p.n, j); });
    }
}

// The leaf of a triangle; AlongK only for DSYRK's letters other than "N".
template <class T, bool AlongK = false> void leaf_of(bool upper, const leaf_args<T>& p) {
    if constexpr (AlongK) {
        if (upper) leaf<T, true, along_k>(p);
        else leaf<T, false, along_k>(p);
    } else if (p.notrans) {
        if (upper) leaf<T, true, rows_loaded>(p);
        else leaf<T, false, rows_loaded>(p);
    } else {
        if (upper) leaf<T, true, rows_gathered>(p);
        else leaf<T, false, rows_gathered>(p);
    }
}

}  // namespace
}  // namespace zva::ZVA_NS
