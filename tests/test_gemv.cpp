// GEMV in the four types through the exports, on the branch of this run,
// against a reference computed in long double.  The kernels sum in orders
// of their own, so results are held to a rounding bound, not to bits.
#include <math.h>
#include <omp.h>
#include <string.h>

#include <limits>
#include <vector>

#include "zva.h"

namespace {

template <class T> using gemv_fn = void(ZVA_STDCALL*)(const char*, int, const int*, const int*,
                                                      const T*, const T*, const int*, const T*,
                                                      const int*, const T*, T*, const int*);

lcg rng{777};
template <class T> T value() { return rng.value<T>(); }

// One call; A, x and y sit `off` bytes past a 64-byte boundary.
template <class T>
void check(const char* trans, int m, int n, T alpha, T beta, int incx, int incy, int lda_extra,
           int off, bool nan_y = false) {
    using R = typename elem<T>::R;
    int lda = (m > 1 ? m : 1) + lda_extra;
    bool notrans = trans[0] == 'N' || trans[0] == 'n';
    bool conj = elem<T>::cplx && !notrans && trans[0] != 'T' && trans[0] != 't';
    int lenx = notrans ? n : m, leny = notrans ? m : n;
    int sx = lenx ? 1 + (lenx - 1) * abs(incx) : 0, sy = leny ? 1 + (leny - 1) * abs(incy) : 0;
    const int guard = 5;
    auto place = [&](std::vector<unsigned char>& buf, size_t count) {
        buf.assign((count + 2 * guard) * sizeof(T) + 128, 0);
        return (T*)(((uintptr_t)buf.data() + 63) / 64 * 64 + off);
    };
    std::vector<unsigned char> ab, xb, yb;
    T* a = place(ab, (size_t)lda * (n ? n : 1));
    T* xg = place(xb, sx);
    T* yg = place(yb, sy);
    for (long i = 0; i < (long)lda * (n ? n : 1); ++i) a[i] = value<T>();
    for (int i = 0; i < sx + 2 * guard; ++i) xg[i] = value<T>();
    for (int i = 0; i < sy + 2 * guard; ++i) yg[i] = value<T>();
    if (nan_y)
        for (int i = 0; i < sy; ++i) yg[guard + i] = make<T>(NAN, NAN);
    std::vector<T> a0(a, a + (size_t)lda * (n ? n : 1)), x0(xg, xg + sx + 2 * guard),
        y0(yg, yg + sy + 2 * guard);
    T* x = xg + guard;
    T* y = yg + guard;

    zva_export<gemv_fn<T>>(routine<T>("GEMV").c_str())(trans, 1, &m, &n, &alpha, a, &lda, x, &incx, &beta, y, &incy);

    ASSERT_EQ(0, memcmp(a, a0.data(), a0.size() * sizeof(T))) << "A changed";
    ASSERT_EQ(0, memcmp(xg, x0.data(), x0.size() * sizeof(T))) << "x changed";
    std::vector<bool> touched(sy + 2 * guard, false);
    bool quick = m == 0 || n == 0;
    lc al = to_lc(alpha), be = to_lc(beta);
    bool alpha0 = al.re == 0 && al.im == 0, beta1 = be.re == 1 && be.im == 0,
         beta0 = be.re == 0 && be.im == 0;
    if (!quick && !(alpha0 && beta1)) {
        long long kx = incx > 0 ? 0 : (long long)(1 - lenx) * incx;
        long long ky = incy > 0 ? 0 : (long long)(1 - leny) * incy;
        for (int i = 0; i < leny; ++i) {
            lc sum = {0, 0};
            long double bound = 0;
            for (int j = 0; j < lenx; ++j) {
                T aij = notrans ? a0[(size_t)j * lda + i] : a0[(size_t)i * lda + j];
                lc av = to_lc(aij);
                if (conj) av.im = -av.im;
                lc p = mul(av, to_lc(x0[guard + kx + (long long)j * incx]));
                sum.re += p.re, sum.im += p.im;
                bound += mag(av) * mag(to_lc(x0[guard + kx + (long long)j * incx]));
            }
            long long iy = guard + ky + (long long)i * incy;
            lc yv = beta0 ? lc{0, 0} : mul(be, to_lc(y0[iy]));
            lc as = alpha0 ? lc{0, 0} : mul(al, sum);
            lc want = {yv.re + as.re, yv.im + as.im};
            long double tol = (lenx + 4) * 4 * (long double)std::numeric_limits<R>::epsilon() *
                              (mag(al) * bound + (beta0 ? 0 : mag(be) * mag(to_lc(y0[iy]))) + 1e-30L);
            lc got = to_lc(y[iy - guard]);
            touched[iy] = true;
            if (isnan((double)want.re) || isnan((double)want.im)) {
                ASSERT_TRUE(isnan((double)got.re) || isnan((double)got.im))
                    << trans << " m=" << m << " n=" << n << " row " << i;
                continue;
            }
            ASSERT_LE(fabsl(got.re - want.re) + fabsl(got.im - want.im), tol)
                << routine<T>("GEMV") << " " << trans << " m=" << m << " n=" << n << " incx=" << incx
                << " incy=" << incy << " off=" << off << " element " << i;
        }
    }
    for (int i = 0; i < sy + 2 * guard; ++i) {
        if (!touched[i]) {
            ASSERT_TRUE(same_bits(yg[i], y0[i])) << "y element " << i - guard << " changed";
        }
    }
}

const int dims[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 33, 65};
const int incs[][2] = {{1, 1}, {-1, 2}, {3, -2}};

template <class T> void sweep() {
    const char* letters[] = {"N", "T", "C", "n", "t", "c"};
    T alphas[] = {make<T>(1, 0), make<T>(-0.75, 0.5)};
    T betas[] = {make<T>(0.5, -0.25), make<T>(0, 0), make<T>(1, 0)};
    for (const char* tr : letters)
        for (int m : dims)
            for (int n : dims)
                for (auto& inc : incs) {
                    bool unit = inc[0] == 1;
                    for (T al : alphas)
                        for (T be : betas)
                            check<T>(tr, m, n, al, be, inc[0], inc[1], unit ? 0 : 3, unit ? 4 : 0);
                }
    // Odd leading dimensions and element-misaligned operands.
    for (const char* tr : {"N", "T", "C"})
        for (int m : {31, 64, 100})
            for (int n : {3, 33, 67})
                for (int off : {0, 4, 8, 12})
                    check<T>(tr, m, n, make<T>(0.5, 1), make<T>(2, 0), 1, 1, 1 + off / 4, off);
}

}  // namespace

