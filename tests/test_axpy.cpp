// AXPY in the four types through the exports, on the branch this run was
// forced to, against a reference written from the BLAS definition.  The
// rounding of each element is fixed per branch and path, so results are
// compared bit for bit with the formulas the kernels promise.
#include <math.h>
#include <omp.h>
#include <string.h>

#include <vector>

#include "zva.h"

namespace {

template <class T> struct axpy_api {
    typedef void(ZVA_STDCALL* fn)(const int*, const T*, const T*, const int*, T*, const int*);
};

// ---- the rounding formulas --------------------------------------------------
// Every element is y := y + alpha*x in one of these forms:
//   sep     multiply rounded, then the add
//   fused   one fused multiply-add
//   x87     on the x87 unit at its precision, rounded once by the store
// Complex:
//   seq     (yr + ar*xr) - ai*xi, (yi + ar*xi) + ai*xr, every step rounded
//   addsub  yr + (ar*xr - ai*xi), yi + (ar*xi + ai*xr)
//   fmas    t = ai*swapped x; u = fma(ar, x, -/+t); y + u
//   fseq    the seq order in fused steps
enum form { sep, fused, x87, seq, addsub, fmas, fseq, x87seq };

template <class R> R sep_f(R a, R x, R y) { return y + a * x; }
template <class R> R fused_f(R a, R x, R y) { return fma(a, x, y); }
template <class R> R x87_f(R a, R x, R y) {
    return (R)((long double)y + (long double)a * (long double)x);
}

template <class C> C cform(form f, C a, C x, C y) {
    using R = decltype(a.re);
    // SSE math with contraction off: every step below rounds to R.
    R p1 = a.re * x.re, p2 = a.im * x.im, p3 = a.re * x.im, p4 = a.im * x.re;
    switch (f) {
        case seq: return {(y.re + p1) - p2, (y.im + p3) + p4};
        case addsub: return {y.re + (p1 - p2), y.im + (p3 + p4)};
        case fmas: return {y.re + (R)fma(a.re, x.re, -p2), y.im + (R)fma(a.re, x.im, p4)};
        case fseq:
            return {fma(-a.im, x.im, fma(a.re, x.re, y.re)),
                    fma(a.im, x.re, fma(a.re, x.im, y.im))};
        default: {  // x87seq
            long double re = ((long double)y.re + (long double)a.re * x.re) -
                             (long double)a.im * x.im;
            long double im = ((long double)y.im + (long double)a.re * x.im) +
                             (long double)a.im * x.re;
            return {(R)re, (R)im};
        }
    }
}

template <class T> constexpr bool is_complex = elem<T>::cplx;

// Forms a branch may use for one element.  The unit-stride path, where
// vector code meets scalar ends, is taken for incx = incy = 1, and on branch
// 2 also for incx = incy = -1.
template <class T> std::vector<form> forms(int branch, int incx, int incy) {
    bool single = sizeof(T) == 4 || (sizeof(T) == 8 && is_complex<T>);
    bool unit = incx == incy && (incx == 1 || (branch == 2 && incx == -1));
    if constexpr (!is_complex<T>) {
        if (branch == 7) return {fused};
        if (branch == 2 && single) return unit ? std::vector<form>{sep, x87} : std::vector<form>{x87};
        return {sep};
    } else {
        if (branch == 7) return (!single && !unit) ? std::vector<form>{fseq} : std::vector<form>{fmas};
        if (branch == 3 || branch == 6) return {addsub};
        if (branch == 2 && single) return unit ? std::vector<form>{seq, x87seq} : std::vector<form>{x87seq};
        return {seq};
    }
}

template <class T> T apply(form f, T a, T x, T y) {
    if constexpr (is_complex<T>) return cform(f, a, x, y);
    else return f == fused ? fused_f(a, x, y) : f == x87 ? x87_f(a, x, y) : sep_f(a, x, y);
}

template <class R> bool same(R a, R b) {
    return (isnan(a) && isnan(b)) || memcmp(&a, &b, sizeof a) == 0;
}
template <class T> bool same_el(T a, T b) {
    if constexpr (is_complex<T>) return same(a.re, b.re) && same(a.im, b.im);
    else return same(a, b);
}

// ---- inputs ---------------------------------------------------------------------
uint32_t rng = 12345;
double next_value() {
    rng = rng * 1664525u + 1013904223u;
    // Mantissas full of bits and a spread of exponents, so that a fused and
    // a separate multiply-add round differently.
    return ((double)(rng >> 8) / (1 << 24) - 0.5) * ldexp(1.0, (int)(rng % 7) - 3);
}
template <class T> T value() {
    const double re = next_value();
    return make<T>(re, is_complex<T> ? next_value() : 0);
}


constexpr int guard = 8;

// One call: x and y start `xo`/`yo` bytes past a 64-byte boundary; every
// y element off the stride and every x element must keep its bits.
template <class T> void check(int n, T alpha, int incx, int incy, int xo, int yo) {
    int branch = test_branch() ? test_branch() : 7;
    int nn = n > 0 ? n : 0;
    int lx = nn ? 1 + (nn - 1) * abs(incx) : 0, ly = nn ? 1 + (nn - 1) * abs(incy) : 0;
    std::vector<unsigned char> xb((lx + 2 * guard) * sizeof(T) + 128), yb((ly + 2 * guard) * sizeof(T) + 128);
    auto align = [](unsigned char* p, int off) {
        return (T*)(((uintptr_t)p + 63) / 64 * 64 + off);
    };
    T* xg = align(xb.data(), xo);
    T* yg = align(yb.data(), yo);
    for (int i = 0; i < lx + 2 * guard; ++i) xg[i] = value<T>();
    for (int i = 0; i < ly + 2 * guard; ++i) yg[i] = value<T>();
    std::vector<T> x0(xg, xg + lx + 2 * guard), y0(yg, yg + ly + 2 * guard);
    T* x = xg + guard;
    T* y = yg + guard;

    zva_export<typename axpy_api<T>::fn>(routine<T>("AXPY").c_str())(&n, &alpha, x, &incx, y, &incy);

    for (int i = 0; i < lx + 2 * guard; ++i)
        ASSERT_TRUE(same_el(xg[i], x0[i])) << "x changed at " << i;
    bool alpha_zero;
    if constexpr (is_complex<T>) alpha_zero = alpha.re == 0 && alpha.im == 0;
    else alpha_zero = alpha == 0;
    // Reference: logical order from the BLAS start rule; with incy = 0
    // every product lands in the same element, in order.
    auto reference = [&](form f) {
        std::vector<T> w(y0);
        long long ix = incx >= 0 ? 0 : (long long)(1 - n) * incx;
        long long iy = incy >= 0 ? 0 : (long long)(1 - n) * incy;
        if (n > 0 && !alpha_zero)
            for (int i = 0; i < n; ++i, ix += incx, iy += incy)
                w[guard + iy] = apply(f, alpha, x0[guard + ix], w[guard + iy]);
        return w;
    };
    // Where two forms are allowed (x87 ends around a vector middle), each
    // element must match one of them.
    std::vector<std::vector<T>> wants;
    for (form f : forms<T>(branch, incx, incy)) wants.push_back(reference(f));
    for (int i = 0; i < ly + 2 * guard; ++i) {
        bool ok = false;
        for (auto& w : wants) ok = ok || same_el(yg[i], w[i]);
        ASSERT_TRUE(ok) << routine<T>("AXPY") << " n=" << n << " incx=" << incx << " incy=" << incy
                        << " xo=" << xo << " yo=" << yo << " element " << i - guard;
    }
}

template <class T> std::vector<T> alphas() {
    if constexpr (is_complex<T>)
        return {make<T>(0, 0), make<T>(-0.0, 0), make<T>(0, -0.0), make<T>(1.5, 0),
                make<T>(0, 2), make<T>(1.25, -0.375), make<T>(NAN, 0), make<T>(0, NAN)};
    else
        return {make<T>(0, 0), make<T>(-0.0, 0), make<T>(1.5, 0), make<T>(-2.3125, 0),
                make<T>(0.1, 0), make<T>(NAN, 0)};
}

const int sizes[] = {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 16, 17, 18, 19, 20,
                     23, 31, 32, 33, 35, 47, 63, 64, 65, 66, 67, 95, 129, 255, 1001};

template <class T> void sweep() {
    constexpr int e = sizeof(T);
    // Unit stride at every phase of x and y against the vector width,
    // including byte offsets that break element alignment.
    std::vector<int> offs;
    for (int k = 0; k < 4; ++k) offs.push_back(k * e);
    offs.push_back(4);
    if (e > 4) offs.push_back(e + 4);
    for (T a : alphas<T>())
        for (int n : sizes)
            for (int xo : offs)
                for (int yo : offs) check<T>(n, a, 1, 1, xo, yo);
    const int incs[][2] = {{-1, -1}, {2, 3}, {-2, 1}, {1, -3}, {0, 1}, {1, 0}, {-1, 1}, {3, -2}, {0, 0}};
    for (T a : alphas<T>())
        for (int n : sizes)
            for (auto& inc : incs) check<T>(n, a, inc[0], inc[1], e, 0);
}

}  // namespace

