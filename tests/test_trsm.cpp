// STRSM, DTRSM, CTRSM and ZTRSM through their exports, on the branch of this
// run: every side, triangle, transposition and diagonal, against a long
// double substitution and by the residual against the original right-hand
// side, at sizes around the blocks of each type's walk.
//
// A is diagonally dominant; the triangle it does not use, and a unit
// diagonal, hold NaN, so that a read of either shows in B. B sits between
// marked elements, with marked rows past m in every column.
#include <math.h>
#include <omp.h>
#include <string.h>

#include <complex>
#include <vector>

#include "zva.h"

namespace {

using cld = std::complex<long double>;

template <class T> struct kind;
template <> struct kind<float> {
    static constexpr const char* name = "STRSM";
    static constexpr long double eps = 6e-8L;
    static cld ld(float x) { return cld(x, 0); }
    static float make(double re, double) { return (float)re; }
};
template <> struct kind<double> {
    static constexpr const char* name = "DTRSM";
    static constexpr long double eps = 1.2e-16L;
    static cld ld(double x) { return cld(x, 0); }
    static double make(double re, double) { return re; }
};
template <> struct kind<cfloat> {
    static constexpr const char* name = "CTRSM";
    static constexpr long double eps = 6e-8L;
    static cld ld(cfloat x) { return cld(x.re, x.im); }
    static cfloat make(double re, double im) { return {(float)re, (float)im}; }
};
template <> struct kind<cdouble> {
    static constexpr const char* name = "ZTRSM";
    static constexpr long double eps = 1.2e-16L;
    static cld ld(cdouble x) { return cld(x.re, x.im); }
    static cdouble make(double re, double im) { return {re, im}; }
};

template <class T>
using trsm_fn = void(ZVA_STDCALL*)(const char*, int, const char*, int, const char*, int,
                                   const char*, int, const int*, const int*, const T*, const T*,
                                   const int*, T*, const int*);

lcg rng{1977};

// The plain complex product, without the library's care for infinities,
// which costs a call per product.
inline cld mul(cld x, cld y) {
    return {x.real() * y.real() - x.imag() * y.imag(), x.real() * y.imag() + x.imag() * y.real()};
}

// Letters of one call: side, uplo, transa, diag.
struct form {
    char side, uplo, trans, diag;
};
// Every form with transa N, T and C (C is T for the real types).
std::vector<form> all_forms() {
    std::vector<form> f;
    for (char s : {'L', 'R'})
        for (char u : {'U', 'L'})
            for (char t : {'N', 'T', 'C'})
                for (char d : {'N', 'U'}) f.push_back({s, u, t, d});
    return f;
}

constexpr int guard = 8;  // marked elements before and after B

template <class T> struct problem {
    using K = kind<T>;
    form f;
    int m, n, k, lda, ldb;
    T alpha;
    std::vector<T> av, bv, b0;
    T* b;

    // B starts off elements after its guard, with extra rows past m.
    problem(form f_, int m_, int n_, T alpha_, int extra = 0, int off = 0)
        : f(f_), m(m_), n(n_), alpha(alpha_) {
        k = left() ? m : n;
        lda = (k > 1 ? k : 1) + 1;
        ldb = (m > 1 ? m : 1) + extra;
        const T nan = K::make(NAN, NAN);
        av.assign((size_t)lda * (k > 0 ? k : 1), nan);
        // off-diagonal parts sum to less than the diagonal in every row
        const double off_scale = 2.0 / (k + 1);
        for (int j = 0; j < k; ++j)
            for (int i = 0; i < k; ++i) {
                T& e = av[i + (size_t)j * lda];
                if (i == j) {
                    if (f.diag == 'N') {
                        const double mag = 2.5 + rng.next(), sign = rng.next() < 0 ? -1 : 1;
                        e = K::make(sign * mag, rng.next());
                    }
                } else if ((i < j) == (f.uplo == 'U')) {
                    e = K::make(off_scale * rng.next(), off_scale * rng.next());
                }
            }
        const size_t cells = (size_t)ldb * (n > 0 ? n : 1);
        bv.resize(cells + 2 * guard + off);
        for (size_t i = 0; i < bv.size(); ++i) bv[i] = K::make(1234.5 + i, -(double)i);
        b = bv.data() + guard + off;
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < m; ++i) b[i + (size_t)j * ldb] = K::make(rng.next(), rng.next());
        b0 = bv;
    }
    bool left() const { return f.side == 'L'; }
    bool trans() const { return f.trans != 'N'; }
    bool lower_op() const { return (f.uplo == 'L') != trans(); }
    // whether op(A)(i, j) lies in the triangle
    bool in_triangle(int i, int j) const { return lower_op() ? j <= i : j >= i; }
    // op(A)(i, j), with the unit diagonal as ones.
    cld opa(int i, int j) const {
        if (i == j && f.diag == 'U') return 1;
        cld x = K::ld(trans() ? av[j + (size_t)i * lda] : av[i + (size_t)j * lda]);
        return f.trans == 'C' ? std::conj(x) : x;
    }
    cld B0(int i, int j) const { return K::ld(b0[(b - bv.data()) + i + (size_t)j * ldb]); }
    cld X(int i, int j) const { return K::ld(b[i + (size_t)j * ldb]); }

