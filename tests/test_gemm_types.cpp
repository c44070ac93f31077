// SGEMM, CGEMM and ZGEMM through their exports, on the branch of this run:
// against a long double reference everywhere, and bit for bit against a
// model of the sum order where the blocked engine of the branch fixes it.
#include <math.h>
#include <omp.h>
#include <string.h>

#include <complex>
#include <string>
#include <vector>

#include "zva.h"

namespace {

using cld = std::complex<long double>;

// What differs among the three types.
template <class T> struct kind;
template <> struct kind<float> {
    using R = float;
    static constexpr bool cplx = false;
    static constexpr const char* name = "SGEMM";
    static constexpr long double eps = 6e-8L;
    static cld ld(float x) { return cld(x, 0); }
    static float make(double re, double) { return (float)re; }
};
template <> struct kind<cfloat> {
    using R = float;
    static constexpr bool cplx = true;
    static constexpr const char* name = "CGEMM";
    static constexpr long double eps = 6e-8L;
    static cld ld(cfloat x) { return cld(x.re, x.im); }
    static cfloat make(double re, double im) { return {(float)re, (float)im}; }
};
template <> struct kind<cdouble> {
    using R = double;
    static constexpr bool cplx = true;
    static constexpr const char* name = "ZGEMM";
    static constexpr long double eps = 1.2e-16L;
    static cld ld(cdouble x) { return cld(x.re, x.im); }
    static cdouble make(double re, double im) { return {re, im}; }
};

template <class T>
using gemm_fn = void(ZVA_STDCALL*)(const char*, int, const char*, int, const int*, const int*,
                                   const int*, const T*, const T*, const int*, const T*,
                                   const int*, const T*, T*, const int*);

lcg rng{2024};
double next_value() { return rng.next(); }

bool notrans(char t) { return t == 'N' || t == 'n'; }
bool conjugated(char t) { return t == 'C' || t == 'c'; }

// Operands of one call with sentinels around C and in the unused rows of its
// leading dimension.
template <class T> struct problem {
    using K = kind<T>;
    char ta, tb;
    int m, n, k, lda, ldb, ldc;
    T alpha, beta;
    std::vector<T> av, bv, cv, c0;
    T *a, *b, *c;

    problem(char ta_, char tb_, int m_, int n_, int k_, T alpha_, T beta_, int extra = 0)
        : ta(ta_), tb(tb_), m(m_), n(n_), k(k_), alpha(alpha_), beta(beta_) {
        const int ra = notrans(ta) ? m : k, ca = notrans(ta) ? k : m;
        const int rb = notrans(tb) ? k : n, cb = notrans(tb) ? n : k;
        lda = (ra > 1 ? ra : 1) + extra;
        ldb = (rb > 1 ? rb : 1) + extra;
        ldc = (m > 1 ? m : 1) + extra;
        av.resize((size_t)lda * (ca > 0 ? ca : 1));
        bv.resize((size_t)ldb * (cb > 0 ? cb : 1));
        for (T& x : av) x = K::make(next_value(), next_value());
        for (T& x : bv) x = K::make(next_value(), next_value());
        const int cn = ldc * (n > 0 ? n : 1);
        cv.resize(cn + 16);
        for (int i = 0; i < cn + 16; ++i) {
            const int at = i - 8;
            const bool inside = at >= 0 && at < ldc * n && at % ldc < m;
            cv[i] = inside ? K::make(next_value(), next_value()) : K::make(1234.5 + i, -i);
        }
        c0 = cv;
        a = av.data(), b = bv.data(), c = cv.data() + 8;
    }
    cld A(int i, int l) const {
        cld x = K::ld(notrans(ta) ? a[i + (long)l * lda] : a[l + (long)i * lda]);
        return conjugated(ta) ? std::conj(x) : x;
    }
    cld B(int l, int j) const {
        cld x = K::ld(notrans(tb) ? b[l + (long)j * ldb] : b[j + (long)l * ldb]);
        return conjugated(tb) ? std::conj(x) : x;
    }
    cld C0(int i, int j) const { return K::ld(c0[8 + i + (long)j * ldc]); }
    T got(int i, int j) const { return c[i + (long)j * ldc]; }
    void run(const T* pa = nullptr, const T* pb = nullptr) {
        static gemm_fn<T> f = zva_export<gemm_fn<T>>(K::name);
        f(&ta, 1, &tb, 1, &m, &n, &k, &alpha, pa ? pa : a, &lda, pb ? pb : b, &ldb, &beta, c,
          &ldc);
    }
    void expect_outside_untouched() const {
        for (int i = -8; i < ldc * (n > 0 ? n : 1) + 8; ++i) {
            const bool inside = i >= 0 && i < ldc * n && i % ldc < m;
            if (!inside) {
                ASSERT_EQ(memcmp(&c[i], &c0[i + 8], sizeof(T)), 0) << "index " << i;
            }
        }
    }
    // C := alpha*op(A)*op(B) + beta*C, beta = 0 not reading C. The sums run
    // in double, far below the tolerance of either precision.
    void expect_near_reference() const {
        const cld al = K::ld(alpha), be = K::ld(beta);
        std::vector<double> ar(k), ai(k);
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < m; ++i) {
                double sr = 0, si = 0, mag = 0;
                for (int l = 0; l < k; ++l) {
                    const cld x = A(i, l), y = B(l, j);
                    const double xr = (double)x.real(), xi = (double)x.imag();
                    const double yr = (double)y.real(), yi = (double)y.imag();
                    sr += xr * yr - xi * yi, si += xr * yi + xi * yr;
                    mag += (fabs(xr) + fabs(xi)) * (fabs(yr) + fabs(yi));
                }
                cld ref = al * cld(sr, si);
                long double bound = std::abs(al) * mag;
                if (be != cld(0)) ref += be * C0(i, j), bound += std::abs(be) * std::abs(C0(i, j));
                const cld g = K::ld(got(i, j));
                ASSERT_LE(std::abs(g - ref), (k + 8) * 4 * K::eps * bound + 1e-30L)
                    << ta << tb << " m=" << m << " n=" << n << " k=" << k << " at " << i << ","
                    << j << " got " << g << " want " << ref;
            }
        expect_outside_untouched();
    }
};

