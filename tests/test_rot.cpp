// Plane rotations through the exports, on the branch this run was forced
// to: ROT, CSROT, ZDROT and ROTM against references written from the BLAS
// definitions, the generators against their published algorithms and
// against what a rotation must do.  Each pair is rounded in a form the
// branch fixes (apart, fused, or x87 width), so results are compared bit for
// bit with the forms a path may use; the generators' arithmetic is fixed as
// well, and is also held to a long double bound.
#include <math.h>
#include <omp.h>
#include <string.h>

#include <functional>
#include <vector>

#include "zva.h"

namespace {

int branch() { return test_branch() ? test_branch() : 7; }

template <class R> bool same(R a, R b) { return (isnan(a) && isnan(b)) || memcmp(&a, &b, sizeof a) == 0; }
template <class T> bool same_el(const T& a, const T& b) {
    if constexpr (elem<T>::cplx) return same(a.re, b.re) && same(a.im, b.im);
    else return same(a, b);
}

uint32_t rng = 987654321;
double next_value() {
    rng = rng * 1664525u + 1013904223u;
    // Full mantissas over a spread of exponents, so that the forms differ.
    return ((double)(rng >> 8) / (1 << 24) - 0.5) * ldexp(1.0, (int)(rng % 7) - 3);
}
template <class T> T value() { return make<T>(next_value(), elem<T>::cplx ? next_value() : 0); }

// ---- the rounding forms of one pair ----------------------------------------------
// A form rotates one real pair (a of x, b of y) in place; complex elements
// go part by part.
template <class R> using form = std::function<void(R&, R&)>;

// x' = c*a + s*b, y' = c*b - s*a
template <class R> form<R> rot_apart(R c, R s) {
    return [=](R& a, R& b) { R x = c * a + s * b, y = c * b - s * a; a = x, b = y; };
}
template <class R> form<R> rot_fused(R c, R s) {
    return [=](R& a, R& b) { R x = fma(c, a, s * b), y = fma(c, b, -(s * a)); a = x, b = y; };
}
template <class R> form<R> rot_x87(R c, R s) {
    return [=](R& a, R& b) {
        long double x = (long double)c * a + (long double)s * b, y = (long double)c * b - (long double)s * a;
        a = (R)x, b = (R)y;
    };
}

// ROTM by the sign of flag; `f` fuses the last product.
template <class R> form<R> rotm_form(const R* p, bool f) {
    auto madd = [f](R a, R b, R c) { return f ? (R)fma(a, b, c) : a * b + c; };
    R h11 = p[1], h21 = p[2], h12 = p[3], h22 = p[4];
    if (p[0] + 2 == 0) return [](R&, R&) {};
    if (p[0] < 0) return [=](R& a, R& b) { R x = madd(a, h11, b * h12), y = madd(a, h21, b * h22); a = x, b = y; };
    if (p[0] == 0) return [=](R& a, R& b) { R x = madd(b, h12, a), y = madd(a, h21, b); a = x, b = y; };
    return [=](R& a, R& b) { R x = madd(a, h11, b), y = madd(b, h22, -a); a = x, b = y; };
}

// ---- one call against its references ------------------------------------------------
constexpr int guard = 6;

template <class T> using call_fn = std::function<void(int* n, T* x, int* incx, T* y, int* incy)>;
// The form of logical pair i of a call, given the call's x and y: where a
// path fixes it; absent, a pair may match any of the forms.
template <class T> using pick_fn = std::function<int(int i, int n, const T* x, const T* y)>;

// x and y start xo and yo bytes past a 64-byte boundary, amid guard
// elements; every element off the strides, in front and behind, must keep
// its bits, and each pair on them must match its form (or one of them).
template <class T>
void check(const char* what, const call_fn<T>& call, const std::vector<form<typename elem<T>::R>>& all,
           int n, int incx, int incy, int xo, int yo, const pick_fn<T>& pick = nullptr) {
    int nn = n > 0 ? n : 0;
    int lx = nn ? 1 + (nn - 1) * abs(incx) : 0, ly = nn ? 1 + (nn - 1) * abs(incy) : 0;
    std::vector<unsigned char> xb((lx + 2 * guard) * sizeof(T) + 128), yb((ly + 2 * guard) * sizeof(T) + 128);
    auto align = [](unsigned char* p, int off) { return (T*)(((uintptr_t)p + 63) / 64 * 64 + off); };
    T* xg = align(xb.data(), xo);
    T* yg = align(yb.data(), yo);
    for (int i = 0; i < lx + 2 * guard; ++i) xg[i] = value<T>();
    for (int i = 0; i < ly + 2 * guard; ++i) yg[i] = value<T>();
    std::vector<T> x0(xg, xg + lx + 2 * guard), y0(yg, yg + ly + 2 * guard);
    int n_ = n, incx_ = incx, incy_ = incy;
    call(&n_, xg + guard, &incx_, yg + guard, &incy_);
    ASSERT_TRUE(n_ == n && incx_ == incx && incy_ == incy);

    // The BLAS order: logical elements from the start rule, each pair
    // stored before the next is read (an increment 0 rotates one element
    // again and again).
    std::vector<std::vector<T>> wx, wy;
    const size_t nforms = pick ? 1 : all.size();
    for (size_t k = 0; k < nforms; ++k) {
        std::vector<T> a(x0), b(y0);
        long long ix = guard + (incx >= 0 ? 0 : (long long)(1 - n) * incx);
        long long iy = guard + (incy >= 0 ? 0 : (long long)(1 - n) * incy);
        for (int i = 0; i < n; ++i, ix += incx, iy += incy) {
            auto& f = all[pick ? pick(i, n, xg + guard, yg + guard) : k];
            if constexpr (elem<T>::cplx) {
                f(a[ix].re, b[iy].re);
                f(a[ix].im, b[iy].im);
            } else {
                f(a[ix], b[iy]);
            }
        }
        wx.push_back(a), wy.push_back(b);
    }
    auto matches = [&](int i, bool in_x) {
        for (size_t k = 0; k < nforms; ++k)
            if (in_x ? same_el(xg[i], wx[k][i]) : same_el(yg[i], wy[k][i])) return true;
        return false;
    };
    for (int i = 0; i < lx + 2 * guard; ++i)
        ASSERT_TRUE(matches(i, true)) << what << " n=" << n << " incx=" << incx << " incy=" << incy
                                      << " xo=" << xo << " yo=" << yo << " x element " << i - guard;
    for (int i = 0; i < ly + 2 * guard; ++i)
        ASSERT_TRUE(matches(i, false)) << what << " n=" << n << " incx=" << incx << " incy=" << incy
                                       << " xo=" << xo << " yo=" << yo << " y element " << i - guard;
}

const int sizes[] = {-1, 0, 1, 2, 3, 4, 5, 7, 8, 9, 12, 15, 16, 17, 24, 31, 32, 33, 35,
                     48, 63, 64, 65, 67, 97, 129, 131, 257};
const int incs[][2] = {{-1, -1}, {2, 3}, {-2, 1}, {1, -3}, {0, 1}, {1, 0}, {0, 0}, {-1, 1}, {3, 3}};

// Unit stride at every phase of x and y (byte offsets off the element
// boundary too), then the strided pairs; forms(incx, incy) gives the forms
// of a path and pick chooses among them.
template <class T> struct path_forms {
    std::vector<form<typename elem<T>::R>> forms;
    pick_fn<T> pick;
};
template <class T> void sweep(const char* what, const call_fn<T>& call,
                              const std::function<path_forms<T>(int incx, int incy)>& forms) {
    constexpr int e = sizeof(T);
    std::vector<int> offs = {0, e, 2 * e, 3 * e, 4};
    if (e > 4) offs.push_back(e + 4);
    auto run = [&](int n, int incx, int incy, int xo, int yo) {
        path_forms<T> p = forms(incx, incy);
        check<T>(what, call, p.forms, n, incx, incy, xo, yo, p.pick);
    };
    for (int n : sizes)
        for (int xo : offs)
            for (int yo : offs) run(n, 1, 1, xo, yo);
    for (int n : sizes)
        for (auto& inc : incs) run(n, inc[0], inc[1], e, 0);
}

template <class T, class C> struct rot_api {
    typedef void(ZVA_STDCALL* fn)(const int*, T*, const int*, T*, const int*, const C*, const C*);
};
template <class T, class C> call_fn<T> rot_call(const char* name, C c, C s) {
    auto f = zva_export<typename rot_api<T, C>::fn>(name);
    return [=](int* n, T* x, int* ix, T* y, int* iy) { f(n, x, ix, y, iy, &c, &s); };
}

// Real ROT: apart on 2 to 6, fused on 7, on every path.
template <class R> void real_rot(const char* name) {
    const R cs[][2] = {{0.6, 0.8}, {1, 0}, {(R)0.3, (R)-1.7}, {0, -1}, {(R)-0.1, (R)2.25}};
    for (auto& p : cs)
        sweep<R>(name, rot_call<R, R>(name, p[0], p[1]), [&](int, int) {
            return path_forms<R>{{branch() == 7 ? rot_fused(p[0], p[1]) : rot_apart(p[0], p[1])}, nullptr};
        });
}

// CSROT and ZDROT fix the form of each pair by its place. On 7, unit
// stride: the first n mod 4 apart, then the fused passes (CSROT 32 and 8 a
// pass, ZDROT 8), a last block of 4 apart; strided all apart. On 6 all
// apart. On 2 to 5 ZDROT is x87 throughout; CSROT is x87 on the strided
// path, and on the unit path (incx = incy = 1 or -1) for the peel of y to
// 16 bytes and the singles after its vector passes (24 and 2 a pass with x
// in the phase of y, else 16 and 2), which round apart.
enum { apart_f, fused_f, x87_f };
template <class T, class R> int cplx_form(int i, int n, const T* x, const T* y) {
    const bool cs = sizeof(R) == 4;
    if (branch() == 7) {
        int m = n - n % 4, lead = n % 4;
        int fused = cs ? m / 32 * 32 + m % 32 / 8 * 8 : m / 8 * 8;
        return i >= lead && i < lead + fused ? fused_f : apart_f;
    }
    if (!cs) return x87_f;
    if ((uintptr_t)y % 8) return x87_f;
    int peel = (uintptr_t)y % 16 ? 1 : 0;
    if (peel > n) peel = n;
    int pass = (uintptr_t)(x + peel) % 16 == 0 ? 24 : 16, left = n - peel;
    int vec = left / pass * pass + left % pass / 2 * 2;
    return i >= peel && i < peel + vec ? apart_f : x87_f;
}

template <class T, class R> void cplx_rot(const char* name) {
    const R cs[][2] = {{0.6, 0.8}, {(R)0.3, (R)-1.7}};
    for (auto& p : cs)
        sweep<T>(name, rot_call<T, R>(name, p[0], p[1]), [&](int incx, int incy) {
            R c = p[0], s = p[1];
            std::vector<form<R>> all = {rot_apart(c, s), rot_fused(c, s), rot_x87(c, s)};
            int b = branch();
            bool unit = incx == 1 && incy == 1;
            if (b <= 5 && sizeof(R) == 4) unit = incx == incy && abs(incx) == 1;
            if (b == 6 || (b == 7 && !unit)) return path_forms<T>{all, [](int, int, const T*, const T*) { return (int)apart_f; }};
            if (b <= 5 && !unit) return path_forms<T>{all, [](int, int, const T*, const T*) { return (int)x87_f; }};
            // With incx = incy = -1 the kernel walks memory forward: the
            // form follows the place in memory, not the logical index.
            return path_forms<T>{all, [=](int i, int n, const T* x, const T* y) {
                                     return cplx_form<T, R>(incx < 0 ? n - 1 - i : i, n, x, y);
                                 }};
        });
}

template <class R> struct rotm_api {
    typedef void(ZVA_STDCALL* fn)(const int*, R*, const int*, R*, const int*, const R*);
};

// Every flag: the three forms, -2, and values that only their sign
// decides. The elements a form does not use hold NaN: they must not be read.
template <class R> void rotm_all(const char* name) {
    auto f = zva_export<typename rotm_api<R>::fn>(name);
    const R q = NAN;
    const R params[][5] = {{-2, 1.5, 2, 3, 4},     {-1, 0.75, (R)-0.3, (R)1.1, (R)0.9},
                           {0, q, (R)-0.3, (R)1.1, q}, {1, (R)0.7, q, q, (R)-1.3},
                           {(R)-0.5, 2, 3, (R)0.25, (R)-1.5}, {(R)2.5, (R)1.25, q, q, (R)0.375},
                           {(R)-3, 1, 1, 1, 1},    {q, (R)0.5, q, q, (R)-2}};
    for (auto& p : params) {
        call_fn<R> call = [=](int* n, R* x, int* ix, R* y, int* iy) { f(n, x, ix, y, iy, p); };
        sweep<R>(name, call, [&](int, int) { return path_forms<R>{{rotm_form(p, branch() == 7)}, nullptr}; });
    }
}

}  // namespace

