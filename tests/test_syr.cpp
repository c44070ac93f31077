// SYR, HER, SYR2 and HER2 through the exports, on the branch of this run,
// against a reference in long double that follows the published zero tests:
// a column whose x(j) (and y(j)) is zero is left alone, apart from the
// imaginary part of the Hermitian diagonal, which becomes 0.  Those columns,
// the other triangle and the rows past n must keep their bits; the elements
// updated are held to a rounding bound.
#include <math.h>
#include <omp.h>
#include <string.h>

#include <limits>
#include <vector>

#include "zva.h"

namespace {

template <class T, class A> using syr_fn = void(ZVA_STDCALL*)(const char*, int, const int*, const A*, const T*,
                                                             const int*, T*, const int*);
template <class T> using syr2_fn = void(ZVA_STDCALL*)(const char*, int, const int*, const T*, const T*,
                                                      const int*, const T*, const int*, T*, const int*);

lcg rng{2718};

lc conj_if(lc v, bool c) { return c ? conj(v) : v; }

template <class T> T* place(std::vector<unsigned char>& buf, size_t count, int off) {
    buf.assign(count * sizeof(T) + 128, 0);
    return (T*)(((uintptr_t)buf.data() + 63) / 64 * 64 + off);
}

// A strided vector with NaN between its elements and around it; the
// logical elements from values (or random ones).
template <class T> struct strided {
    std::vector<unsigned char> buf;
    T* base;
    int n, inc;
    static constexpr int guard = 3;
    strided(int n_, int inc_, int off, const std::vector<T>& v) : n(n_), inc(inc_) {
        const int span = n ? 1 + (n - 1) * abs(inc) : 0;
        base = place<T>(buf, span + 2 * guard, off);
        for (int i = 0; i < span + 2 * guard; ++i) base[i] = make<T>(NAN, NAN);
        for (int i = 0; i < n; ++i) at(i) = i < (int)v.size() ? v[i] : rng.value<T>();
    }
    T* first() { return base + guard; }
    T& at(int i) { return base[guard + (inc > 0 ? 0 : (long long)(1 - n) * inc) + (long long)i * inc]; }
};

// One call of SYR/HER (two = false) or SYR2/HER2, then the whole of A and x,
// y compared.  xs, ys give the first logical elements (the rest random).
template <class T, bool two>
void check(const char* uplo, int n, T alpha, int incx, int incy, int lda_extra, int off,
           const std::vector<T>& xs = {}, const std::vector<T>& ys = {}) {
    using R = typename elem<T>::R;
    const bool up = uplo[0] == 'U' || uplo[0] == 'u', herm = elem<T>::cplx;
    const int lda = (n > 1 ? n : 1) + lda_extra;
    std::vector<unsigned char> ab;
    T* a = place<T>(ab, (size_t)lda * (n ? n : 1), off);
    for (size_t i = 0; i < (size_t)lda * (n ? n : 1); ++i) a[i] = rng.value<T>();
    strided<T> x(n, incx, off, xs), y(two ? n : 0, incy, off, ys);
    const std::vector<T> a0(a, a + (size_t)lda * (n ? n : 1));
    const std::vector<unsigned char> xb0 = x.buf, yb0 = y.buf;
    const char* name = two ? (herm ? "HER2" : "SYR2") : (herm ? "HER" : "SYR");

    if constexpr (two) {
        zva_export<syr2_fn<T>>(routine<T>(name).c_str())(uplo, 1, &n, &alpha, x.first(), &incx, y.first(), &incy,
                                                         a, &lda);
    } else {
        const R ar = to_lc(alpha).re;
        zva_export<syr_fn<T, R>>(routine<T>(name).c_str())(uplo, 1, &n, &ar, x.first(), &incx, a, &lda);
    }

    ASSERT_TRUE(x.buf == xb0 && y.buf == yb0) << "x or y changed";
    const lc al = to_lc(alpha);
    const bool alpha0 = al.re == 0 && (two ? al.im == 0 : true);
    const long double eps = std::numeric_limits<R>::epsilon();
    for (int j = 0; j < n; ++j) {
        const lc xj = to_lc(x.at(j)), yj = two ? to_lc(y.at(j)) : lc{0, 0};
        const bool skip = alpha0 || (mag(xj) == 0 && mag(yj) == 0);
        // t1 multiplies x(i), t2 multiplies y(i).
        const lc t1 = two ? mul(al, conj_if(yj, herm)) : mul({al.re, 0}, conj_if(xj, herm));
        const lc t2 = two ? conj_if(mul(al, xj), herm) : lc{0, 0};
        for (int i = 0; i < lda; ++i) {
            const size_t k = (size_t)j * lda + i;
            const bool tri = i < n && (up ? i <= j : i >= j);
            if (!tri || (skip && !(herm && i == j && !alpha0))) {
                ASSERT_TRUE(same_bits(a[k], a0[k])) << name << " " << uplo << " n=" << n << " (" << i << ", " << j
                                                    << ") changed";
                continue;
            }
            lc want = to_lc(a0[k]);
            long double size = mag(want);
            if (!skip) {
                const lc xi = to_lc(x.at(i)), yi = two ? to_lc(y.at(i)) : lc{0, 0};
                const lc p = add(mul(xi, t1), mul(yi, t2));
                want = add(want, p);
                size += mag(xi) * mag(t1) + mag(yi) * mag(t2);
            }
            if (herm && i == j) want.im = 0;
            const lc got = to_lc(a[k]);
            if (herm && i == j) {
                ASSERT_EQ(0, (double)got.im) << name << " diagonal " << j;
            }
            if (isnan((double)want.re) || isnan((double)want.im)) {
                ASSERT_TRUE(isnan((double)got.re) || isnan((double)got.im)) << name << " (" << i << ", " << j << ")";
                continue;
            }
            ASSERT_LE(fabsl(got.re - want.re) + fabsl(got.im - want.im), 8 * eps * size + 1e-30L)
                << name << " " << uplo << " n=" << n << " incx=" << incx << " incy=" << incy << " off=" << off
                << " lda=" << lda << " (" << i << ", " << j << ")";
        }
    }
}

const int sizes[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 20, 31, 32, 33, 64, 65};
const int incs[][2] = {{1, 1}, {2, -1}, {-2, 2}, {-1, -2}, {1, 2}};

template <class T, bool two> void sweep() {
    const T alphas[] = {make<T>(0.75, -0.5), make<T>(-1, 0)};
    for (const char* uplo : {"U", "L"})
        for (int n : sizes)
            for (auto& inc : incs)
                for (const T& al : alphas) check<T, two>(uplo, n, al, inc[0], inc[1], inc[0] == 1 ? 0 : 3, 0);
    // Every start of a column against the vector boundary, and element-
    // misaligned data.
    const int elem_off = (int)sizeof(T);
    for (const char* uplo : {"u", "l"})
        for (int off : {elem_off, 3 * elem_off, 4})
            for (int n : {13, 37, 67}) check<T, two>(uplo, n, make<T>(1.5, 0.5), 1, 1, 1, off);
    for (const char* uplo : {"U", "L"}) check<T, two>(uplo, 300, make<T>(0.5, 1), 1, 1, 5, 0);
}

// Zeros beside NaN: x(j) = 0 (and y(j) = 0) keeps column j away from the
// NaN of x(i); -0 counts as zero; a zero x(j) beside a nonzero y(j) does
// not.  The zeros sit at both columns of a pair, either one, and neither.
template <class T, bool two> void zeros() {
    const T z = make<T>(0, 0), mz = make<T>(-0.0, -0.0), nan = make<T>(NAN, 0), v = make<T>(0.5, -1);
    const std::vector<T> xs = {v, v, z, v, v, mz, z, z, v, nan, z, v, v, z};
    const std::vector<T> ys = {v, v, z, v, v, z, z, mz, nan, v, v, z, z, v};
    for (const char* uplo : {"U", "L"})
        for (int n : {13, 14})
            for (auto& inc : {incs[0], incs[1]}) check<T, two>(uplo, n, make<T>(2, 1), inc[0], inc[1], 1, 0, xs, ys);
    // alpha = 0: nothing changes, NaN in x or not, the diagonal included.
    for (const char* uplo : {"U", "L"}) check<T, two>(uplo, 14, z, 1, 1, 0, 0, xs, ys);
}

}  // namespace