template <class T> class Gemm : public testing::Test {};
using types = testing::Types<float, cfloat, cdouble>;
TYPED_TEST_SUITE(Gemm, types);

const char letters[][2] = {{'N', 'N'}, {'N', 'T'}, {'T', 'N'}, {'T', 'T'}, {'n', 'c'},
                           {'C', 't'}, {'t', 'n'}, {'c', 'C'}, {'C', 'N'}, {'N', 'C'}};

template <class T> T value(double re, double im) { return kind<T>::make(re, im); }

// alpha and beta with zero parts: (0, 1) is not zero, (1, 0) leaves C,
// (1, 1) scales.
template <class T> T alpha_of(int round) {
    switch (round % 4) {
    case 0: return value<T>(1, 0);
    case 1: return value<T>(0, 1);
    case 2: return value<T>(-0.75, 0.5);
    default: return value<T>(0.7, 0);
    }
}
template <class T> T beta_of(int round) {
    switch (round % 5) {
    case 0: return value<T>(1, 0);
    case 1: return value<T>(0, 0);
    case 2: return value<T>(1, 1);
    case 3: return value<T>(-0.4, 0);
    default: return value<T>(0, 0.5);
    }
}

TYPED_TEST(Gemm, SmallShapesAllLetters) {
    const int sizes[] = {1, 2, 3, 4, 5, 8, 9};
    int round = 0;
    for (int m : sizes)
        for (int n : sizes)
            for (int k : sizes) {
                const char* t = letters[round % 10];
                ++round;
                problem<TypeParam> p(t[0], t[1], m, n, k, alpha_of<TypeParam>(round),
                                     beta_of<TypeParam>(round), round % 2);
                p.run();
                p.expect_near_reference();
            }
}