TEST(Rot, Single) { real_rot<float>("SROT"); }
TEST(Rot, Double) { real_rot<double>("DROT"); }
TEST(Rot, SingleComplexRealCS) { cplx_rot<cfloat, float>("CSROT"); }
TEST(Rot, DoubleComplexRealCS) { cplx_rot<cdouble, double>("ZDROT"); }
TEST(Rotm, Single) { rotm_all<float>("SROTM"); }
TEST(Rotm, Double) { rotm_all<double>("DROTM"); }

// c = 1, s = 0 still multiplies: a NaN in y reaches x through s*y.
TEST(Rot, NothingIsSkippedForIdentity) {
    auto f = zva_export<rot_api<double, double>::fn>("DROT");
    for (int n : {1, 5, 40}) {
        std::vector<double> x(n, 2.0), y(n, 3.0);
        y[n - 1] = NAN;
        double c = 1, s = 0;
        int one = 1;
        f(&n, x.data(), &one, y.data(), &one, &c, &s);
        EXPECT_TRUE(isnan(x[n - 1])) << n;
        for (int i = 0; i + 1 < n; ++i) EXPECT_EQ(2.0, x[i]);
    }
}

// ---- generators -------------------------------------------------------------------

namespace {

template <class R> R madd7(R a, R b, R c) { return branch() == 7 ? (R)fma(a, b, c) : a * b + c; }

// ROTG of the older published routine, the sum of squares fused on 7.
template <class R> void rotg_ref(R& a, R& b, R& c, R& s) {
    R roe = fabs(a) > fabs(b) ? a : b, scale = fabs(a) + fabs(b), r, z;
    if (scale == 0) {
        c = 1, s = 0, r = 0, z = 0;
    } else {
        R as = a / scale, bs = b / scale;
        r = scale * (R)sqrt(madd7(as, as, bs * bs));
        if (0 > roe) r = -r;
        c = a / r, s = b / r;
        z = fabs(a) > fabs(b) ? s : 1;
        if (fabs(b) >= fabs(a) && c != 0) z = 1 / c;
    }
    a = r, b = z;
}

template <class R> struct rotg_api { typedef void(ZVA_STDCALL* fn)(R*, R*, R*, R*); };

template <class R> void rotg_cases(const char* name) {
    auto f = zva_export<typename rotg_api<R>::fn>(name);
    const R big = sizeof(R) == 8 ? 1e300 : 1e37f, tiny = sizeof(R) == 8 ? 1e-300 : 1e-37f;
    const R cases[][2] = {{0, 0}, {3, 4}, {0, 2}, {-0.0, 0}, {2, 0}, {1, 1}, {-1, 1}, {1, -1},
                          {-3, 4}, {3, -4}, {-4, 3}, {big, big}, {big, -big / 3}, {tiny, tiny},
                          {tiny, -2 * tiny}, {(R)0.3, (R)-0.7}, {NAN, 1}, {1, INFINITY},
                          {-0.0, -2}, {(R)1e-20, 1}};
    for (auto& cs : cases) {
        R a = cs[0], b = cs[1], c = -7, s = -7, ra = a, rb = b, rc, rs;
        f(&a, &b, &c, &s);
        rotg_ref(ra, rb, rc, rs);
        EXPECT_TRUE(same(a, ra) && same(b, rb) && same(c, rc) && same(s, rs))
            << name << " a=" << cs[0] << " b=" << cs[1] << ": r=" << a << " z=" << b << " c=" << c << " s=" << s;
        // What a rotation must do, where it is defined: c a + s b = r,
        // c b - s a = 0, c^2 + s^2 = 1.
        if (isfinite(a) && a != 0) {
            long double la = cs[0], lb = cs[1], eps = sizeof(R) == 8 ? 1e-15L : 1e-6L;
            EXPECT_NEAR(1.0L, (long double)c * c + (long double)s * s, 4 * eps) << name;
            EXPECT_NEAR(1.0L, (c * la + s * lb) / a, 4 * eps) << name;
            EXPECT_NEAR(0.0L, (c * lb - s * la) / a, 4 * eps) << name;
        }
    }
    // The published values.
    R a = 3, b = 4, c, s;
    f(&a, &b, &c, &s);
    EXPECT_NEAR(5, a, 5 * 4e-7);
    EXPECT_NEAR(0.6, c, 4e-7);
    EXPECT_NEAR(0.8, s, 4e-7);
    EXPECT_NEAR(1 / 0.6, b, 4e-6);
    a = 0, b = 2;
    f(&a, &b, &c, &s);
    EXPECT_TRUE(a == 2 && b == 1 && c == 0 && s == 1);
    a = 0, b = 0;
    f(&a, &b, &c, &s);
    EXPECT_TRUE(a == 0 && b == 0 && c == 1 && s == 0);
}

template <class T> struct crotg_api {
    typedef void(ZVA_STDCALL* fn)(T*, T*, typename elem<T>::R*, T*);
};

// CROTG of the older published routine, |v| taken straight; the four
// squares left to right on 2 to 5, as two pairs on 6 and 7.
template <class T, class R = typename elem<T>::R> void crotg_ref(T& ca, T& cb, R& c, T& s) {
    auto absc = [](T v) { return (R)sqrt(v.re * v.re + v.im * v.im); };
    R na = absc(ca);
    if (na == 0) {
        c = 0, s = make<T>(1, 0), ca = cb;
        return;
    }
    R scale = na + absc(cb);
    R ar = ca.re / scale, ai = ca.im / scale, br = cb.re / scale, bi = cb.im / scale;
    R sum = branch() >= 6 ? madd7(ai, ai, br * br) + madd7(ar, ar, bi * bi)
                          : ((ar * ar + ai * ai) + br * br) + bi * bi;
    R norm = scale * (R)sqrt(sum);
    R alr = ca.re / na, ali = ca.im / na;
    c = na / norm;
    s = make<T>((alr * cb.re + ali * cb.im) / norm, (ali * cb.re - alr * cb.im) / norm);
    ca = make<T>(alr * norm, ali * norm);
}

template <class T> void crotg_cases(const char* name) {
    using R = typename elem<T>::R;
    auto f = zva_export<typename crotg_api<T>::fn>(name);
    const R big = sizeof(R) == 8 ? 1e300 : 1e37f;
    const R cases[][4] = {{0, 0, 3, -4}, {0, 0, 0, 0}, {1, 0, 0, 0}, {3, 4, 0, 1}, {1, 1, 1, 1},
                          {-2, (R)0.5, (R)0.25, 3}, {0, -1, 2, 0}, {big, big, big, -big},
                          {(R)1e-20, 0, 1, 1}, {(R)0.3, (R)-0.7, (R)1.9, (R)0.1}};
    for (auto& v : cases) {
        T ca = make<T>(v[0], v[1]), cb = make<T>(v[2], v[3]), s = make<T>(-7, -7), ra = ca, rb = cb, rs;
        R c = -7, rc;
        f(&ca, &cb, &c, &s);
        crotg_ref(ra, rb, rc, rs);
        EXPECT_TRUE(same_el(ca, ra) && same_el(cb, rb) && same(c, rc) && same_el(s, rs))
            << name << " case " << v[0] << "," << v[1] << "," << v[2] << "," << v[3];
        // [c s; -conj(s) c] takes (ca, cb) to (r, 0), with c^2 + |s|^2 = 1;
        // not for the huge case, whose |ca|, taken without scaling,
        // overflows.
        if ((v[0] != 0 || v[1] != 0) && v[0] != big) {
            lc a = {v[0], v[1]}, b = {v[2], v[3]}, ls = to_lc(s), r = to_lc(ca);
            long double eps = sizeof(R) == 8 ? 1e-15L : 1e-6L, m = mag(r);
            lc top = add(mul({c, 0}, a), mul(ls, b));
            lc low = add(mul({-ls.re, ls.im}, a), mul({c, 0}, b));
            EXPECT_NEAR(1.0L, (long double)c * c + ls.re * ls.re + ls.im * ls.im, 8 * eps) << name;
            EXPECT_NEAR(0.0L, mag(add(top, {-r.re, -r.im})) / m, 8 * eps) << name;
            EXPECT_NEAR(0.0L, mag(low) / m, 8 * eps) << name;
        }
    }
    // ca = 0: c = 0, s = 1, ca takes cb.
    T ca = make<T>(0, -0.0), cb = make<T>(2, -3), s;
    R c = 5;
    f(&ca, &cb, &c, &s);
    EXPECT_TRUE(c == 0 && s.re == 1 && s.im == 0 && ca.re == 2 && ca.im == -3);
}

template <class R> struct rotmg_api { typedef void(ZVA_STDCALL* fn)(R*, R*, R*, const R*, R*); };

// ROTMG as this library computes it: H from t = y1/p1 (or x1/p2), u not
// tested, 1/u applied by a multiply, rescaling by rgam and rgamsq.
template <class R> void rotmg_ref(R& d1, R& d2, R& x1, R y1, R* p) {
    const R gam = 4096, gamsq = 16777216;
    R rgamsq, rgam;
    if constexpr (sizeof(R) == 8) {
        uint64_t b = 0x3E6FFFFFFFFFFFA2ull;
        memcpy(&rgamsq, &b, 8);
        rgam = 1.0 / 4096;
    } else {
        uint32_t b = 0x3980000Du;
        memcpy(&rgam, &b, 4);
        rgamsq = 1.0f / 16777216;
    }
    auto zero = [&] { p[0] = -1, p[1] = p[2] = p[3] = p[4] = 0, d1 = d2 = x1 = 0; };
    if (0 > d1) return zero();
    R p2 = d2 * y1;
    if (p2 == 0) {
        p[0] = -2;
        return;
    }
    R p1 = d1 * x1, q2 = p2 * y1, q1 = p1 * x1, flag, h11 = 0, h21 = 0, h12 = 0, h22 = 0;
    if (fabs(q1) > fabs(q2)) {
        R t = y1 / p1;
        h12 = d2 * t, h21 = -(d1 * t);
        R u = madd7(-h12, h21, (R)1), r = 1 / u;
        d1 = d1 * r, d2 = d2 * r, x1 = x1 * u, flag = 0;
    } else if (q2 < 0) {
        return zero();
    } else {
        R t = x1 / p2;
        h11 = d1 * t, h22 = d2 * t;
        R u = madd7(h11, h22, (R)1), r = 1 / u, e = d2 * r;
        d2 = d1 * r, d1 = e, x1 = y1 * u, flag = 1;
    }
    auto full = [&] {
        if (flag == 0) h11 = h22 = 1;
        if (flag == 1) h21 = -1, h12 = 1;
        flag = -1;
    };
    if (d1 != 0 && (d1 <= rgamsq || d1 >= gamsq)) {
        full();
        while (d1 <= rgamsq) d1 *= gamsq, x1 *= rgam, h11 *= rgam, h12 *= rgam;
        while (d1 >= gamsq) d1 *= rgamsq, x1 *= gam, h11 *= gam, h12 *= gam;
    }
    if (d2 != 0 && (fabs(d2) <= rgamsq || fabs(d2) >= gamsq)) {
        full();
        while (fabs(d2) <= rgamsq) d2 *= gamsq, h21 *= rgam, h22 *= rgam;
        while (fabs(d2) >= gamsq) d2 *= rgamsq, h21 *= gam, h22 *= gam;
    }
    if (flag < 0) p[1] = h11, p[2] = h21, p[3] = h12, p[4] = h22;
    else if (flag == 0) p[2] = h21, p[3] = h12;
    else p[1] = h11, p[4] = h22;
    p[0] = flag;
}

template <class R> void rotmg_cases(const char* name) {
    auto f = zva_export<typename rotmg_api<R>::fn>(name);
    // d1, d2, x1, y1: both flags, the zero-H exits, y1 = 0, and d1 and d2
    // below and above the rescaling thresholds, by far and just so.
    const R cases[][4] = {{1, 1, 3, 0},        {-1, 2, 3, 4},        {2, -1, 1, 3},
                          {2, 1, 3, 1},        {1, 2, 1, 3},         {(R)0.5, (R)0.25, -2, (R)0.7},
                          {1e-10f, 1, 1, 1},   {1e10f, 1, 1, (R)1e-3}, {1, 1e-12f, 5, (R)1e-3},
                          {1, 3e9f, 1, 1},     {1, 1, (R)1e-9, 1},   {(R)6e-8, 1, 1e3f, (R)1e-4},
                          {16777216, 1, 1, (R)1e-6}, {(R)5.9604644775390625e-8, 1, 1, (R)1e-6},
                          {1, 1e-20f, 1, 1e-20f}, {0, 1, 1, 2},      {1, 0, 2, 1},
                          {1e30f, 1e-30f, 1, 1}, {1e-30f, 1e30f, 1, 1}, {-0.0, 2, 1, 1}};
    for (auto& v : cases) {
        R d1 = v[0], d2 = v[1], x1 = v[2], p[5] = {9, 99, 98, 97, 96};
        R e1 = d1, e2 = d2, ex = x1, q[5] = {9, 99, 98, 97, 96};
        f(&d1, &d2, &x1, &v[3], p);
        rotmg_ref(e1, e2, ex, v[3], q);
        EXPECT_TRUE(same(d1, e1) && same(d2, e2) && same(x1, ex)) << name << " d1=" << v[0] << " d2=" << v[1];
        for (int k = 0; k < 5; ++k) EXPECT_TRUE(same(p[k], q[k])) << name << " param " << k << " d1=" << v[0];
        // Independently: H (x1, y1) = (x1', 0) and d1' x1'^2 = d1 x1^2 +
        // d2 y1^2 whenever H is not the zero exit.
        if (p[0] >= -1 && !(p[0] == -1 && p[1] == 0 && p[4] == 0)) {
            long double h11 = p[0] == 0 ? 1 : p[1], h21 = p[0] > 0 ? -1 : p[2];
            long double h12 = p[0] > 0 ? 1 : p[3], h22 = p[0] == 0 ? 1 : p[4];
            long double eps = sizeof(R) == 8 ? 1e-14L : 1e-5L, X = v[2], Y = v[3];
            long double top = h11 * X + h12 * Y, low = h21 * X + h22 * Y;
            EXPECT_NEAR(1.0L, top / x1, eps) << name << " d1=" << v[0];
            EXPECT_NEAR(0.0L, low / x1, eps) << name << " d1=" << v[0];
            long double before = v[0] * X * X + v[1] * Y * Y;
            EXPECT_NEAR(1.0L, (long double)d1 * x1 * x1 / before, 8 * eps) << name << " d1=" << v[0];
        }
    }
    // The published edge values: y1 = 0 leaves all but the flag.
    R d1 = 2, d2 = 3, x1 = 4, y1 = 0, p[5] = {7, 7, 7, 7, 7};
    f(&d1, &d2, &x1, &y1, p);
    EXPECT_TRUE(p[0] == -2 && p[1] == 7 && d1 == 2 && d2 == 3 && x1 == 4);
    d1 = -1, y1 = 1;
    f(&d1, &d2, &x1, &y1, p);
    EXPECT_TRUE(p[0] == -1 && p[1] == 0 && p[2] == 0 && p[3] == 0 && p[4] == 0 && d1 == 0 && d2 == 0 && x1 == 0);
}

}  // namespace

