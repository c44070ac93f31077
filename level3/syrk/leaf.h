// The leaf kernels of DSYRK: C += alpha*A*A' ("N") or alpha*A'*A (other
// letters) on a triangle, upper or lower, without blocking. Every element
// is one dot product over k in registers; alpha multiplies the sum, which is
// then added to C (already scaled by beta).
//
// Four columns of C at a time, with an accumulator each, and a vector on the
// long dimension: for "N" the lanes are rows of C (columns of A run unit-
// stride) and op(A) of the four columns is broadcast; for the other letters
// the lanes run along k, and each sum is folded across the lanes at the end.
// Six of the eight vector registers are live. The rows of a group that cut
// the diagonal go one element at a time, so the other triangle is never
// written. 128-bit lanes on branches 4 and 5, 256-bit on 6 and 7, fused
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

struct leaf_args {
    int n, k;
    double alpha;
    const double* a;
    int lda;
    double* c;
    int ldc;
};

inline double fold(__m128d v) { return _mm_cvtsd_f64(_mm_add_sd(v, _mm_unpackhi_pd(v, v))); }
#if ZVA_BRANCH >= 6
inline double fold(__m256d v) {
    return fold(_mm_add_pd(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1)));
}
#endif

// "N": W rows of C from i against NC columns from j.
template <class L, int NC> inline void leaf_n(const leaf_args& p, int i, int j) {
    typename L::v acc[NC];
#pragma GCC unroll 4
    for (int q = 0; q < NC; ++q) acc[q] = L::zero();
    const double* ai = p.a + i;
    const double* aj = p.a + j;
    for (int l = 0; l < p.k; ++l, ai += p.lda, aj += p.lda) {
        const typename L::v x = L::load(ai);
#pragma GCC unroll 4
        for (int q = 0; q < NC; ++q) acc[q] = L::madd(acc[q], x, L::bcast(aj + q));
    }
    const typename L::v al = L::set1(p.alpha);
#pragma GCC unroll 4
    for (int q = 0; q < NC; ++q) {
        double* e = p.c + i + (ptrdiff_t)(j + q) * p.ldc;
        L::store(e, L::add(L::load(e), L::mul(al, acc[q])));
    }
}

// Other letters: row i of C against NC columns from j, lanes along k.
template <int NC> inline void leaf_t(const leaf_args& p, int i, int j) {
    using L = lanev<double>;
    using L1 = lane1<double>;
    typename L::v acc[NC];
#pragma GCC unroll 4
    for (int q = 0; q < NC; ++q) acc[q] = L::zero();
    const double* ai = p.a + (ptrdiff_t)i * p.lda;
    const double* aj = p.a + (ptrdiff_t)j * p.lda;
    int l = 0;
    for (; l + L::W <= p.k; l += L::W) {
        const typename L::v x = L::load(ai + l);
#pragma GCC unroll 4
        for (int q = 0; q < NC; ++q) acc[q] = L::madd(acc[q], x, L::load(aj + q * p.lda + l));
    }
    typename L1::v s[NC];
#pragma GCC unroll 4
    for (int q = 0; q < NC; ++q) s[q] = L1::set1(fold(acc[q]));
    for (; l < p.k; ++l) {
        const typename L1::v x = L1::load(ai + l);
#pragma GCC unroll 4
        for (int q = 0; q < NC; ++q) s[q] = L1::madd(s[q], x, L1::load(aj + q * p.lda + l));
    }
    const typename L1::v al = L1::set1(p.alpha);
#pragma GCC unroll 4
    for (int q = 0; q < NC; ++q) {
        double* e = p.c + i + (ptrdiff_t)(j + q) * p.ldc;
        L1::store(e, L1::add(L1::load(e), L1::mul(al, s[q])));
    }
}

// Rows i0 to i1 - 1 against NC columns from j.
template <bool NoTrans, int NC> inline void leaf_rows(const leaf_args& p, int i0, int i1, int j) {
    int i = i0;
    if constexpr (NoTrans) {
        for (; i + lanev<double>::W <= i1; i += lanev<double>::W) leaf_n<lanev<double>, NC>(p, i, j);
        for (; i < i1; ++i) leaf_n<lane1<double>, NC>(p, i, j);
    } else {
        for (; i < i1; ++i) leaf_t<NC>(p, i, j);
    }
}

// One leaf: groups of four columns; the rows wholly inside the triangle
// first ("U") or last ("L"), the rows that cut the diagonal one by one.
template <bool Upper, bool NoTrans> void syrk_leaf(const leaf_args& p) {
    for (int j = 0; j < p.n; j += 4) {
        const int nc = p.n - j < 4 ? p.n - j : 4;
        if (Upper) by_count(nc, [&]<int NC>() { leaf_rows<NoTrans, NC>(p, 0, j, j); });
        for (int r = 0; r < nc; ++r) {
            // Row j + r meets columns j + r .. j + nc - 1 ("U") or j .. j + r.
            const int first = Upper ? j + r : j, count = Upper ? nc - r : r + 1;
            by_count(count, [&]<int NC>() { leaf_rows<NoTrans, NC>(p, j + r, j + r + 1, first); });
        }
        if (!Upper) by_count(nc, [&]<int NC>() { leaf_rows<NoTrans, NC>(p, j + nc, p.n, j); });
    }
}

inline void syrk_leaf_nu(const leaf_args& p) { syrk_leaf<true, true>(p); }
inline void syrk_leaf_nl(const leaf_args& p) { syrk_leaf<false, true>(p); }
inline void syrk_leaf_tu(const leaf_args& p) { syrk_leaf<true, false>(p); }
inline void syrk_leaf_tl(const leaf_args& p) { syrk_leaf<false, false>(p); }

}  // namespace
}  // namespace zva::ZVA_NS