    void run(const T* a = nullptr) {
        static trsm_fn<T> fn = zva_export<trsm_fn<T>>(K::name);
        fn(&f.side, 1, &f.uplo, 1, &f.trans, 1, &f.diag, 1, &m, &n, &alpha, a ? a : av.data(),
           &lda, b, &ldb);
    }

    // op(A) in full, zero outside its triangle; B0 and X as they stand.
    struct dense {
        std::vector<cld> op, b0, x;
    };
    dense operands() const {
        dense d;
        d.op.assign((size_t)k * k, 0);
        for (int j = 0; j < k; ++j)
            for (int i = 0; i < k; ++i)
                if (in_triangle(i, j)) d.op[i + (size_t)j * k] = opa(i, j);
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < m; ++i) d.b0.push_back(B0(i, j)), d.x.push_back(X(i, j));
        return d;
    }

    // alpha*inv(op(A))*B0 or alpha*B0*inv(op(A)) by plain substitution.
    std::vector<cld> reference(const dense& d) const {
        std::vector<cld> x((size_t)m * n);
        const cld al = K::ld(alpha);
        auto op = [&](int i, int j) { return d.op[i + (size_t)j * k]; };
        auto at = [&](int i, int j) -> cld& { return x[i + (size_t)j * m]; };
        // op(A) lower: left solves from the top, right from the last column
        const bool down = left() == lower_op();
        for (int s = 0; s < k; ++s) {
            const int i = down ? s : k - 1 - s;
            for (int o = 0; o < (left() ? n : m); ++o) {
                cld sum = mul(al, left() ? d.b0[i + (size_t)o * m] : d.b0[o + (size_t)i * m]);
                for (int t = 0; t < s; ++t) {
                    const int l = down ? t : k - 1 - t;
                    sum -= left() ? mul(op(i, l), at(l, o)) : mul(at(o, l), op(l, i));
                }
                (left() ? at(i, o) : at(o, i)) = sum / op(i, i);
            }
        }
        return x;
    }

    std::string what() const {
        return std::string(K::name) + " " + f.side + f.uplo + f.trans + f.diag +
               " m=" + std::to_string(m) + " n=" + std::to_string(n) +
               " ldb=" + std::to_string(ldb);
    }

    // Near the substitution, a small residual op(A)*X - alpha*B0, and the
    // marked elements as they were.
    void check() const {
        const dense d = operands();
        const std::vector<cld> ref = reference(d);
        auto size = [](cld v) { return fabsl(v.real()) + fabsl(v.imag()); };
        long double scale = 0;
        for (const cld& v : ref) scale = std::max(scale, size(v));
        const long double tol = 16 * (k + 4) * K::eps;
        const cld al = K::ld(alpha);
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < m; ++i) {
                const size_t ij = i + (size_t)j * m;
                ASSERT_LE(size(d.x[ij] - ref[ij]), tol * (scale + 1e-30L))
                    << what() << " at " << i << "," << j;
                cld r = -mul(al, d.b0[ij]);
                long double mag = size(r);
                // the terms within the triangle of op(A)
                const int t = left() ? i : j;
                const bool below = left() == lower_op();
                for (int l = below ? 0 : t; l < (below ? t + 1 : k); ++l) {
                    const cld term = left() ? mul(d.op[i + (size_t)l * k], d.x[l + (size_t)j * m])
                                            : mul(d.x[i + (size_t)l * m], d.op[l + (size_t)j * k]);
                    r += term, mag += size(term);
                }
                ASSERT_LE(size(r), tol * (mag + 1e-30L)) << what() << " residual at " << i << ","
                                                         << j;
            }
        expect_outside_untouched();
    }
    void expect_outside_untouched() const {
        const T* base = b0.data() + (b - bv.data());
        for (long i = -(long)(b - bv.data()); i < (long)(bv.data() + bv.size() - b); ++i) {
            const bool inside = n > 0 && i >= 0 && i < (long)ldb * n && i % ldb < m;
            if (!inside) {
                ASSERT_TRUE(same_bits(b[i], base[i])) << what() << " index " << i;
            }
        }
    }
};

