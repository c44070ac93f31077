// DGEMM through its export, on the branch of this run: against a long
// double reference everywhere, and bit for bit against a model of the sum
// order where the engine of the branch fixes it.
#include <math.h>
#include <omp.h>
#include <string.h>

#include <string>
#include <vector>

#include "zva.h"

namespace {

using dgemm_fn = void(ZVA_STDCALL*)(const char*, int, const char*, int, const int*, const int*,
                                    const int*, const double*, const double*, const int*,
                                    const double*, const int*, const double*, double*,
                                    const int*);
dgemm_fn dgemm() {
    static dgemm_fn f = zva_export<dgemm_fn>("DGEMM");
    return f;
}

lcg rng{12345};
double next_value() { return rng.next(); }

bool notrans(char t) { return t == 'N' || t == 'n'; }

// Operands of one call, each `off` bytes past a 64-byte boundary, with
// sentinels around C and in the unused rows of its leading dimension.
struct problem {
    char ta, tb;
    int m, n, k, lda, ldb, ldc;
    double alpha, beta;
    std::vector<unsigned char> ab, bb, cb;
    double *a, *b, *c;
    std::vector<double> c0;

    problem(char ta_, char tb_, int m_, int n_, int k_, double alpha_, double beta_,
            int extra = 0, int off = 0)
        : ta(ta_), tb(tb_), m(m_), n(n_), k(k_), alpha(alpha_), beta(beta_) {
        const int ra = notrans(ta) ? m : k, ca = notrans(ta) ? k : m;
        const int rb = notrans(tb) ? k : n, cb_ = notrans(tb) ? n : k;
        lda = (ra > 1 ? ra : 1) + extra;
        ldb = (rb > 1 ? rb : 1) + extra;
        ldc = (m > 1 ? m : 1) + extra;
        a = place(ab, (size_t)lda * (ca > 0 ? ca : 1), off);
        b = place(bb, (size_t)ldb * (cb_ > 0 ? cb_ : 1), off);
        c = place(cb, (size_t)ldc * (n > 0 ? n : 1) + 16, off) + 8;
        for (size_t i = 0; i < (size_t)lda * (ca > 0 ? ca : 1); ++i) a[i] = next_value();
        for (size_t i = 0; i < (size_t)ldb * (cb_ > 0 ? cb_ : 1); ++i) b[i] = next_value();
        for (int i = -8; i < ldc * (n > 0 ? n : 1) + 8; ++i)
            c[i] = i >= 0 && i < ldc * n && i % ldc < m ? next_value() : 1234.5 + i;
        c0.assign(c - 8, c + ldc * (n > 0 ? n : 1) + 8);
    }
    static double* place(std::vector<unsigned char>& buf, size_t count, int off) {
        buf.assign(count * sizeof(double) + 128, 0);
        return (double*)(((uintptr_t)buf.data() + 63) / 64 * 64 + off);
    }
    double A(int i, int l) const { return notrans(ta) ? a[i + (long)l * lda] : a[l + (long)i * lda]; }
    double B(int l, int j) const { return notrans(tb) ? b[l + (long)j * ldb] : b[j + (long)l * ldb]; }
    double C0(int i, int j) const { return c0[8 + i + (long)j * ldc]; }
    void run(const double* pa = nullptr, const double* pb = nullptr) {
        dgemm()(&ta, 1, &tb, 1, &m, &n, &k, &alpha, pa ? pa : a, &lda, pb ? pb : b, &ldb, &beta,
                c, &ldc);
    }
    // Everything outside the m x n block of C is as it was.
    void expect_outside_untouched() const {
        for (int i = -8; i < ldc * (n > 0 ? n : 1) + 8; ++i) {
            bool inside = i >= 0 && i < ldc * n && i % ldc < m;
            if (inside) continue;
            ASSERT_EQ(memcmp(&c[i], &c0[i + 8], 8), 0) << "index " << i;
        }
    }
    void expect_near_reference() const {
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < m; ++i) {
                long double s = 0, mag = 0;
                for (int l = 0; l < k; ++l) {
                    long double p = (long double)A(i, l) * B(l, j);
                    s += p, mag += fabsl(p);
                }
                long double ref = (long double)alpha * s;
                long double bound = fabsl(alpha) * mag;
                if (beta != 0) ref += (long double)beta * C0(i, j), bound += fabsl(beta * C0(i, j));
                const double got = c[i + (long)j * ldc];
                ASSERT_LE(fabsl(got - ref), (k + 4) * 2.3e-16L * bound + 1e-300)
                    << ta << tb << " m=" << m << " n=" << n << " k=" << k << " at " << i << ","
                    << j << " got " << got << " want " << (double)ref;
            }
        expect_outside_untouched();
    }
};

