// SYMV and HEMV through the exports, on the branch of this run, against a
// reference in long double built from the stored triangle.  The kernels add
// in orders of their own, so results are held to a rounding bound.  The
// triangle not named by uplo, the rows past n, the imaginary parts of the
// HEMV diagonal and the elements between strided ones hold NaN: any of them
// read would show in y.
#include <math.h>
#include <omp.h>
#include <string.h>

#include <limits>
#include <vector>

#include "zva.h"

namespace {

template <class T> using symv_fn = void(ZVA_STDCALL*)(const char*, int, const int*, const T*, const T*,
                                                      const int*, const T*, const int*, const T*, T*,
                                                      const int*);

lcg rng{4242};

// A buffer of count elements that starts off bytes past a 64-byte boundary.
template <class T> T* place(std::vector<unsigned char>& buf, size_t count, int off) {
    buf.assign(count * sizeof(T) + 128, 0);
    return (T*)(((uintptr_t)buf.data() + 63) / 64 * 64 + off);
}

template <class T> T nan_elem() { return make<T>(NAN, NAN); }

template <class T>
void check(const char* uplo, int n, T alpha, T beta, int incx, int incy, int lda_extra, int off,
           bool nan_y = false) {
    using R = typename elem<T>::R;
    const bool up = uplo[0] == 'U' || uplo[0] == 'u', herm = elem<T>::cplx;
    const int lda = (n > 1 ? n : 1) + lda_extra, guard = 4;
    const int sx = n ? 1 + (n - 1) * abs(incx) : 0, sy = n ? 1 + (n - 1) * abs(incy) : 0;
    std::vector<unsigned char> ab, xb, yb;
    T* a = place<T>(ab, (size_t)lda * (n ? n : 1), off);
    T* xg = place<T>(xb, sx + 2 * guard, off);
    T* yg = place<T>(yb, sy + 2 * guard, off);
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < lda; ++i) {
            T& e = a[(size_t)j * lda + i];
            e = (i >= n || (up ? i > j : i < j)) ? nan_elem<T>() : rng.value<T>();
            if constexpr (elem<T>::cplx)
                if (i == j) e.im = NAN;
        }
    for (int i = 0; i < sx + 2 * guard; ++i) xg[i] = nan_elem<T>();
    for (int i = 0; i < sy + 2 * guard; ++i) yg[i] = rng.value<T>();
    const long long kx = incx > 0 ? 0 : (long long)(1 - n) * incx, ky = incy > 0 ? 0 : (long long)(1 - n) * incy;
    for (int i = 0; i < n; ++i) {
        xg[guard + kx + (long long)i * incx] = rng.value<T>();
        if (nan_y) yg[guard + ky + (long long)i * incy] = nan_elem<T>();
    }
    const std::vector<T> a0(a, a + (size_t)lda * (n ? n : 1)), x0(xg, xg + sx + 2 * guard),
        y0(yg, yg + sy + 2 * guard);

    zva_export<symv_fn<T>>(routine<T>(herm ? "HEMV" : "SYMV").c_str())(uplo, 1, &n, &alpha, a, &lda, xg + guard,
                                                                       &incx, &beta, yg + guard, &incy);

    ASSERT_EQ(0, memcmp(a, a0.data(), a0.size() * sizeof(T))) << "A changed";
    ASSERT_EQ(0, memcmp(xg, x0.data(), x0.size() * sizeof(T))) << "x changed";
    const lc al = to_lc(alpha), be = to_lc(beta);
    const bool alpha0 = al.re == 0 && al.im == 0, beta0 = be.re == 0 && be.im == 0,
               beta1 = be.re == 1 && be.im == 0;
    std::vector<bool> done(sy + 2 * guard, false);
    for (int i = 0; i < n && !(alpha0 && beta1); ++i) {
        lc sum = {0, 0};
        long double mag_sum = 0;
        for (int j = 0; j < n; ++j) {
            const bool stored = up ? i <= j : i >= j;
            lc av = to_lc(stored ? a0[(size_t)j * lda + i] : a0[(size_t)i * lda + j]);
            if (herm && i == j) av.im = 0;
            if (herm && !stored) av.im = -av.im;
            const lc xv = to_lc(x0[guard + kx + (long long)j * incx]);
            const lc p = mul(av, xv);
            sum.re += p.re, sum.im += p.im;
            mag_sum += mag(av) * mag(xv);
        }
        const long long iy = guard + ky + (long long)i * incy;
        const lc yv = beta0 ? lc{0, 0} : mul(be, to_lc(y0[iy]));
        const lc as = alpha0 ? lc{0, 0} : mul(al, sum);
        const lc want = {yv.re + as.re, yv.im + as.im};
        const long double tol = (n + 4) * 4 * (long double)std::numeric_limits<R>::epsilon() *
                                (mag(al) * mag_sum + (beta0 ? 0 : mag(be) * mag(to_lc(y0[iy]))) + 1e-30L);
        const lc got = to_lc(yg[iy]);
        done[iy] = true;
        if (isnan((double)want.re) || isnan((double)want.im)) {
            ASSERT_TRUE(isnan((double)got.re) || isnan((double)got.im)) << uplo << " n=" << n << " row " << i;
            continue;
        }
        ASSERT_LE(fabsl(got.re - want.re) + fabsl(got.im - want.im), tol)
            << routine<T>(herm ? "HEMV" : "SYMV") << " " << uplo << " n=" << n << " incx=" << incx
            << " incy=" << incy << " off=" << off << " lda=" << lda << " row " << i;
    }
    for (int i = 0; i < sy + 2 * guard; ++i) {
        if (!done[i]) ASSERT_TRUE(same_bits(yg[i], y0[i])) << "y element " << i - guard << " changed, n=" << n;
    }
}

