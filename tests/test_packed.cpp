// The packed routines (SPMV, HPMV, SPR, HPR, SPR2, HPR2, TPMV, TPSV) in the
// four types through the exports, on the branch of this run, against naive
// references in long double. The kernels add in orders of their own, so
// values are held to a rounding bound; what must not change (guards around
// the packed array, the gaps of strided vectors, skipped columns) is checked
// bit for bit.
#include <math.h>
#include <string.h>

#include <limits>
#include <vector>

#include "zva.h"

namespace {

lcg rng{4242};

template <class T> using R = typename elem<T>::R;
template <class T> long double eps() { return std::numeric_limits<R<T>>::epsilon(); }

template <class T> using spmv_fn = void(ZVA_STDCALL*)(const char*, int, const int*, const T*, const T*, const T*,
                                                      const int*, const T*, T*, const int*);
template <class T, class A> using spr_fn = void(ZVA_STDCALL*)(const char*, int, const int*, const A*, const T*,
                                                              const int*, T*);
template <class T> using spr2_fn = void(ZVA_STDCALL*)(const char*, int, const int*, const T*, const T*, const int*,
                                                      const T*, const int*, T*);
template <class T> using tpmv_fn = void(ZVA_STDCALL*)(const char*, int, const char*, int, const char*, int,
                                                      const int*, const T*, T*, const int*);

// A guarded array: `count` elements `off` elements past a 64-byte boundary,
// with `guard` elements on each side; everything random, and kept as it was
// for the references and for the bit checks afterwards.
template <class T>
struct guarded {
    static constexpr int guard = 6;
    std::vector<unsigned char> raw;
    std::vector<T> was;
    T* base = nullptr;
    T* init(int count, int off = 0) {
        const int total = count + 2 * guard;
        raw.assign(total * sizeof(T) + 128, 0);
        base = (T*)(((uintptr_t)raw.data() + 63) / 64 * 64 + off * sizeof(T));
        for (int i = 0; i < total; ++i) base[i] = rng.value<T>();
        was.assign(base, base + total);
        return base + guard;
    }
    void keep() { was.assign(base, base + was.size()); }  // after the caller's own changes
    T old(long k) const { return was[guard + k]; }
    // Every element but those `out` marks as outputs is as it was.
    ::testing::AssertionResult untouched(const std::vector<bool>& out, const char* what) const {
        for (size_t i = 0; i < was.size(); ++i) {
            long k = (long)i - guard;
            bool is_out = k >= 0 && k < (long)out.size() && out[k];
            if (!is_out && !same_bits(base[i], was[i]))
                return ::testing::AssertionFailure() << what << " element " << k << " changed";
        }
        return ::testing::AssertionSuccess();
    }
};

// A strided vector of n elements in a guarded array: logical element k.
struct strided {
    int n, inc;
    int span() const { return n ? 1 + (n - 1) * abs(inc) : 0; }
    long at(int k) const { return (inc >= 0 ? 0 : (long)(1 - n) * inc) + (long)k * inc; }
    std::vector<bool> marks() const {
        std::vector<bool> m(span(), false);
        for (int k = 0; k < n; ++k) m[at(k)] = true;
        return m;
    }
};

// Packed offset of stored element (i, j).
long pidx(bool upper, int n, int i, int j) {
    return upper ? i + (long)j * (j + 1) / 2 : (i - j) + (long)j * (2 * n - j + 1) / 2;
}
bool stored(bool upper, int i, int j) { return upper ? i <= j : i >= j; }

// got within tol of want, or NaN where want is NaN.
template <class T>
::testing::AssertionResult near(T got, lc want, long double tol) {
    lc g = to_lc(got);
    if (isnan((double)want.re) || isnan((double)want.im)) {
        if (isnan((double)g.re) || isnan((double)g.im)) return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "NaN expected";
    }
    long double d = fabsl(g.re - want.re) + fabsl(g.im - want.im);
    if (d <= tol) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "got (" << (double)g.re << ", " << (double)g.im << ") want ("
                                         << (double)want.re << ", " << (double)want.im << ") off by " << (double)d
                                         << " > " << (double)tol;
}

const int sizes[] = {0, 1, 2, 3, 4, 5, 8, 9, 31, 32, 33};
const int incs[][2] = {{1, 1}, {2, -1}, {-1, 2}, {-2, -2}};
const char* const uplos[] = {"U", "L", "u", "l"};

// ---- SPMV, HPMV ----------------------------------------------------------------

// The symmetric or Hermitian matrix behind a packed triangle: the Hermitian
// diagonal is real, whatever its stored imaginary part.
template <class T> lc sym_at(const guarded<T>& a, bool upper, int n, int i, int j) {
    if (!stored(upper, i, j)) {
        lc v = to_lc(a.old(pidx(upper, n, j, i)));
        return elem<T>::cplx ? conj(v) : v;
    }
    lc v = to_lc(a.old(pidx(upper, n, i, j)));
    if (i == j) v.im = 0;
    return v;
}

template <class T>
void check_spmv(const char* uplo, int n, T alpha, T beta, int incx, int incy, int off, bool nan_y = false) {
    bool upper = uplo[0] == 'U' || uplo[0] == 'u';
    strided sx{n, incx}, sy{n, incy};
    guarded<T> ga, gx, gy;
    T* ap = ga.init(n * (n + 1) / 2, off);
    T* x = gx.init(sx.span(), off);
    T* y = gy.init(sy.span(), (off + 1) % 4);
    if (nan_y) {
        for (int k = 0; k < n; ++k) y[sy.at(k)] = make<T>(NAN, NAN);
        gy.keep();
    }
    zva_export<spmv_fn<T>>(routine<T>(elem<T>::cplx ? "HPMV" : "SPMV").c_str())(uplo, 1, &n, &alpha, ap, x, &incx,
                                                                              &beta, y, &incy);
    ASSERT_TRUE(ga.untouched({}, "ap"));
    ASSERT_TRUE(gx.untouched({}, "x"));
    lc al = to_lc(alpha), be = to_lc(beta);
    bool a0 = al.re == 0 && al.im == 0, b1 = be.re == 1 && be.im == 0, b0 = be.re == 0 && be.im == 0;
    if (n == 0 || (a0 && b1)) {
        ASSERT_TRUE(gy.untouched({}, "y"));  // nothing read, nothing written
        return;
    }
    ASSERT_TRUE(gy.untouched(sy.marks(), "y"));
    for (int i = 0; i < n; ++i) {
        lc s = {0, 0};
        long double bound = 0;
        if (!a0)
            for (int k = 0; k < n; ++k) {
                lc av = sym_at(ga, upper, n, i, k), xv = to_lc(gx.old(sx.at(k)));
                s = add(s, mul(av, xv));
                bound += mag(av) * mag(xv);
            }
        lc yo = to_lc(gy.old(sy.at(i)));
        lc want = add(mul(al, s), b0 ? lc{0, 0} : mul(be, yo));
        long double tol = (n + 4) * 4 * eps<T>() * (mag(al) * bound + (b0 ? 0 : mag(be) * mag(yo))) + 1e-35L;
        ASSERT_TRUE(near(y[sy.at(i)], want, tol)) << uplo << " n=" << n << " incx=" << incx << " incy=" << incy
                                                  << " row " << i;
    }
}

template <class T> void spmv_sweep() {
    const T alphas[] = {make<T>(1), make<T>(-0.75, 0.5), make<T>(0), make<T>(0.5, -1)};
    const T betas[] = {make<T>(0), make<T>(1), make<T>(0.25, 0.5), make<T>(2, 0)};
    for (const char* u : uplos)
        for (int n : sizes)
            for (auto& inc : incs)
                for (int c = 0; c < 4; ++c) check_spmv<T>(u, n, alphas[c], betas[c], inc[0], inc[1], n % 4);
    for (const char* u : {"U", "L"})
        for (int c : {0, 1}) check_spmv<T>(u, 257, make<T>(0.5, 0.25), make<T>(-1), incs[c][0], incs[c][1], 1);
}

// ---- SPR, HPR, SPR2, HPR2 -------------------------------------------------------

// x has zeros at some places, so that columns are skipped.
template <class T> void some_zeros(T* x, const strided& s) {
    for (int k = 0; k < s.n; k += 3) x[s.at(k)] = make<T>(0);
}

template <class T, bool Two>
void check_rank(const char* uplo, int n, T alpha, int incx, int incy, int off) {
    using A = std::conditional_t<Two, T, R<T>>;
    bool upper = uplo[0] == 'U' || uplo[0] == 'u';
    strided sx{n, incx}, sy{n, incy};
    guarded<T> ga, gx, gy;
    T* ap = ga.init(n * (n + 1) / 2, off);
    T* x = gx.init(sx.span(), (off + 3) % 4);
    T* y = gy.init(sy.span(), off);
    some_zeros(x, sx);
    gx.keep();
    for (int k = 0; k < n; k += 6) y[sy.at(k)] = make<T>(0);  // both zero at 0, 6, 12, ...
    gy.keep();
    A a;
    if constexpr (Two) a = alpha;
    else a = to_lc(alpha).re;
    if constexpr (Two)
        zva_export<spr2_fn<T>>(routine<T>(elem<T>::cplx ? "HPR2" : "SPR2").c_str())(uplo, 1, &n, &a, x, &incx, y,
                                                                                   &incy, ap);
    else
        zva_export<spr_fn<T, A>>(routine<T>(elem<T>::cplx ? "HPR" : "SPR").c_str())(uplo, 1, &n, &a, x, &incx, ap);
    ASSERT_TRUE(gx.untouched({}, "x"));
    ASSERT_TRUE(gy.untouched({}, "y"));
    lc al = to_lc(a);
    if (n == 0 || (al.re == 0 && al.im == 0)) {
        ASSERT_TRUE(ga.untouched({}, "ap"));
        return;
    }
    std::vector<bool> out(n * (n + 1) / 2, true);
    ASSERT_TRUE(ga.untouched(out, "ap"));
    for (int j = 0; j < n; ++j) {
        lc xj = to_lc(gx.old(sx.at(j))), yj = Two ? to_lc(gy.old(sy.at(j))) : xj;
        bool skip = mag(xj) == 0 && mag(yj) == 0;
        for (int i = 0; i < n; ++i) {
            if (!stored(upper, i, j)) continue;
            long p = pidx(upper, n, i, j);
            lc old = to_lc(ga.old(p));
            T got = ap[p];
            if (skip) {  // the column is not touched; a Hermitian diagonal loses its imaginary part
                T want = ga.old(p);
                if constexpr (elem<T>::cplx)
                    if (i == j) want.im = 0;
                ASSERT_TRUE(same_bits(got, want)) << uplo << " n=" << n << " skipped column " << j << " row " << i;
                continue;
            }
            lc xi = to_lc(gx.old(sx.at(i))), yi = Two ? to_lc(gy.old(sy.at(i))) : xi;
            // alpha*x_i*conj(y_j) + conj(alpha)*y_i*conj(x_j) (SPR: once, real alpha)
            lc t = mul(mul(al, xi), conj(yj));
            lc want = add(old, Two ? add(t, mul(mul(conj(al), yi), conj(xj))) : t);
            long double bound = mag(old) + 2 * mag(al) * (mag(xi) * mag(yj) + mag(yi) * mag(xj));
            if (elem<T>::cplx && i == j) {
                want.im = 0;
                ASSERT_EQ(to_lc(got).im, 0) << "diagonal " << j;
            }
            ASSERT_TRUE(near(got, want, 8 * eps<T>() * bound)) << uplo << " n=" << n << " incx=" << incx
                                                               << " incy=" << incy << " (" << i << ", " << j << ")";
        }
    }
}

template <class T, bool Two> void rank_sweep() {
    const T alphas[] = {make<T>(1), make<T>(-0.75, 0.5), make<T>(0)};
    for (const char* u : uplos)
        for (int n : sizes)
            for (auto& inc : incs)
                for (const T& al : alphas) check_rank<T, Two>(u, n, al, inc[0], inc[1], n % 4);
    for (const char* u : {"U", "L"})
        for (int c : {0, 3}) check_rank<T, Two>(u, 200, make<T>(0.5, 0.5), incs[c][0], incs[c][1], 2);
}

// ---- TPMV, TPSV -------------------------------------------------------------------

// op(A)(i, k) of a packed triangle: unit diagonal as 1.
template <class T>
lc op_at(const guarded<T>& a, bool upper, int n, char tr, bool unit, int i, int k) {
    if (tr != 'N') std::swap(i, k);
    if (!stored(upper, i, k)) return {0, 0};
    if (i == k && unit) return {1, 0};
    lc v = to_lc(a.old(pidx(upper, n, i, k)));
    return tr == 'C' ? conj(v) : v;
}

// Off-diagonal entries scaled by 1/n and a diagonal of size 1 to 2: well
// conditioned for the solve, whatever the size.
template <class T> void well_conditioned(T* ap, bool upper, int n) {
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < n; ++i) {
            if (!stored(upper, i, j)) continue;
            T& e = ap[pidx(upper, n, i, j)];
            lc v = to_lc(e);
            if (i == j) v.re += v.re < 0 ? -1 : 1;
            else v = {v.re / n, v.im / n};
            e = make<T>((double)v.re, (double)v.im);
        }
}