// Sizes around each row's panels and k steps, the blocks of k (300 is cut
// in two), the chunks and row groups of the engines of branches 3 and 2,
// and their odd rows and columns.
TYPED_TEST(Gemm, BlockedShapes) {
    struct shape { int m, n, k; };
    const shape shapes[] = {{9, 5, 5},    {8, 8, 8},     {17, 10, 11},   {33, 35, 70},
                            {65, 37, 66}, {21, 13, 300}, {13, 50, 257},  {300, 9, 129},
                            {20, 260, 81}, {5, 5, 8},    {530, 12, 48},  {24, 20, 513},
                            {7, 9, 160}};
    int round = 0;
    for (const shape& s : shapes)
        for (const auto& t : letters) {
            if (++round % 3) continue;
            problem<TypeParam> p(t[0], t[1], s.m, s.n, s.k, alpha_of<TypeParam>(round),
                                 beta_of<TypeParam>(round), round % 2);
            p.run();
            p.expect_near_reference();
        }
}

// m = n = 0 reads nothing; k = 0 and alpha = 0 read neither A nor B, and
// beta = 0 clears NaN from C.
TYPED_TEST(Gemm, EmptyAndScalingOnly) {
    using T = TypeParam;
    for (int round = 0; round < 10; ++round) {
        problem<T> p(letters[round][0], letters[round][1], 0, round % 2 ? 5 : 0, 4,
                     value<T>(1, 0), value<T>(0, 0));
        p.run(nullptr, nullptr);
        p.expect_outside_untouched();
        ASSERT_EQ(memcmp(p.cv.data(), p.c0.data(), p.cv.size() * sizeof(T)), 0);
    }
    for (int round = 0; round < 10; ++round) {
        const bool k0 = round % 2;
        problem<T> p(letters[round][0], letters[round][1], 37, 29, k0 ? 0 : 50,
                     k0 ? alpha_of<T>(round) : value<T>(0, 0), beta_of<T>(round));
        if (kind<T>::ld(p.beta) == cld(0)) p.c[3] = p.c0[11] = value<T>(NAN, 0);
        T* null = nullptr;
        p.run(null + 1, null + 1);  // never read
        p.expect_near_reference();
        if (kind<T>::ld(p.beta) == cld(0)) {
            ASSERT_FALSE(std::isnan(std::abs(kind<T>::ld(p.got(3, 0)))));
        }
    }
}

// ---- the sum orders of the blocked engines of branches 4 to 7 ------------

// k block of the rows (the rule K256, K128 or K80).
int k_block(int k, int ku, int base) {
    const int floor = base == 256 ? 128 : 64;
    if (k < base) {
        const int kb = (k + ku - 1) / ku * ku;
        return kb < floor ? floor : kb;
    }
    if (k > base && k < 2 * base) return (k / 2 + ku - 1) / ku * ku;
    return base;
}

enum class form { plain, kpair, rotation, split };
struct row_model {
    int mr, nr, ku, kbase, m_min, n_min;
    form f;
    bool fused;   // branch 7: complex packing and the edge rows fuse
    bool stream;  // 128-bit rows stream B at these sizes: edge rows see the true k
};

bool no_sse41() {
    const char* cbwr = getenv("ZVA_CBWR");
    return cbwr && strcmp(cbwr, "SSSE3") == 0;
}

template <class T> bool model_of_run(row_model* r) {
    const bool old4 = no_sse41();
    const int b = old4 ? 4 : test_branch();
    const bool f7 = b == 7;
    if (b < 4) return false;
    if (!kind<T>::cplx) {
        if (b >= 6) *r = {8, 4, 4, 256, 8, 4, form::plain, f7, false};
        else if (b == 5 || !old4) *r = {4, 4, 4, 256, 4, 4, form::plain, false, true};
        else *r = {4, 2, 2, 256, 4, 8, form::kpair, false, true};
        return true;
    }
    const bool z = sizeof(T) == 16;
    if (b >= 6) *r = {z ? 2 : 4, 2, 4, 256, z ? 2 : 4, 2, form::rotation, f7, false};
    else *r = {z ? 2 : 4, 2, 2, old4 ? 80 : 128, z ? 2 : 4, 8, form::split, false, true};
    return true;
}

