// I?AMAX and I?AMIN in the four types through the exports, on the branch
// this run was forced to.  Without NaNs the answer is the published one:
// the first position of the largest (smallest) |x|, or |re| + |im| for
// complex elements, added in the element's precision.  With NaNs the
// position depends on the lanes a branch uses, so a model of the lane rules,
// fed with each branch's lane widths and alignment, gives the exact answer.
#include <math.h>

#include <vector>

#include "zva.h"

namespace {

template <class T> using iamax_fn = int(ZVA_STDCALL*)(const int*, const T*, const int*);

template <class T> typename elem<T>::R measure(T v) {
    if constexpr (elem<T>::cplx) return fabs(v.re) + fabs(v.im);  // rounded to R
    else return fabs(v);
}

// The published definition: the first position of the extreme measure.
template <class T> int published(int n, const T* x, int inc, bool min) {
    if (n < 1 || inc < 1) return 0;
    int idx = 1;
    auto best = measure(x[0]);
    for (int i = 1; i < n; ++i) {
        auto v = measure(x[(long)i * inc]);
        if (min ? v < best : v > best) best = v, idx = i + 1;
    }
    return idx;
}

// Lane widths of a branch: unit path u1 (then u2 once), with x + 1 peeled
// to `align` bytes; other increments g1 (then g2 once).  align 0: singles.
struct layout {
    int align, u1, u2, g1, g2;
};
template <class T> layout layout_of(int branch) {
    const char t = elem<T>::letter;
    if (branch == 7)
        return t == 'S' ? layout{32, 8, 4, 8, 0} : t == 'D' ? layout{32, 4, 2, 4, 0}
             : t == 'C' ? layout{32, 8, 4, 8, 4} : layout{32, 4, 2, 4, 0};
    if (branch == 6) return {32, 4, 0, 4, 0};
    return t == 'S' ? layout{16, 4, 0, 4, 0} : t == 'Z' ? layout{0, 0, 0, 0, 0} : layout{16, 2, 0, 2, 0};
}

// The rules of singles and lanes, on the measures of the logical elements.
template <class T> int modelled(int n, const T* x, int inc, bool min, layout lay) {
    using R = typename elem<T>::R;
    if (n < 1 || inc < 1) return 0;
    if (n == 1) return 1;
    std::vector<R> me(n);
    for (int i = 0; i < n; ++i) me[i] = measure(x[(long)i * inc]);
    R best = me[0];
    int idx = 1, pos = 2;  // pos: one-based position of the next element
    auto singles = [&](int count) {
        for (; count > 0; --count, ++pos) {
            R v = me[pos - 1];
            if (min ? !(v >= best) : !(best >= v)) best = v, idx = pos;
        }
    };
    auto lanes = [&](int w, int groups) {
        std::vector<R> val(w, best);
        std::vector<int> at(w, idx);
        for (int g = 0; g < groups; ++g)
            for (int l = 0; l < w; ++l, ++pos) {
                R v = me[pos - 1];
                bool keep = min ? v >= val[l] : v <= val[l];
                val[l] = min ? (v < val[l] ? v : val[l]) : (v > val[l] ? v : val[l]);
                if (!keep) at[l] = pos;
            }
        R m = val[0];
        for (R v : val) m = min ? fmin(m, v) : fmax(m, v);
        best = m;
        if (isnan(m)) return;
        idx = 0x7FFFFFFF;
        for (int l = 0; l < w; ++l)
            if (val[l] == m && at[l] < idx) idx = at[l];
    };
    const int m = n - 1;
    if (inc == 1 && lay.u1 && m >= lay.u1) {
        const unsigned r = (unsigned)(uintptr_t)(x + 1) % lay.align;
        const int peel = r == 0 ? 0 : r % sizeof(T) ? -1 : (int)((lay.align - r) / sizeof(T));
        if (peel >= 0 && m >= peel + lay.u1) {
            singles(peel);
            lanes(lay.u1, (n - pos + 1) / lay.u1);
            if (lay.u2 && n - pos + 1 >= lay.u2) lanes(lay.u2, 1);
        }
    } else if (inc != 1) {
        if (lay.g1 && m >= lay.g1) lanes(lay.g1, m / lay.g1);
        if (lay.g2 && n - pos + 1 >= lay.g2) lanes(lay.g2, 1);
    }
    singles(n - pos + 1);
    return idx;
}

// A vector of n elements, inc apart, starting `off` bytes past a 64-byte
// boundary, with marked values between and around.
template <class T> struct operand {
    std::vector<unsigned char> buf;
    T* x;
    size_t len;
    operand(int n, int inc, int off) {
        len = (n > 0 ? (size_t)(n - 1) * inc + 1 : 0) + 8;
        buf.resize(len * sizeof(T) + 128);
        x = (T*)(((uintptr_t)buf.data() + 63) / 64 * 64 + off);
        for (size_t i = 0; i < len; ++i) x[i] = make<T>(1e30, -1e30);
    }
    T& operator[](long i) { return x[i]; }
};

int branch() { return test_branch() ? test_branch() : 7; }

// One call of both routines, checked against the model and, where asked,
// against the published definition; x must keep its bits.
template <class T> void check(operand<T>& v, int n, int inc, bool published_too, const char* what) {
    for (bool min : {false, true}) {
        const std::string name = routine<T>(min ? "AMIN" : "AMAX").insert(0, "I");
        std::vector<unsigned char> before(v.buf);
        const int got = zva_export<iamax_fn<T>>(name.c_str())(&n, v.x, &inc);
        ASSERT_EQ(before, v.buf) << name << " wrote to x";
        const int want = modelled(n, v.x, inc, min, layout_of<T>(branch()));
        ASSERT_EQ(got, want) << name << " " << what << " n=" << n << " inc=" << inc
                             << " at " << ((uintptr_t)v.x & 63);
        if (published_too) {
            ASSERT_EQ(got, published(n, v.x, inc, min)) << name << " " << what;
        }
    }
}

// Sizes around the lane widths and peels, and a few long ones.
std::vector<int> sizes() {
    std::vector<int> s;
    for (int n = 1; n <= 42; ++n) s.push_back(n);
    for (int n : {63, 64, 65, 127, 128, 129, 1001}) s.push_back(n);
    return s;
}

template <class T> class Iamax : public ::testing::Test {};
using Types = ::testing::Types<float, double, cfloat, cdouble>;
TYPED_TEST_SUITE(Iamax, Types);

TYPED_TEST(Iamax, EmptyZeroAndNegativeIncrementsReadNothing) {
    using T = TypeParam;
    for (bool min : {false, true}) {
        auto f = zva_export<iamax_fn<T>>(routine<T>(min ? "AMIN" : "AMAX").insert(0, "I").c_str());
        for (int n : {-3, 0, 1, 2, 7, 100})
            for (int inc : {0, -1, -3}) EXPECT_EQ(f(&n, nullptr, &inc), 0) << n << " " << inc;
        for (int n : {0, -1}) {
            int inc = 1;
            EXPECT_EQ(f(&n, nullptr, &inc), 0);
        }
        for (int inc : {1, 5}) {
            int n = 1;
            EXPECT_EQ(f(&n, nullptr, &inc), 1);  // n = 1 needs no element
        }
    }
}

TYPED_TEST(Iamax, RandomValuesEveryLengthStrideAndStart) {
    using T = TypeParam;
    lcg g{7};
    for (int inc : {1, 2, 3})
        for (int off = 0; off < 32; off += 4)
            for (int n : sizes()) {
                if (inc > 1 && off % 8) continue;  // gathers do not look at alignment
                operand<T> v(n, inc, off);
                for (int i = 0; i < n; ++i) v[(long)i * inc] = g.value<T>();
                check(v, n, inc, true, "random");
            }
}

TYPED_TEST(Iamax, TiesGoToTheFirstPosition) {
    using T = TypeParam;
    lcg g{11};
    for (int inc : {1, 2})
        for (int off = 0; off < 32; off += 8)
            for (int n : sizes()) {
                operand<T> v(n, inc, off);
                for (int i = 0; i < n; ++i) v[(long)i * inc] = make<T>(-0.25, 0.5);
                check(v, n, inc, true, "all equal");
                EXPECT_EQ(published(n, v.x, inc, false), 1);
                // Two equal extremes, and two equal smallest, anywhere.
                for (int i = 0; i < n; ++i) v[(long)i * inc] = make<T>(g.next() * 0.5, 0.125);
                const int a = (int)((g.next() + 0.5) * n), b = (int)((g.next() + 0.5) * n);
                v[(long)a * inc] = make<T>(4, -1);
                v[(long)b * inc] = make<T>(-4, 1);
                const int c = (int)((g.next() + 0.5) * n), d = (int)((g.next() + 0.5) * n);
                if (c != a && c != b && d != a && d != b) {
                    v[(long)c * inc] = make<T>(0, 0);
                    v[(long)d * inc] = make<T>(-0.0, -0.0);
                }
                check(v, n, inc, true, "two extremes");
            }
}

// Infinities are ordinary values; NaNs follow the rules of singles and
// lanes, so only the model knows the exact answer.
TYPED_TEST(Iamax, NaNAndInfinityFirstLastAndBetween) {
    using T = TypeParam;
    using R = typename elem<T>::R;
    const R nan = NAN, inf = INFINITY;
    const T specials[] = {make<T>(nan, 0), make<T>(inf, 1), make<T>(-inf, 0), make<T>(0, nan),
                          make<T>(0, -inf)};
    lcg g{5};
    for (int inc : {1, 3})
        for (int off = 0; off < 32; off += 8)
            for (int n : sizes())
                for (const T& sp : specials) {
                    if (!elem<T>::cplx && (&sp == &specials[3] || &sp == &specials[4])) continue;
                    const bool is_nan = isnan(measure(sp));
                    long places[] = {0, n - 1, n / 2, (long)((g.next() + 0.5) * n)};
                    for (long at : places) {
                        operand<T> v(n, inc, off);
                        for (int i = 0; i < n; ++i) v[(long)i * inc] = g.value<T>();
                        v[at * inc] = sp;
                        check(v, n, inc, !is_nan, "special");
                    }
                    // Several NaNs, and a NaN beside an infinity.
                    operand<T> v(n, inc, off);
                    for (int i = 0; i < n; ++i)
                        v[(long)i * inc] = g.next() < -0.3 ? sp : g.value<T>();
                    v[(long)((g.next() + 0.5) * n) * inc] = make<T>(nan, 0);
                    check(v, n, inc, false, "mixed");
                }
}

TEST(IamaxExamples, MeasuresAndNaNs) {
    int two = 2, one = 1;
    const cfloat c[] = {{3, 4}, {6, 0}};  // 7 against 6, though the moduli are 5 and 6
    EXPECT_EQ(zva_export<iamax_fn<cfloat>>("ICAMAX")(&two, c, &one), 1);
    EXPECT_EQ(zva_export<iamax_fn<cfloat>>("ICAMIN")(&two, c, &one), 2);
    const double d[] = {-5, 4};
    EXPECT_EQ(zva_export<iamax_fn<double>>("IDAMAX")(&two, d, &one), 1);
    EXPECT_EQ(zva_export<iamax_fn<double>>("IDAMIN")(&two, d, &one), 2);
    const double nan_second[] = {7, NAN}, nan_first[] = {NAN, 1e-300};
    EXPECT_EQ(zva_export<iamax_fn<double>>("IDAMAX")(&two, nan_second, &one), 2);
    EXPECT_EQ(zva_export<iamax_fn<double>>("IDAMAX")(&two, nan_first, &one), 2);
    EXPECT_EQ(zva_export<iamax_fn<double>>("IDAMIN")(&two, nan_first, &one), 2);
}

}  // namespace
