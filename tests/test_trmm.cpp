// STRMM, DTRMM, CTRMM and ZTRMM through their exports, on the branch of this
// run: every side, triangle, transposition and diagonal, against a long
// double reference computed from a saved copy of B (B is overwritten in
// place). The order of additions is free, so results are held to a
// rounding bound. Elements of A outside the triangle, and the diagonal where
// it is unit, hold NaN: reading one shows in the result.
#include <math.h>
#include <omp.h>
#include <string.h>

#include <vector>

#include "zva.h"

namespace {

template <class T>
using trmm_fn = void(ZVA_STDCALL*)(const char*, int, const char*, int, const char*, int,
                                   const char*, int, const int*, const int*, const T*, const T*,
                                   const int*, T*, const int*);

template <class T>
constexpr long double eps_of = sizeof(typename elem<T>::R) == 4 ? 6e-8L : 1.2e-16L;

lcg rng{777};

struct form {
    char side, uplo, trans, diag;
};
// The 24 combinations of letters; "C" is the conjugate transpose for C and
// Z and a plain transpose for S and D.
std::vector<form> all_forms() {
    std::vector<form> v;
    for (char s : {'L', 'R'})
        for (char u : {'U', 'L'})
            for (char t : {'N', 'T', 'C'})
                for (char d : {'N', 'U'}) v.push_back({s, u, t, d});
    return v;
}
char lower(char c) { return (char)(c | 0x20); }

// 1, -1, others; the last is 0 for S and D, (0, 1) for C and Z.
template <class T> T alpha_of(int round) {
    const double v[][2] = {{1, 0}, {-1, 0}, {0.7, -0.3}, {-2.5, 1.25}, {0, 1}};
    const double* x = v[round % 5];
    return make<T>(x[0], elem<T>::cplx ? x[1] : 0);
}

template <class T> T quiet_nan() { return make<T>(NAN, NAN); }

// Operands of one call: A is k x k with lda = k + extra, B is m x n with
// ldb = m + extra, with 8 marked elements before and after B and marked
// values in the rows past m.
template <class T> struct problem {
    form f;
    int m, n, k, lda, ldb;
    T alpha;
    std::vector<T> av, bv, b0;
    T *a, *b;

    problem(form f_, int m_, int n_, T alpha_, int extra) : f(f_), m(m_), n(n_), alpha(alpha_) {
        k = left() ? m : n;
        lda = (k > 1 ? k : 1) + extra;
        ldb = (m > 1 ? m : 1) + extra;
        av.resize((size_t)lda * (k > 0 ? k : 1));
        for (int l = 0; l < (k > 0 ? k : 1); ++l)
            for (int i = 0; i < lda; ++i)
                av[i + (size_t)l * lda] = i < k && read(i, l) ? rng.value<T>() : quiet_nan<T>();
        const size_t cells = (size_t)ldb * (n > 0 ? n : 1);
        bv.resize(cells + 16);
        for (size_t e = 0; e < cells + 16; ++e)
            bv[e] = inside(e) ? rng.value<T>() : make<T>(1234.5 + e, -(double)e);
        b0 = bv;
        a = av.data(), b = bv.data() + 8;
    }
    bool left() const { return (f.side | 0x20) == 'l'; }
    bool upper() const { return (f.uplo | 0x20) == 'u'; }
    bool unit() const { return (f.diag | 0x20) == 'u'; }
    // Whether TRMM may read A(i, l).
    bool read(int i, int l) const { return (upper() ? i <= l : i >= l) && !(unit() && i == l); }
    bool inside(size_t e) const {
        const long at = (long)e - 8;
        return at >= 0 && at < (long)ldb * n && at % ldb < m;
    }
    void run() {
        static trmm_fn<T> fn = zva_export<trmm_fn<T>>(routine<T>("TRMM").c_str());
        fn(&f.side, 1, &f.uplo, 1, &f.trans, 1, &f.diag, 1, &m, &n, &alpha, a, &lda, b, &ldb);
    }
    // Element (i, l) of op(A), within its triangle.
    lc op_a(int i, int l) const {
        const char t = f.trans | 0x20;
        if (i == l && unit()) return lc{1, 0};
        const lc x = to_lc(t == 'n' ? a[i + (long)l * lda] : a[l + (long)i * lda]);
        return t == 'c' ? conj(x) : x;
    }
    // op(A) upper: row i reads columns i on, column j rows up to j.
    bool op_upper() const { return upper() != ((f.trans | 0x20) != 'n'); }
    lc b_old(int i, int j) const { return to_lc(b0[8 + i + (long)j * ldb]); }

    void expect_near_reference() const {
        const lc al = to_lc(alpha);
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < m; ++i) {
                // The terms of op(A) inside the triangle only: the rest is NaN.
                const int d = left() ? i : j;
                const int lo = left() == op_upper() ? d : 0, hi = left() == op_upper() ? k : d + 1;
                lc s{0, 0};
                long double size = 0;
                for (int l = lo; l < hi; ++l) {
                    const lc x = left() ? op_a(i, l) : op_a(l, j);
                    const lc y = left() ? b_old(l, j) : b_old(i, l);
                    s = add(s, mul(x, y));
                    size += mag(x) * mag(y);
                }
                const lc want = mul(al, s);
                const lc got = to_lc(b[i + (long)j * ldb]);
                // An infinity of B reaches the elements that read it, and
                // only those.
                if (!isfinite(want.re) || !isfinite(want.im)) {
                    ASSERT_FALSE(isfinite(got.re) && isfinite(got.im))
                        << f.side << f.uplo << f.trans << f.diag << " m=" << m << " n=" << n
                        << " at " << i << "," << j << " got " << got.re << "," << got.im;
                    continue;
                }
                const long double bound = (k + 4) * 4 * eps_of<T> * mag(al) * size + 1e-30L;
                ASSERT_LE(mag(add(got, lc{-want.re, -want.im})), bound)
                    << f.side << f.uplo << f.trans << f.diag << " m=" << m << " n=" << n
                    << " at " << i << "," << j << " got " << got.re << "," << got.im
                    << " want " << (double)want.re << "," << (double)want.im;
            }
        expect_outside_untouched();
    }
    void expect_outside_untouched() const {
        for (size_t e = 0; e < bv.size(); ++e) {
            if (inside(e)) continue;
            ASSERT_TRUE(same_bits(bv[e], b0[e])) << "element " << (long)e - 8;
        }
    }
};