float fma_r(float a, float b, float c) { return fmaf(a, b, c); }
double fma_r(double a, double b, double c) { return fma(a, b, c); }
template <class R> R madd(bool fused, R a, R b, R c) { return fused ? fma_r(a, b, c) : a * b + c; }

// Element (i, l) of the packed A: alpha times op(A), rounded; complex by
// one complex multiplication, fused on branch 7.
template <class T, class R> void packed_a(const problem<T>& p, bool fused, int i, int l, R* re, R* im) {
    const T x0 = notrans(p.ta) ? p.a[i + (long)l * p.lda] : p.a[l + (long)i * p.lda];
    if constexpr (!kind<T>::cplx) {
        *re = p.alpha * x0, *im = 0;
    } else {
        const R xr = x0.re, xi = conjugated(p.ta) ? -x0.im : x0.im;
        *re = madd<R>(fused, p.alpha.re, xr, -(p.alpha.im * xi));
        *im = madd<R>(fused, p.alpha.re, xi, p.alpha.im * xr);
    }
}
template <class T, class R> void elem_b(const problem<T>& p, int l, int j, R* re, R* im) {
    const T y = notrans(p.tb) ? p.b[l + (long)j * p.ldb] : p.b[j + (long)l * p.ldb];
    if constexpr (!kind<T>::cplx) {
        *re = y, *im = 0;
    } else {
        *re = y.re, *im = conjugated(p.tb) ? -y.im : y.im;
    }
}

// C(i, j) after the blocked engine: C scaled first, then each k block's sum
// added once. Main-kernel rows sum by their form, edge rows in four partial
// sums joined pairwise.
template <class T> T model(const problem<T>& p, const row_model& r, int i, int j) {
    using R = typename kind<T>::R;
    R cr, ci;
    {
        const T c0 = p.c0[8 + i + (long)j * p.ldc];
        R c0r, c0i;
        if constexpr (kind<T>::cplx) c0r = c0.re, c0i = c0.im;
        else c0r = c0, c0i = 0;
        R br, bi;
        if constexpr (kind<T>::cplx) br = p.beta.re, bi = p.beta.im;
        else br = p.beta, bi = 0;
        if (br == 1 && bi == 0) cr = c0r, ci = c0i;
        else if (br == 0 && bi == 0) cr = 0, ci = 0;
        else if (!kind<T>::cplx) cr = br * c0r, ci = 0;
        else cr = br * c0r - bi * c0i, ci = br * c0i + bi * c0r;
    }
    const int kb = k_block(p.k, r.ku, r.kbase);
    const bool edge = i >= p.m - p.m % r.mr;
    for (int l0 = 0; l0 < p.k; l0 += kb) {
        const int len = p.k - l0 < kb ? p.k - l0 : kb;
        auto term = [&](int l, R* xr, R* xi, R* yr, R* yi) {
            if (l >= len) {
                *xr = *xi = *yr = *yi = 0;
                return;
            }
            packed_a(p, r.fused, i, l0 + l, xr, xi);
            elem_b(p, l0 + l, j, yr, yi);
        };
        R sr = 0, si = 0;
        if (edge) {
            // Streamed B: the true k; packed B: k rounded up to ku.
            const int kk = r.stream ? len : (len + r.ku - 1) / r.ku * r.ku;
            R pr[4] = {0, 0, 0, 0}, pi[4] = {0, 0, 0, 0};
            auto step = [&](int l, R& a_r, R& a_i) {
                R xr, xi, yr, yi;
                term(l, &xr, &xi, &yr, &yi);
                a_r = madd<R>(r.fused, xr, yr, a_r);
                if (kind<T>::cplx) {
                    a_r = madd<R>(r.fused, -xi, yi, a_r);
                    a_i = madd<R>(r.fused, xr, yi, a_i);
                    a_i = madd<R>(r.fused, xi, yr, a_i);
                }
            };
            int l = 0;
            for (; l + 4 <= kk; l += 4)
                for (int q = 0; q < 4; ++q) step(l + q, pr[q], pi[q]);
            sr = (pr[0] + pr[1]) + (pr[2] + pr[3]);
            si = (pi[0] + pi[1]) + (pi[2] + pi[3]);
            for (; l < kk; ++l) step(l, sr, si);
        } else if (r.f == form::kpair) {
            R even = 0, odd = 0;
            for (int l = 0; l < len; ++l) {
                R xr, xi, yr, yi;
                term(l, &xr, &xi, &yr, &yi);
                (l % 2 ? odd : even) += xr * yr;
            }
            sr = even + odd;
        } else if (r.f == form::rotation) {
            R rr = 0, ii = 0, ir = 0, ri = 0;
            for (int l = 0; l < len; ++l) {
                R xr, xi, yr, yi;
                term(l, &xr, &xi, &yr, &yi);
                rr += xr * yr, ii += xi * yi, ir += xi * yr, ri += xr * yi;
            }
            sr = rr - ii, si = ir + ri;
        } else {  // plain running sums, complex by the split order
            for (int l = 0; l < len; ++l) {
                R xr, xi, yr, yi;
                term(l, &xr, &xi, &yr, &yi);
                sr = sr + xr * yr;
                if (kind<T>::cplx) {
                    sr = sr - xi * yi;
                    si = si + xr * yi;
                    si = si + xi * yr;
                }
            }
        }
        cr = cr + sr, ci = ci + si;
    }
    if constexpr (kind<T>::cplx) return T{cr, ci};
    else return cr;
}