TEST(Gemv, Single) { sweep<float>(); }
TEST(Gemv, Double) { sweep<double>(); }
TEST(Gemv, SingleComplex) { sweep<cfloat>(); }
TEST(Gemv, DoubleComplex) { sweep<cdouble>(); }

// alpha = 0 and beta = 0 write zeros without reading A, x or y; beta = 0
// drops NaN from y; m or n of 0 leaves y alone even with beta != 1.
TEST(Gemv, ScalingEdges) {
    auto f = zva_export<gemv_fn<double>>("DGEMV");
    int m = 20, n = 7, lda = 20, one = 1, zero_n = 0;
    std::vector<double> a(140, NAN), x(20, NAN), y(20, NAN);
    double zero = 0, two = 2, onev = 1;
    f("N", 1, &m, &n, &zero, a.data(), &lda, x.data(), &one, &zero, y.data(), &one);
    for (double v : y) EXPECT_EQ(v, 0.0);
    for (int i = 0; i < 20; ++i) y[i] = i;
    f("T", 1, &m, &n, &zero, a.data(), &lda, x.data(), &one, &two, y.data(), &one);
    for (int i = 0; i < 7; ++i) EXPECT_EQ(y[i], 2.0 * i);
    for (int i = 7; i < 20; ++i) EXPECT_EQ(y[i], (double)i);
    f("N", 1, &m, &zero_n, &onev, a.data(), &lda, x.data(), &one, &two, y.data(), &one);
    for (int i = 7; i < 20; ++i) EXPECT_EQ(y[i], (double)i);
    f("N", 1, &m, &n, &zero, a.data(), &lda, x.data(), &one, &onev, y.data(), &one);
    for (int i = 7; i < 20; ++i) EXPECT_EQ(y[i], (double)i);
    // beta = 0 with NaN in y: the NaN is gone before the product is added.
    std::vector<double> a1(140, 1.0), x1(20, 1.0);
    for (double& v : y) v = NAN;
    f("N", 1, &m, &n, &onev, a1.data(), &lda, x1.data(), &one, &zero, y.data(), &one);
    for (double v : y) EXPECT_EQ(v, 7.0);
    // A NaN alpha with beta = 1 turns y into NaN where A is read.
    double nan = NAN;
    f("N", 1, &m, &n, &nan, a1.data(), &lda, x1.data(), &one, &onev, y.data(), &one);
    for (double v : y) EXPECT_TRUE(isnan(v));
    for (int off : {0, 1}) check<float>("N", 40, 300, 1.0f, 0.0f, 1, 1, 0, 4 * off, true);
    check<cdouble>("C", 13, 9, make<cdouble>(1, 1), make<cdouble>(0, 0), -1, 1, 2, 0, true);
}

// Run with ZVA_DYNAMIC=FALSE: the OpenMP count then goes unchanged to the
// driver, which cuts y among the threads on branches 4, 5 and 6.
TEST(GemvThreads, SlicesAgreeWithTheReference) {
    for (int threads : {1, 2, 3}) {
        omp_set_num_threads(threads);
        for (const char* tr : {"N", "T", "C"})
            for (auto& inc : incs) {
                check<double>(tr, 300, 257, 0.5, -1.5, inc[0], inc[1], 1, 0);
                check<float>(tr, 517, 300, 2.0f, 0.0f, inc[0], inc[1], 0, 4);
                check<cfloat>(tr, 301, 260, make<cfloat>(1, -1), make<cfloat>(0.5, 0), inc[0], inc[1], 3, 0);
                check<cdouble>(tr, 200, 190, make<cdouble>(0, 1), make<cdouble>(1, 0), inc[0], inc[1], 0, 8);
            }
    }
}
