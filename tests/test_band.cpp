// The band routines GBMV, SBMV/HBMV, TBMV and TBSV in the four types,
// through the exports, on the branch of this run, against references
// computed in long double from the published definitions. The kernels sum
// in orders of their own, so products are held to a rounding bound and
// solves to a residual bound and to a naive solve.
//
// Every operand sits among marks: NaNs in the lda padding, the unused
// corners of the band storage, the diagonal of a unit triangle and the
// imaginary part of a Hermitian diagonal; large finite values in the gaps of
// strided vectors and the guards around them. A kernel that reads one of
// them spoils its result; one that writes one changes its bits.
#include <math.h>
#include <string.h>

#include <limits>
#include <vector>

#include "zva.h"

namespace {

using std::vector;

template <class T> using gb_fn = void(ZVA_STDCALL*)(const char*, int, const int*, const int*, const int*,
                                                    const int*, const T*, const T*, const int*, const T*,
                                                    const int*, const T*, T*, const int*);
template <class T> using sb_fn = void(ZVA_STDCALL*)(const char*, int, const int*, const int*, const T*,
                                                    const T*, const int*, const T*, const int*, const T*, T*,
                                                    const int*);
template <class T> using tb_fn = void(ZVA_STDCALL*)(const char*, int, const char*, int, const char*, int,
                                                    const int*, const int*, const T*, const int*, T*,
                                                    const int*);

lcg rng{4242};

// A quiet NaN with a payload no arithmetic makes.
template <class T> T mark() {
    using R = typename elem<T>::R;
    R r;
    if constexpr (sizeof(R) == 4) {
        uint32_t b = 0x7FC0BA5Du;
        memcpy(&r, &b, 4);
    } else {
        uint64_t b = 0x7FF80000BA5D0000ull;
        memcpy(&r, &b, 8);
    }
    return make<T>(r, r);
}

// Vectors are marked with a large finite value instead: an update written
// into a gap changes it, where a NaN would keep its bits.
template <class T> T vmark() { return make<T>(0x1.2345p+20, -0x1.2345p+20); }

template <class T> lc lcv(const T& v) { return to_lc(v); }
inline bool nan_lc(lc v) { return isnan(v.re) || isnan(v.im); }

// A strided vector of n elements among marks.
template <class T> struct vec {
    static constexpr int guard = 4;
    int n, inc;
    vector<T> buf;
    vec(int n_, int inc_, int off) : n(n_), inc(inc_) {
        buf.assign(2 * guard + off + (n ? 1 + (n - 1) * abs(inc) : 0), vmark<T>());
        base = guard + off;
    }
    int base;
    T* ptr() { return buf.data() + base; }
    int pos(int i) const { return base + (inc > 0 ? i * inc : (n - 1 - i) * -inc); }
    T& at(int i) { return buf[pos(i)]; }
};

// Band storage with lda beyond the band, everything else marked.
// Element (i, j) of the matrix sits at row top + i - j of column j.
template <class T> struct band {
    int rows, cols, top, lda;
    vector<T> a;
    band(int band_rows, int cols_, int top_, int pad) : rows(band_rows), cols(cols_), top(top_) {
        lda = band_rows + pad;
        a.assign((size_t)lda * (cols ? cols : 1), mark<T>());
    }
    T& at(int i, int j) { return a[(size_t)j * lda + top + i - j]; }
};

using R80 = long double;
template <class T> R80 eps() { return std::numeric_limits<typename elem<T>::R>::epsilon(); }

// Holds a computed element to the reference: NaN where the reference is
// NaN, else within tol.
template <class T> void expect_near(const T& got, lc want, R80 tol, const char* what, int i) {
    lc g = lcv(got);
    if (nan_lc(want)) {
        ASSERT_TRUE(nan_lc(g)) << what << " element " << i << " should be NaN";
        return;
    }
    ASSERT_LE(fabsl(g.re - want.re) + fabsl(g.im - want.im), tol)
        << what << " element " << i << ": got " << (double)g.re << "," << (double)g.im << " want "
        << (double)want.re << "," << (double)want.im;
}

// Checks the vector after a call: logical elements by `check(i)`, the rest
// bit for bit against the copy taken before.
template <class T, class F>
void expect_vector(vec<T>& v, const vector<T>& before, const char* what, F&& check) {
    vector<bool> logical(v.buf.size(), false);
    for (int i = 0; i < v.n; ++i) {
        logical[v.pos(i)] = true;
        check(i);
        if (::testing::Test::HasFatalFailure()) return;
    }
    for (size_t p = 0; p < v.buf.size(); ++p) {
        if (logical[p]) continue;
        ASSERT_TRUE(same_bits(v.buf[p], before[p])) << what << ": mark " << p << " changed";
    }
}

// y := alpha*M*x + beta*y for a matrix given by get(i, j, value) -> stored?,
// rows of M within w of the diagonal, checked on y.
template <class T, class G>
void expect_product(G&& get, int rows, int cols, int w, T alpha, T beta, vec<T>& x, vec<T>& y,
                    const vector<T>& y0, const char* what) {
    const lc al = lcv(alpha), be = lcv(beta);
    const bool beta0 = be.re == 0 && be.im == 0;
    const bool quick = rows == 0 || cols == 0 || (al.re == 0 && al.im == 0 && be.re == 1 && be.im == 0);
    expect_vector(y, y0, what, [&](int i) {
        const T yi0 = y0[y.pos(i)];
        if (quick) {
            ASSERT_TRUE(same_bits(y.at(i), yi0)) << what << " element " << i << " changed";
            return;
        }
        lc s = {0, 0};
        R80 bound = 0;
        int terms = 0;
        if (al.re != 0 || al.im != 0)
            for (int j = i - w > 0 ? i - w : 0; j < cols && j <= i + w; ++j) {
                lc m;
                if (!get(i, j, m)) continue;
                const lc xv = lcv(x.at(j));
                s = add(s, mul(m, xv));
                bound += mag(m) * mag(xv);
                ++terms;
            }
        const lc by = beta0 ? lc{0, 0} : mul(be, lcv(yi0));
        const lc want = add(by, mul(al, s));
        const R80 tol = (terms + 6) * 4 * eps<T>() * (mag(al) * bound + (beta0 ? 0 : mag(be) * mag(lcv(yi0)))) + 1e-300L;
        expect_near(y.at(i), want, tol, what, i);
    });
}

// ---- GBMV ---------------------------------------------------------------------

template <class T> struct gb_case {
    const char* trans;
    int m, n, kl, ku;
    T alpha, beta;
    int incx, incy, off;
    bool nan_y;  // y holds NaN before the call (for beta = 0)
};

// Runs one GBMV case; `poke` may change A and x first (special values).
template <class T, class P> void gbmv_case(const gb_case<T>& c, P&& poke) {
    const char t = c.trans[0] & 0xDF;
    const bool nt = t == 'N', conj = elem<T>::cplx && t == 'C';
    const int lenx = nt ? c.n : c.m, leny = nt ? c.m : c.n;
    band<T> a(c.kl + c.ku + 1, c.n, c.ku, 1 + c.off);
    for (int j = 0; j < c.n; ++j)
        for (int i = j - c.ku > 0 ? j - c.ku : 0; i < c.m && i <= j + c.kl; ++i) a.at(i, j) = rng.value<T>();
    vec<T> x(lenx, c.incx, c.off), y(leny, c.incy, c.off);
    for (int i = 0; i < lenx; ++i) x.at(i) = rng.value<T>();
    for (int i = 0; i < leny; ++i) y.at(i) = c.nan_y ? make<T>(NAN, NAN) : rng.value<T>();
    poke(a, x);
    const vector<T> a0 = a.a, x0 = x.buf, y0 = y.buf;
    zva_export<gb_fn<T>>(routine<T>("GBMV").c_str())(c.trans, 1, &c.m, &c.n, &c.kl, &c.ku, &c.alpha,
                                                       a.a.data(), &a.lda, x.ptr(), &c.incx, &c.beta, y.ptr(),
                                                       &c.incy);
    ASSERT_EQ(0, memcmp(a.a.data(), a0.data(), a0.size() * sizeof(T))) << "A changed";
    ASSERT_EQ(0, memcmp(x.buf.data(), x0.data(), x0.size() * sizeof(T))) << "x changed";
    auto get = [&](int i, int j, lc& v) {
        const int r = nt ? i : j, col = nt ? j : i;  // element (r, col) of A
        if (r < col - c.ku || r > col + c.kl || r >= c.m || col >= c.n) return false;
        v = lcv(a0[(size_t)col * a.lda + c.ku + r - col]);
        if (conj) v.im = -v.im;
        return true;
    };
    char what[96];
    snprintf(what, sizeof what, "%s %s m=%d n=%d kl=%d ku=%d inc=%d,%d", routine<T>("GBMV").c_str(), c.trans,
             c.m, c.n, c.kl, c.ku, c.incx, c.incy);
    expect_product<T>(get, leny, lenx, c.kl > c.ku ? c.kl : c.ku, c.alpha, c.beta, x, y, y0, what);
}
template <class T> void gbmv_case(const gb_case<T>& c) {
    gbmv_case(c, [](band<T>&, vec<T>&) {});
}

const int incs[][2] = {{1, 1}, {2, -1}, {-2, 2}, {-1, -2}};

template <class T> void gbmv_sweep() {
    const T one = make<T>(1), half = make<T>(0.75, -0.5), b2 = make<T>(-0.5, 0.25), zero = make<T>(0);
    const int dims[][2] = {{1, 1}, {2, 3}, {5, 4}, {4, 5}, {3, 7}, {19, 17}, {40, 37}, {37, 40}};
    for (const char* tr : {"N", "T", "C", "t"})
        for (auto& d : dims) {
            const int m = d[0], n = d[1];
            const int bands[][2] = {{0, 0}, {1, 0}, {0, 2}, {2, 1}, {3, 7}, {21, 18}, {m - 1, n - 1}};
            for (auto& b : bands) {
                if (b[0] >= m + 2 || b[1] >= n + 2) continue;
                for (auto& inc : incs) {
                    const int off = (m + n + b[0]) & 1;
                    gbmv_case<T>({tr, m, n, b[0], b[1], half, b2, inc[0], inc[1], off, false});
                    gbmv_case<T>({tr, m, n, b[0], b[1], one, zero, inc[0], inc[1], 1 - off, true});
                }
                gbmv_case<T>({tr, m, n, b[0], b[1], one, one, 1, 1, 0, false});
            }
        }
    // A few hundred rows, band wider than one pass, both orientations.
    for (const char* tr : {"N", "T", "C"})
        for (auto& inc : incs) {
            gbmv_case<T>({tr, 300, 290, 41, 23, half, b2, inc[0], inc[1], 1, false});
            gbmv_case<T>({tr, 270, 300, 5, 66, half, one, inc[0], inc[1], 0, false});
        }
}

TEST(Gbmv, Single) { gbmv_sweep<float>(); }
TEST(Gbmv, Double) { gbmv_sweep<double>(); }
TEST(Gbmv, SingleComplex) { gbmv_sweep<cfloat>(); }
TEST(Gbmv, DoubleComplex) { gbmv_sweep<cdouble>(); }

// ---- SBMV and HBMV --------------------------------------------------------------

template <class T> struct sb_case {
    const char* uplo;
    int n, k;
    T alpha, beta;
    int incx, incy, off;
    bool nan_y;
};

template <class T, class P> void sbmv_case(const sb_case<T>& c, P&& poke) {
    const bool upper = (c.uplo[0] & 0xDF) == 'U', herm = elem<T>::cplx;
    band<T> a(c.k + 1, c.n, upper ? c.k : 0, 2 - c.off);
    for (int j = 0; j < c.n; ++j)
        for (int i = upper ? j - c.k : j; i <= (upper ? j : j + c.k); ++i)
            if (i >= 0 && i < c.n) {
                a.at(i, j) = rng.value<T>();
                // HBMV reads only the real part of the diagonal.
                if (herm && i == j) a.at(i, j) = make<T>(lcv(a.at(i, j)).re, NAN);
            }
    vec<T> x(c.n, c.incx, c.off), y(c.n, c.incy, c.off);
    for (int i = 0; i < c.n; ++i) x.at(i) = rng.value<T>();
    for (int i = 0; i < c.n; ++i) y.at(i) = c.nan_y ? make<T>(NAN, NAN) : rng.value<T>();
    poke(a, x);
    const vector<T> a0 = a.a, x0 = x.buf, y0 = y.buf;
    zva_export<sb_fn<T>>(routine<T>(herm ? "HBMV" : "SBMV").c_str())(c.uplo, 1, &c.n, &c.k, &c.alpha, a.a.data(),
                                                                     &a.lda, x.ptr(), &c.incx, &c.beta, y.ptr(),
                                                                     &c.incy);
    ASSERT_EQ(0, memcmp(a.a.data(), a0.data(), a0.size() * sizeof(T))) << "A changed";
    ASSERT_EQ(0, memcmp(x.buf.data(), x0.data(), x0.size() * sizeof(T))) << "x changed";
    auto get = [&](int i, int j, lc& v) {
        const bool stored = upper ? i <= j : i >= j;
        const int r = stored ? i : j, col = stored ? j : i;
        if (abs(i - j) > c.k) return false;
        v = lcv(a0[(size_t)col * a.lda + a.top + r - col]);
        if (herm && !stored) v.im = -v.im;
        if (herm && i == j) v.im = 0;
        return true;
    };
    char what[80];
    snprintf(what, sizeof what, "%s %s n=%d k=%d inc=%d,%d", routine<T>(herm ? "HBMV" : "SBMV").c_str(), c.uplo, c.n,
             c.k, c.incx, c.incy);
    expect_product<T>(get, c.n, c.n, c.k, c.alpha, c.beta, x, y, y0, what);
}
template <class T> void sbmv_case(const sb_case<T>& c) {
    sbmv_case(c, [](band<T>&, vec<T>&) {});
}

template <class T> void sbmv_sweep() {
    const T one = make<T>(1), half = make<T>(0.75, -0.5), b2 = make<T>(-0.5, 0.25), zero = make<T>(0);
    for (const char* uplo : {"U", "L", "u", "l"})
        for (int n : {1, 2, 3, 4, 5, 8, 17, 33, 40})
            for (int k : {0, 1, 2, 3, 18, n - 1, n + 2}) {
                if (k < 0 || (k >= n && k > 0 && k != n + 2)) continue;  // k past the matrix once
                for (auto& inc : incs) {
                    const int off = (n + k) & 1;
                    sbmv_case<T>({uplo, n, k, half, b2, inc[0], inc[1], off, false});
                    sbmv_case<T>({uplo, n, k, one, zero, inc[0], inc[1], 1 - off, true});
                }
            }
    for (const char* uplo : {"U", "L"})
        for (auto& inc : incs) sbmv_case<T>({uplo, 300, 45, half, b2, inc[0], inc[1], 1, false});
}

TEST(Sbmv, Single) { sbmv_sweep<float>(); }
TEST(Sbmv, Double) { sbmv_sweep<double>(); }
TEST(Hbmv, SingleComplex) { sbmv_sweep<cfloat>(); }
TEST(Hbmv, DoubleComplex) { sbmv_sweep<cdouble>(); }

// ---- TBMV and TBSV ----------------------------------------------------------------

template <class T> struct tb_case {
    const char *uplo, *trans, *diag;
    int n, k, incx, off;
};

// The triangle of a case: for a solve, off-diagonals scaled down by k + 1
// and a diagonal of 1 to 1.5 in size, so that the solve is well conditioned.
template <class T> band<T> triangle(const tb_case<T>& c, bool solve) {
    const bool upper = (c.uplo[0] & 0xDF) == 'U', unit = (c.diag[0] & 0xDF) == 'U';
    band<T> a(c.k + 1, c.n, upper ? c.k : 0, 1 + c.off);
    for (int j = 0; j < c.n; ++j)
        for (int i = upper ? j - c.k : j + 1; i <= (upper ? j - 1 : j + c.k); ++i)
            if (i >= 0 && i < c.n) {
                lc v = lcv(rng.value<T>());
                if (solve) v.re /= c.k + 1, v.im /= c.k + 1;
                a.at(i, j) = make<T>((double)v.re, (double)v.im);
            }
    for (int j = 0; j < c.n && !unit; ++j) {
        lc v = lcv(rng.value<T>());
        a.at(j, j) = solve ? make<T>(v.re < 0 ? -1 + v.re : 1 + v.re, (double)v.im) : make<T>((double)v.re, (double)v.im);
    }
    return a;
}

// Element (i, j) of op(A), conjugated for "C", 1 on a unit diagonal.
template <class T> bool tb_get(const tb_case<T>& c, const band<T>& a, const vector<T>& a0, int i, int j, lc& v) {
    const bool upper = (c.uplo[0] & 0xDF) == 'U', unit = (c.diag[0] & 0xDF) == 'U';
    const char t = c.trans[0] & 0xDF;
    const int r = t == 'N' ? i : j, col = t == 'N' ? j : i;
    if (upper ? (r > col || r < col - c.k) : (r < col || r > col + c.k)) return false;
    if (r == col && unit) {
        v = {1, 0};
        return true;
    }
    v = lcv(a0[(size_t)col * a.lda + a.top + r - col]);
    if (elem<T>::cplx && t == 'C') v.im = -v.im;
    return true;
}

template <class T, class P> void tbmv_case(const tb_case<T>& c, P&& poke) {
    band<T> a = triangle(c, false);
    vec<T> x(c.n, c.incx, c.off);
    for (int i = 0; i < c.n; ++i) x.at(i) = rng.value<T>();
    poke(a, x);
    const vector<T> a0 = a.a, x0 = x.buf;
    zva_export<tb_fn<T>>(routine<T>("TBMV").c_str())(c.uplo, 1, c.trans, 1, c.diag, 1, &c.n, &c.k, a.a.data(),
                                                     &a.lda, x.ptr(), &c.incx);
    ASSERT_EQ(0, memcmp(a.a.data(), a0.data(), a0.size() * sizeof(T))) << "A changed";
    vec<T> xin = x;
    xin.buf = x0;
    char what[80];
    snprintf(what, sizeof what, "%s %s%s%s n=%d k=%d incx=%d", routine<T>("TBMV").c_str(), c.uplo, c.trans, c.diag,
             c.n, c.k, c.incx);
    auto get = [&](int i, int j, lc& v) { return tb_get(c, a, a0, i, j, v); };
    // x := op(A)*x is y := 1*op(A)*x_before + 0*y.
    expect_product<T>(get, c.n, c.n, c.k, make<T>(1), make<T>(0), xin, x, x0, what);
}
template <class T> void tbmv_case(const tb_case<T>& c) {
    tbmv_case(c, [](band<T>&, vec<T>&) {});
}

// A solve: residual of op(A)*x = b, and x against a naive solve.
template <class T> void tbsv_case(const tb_case<T>& c) {
    band<T> a = triangle(c, true);
    vec<T> x(c.n, c.incx, c.off);
    for (int i = 0; i < c.n; ++i) x.at(i) = rng.value<T>();
    const vector<T> a0 = a.a, x0 = x.buf;
    zva_export<tb_fn<T>>(routine<T>("TBSV").c_str())(c.uplo, 1, c.trans, 1, c.diag, 1, &c.n, &c.k, a.a.data(),
                                                     &a.lda, x.ptr(), &c.incx);
    ASSERT_EQ(0, memcmp(a.a.data(), a0.data(), a0.size() * sizeof(T))) << "A changed";
    char what[80];
    snprintf(what, sizeof what, "%s %s%s%s n=%d k=%d incx=%d", routine<T>("TBSV").c_str(), c.uplo, c.trans, c.diag,
             c.n, c.k, c.incx);
    auto get = [&](int i, int j, lc& v) { return tb_get(c, a, a0, i, j, v); };
    // Naive solve: op(A) is upper triangular when (upper) == (not transposed).
    const bool up = ((c.uplo[0] & 0xDF) == 'U') == ((c.trans[0] & 0xDF) == 'N');
    vector<lc> ref(c.n);
    R80 big = 0;
    for (int q = 0; q < c.n; ++q) {
        const int i = up ? c.n - 1 - q : q;
        lc s = lcv(x0[x.pos(i)]), d = {1, 0};
        for (int j = i - c.k > 0 ? i - c.k : 0; j < c.n && j <= i + c.k; ++j) {
            lc m;
            if (j == i || !get(i, j, m)) continue;
            lc p = mul(m, ref[j]);
            s = {s.re - p.re, s.im - p.im};
        }
        get(i, i, d);
        const R80 den = d.re * d.re + d.im * d.im;
        ref[i] = {(s.re * d.re + s.im * d.im) / den, (s.im * d.re - s.re * d.im) / den};
        if (mag(ref[i]) > big) big = mag(ref[i]);
    }
    expect_vector(x, x0, what, [&](int i) {
        lc r = {-lcv(x0[x.pos(i)]).re, -lcv(x0[x.pos(i)]).im};
        R80 bound = mag(lcv(x0[x.pos(i)]));
        for (int j = i - c.k > 0 ? i - c.k : 0; j < c.n && j <= i + c.k; ++j) {
            lc m;
            if (!get(i, j, m)) continue;
            r = add(r, mul(m, lcv(x.at(j))));
            bound += mag(m) * mag(lcv(x.at(j)));
        }
        ASSERT_LE(mag(r), (c.k + 4) * 8 * eps<T>() * bound) << what << " residual of row " << i;
        expect_near(x.at(i), ref[i], 64 * (c.k + 4) * eps<T>() * big, what, i);
    });
}

template <class T> void tb_sweep(bool solve) {
    for (const char* uplo : {"U", "L"})
        for (const char* tr : {"N", "T", "C", "n", "c"})
            for (const char* dg : {"N", "U", "u"})
                for (int n : {1, 2, 3, 4, 5, 8, 17, 34, 40})
                    for (int k : {0, 1, 2, 3, 19, n - 1, n + 2}) {
                        if (k < 0 || (k >= n && k > 0 && k != n + 2)) continue;
                        for (int inc : {1, 2, -1, -2}) {
                            const tb_case<T> c{uplo, tr, dg, n, k, inc, (n + k + inc) & 1};
                            if (solve) tbsv_case(c);
                            else tbmv_case(c);
                        }
                    }
    for (const char* uplo : {"U", "L"})
        for (const char* tr : {"N", "T", "C"})
            for (int inc : {1, -2}) {
                const tb_case<T> c{uplo, tr, "N", 300, 41, inc, 1};
                if (solve) tbsv_case(c);
                else tbmv_case(c);
            }
}

TEST(Tbmv, Single) { tb_sweep<float>(false); }
TEST(Tbmv, Double) { tb_sweep<double>(false); }
TEST(Tbmv, SingleComplex) { tb_sweep<cfloat>(false); }
TEST(Tbmv, DoubleComplex) { tb_sweep<cdouble>(false); }
TEST(Tbsv, Single) { tb_sweep<float>(true); }
TEST(Tbsv, Double) { tb_sweep<double>(true); }
TEST(Tbsv, SingleComplex) { tb_sweep<cfloat>(true); }
TEST(Tbsv, DoubleComplex) { tb_sweep<cdouble>(true); }

// Complex triangles on branches 4 to 7 go column by column through the
// level-1 kernels for some shapes; these sizes sit on either side of each
// switch (CTBMV, CTBSV at 500; ZTBMV at 128 and, upper untransposed, 900;
// ZTBSV, lower untransposed, at 400).
TEST(Tb, ComplexBodies) {
    for (const char* tr : {"N", "T", "C"})
        for (const char* uplo : {"U", "L"})
            for (int inc : {1, -2}) {
                for (int n : {499, 500}) {
                    tbmv_case<cfloat>({uplo, tr, "N", n, 3, inc, 0});
                    tbsv_case<cfloat>({uplo, tr, "U", n, 3, inc, 1});
                }
                for (int n : {127, 128, 899, 900}) tbmv_case<cdouble>({uplo, tr, "N", n, 2, inc, 1});
                for (int n : {399, 400}) tbsv_case<cdouble>({uplo, tr, "N", n, 4, inc, 0});
            }
}

// ---- what a caller can see of the zero rules ----------------------------------------

// m or n of 0: nothing, not even beta. alpha = 0 with beta = 1: nothing.
// alpha = 0: y scaled by beta, A and x (all NaN) not read.
TEST(Band, ScalarEdges) {
    auto gb = zva_export<gb_fn<double>>("DGBMV");
    auto sb = zva_export<sb_fn<cdouble>>("ZHBMV");
    const int m = 9, n = 7, kl = 2, ku = 3, lda = 6, one = 1, zero_n = 0;
    vector<double> a(lda * n, NAN), x(9, NAN), y(9);
    const double zero = 0, two = 2, onev = 1;
    for (int i = 0; i < 9; ++i) y[i] = i + 1;
    gb("N", 1, &m, &zero_n, &kl, &ku, &onev, a.data(), &lda, x.data(), &one, &two, y.data(), &one);
    gb("N", 1, &zero_n, &n, &kl, &ku, &onev, a.data(), &lda, x.data(), &one, &two, y.data(), &one);
    gb("T", 1, &m, &n, &kl, &ku, &zero, a.data(), &lda, x.data(), &one, &onev, y.data(), &one);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(y[i], i + 1.0);
    gb("T", 1, &m, &n, &kl, &ku, &zero, a.data(), &lda, x.data(), &one, &two, y.data(), &one);
    for (int i = 0; i < 7; ++i) EXPECT_EQ(y[i], 2.0 * (i + 1));
    for (int i = 7; i < 9; ++i) EXPECT_EQ(y[i], i + 1.0);
    gb("N", 1, &m, &n, &kl, &ku, &zero, a.data(), &lda, x.data(), &one, &zero, y.data(), &one);
    for (int i = 0; i < 9; ++i) EXPECT_TRUE(same_bits(y[i], 0.0));
    vector<cdouble> ca(4 * n, {NAN, NAN}), cx(n, {NAN, NAN}), cy(n, {NAN, NAN});
    const cdouble czero = {0, 0};
    const int k = 3, clda = 4;
    sb("L", 1, &n, &k, &czero, ca.data(), &clda, cx.data(), &one, &czero, cy.data(), &one);
    for (auto& v : cy) EXPECT_TRUE(v.re == 0 && v.im == 0);
}

// A NaN in x meets a zero of the band, and a zero x meets an infinity:
// both give NaN wherever the definition multiplies them (x[j] = 0 is not
// skipped). Outside the band they leave y alone.
template <class T> void zero_times_special() {
    const T half = make<T>(0.5, 0.25), one = make<T>(1);
    for (const char* tr : {"N", "T"})
        for (auto& inc : incs) {
            gbmv_case<T>({tr, 11, 9, 2, 3, half, one, inc[0], inc[1], 0, false}, [&](band<T>& a, vec<T>& x) {
                x.at(4) = make<T>(NAN, NAN);
                for (int j = 0; j < a.cols; ++j)
                    for (int i = j - 3 > 0 ? j - 3 : 0; i <= j + 2 && i < 11; ++i)
                        if (i == 4 || j == 4) a.at(i, j) = make<T>(0);
                x.at(1) = make<T>(0);
                a.at(tr[0] == 'N' ? 2 : 1, tr[0] == 'N' ? 1 : 2) = make<T>(INFINITY);
            });
        }
    for (auto& inc : incs)
        sbmv_case<T>({"U", 12, 2, half, one, inc[0], inc[1], 1, false}, [](band<T>& a, vec<T>& x) {
            x.at(5) = x.at(6) = make<T>(0);  // the infinity meets zeros only
            a.at(5, 6) = make<T>(INFINITY);
            x.at(9) = make<T>(NAN);
            a.at(8, 9) = a.at(7, 9) = a.at(9, 10) = make<T>(0);
        });
    for (const char* tr : {"N", "T"})
        for (const char* uplo : {"U", "L"})
            for (int inc : {1, -2})
                tbmv_case<T>({uplo, tr, "N", 10, 2, inc, 0}, [&](band<T>& a, vec<T>& x) {
                    x.at(5) = make<T>(0);
                    const bool up = uplo[0] == 'U', nt = tr[0] == 'N';
                    // an off-diagonal element in column 5 of op(A)
                    if (up == nt) a.at(nt ? 4 : 5, nt ? 5 : 4) = make<T>(INFINITY);
                    else a.at(nt ? 6 : 5, nt ? 5 : 6) = make<T>(INFINITY);
                });
}
TEST(Band, ZeroTimesSpecialDouble) { zero_times_special<double>(); }
TEST(Band, ZeroTimesSpecialSingle) { zero_times_special<float>(); }
TEST(Band, ZeroTimesSpecialSingleComplex) { zero_times_special<cfloat>(); }
TEST(Band, ZeroTimesSpecialDoubleComplex) { zero_times_special<cdouble>(); }

// DTBSV divides by the diagonal without looking at x: a zero diagonal
// with x(j) = 0 gives NaN there, with x(j) != 0 infinity.
TEST(Band, SolveByZeroDiagonal) {
    auto tb = zva_export<tb_fn<double>>("DTBSV");
    for (const char* tr : {"N", "T"})
        for (int inc : {1, -1}) {
            const int n = 4, k = 1, lda = 2;
            const double a[8] = {NAN, 2, 0.5, 0, 0.5, 2, 0.5, 2};  // upper, a(1, 1) = 0
            const int p1 = inc > 0 ? 1 : 2;                          // where x(1) lies
            double x[4] = {0, 0, 0, 0};
            tb("U", 1, tr, 1, "N", 1, &n, &k, a, &lda, x, &inc);
            EXPECT_TRUE(isnan(x[p1])) << tr << inc;
            double y[4] = {0, 0, 0, 0};
            y[p1] = 3;
            tb("U", 1, tr, 1, "N", 1, &n, &k, a, &lda, y, &inc);
            EXPECT_TRUE(isinf(y[p1])) << tr << inc;
        }
}

}  // namespace