const char letters[][2] = {{'N', 'N'}, {'N', 'T'}, {'T', 'N'}, {'T', 'T'},
                           {'n', 'c'}, {'C', 't'}, {'t', 'n'}, {'c', 'C'}};

TEST(Dgemm, SmallShapesAllLetters) {
    const int sizes[] = {1, 2, 3, 4, 5, 7, 8, 9};
    int round = 0;
    for (int m : sizes)
        for (int n : sizes)
            for (int k : sizes) {
                const char* t = letters[round++ % 8];
                problem p(t[0], t[1], m, n, k, round % 3 ? 0.7 : 1.0, round % 5 ? -0.4 : 1.0,
                          round % 2);
                p.run();
                p.expect_near_reference();
            }
}

// Sizes around the panel widths, the block sizes of k (256, and 300 cut in
// two), the row blocks, the streaming limits and the odd-row and odd-column
// paths of every engine.
TEST(Dgemm, BlockedShapes) {
    struct shape { int m, n, k; };
    const shape shapes[] = {{5, 5, 5},     {9, 10, 11},   {64, 64, 64},   {65, 67, 66},
                            {129, 33, 300}, {31, 130, 257}, {300, 9, 129},  {8, 300, 513},
                            {17, 13, 1000}, {641, 6, 20},  {11, 601, 104}, {105, 103, 209}};
    int round = 0;
    for (const shape& s : shapes)
        for (const auto& t : letters) {
            if (++round % 2) continue;
            problem p(t[0], t[1], s.m, s.n, s.k, round % 3 ? 1.0 : -1.5,
                      round % 4 == 0 ? 0.0 : round % 4 == 2 ? 1.0 : 0.5, round % 3, 0);
            p.run();
            p.expect_near_reference();
        }
}

// Odd leading dimensions and operands that are only 4-byte aligned take the
// unaligned paths of the copies and of the C update.
TEST(Dgemm, MisalignedOperands) {
    for (int off : {4, 8, 24, 36})
        for (const auto& t : letters) {
            problem p(t[0], t[1], 37, 21, 45, 0.9, 1.1, 1 + off / 8, off);
            p.run();
            p.expect_near_reference();
        }
}

TEST(Dgemm, EmptyProductsReadNothing) {
    for (int m : {0, 5})
        for (int n : {0, 5}) {
            if (m && n) continue;
            problem p('N', 'N', m, n, 7, 1.0, 0.0);
            p.run(nullptr, nullptr);
            dgemm()(&p.ta, 1, &p.tb, 1, &p.m, &p.n, &p.k, &p.alpha, nullptr, &p.lda, nullptr,
                    &p.ldb, &p.beta, p.c, &p.ldc);
            p.expect_outside_untouched();
            for (size_t i = 0; i < p.c0.size(); ++i)
                ASSERT_EQ(memcmp(&p.c[(long)i - 8], &p.c0[i], 8), 0);
        }
}

// With k = 0 or alpha = 0 only C is scaled: A and B are never read.
TEST(Dgemm, OnlyScalingReadsNeitherOperand) {
    const double nan = NAN;
    for (int k : {0, 40})
        for (double beta : {0.0, 1.0, -2.0})
            for (int size : {6, 150}) {
                problem p('N', 'T', size, size + 3, k, k ? 0.0 : 1.5, beta);
                p.c[0] = nan;
                p.c0[8] = nan;
                dgemm()(&p.ta, 1, &p.tb, 1, &p.m, &p.n, &p.k, &p.alpha, nullptr, &p.lda,
                        nullptr, &p.ldb, &p.beta, p.c, &p.ldc);
                for (int j = 0; j < p.n; ++j)
                    for (int i = 0; i < p.m; ++i) {
                        const double got = p.c[i + (long)j * p.ldc];
                        const double want = beta == 0 ? 0.0 : beta * p.C0(i, j);
                        if (beta == 1) ASSERT_EQ(memcmp(&got, &p.c0[8 + i + j * p.ldc], 8), 0);
                        else if (isnan(want)) ASSERT_TRUE(isnan(got));
                        else ASSERT_EQ(got, want) << i << "," << j;
                    }
                p.expect_outside_untouched();
            }
}