template <class T, bool Solve>
void check_tri(const char* uplo, const char* trans, const char* diag, int n, int incx, int off) {
    bool upper = uplo[0] == 'U' || uplo[0] == 'u', unit = diag[0] == 'U' || diag[0] == 'u';
    char tr = trans[0] & 0xDF;
    if (!elem<T>::cplx && tr == 'C') tr = 'T';
    strided sx{n, incx};
    guarded<T> ga, gx;
    T* ap = ga.init(n * (n + 1) / 2, off);
    T* x = gx.init(sx.span(), (off + 2) % 4);
    well_conditioned(ap, upper, n);
    ga.keep();
    zva_export<tpmv_fn<T>>(routine<T>(Solve ? "TPSV" : "TPMV").c_str())(uplo, 1, trans, 1, diag, 1, &n, ap, x, &incx);
    ASSERT_TRUE(ga.untouched({}, "ap"));
    ASSERT_TRUE(gx.untouched(sx.marks(), "x"));
    const long double tol_unit = (n + 4) * 8 * eps<T>();
    if (!Solve) {
        for (int i = 0; i < n; ++i) {
            lc s = {0, 0};
            long double bound = 0;
            for (int k = 0; k < n; ++k) {
                lc av = op_at(ga, upper, n, tr, unit, i, k), xv = to_lc(gx.old(sx.at(k)));
                s = add(s, mul(av, xv));
                bound += mag(av) * mag(xv);
            }
            ASSERT_TRUE(near(x[sx.at(i)], s, tol_unit * bound + 1e-35L))
                << uplo << trans << diag << " n=" << n << " incx=" << incx << " row " << i;
        }
        return;
    }
    // The residual op(A)*x - b, and the naive solve in long double.
    std::vector<lc> ref(n);
    bool fwd = upper == (tr != 'N');
    for (int q = 0; q < n; ++q) {
        int i = fwd ? q : n - 1 - q;
        lc v = to_lc(gx.old(sx.at(i)));
        for (int k = 0; k < n; ++k)
            if (k != i) {
                lc av = op_at(ga, upper, n, tr, unit, i, k);
                if (mag(av) != 0) v = add(v, mul({-av.re, -av.im}, ref[k]));
            }
        lc d = op_at(ga, upper, n, tr, unit, i, i);
        long double den = d.re * d.re + d.im * d.im;
        ref[i] = {(v.re * d.re + v.im * d.im) / den, (v.im * d.re - v.re * d.im) / den};
    }
    for (int i = 0; i < n; ++i) {
        lc r = to_lc(gx.old(sx.at(i)));
        r = {-r.re, -r.im};
        long double bound = mag(r);
        for (int k = 0; k < n; ++k) {
            lc av = op_at(ga, upper, n, tr, unit, i, k), xv = to_lc(x[sx.at(k)]);
            r = add(r, mul(av, xv));
            bound += mag(av) * mag(xv);
        }
        ASSERT_LE(mag(r), tol_unit * bound) << uplo << trans << diag << " n=" << n << " residual of row " << i;
        ASSERT_TRUE(near(x[sx.at(i)], ref[i], 4 * tol_unit * (mag(ref[i]) + 1)))
            << uplo << trans << diag << " n=" << n << " incx=" << incx << " row " << i;
    }
}

