// The rank-one updates SGER, DGER, CGERU, CGERC, ZGERU, ZGERC through the
// exports, on the branch of this run, against A + alpha*x*op(y) in long
// double. Each element is one product added to A, but the scalar
// alpha*op(y(j)) and the complex product round in branch-dependent ways
// (fused in 7, x87 width in the real kernels of 2 and 3), so results are
// held to a bound. Columns with a zero y(j), the rows past m, x and y stay
// bit for bit as they were.
#include <math.h>

#include <limits>
#include <vector>

#include "zva.h"

namespace {

template <class T> using ger_fn = void(ZVA_STDCALL*)(const int*, const int*, const T*, const T*,
                                                     const int*, const T*, const int*, T*,
                                                     const int*);

lcg rng{4242};

template <class T> struct rank1 {
    using R = typename elem<T>::R;
    std::string name;
    bool cj;
    int m, n, incx, incy, lda;
    std::vector<unsigned char> abuf;
    T* a;
    std::vector<T> a0, xg, yg;
    static constexpr int guard = 3;

    // y(j) is 0 for j = 3 mod 7 and -0 for j = 5 mod 7 where zeros is set,
    // so that some blocks of four columns hold a zero and others do not.
    rank1(const char* routine_, int m_, int n_, int incx_, int incy_, bool zeros, int off = 0)
        : name(routine_), cj(name.back() == 'C'), m(m_), n(n_), incx(incx_), incy(incy_),
          lda(m_ + 2) {
        abuf.assign((size_t)lda * (n > 0 ? n : 1) * sizeof(T) + 128, 0);
        a = (T*)(((uintptr_t)abuf.data() + 63) / 64 * 64 + off);
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < lda; ++i)
                a[(size_t)j * lda + i] = i < m ? rng.value<T>() : make<T>(NAN, NAN);
        a0.assign(a, a + (size_t)lda * n);
        fill(xg, m, incx);
        fill(yg, n, incy);
        if (zeros)
            for (int j = 0; j < n; ++j)
                if (j % 7 == 3 || j % 7 == 5) at(yg, n, incy, j) = make<T>(j % 7 == 3 ? 0.0 : -0.0, -0.0);
    }
    static void fill(std::vector<T>& v, int len, int inc) {
        v.assign((len > 0 ? 1 + (len - 1) * abs(inc) : 0) + 2 * guard, make<T>(-55.5, 66.25));
        for (int i = 0; i < len; ++i) at(v, len, inc, i) = rng.value<T>();
    }
    static T& at(std::vector<T>& v, int len, int inc, int i) {
        return v[guard + (inc > 0 ? (long)i * inc : (long)(len - 1 - i) * -inc)];
    }
    T& x(int i) { return at(xg, m, incx, i); }
    T& y(int j) { return at(yg, n, incy, j); }
    T& elt(int i, int j) { return a[(size_t)j * lda + i]; }
    std::string what() const {
        return name + " m=" + std::to_string(m) + " n=" + std::to_string(n) + " incx=" +
               std::to_string(incx) + " incy=" + std::to_string(incy);
    }
    void call(T alpha) {
        const std::vector<T> x0 = xg, y0 = yg;
        zva_export<ger_fn<T>>(name.c_str())(&m, &n, &alpha, xg.data() + guard, &incx,
                                             yg.data() + guard, &incy, a, &lda);
        ASSERT_EQ(0, memcmp(xg.data(), x0.data(), x0.size() * sizeof(T))) << what() << ": x changed";
        ASSERT_EQ(0, memcmp(yg.data(), y0.data(), y0.size() * sizeof(T))) << what() << ": y changed";
    }
    // A zero y(j), either sign, both parts: the column is skipped.
    bool column_left(int j) { return to_lc(y(j)).re == 0 && to_lc(y(j)).im == 0; }
    void check(T alpha) {
        call(alpha);
        const lc al = to_lc(alpha);
        const long double eps = std::numeric_limits<R>::epsilon();
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < lda; ++i) {
                const T got = elt(i, j), was = a0[(size_t)j * lda + i];
                if (i >= m || column_left(j) || (al.re == 0 && al.im == 0)) {
                    ASSERT_TRUE(same_bits(got, was)) << what() << " A(" << i << "," << j << ") changed";
                    continue;
                }
                const lc yj = cj ? conj(to_lc(y(j))) : to_lc(y(j));
                const lc want = add(to_lc(was), mul(mul(al, to_lc(x(i))), yj));
                const long double bound = mag(to_lc(was)) + mag(al) * mag(to_lc(x(i))) * mag(yj);
                const lc g = to_lc(got);
                ASSERT_LE(fabsl(g.re - want.re) + fabsl(g.im - want.im), 8 * eps * bound)
                    << what() << " A(" << i << "," << j << ")";
            }
    }
};