template <class T> class Trmm : public testing::Test {};
using types = testing::Types<float, double, cfloat, cdouble>;
TYPED_TEST_SUITE(Trmm, types);

// One call of form f with the triangle of order t and the free dimension of
// B of extent fr; letters in lower case on odd rounds.
template <class T> void check(form f, int t, int fr, int round) {
    if (round % 2) f = {lower(f.side), lower(f.uplo), lower(f.trans), lower(f.diag)};
    const bool left = (f.side | 0x20) == 'l';
    const int extra[] = {0, 1, 3};
    problem<T> p(f, left ? t : fr, left ? fr : t, alpha_of<T>(round), extra[round % 3]);
    p.run();
    p.expect_near_reference();
}

TYPED_TEST(Trmm, EveryFormSmall) {
    int round = 0;
    for (const form& f : all_forms())
        for (int t = 1; t <= 3; ++t)
            for (int fr = 1; fr <= 3; ++fr) check<TypeParam>(f, t, fr, round++);
}

// Triangles across the blocks of the three levels (8 to 512) and one past
// them, with odd and even free extents across the slabs of the last levels
// (32 to 256): a block that read rows or columns of B already written, or
// a wrong part of A, shows at once.
TYPED_TEST(Trmm, EveryFormBlocked) {
    struct shape {
        int t, fr;
    };
    const shape shapes[] = {{9, 33}, {17, 6}, {33, 65}, {65, 9}, {129, 4}, {257, 3}, {513, 1}};
    int round = 0;
    for (const form& f : all_forms())
        for (const shape& s : shapes) check<TypeParam>(f, s.t, s.fr, round++);
}

