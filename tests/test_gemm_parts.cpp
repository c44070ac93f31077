// The plain multiply and the scaling of C of every branch, called directly
// (they sit below the multiply engine and have no export of their own).
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <limits>
#include <type_traits>
#include <vector>

#include "gemm/kernels.h"

namespace {

using zva::c32;
using zva::c64;

template <class T> struct parts {
    using direct_fn = void (*)(const char*, const char*, const int*, const int*, const int*,
                               const T*, const T*, const int*, const T*, const int*, const T*, T*,
                               const int*);
    using scale_fn = void (*)(const int*, const int*, const T*, T*, const int*);
};
#define ZVA_BRANCHES(X, p) {X::b2::p, X::b3::p, X::b4::p, X::b5::p, X::b6::p, X::b7::p}
template <class T> struct table;
template <> struct table<float> {
    static constexpr parts<float>::direct_fn direct[6] = ZVA_BRANCHES(zva, gemm_direct<float>);
    static constexpr parts<float>::scale_fn scale[6] = ZVA_BRANCHES(zva, gemm_scale_c<float>);
};
template <> struct table<double> {
    static constexpr parts<double>::direct_fn direct[6] = ZVA_BRANCHES(zva, gemm_direct<double>);
    static constexpr parts<double>::scale_fn scale[6] = ZVA_BRANCHES(zva, gemm_scale_c<double>);
};
template <> struct table<c32> {
    static constexpr parts<c32>::direct_fn direct[6] = ZVA_BRANCHES(zva, gemm_direct<c32>);
    static constexpr parts<c32>::scale_fn scale[6] = ZVA_BRANCHES(zva, gemm_scale_c<c32>);
};
template <> struct table<c64> {
    static constexpr parts<c64>::direct_fn direct[6] = ZVA_BRANCHES(zva, gemm_direct<c64>);
    static constexpr parts<c64>::scale_fn scale[6] = ZVA_BRANCHES(zva, gemm_scale_c<c64>);
};

template <class T> constexpr bool cplx = std::is_class_v<T>;
template <class T> struct real_of { using type = T; };
template <> struct real_of<c32> { using type = float; };
template <> struct real_of<c64> { using type = double; };
template <class T> using real_t = typename real_of<T>::type;

struct lc { long double re, im; };
template <class T> lc L(T v) {
    if constexpr (cplx<T>) return {v.re, v.im};
    else return {v, 0};
}
template <class T> T make(double re, double im) {
    if constexpr (cplx<T>) return {(real_t<T>)re, (real_t<T>)im};
    else return (T)re;
}
lc mul(lc a, lc b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }

uint32_t rng = 99;
double rnd() {
    rng = rng * 1664525u + 1013904223u;
    return (double)(rng >> 8) / (1 << 24) - 0.5;
}

// C := alpha*op(A)*op(B) + beta*C for one branch against long double, with
// the padding of every leading dimension checked untouched.
template <class T>
void check_direct(int branch, const char* ta, const char* tb, int m, int n, int k, T alpha, T beta) {
    auto op = [](const char* t) { return t[0] == 'N' || t[0] == 'n' ? 0 : (t[0] == 'T' || t[0] == 't') ? 1 : 2; };
    int oa = op(ta), ob = op(tb);
    int ra = oa ? k : m, ca = oa ? m : k, rb = ob ? n : k, cb = ob ? k : n;
    int lda = (ra > 1 ? ra : 1) + 2, ldb = (rb > 1 ? rb : 1) + 1, ldc = (m > 1 ? m : 1) + 3;
    std::vector<T> a((size_t)lda * (ca ? ca : 1)), b((size_t)ldb * (cb ? cb : 1)),
        c((size_t)ldc * (n ? n : 1));
    for (auto& v : a) v = make<T>(rnd(), rnd());
    for (auto& v : b) v = make<T>(rnd(), rnd());
    for (auto& v : c) v = make<T>(rnd(), rnd());
    std::vector<T> c0 = c;
    table<T>::direct[branch - 2](ta, tb, &m, &n, &k, &alpha, a.data(), &lda, b.data(), &ldb, &beta,
                                 c.data(), &ldc);
    lc al = L(alpha), be = L(beta);
    bool beta0 = be.re == 0 && be.im == 0;
    for (int j = 0; j < (n ? n : 1); ++j)
        for (int i = 0; i < ldc; ++i) {
            size_t at = (size_t)j * ldc + i;
            if (i >= m || j >= n) {
                ASSERT_EQ(0, memcmp(&c[at], &c0[at], sizeof(T))) << "padding written";
                continue;
            }
            lc s = {0, 0};
            long double bound = 0;
            for (int l = 0; l < k; ++l) {
                lc av = L(oa ? a[(size_t)i * lda + l] : a[(size_t)l * lda + i]);
                lc bv = L(ob ? b[(size_t)l * ldb + j] : b[(size_t)j * ldb + l]);
                if (oa == 2) av.im = -av.im;
                if (ob == 2) bv.im = -bv.im;
                lc p = mul(av, bv);
                s.re += p.re, s.im += p.im;
                bound += (fabsl(av.re) + fabsl(av.im)) * (fabsl(bv.re) + fabsl(bv.im));
            }
            lc as = mul(al, s), bc = beta0 ? lc{0, 0} : mul(be, L(c0[at]));
            lc want = {as.re + bc.re, as.im + bc.im};
            lc got = L(c[at]);
            long double eps = std::numeric_limits<real_t<T>>::epsilon();
            long double tol = 4 * (k + 4) * eps *
                              ((fabsl(al.re) + fabsl(al.im)) * bound +
                               (beta0 ? 0 : (fabsl(be.re) + fabsl(be.im)) * (fabsl(L(c0[at]).re) + fabsl(L(c0[at]).im))) + 1e-30L);
            ASSERT_LE(fabsl(got.re - want.re) + fabsl(got.im - want.im), tol)
                << "branch " << branch << " " << ta << tb << " m=" << m << " n=" << n << " k=" << k
                << " at (" << i << "," << j << ")";
        }
}

template <class T> void sweep_direct() {
    const int dims[] = {0, 1, 2, 3, 5, 8, 9, 17};
    const char* letters[] = {"N", "t", "C"};
    for (int branch = 2; branch <= 7; ++branch)
        for (const char* ta : letters)
            for (const char* tb : letters)
                for (int m : dims)
                    for (int n : {1, 3, 6})
                        for (int k : dims) {
                            check_direct<T>(branch, ta, tb, m, n, k, make<T>(1.5, -0.5), make<T>(0, 0));
                            check_direct<T>(branch, ta, tb, m, n, k, make<T>(-1, 0), make<T>(0.5, 0.25));
                        }
}

// beta = 0 writes zeros without reading C; other values scale in place;
// nothing outside the block moves.
template <class T> void sweep_scale() {
    for (int branch = 2; branch <= 7; ++branch)
        for (int m : {0, 1, 3, 4, 7, 8, 13, 33})
            for (int n : {0, 1, 2, 5, 9}) {
                int ldc = m + 3;
                std::vector<T> c((size_t)ldc * (n ? n : 1));
                for (auto& v : c) v = make<T>(rnd(), rnd());
                c[0] = make<T>(NAN, INFINITY);
                std::vector<T> c0 = c;
                T zero = make<T>(0, 0);
                table<T>::scale[branch - 2](&m, &n, &zero, c.data(), &ldc);
                for (int j = 0; j < n; ++j)
                    for (int i = 0; i < ldc; ++i) {
                        size_t at = (size_t)j * ldc + i;
                        if (i < m) {
                            ASSERT_EQ(L(c[at]).re, 0) << "branch " << branch;
                            ASSERT_EQ(L(c[at]).im, 0) << "branch " << branch;
                        } else {
                            ASSERT_EQ(0, memcmp(&c[at], &c0[at], sizeof(T)));
                        }
                    }
                c = c0;
                T beta = make<T>(-0.5, 0.75);
                table<T>::scale[branch - 2](&m, &n, &beta, c.data(), &ldc);
                for (int j = 0; j < n; ++j)
                    for (int i = 0; i < m; ++i) {
                        size_t at = (size_t)j * ldc + i;
                        lc want = mul(L(beta), L(c0[at]));
                        if (isnan((double)want.re) || isnan((double)want.im)) continue;
                        long double tol = 4 * std::numeric_limits<real_t<T>>::epsilon() *
                                          (fabsl(want.re) + fabsl(want.im) + 1);
                        ASSERT_LE(fabsl(L(c[at]).re - want.re) + fabsl(L(c[at]).im - want.im), tol);
                    }
            }
}

}  // namespace

TEST(GemmDirect, Single) { sweep_direct<float>(); }
TEST(GemmDirect, Double) { sweep_direct<double>(); }
TEST(GemmDirect, SingleComplex) { sweep_direct<c32>(); }
TEST(GemmDirect, DoubleComplex) { sweep_direct<c64>(); }
TEST(GemmScaleC, AllTypes) {
    sweep_scale<float>();
    sweep_scale<double>();
    sweep_scale<c32>();
    sweep_scale<c64>();
}