const char* const real_names[] = {"SGER", "DGER"};
const int incs[][2] = {{1, 1}, {1, -2}, {2, 1}, {-1, 2}, {-2, -1}};

template <class T> void sweep(const char* name) {
    const T alphas[] = {make<T>(1, 0), make<T>(-0.75, 0.5)};
    for (int m : {0, 1, 2, 3, 5, 8, 9, 17, 33, 65})
        for (int n : {0, 1, 3, 4, 5, 8, 9, 13})
            for (auto& inc : incs)
                for (const T& al : alphas) rank1<T>(name, m, n, inc[0], inc[1], true).check(al);
    // Every column nonzero (whole blocks of four), long columns, and A off
    // the vector boundary or off the element grid.
    for (int off : {0, 4, 8, 12}) {
        rank1<T>(name, 300, 9, 1, 1, false, off).check(make<T>(0.5, -1));
        rank1<T>(name, 101, 8, -1, 2, false, off).check(make<T>(2, 0.25));
    }
}

}  // namespace

TEST(Ger, Single) { sweep<float>("SGER"); }
TEST(Ger, Double) { sweep<double>("DGER"); }
TEST(Ger, SingleComplex) {
    sweep<cfloat>("CGERU");
    sweep<cfloat>("CGERC");
}
TEST(Ger, DoubleComplex) {
    sweep<cdouble>("ZGERU");
    sweep<cdouble>("ZGERC");
}

// The zero tests a caller sees: alpha = 0, or a zero y(j) (also -0), leaves
// the matrix alone even with NaN in x or y; a NaN y(j) makes its whole
// column NaN, also where x is zero.
template <class T> void zero_rules(const char* name) {
    const T nan = make<T>(NAN, NAN), one = make<T>(1, 0);
    for (auto& inc : incs) {
        rank1<T> p(name, 21, 9, inc[0], inc[1], false);
        for (int j = 0; j < p.n; ++j) p.y(j) = make<T>(j % 2 ? -0.0 : 0.0, -0.0);
        p.x(4) = nan;
        p.check(one);
        rank1<T> q(name, 21, 9, inc[0], inc[1], false);
        q.x(4) = nan;
        q.y(2) = nan;
        q.check(make<T>(0, 0));
        rank1<T> r(name, 21, 9, inc[0], inc[1], false);
        r.x(4) = nan;
        r.x(7) = make<T>(0, 0);
        r.y(2) = make<T>(-0.0, 0);
        r.y(5) = make<T>(NAN, 0);
        r.call(one);
        for (int j = 0; j < r.n; ++j)
            for (int i = 0; i < r.m; ++i) {
                const lc v = to_lc(r.elt(i, j));
                const bool is_nan = isnan((double)v.re) || isnan((double)v.im);
                if (j == 2) {
                    ASSERT_TRUE(same_bits(r.elt(i, j), r.a0[(size_t)j * r.lda + i])) << r.what();
                } else {
                    ASSERT_EQ(is_nan, j == 5 || i == 4) << r.what() << " A(" << i << "," << j << ")";
                }
            }
    }
}

TEST(Ger, ZeroRules) {
    for (const char* name : real_names) {
        if (name[0] == 'S') zero_rules<float>(name);
        else zero_rules<double>(name);
    }
    for (const char* name : {"CGERU", "CGERC"}) zero_rules<cfloat>(name);
    for (const char* name : {"ZGERU", "ZGERC"}) zero_rules<cdouble>(name);
}