TEST(Axpy, Single) { sweep<float>(); }
TEST(Axpy, Double) { sweep<double>(); }
TEST(Axpy, SingleComplex) { sweep<cfloat>(); }
TEST(Axpy, DoubleComplex) { sweep<cdouble>(); }

// The two reversals cancel: incx = incy = -1 pairs the same elements as
// incx = incy = 1 does.
TEST(Axpy, NegativeUnitStridesPairLikePositive) {
    int n = 37, one = 1, minus = -1;
    double a = 0.7, x[37], y1[37], y2[37];
    for (int i = 0; i < n; ++i) x[i] = next_value(), y1[i] = y2[i] = next_value();
    auto f = zva_export<axpy_api<double>::fn>("DAXPY");
    f(&n, &a, x, &one, y1, &one);
    f(&n, &a, x, &minus, y2, &minus);
    EXPECT_EQ(0, memcmp(y1, y2, sizeof y1));
}

// Above the size limits the vector is cut among threads (branches 4, 5 and
// 6 fork; run with ZVA_DYNAMIC=FALSE so that the OpenMP count is used as
// given).  Every element keeps the rounding of its branch, so one and two
// threads agree bit for bit with the reference and with each other.
TEST(AxpyThreads, SlicesKeepTheBits) {
    const int sizes[] = {2001, 2501, 4000, 4001, 4097, 6007, 15001, 20011};
    const int incs[][2] = {{1, 1}, {-1, -1}, {2, -3}, {-1, 2}};
    for (int threads : {1, 2}) {
        omp_set_num_threads(threads);
        for (int n : sizes) {
            for (auto& inc : incs) {
                check<float>(n, 0.7f, inc[0], inc[1], 4, 0);
                check<double>(n, -1.3, inc[0], inc[1], 8, 0);
                check<cfloat>(n, make<cfloat>(0.5, -1.25), inc[0], inc[1], 8, 0);
                check<cdouble>(n, make<cdouble>(-0.75, 2.5), inc[0], inc[1], 16, 0);
            }
        }
    }
}
