// Sparse level 1 in the four types through the exports, on the branch this
// run was forced to, against references written from the Sparse BLAS
// definitions. AXPYI, GTHR, GTHRZ, SCTR and ROTI work element by element in
// ascending order with a fixed rounding per branch, so they are compared
// bit for bit, repeated indices included. The dots are bit for bit where
// their order is fixed (the scalar kernels), held to a rounding bound where
// vector accumulators reorder the sum.
#include <math.h>
#include <string.h>

#include <vector>

#include "zva.h"

namespace {

template <class T> using R = typename elem<T>::R;
template <class T> constexpr bool cx = elem<T>::cplx;

template <class T> struct api {
    typedef void(ZVA_STDCALL* axpyi)(const int*, const T*, const T*, const int*, T*);
    typedef R<T>(ZVA_STDCALL* doti)(const int*, const T*, const int*, const T*);
    typedef T*(ZVA_STDCALL* cdoti)(T*, const int*, const T*, const int*, const T*);
    typedef void(ZVA_STDCALL* gthr)(const int*, const T*, T*, const int*);
    typedef void(ZVA_STDCALL* gthrz)(const int*, T*, T*, const int*);
    typedef void(ZVA_STDCALL* sctr)(const int*, const T*, const int*, T*);
    typedef void(ZVA_STDCALL* roti)(const int*, T*, const int*, T*, const T*, const T*);
};

int branch() { return test_branch() ? test_branch() : 7; }

// ---- the rounding of one element on this branch ---------------------------

// s + a*b: real, fused on branch 7; complex in the order of the branch's
// CAXPY: (s_re + a_re*b_re) - a_im*b_im ... on 2, 4, 5; s + (a*b) on 3, 6;
// s + fmaddsub(a_re, b, a_im*swap(b)) on 7.
template <class T> T madd(T s, T a, T b) {
    if constexpr (!cx<T>) {
        return branch() == 7 ? fma(a, b, s) : s + a * b;
    } else {
        using F = R<T>;
        const int br = branch();
        if (br == 2 || br == 4 || br == 5)
            return {(s.re + a.re * b.re) - a.im * b.im, (s.im + a.re * b.im) + a.im * b.re};
        const F t_re = a.im * b.im, t_im = a.im * b.re;
        if (br == 7) return {s.re + (F)fma(a.re, b.re, -t_re), s.im + (F)fma(a.re, b.im, t_im)};
        return {s.re + (a.re * b.re - t_re), s.im + (a.re * b.im + t_im)};
    }
}

// Bits, except that any NaN matches any NaN: the sign and payload of a NaN
// depend on operand order, which the definitions leave open.
template <class F> bool same_real(F a, F b) { return (isnan(a) && isnan(b)) || memcmp(&a, &b, sizeof a) == 0; }
template <class T> bool same(T a, T b) {
    if constexpr (cx<T>) return same_real(a.re, b.re) && same_real(a.im, b.im);
    else return same_real(a, b);
}
template <class T> T cj(T a) {
    if constexpr (cx<T>) return {a.re, -a.im};
    else return a;
}

// ---- operands -----------------------------------------------------------------

uint32_t rng = 4242;
uint32_t next_u() { return rng = rng * 1664525u + 1013904223u; }
// Full mantissas and a spread of exponents: fused and separate steps differ.
double next_value() {
    next_u();
    return ((double)(rng >> 8) / (1 << 24) - 0.5) * ldexp(1.0, (int)(rng % 7) - 3);
}
template <class T> T value() {
    const double re = next_value();
    return make<T>(re, cx<T> ? next_value() : 0);
}

// A block of `len` elements starting `off` elements past a 64-byte boundary,
// guards of sentinels on both sides.
constexpr int guard = 4;
template <class E> struct block {
    std::vector<unsigned char> raw;
    E* p;
    int len;
    block(int n, int off) : raw((n + 2 * guard + off) * sizeof(E) + 64), len(n) {
        p = (E*)(((uintptr_t)raw.data() + 63) / 64 * 64) + off + guard;
    }
    E* all() { return p - guard; }
    int total() const { return len + 2 * guard; }
};

// A compressed vector over y of length m: nz values, nz one-based indices,
// distinct and unordered, or repeated (drawn from a few positions).
template <class T> struct sparse {
    int nz, m;
    block<T> x, y;
    block<int> ix;
    std::vector<T> x0, y0;
    sparse(int nz_, bool repeat, int xo, int io)
        : nz(nz_), m((nz_ > 0 ? 2 * nz_ : 0) + 9), x(nz_ > 0 ? nz_ : 0, xo), y(m, 0), ix(nz_ > 0 ? nz_ : 0, io) {
        for (int i = 0; i < x.total(); ++i) x.all()[i] = value<T>();
        for (int i = 0; i < y.total(); ++i) y.all()[i] = value<T>();
        for (int i = 0; i < ix.total(); ++i) ix.all()[i] = -7777;  // never a valid index
        std::vector<int> pos(m);
        for (int k = 0; k < m; ++k) pos[k] = k + 1;
        for (int k = m - 1; k > 0; --k) std::swap(pos[k], pos[next_u() % (k + 1)]);
        for (int i = 0; i < nz; ++i) ix.p[i] = repeat ? pos[next_u() % 3] : pos[i];
        x0.assign(x.all(), x.all() + x.total());
        y0.assign(y.all(), y.all() + y.total());
    }
    // Element k (one-based) of y in a copy of y's whole block.
    static T& at(std::vector<T>& w, int k) { return w[guard + k - 1]; }
    void expect_x(const std::vector<T>& want, const char* what) {
        for (int i = 0; i < x.total(); ++i)
            ASSERT_TRUE(same(x.all()[i], want[i])) << what << " nz=" << nz << " x element " << i - guard;
    }
    void expect_y(const std::vector<T>& want, const char* what) {
        for (int i = 0; i < y.total(); ++i)
            ASSERT_TRUE(same(y.all()[i], want[i])) << what << " nz=" << nz << " y element " << i - guard;
    }
};

const int sizes[] = {-3, 0, 1, 2, 3, 4, 5, 7, 8, 9, 12, 15, 16, 17, 19, 20, 23, 24, 31, 32, 33, 40, 47, 64, 67, 100};

template <class T> std::vector<T> alphas() {
    if constexpr (cx<T>)
        return {make<T>(0, 0), make<T>(-0.0, -0.0), make<T>(0, 1.5), make<T>(1.25, -0.375), make<T>(0, NAN)};
    else
        return {make<T>(0), make<T>(-0.0), make<T>(1.5), make<T>(-0.3125), make<T>(NAN)};
}

// ---- AXPYI ------------------------------------------------------------------------

template <class T> void axpyi_sweep() {
    auto f = zva_export<typename api<T>::axpyi>(routine<T>("AXPYI").c_str());
    for (T a : alphas<T>())
        for (int nz : sizes)
            for (bool rep : {false, true}) {
                sparse<T> v(nz, rep, nz & 3, 0);
                f(&nz, &a, v.x.p, v.ix.p, v.y.p);
                SCOPED_TRACE(testing::Message() << "alpha " << to_lc(a).re << "," << to_lc(a).im << " repeat " << rep);
                std::vector<T> w = v.y0;
                const bool zero = to_lc(a).re == 0 && to_lc(a).im == 0;  // NaN is not zero
                if (!zero)
                    for (int i = 0; i < nz; ++i) v.at(w, v.ix.p[i]) = madd(v.at(w, v.ix.p[i]), a, v.x.p[i]);
                v.expect_y(w, "AXPYI");
                v.expect_x(v.x0, "AXPYI");
            }
}

TEST(Sparse, Axpyi) {
    axpyi_sweep<float>();
    axpyi_sweep<double>();
    axpyi_sweep<cfloat>();
    axpyi_sweep<cdouble>();
}

// ---- DOTI, DOTUI, DOTCI -------------------------------------------------------------

// The kernels whose order is fixed: real on branches 2 to 4 (eight
// accumulators, then the rest from the top down), complex one element at a
// time (C on 2 to 4, Z on 2 to 5).
template <class T> bool dot_is_scalar() {
    const int br = branch();
    return cx<T> && sizeof(T) == 16 ? br <= 5 : br <= 4;
}

template <class T> T fixed_order_dot(const T* x, const int* ix, const T* y, int nz, bool conj) {
    if constexpr (cx<T>) {
        T s = make<T>(0, 0);
        for (int i = 0; i < nz; ++i) s = madd(s, conj ? cj(x[i]) : x[i], y[ix[i] - 1]);
        return s;
    } else {
        T a[8] = {};
        const int m = nz & ~7;
        for (int i = 0; i < m; ++i) a[i & 7] = a[i & 7] + x[i] * y[ix[i] - 1];
        T s = a[0];
        for (int k = 1; k < 8; ++k) s = s + a[k];
        for (int i = nz - 1; i >= m; --i) s = s + x[i] * y[ix[i] - 1];
        return s;
    }
}

template <class T> void dot_check(int nz, bool rep, int xo, int io, bool conj) {
    sparse<T> v(nz, rep, xo, io);
    T got;
    if constexpr (cx<T>) {
        auto f = zva_export<typename api<T>::cdoti>(routine<T>(conj ? "DOTCI" : "DOTUI").c_str());
        T slot = make<T>(NAN, NAN);
        ASSERT_EQ(f(&slot, &nz, v.x.p, v.ix.p, v.y.p), &slot);
        got = slot;
    } else {
        got = zva_export<typename api<T>::doti>(routine<T>("DOTI").c_str())(&nz, v.x.p, v.ix.p, v.y.p);
    }
    v.expect_x(v.x0, "DOTI");
    v.expect_y(v.y0, "DOTI");
    if (nz <= 0) {
        ASSERT_TRUE(same(got, make<T>(0, 0))) << "nz=" << nz;
        return;
    }
    if (dot_is_scalar<T>()) {
        ASSERT_TRUE(same(got, fixed_order_dot(v.x.p, v.ix.p, v.y.p - 0, nz, conj)))
            << "nz=" << nz << " xo=" << xo << " io=" << io;
        return;
    }
    lc exact = {0, 0};
    long double size = 0;
    for (int i = 0; i < nz; ++i) {
        lc p = mul(to_lc(conj ? cj(v.x.p[i]) : v.x.p[i]), to_lc(v.y.p[v.ix.p[i] - 1]));
        exact = add(exact, p);
        size += mag(to_lc(v.x.p[i])) * mag(to_lc(v.y.p[v.ix.p[i] - 1]));
    }
    const long double bound = (nz + 4) * ldexpl(1, sizeof(R<T>) == 4 ? -23 : -52) * size;
    lc g = to_lc(got);
    EXPECT_LE(fabsl(g.re - exact.re), bound) << "nz=" << nz << " xo=" << xo << " io=" << io;
    EXPECT_LE(fabsl(g.im - exact.im), bound) << "nz=" << nz << " xo=" << xo << " io=" << io;
}

// Every phase of x and of indx against the vector widths, so that each
// peel and each tail pass of the vector kernels runs.
template <class T> void dot_sweep(bool conj) {
    for (int nz : sizes)
        for (int xo = 0; xo < 4; ++xo)
            for (int io = 0; io < 8; ++io) dot_check<T>(nz, (nz + io) % 3 == 0, xo, io, conj);
    dot_check<T>(1000, false, 1, 3, conj);
}

TEST(Sparse, Doti) {
    dot_sweep<float>(false);
    dot_sweep<double>(false);
}
TEST(Sparse, DotuiDotci) {
    for (bool conj : {false, true}) {
        dot_sweep<cfloat>(conj);
        dot_sweep<cdouble>(conj);
    }
}

// ---- GTHR, GTHRZ, SCTR ----------------------------------------------------------------

template <class T> void move_sweep() {
    auto gthr = zva_export<typename api<T>::gthr>(routine<T>("GTHR").c_str());
    auto gthrz = zva_export<typename api<T>::gthrz>(routine<T>("GTHRZ").c_str());
    auto sctr = zva_export<typename api<T>::sctr>(routine<T>("SCTR").c_str());
    for (int nz : sizes)
        for (int xo = 0; xo < 8; ++xo)
            for (bool rep : {false, true}) {
                {  // GTHR: x takes y's values, y stays.
                    sparse<T> v(nz, rep, xo, 0);
                    gthr(&nz, v.y.p, v.x.p, v.ix.p);
                    std::vector<T> w = v.x0, yw = v.y0;
                    for (int i = 0; i < nz; ++i) w[guard + i] = v.at(yw, v.ix.p[i]);
                    v.expect_x(w, "GTHR");
                    v.expect_y(v.y0, "GTHR");
                }
                {  // GTHRZ: element by element, so a repeated index reads 0 the second time.
                    sparse<T> v(nz, rep, xo, 0);
                    gthrz(&nz, v.y.p, v.x.p, v.ix.p);
                    std::vector<T> w = v.x0, yw = v.y0;
                    for (int i = 0; i < nz; ++i) {
                        w[guard + i] = v.at(yw, v.ix.p[i]);
                        v.at(yw, v.ix.p[i]) = make<T>(0, 0);
                    }
                    v.expect_x(w, "GTHRZ");
                    v.expect_y(yw, "GTHRZ");
                }
                {  // SCTR: the last of a repeated index stays.
                    sparse<T> v(nz, rep, xo, 0);
                    sctr(&nz, v.x.p, v.ix.p, v.y.p);
                    std::vector<T> yw = v.y0;
                    for (int i = 0; i < nz; ++i) v.at(yw, v.ix.p[i]) = v.x.p[i];
                    v.expect_y(yw, "SCTR");
                    v.expect_x(v.x0, "SCTR");
                }
            }
}

TEST(Sparse, GthrGthrzSctr) {
    move_sweep<float>();
    move_sweep<double>();
    move_sweep<cfloat>();
    move_sweep<cdouble>();
}

// ---- ROTI ---------------------------------------------------------------------------------

template <class T> void roti_sweep() {
    auto f = zva_export<typename api<T>::roti>(routine<T>("ROTI").c_str());
    const T cs[][2] = {{1, 0}, {1, -0.0}, {0.6, 0.8}, {-0.28, 0.96}, {0, 1}, {NAN, 0}, {1, NAN}};
    for (auto& p : cs)
        for (int nz : sizes)
            for (bool rep : {false, true}) {
                sparse<T> v(nz, rep, nz & 3, 0);
                const T c = p[0], s = p[1];
                if (c == 1 && s == 0)  // the quick return leaves even NaNs alone
                    for (int i = 0; i < nz; ++i) v.x.p[i] = v.y.p[v.ix.p[i] - 1] = NAN;
                std::vector<T> xw(v.x.all(), v.x.all() + v.x.total()), yw(v.y.all(), v.y.all() + v.y.total());
                f(&nz, v.x.p, v.ix.p, v.y.p, &c, &s);
                if (!(c == 1 && s == 0))
                    for (int i = 0; i < nz; ++i) {
                        T& a = xw[guard + i];
                        T& b = v.at(yw, v.ix.p[i]);
                        const T a0 = a, b0 = b;
                        if (branch() == 7) {
                            a = fma(c, a0, s * b0);
                            b = fma(-s, a0, c * b0);
                        } else {
                            a = c * a0 + s * b0;
                            b = c * b0 - s * a0;
                        }
                    }
                v.expect_x(xw, "ROTI");
                v.expect_y(yw, "ROTI");
            }
}

TEST(Sparse, Roti) {
    roti_sweep<float>();
    roti_sweep<double>();
}

// The cases the definitions single out, spelled out.
TEST(Sparse, RepeatedIndexTwo) {
    const int two = 2, idx[2] = {2, 2};
    double y[3] = {9, 1, 9}, x[2] = {3, 5}, a = 2;
    zva_export<api<double>::axpyi>("DAXPYI")(&two, &a, x, idx, y);
    EXPECT_EQ(y[1], 1 + 2 * 3 + 2 * 5);
    zva_export<api<double>::sctr>("DSCTR")(&two, x, idx, y);
    EXPECT_EQ(y[1], 5);
    double g[2] = {-1, -1};
    zva_export<api<double>::gthrz>("DGTHRZ")(&two, y, g, idx);
    EXPECT_EQ(g[0], 5);
    EXPECT_EQ(g[1], 0);
    EXPECT_EQ(y[1], 0);
    EXPECT_EQ(y[0], 9);
    EXPECT_EQ(y[2], 9);
    const int first = 1;
    EXPECT_EQ(zva_export<api<double>::doti>("DDOTI")(&first, x, &first, y), 3 * 9);
}

}  // namespace
