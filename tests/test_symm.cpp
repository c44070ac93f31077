// SSYMM, DSYMM, CSYMM, ZSYMM, CHEMM and ZHEMM through their exports, on the
// branch of this run, against a long double reference written from the
// published definition: C := alpha*A*B + beta*C (side "L") or
// alpha*B*A + beta*C, with A symmetric (Hermitian) and one triangle stored.
// The order of additions is the multiply engine's, so results are held to a
// rounding bound. What is never read holds NaN: the other triangle of A, the
// rows past the matrices' ends in their leading dimensions, C when beta = 0,
// A and B when alpha = 0. What is never written holds marked values.
#include <math.h>
#include <omp.h>
#include <string.h>

#include <string>
#include <vector>

#include "zva.h"

namespace {

template <class T_, bool Herm_> struct kind {
    using T = T_;
    static constexpr bool herm = Herm_;
    static std::string name() { return routine<T>(Herm_ ? "HEMM" : "SYMM"); }
};

template <class T>
using symm_fn = void(ZVA_STDCALL*)(const char*, int, const char*, int, const int*, const int*,
                                   const T*, const T*, const int*, const T*, const int*, const T*,
                                   T*, const int*);

template <class T> long double eps_of() { return sizeof(typename elem<T>::R) == 4 ? 6e-8L : 1.2e-16L; }
template <class T> bool zero(const T& x) { return mag(to_lc(x)) == 0; }

lcg rng{4242};

bool lower_letter(char u) { return u == 'L' || u == 'l'; }
bool left_letter(char s) { return s == 'L' || s == 'l'; }

template <class K> struct problem {
    using T = typename K::T;
    static constexpr int pad = 8;  // marked elements before and after C
    char side, uplo;
    int m, n, order, lda, ldb, ldc;
    T alpha, beta;
    std::vector<T> av, bv, cv, a0, b0, c0;
    T *a, *b, *c;

    problem(char side_, char uplo_, int m_, int n_, T alpha_, T beta_, int extra = 0)
        : side(side_), uplo(uplo_), m(m_), n(n_), alpha(alpha_), beta(beta_) {
        order = left_letter(side) ? m : n;
        lda = (order > 1 ? order : 1) + extra;
        ldb = ldc = (m > 1 ? m : 1) + extra;
        const T nan = make<T>(NAN, NAN);
        // alpha = 0 reads neither A nor B: both are all NaN then.
        const bool read = !zero(alpha);
        av.assign((size_t)lda * (order > 0 ? order : 1), nan);
        for (int l = 0; l < order; ++l)
            for (int i = 0; i < order; ++i)
                if (read && stored(i, l)) {
                    T& x = av[i + (size_t)l * lda];
                    x = rng.value<T>();
                    // HEMM ignores the imaginary parts of the diagonal.
                    if constexpr (K::herm)
                        if (i == l) x.im = 3 + (float)rng.next();
                }
        bv.assign((size_t)ldb * (n > 0 ? n : 1), nan);
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < m; ++i)
                if (read) bv[i + (size_t)j * ldb] = rng.value<T>();
        const long inside = (long)ldc * n;
        cv.resize(inside + 2 * pad);
        for (long e = 0; e < inside + 2 * pad; ++e) {
            const long at = e - pad;
            const bool in = at >= 0 && at < inside && at % ldc < m;
            cv[e] = !in ? make<T>(1234.5 + e, -e) : zero(beta) ? nan : rng.value<T>();
        }
        a0 = av, b0 = bv, c0 = cv;
        a = av.data(), b = bv.data(), c = cv.data() + pad;
    }
    bool stored(int i, int l) const { return lower_letter(uplo) ? i >= l : i <= l; }
    // Element (i, l) of the whole matrix that the stored triangle stands for.
    lc A(int i, int l) const {
        lc x = to_lc(stored(i, l) ? a[i + (long)l * lda] : a[l + (long)i * lda]);
        if (K::herm && i == l) x.im = 0;
        if (K::herm && !stored(i, l)) x = conj(x);
        return x;
    }
    lc B(int i, int j) const { return to_lc(b[i + (long)j * ldb]); }
    lc C0(int i, int j) const { return to_lc(c0[pad + i + (long)j * ldc]); }