TEST(Rotg, Single) { rotg_cases<float>("SROTG"); }
TEST(Rotg, Double) { rotg_cases<double>("DROTG"); }
TEST(Rotg, SingleComplex) { crotg_cases<cfloat>("CROTG"); }
TEST(Rotg, DoubleComplex) { crotg_cases<cdouble>("ZROTG"); }
TEST(Rotmg, Single) { rotmg_cases<float>("SROTMG"); }
TEST(Rotmg, Double) { rotmg_cases<double>("DROTMG"); }

// SROTMG scales x1 by the single 0x3980000D, a little above 2^-12: the
// scaled x1 does not keep its mantissa.
TEST(Rotmg, SingleRescaleFactorIsNotAPowerOfTwo) {
    auto f = zva_export<rotmg_api<float>::fn>("SROTMG");
    float d1 = 1e-10f, d2 = 1, x1 = 1, y1 = 1e-6f, p[5] = {};
    f(&d1, &d2, &x1, &y1, p);
    EXPECT_EQ(-1, p[0]);
    int e;
    float m = frexpf(x1, &e);
    float m0 = frexpf(1.0f, &e);
    EXPECT_NE(m0, m) << "x1 = " << x1;
}

// Above the size limits SROT and DROT are cut among threads (on branches 4,
// 5 and 6, with ZVA_DYNAMIC=FALSE); every pair keeps its branch's rounding,
// so 1, 2 and 3 threads all give the reference bits.
TEST(RotThreads, SlicesKeepTheBits) {
    const int sizes[] = {2001, 4001, 5003, 10007, 20011};
    const int incs[][2] = {{1, 1}, {-1, -1}, {2, -3}, {-1, 2}};
    for (int threads : {1, 2, 3}) {
        omp_set_num_threads(threads);
        for (int n : sizes)
            for (auto& inc : incs) {
                double c = 0.6, s = -0.8;
                float cf = 0.3f, sf = 1.1f;
                check<double>("DROT", rot_call<double, double>("DROT", c, s),
                              {branch() == 7 ? rot_fused(c, s) : rot_apart(c, s)}, n, inc[0], inc[1], 8, 0);
                check<float>("SROT", rot_call<float, float>("SROT", cf, sf),
                             {branch() == 7 ? rot_fused(cf, sf) : rot_apart(cf, sf)}, n, inc[0], inc[1], 4, 0);
            }
    }
}