TEST(Dgemm, NanAlphaAndNanInC) {
    for (int size : {3, 9, 70}) {
        problem p('T', 'N', size, size, size, NAN, 1.0);
        p.run();
        for (int j = 0; j < size; ++j)
            for (int i = 0; i < size; ++i) ASSERT_TRUE(isnan(p.c[i + (long)j * p.ldc]));
        // beta = 0 clears C first: a NaN there does not survive.
        problem q('N', 'N', size, size, size, 1.0, 0.0);
        for (int j = 0; j < size; ++j) q.c[size / 2 + (long)j * q.ldc] = NAN;
        q.run();
        q.expect_near_reference();
    }
}

// ---- bit-for-bit models of the documented sum orders --------------------

// Block of k that the engines of branches 4 to 7 use for the whole k.
int k_block(int k, int ku) {
    if (k < 256) {
        int kb = (k + ku - 1) / ku * ku;
        return kb < 128 ? 128 : kb;
    }
    if (k < 512 && k > 256) return (k / 2 + ku - 1) / ku * ku;
    return 256;
}

struct row_model {
    int mr, nr, ku;
    int m_min, n_min;  // sizes below which the plain multiply runs
    bool kpair;        // even and odd steps summed apart
    bool fused_edge;
    bool stream;       // B streamed: k not rounded in the edge rows
};

// C(i,j) after the blocked engine: each k block is one register sum added to
// C; main-kernel rows sum in their order, edge rows in four partial sums.
double model(const problem& p, const row_model& r, int i, int j) {
    double c = p.beta == 1 ? p.C0(i, j) : p.beta == 0 ? 0.0 : p.beta * p.C0(i, j);
    const int kb = k_block(p.k, r.ku);
    const bool edge = i >= p.m - p.m % r.mr;
    for (int l0 = 0; l0 < p.k; l0 += kb) {
        const int len = p.k - l0 < kb ? p.k - l0 : kb;
        auto prod = [&](int l) { return (p.alpha * p.A(i, l0 + l)) * p.B(l0 + l, j); };
        double s;
        if (edge) {
            const int kk = r.stream ? len : (len + r.ku - 1) / r.ku * r.ku;
            double part[4] = {0, 0, 0, 0};
            int l = 0;
            for (; l + 4 <= kk; l += 4)
                for (int q = 0; q < 4; ++q) {
                    const double x = l + q < len ? p.alpha * p.A(i, l0 + l + q) : 0.0;
                    const double y = l + q < len ? p.B(l0 + l + q, j) : 0.0;
                    part[q] = r.fused_edge ? fma(x, y, part[q]) : part[q] + x * y;
                }
            s = (part[0] + part[1]) + (part[2] + part[3]);
            for (; l < len; ++l)
                s = r.fused_edge ? fma(p.alpha * p.A(i, l0 + l), p.B(l0 + l, j), s) : s + prod(l);
        } else if (r.kpair) {
            double even = 0, odd = 0;
            for (int l = 0; l < len; ++l) (l % 2 ? odd : even) += prod(l);
            s = even + odd;
        } else {
            s = 0;
            for (int l = 0; l < len; ++l) s += prod(l);
        }
        c = c + s;
    }
    return c;
}

// The rows of the engines of branches 4 to 7 in D; branch 4 picks its row by
// SSE4.1, which ZVA_CBWR=SSSE3 takes away.
bool model_of_run(row_model* r) {
    const char* cbwr = getenv("ZVA_CBWR");
    const bool no_sse41 = cbwr && strcmp(cbwr, "SSSE3") == 0;
    const int b = no_sse41 ? 4 : test_branch();
    if (b == 7 || b == 6) *r = {4, 4, 4, 4, 4, false, b == 7, false};
    else if (b == 5 || (b == 4 && !no_sse41)) *r = {2, 4, 4, 2, 4, false, false, true};
    else if (b == 4) *r = {2, 2, 2, 2, 8, true, false, true};
    else return false;
    return true;
}

TEST(Dgemm, BlockedSumOrderIsExact) {
    row_model r;
    if (!model_of_run(&r)) GTEST_SKIP() << "branch without a blocked engine";
    struct shape { int m, n, k; };
    const shape shapes[] = {{5, 9, 5}, {7, 9, 33}, {12, 10, 256}, {9, 13, 300}, {22, 17, 600},
                            {33, 9, 9}};
    int round = 0;
    for (const shape& s : shapes)
        for (const auto& t : letters) {
            ++round;
            if (s.m <= r.m_min || s.n <= r.n_min) continue;
            problem p(t[0], t[1], s.m, s.n, s.k, round % 2 ? 1.0 : 0.37, round % 3 ? 1.0 : -0.5,
                      round % 2);
            p.run();
            for (int j = 0; j < p.n; ++j)
                for (int i = 0; i < p.m; ++i) {
                    const double want = model(p, r, i, j), got = p.c[i + (long)j * p.ldc];
                    ASSERT_EQ(memcmp(&got, &want, 8), 0)
                        << t[0] << t[1] << " m=" << s.m << " n=" << s.n << " k=" << s.k << " at "
                        << i << "," << j << ": " << got << " vs " << want;
                }
            p.expect_outside_untouched();
        }
}

