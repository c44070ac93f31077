// SYRK, HERK, SYR2K and HER2K through their exports, on the branch of this
// run, against a long double reference written from the published
// definitions: C := alpha*op(A)*op(A)' + beta*C, or alpha*op(A)*op(B)' +
// alpha2*op(B)*op(A)' + beta*C (alpha2 = conj(alpha) for HER2K), on one
// triangle of C; ' conjugates in the Hermitian routines, whose diagonal
// comes out with imaginary parts of 0. Everything outside the triangle, and
// around C, must keep its bits.
#include <math.h>
#include <omp.h>
#include <string.h>

#include <complex>
#include <string>
#include <type_traits>
#include <vector>

#include "zva.h"

namespace {

using cld = std::complex<long double>;

template <class T> cld ld(T x) {
    if constexpr (elem<T>::cplx) return cld(x.re, x.im);
    else return cld(x, 0);
}
template <class T> T from(cld x) { return make<T>((double)x.real(), (double)x.imag()); }
template <class T> constexpr long double eps = sizeof(typename elem<T>::R) == 4 ? 6e-8L : 1.2e-16L;

// The routines of one type: SYRK and SYR2K, or HERK and HER2K (Herm). A is
// the type of HERK's alpha and of every Hermitian beta.
template <class T_, bool Herm_> struct fam {
    using T = T_;
    static constexpr bool herm = Herm_;
    using A = std::conditional_t<Herm_, typename elem<T_>::R, T_>;
    static std::string name(bool two) {
        const char* family = herm ? (two ? "HER2K" : "HERK") : (two ? "SYR2K" : "SYRK");
        return std::string(1, elem<T>::letter) + family;
    }
    // Every transposition letter the routine takes, in both cases.
    static const char* letters() { return !elem<T>::cplx ? "NTCntc" : herm ? "NCnc" : "NTnt"; }
};

template <class T, class A>
using syrk_fn = void(ZVA_STDCALL*)(const char*, int, const char*, int, const int*, const int*,
                                   const A*, const T*, const int*, const A*, T*, const int*);
template <class T, class B>
using syr2k_fn = void(ZVA_STDCALL*)(const char*, int, const char*, int, const int*, const int*,
                                    const T*, const T*, const int*, const T*, const int*,
                                    const B*, T*, const int*);

lcg rng{77};
const int pad = 8;  // sentinels before and after C

template <class F> struct problem {
    using T = typename F::T;
    using A = typename F::A;
    char uplo, trans;
    bool two;
    int n, k, lda, ldb, ldc;
    cld alpha, beta;
    std::vector<T> av, bv, cv, c0;
    T* c;

    bool notrans() const { return trans == 'N' || trans == 'n'; }
    bool upper() const { return uplo == 'U' || uplo == 'u'; }
    bool in_triangle(int i, int j) const { return upper() ? i <= j : i >= j; }
    // Operands: A and B are NaN where alpha = 0 (never to be used), the
    // triangle of C NaN where beta = 0; the rest of C carries marks.
    problem(char u, char t, bool two_, int n_, int k_, cld al, cld be, int extra = 0)
        : uplo(u), trans(t), two(two_), n(n_), k(k_), alpha(al), beta(be) {
        const int rows = notrans() ? n : k, cols = notrans() ? k : n;
        lda = (rows > 1 ? rows : 1) + extra;
        ldb = lda + (two ? 1 : 0);
        ldc = (n > 1 ? n : 1) + extra;
        auto operand = [&](std::vector<T>& v, int ld) {
            v.resize((size_t)ld * (cols > 0 ? cols : 1));
            for (T& x : v) x = alpha == cld(0) ? make<T>(NAN, NAN) : rng.value<T>();
        };
        operand(av, lda);
        if (two) operand(bv, ldb);
        cv.resize((size_t)ldc * (n > 0 ? n : 1) + 2 * pad);
        for (size_t e = 0; e < cv.size(); ++e) {
            const long at = (long)e - pad;
            const int i = (int)(at % ldc), j = (int)(at / ldc);
            const bool inside = at >= 0 && j < n && i < n && in_triangle(i, j);
            if (!inside) cv[e] = make<T>(1234.5 + e, -(double)e);
            else if (beta == cld(0)) cv[e] = make<T>(NAN, NAN);
            else cv[e] = rng.value<T>();
        }
        c0 = cv;
        c = cv.data() + pad;
    }
    // The rows of op(X), row i at i*k; a Hermitian "C" conjugates. The
    // second form conjugates once more, as op(Y)' needs in HERK and HER2K.
    struct part { long double re, im; };
    std::vector<part> rows_of(const std::vector<T>& x, int ld, bool conj_once_more) const {
        std::vector<part> r((size_t)n * k);
        for (int i = 0; i < n; ++i)
            for (int l = 0; l < k; ++l) {
                const cld v = ld_of(notrans() ? x[i + (size_t)l * ld] : x[l + (size_t)i * ld]);
                const bool conj = F::herm && (!notrans() != conj_once_more);
                r[(size_t)i * k + l] = {v.real(), conj ? -v.imag() : v.imag()};
            }
        return r;
    }
    static cld ld_of(T v) { return ld(v); }
    template <class S> static S scalar(cld v) {
        if constexpr (sizeof(S) == sizeof(T)) return from<T>(v);
        else return (S)v.real();
    }
    void run() {
        const T* a = av.data();
        const T* b = two ? bv.data() : nullptr;
        if (!two) {
            static const auto f = zva_export<syrk_fn<T, A>>(F::name(false).c_str());
            const A al = scalar<A>(alpha), be = scalar<A>(beta);
            f(&uplo, 1, &trans, 1, &n, &k, &al, a, &lda, &be, c, &ldc);
        } else {
            static const auto f = zva_export<syr2k_fn<T, A>>(F::name(true).c_str());
            const T al = scalar<T>(alpha);
            const A be = scalar<A>(beta);
            f(&uplo, 1, &trans, 1, &n, &k, &al, a, &lda, b, &ldb, &be, c, &ldc);
        }
    }
    // Sum of op(X) row i times op(Y)' row j, and the sum of magnitudes
    // (|re| + |im|, a bound on |z| that costs no square root).
    void dot(const std::vector<part>& x, const std::vector<part>& y, int i, int j, cld* s,
             long double* mag) const {
        long double sr = 0, si = 0, m = 0;
        const part* u = x.data() + (size_t)i * k;
        const part* w = y.data() + (size_t)j * k;
        for (int l = 0; l < k; ++l) {
            sr += u[l].re * w[l].re - u[l].im * w[l].im;
            si += u[l].re * w[l].im + u[l].im * w[l].re;
            m += (fabsl(u[l].re) + fabsl(u[l].im)) * (fabsl(w[l].re) + fabsl(w[l].im));
        }
        *s = cld(sr, si), *mag = m;
    }
    void expect_reference() const {
        const bool untouched = (alpha == cld(0) || k == 0) && beta == cld(1);
        const std::vector<T>& y = two ? bv : av;
        const int ldy = two ? ldb : lda;
        const std::vector<part> xr = rows_of(av, lda, false), yr = rows_of(y, ldy, true);
        const std::vector<part> xr2 = two ? rows_of(bv, ldb, false) : xr;
        const std::vector<part> yr2 = two ? rows_of(av, lda, true) : yr;
        for (size_t e = 0; e < cv.size(); ++e) {
            const long at = (long)e - pad;
            const int i = (int)(at % ldc), j = (int)(at / ldc);
            const bool inside = at >= 0 && j < n && i < n && in_triangle(i, j);
            if (!inside || untouched) {
                ASSERT_TRUE(same_bits(cv[e], c0[e])) << "element " << at << " of C moved";
                continue;
            }
            cld ref = 0, s1 = 0, s2 = 0;
            long double bound = 0, m1 = 0, m2 = 0;
            if (alpha != cld(0)) {
                dot(xr, yr, i, j, &s1, &m1);
                ref = alpha * s1, bound = std::abs(alpha) * m1;
                if (two) {
                    dot(xr2, yr2, i, j, &s2, &m2);
                    ref += (F::herm ? std::conj(alpha) : alpha) * s2, bound += std::abs(alpha) * m2;
                }
            }
            if (beta != cld(0)) {
                const cld c0e = ld(c0[e]);
                ref += beta * (F::herm && i == j ? cld(c0e.real(), 0) : c0e);
                bound += std::abs(beta) * std::abs(c0e);
            }
            const cld got = ld(cv[e]);
            ASSERT_LE(std::abs(got - ref), (k + 8) * 4 * eps<T> * bound + 1e-30L)
                << F::name(two) << " " << uplo << trans << " n=" << n << " k=" << k << " at " << i
                << "," << j << " got " << got << " want " << ref;
            if constexpr (elem<T>::cplx) {
                if (F::herm && i == j) {
                    ASSERT_EQ(cv[e].im, 0) << "diagonal " << i;
                }
            }
        }
    }
};

// alpha and beta in {1, -1, 0, other}; a Hermitian beta (and HERK's alpha)
// is real, HER2K's other alpha is complex.
template <class F> cld scalar_of(int which, bool real) {
    switch (which % 4) {
    case 0: return 1;
    case 1: return -1;
    case 2: return 0;
    default: return real || !elem<typename F::T>::cplx ? cld(0.7L, 0) : cld(0.6L, -0.35L);
    }
}

template <class F>
void check(char u, char t, bool two, int n, int k, int ai, int bi, int extra = 0) {
    const cld al = scalar_of<F>(ai, F::herm && !two), be = scalar_of<F>(bi, F::herm);
    problem<F> p(u, t, two, n, k, al, be, extra);
    p.run();
    p.expect_reference();
}

template <class F> class Syrk : public testing::Test {};
using fams = testing::Types<fam<float, false>, fam<double, false>, fam<cfloat, false>,
                            fam<cdouble, false>, fam<cfloat, true>, fam<cdouble, true>>;
TYPED_TEST_SUITE(Syrk, fams);

// Every letter and triangle, every pair of alpha and beta, n and k around
// 1, 2, 3 (k = 0 as well), the smallest leaves.
TYPED_TEST(Syrk, SmallShapesEveryLetterAndScalar) {
    const char* letters = TypeParam::letters();
    int round = 0;
    for (bool two : {false, true})
        for (const char* t = letters; *t; ++t)
            for (char u : {'U', 'l', 'L', 'u'})
                for (int n : {1, 2, 3, 5})
                    for (int k : {0, 1, 2, 3}) {
                        ++round;
                        check<TypeParam>(u, *t, two, n, k, round, round / 4, round % 3);
                    }
}

// The D leaf limit (8) and the recursion's blocks (16, 32, 128, 512) and
// chunks of k (16, 32, 64, 128, 256), the band widths of the other types
// (32, 64, 128), each with one past; the drivers' limits (16, 70) and one
// order of a few hundred.
TYPED_TEST(Syrk, BlockAndStripSizes) {
    struct shape { int n, k; };
    const shape shapes[] = {{8, 40},  {9, 33},   {16, 1},   {17, 1},   {17, 17},  {33, 129},
                            {32, 65}, {65, 257}, {70, 1},   {128, 16}, {129, 20}, {33, 33},
                            {129, 129}, {257, 7}};
    const char* letters = TypeParam::letters();
    int round = 0;
    for (bool two : {false, true})
        for (const shape& s : shapes) {
            ++round;
            const char t = letters[round % 2];
            const char u = round % 4 < 2 ? 'U' : 'L';
            check<TypeParam>(u, t, two, s.n, s.k, 3 + round % 2, 3 + round / 3, round % 2);
        }
}

TYPED_TEST(Syrk, LargeOrders) {
    const char* letters = TypeParam::letters();
    // Orders across the blocks of 128 and 256; k small, its chunks are
    // crossed above.
    check<TypeParam>('U', letters[0], false, 300, 7, 3, 3, 1);
    check<TypeParam>('L', letters[1], true, 280, 5, 3, 1, 0);
    if (__is_same(typename TypeParam::T, double) && !TypeParam::herm) {
        // All four levels of DSYRK down to the leaves, and the top block's
        // one-column remainder; then several chunks of k on each level.
        check<TypeParam>('L', 'N', false, 513, 20, 3, 3);
        check<TypeParam>('U', 'T', false, 513, 40, 1, 0);
        check<TypeParam>('U', 'n', false, 129, 129, 3, 1);
        check<TypeParam>('L', 't', false, 129, 257, 3, 2);
    }
}

// Where nothing is multiplied: beta = 1 returns with C as it was (the
// Hermitian diagonal included), beta = 0 zeroes the triangle without
// reading it, and beta = 0.7 scales with the Hermitian diagonal made real.
TYPED_TEST(Syrk, ScalingOnly) {
    for (bool two : {false, true})
        for (int n : {5, 40})
            for (int bi : {0, 1, 2, 3}) {
                check<TypeParam>('U', 'N', two, n, 0, 3, bi);
                check<TypeParam>('L', TypeParam::letters()[1], two, n, 12, 2, bi, 1);
            }
}

// With an allocator that refuses large blocks, the temporary blocks give
// way to plain sums: the failure is reported, the result stays.
TYPED_TEST(Syrk, NoMemoryKeepsTheResult) {
    if (!getenv("ZVA_TEST_NO_MEMORY")) GTEST_SKIP() << "needs the refusing allocator";
    omp_set_num_threads(1);
    for (bool two : {false, true}) {
        testing::internal::CaptureStdout();
        check<TypeParam>('U', TypeParam::letters()[1], two, 200, 5, 3, 3);
        check<TypeParam>('L', 'N', two, 150, 7, 1, 2);
        const std::string out = testing::internal::GetCapturedStdout();
        // DSYRK on branches 4 to 7 and ZHERK have no temporary block.
        using T = typename TypeParam::T;
        const bool dsyrk = __is_same(T, double) && test_branch() >= 4;
        const bool zherk = __is_same(T, cdouble) && TypeParam::herm;
        const char* tag = two ? "function xsyr2k\n" : "function xsyrk\n";
        if (two || !(dsyrk || zherk)) {
            EXPECT_NE(out.find(tag), std::string::npos) << out;
        }
    }
}

// ---- threads --------------------------------------------------------------

template <class F> class SyrkThreads : public testing::Test {};
TYPED_TEST_SUITE(SyrkThreads, fams);

// Teams of 1, 2 and 3 above the fork limits: uneven strips, rectangles
// between them, every letter and both triangles.
TYPED_TEST(SyrkThreads, StripsAndRectangles) {
    const char* letters = TypeParam::letters();
    int round = 0;
    for (int t : {1, 2, 3}) {
        omp_set_num_threads(t);
        for (bool two : {false, true})
            for (int li = 0; li < 2; ++li)
                for (char u : {'U', 'L'}) {
                    ++round;
                    const int n = round % 2 ? 101 : 70;
                    check<TypeParam>(u, letters[li], two, n, 1 + round % 40, 3 + round % 2,
                                     round % 4, round % 2);
                }
    }
    omp_set_num_threads(1);
}

}  // namespace