TYPED_TEST(Gemm, BlockedSumOrderIsExact) {
    using T = TypeParam;
    row_model r;
    if (!model_of_run<T>(&r)) GTEST_SKIP() << "branch without a blocked engine";
    struct shape { int m, n, k; };
    const shape shapes[] = {{9, 9, 5}, {13, 11, 33}, {12, 10, 256}, {10, 9, 300}, {19, 17, 161}};
    int round = 0;
    for (const shape& s : shapes)
        for (const auto& t : letters) {
            ++round;
            if (s.m <= r.m_min || s.n <= r.n_min) continue;
            // beta with a zero imaginary part, so that scaling C is exact
            // in the model as well.
            problem<T> p(t[0], t[1], s.m, s.n, s.k, alpha_of<T>(round),
                         round % 3 ? value<T>(1, 0) : value<T>(-0.5, 0), round % 2);
            p.run();
            for (int j = 0; j < p.n; ++j)
                for (int i = 0; i < p.m; ++i) {
                    const T want = model(p, r, i, j), got = p.got(i, j);
                    ASSERT_EQ(memcmp(&got, &want, sizeof(T)), 0)
                        << t[0] << t[1] << " m=" << s.m << " n=" << s.n << " k=" << s.k
                        << " at " << i << "," << j << ": " << kind<T>::ld(got) << " vs "
                        << kind<T>::ld(want);
                }
            p.expect_outside_untouched();
        }
}


// ---- the sum orders of the engines of branches 3 and 2 ---------------------

template <class T> void parts(const T& x, double* re, double* im) {
    if constexpr (kind<T>::cplx) *re = x.re, *im = x.im;
    else *re = x, *im = 0;
}