// Branch 3: k is cut into chunks of 128, the odd first chunk taken from the
// end of k and merged with beta; each chunk's sum is rounded into C in turn.
// The odd last row goes through the plain multiply, chunk by chunk.
double model3(const problem& p, int i, int j) {
    const int first = p.k % 128 ? p.k % 128 : 128;
    const bool odd_row = p.m % 2 && i == p.m - 1;
    auto chunk = [&](int l0, int len) {
        double s = 0;
        for (int l = l0; l < l0 + len; ++l)
            s += odd_row ? p.A(i, l) * p.B(l, j) : (p.alpha * p.A(i, l)) * p.B(l, j);
        return s;
    };
    double c = p.C0(i, j);
    const double s = chunk(p.k - first, first);
    if (odd_row) c = p.beta == 0 ? p.alpha * s : p.beta * c + p.alpha * s;
    else c = p.beta == 1 ? c + s : p.beta == 0 ? s : s + p.beta * c;
    for (int l0 = 0; l0 < p.k - first; l0 += 128)
        c = odd_row ? c + p.alpha * chunk(l0, 128) : c + chunk(l0, 128);
    return c;
}

TEST(Dgemm, Branch3ChunkOrderIsExact) {
    if (test_branch() != 3) GTEST_SKIP() << "the engine of branch 3";
    struct shape { int m, n, k; };
    const shape shapes[] = {{4, 8, 8}, {9, 12, 130}, {21, 16, 300}, {7, 10, 256}};
    int round = 0;
    for (const shape& s : shapes)
        for (const auto& t : letters) {
            ++round;
            const double beta = round % 3 == 0 ? 0.0 : round % 3 == 1 ? 1.0 : -0.75;
            problem p(t[0], t[1], s.m, s.n, s.k, round % 2 ? 1.0 : 0.37, beta, round % 2);
            p.run();
            // The last n mod 4 columns go through the matrix-vector product.
            for (int j = 0; j < p.n - p.n % 4; ++j)
                for (int i = 0; i < p.m; ++i) {
                    const double want = model3(p, i, j), got = p.c[i + (long)j * p.ldc];
                    ASSERT_EQ(memcmp(&got, &want, 8), 0)
                        << t[0] << t[1] << " m=" << s.m << " n=" << s.n << " k=" << s.k
                        << " at " << i << "," << j << ": " << got << " vs " << want;
                }
            p.expect_near_reference();
        }
}

// Branch 2: chunks of 104 as on branch 3, in one of two forms; the rows of
// a tile add the steps of a group of 4 in two different orders.
bool branch2_reads_b_in_place(const problem& p) {
    const int m = p.m, n = p.n, k = p.k;
    if (notrans(p.tb)) {
        if (n > 100 && n < 600) return m <= k + 100;
        if (n == 600 || (n > 600 && m >= k - 100)) return false;
        return m < 601;
    }
    if (n <= 100 && m < 250 && k > 100) return true;
    if (n < 80) return false;
    return m <= k && m < 300;
}

double model2(const problem& p, int i, int j) {
    const int q = 104, first = p.k % q ? p.k % q : q;
    const bool in_place = branch2_reads_b_in_place(p);
    // Rows 0 and 1 of a tile take the steps of a group as 0, 2, 1, 3.
    const bool top = i % 4 < 2;
    auto chunk = [&](int l0, int len) {
        const int kk = (len + 1) & ~1;
        auto prod = [&](int l) { return l < len ? (p.alpha * p.A(i, l0 + l)) * p.B(l0 + l, j) : 0.0; };
        double s = 0;
        int l = 0;
        for (; l + 4 <= kk; l += 4) {
            const int order_top[4] = {0, 2, 1, 3}, order_low[4] = {0, 1, 2, 3};
            for (int t = 0; t < 4; ++t) s += prod(l + (top ? order_top[t] : order_low[t]));
        }
        for (; l < kk; ++l) s += prod(l);
        return s;
    };
    double c = p.C0(i, j);
    if (in_place) c = p.beta == 1 ? c : p.beta == 0 ? 0.0 : p.beta * c;
    const double s = chunk(p.k - first, first);
    if (in_place || p.beta == 1) c = c + s;
    else c = p.beta == 0 ? s : s + p.beta * c;
    for (int l0 = 0; l0 < p.k - first; l0 += q) c = c + chunk(l0, q);
    return c;
}