template <class T> T value(double re, double im = 0) { return kind<T>::make(re, im); }
template <class T> T alpha_of(int round) {
    switch (round % 4) {
    case 0: return value<T>(1);
    case 1: return value<T>(-1);
    case 2: return value<T>(0.75, -0.25);
    default: return value<T>(-1.5, 0);
    }
}

// Solves every form at (m, n); the forms cycle through the alphas and
// through ldb = m, m + 1, m + 3 with B at even and odd offsets.
template <class T> void every_form(int m, int n, int* round) {
    for (const form& f : all_forms()) {
        const int r = (*round)++;
        const int extra[] = {0, 1, 3};
        problem<T> p(f, m, n, alpha_of<T>(r), extra[r % 3], r % 2);
        p.run();
        p.check();
        if (testing::Test::HasFatalFailure()) return;
    }
}

// One form, one size.
template <class T> void one(form f, int m, int n, int round) {
    problem<T> p(f, m, n, alpha_of<T>(round), round % 2, round / 2 % 2);
    p.run();
    p.check();
}

template <class T> class Trsm : public testing::Test {};
using types = testing::Types<float, double, cfloat, cdouble>;
TYPED_TEST_SUITE(Trsm, types);

// Up to 13 triangle rows or columns: only the smallest blocks, 4x4 solves and
// their tails.
TYPED_TEST(Trsm, SmallSizesEveryForm) {
    int round = 0;
    for (int s : {1, 2, 3, 4, 5, 8, 12, 13}) {
        every_form<TypeParam>(s, 3, &round);
        every_form<TypeParam>(3, s, &round);
        if (this->HasFatalFailure()) return;
    }
    every_form<TypeParam>(13, 12, &round);
}

// Triangles around the block sizes of each type's levels, one past them, and
// the walks, splits and panels of D on the left; the forms take turns.
TYPED_TEST(Trsm, AroundTheBlocks) {
    using T = TypeParam;
    constexpr bool zcomplex = sizeof(T) == 16;
    std::vector<int> dims = {16, 17, 31, 32, 33, 63, 64, 65};
    if (!zcomplex) dims.insert(dims.end(), {127, 128, 129});
    const std::vector<form> forms = all_forms();
    int round = 0;
    for (int d : dims)
        for (int side = 0; side < 2; ++side)
            for (int u = 0; u < 4; ++u) {
                form f = forms[(round * 5 + u) % forms.size()];
                f.side = side ? 'R' : 'L';
                f.uplo = u % 2 ? 'L' : 'U';
                f.trans = u / 2 ? (round % 2 ? 'C' : 'T') : 'N';
                one<T>(f, side ? 5 : d, side ? d : 5, round++);
                if (this->HasFatalFailure()) return;
            }
    // the outer blocks of 256 (and the second level of D's walk) once a case
    if (!zcomplex)
        for (int d : {255, 256, 257})
            for (form f : {form{'L', 'L', 'N', 'N'}, form{'L', 'U', 'T', 'U'},
                           form{'R', 'U', 'N', 'N'}, form{'R', 'L', 'C', 'N'}}) {
                one<T>(f, f.side == 'L' ? d : 3, f.side == 'L' ? 3 : d, round++);
                if (this->HasFatalFailure()) return;
            }
}

// The largest blocks and slabs: D's walks of 512, the slabs of the free
// dimension (1024, or 2048 for S on the left), column panels of the
// triangle kernels.
TYPED_TEST(Trsm, LargestBlocksAndSlabs) {
    using T = TypeParam;
    if constexpr (__is_same(T, double)) {
        one<T>({'L', 'L', 'N', 'N'}, 513, 3, 0);
        one<T>({'L', 'L', 'T', 'U'}, 513, 2, 1);
        one<T>({'L', 'U', 'N', 'N'}, 40, 33, 2);   // panels of 32
        one<T>({'L', 'U', 'T', 'N'}, 40, 65, 3);   // panels of 64
        one<T>({'L', 'L', 'N', 'U'}, 20, 129, 4);  // panels of 128
    }
    if constexpr (!__is_same(T, cdouble)) {
        one<T>({'R', 'U', 'N', 'N'}, 1025, 20, 5);
        one<T>({'R', 'L', 'T', 'N'}, 257, 65, 6);
    }
    if constexpr (__is_same(T, float)) {
        one<T>({'L', 'U', 'N', 'N'}, 65, 1025, 7);
        one<T>({'L', 'L', 'T', 'U'}, 65, 2049, 8);
    }
    if constexpr (__is_same(T, cfloat)) {
        one<T>({'L', 'U', 'N', 'N'}, 40, 1025, 9);
        one<T>({'L', 'L', 'C', 'N'}, 40, 1025, 10);
    }
    if constexpr (__is_same(T, cdouble)) {
        one<T>({'L', 'U', 'C', 'N'}, 97, 9, 11);
        one<T>({'R', 'L', 'N', 'N'}, 9, 97, 12);
    }
}

