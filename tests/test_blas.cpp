// The companion libzva_blas.so.3, linked as an ordinary program links a
// BLAS: Fortran entries with hidden lengths, the C interface in both
// layouts, and the way a rejected argument reaches the program's own
// xerbla_ and cblas_xerbla.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <string>
#include <vector>

#include "blas/cblas.h"

struct cf { float re, im; };
struct cd { double re, im; };
using L = size_t;  // gfortran's hidden length

extern "C" {
void daxpy_(const int*, const double*, const double*, const int*, double*, const int*);
void dgemm_(const char*, const char*, const int*, const int*, const int*, const double*, const double*,
            const int*, const double*, const int*, const double*, double*, const int*, L, L);
void cgemv_(const char*, const int*, const int*, const cf*, const cf*, const int*, const cf*, const int*,
            const cf*, cf*, const int*, L);
void zgemm_(const char*, const char*, const int*, const int*, const int*, const cd*, const cd*,
            const int*, const cd*, const int*, const cd*, cd*, const int*, L, L);
extern int RowMajorStrg;
}

// The program's own reporters, as the reference test programs install them.
namespace {
std::string f77_name;
int f77_info = 0, f77_calls = 0;
std::string c_name;
int c_info = 0, c_calls = 0, c_row = -1;
}  // namespace
// Default visibility: the tree compiles with hidden symbols, and a reporter the
// library cannot see would not replace its own.
extern "C" __attribute__((visibility("default"))) void xerbla_(const char* name, const int* info, size_t len) {
    f77_name.assign(name, len);
    f77_info = *info;
    ++f77_calls;
}
extern "C" __attribute__((visibility("default"))) void cblas_xerbla(CBLAS_INT p, const char* rout, const char*, ...) {
    c_name = rout;
    c_info = p;
    c_row = RowMajorStrg;
    ++c_calls;
}

namespace {

double lcg_next(unsigned& s) {
    s = s * 1664525u + 1013904223u;
    return (double)(s >> 8) / (1 << 24) - 0.5;
}
template <class T> std::vector<T> values(int n, unsigned seed) {
    std::vector<T> v(n);
    for (T& x : v) x = lcg_next(seed);
    return v;
}

// C = alpha op(A) op(B) + beta C on column-major arrays, in long double.
// op: 'N', 'T', or 'C' (conjugate: complex only, im parts at odd offsets).
template <class E>
void ref_gemm(bool cplx, char ta, char tb, int m, int n, int k, const E* al, const E* a, int lda,
              const E* b, int ldb, const E* be, E* c, int ldc) {
    const int w = cplx ? 2 : 1;
    auto at = [&](const E* x, int ld, char t, int i, int j, long double& re, long double& im) {
        const E* p = t == 'N' ? x + w * (i + (long)j * ld) : x + w * (j + (long)i * ld);
        re = p[0];
        im = cplx ? (t == 'C' ? -p[1] : p[1]) : 0;
    };
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < m; ++i) {
            long double sr = 0, si = 0;
            for (int l = 0; l < k; ++l) {
                long double ar, ai, br, bi;
                at(a, lda, ta, i, l, ar, ai);
                at(b, ldb, tb, l, j, br, bi);
                sr += ar * br - ai * bi;
                si += ar * bi + ai * br;
            }
            E* cp = c + w * (i + (long)j * ldc);
            const long double cr = cp[0], ci = cplx ? cp[1] : 0;
            const long double alr = al[0], ali = cplx ? al[1] : 0, ber = be[0], bei = cplx ? be[1] : 0;
            cp[0] = (E)(alr * sr - ali * si + ber * cr - bei * ci);
            if (cplx) cp[1] = (E)(alr * si + ali * sr + ber * ci + bei * cr);
        }
}

template <class E> void expect_near(const std::vector<E>& got, const std::vector<E>& want, double tol) {
    ASSERT_EQ(got.size(), want.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], want[i], tol) << "at " << i;
}

// Row-major m x n from column-major: element (i, j) at i * ld + j.
template <class E> std::vector<E> to_rows(const std::vector<E>& col, int rows, int cols, int w) {
    std::vector<E> r(col.size());
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j)
            for (int q = 0; q < w; ++q) r[w * (i * cols + j) + q] = col[w * (i + j * rows) + q];
    return r;
}

