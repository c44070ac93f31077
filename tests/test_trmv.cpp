// TRMV and TRSV in the four types through the exports, on the branch of this
// run, against references computed in long double from the BLAS
// definitions. The kernels sum in orders of their own (blocks, GEMV, the
// 4 x 4 triangles), so products are held to a rounding bound; solves are
// held to their residual and to a naive solve. Everything the routine must
// not read is NaN (the other triangle, a unit diagonal, the rows past n),
// and everything it must not write is checked bit for bit.
#include <math.h>
#include <omp.h>

#include <limits>
#include <vector>

#include "zva.h"

namespace {

template <class T> using tr_fn = void(ZVA_STDCALL*)(const char*, int, const char*, int, const char*,
                                                    int, const int*, const T*, const int*, T*,
                                                    const int*);

lcg rng{2024};

// One call's operands: A (lda = n + 3) and a strided x with guards, all at
// `off` bytes past a 64-byte boundary.
template <class T> struct operands {
    using R = typename elem<T>::R;
    char uplo, trans, diag;
    int n, lda, inc;
    bool solve;
    std::vector<unsigned char> abuf, xbuf;
    T *a, *xg;
    std::vector<T> a0, x0;
    static constexpr int guard = 4;

    operands(const char* letters, int n_, int inc_, bool solve_, int off = 0)
        : uplo(letters[0]), trans(letters[1]), diag(letters[2]), n(n_), lda(n_ + 3), inc(inc_),
          solve(solve_) {
        auto place = [&](std::vector<unsigned char>& buf, size_t count) {
            buf.assign(count * sizeof(T) + 128, 0);
            return (T*)(((uintptr_t)buf.data() + 63) / 64 * 64 + off);
        };
        const int cols = n > 0 ? n : 1;
        a = place(abuf, (size_t)lda * cols);
        const T nan = make<T>(NAN, NAN);
        for (int j = 0; j < cols; ++j)
            for (int i = 0; i < lda; ++i) {
                T& e = a[(size_t)j * lda + i];
                e = nan;
                if (i >= n || !stored(i, j)) continue;
                // Solves: off-diagonal elements of size 1/n and a diagonal
                // whose real part lies in [0.5, 2.5): the triangle is well
                // conditioned at any n.
                e = rng.value<T>();
                if (solve && i != j) e = make<T>(to_lc(e).re / n, to_lc(e).im / n);
                if (i == j && solve) e = make<T>(1.5 + to_lc(e).re * 2, to_lc(e).im);
                if (i == j && unit()) e = nan;
            }
        const int span = n > 0 ? 1 + (n - 1) * abs(inc) : 0;
        xg = place(xbuf, span + 2 * guard);
        for (int i = 0; i < span + 2 * guard; ++i) xg[i] = make<T>(-777.25, 333.5);  // sentinels
        for (int i = 0; i < n; ++i) xat(xg, i) = rng.value<T>();
        a0.assign(a, a + (size_t)lda * cols);
        x0.assign(xg, xg + span + 2 * guard);
    }
    bool up() const { return uplo == 'U' || uplo == 'u'; }
    bool unit() const { return diag == 'U' || diag == 'u'; }
    bool tr() const { return trans != 'N' && trans != 'n'; }
    bool cj() const { return elem<T>::cplx && (trans == 'C' || trans == 'c'); }
    bool stored(int i, int j) const { return up() ? i <= j : i >= j; }
    // Logical element i of a vector laid out like x, in a buffer with guards.
    T& xat(T* buf, int i) const {
        return buf[guard + (inc > 0 ? (long)i * inc : (long)(n - 1 - i) * -inc)];
    }
    const T& xat(const std::vector<T>& buf, int i) const { return xat((T*)buf.data(), i); }
    // Row i of op(A) is nonzero in columns [lo(i), hi(i)): up to the
    // diagonal or from it.
    bool from_diag() const { return up() != tr(); }
    int lo(int i) const { return from_diag() ? i : 0; }
    int hi(int i) const { return from_diag() ? n : i + 1; }
    // op(A)(i, j) as the routine must see it: 0 outside the triangle, 1 on a
    // unit diagonal.
    lc op(int i, int j) const {
        const int r = tr() ? j : i, c = tr() ? i : j;
        if (!stored(r, c)) return {0, 0};
        if (r == c && unit()) return {1, 0};
        lc v = to_lc(a0[(size_t)c * lda + r]);
        return cj() ? conj(v) : v;
    }
    void call() {
        auto f = zva_export<tr_fn<T>>(routine<T>(solve ? "TRSV" : "TRMV").c_str());
        const char u[2] = {uplo, 0}, t[2] = {trans, 0}, d[2] = {diag, 0};
        f(u, 1, t, 1, d, 1, &n, a, &lda, xg + guard, &inc);
    }
    std::string what() const {
        return routine<T>(solve ? "TRSV" : "TRMV") + " " + uplo + trans + diag + " n=" +
               std::to_string(n) + " inc=" + std::to_string(inc);
    }
    // A, and x outside its n elements, bit for bit as they were.
    void expect_untouched() const {
        ASSERT_EQ(0, memcmp(a, a0.data(), a0.size() * sizeof(T))) << what() << ": A changed";
        std::vector<bool> mine(x0.size(), false);
        for (int i = 0; i < n; ++i) mine[&xat(xg, i) - xg] = true;
        for (size_t k = 0; k < x0.size(); ++k) {
            if (mine[k]) continue;
            ASSERT_TRUE(same_bits(xg[k], x0[k])) << what() << ": x word " << k;
        }
    }
    long double eps() const { return std::numeric_limits<R>::epsilon(); }
    // x = op(A)*x0: within (n + 4)*4*eps of the sum of |terms|.
    void expect_product() const {
        expect_untouched();
        for (int i = 0; i < n; ++i) {
            lc s = {0, 0};
            long double bound = 0;
            for (int j = lo(i); j < hi(i); ++j) {
                const lc p = mul(op(i, j), to_lc(xat(x0, j)));
                s = add(s, p);
                bound += mag(op(i, j)) * mag(to_lc(xat(x0, j)));
            }
            const lc got = to_lc(xat(xg, i));
            ASSERT_LE(fabsl(got.re - s.re) + fabsl(got.im - s.im), (n + 4) * 4 * eps() * bound + 1e-30L)
                << what() << " element " << i;
        }
    }
    // op(A)*x = x0 to a residual of (n + 4)*8*eps, and x near the naive
    // solve in long double.
    void expect_solution() const {
        expect_untouched();
        std::vector<lc> ref(n);
        const bool fwd = up() == tr();
        for (int s = 0; s < n; ++s) {
            const int i = fwd ? s : n - 1 - s;
            lc r = to_lc(xat(x0, i));
            for (int j = lo(i); j < hi(i); ++j)
                if (j != i) r = add(r, mul({-op(i, j).re, -op(i, j).im}, ref[j]));
            const lc d = op(i, i);
            const long double q = d.re * d.re + d.im * d.im;
            ref[i] = {(r.re * d.re + r.im * d.im) / q, (r.im * d.re - r.re * d.im) / q};
        }
        for (int i = 0; i < n; ++i) {
            lc s = {-to_lc(xat(x0, i)).re, -to_lc(xat(x0, i)).im};
            long double bound = mag(to_lc(xat(x0, i)));
            for (int j = lo(i); j < hi(i); ++j) {
                s = add(s, mul(op(i, j), to_lc(xat(xg, j))));
                bound += mag(op(i, j)) * mag(to_lc(xat(xg, j)));
            }
            ASSERT_LE(fabsl(s.re) + fabsl(s.im), (n + 4) * 8 * eps() * bound + 1e-30L)
                << what() << " residual of row " << i;
            const lc got = to_lc(xat(xg, i));
            ASSERT_LE(fabsl(got.re - ref[i].re) + fabsl(got.im - ref[i].im),
                      (n + 4) * 16 * eps() * (mag(ref[i]) + 1))
                << what() << " element " << i << " against the naive solve";
        }
    }
    void check() {
        call();
        if (solve) expect_solution();
        else expect_product();
    }
};

// Every letter combination, upper and lower case, the real types with "C".
const char* const letters[] = {"UNN", "UNU", "UTN", "UTU", "UCN", "UCU", "LNN", "LNU",
                               "LTN", "LTU", "LCN", "LCU", "unn", "ltu", "ucn", "lcu"};
const int incs[] = {1, 2, -1, -2};
// Around the 4-column groups, the blocks of 32 and 64, and one of a few
// hundred once per letter combination.
const int sizes[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 17, 31, 32, 33, 64, 65};

template <class T> void sweep(bool solve) {
    for (const char* l : letters) {
        for (int n : sizes)
            for (int inc : incs) operands<T>(l, n, inc, solve).check();
        operands<T>(l, 300, l[0] == 'U' ? 1 : -2, solve).check();
    }
    // Operands off the vector boundary, or off the element grid.
    for (int off : {8, 4})
        for (const char* l : {"UNN", "LTN", "LCU", "UTU"}) operands<T>(l, 70, 1, solve, off).check();
}

}  // namespace

