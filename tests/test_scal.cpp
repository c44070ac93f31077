// SCAL in its six forms through the exports, on the branch this run was
// forced to. Each element is scaled alone by one product (complex: the
// branch's product form), so results are compared bit for bit; elements off
// the stride keep their bits.
#include <math.h>

#include <vector>

#include "zva.h"

namespace {

template <class T, class A> using scal_fn = void(ZVA_STDCALL*)(const int*, const A*, T*, const int*);

template <class R> bool same(R a, R b) { return (isnan(a) && isnan(b)) || memcmp(&a, &b, sizeof a) == 0; }
template <class T> bool same_el(T a, T b) {
    if constexpr (elem<T>::cplx) return same(a.re, b.re) && same(a.im, b.im);
    else return same(a, b);
}

// alpha*x as the branch forms it. Complex alpha: branch 7 rounds ai*x_im
// (ai*x_re) and then one fused step with ar; the others round both products
// and then add.
template <class T, class A> T times(A a, T x) {
    if constexpr (!elem<T>::cplx) {
        return a * x;
    } else if constexpr (!elem<A>::cplx) {
        return {a * x.re, a * x.im};
    } else {
        using R = typename elem<T>::R;
        const R t0 = a.im * x.im, t1 = a.im * x.re;
        if (test_branch() == 7 || test_branch() == 0) {
            if constexpr (sizeof(R) == 4) return {fmaf(a.re, x.re, -t0), fmaf(a.re, x.im, t1)};
            else return {fma(a.re, x.re, -t0), fma(a.re, x.im, t1)};
        }
        return {a.re * x.re - t0, a.re * x.im + t1};
    }
}

constexpr int guard = 5;

// n elements |incx| apart in a buffer that starts `off` bytes past a 64-byte
// boundary, with marked values between and around them.
template <class T, class A> void check(const char* name, int n, A alpha, int incx, int off, uint32_t seed) {
    const int nn = n > 0 ? n : 0, step = abs(incx);
    const int len = (nn ? 1 + (nn - 1) * step : 0) + 2 * guard;
    std::vector<unsigned char> raw(len * sizeof(T) + 128);
    T* buf = (T*)(((uintptr_t)raw.data() + 63) / 64 * 64 + off);
    lcg g{seed};
    for (int i = 0; i < len; ++i) buf[i] = g.value<T>();
    // Specials at fixed logical places: an infinity, a NaN, a negative zero.
    if (nn > 3) {
        using R = typename elem<T>::R;
        const R sp[3] = {(R)INFINITY, (R)NAN, (R)-0.0};
        for (int k = 0; k < 3; ++k) buf[guard + (nn / 3 * k + 1) * step] = make<T>(sp[k], k == 0 ? -1.0 : 0.5);
    }
    std::vector<T> want(buf, buf + len);
    // incx = 0: x[0] is scaled n times, one after the other.
    for (int k = 0; k < nn; ++k) want[guard + k * step] = times(alpha, want[guard + k * step]);

    zva_export<scal_fn<T, A>>(name)(&n, &alpha, buf + guard, &incx);
    for (int i = 0; i < len; ++i)
        ASSERT_TRUE(same_el(buf[i], want[i])) << name << " n=" << n << " incx=" << incx << " off=" << off
                                             << " element " << i - guard;
}

const int sizes[] = {-2, 0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 19, 31, 32, 33, 35, 63, 64, 65, 67, 95, 130, 257};
const int incs[] = {2, -1, -3, 0};

template <class T, class A> void sweep(const char* name, std::vector<A> alphas) {
    std::vector<int> offs = {0, (int)sizeof(T), 2 * (int)sizeof(T), 3 * (int)sizeof(T), 4};
    if (sizeof(T) > 4) offs.push_back((int)sizeof(T) + 4);
    uint32_t seed = 1;
    for (A a : alphas)
        for (int n : sizes) {
            for (int off : offs) check<T>(name, n, a, 1, off, ++seed);
            for (int inc : incs) check<T>(name, n, a, inc, 8, ++seed);
        }
}

template <class R> std::vector<R> real_alphas() { return {0, 1, -1, (R)NAN, (R)1.5, (R)-0.3}; }
template <class C> std::vector<C> complex_alphas() {
    return {make<C>(0, 0), make<C>(1, 0), make<C>(-1, 0), make<C>(NAN, 0), make<C>(0, NAN), make<C>(1.25, -0.375),
            make<C>(0, 2)};
}

}  // namespace

TEST(Scal, Real) {
    sweep<float>("SSCAL", real_alphas<float>());
    sweep<double>("DSCAL", real_alphas<double>());
}
TEST(Scal, Complex) {
    sweep<cfloat>("CSCAL", complex_alphas<cfloat>());
    sweep<cdouble>("ZSCAL", complex_alphas<cdouble>());
}
TEST(Scal, RealAlphaOnComplex) {
    sweep<cfloat>("CSSCAL", real_alphas<float>());
    sweep<cdouble>("ZDSCAL", real_alphas<double>());
}

// Cases named by the library's rules for increments and alpha.
TEST(Scal, IncrementsAndZeroAlpha) {
    auto dscal = zva_export<scal_fn<double, double>>("DSCAL");
    double x[6] = {1, 2, 3, 4, 5, 6};
    int n = 3, inc = -2;
    double two = 2, zero = 0;
    dscal(&n, &two, x, &inc);  // a negative increment scales x[0], x[2], x[4]
    EXPECT_TRUE(x[0] == 2 && x[1] == 2 && x[2] == 6 && x[3] == 4 && x[4] == 10 && x[5] == 6);
    inc = 0;
    dscal(&n, &two, x, &inc);  // x[0] times 2, three times
    EXPECT_EQ(x[0], 16);
    double y[4] = {INFINITY, -1, 3, NAN};
    n = 4, inc = 1;
    dscal(&n, &zero, y, &inc);  // zero multiplies
    EXPECT_TRUE(isnan(y[0]) && y[1] == 0 && signbit(y[1]) && y[2] == 0 && !signbit(y[2]) && isnan(y[3]));
    cdouble z[2] = {{INFINITY, 1}, {1, 1}};
    n = 2;
    zva_export<scal_fn<cdouble, double>>("ZDSCAL")(&n, &zero, z, &inc);
    EXPECT_TRUE(isnan(z[0].re) && z[0].im == 0 && z[1].re == 0);
    cfloat c[3] = {{1, 2}, {3, 4}, {5, 6}};
    cfloat i2 = {0, 1};
    n = 3, inc = -1;
    zva_export<scal_fn<cfloat, cfloat>>("CSCAL")(&n, &i2, c, &inc);  // not a no-op
    EXPECT_TRUE(c[0].re == -2 && c[0].im == 1 && c[2].re == -6 && c[2].im == 5);
}