// S and C: C is staged as beta*C; each kernel call (64 steps, then the 48,
// 32 or 16 left) adds the lanes of its steps joined as (l0 + l2) + (l1 + l3),
// each lane a running sum over the steps k = l mod 4; in C a lane first adds
// all ar*br, then takes off all ai*bi (and adds ai*br, then ar*bi).
template <class T> T model_klane(const problem<T>& p, int i, int j) {
    using R = typename kind<T>::R;
    R cr, ci;
    {
        R br, bi, xr, xi;
        if constexpr (kind<T>::cplx) br = p.beta.re, bi = p.beta.im, xr = p.c0[8 + i + (long)j * p.ldc].re, xi = p.c0[8 + i + (long)j * p.ldc].im;
        else br = p.beta, bi = 0, xr = p.c0[8 + i + (long)j * p.ldc], xi = 0;
        if (br == 1 && bi == 0) cr = xr, ci = xi;
        else if (br == 0 && bi == 0) cr = ci = 0;
        else cr = kind<T>::cplx ? br * xr - bi * xi : br * xr, ci = kind<T>::cplx ? br * xi + bi * xr : 0;
    }
    for (int l0 = 0; l0 < p.k; l0 += 64) {
        const int len = p.k - l0 < 64 ? p.k - l0 : 64;
        R lr[4] = {0, 0, 0, 0}, li[4] = {0, 0, 0, 0};
        for (int pass = 0; pass < (kind<T>::cplx ? 2 : 1); ++pass)
            for (int l = 0; l < len; ++l) {
                R xr, xi, yr, yi;
                packed_a(p, false, i, l0 + l, &xr, &xi);
                elem_b(p, l0 + l, j, &yr, &yi);
                if (pass == 0) lr[l % 4] += xr * yr, li[l % 4] += xi * yr;
                else li[l % 4] += xr * yi, lr[l % 4] -= xi * yi;
            }
        cr = cr + ((lr[0] + lr[2]) + (lr[1] + lr[3]));
        ci = ci + ((li[0] + li[2]) + (li[1] + li[3]));
    }
    if constexpr (kind<T>::cplx) return T{cr, ci};
    else return cr;
}

// Z: chunks of 80, the first one (k mod 80) taken from the end and merged
// with beta as (cr*br - ci*bi) + sum; per step re + ar*br - ai*bi and
// im + ai*br + ar*bi.
cdouble model_zstage(const problem<cdouble>& p, int i, int j) {
    const cdouble c0 = p.c0[8 + i + (long)j * p.ldc];
    double cr = c0.re, ci = c0.im;
    const int first = p.k % 80 ? p.k % 80 : 80;
    for (int t = 0; t * 80 < p.k; ++t) {
        const int l0 = t == 0 ? p.k - first : (t - 1) * 80, len = t == 0 ? first : 80;
        double sr = 0, si = 0;
        for (int l = l0; l < l0 + len; ++l) {
            double xr, xi, yr, yi;
            packed_a(p, false, i, l, &xr, &xi);
            elem_b(p, l, j, &yr, &yi);
            sr = sr + xr * yr, sr = sr - xi * yi;
            si = si + xi * yr, si = si + xr * yi;
        }
        if (t > 0 || (p.beta.re == 1 && p.beta.im == 0)) cr = cr + sr, ci = ci + si;
        else if (p.beta.re == 0 && p.beta.im == 0) cr = sr, ci = si;
        else
            cr = (cr * p.beta.re + ci * -p.beta.im) + sr,
            ci = (c0.re * p.beta.im + c0.im * p.beta.re) + si;
    }
    return {cr, ci};
}