TEST(Dgemm, Branch2GroupOrderIsExact) {
    if (test_branch() != 2) GTEST_SKIP() << "the engine of branch 2";
    struct shape { int m, n, k; };
    // Both forms, chunks of 4k and 4k + 2 steps, partial tiles of 1 to 3 rows.
    const shape shapes[] = {{4, 8, 8}, {9, 12, 110}, {21, 16, 300}, {7, 90, 106}, {263, 10, 9}};
    int round = 0;
    for (const shape& s : shapes)
        for (const auto& t : letters) {
            ++round;
            const double beta = round % 3 == 0 ? 0.0 : round % 3 == 1 ? 1.0 : -0.75;
            problem p(t[0], t[1], s.m, s.n, s.k, round % 2 ? 1.0 : 0.37, beta, round % 2);
            p.run();
            for (int j = 0; j < p.n - p.n % 2; ++j)
                for (int i = 0; i < p.m; ++i) {
                    const double want = model2(p, i, j), got = p.c[i + (long)j * p.ldc];
                    ASSERT_EQ(memcmp(&got, &want, 8), 0)
                        << t[0] << t[1] << " m=" << s.m << " n=" << s.n << " k=" << s.k
                        << " at " << i << "," << j << ": " << got << " vs " << want;
                }
            p.expect_near_reference();
        }
}

// ---- no work memory -------------------------------------------------------

// Run with an allocator module that refuses large blocks: the result is the
// plain multiply's, and the failure is reported under the engine's tag.
TEST(DgemmNoMemory, FallsBackToThePlainMultiply) {
    if (!getenv("ZVA_TEST_NO_MEMORY")) GTEST_SKIP() << "needs the refusing allocator";
    const int b = test_branch();
    const char* tag = b == 2 || b == 3 ? "xdgemm" : "xgemm";
    omp_set_num_threads(1);
    problem p('N', 'T', 150, 140, 300, 0.5, -1.0);
    testing::internal::CaptureStdout();
    p.run();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find(std::string("Not enough work memory in function ") + tag), std::string::npos)
        << out;
    p.expect_near_reference();
    // The lock-step forms of a team share one packed area; without it the
    // team falls back to slices of the serial engine.
    omp_set_num_threads(2);
    problem q('T', 'N', 400, 37, 70, 1.5, 0.0);
    testing::internal::CaptureStdout();
    q.run();
    const std::string out2 = testing::internal::GetCapturedStdout();
    if (b >= 4 && b <= 6) {
        EXPECT_NE(out2.find("Not enough work memory in function gemm\n"), std::string::npos)
            << out2;
    }
    q.expect_near_reference();
    omp_set_num_threads(1);
}

// ---- threads --------------------------------------------------------------

TEST(DgemmThreads, TeamsGiveTheProduct) {
    struct shape { int m, n, k; };
    const shape shapes[] = {{60, 70, 50}, {100, 100, 100}, {101, 40, 60}, {200, 300, 300},
                            {300, 200, 300}, {150, 150, 60}, {400, 37, 70}, {37, 400, 70}};
    for (int threads : {2, 3}) {
        omp_set_num_threads(threads);
        int round = 0;
        for (const shape& s : shapes) {
            const char* t = letters[(round + threads) % 8];
            problem p(t[0], t[1], s.m, s.n, s.k, 0.8, ++round % 2 ? 0.0 : 1.3, 1);
            p.run();
            p.expect_near_reference();
        }
    }
    omp_set_num_threads(1);
}

// Column slices keep every element in the same place within its k blocks
// and row panels, so the team's result is the one thread's, bit for bit.
TEST(DgemmThreads, ColumnSlicesMatchOneThread) {
    const int b = test_branch();
    if (b != 7 && b != 0) GTEST_SKIP() << "other thread codes may share packed blocks";
    for (int threads : {2, 4}) {
        problem one('N', 'T', 120, 300, 300, 0.9, 0.5);
        problem team('N', 'T', 120, 300, 300, 0.9, 0.5);
        memcpy(team.a, one.a, sizeof(double) * one.lda * one.k);
        memcpy(team.b, one.b, sizeof(double) * one.ldb * one.k);
        memcpy(team.c - 8, one.c - 8, sizeof(double) * one.c0.size());
        omp_set_num_threads(1);
        one.run();
        omp_set_num_threads(threads);
        team.run();
        ASSERT_EQ(memcmp(one.c - 8, team.c - 8, sizeof(double) * one.c0.size()), 0);
    }
    omp_set_num_threads(1);
}

}  // namespace