    void run() {
        static const symm_fn<T> f = zva_export<symm_fn<T>>(K::name().c_str());
        f(&side, 1, &uplo, 1, &m, &n, &alpha, a, &lda, b, &ldb, &beta, c, &ldc);
    }
    std::string what() const {
        return K::name() + " " + side + uplo + " m=" + std::to_string(m) + " n=" +
               std::to_string(n) + " ld+" + std::to_string(ldc - (m > 1 ? m : 1));
    }
    void check() const {
        ASSERT_EQ(memcmp(av.data(), a0.data(), av.size() * sizeof(T)), 0) << what() << ": A written";
        ASSERT_EQ(memcmp(bv.data(), b0.data(), bv.size() * sizeof(T)), 0) << what() << ": B written";
        const lc al = to_lc(alpha), be = to_lc(beta);
        const bool left = left_letter(side);
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < m; ++i) {
                lc s{0, 0};
                long double size = 0;
                if (!zero(alpha))
                    for (int l = 0; l < order; ++l) {
                        const lc x = left ? A(i, l) : B(i, l), y = left ? B(l, j) : A(l, j);
                        s = add(s, mul(x, y));
                        size += mag(x) * mag(y);
                    }
                lc want = mul(al, s);
                long double bound = mag(al) * size;
                if (!zero(beta)) want = add(want, mul(be, C0(i, j))), bound += mag(be) * mag(C0(i, j));
                const lc got = to_lc(c[i + (long)j * ldc]);
                const long double err = mag({got.re - want.re, got.im - want.im});
                ASSERT_LE(err, (order + 8) * 4 * eps_of<T>() * bound + 1e-30L)
                    << what() << " at " << i << "," << j << " got " << (double)got.re << ","
                    << (double)got.im << " want " << (double)want.re << "," << (double)want.im;
            }
        for (long e = 0; e < (long)cv.size(); ++e) {
            const long at = e - pad;
            if (at >= 0 && at < (long)ldc * n && at % ldc < m) continue;
            ASSERT_TRUE(same_bits(cv[e], c0[e])) << what() << ": C written at " << at;
        }
    }
};

template <class K> class Symm : public testing::Test {};
using kinds = testing::Types<kind<float, false>, kind<double, false>, kind<cfloat, false>,
                             kind<cdouble, false>, kind<cfloat, true>, kind<cdouble, true>>;
TYPED_TEST_SUITE(Symm, kinds);

const char sides_uplos[][2] = {{'L', 'L'}, {'L', 'U'}, {'R', 'L'}, {'R', 'U'},
                               {'l', 'u'}, {'r', 'l'}, {'L', 'u'}, {'r', 'U'}};

// alpha: 1, -1, another value, 0; beta: 0 (C full of NaN), 1, -1, another.
template <class T> T alpha_of(int r) {
    const double v[][2] = {{1, 0}, {-1, 0}, {0.7, -0.3}, {0, 0}, {-1.25, 0.5}};
    return make<T>(v[r % 5][0], v[r % 5][1]);
}
template <class T> T beta_of(int r) {
    const double v[][2] = {{0, 0}, {1, 0}, {-1, 0}, {0.4, 0.2}};
    return make<T>(v[r % 4][0], v[r % 4][1]);
}

template <class K> void run_case(char side, char uplo, int m, int n, int round, int extra) {
    using T = typename K::T;
    problem<K> p(side, uplo, m, n, alpha_of<T>(round), beta_of<T>(round), extra);
    p.run();
    p.check();
}

// Every side and uplo with every pairing of small sizes, under all values
// of alpha and beta, in both letter cases, with and without room in the
// leading dimensions.
TYPED_TEST(Symm, SmallSizes) {
    const int sizes[] = {0, 1, 2, 3, 5, 17};
    int round = 0;
    for (const auto& su : sides_uplos)
        for (int m : sizes)
            for (int n : sizes) {
                run_case<TypeParam>(su[0], su[1], m, n, round, round % 3 == 1 ? 3 : 0);
                ++round;
            }
}