TYPED_TEST(Gemm, StagedEnginesSumOrderIsExact) {
    using T = TypeParam;
    const int b = test_branch();
    if (b != 2 && b != 3) GTEST_SKIP() << "the engines of branches 3 and 2";
    const bool z = sizeof(T) == 16;
    // Whole groups of rows and k a multiple of 16 (S, C), shapes large
    // enough for the engine; even rows and
    // columns (Z), where nothing goes through the plain loops.
    struct shape { int m, n, k; };
    const shape sc[] = {{32, 9, 112}, {16, 80, 64}, {48, 8, 176}};
    const shape zs[] = {{6, 4, 8}, {10, 6, 170}, {4, 8, 80}};
    int round = 0;
    for (int q = 0; q < 3; ++q)
        for (const auto& t : letters) {
            ++round;
            const shape s = z ? zs[q] : sc[q];
            problem<T> p(t[0], t[1], s.m, s.n, s.k, alpha_of<T>(round), beta_of<T>(round),
                         round % 2);
            p.run();
            for (int j = 0; j < p.n; ++j)
                for (int i = 0; i < p.m; ++i) {
                    T want;
                    if constexpr (sizeof(T) == 16) want = model_zstage(p, i, j);
                    else want = model_klane(p, i, j);
                    const T got = p.got(i, j);
                    ASSERT_EQ(memcmp(&got, &want, sizeof(T)), 0)
                        << t[0] << t[1] << " m=" << s.m << " n=" << s.n << " k=" << s.k
                        << " at " << i << "," << j << ": " << kind<T>::ld(got) << " vs "
                        << kind<T>::ld(want);
                }
            p.expect_outside_untouched();
        }
}

// ---- no memory ------------------------------------------------------------

// With an allocator that refuses large blocks the result is still right and
// the failure is reported under the engine's tag.
TYPED_TEST(Gemm, NoMemoryFallsBackToThePlainMultiply) {
    using T = TypeParam;
    if (!getenv("ZVA_TEST_NO_MEMORY")) GTEST_SKIP() << "needs the refusing allocator";
    const int b = test_branch();
    const char* tag = b >= 4 ? "xgemm" : kind<T>::cplx ? (sizeof(T) == 16 ? "xzgemm" : "xcgemm") : "xsgemm";
    problem<T> p('N', 'C', 200, 150, 140, alpha_of<T>(2), beta_of<T>(2));
    testing::internal::CaptureStdout();
    p.run();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find(std::string("Not enough work memory in function ") + tag + "\n"),
              std::string::npos)
        << out;
    p.expect_near_reference();
}

// ---- threads --------------------------------------------------------------

template <class T> class GemmThreads : public testing::Test {};
TYPED_TEST_SUITE(GemmThreads, types);

TYPED_TEST(GemmThreads, TeamsGiveTheProduct) {
    using T = TypeParam;
    struct shape { int m, n, k; };
    const shape shapes[] = {{90, 80, 70}, {200, 30, 40}, {30, 200, 40}, {101, 90, 60}};
    int round = 0;
    for (int t : {2, 3})
        for (const shape& s : shapes) {
            omp_set_num_threads(t);
            const char* l = letters[round % 10];
            ++round;
            problem<T> p(l[0], l[1], s.m, s.n, s.k, alpha_of<T>(round), beta_of<T>(round), 1);
            p.run();
            p.expect_near_reference();
        }
    omp_set_num_threads(1);
}

// Cut by columns, no thread changes the rows of a block or the cut of k:
// the result equals that of one thread bit for bit on the blocked engines.
TYPED_TEST(GemmThreads, ColumnSlicesMatchOneThread) {
    using T = TypeParam;
    row_model r;
    if (!model_of_run<T>(&r) || !kind<T>::cplx) GTEST_SKIP() << "complex types on branches 4 to 7";
    for (int round = 0; round < 4; ++round) {
        const int m = round % 2 ? 60 : 110, n = 120, k = round < 2 ? 90 : 300;
        omp_set_num_threads(1);
        problem<T> one(letters[round][0], letters[round][1], m, n, k, alpha_of<T>(round),
                       beta_of<T>(round));
        problem<T> two = one;
        two.a = two.av.data(), two.b = two.bv.data(), two.c = two.cv.data() + 8;
        one.run();
        omp_set_num_threads(2);
        two.run();
        ASSERT_EQ(memcmp(one.cv.data(), two.cv.data(), one.cv.size() * sizeof(T)), 0);
    }
    omp_set_num_threads(1);
}

}  // namespace