// The free dimension across the slabs of the first level (512 to 2048).
TYPED_TEST(Trmm, LongFreeDimension) {
    int round = 0;
    for (const form& f : all_forms())
        if (f.diag == 'N' && f.trans != 'C')
            check<TypeParam>(f, 5, f.side == 'L' ? 2049 : 1025, round++);
}

// Both dimensions past several blocks and slabs at once; once per side.
TYPED_TEST(Trmm, LargeInPlace) {
    check<TypeParam>({'L', 'U', 'N', 'N'}, 260, 35, 2);
    check<TypeParam>({'R', 'L', 'C', 'U'}, 131, 70, 3);
}

// One infinite element of B: the elements of the product that read it are
// infinite or NaN, all others keep their finite values, also next to it in
// a pair of rows or a vector of the base routines.
TYPED_TEST(Trmm, InfinityStaysInItsRows) {
    using T = TypeParam;
    const int shapes[][2] = {{7, 6}, {37, 5}, {130, 3}};
    int round = 0;
    for (const form& f : all_forms())
        for (const auto& s : shapes)
            for (const int at : {0, 1, s[0] / 2, s[0] - 2, s[0] - 1}) {
                const bool left = f.side == 'L';
                // alpha = 0 (the fifth, for S and D) would clear the infinity.
                problem<T> p(f, left ? s[0] : s[1], left ? s[1] : s[0], alpha_of<T>(round % 4),
                             round % 2);
                ++round;
                const int i = left ? at : 1, j = left ? 1 : at;
                p.b[i + (long)j * p.ldb] = p.b0[8 + i + (long)j * p.ldb] = make<T>(INFINITY, 0);
                p.run();
                p.expect_near_reference();
            }
}

// alpha = 0: B becomes zero, NaN included, and A (all NaN) is not read.
TYPED_TEST(Trmm, AlphaZero) {
    using T = TypeParam;
    const int sizes[][2] = {{1, 1}, {12, 3}, {13, 2}, {40, 17}};
    int round = 0;
    for (const form& f : all_forms())
        for (const auto& s : sizes) {
            problem<T> p(f, s[0], s[1], make<T>(round % 2 ? -0.0 : 0.0), round % 3);
            ++round;
            for (T& x : p.av) x = quiet_nan<T>();
            for (size_t e = 0; e < p.bv.size(); ++e)
                if (p.inside(e)) p.bv[e] = p.b0[e] = quiet_nan<T>();
            p.run();
            for (int j = 0; j < p.n; ++j)
                for (int i = 0; i < p.m; ++i)
                    ASSERT_TRUE(same_bits(p.b[i + (long)j * p.ldb], make<T>(0.0))) << i << "," << j;
            p.expect_outside_untouched();
        }
}

// n = 0 or m = 0: nothing is read or written.
TYPED_TEST(Trmm, EmptyShapes) {
    using T = TypeParam;
    const int sizes[][2] = {{0, 0}, {5, 0}, {0, 5}, {0, 20}};
    for (const form& f : all_forms())
        for (const auto& s : sizes)
            for (double al : {0.0, 0.5}) {
                problem<T> p(f, s[0], s[1], make<T>(al), 1);
                for (T& x : p.av) x = quiet_nan<T>();
                p.run();
                p.expect_outside_untouched();
            }
}

// Above the limits of 16 the call forks; with one column (left) or row
// (right) per thread or fewer, the last thread takes all.
TYPED_TEST(Trmm, SlicesThreads) {
    struct shape {
        int m, n;
    };
    const shape shapes[] = {{37, 45}, {17, 1}, {1, 17}, {3, 40}, {40, 3}, {0, 20}};
    int round = 0;
    for (int threads = 1; threads <= 3; ++threads) {
        omp_set_num_threads(threads);
        for (const form& f : all_forms()) {
            if (f.diag == 'U' && f.uplo == 'L') continue;
            for (const shape& s : shapes) {
                problem<TypeParam> p(f, s.m, s.n, alpha_of<TypeParam>(round), round % 3);
                ++round;
                p.run();
                p.expect_near_reference();
            }
        }
    }
    omp_set_num_threads(1);
}

}  // namespace