TEST(Syr, Single) { sweep<float, false>(); }
TEST(Syr, Double) { sweep<double, false>(); }
TEST(Her, SingleComplex) { sweep<cfloat, false>(); }
TEST(Her, DoubleComplex) { sweep<cdouble, false>(); }
TEST(Syr2, Single) { sweep<float, true>(); }
TEST(Syr2, Double) { sweep<double, true>(); }
TEST(Her2, SingleComplex) { sweep<cfloat, true>(); }
TEST(Her2, DoubleComplex) { sweep<cdouble, true>(); }

TEST(SyrZeros, EveryType) {
    zeros<float, false>();
    zeros<double, false>();
    zeros<cfloat, false>();
    zeros<cdouble, false>();
    zeros<float, true>();
    zeros<double, true>();
    zeros<cfloat, true>();
    zeros<cdouble, true>();
}

// The same call on 1 and on threads threads, from the same operands: the
// threads write whole columns with the serial code (their slices start at
// multiples of 8, so SYR2 pairs its columns alike), so A must come out with
// the same bits.
template <class T, bool two>
void same_bits_threaded(const char* uplo, int n, T alpha, int incx, int incy, int threads) {
    lcg g{99};
    std::vector<T> a0((size_t)n * n), x((size_t)n * abs(incx)), y((size_t)n * abs(incy)), out[2];
    for (T& v : a0) v = g.value<T>();
    for (T& v : x) v = g.value<T>();
    for (T& v : y) v = g.value<T>();
    for (int k = 0; k < 2; ++k) {
        out[k] = a0;
        omp_set_num_threads(k ? threads : 1);
        if constexpr (two)
            zva_export<syr2_fn<T>>(routine<T>("SYR2").c_str())(uplo, 1, &n, &alpha, x.data(), &incx, y.data(),
                                                               &incy, out[k].data(), &n);
        else
            zva_export<syr_fn<T, T>>(routine<T>("SYR").c_str())(uplo, 1, &n, &alpha, x.data(), &incx,
                                                                out[k].data(), &n);
    }
    ASSERT_EQ(0, memcmp(out[0].data(), out[1].data(), out[0].size() * sizeof(T)))
        << (two ? "SYR2 " : "SYR ") << uplo << " n=" << n << " threads=" << threads;
}

// With ZVA_DYNAMIC=FALSE the OpenMP count reaches the drivers, which split
// the columns from n = 1500 on, on branches 4, 5 and 6.
TEST(SyrThreads, SlicesAgreeWithTheReference) {
    omp_set_num_threads(2);
    check<double, true>("U", 1501, 0.5, 1, 1, 1, 0);
    check<float, false>("L", 1509, 0.25f, 2, 1, 3, 4);
    for (int threads : {2, 3}) {
        same_bits_threaded<double, true>(threads == 2 ? "U" : "L", 1501, 0.5, 1, 1, threads);
        same_bits_threaded<float, true>(threads == 2 ? "L" : "U", 1533, 2.0f, -2, 1, threads);
        same_bits_threaded<double, false>(threads == 2 ? "L" : "U", 1520, -1.0, 1, 1, threads);
        same_bits_threaded<float, false>(threads == 2 ? "U" : "L", 1509, 0.25f, 2, 1, threads);
    }
}