TEST(Fortran, DaxpyAndDgemmWithHiddenLengths) {
    const int n = 7, one = 1;
    const double alpha = 1.5;
    std::vector<double> x = values<double>(n, 1), y = values<double>(n, 2), want = y;
    for (int i = 0; i < n; ++i) want[i] += alpha * x[i];
    daxpy_(&n, &alpha, x.data(), &one, y.data(), &one);
    expect_near(y, want, 1e-15);

    // "Transpose" with its length 9 is T; "No" with length 2 is N.
    const int m = 5, nn = 4, k = 6;
    const double al = 0.75, be = -1.25;
    std::vector<double> a = values<double>(k * m, 3), b = values<double>(k * nn, 4), c = values<double>(m * nn, 5);
    std::vector<double> ref = c;
    ref_gemm<double>(false, 'T', 'N', m, nn, k, &al, a.data(), k, b.data(), k, &be, ref.data(), m);
    dgemm_("Transpose", "No", &m, &nn, &k, &al, a.data(), &k, b.data(), &k, &be, c.data(), &m, 9, 2);
    expect_near(c, ref, 1e-13);
}

TEST(Fortran, CgemvAndZgemmComplex) {
    const int m = 4, n = 3, inc = 1, lda = 5;
    const cf al = {0.5f, -1.0f}, be = {0.25f, 0.5f};
    std::vector<float> a = values<float>(2 * lda * n, 6), x = values<float>(2 * m, 7), y = values<float>(2 * n, 8);
    // y = alpha A^H x + beta y, written out.
    std::vector<float> want = y;
    for (int j = 0; j < n; ++j) {
        long double sr = 0, si = 0;
        for (int i = 0; i < m; ++i) {
            const long double ar = a[2 * (i + j * lda)], ai = -a[2 * (i + j * lda) + 1];
            sr += ar * x[2 * i] - ai * x[2 * i + 1];
            si += ar * x[2 * i + 1] + ai * x[2 * i];
        }
        const long double yr = y[2 * j], yi = y[2 * j + 1];
        want[2 * j] = (float)(al.re * sr - al.im * si + be.re * yr - be.im * yi);
        want[2 * j + 1] = (float)(al.re * si + al.im * sr + be.re * yi + be.im * yr);
    }
    cgemv_("Conjugate", &m, &n, &al, (const cf*)a.data(), &lda, (const cf*)x.data(), &inc, &be, (cf*)y.data(),
           &inc, 9);
    expect_near(y, want, 1e-5);

    const int mm = 3, nn = 5, k = 4;
    const cd zal = {1.0, 0.5}, zbe = {-0.5, 0.25};
    std::vector<double> za = values<double>(2 * k * mm, 9), zb = values<double>(2 * nn * k, 10),
                        zc = values<double>(2 * mm * nn, 11);
    std::vector<double> ref = zc;
    ref_gemm<double>(true, 'C', 'T', mm, nn, k, &zal.re, za.data(), k, zb.data(), nn, &zbe.re, ref.data(), mm);
    zgemm_("c", "t", &mm, &nn, &k, &zal, (const cd*)za.data(), &k, (const cd*)zb.data(), &nn, &zbe,
           (cd*)zc.data(), &mm, 1, 1);
    expect_near(zc, ref, 1e-13);
}