// A of the orders around the diagonal blocks (128 and 256) and one past
// them: the block before, the square and the block after all take part,
// and the last square is one element.
TYPED_TEST(Symm, AroundTheBlocks) {
    const int orders[] = {127, 128, 129, 255, 256, 257};
    int round = 0;
    for (int order : orders)
        for (int s = 0; s < 4; ++s) {
            const char* su = sides_uplos[s];
            const int other = 1 + round % 7;
            if (left_letter(su[0])) run_case<TypeParam>(su[0], su[1], order, other, round, round % 2);
            else run_case<TypeParam>(su[0], su[1], other, order, round, round % 2);
            ++round;
        }
}

// B and C cut into panels: 1000 columns for D with the upper triangle on
// side "L", 5000 columns or rows for the others.
TYPED_TEST(Symm, Panels) {
    int round = 1;
    for (const auto& su : sides_uplos) {
        if (round > 4) break;
        const bool left = left_letter(su[0]);
        run_case<TypeParam>(su[0], su[1], left ? 3 : 5001, left ? 5001 : 2, round, 1);
        ++round;
    }
    run_case<TypeParam>('L', 'U', 2, 1001, 2, 0);
}

// A of a few hundred: several blocks of each kind and the engine's own
// blocking inside the calls; the other dimension spans a few tiles.
TYPED_TEST(Symm, Larger) {
    run_case<TypeParam>('L', 'U', 280, 13, 2, 1);
    run_case<TypeParam>('R', 'L', 11, 270, 4, 0);
}

// alpha = 0 reads neither A nor B (both NaN); beta = 0 clears NaN from C,
// beta = 1 leaves C as it is. Empty products read and write nothing.
TYPED_TEST(Symm, ScalingOnlyAndEmpty) {
    using T = typename TypeParam::T;
    int round = 0;
    for (const auto& su : sides_uplos)
        for (int m : {0, 4, 40})
            for (int n : {0, 3, 33}) {
                problem<TypeParam> p(su[0], su[1], m, n, make<T>(0), beta_of<T>(round++));
                p.run();
                p.check();
            }
}

// ---- without work memory ----------------------------------------------------

TYPED_TEST(Symm, NoMemoryFallsBack) {
    if (!getenv("ZVA_TEST_NO_MEMORY")) GTEST_SKIP() << "needs the refusing allocator";
    omp_set_num_threads(1);
    int round = 0;
    for (const auto& su : sides_uplos) {
        if (round == 4) break;
        const bool left = left_letter(su[0]);
        problem<TypeParam> p(su[0], su[1], left ? 40 : 27, left ? 27 : 40,
                             alpha_of<typename TypeParam::T>(2 * round),
                             beta_of<typename TypeParam::T>(round), round % 2);
        ++round;
        testing::internal::CaptureStdout();
        p.run();
        const std::string out = testing::internal::GetCapturedStdout();
        // SYMM's square comes from the scratch manager; HEMM's is on the stack.
        if (!TypeParam::herm) {
            EXPECT_NE(out.find("Not enough work memory in function xsymm"), std::string::npos) << out;
        }
        p.check();
    }
}

// ---- threads ----------------------------------------------------------------

// Teams of 1, 2 and 3 above the size where the driver forks: slices of
// columns (side "L") or rows, empty slices when the cut dimension is below
// the team, uneven last slices.
TYPED_TEST(Symm, ThreadsSlices) {
    struct shape { int m, n; };
    const shape shapes[] = {{17, 1}, {1, 17}, {40, 37}, {37, 40}, {16, 17}, {130, 50}, {50, 130}};
    int round = 0;
    for (int threads : {1, 2, 3}) {
        omp_set_num_threads(threads);
        for (const shape& s : shapes) {
            const char* su = sides_uplos[round % 8];
            run_case<TypeParam>(su[0], su[1], s.m, s.n, round, round % 2);
            ++round;
        }
        // alpha = 0 scales on the calling thread.
        problem<TypeParam> p('L', 'U', 40, 40, make<typename TypeParam::T>(0),
                             beta_of<typename TypeParam::T>(threads));
        p.run();
        p.check();
    }
    omp_set_num_threads(1);
}

}  // namespace