template <class T, bool Solve> void tri_sweep() {
    const char* trans[] = {"N", "T", "C"};
    for (const char* u : {"U", "L"})
        for (const char* t : trans)
            for (const char* d : {"N", "U"}) {
                for (int n : sizes)
                    for (auto& inc : incs) check_tri<T, Solve>(u, t, d, n, inc[0], n % 4);
                if (t[0] != 'C' && d[0] == 'N') check_tri<T, Solve>(u, t, d, 203, 1, 1);
            }
    for (int inc : {1, -2}) check_tri<T, Solve>("l", "c", "n", 150, inc, 3);
    check_tri<T, Solve>("u", "t", "u", 33, -2, 0);
}

}  // namespace

TEST(Packed, SymmetricProductSingle) { spmv_sweep<float>(); }
TEST(Packed, SymmetricProductDouble) { spmv_sweep<double>(); }
TEST(Packed, HermitianProductSingle) { spmv_sweep<cfloat>(); }
TEST(Packed, HermitianProductDouble) { spmv_sweep<cdouble>(); }
TEST(Packed, RankOne) {
    rank_sweep<float, false>();
    rank_sweep<double, false>();
    rank_sweep<cfloat, false>();
    rank_sweep<cdouble, false>();
}
TEST(Packed, RankTwo) {
    rank_sweep<float, true>();
    rank_sweep<double, true>();
    rank_sweep<cfloat, true>();
    rank_sweep<cdouble, true>();
}
TEST(Packed, TriangularProduct) {
    tri_sweep<float, false>();
    tri_sweep<double, false>();
    tri_sweep<cfloat, false>();
    tri_sweep<cdouble, false>();
}
TEST(Packed, TriangularSolve) {
    tri_sweep<float, true>();
    tri_sweep<double, true>();
    tri_sweep<cfloat, true>();
    tri_sweep<cdouble, true>();
}