TEST(Trmv, Single) { sweep<float>(false); }
TEST(Trmv, Double) { sweep<double>(false); }
TEST(Trmv, SingleComplex) { sweep<cfloat>(false); }
TEST(Trmv, DoubleComplex) { sweep<cdouble>(false); }
TEST(Trsv, Single) { sweep<float>(true); }
TEST(Trsv, Double) { sweep<double>(true); }
TEST(Trsv, SingleComplex) { sweep<cfloat>(true); }
TEST(Trsv, DoubleComplex) { sweep<cdouble>(true); }

// No zero test on x: a NaN in x reaches every element it is multiplied
// into, also where its partner in A is zero; in a solve it reaches every
// element solved after it.
TEST(Trmv, NanInXMeetsZeroPartners) {
    for (bool solve : {false, true})
        for (const char* l : {"UNN", "LNN", "UTN", "LCU"}) {
            operands<cdouble> p(l, 40, -1, solve);
            const int j = 17;
            for (int k = 0; k < p.n; ++k) {
                const int r = p.tr() ? j : k, c = p.tr() ? k : j;
                if (p.stored(r, c) && r != c) p.a[(size_t)c * p.lda + r] = make<cdouble>(0, 0);
            }
            p.a0.assign(p.a, p.a + p.a0.size());
            p.xat(p.xg, j) = make<cdouble>(NAN, 0);
            p.x0.assign(p.xg, p.xg + p.x0.size());
            p.call();
            p.expect_untouched();
            for (int i = 0; i < p.n; ++i) {
                // Rows that use x(j): those whose op(A) row holds column j.
                const bool reached = solve ? (p.up() == p.tr() ? i >= j : i <= j)
                                           : p.stored(p.tr() ? j : i, p.tr() ? i : j);
                const lc v = to_lc(p.xat(p.xg, i));
                EXPECT_EQ(reached, isnan((double)v.re) || isnan((double)v.im)) << p.what() << " " << i;
            }
        }
}

// With ZVA_DYNAMIC=FALSE the OpenMP count reaches the TRMV driver, which
// splits the rows over two groups of threads on branches 4, 5 and 6, and
// the GEMV driver under TRSV's block updates. Sizes above each type's floor,
// one above 1024 (the uneven split) and one above 3000 (the parallel copy).
TEST(TrmvThreads, SlicesAgreeWithTheReference) {
    for (int threads : {1, 2, 3}) {
        omp_set_num_threads(threads);
        for (const char* l : {"UNN", "LNU", "UTN", "LTU", "UCN", "LCN"})
            for (int inc : {1, -2}) {
                operands<double>(l, 200, inc, false).check();
                operands<float>(l, 240, inc, false).check();
                operands<cfloat>(l, 150, inc, false).check();
                operands<cdouble>(l, 130, inc, false).check();
                operands<double>(l, 300, inc, true).check();
                operands<cfloat>(l, 200, inc, true).check();
            }
        for (const char* l : {"LNN", "UNN"}) operands<double>(l, 1100, 1, false).check();
        if (threads == 2) operands<float>("UTN", 3001, 1, false).check();
    }
    omp_set_num_threads(1);
}
