// NRM2 and ASUM in the four types through the exports, on the branch this
// run was forced to, against long double references with a rounding bound.
// Bit for bit where the order is fixed: the scaled norm (branch 7, and S and
// C on branch 6) walks strictly in element order, n = 1 gives |x[0]|, and
// incx = 0 adds n copies one at a time. NaN sentinels lie around and between
// the strided elements: one read by mistake turns the result into NaN.
#include <math.h>

#include <vector>

#include "zva.h"

namespace {

template <class T> using red_fn = typename elem<T>::R(ZVA_STDCALL*)(const int*, const T*, const int*);

template <class T> int branch_now() { return test_branch() ? test_branch() : 7; }
template <class T> bool scaled_norm() {
    return branch_now<T>() == 7 || (branch_now<T>() == 6 && sizeof(typename elem<T>::R) == 4);
}

// The parts of the n logical elements, walked by |incx| from x[0].
template <class T> std::vector<typename elem<T>::R> parts(const T* x, int n, int incx) {
    std::vector<typename elem<T>::R> v;
    for (int i = 0; i < n; ++i) {
        const T e = x[(long)i * abs(incx)];
        if constexpr (elem<T>::cplx) v.push_back(e.re), v.push_back(e.im);
        else v.push_back(e);
    }
    return v;
}

// The scaled method as the library fixes it, in the type's precision.
template <class R> R scaled_ref(const std::vector<R>& v, bool fused, bool real_n1) {
    if (real_n1) return fabsl(v[0]);
    R scale = 0, ssq = 1;
    for (R e : v) {
        if (e == 0) continue;
        const R a = fabsl(e);
        if (a > scale) {
            const R t = scale / a, tt = t * t;
            if (fused) ssq = sizeof(R) == 4 ? fmaf(tt, ssq, 1) : fma(tt, ssq, 1);
            else ssq = 1 + ssq * t * t;
            scale = a;
        } else {
            const R t = a / scale;
            ssq = ssq + t * t;
        }
    }
    return scale * (sizeof(R) == 4 ? sqrtf(ssq) : sqrt(ssq));
}

template <class R> bool same(R a, R b) { return (isnan(a) && isnan(b)) || memcmp(&a, &b, sizeof a) == 0; }

constexpr int guard = 3;

// x with NaN between and around the strided elements; `fill` gives the
// value of logical part k (re and im of complex element k are 2k, 2k + 1).
template <class T, class F> void run(int n, int incx, int off, F fill) {
    using R = typename elem<T>::R;
    const int nn = n > 0 ? n : 0, step = abs(incx);
    const int len = (nn ? 1 + (nn - 1) * step : 0) + 2 * guard;
    std::vector<unsigned char> raw(len * sizeof(T) + 128);
    T* buf = (T*)(((uintptr_t)raw.data() + 63) / 64 * 64 + off);
    for (int i = 0; i < len; ++i) buf[i] = make<T>(NAN, NAN);
    constexpr int P = elem<T>::cplx ? 2 : 1;
    for (int i = 0; i < nn; ++i)
        for (int p = 0; p < P; ++p) ((R*)&buf[guard + i * step])[p] = fill(P * i + p);
    const T* x = buf + guard;
    const std::vector<R> v = nn ? parts(x, nn, incx) : std::vector<R>{};
    const std::string ctx = " n=" + std::to_string(n) + " incx=" + std::to_string(incx) + " off=" + std::to_string(off);

    long double ss = 0, as = 0, big = 0;
    bool nan = false, inf = false;
    for (R e : v) big = fmaxl(big, fabsl(e)), nan |= isnan(e), inf |= isinf(e);
    for (R e : v) {
        const long double q = big > 0 && !inf ? (long double)e / big : 0;
        ss += q * q, as += fabsl(e);
    }
    const long double norm = big > 0 && !inf ? big * sqrtl(ss) : 0;
    const long double eps = sizeof(R) == 4 ? FLT_EPSILON : DBL_EPSILON;

    const char* nrm = sizeof(R) == 4 ? (elem<T>::cplx ? "SCNRM2" : "SNRM2") : (elem<T>::cplx ? "DZNRM2" : "DNRM2");
    const char* asm_ = sizeof(R) == 4 ? (elem<T>::cplx ? "SCASUM" : "SASUM") : (elem<T>::cplx ? "DZASUM" : "DASUM");
    const R got_norm = zva_export<red_fn<T>>(nrm)(&n, x, &incx);
    const R got_sum = zva_export<red_fn<T>>(asm_)(&n, x, &incx);

    if (nn == 0) {
        EXPECT_TRUE(same(got_norm, (R)0) && same(got_sum, (R)0)) << nrm << ctx;
        return;
    }
    if (nan) {
        EXPECT_TRUE(isnan(got_norm)) << nrm << ctx;
        EXPECT_TRUE(isnan(got_sum)) << asm_ << ctx;
        return;
    }
    if (inf) {
        EXPECT_EQ(got_sum, (R)INFINITY) << asm_ << ctx;
        // One infinity: the scaled walk takes it as its scale and every
        // later ratio is 0; the sums of squares overflow to infinity.
        EXPECT_EQ(got_norm, (R)INFINITY) << nrm << ctx;
        return;
    }
    if (scaled_norm<T>()) {
        EXPECT_TRUE(same(got_norm, scaled_ref(v, branch_now<T>() == 7, !elem<T>::cplx && nn == 1))) << nrm << ctx;
    }
    if (!elem<T>::cplx && nn == 1) {
        EXPECT_TRUE(same(got_norm, (R)fabsl(v[0]))) << nrm << ctx;
    }
    EXPECT_LE(fabsl(got_norm - norm), (v.size() + 4) * eps * norm) << nrm << ctx;
    EXPECT_LE(fabsl(got_sum - as), (v.size() + 2) * eps * as) << asm_ << ctx;
    if (incx == 0) {  // n copies, added one at a time (complex: re and im apart)
        R re = 0, im = 0;
        for (int i = 0; i < nn; ++i) re += fabsl(v[0]), im += elem<T>::cplx ? fabsl(v[1]) : 0;
        EXPECT_TRUE(same(got_sum, elem<T>::cplx ? re + im : re)) << asm_ << ctx;
    }
}

const int sizes[] = {-1, 0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 35, 63, 64, 65, 67, 97, 130, 259};
const int incs[] = {1, 2, -1, -3, 0};

template <class T> void sweep() {
    using R = typename elem<T>::R;
    const int e = sizeof(T);
    std::vector<int> offs = {0, e, 2 * e, 3 * e, 4};
    if (e > 4) offs.push_back(e + 4);
    // Magnitudes whose squares overflow or underflow the type, and plain ones.
    const double huge = sizeof(R) == 4 ? 1e30 : 1e200, tiny = sizeof(R) == 4 ? 1e-30 : 1e-200;
    uint32_t seed = 7;
    for (double scale : {1.0, huge, tiny})
        for (int n : sizes)
            for (int inc : incs)
                for (int off : inc == 1 ? offs : std::vector<int>{e}) {
                    lcg g{++seed};
                    std::vector<double> vals(2 * (n > 0 ? n : 0));
                    for (double& d : vals) d = g.next() * scale;
                    if (vals.size() > 5) vals[3] = 0;  // a zero leaves the scaled walk alone
                    run<T>(n, inc, off, [&](int k) { return (R)vals[k]; });
                }
    // NaN and infinity first, in the middle, last; a leading zero.
    for (int n : {1, 2, 17, 67})
        for (int inc : {1, -3})
            for (int at : {0, n / 2, n - 1}) {
                constexpr int P = elem<T>::cplx ? 2 : 1;
                for (double sp : {(double)NAN, (double)INFINITY, -(double)INFINITY, 0.0})
                    run<T>(n, inc, e, [&](int k) { return k == P * at ? (R)sp : (R)(0.25 + k); });
            }
}

}  // namespace