// beta = 0 writes y without reading it; alpha = 0 never reads x or ap.
TEST(Packed, ProductScalingRules) {
    for (int n : {3, 12, 13, 40}) {
        check_spmv<double>("U", n, 1.0, 0.0, 1, 1, 1, true);
        check_spmv<cfloat>("L", n, make<cfloat>(1, 1), make<cfloat>(0), -2, 2, 0, true);
        check_spmv<float>("L", n, 2.0f, 0.0f, 1, 3, 2, true);
    }
    auto f = zva_export<spmv_fn<double>>("DSPMV");
    int n = 20, one = 1;
    std::vector<double> ap(210, NAN), x(20, NAN), y(20);
    double zero = 0, two = 2, onev = 1;
    for (int i = 0; i < 20; ++i) y[i] = i;
    f("U", 1, &n, &zero, ap.data(), x.data(), &one, &two, y.data(), &one);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(y[i], 2.0 * i);
    f("L", 1, &n, &zero, ap.data(), x.data(), &one, &onev, y.data(), &one);
    for (int i = 0; i < 20; ++i) EXPECT_EQ(y[i], 2.0 * i);
}

// The products test no x(j) for zero: an infinity in column j meets a zero
// x(j) and gives NaN. The updates skip such a column, as the reference does.
TEST(Packed, ZeroRules) {
    int n = 6, one = 1;
    double onev = 1, zero = 0;
    std::vector<double> ap(21, 0.5), x(6, 1.0), y(6, 0.0);
    x[2] = 0;
    ap[pidx(true, n, 0, 2)] = INFINITY;  // column 2, row 0
    zva_export<spmv_fn<double>>("DSPMV")("U", 1, &n, &onev, ap.data(), x.data(), &one, &zero, y.data(), &one);
    EXPECT_TRUE(isnan(y[2]) || isinf(y[2]));
    EXPECT_TRUE(isnan(y[0]));

    // DTPSV: a zero diagonal meeting a zero x(j) gives NaN at x(j).
    std::vector<double> tp(21, 0.25);
    tp[pidx(true, n, 5, 5)] = 0;  // solved first
    for (double& v : x) v = 1;
    x[5] = 0;
    auto tpsv = zva_export<tpmv_fn<double>>("DTPSV");
    tpsv("U", 1, "N", 1, "N", 1, &n, tp.data(), x.data(), &one);
    EXPECT_TRUE(isnan(x[5]));

    // DSPR: x(j) = 0 next to an infinity leaves column j as it was (0 * inf
    // would give NaN); x all zero leaves all of ap.
    std::vector<double> a2(21, -0.0), x2(6, 0.0);
    x2[4] = INFINITY;
    zva_export<spr_fn<double, double>>("DSPR")("L", 1, &n, &onev, x2.data(), &one, a2.data());
    for (int j = 0; j < n; ++j)
        for (int i = j; i < n; ++i)
            if (j != 4) {
                EXPECT_TRUE(same_bits(a2[pidx(false, n, i, j)], -0.0)) << i << ", " << j;
            }
    std::vector<double> a3(21, -0.0), x3(6, 0.0);
    zva_export<spr_fn<double, double>>("DSPR")("U", 1, &n, &onev, x3.data(), &one, a3.data());
    for (double v : a3) EXPECT_TRUE(same_bits(v, -0.0));

    // DSPR2: x(j) = 0 with y(j) != 0 updates the column; both zero skip it.
    std::vector<double> a4(21, -0.0), x4(6, 0.0), y4(6, 0.0);
    y4[1] = 2;
    x4[5] = INFINITY;
    zva_export<spr2_fn<double>>("DSPR2")("U", 1, &n, &onev, x4.data(), &one, y4.data(), &one, a4.data());
    EXPECT_TRUE(isnan(a4[pidx(true, n, 5, 5)]));  // inf*0 + 0*inf
    EXPECT_TRUE(same_bits(a4[pidx(true, n, 0, 2)], -0.0));
    EXPECT_TRUE(same_bits(a4[pidx(true, n, 1, 1)], 0.0));  // -0 + 0*2 + 0*0: updated, sign lost

    // CHPR: x(j) = 0 clears the imaginary part of diagonal j, nothing else.
    std::vector<cfloat> c(21, cfloat{0.5f, 0.25f}), cx(6, cfloat{1, -1});
    cx[3] = {0, 0};
    float fone = 1;
    zva_export<spr_fn<cfloat, float>>("CHPR")("U", 1, &n, &fone, cx.data(), &one, c.data());
    EXPECT_TRUE(same_bits(c[pidx(true, n, 3, 3)], cfloat{0.5f, 0}));
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(same_bits(c[pidx(true, n, i, 3)], cfloat{0.5f, 0.25f}));
    // A zero alpha returns before anything, diagonal included.
    std::vector<cfloat> c2(21, cfloat{0.5f, 0.25f});
    float fzero = 0;
    zva_export<spr_fn<cfloat, float>>("CHPR")("L", 1, &n, &fzero, cx.data(), &one, c2.data());
    for (cfloat v : c2) EXPECT_TRUE(same_bits(v, cfloat{0.5f, 0.25f}));

    // n = 1: DTPMV multiplies by ap(0) when nounit, leaves x when unit.
    int n1 = 1;
    double a1 = 3, x1 = 2;
    auto tpmv = zva_export<tpmv_fn<double>>("DTPMV");
    tpmv("U", 1, "N", 1, "N", 1, &n1, &a1, &x1, &one);
    EXPECT_EQ(x1, 6);
    tpmv("L", 1, "T", 1, "U", 1, &n1, &a1, &x1, &one);
    EXPECT_EQ(x1, 6);
}