// GEMM and GEMV in both layouts, every transposition, against the reference.
TEST(Cblas, GemmBothLayouts) {
    const int m = 5, n = 3, k = 4;
    const CBLAS_TRANSPOSE ts[] = {CblasNoTrans, CblasTrans, CblasConjTrans};
    const char letters[] = {'N', 'T', 'C'};
    for (int row = 0; row < 2; ++row)
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) {
                const char ta = letters[i], tb = letters[j];
                const int ar = ta == 'N' ? m : k, ac = ta == 'N' ? k : m;  // stored A: ar x ac
                const int br = tb == 'N' ? k : n, bc = tb == 'N' ? n : k;
                std::vector<double> a = values<double>(2 * ar * ac, 20 + i), b = values<double>(2 * br * bc, 30 + j),
                                    c = values<double>(2 * m * n, 40);
                // Reference on column-major copies.
                std::vector<double> ref = c;
                const double al[2] = {0.5, -0.75}, be[2] = {1.25, 0.5};
                ref_gemm<double>(false, ta == 'C' ? 'T' : ta, tb == 'C' ? 'T' : tb, m, n, k, al, a.data(), ar,
                                 b.data(), br, be, ref.data(), m);
                std::vector<double> zref = c;
                ref_gemm<double>(true, ta, tb, m, n, k, al, a.data(), ar, b.data(), br, be, zref.data(), m);
                const CBLAS_LAYOUT lay = row ? CblasRowMajor : CblasColMajor;
                auto in = [&](const std::vector<double>& v, int r, int cc, int w) {
                    return row ? to_rows(v, r, cc, w) : v;
                };
                std::vector<double> ra = in(a, ar, ac, 1), rb = in(b, br, bc, 1), rc = in(c, m, n, 1);
                cblas_dgemm(lay, ts[i], ts[j], m, n, k, al[0], ra.data(), row ? ac : ar, rb.data(), row ? bc : br,
                            be[0], rc.data(), row ? n : m);
                expect_near(rc, in(ref, m, n, 1), 1e-13);
                std::vector<double> za = in(a, ar, ac, 2), zb = in(b, br, bc, 2), zc = in(c, m, n, 2);
                cblas_zgemm(lay, ts[i], ts[j], m, n, k, al, za.data(), row ? ac : ar, zb.data(), row ? bc : br, be,
                            zc.data(), row ? n : m);
                expect_near(zc, in(zref, m, n, 2), 1e-13);
            }
}

TEST(Cblas, GemvBothLayouts) {
    const int m = 6, n = 4;
    const CBLAS_TRANSPOSE ts[] = {CblasNoTrans, CblasTrans, CblasConjTrans};
    for (int row = 0; row < 2; ++row)
        for (int t = 0; t < 3; ++t)
            for (int inc : {1, -2}) {
                const char tl = "NTC"[t];
                const int lx = tl == 'N' ? n : m, ly = tl == 'N' ? m : n, ai = inc < 0 ? -inc : inc;
                std::vector<float> a = values<float>(2 * m * n, 50 + t), x = values<float>(2 * lx * ai, 60),
                                   y = values<float>(2 * ly * ai, 70);
                const float al[2] = {0.75f, 0.25f}, be[2] = {-0.5f, 1.0f};
                // GEMV as a GEMM with one column, on the vectors' logical order.
                auto gather = [&](const std::vector<float>& v, int len) {
                    std::vector<float> g(2 * len);
                    for (int e = 0; e < len; ++e) {
                        const int at = inc > 0 ? e * ai : (len - 1 - e) * ai;
                        g[2 * e] = v[2 * at];
                        g[2 * e + 1] = v[2 * at + 1];
                    }
                    return g;
                };
                std::vector<float> gx = gather(x, lx), gy = gather(y, ly);
                std::vector<float> want = gy;
                ref_gemm<float>(true, tl, 'N', ly, 1, lx, al, a.data(), m, gx.data(), lx, be, want.data(), ly);
                std::vector<float> ra = row ? to_rows(a, m, n, 2) : a;
                cblas_cgemv(row ? CblasRowMajor : CblasColMajor, ts[t], m, n, al, ra.data(), row ? n : m, x.data(),
                            inc, be, y.data(), inc);
                expect_near(gather(y, ly), want, 1e-5);
                // The input vector is left as it was, bit for bit.
                EXPECT_EQ(0, memcmp(gather(x, lx).data(), gx.data(), gx.size() * sizeof(float)));

                std::vector<float> rx(lx), ry = values<float>(ly, 80), rwant = ry;
                for (int e = 0; e < lx; ++e) rx[e] = x[2 * e];
                std::vector<float> real_a(m * n);
                for (int e = 0; e < m * n; ++e) real_a[e] = a[2 * e];
                const float ral = al[0], rbe = be[0];
                ref_gemm<float>(false, tl == 'C' ? 'T' : tl, 'N', ly, 1, lx, &ral, real_a.data(), m, rx.data(), lx,
                                &rbe, rwant.data(), ly);
                std::vector<float> rra = row ? to_rows(real_a, m, n, 1) : real_a;
                cblas_sgemv(row ? CblasRowMajor : CblasColMajor, ts[t], m, n, ral, rra.data(), row ? n : m, rx.data(),
                            1, rbe, ry.data(), 1);
                expect_near(ry, rwant, 1e-5);
            }
}