// Around the unroll of 4 columns and the row passes of every branch (up to
// 16 rows), the 32-byte boundary and one size of a few hundred.
const int sizes[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 12, 15, 16, 17, 20, 31, 32, 33, 64, 65};
const int incs[][2] = {{1, 1}, {2, -1}, {-2, 2}, {-1, -2}, {1, 2}};

template <class T> void sweep() {
    const T alphas[] = {make<T>(0.75, -0.5), make<T>(-1, 0)};
    const T betas[] = {make<T>(0.5, 0.25), make<T>(0, 0), make<T>(1, 0)};
    for (const char* uplo : {"U", "L"})
        for (int n : sizes)
            for (auto& inc : incs)
                for (const T& al : alphas)
                    for (const T& be : betas) check<T>(uplo, n, al, be, inc[0], inc[1], inc[0] == 1 ? 0 : 3, 0);
    // Every start against the vector boundary, and element-misaligned data.
    const int elem_off = (int)sizeof(T);
    for (const char* uplo : {"u", "l"})
        for (int off : {elem_off, 3 * elem_off, 4})
            for (int n : {13, 37, 67}) check<T>(uplo, n, make<T>(1.5, 0.5), make<T>(-1, 0), 1, 1, 1, off);
    for (const char* uplo : {"U", "L"}) check<T>(uplo, 300, make<T>(0.5, 1), make<T>(2, 0), 1, 1, 5, 0);
}

}  // namespace

TEST(Symv, Single) { sweep<float>(); }
TEST(Symv, Double) { sweep<double>(); }
TEST(Hemv, SingleComplex) { sweep<cfloat>(); }
TEST(Hemv, DoubleComplex) { sweep<cdouble>(); }

// alpha = 0 and beta = 1 leave y alone; alpha = 0 scales y by beta without
// reading A or x; beta = 0 drops NaN from y before the product is added;
// n = 0 touches nothing.
TEST(Symv, ScalingEdges) {
    auto f = zva_export<symv_fn<double>>("DSYMV");
    int n = 9, zero_n = 0, one = 1;
    std::vector<double> a(81, NAN), x(9, NAN), y(9);
    double zero = 0, onev = 1, two = 2;
    for (int i = 0; i < 9; ++i) y[i] = i;
    f("U", 1, &n, &zero, a.data(), &n, x.data(), &one, &onev, y.data(), &one);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(y[i], (double)i);
    f("L", 1, &n, &zero, a.data(), &n, x.data(), &one, &two, y.data(), &one);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(y[i], 2.0 * i);
    f("L", 1, &zero_n, &onev, a.data(), &n, x.data(), &one, &zero, y.data(), &one);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(y[i], 2.0 * i);
    for (int off : {0, 8})
        for (int n : {3, 40}) {
            check<double>("U", n, 1.0, 0.0, 1, 1, 0, off, true);
            check<float>("L", n, 2.0f, 0.0f, -1, 1, 1, off / 2, true);
            check<cfloat>("U", n, make<cfloat>(1, 1), make<cfloat>(0, 0), 1, -2, 0, off, true);
            check<cdouble>("L", n, make<cdouble>(0, 1), make<cdouble>(0, 0), 1, 1, 2, off, true);
        }
    // A NaN alpha with beta = 1 is not zero: y becomes NaN.
    std::vector<double> a1(81, 1.0), x1(9, 1.0);
    double nan = NAN;
    f("U", 1, &n, &nan, a1.data(), &n, x1.data(), &one, &onev, y.data(), &one);
    for (double v : y) EXPECT_TRUE(isnan(v));
}

// With ZVA_DYNAMIC=FALSE the OpenMP count reaches the driver, which splits
// SYMV into diagonal blocks and strips on branches 4, 5 and 6.  Sizes above
// the floor of each type (S 256, D 144), odd and even, so that the last
// block is longer than the others.
TEST(SymvThreads, BlocksAgreeWithTheReference) {
    for (int threads : {1, 2, 3}) {
        omp_set_num_threads(threads);
        for (const char* uplo : {"U", "L"})
            for (auto& inc : {incs[0], incs[1], incs[2]}) {
                check<double>(uplo, 150, 0.5, -1.5, inc[0], inc[1], 1, 0);
                check<double>(uplo, 301, 1.0, 0.0, inc[0], inc[1], 0, 8, true);
                check<float>(uplo, 263, 2.0f, 0.5f, inc[0], inc[1], 3, 4);
            }
    }
}