TEST(Norms, Single) { sweep<float>(); }
TEST(Norms, Double) { sweep<double>(); }
TEST(Norms, SingleComplex) { sweep<cfloat>(); }
TEST(Norms, DoubleComplex) { sweep<cdouble>(); }

TEST(Norms, NamedCases) {
    int n = 2, one = 1, zero = 0, n4 = 4;
    const double x34[2] = {3, 4};
    EXPECT_EQ(zva_export<red_fn<double>>("DNRM2")(&n, x34, &one), 5.0);
    const double two[1] = {2};
    EXPECT_EQ(zva_export<red_fn<double>>("DNRM2")(&n4, two, &zero), 4.0);
    EXPECT_EQ(zva_export<red_fn<double>>("DASUM")(&n4, two, &zero), 8.0);
    const double big[1] = {1e300};
    int n1 = 1;
    EXPECT_EQ(zva_export<red_fn<double>>("DNRM2")(&n1, big, &one), 1e300);
    const double b2[2] = {1e300, 1e300};
    EXPECT_TRUE(isfinite(zva_export<red_fn<double>>("DNRM2")(&n, b2, &one)));
    const float f2[2] = {1e30f, 1e30f};
    EXPECT_TRUE(isfinite(zva_export<red_fn<float>>("SNRM2")(&n, f2, &one)));
}