// alpha = 0: B becomes zeros, NaN in it included, and A (all NaN here) is
// not read. n = 0 and m = 0 change nothing.
TYPED_TEST(Trsm, ZeroAlphaAndEmpty) {
    using T = TypeParam;
    const T nan = value<T>(NAN, NAN);
    int round = 0;
    for (const form& f : all_forms())
        for (int s : {1, 12, 13, 20}) {
            problem<T> p(f, s, s + round % 3, value<T>(0), round % 2, round / 2 % 2);
            ++round;
            for (int j = 0; j < p.n; ++j) p.b[(size_t)j * p.ldb] = nan;
            std::vector<T> a_nan(p.av.size(), nan);
            p.run(a_nan.data());
            for (int j = 0; j < p.n; ++j)
                for (int i = 0; i < p.m; ++i)
                    ASSERT_TRUE(same_bits(p.b[i + (size_t)j * p.ldb], value<T>(0))) << p.what();
            p.expect_outside_untouched();
        }
    for (const form& f : all_forms())
        for (int e = 0; e < 2; ++e) {
            problem<T> p(f, e ? 0 : 7, e ? 7 : 0, value<T>(e ? 0 : 2));
            p.b0 = p.bv;
            p.run();
            p.expect_outside_untouched();
            for (size_t i = 0; i < p.bv.size(); ++i) ASSERT_TRUE(same_bits(p.bv[i], p.b0[i]));
        }
}

// A zero on a non-unit diagonal is not reported: the division gives
// infinities or NaN.
TYPED_TEST(Trsm, ZeroOnTheDiagonal) {
    using T = TypeParam;
    problem<T> p({'L', 'L', 'N', 'N'}, 3, 2, value<T>(1));
    p.av[1 + 1 * p.lda] = value<T>(0);
    p.run();
    const cld x = kind<T>::ld(p.b[1]);
    EXPECT_FALSE(std::isfinite((double)x.real()) && std::isfinite((double)x.imag()));
}

// D on the left: the triangle kernels read B with aligned or unaligned loads
// by its ldb and offset, with the same bits. At these sizes only triangle
// kernels run (no multiply between them).
TEST(TrsmD, AlignedAndUnalignedFormsAgree) {
    struct walk_case { form f; int m; };
    const walk_case cases[] = {{{'L', 'U', 'N', 'N'}, 32}, {{'L', 'L', 'N', 'N'}, 256},
                               {{'L', 'U', 'T', 'U'}, 128}, {{'L', 'L', 'T', 'N'}, 128},
                               {{'L', 'L', 'N', 'U'}, 12}, {{'L', 'U', 'T', 'N'}, 44}};
    for (const walk_case& w : cases) {
        std::vector<double> got[3];
        const int layouts[3][2] = {{0, 0}, {1, 0}, {0, 1}};  // extra rows, offset
        for (int l = 0; l < 3; ++l) {
            rng.state = 5;
            problem<double> p(w.f, w.m, 7, 0.75, layouts[l][0], layouts[l][1]);
            p.run();
            p.check();
            for (int j = 0; j < p.n; ++j)
                for (int i = 0; i < p.m; ++i) got[l].push_back(p.b[i + (size_t)j * p.ldb]);
        }
        for (int l = 1; l < 3; ++l)
            ASSERT_EQ(memcmp(got[0].data(), got[l].data(), got[0].size() * sizeof(double)), 0)
                << "m=" << w.m << " layout " << l;
    }
}

// Teams of 1, 2 and 3 threads split the right-hand sides; two of them among
// three threads leave the first threads without work.
template <class T> class TrsmThreads : public testing::Test {};
TYPED_TEST_SUITE(TrsmThreads, types);

TYPED_TEST(TrsmThreads, SlabsOfTheRightHandSides) {
    using T = TypeParam;
    struct shape { form f; int m, n; };
    const shape shapes[] = {{{'L', 'L', 'N', 'N'}, 40, 37},  {{'L', 'U', 'C', 'U'}, 70, 19},
                            {{'R', 'U', 'N', 'N'}, 37, 40},  {{'R', 'L', 'T', 'N'}, 19, 70},
                            {{'L', 'U', 'N', 'N'}, 40, 2},   {{'R', 'L', 'N', 'U'}, 2, 40},
                            {{'L', 'L', 'T', 'N'}, 130, 24}};
    int round = 0;
    for (int t : {1, 2, 3}) {
        omp_set_num_threads(t);
        for (const shape& s : shapes) {
            one<T>(s.f, s.m, s.n, round++);
            if (this->HasFatalFailure()) break;
        }
    }
    omp_set_num_threads(1);
}

}  // namespace