// zva prints its own message; the program's xerbla_ then hears the same
// routine and parameter.
TEST(Errors, FortranReachesProgramXerbla) {
    const int m = 2, n = -1, k = 2, ld = 2;
    const double al = 1, be = 0;
    double a[4] = {}, b[4] = {}, c[4] = {7, 7, 7, 7};
    f77_calls = 0;
    dgemm_("N", "N", &m, &n, &k, &al, a, &ld, b, &ld, &be, c, &ld, 1, 1);
    EXPECT_EQ(f77_calls, 1);
    EXPECT_EQ(f77_name, "DGEMM ");
    EXPECT_EQ(f77_info, 4);
    dgemm_("X", "N", &m, &n, &k, &al, a, &ld, b, &ld, &be, c, &ld, 1, 1);
    EXPECT_EQ(f77_info, 1);
    const int neg = -3;
    dgemm_("N", "N", &neg, &m, &k, &al, a, &ld, b, &ld, &be, c, &ld, 1, 1);
    EXPECT_EQ(f77_info, 3);
    EXPECT_EQ(f77_calls, 3);
    for (double v : c) EXPECT_EQ(v, 7);
    // A good call reports nothing.
    dgemm_("N", "N", &m, &m, &k, &al, a, &ld, b, &ld, &be, c, &ld, 1, 1);
    EXPECT_EQ(f77_calls, 3);
}

// The C interface: its own options go straight to cblas_xerbla; faults that
// zva finds go through xerbla_, which here belongs to the program and so
// records them as the reference test programs do.
TEST(Errors, CblasReachesCblasXerbla) {
    double a[4] = {}, b[4] = {}, c[4] = {};
    c_calls = 0;
    cblas_dgemm((CBLAS_LAYOUT)7, CblasNoTrans, CblasNoTrans, 2, 2, 2, 1, a, 2, b, 2, 0, c, 2);
    EXPECT_EQ(c_calls, 1);
    EXPECT_EQ(c_name, "cblas_dgemm");
    EXPECT_EQ(c_info, 1);
    cblas_dgemm(CblasRowMajor, (CBLAS_TRANSPOSE)0, CblasNoTrans, 2, 2, 2, 1, a, 2, b, 2, 0, c, 2);
    EXPECT_EQ(c_info, 2);
    EXPECT_EQ(c_row, 1);
    cblas_dgemm(CblasColMajor, CblasNoTrans, (CBLAS_TRANSPOSE)0, 2, 2, 2, 1, a, 2, b, 2, 0, c, 2);
    EXPECT_EQ(c_info, 3);
    EXPECT_EQ(c_calls, 3);
    // M < 0: zva's DGEMM rejects its parameter 3 (column-major) or 4 (row-major,
    // where M is DGEMM's N).
    f77_calls = 0;
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, -1, 2, 2, 1, a, 2, b, 2, 0, c, 2);
    EXPECT_EQ(f77_calls, 1);
    EXPECT_EQ(f77_name, "DGEMM ");
    EXPECT_EQ(f77_info, 3);
    cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, -1, 2, 2, 1, a, 2, b, 2, 0, c, 2);
    EXPECT_EQ(f77_info, 4);
    EXPECT_EQ(RowMajorStrg, 0);  // set only during the report
}

}  // namespace

#include <ctype.h>
#include <dlfcn.h>

#include "frame/routines.h"

namespace {
// Every row of the routine table has its Fortran name.
TEST(Fortran, AllNamesExported) {
    const char* names[] = {
#define ZVA_TEST_NAME(N, ...) #N,
        ZVA_ROUTINES(ZVA_TEST_NAME)
#undef ZVA_TEST_NAME
    };
    int found = 0;
    for (const char* n : names) {
        std::string f;
        for (const char* c = n; *c; ++c) f += (char)tolower((unsigned char)*c);
        f += '_';
        if (dlsym(RTLD_DEFAULT, f.c_str())) ++found;
        else ADD_FAILURE() << f << " is not exported";
    }
    EXPECT_EQ(found, 174);
}
}  // namespace
