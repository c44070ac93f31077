// The DOT family through the exports. SDOT, DDOT and CDOTC are held bit for
// bit to a model of each branch's accumulator layout (which lanes take which
// products, what meets the scalar sum and when, the order of the reduction)
// and of the in-order sum of the thread partials; the other complex dots and
// the mixed-precision dots to a rounding bound around a long double
// reference, or exactly where the double sum must differ from a single one.
#include <omp.h>

#include <vector>

#include "zva.h"

namespace {

template <class R> struct api {
    typedef R(ZVA_STDCALL* dot)(const int*, const R*, const int*, const R*, const int*);
};
template <class C> struct capi {
    typedef C*(ZVA_STDCALL* dot)(C*, const int*, const C*, const int*, const C*, const int*);
};
typedef float(ZVA_STDCALL* sdsdot_fn)(const int*, const float*, const float*, const int*,
                                      const float*, const int*);
typedef double(ZVA_STDCALL* dsdot_fn)(const int*, const float*, const int*, const float*,
                                      const int*);

int branch() { return test_branch(); }
unsigned low(const void* p) { return (unsigned)(uintptr_t)p; }
int peel32(const void* p, unsigned e) {  // elements to a 32-byte boundary, -1: never
    unsigned r = low(p) & 31;
    return r == 0 ? 0 : r % e ? -1 : (int)((32 - r) / e);
}

// ---- the layout model ------------------------------------------------------------
// Lanes are real numbers (a complex accumulator is pairs of lanes). run()
// adds the products pr(k) of elements (lanes) k while at least `block`
// remain: within a block, lane group g goes to accumulator g mod na, each
// group W lanes wide.
template <class R> struct acc {
    R a[4][8] = {};
    template <class P> void run(int na, int w, int block, int n, int& i, P pr) {
        for (; n - i >= block; i += block)
            for (int g = 0; g < block / w; ++g)
                for (int l = 0; l < w; ++l) a[g % na][l] = a[g % na][l] + pr(i + g * w + l);
    }
    // (a0 + a1) + (a2 + a3), then upper half onto lower down to `keep` lanes.
    void reduce(int na, int w, int keep, R* out) const {
        R b[8];
        for (int l = 0; l < w; ++l)
            b[l] = na == 4 ? (a[0][l] + a[1][l]) + (a[2][l] + a[3][l])
                 : na == 2 ? a[0][l] + a[1][l] : a[0][l];
        for (; w > keep; w /= 2)
            for (int l = 0; l < w / 2; ++l) b[l] = b[l] + b[l + w / 2];
        for (int l = 0; l < keep; ++l) out[l] = b[l];
    }
    R reduce(int na, int w) const {
        R r;
        reduce(na, w, 1, &r);
        return r;
    }
};

template <class R> const R* first(const R* p, int n, int inc) {
    return inc >= 0 ? p : p + (ptrdiff_t)(1 - n) * inc;
}

// The kernel of a branch for SDOT and DDOT, as a layout.
template <class R> R real_model(int br, int n, const R* x, int incx, const R* y, int incy) {
    if (n <= 0) return 0;
    const bool dbl = sizeof(R) == 8;
    const unsigned ex = sizeof(R);
    R s = 0;
    int i = 0;
    acc<R> A;
    auto unit_pr = [&](int k) { return x[k] * y[k]; };
    const R* xs = first(x, n, incx);
    const R* ys = first(y, n, incy);
    auto gen_pr = [&](int k) { return xs[(ptrdiff_t)k * incx] * ys[(ptrdiff_t)k * incy]; };
    auto singles = [&](auto pr) { for (; i < n; ++i) s = s + pr(i); };
    if (br >= 6) {
        const int na = dbl || br == 7 ? 4 : 2, w = dbl ? 4 : 8, pass = na * w;
        auto passes = [&](auto pr) {
            A.a[0][0] = s;
            A.run(na, w, pass, n, i, pr);
            s = A.reduce(na, w);
            if (br == 7 && n - i >= w) {
                acc<R> B;
                B.a[0][0] = s;
                B.run(1, w, w, n, i, pr);
                s = B.reduce(1, w);
            }
        };
        if (incx == 1 && incy == 1) {
            int p = n < pass ? -1 : peel32(y, ex);
            if (p >= 0 && n >= p + pass) {
                for (; i < p; ++i) s = s + unit_pr(i);
                passes(unit_pr);
            }
            singles(unit_pr);
        } else {
            if (n >= pass && (!dbl || (incx && incy))) passes(gen_pr);
            singles(gen_pr);
        }
        return s;
    }
    if (br >= 4) {
        if (incx == 1 && incy == 1 && !(low(x) % ex) && !(low(y) % ex)) {
            int p = (int)((16 - (low(y) & 15)) & 15) / (int)ex;
            for (; i < p && i < n; ++i) s = s + unit_pr(i);
            const bool in = !(low(x + i) & 15);
            const int w = 16 / ex;
            A.run(4, w, 16 * w, n, i, unit_pr);
            A.run(in ? 1 : 2, w, in ? w : 2 * w, n, i, unit_pr);
            singles(unit_pr);
            return s + A.reduce(4, w);
        }
        if (dbl && incx && incy) A.run(4, 2, 8, n, i, gen_pr);
        singles(gen_pr);
        return dbl ? s + A.reduce(4, 2) : s;
    }
    const unsigned px = low(x) & 15, py = low(y) & 15;
    if (dbl) {  // branches 2 and 3
        if ((unsigned)incx * (unsigned)incy == 1u && px == py && px % 8 == 0) {
            if (px == 8) A.a[0][0] = A.a[0][0] + unit_pr(i++);
            A.run(4, 2, 16, n, i, unit_pr);
            A.run(4, 2, 8, n, i, unit_pr);
            A.run(2, 2, 4, n, i, unit_pr);
            A.run(1, 2, 2, n, i, unit_pr);
            A.run(1, 1, 1, n, i, unit_pr);
            return A.reduce(4, 2);
        }
        singles(gen_pr);
        return s;
    }
    if (br == 3) {
        if ((unsigned)incx * (unsigned)incy == 1u && px == py && px % 4 == 0) {
            for (int p = (int)((16 - px) & 15) / 4; p > 0 && i < n; --p) A.a[0][0] = A.a[0][0] + unit_pr(i++);
            A.run(4, 4, 32, n, i, unit_pr);
            A.run(4, 4, 16, n, i, unit_pr);
            A.run(2, 4, 8, n, i, unit_pr);
            A.run(1, 4, 4, n, i, unit_pr);
            A.run(1, 1, 1, n, i, unit_pr);
            return A.reduce(4, 4);
        }
        singles(gen_pr);
        return s;
    }
    // branch 2
    if (incx == incy && (incx == 1 || incx == -1) && px % 4 == 0 && py % 4 == 0) {
        int p = (int)((16 - py) & 15) / 4;
        for (; i < p && i < n; ++i) A.a[0][i] = A.a[0][i] + unit_pr(i);
        A.run(2, 4, px == py ? 16 : 32, n, i, unit_pr);
        s = A.reduce(2, 4);
        singles(unit_pr);
        return s;
    }
    long double a[5] = {0, 0, 0, 0, 0};
    for (; n - i >= 5; i += 5)
        for (int k = 0; k < 5; ++k) a[k] += (long double)xs[(ptrdiff_t)(i + k) * incx] * ys[(ptrdiff_t)(i + k) * incy];
    long double t = (((a[0] + a[1]) + a[2]) + a[3]) + a[4];
    for (; i < n; ++i) t += (long double)xs[(ptrdiff_t)i * incx] * ys[(ptrdiff_t)i * incy];
    return (R)t;
}

// CDOTC of a branch, as a layout over real lanes (lane 2k is the real part
// of element k).
cfloat cdotc_model(int br, int n, const cfloat* x, int incx, const cfloat* y, int incy) {
    if (n <= 0) return {0, 0};
    auto prod = [&](const cfloat& a, const cfloat& b) -> cfloat {
        const float xr = a.re, xi = -a.im;  // conjugated first
        const float t0 = xi * b.im, t1 = xi * b.re;
        if (br == 7) return {fmaf(xr, b.re, -t0), fmaf(xr, b.im, t1)};
        return {xr * b.re - t0, xr * b.im + t1};
    };
    const cfloat* xs = first(x, n, incx);
    const cfloat* ys = first(y, n, incy);
    const bool unit = incx == 1 && incy == 1;
    const cfloat* px = unit ? x : xs;
    const cfloat* py = unit ? y : ys;
    const int sx = unit ? 1 : incx, sy = unit ? 1 : incy;
    auto el = [&](int k) { return prod(px[(ptrdiff_t)k * sx], py[(ptrdiff_t)k * sy]); };
    auto lane = [&](int r) { cfloat p = el(r / 2); return r % 2 ? p.im : p.re; };
    const int N = 2 * n;
    float s[2] = {0, 0};
    int i = 0;
    acc<float> A;
    auto singles = [&] {
        for (; i < N; i += 2) {
            cfloat p = el(i / 2);
            s[0] = s[0] + p.re, s[1] = s[1] + p.im;
        }
    };
    if (br >= 6) {
        auto passes = [&](bool tail) {
            A.a[0][0] = s[0], A.a[0][1] = s[1];
            A.run(2, 8, 16, N, i, lane);
            A.reduce(2, 8, 2, s);
            if (br == 7 && tail && N - i >= 8) {
                acc<float> B;
                B.a[0][0] = s[0], B.a[0][1] = s[1];
                B.run(1, 8, 8, N, i, lane);
                B.reduce(1, 8, 2, s);
            }
        };
        if (unit) {
            int p = n < 8 ? -1 : peel32(y, 8);
            if (p >= 0 && n >= p + 8) {
                while (i < 2 * p) { cfloat q = el(i / 2); s[0] = s[0] + q.re, s[1] = s[1] + q.im; i += 2; }
                passes(true);
            }
        } else if (incx && incy && n >= 8) {
            passes(false);
        }
        singles();
        return {s[0], s[1]};
    }
    if (br == 3) {
        if (unit) {
            A.run(4, 4, 32, N, i, lane);
            A.run(1, 4, 4, N, i, lane);
        }
        A.run(1, 2, 2, N, i, lane);
        A.reduce(4, 4, 2, s);
        return {s[0], s[1]};
    }
    // Branches 2, 4, 5: straight products in P, crossed in Q.
    const bool vec = br == 2 ? incx == incy && (incx == 1 || incx == -1) : unit;
    if (!vec) {
        if (br == 2) {
            long double re = 0, im = 0;
            for (int k = 0; k < n; ++k) {
                const cfloat a = xs[(ptrdiff_t)k * incx], b = ys[(ptrdiff_t)k * incy];
                re = re + ((long double)a.re * b.re + (long double)a.im * b.im);
                im = im + ((long double)a.re * b.im - (long double)a.im * b.re);
            }
            return {(float)re, (float)im};
        }
        float re = 0, im = 0;
        for (int k = 0; k < n; ++k) {
            const cfloat a = xs[(ptrdiff_t)k * incx], b = ys[(ptrdiff_t)k * incy];
            re = re + (a.re * b.re + a.im * b.im);
            im = im + (a.re * b.im - a.im * b.re);
        }
        return {re, im};
    }
    const float* xf = &x->re;
    const float* yf = &y->re;
    auto pl = [&](int r) { return xf[r] * yf[r]; };
    auto ql = [&](int r) { return xf[r] * yf[r ^ 1]; };
    acc<float> P, Q;
    int j = 0;
    const int na = br == 2 ? 1 : 2;
    P.run(na, 4, br == 2 ? 32 : 64, N, i, pl);
    Q.run(na, 4, br == 2 ? 32 : 64, N, j, ql);
    P.run(1, 4, 4, N, i, pl);
    Q.run(1, 4, 4, N, j, ql);
    if (br != 2) {
        P.run(1, 2, 2, N, i, pl);
        Q.run(1, 2, 2, N, j, ql);
    }
    float pv[2], qv[2];
    P.reduce(na, 4, 2, pv);
    Q.reduce(na, 4, 2, qv);
    cfloat r = {pv[0] + pv[1], qv[0] - qv[1]};
    if (br != 2 || i == N) return r;
    const cfloat a = x[n - 1], b = y[n - 1];
    long double re = (long double)r.re + ((long double)a.re * b.re + (long double)a.im * b.im);
    long double im = (long double)r.im + ((long double)a.re * b.im - (long double)a.im * b.re);
    return {(float)re, (float)im};
}

// ---- operands placed at any byte offset ---------------------------------------------

// A vector of n elements with increment inc, its first element `shift` bytes
// past a 32-byte boundary, surrounded and interleaved by marked values.
template <class T> struct vec {
    std::vector<unsigned char> raw;
    T* p;
    vec(int n, int inc, unsigned shift, uint32_t seed) {
        const size_t len = (size_t)(n > 0 ? (n - 1) * (size_t)(inc < 0 ? -inc : inc) + 1 : 1);
        raw.assign(len * sizeof(T) + 64 + shift, 0xA5);
        uintptr_t b = ((uintptr_t)raw.data() + 31) & ~(uintptr_t)31;
        p = (T*)(b + shift);
        lcg g{seed};
        for (size_t k = 0; k < len; ++k) {
            T v = g.value<T>();
            memcpy((unsigned char*)p + k * sizeof(T), &v, sizeof v);
        }
    }
};

const int sizes[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 19, 20, 31, 32, 33, 35, 36, 40,
                     47, 63, 64, 65, 67, 68, 72, 100, 131};
const int incs[][2] = {{1, 1}, {-1, -1}, {2, 2}, {2, -3}, {-3, 1}, {0, 1}, {1, 0}, {0, 0}};

template <class R> void real_bits(const char* name) {
    auto f = zva_export<typename api<R>::dot>(name);
    const unsigned e = sizeof(R);
    const unsigned shifts[] = {0, e, 2 * e, 3 * e, 4};
    for (int n : sizes)
        for (auto& inc : incs)
            for (unsigned sx : shifts)
                for (unsigned sy : shifts) {
                    if ((sx == 4 || sy == 4) && e == 4) continue;
                    vec<R> x(n, inc[0], sx, 11 + n), y(n, inc[1], sy, 7 * n + 3);
                    const R got = f(&n, x.p, &inc[0], y.p, &inc[1]);
                    const R want = real_model<R>(branch(), n, x.p, inc[0], y.p, inc[1]);
                    ASSERT_TRUE(same_bits(got, want)) << name << " n=" << n << " inc " << inc[0] << ","
                                                      << inc[1] << " shifts " << sx << "," << sy
                                                      << ": " << got << " vs " << want;
                }
}

TEST(Dot, RealLayoutsBitForBit) {
    real_bits<double>("DDOT");
    real_bits<float>("SDOT");
}

TEST(Dot, CdotcLayoutBitForBit) {
    auto f = zva_export<capi<cfloat>::dot>("CDOTC");
    for (int n : sizes)
        for (auto& inc : incs)
            for (unsigned sx : {0u, 8u, 16u, 24u, 4u})
                for (unsigned sy : {0u, 8u, 24u, 4u}) {
                    vec<cfloat> x(n, inc[0], sx, 5 + n), y(n, inc[1], sy, 3 * n + 1);
                    cfloat slot[3];
                    memset(slot, 0xEE, sizeof slot);
                    cfloat* r = f(&slot[1], &n, x.p, &inc[0], y.p, &inc[1]);
                    ASSERT_EQ(r, &slot[1]);
                    const cfloat want = cdotc_model(branch(), n, x.p, inc[0], y.p, inc[1]);
                    ASSERT_TRUE(same_bits(slot[1], want)) << "n=" << n << " inc " << inc[0] << ","
                                                          << inc[1] << " shifts " << sx << "," << sy;
                    uint32_t mark;
                    memset(&mark, 0xEE, 4);
                    for (int k : {0, 2}) {
                        ASSERT_EQ(memcmp(&slot[k].re, &mark, 4), 0);
                        ASSERT_EQ(memcmp(&slot[k].im, &mark, 4), 0);
                    }
                }
}

// The other complex dots: through the result slot, within a bound of the
// long double sum; n <= 0 stores (0, 0).
template <class C> void complex_bound(const char* name, bool conj) {
    using R = typename elem<C>::R;
    auto f = zva_export<typename capi<C>::dot>(name);
    const long double eps = sizeof(R) == 4 ? 0x1p-24L : 0x1p-53L;
    for (int n : {-1, 0, 1, 2, 3, 7, 8, 9, 16, 17, 18, 33, 70})
        for (auto& inc : incs)
            for (unsigned sx : {0u, (unsigned)sizeof(C), 8u})
                for (unsigned sy : {0u, (unsigned)sizeof(C) / 2}) {
                    vec<C> x(n, inc[0], sx, 9 + n), y(n, inc[1], sy, 2 * n + 5);
                    C slot[3];
                    memset(slot, 0xEE, sizeof slot);
                    ASSERT_EQ(f(&slot[1], &n, x.p, &inc[0], y.p, &inc[1]), &slot[1]);
                    lc ref{0, 0};
                    long double mags = 0;
                    const C* xs = first(x.p, n, inc[0]);
                    const C* ys = first(y.p, n, inc[1]);
                    for (int k = 0; k < n; ++k) {
                        lc a = to_lc(xs[(ptrdiff_t)k * inc[0]]), b = to_lc(ys[(ptrdiff_t)k * inc[1]]);
                        lc p = mul(conj ? ::conj(a) : a, b);
                        ref = add(ref, p);
                        mags += mag(a) * mag(b);
                    }
                    const long double tol = 4 * (n + 2) * eps * mags;
                    EXPECT_LE(fabsl(slot[1].re - ref.re), tol) << name << " n=" << n;
                    EXPECT_LE(fabsl(slot[1].im - ref.im), tol) << name << " n=" << n;
                    if (n <= 0) {
                        EXPECT_TRUE(slot[1].re == 0 && slot[1].im == 0 && !signbit(slot[1].re));
                    }
                    C mark;
                    memset(&mark, 0xEE, sizeof mark);
                    EXPECT_TRUE(same_bits(slot[0], mark) && same_bits(slot[2], mark)) << name;
                }
}

TEST(Dot, ComplexThroughTheSlot) {
    complex_bound<cfloat>("CDOTU", false);
    complex_bound<cdouble>("ZDOTC", true);
    complex_bound<cdouble>("ZDOTU", false);
    complex_bound<cfloat>("CDOTC", true);
}

// CDOTC of x with itself: a positive real part; the imaginary part is
// exactly 0 where each product is rounded before the sum (xr*xi - xi*xr),
// and on branch 7 the sum of the fused steps' rounding errors only.
TEST(Dot, CdotcOfItselfIsReal) {
    auto f = zva_export<capi<cfloat>::dot>("CDOTC");
    for (int n : {1, 5, 8, 17, 64, 99}) {
        vec<cfloat> x(n, 1, 8, 77);
        cfloat r;
        const int one = 1;
        f(&r, &n, x.p, &one, x.p, &one);
        if (branch() == 7) EXPECT_LE(fabsf(r.im), n * 0x1p-24f * r.re) << n;
        else EXPECT_EQ(r.im, 0.0f) << n;
        EXPECT_GT(r.re, 0.0f) << n;
    }
}

TEST(Dot, MixedSumsInDouble) {
    auto sds = zva_export<sdsdot_fn>("SDSDOT");
    auto ds = zva_export<dsdot_fn>("DSDOT");
    const float sb = 0.25f;
    for (int n : {-2, 0}) {
        const int one = 1;
        EXPECT_EQ(sds(&n, &sb, nullptr, &one, nullptr, &one), sb);
        EXPECT_EQ(ds(&n, nullptr, &one, nullptr, &one), 0.0);
    }
    // In single precision 2^25 + 1 - 2^25 would be 0.
    for (int n : {3, 5, 9, 19, 40}) {
        std::vector<float> x(3 * n, 0.0f), y(3 * n, 0.0f);
        x[0] = 0x1p25f, x[3 * ((n - 1) / 2)] = 1.0f, x[3 * (n - 1)] = -0x1p25f;
        for (int k = 0; k < n; ++k) y[3 * k] = 1.0f;
        for (int inc : {1, 3, -3}) {
            const int m = inc == 1 ? 3 * n - 2 : n;
            const int iy = inc == 1 ? 1 : 3;
            if (inc == 1) {  // same layout in contiguous form
                std::fill(y.begin(), y.end(), 1.0f);
            }
            EXPECT_EQ(ds(&m, x.data(), &inc, y.data(), &iy), 1.0) << n << " " << inc;
            EXPECT_EQ(sds(&m, &sb, x.data(), &inc, y.data(), &iy), 1.25f) << n << " " << inc;
        }
    }
    // n = 1 rounds sb + x*y once: in single the product would round first.
    const int one = 1;
    const float a = 1.0f + 0x1p-12f, b = 1.0f + 0x1p-12f, c = -1.0f;
    EXPECT_EQ(sds(&one, &c, &a, &one, &b, &one), (float)((double)a * b - 1.0));
    EXPECT_EQ(ds(&one, &a, &one, &b, &one), (double)a * b);
    // A bound on random operands, every increment pair.
    for (int n : {1, 7, 8, 16, 17, 33, 100})
        for (auto& inc : incs) {
            vec<float> x(n, inc[0], 4, n), y(n, inc[1], 0, n + 1);
            const float* xs = first(x.p, n, inc[0]);
            const float* ys = first(y.p, n, inc[1]);
            long double ref = 0, mags = 0;
            for (int k = 0; k < n; ++k) {
                long double p = (long double)xs[(ptrdiff_t)k * inc[0]] * ys[(ptrdiff_t)k * inc[1]];
                ref += p;
                mags += fabsl(p);
            }
            EXPECT_LE(fabsl(ds(&n, x.p, &inc[0], y.p, &inc[1]) - ref), (n + 2) * 0x1p-53L * mags);
            EXPECT_LE(fabsl(sds(&n, &sb, x.p, &inc[0], y.p, &inc[1]) - (ref + sb)),
                      0x1p-24L * fabsl(ref + sb) + (n + 2) * 0x1p-53L * (mags + sb));
        }
}

// ---- threads --------------------------------------------------------------------------

// The team that the driver forks with dynamic adjustment off: the requested
// count on the branches whose processor class forks (4, 5, 6), above the
// routine's size limit s0 and, on branch 4 (the SSSE3 class), above s1;
// one thread otherwise.
int team_of(int t, int n, int s0, int s1, int incx, int incy) {
    const int b = branch();
    const bool big = n > s0 && (b != 4 || n > s1);
    return (b >= 4 && b <= 6 && big && t > 1 && incx && incy) ? t : 1;
}

// Slice k of T: chunks of (n / T) rounded down to 8, the rest to the last.
struct slice { int count; ptrdiff_t ox, oy; };
slice slice_of(int n, int T, int k, int incx, int incy) {
    const int chunk = (n / T) & ~7;
    const int start = k * chunk;
    const int count = k < T - 1 ? chunk : (n - start > 0 ? n - start : 0);
    const int f = start < n - 1 ? start : n - 1;
    auto off = [&](int inc) {
        return inc > 0 ? (ptrdiff_t)inc * f : (ptrdiff_t)inc * f + (ptrdiff_t)inc * (count - n);
    };
    return {count, off(incx), off(incy)};
}

// Partials added in ascending thread order: the real ones in one x87 sum,
// CDOTC rounded to single after each entry.
template <class R> R real_threads_model(int T, int n, const R* x, int incx, const R* y, int incy) {
    if (T == 1) return real_model<R>(branch(), n, x, incx, y, incy);
    long double s = 0;
    for (int k = 0; k < T; ++k) {
        slice c = slice_of(n, T, k, incx, incy);
        s += real_model<R>(branch(), c.count, x + c.ox, incx, y + c.oy, incy);
    }
    return (R)s;
}

cfloat cdotc_threads_model(int T, int n, const cfloat* x, int incx, const cfloat* y, int incy) {
    if (T == 1) return cdotc_model(branch(), n, x, incx, y, incy);
    cfloat s = {0, 0};
    for (int k = 0; k < T; ++k) {
        slice c = slice_of(n, T, k, incx, incy);
        cfloat e = cdotc_model(branch(), c.count, x + c.ox, incx, y + c.oy, incy);
        s.re = s.re + e.re, s.im = s.im + e.im;
    }
    return s;
}

TEST(DotThreads, PartialsInThreadOrder) {
    auto dd = zva_export<api<double>::dot>("DDOT");
    auto sd = zva_export<api<float>::dot>("SDOT");
    auto cd = zva_export<capi<cfloat>::dot>("CDOTC");
    const int pairs[][2] = {{1, 1}, {-1, -1}, {2, -3}};
    for (int t : {1, 2, 3}) {
        omp_set_num_threads(t);
        for (int n : {2001, 2501, 3001, 5001, 6007})
            for (auto& inc : pairs)
                for (unsigned sh : {0u, 8u}) {
                    vec<double> xd(n, inc[0], sh, n), yd(n, inc[1], 0, n + 1);
                    const double d = dd(&n, xd.p, &inc[0], yd.p, &inc[1]);
                    EXPECT_TRUE(same_bits(d, real_threads_model(team_of(t, n, 2500, 0, inc[0], inc[1]), n, xd.p,
                                                                inc[0], yd.p, inc[1])))
                        << "DDOT t=" << t << " n=" << n;
                    vec<float> xs(n, inc[0], sh / 2, n), ys(n, inc[1], 4, n + 2);
                    const float s = sd(&n, xs.p, &inc[0], ys.p, &inc[1]);
                    EXPECT_TRUE(same_bits(s, real_threads_model(team_of(t, n, 5000, 0, inc[0], inc[1]), n, xs.p,
                                                                inc[0], ys.p, inc[1])))
                        << "SDOT t=" << t << " n=" << n;
                    vec<cfloat> xc(n, inc[0], sh, n), yc(n, inc[1], 8, n + 3);
                    cfloat r;
                    EXPECT_EQ(cd(&r, &n, xc.p, &inc[0], yc.p, &inc[1]), &r);
                    EXPECT_TRUE(same_bits(r, cdotc_threads_model(team_of(t, n, 2000, 3000, inc[0], inc[1]), n,
                                                                 xc.p, inc[0], yc.p, inc[1])))
                        << "CDOTC t=" << t << " n=" << n;
                }
    }
}

}  // namespace
