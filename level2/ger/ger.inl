// GER, A := alpha*x*op(y) + A (op(y) = y, or conj(y) in CGERC and ZGERC),
// on every branch: the kernels behind the six GER dispatch points.
//
// Every kernel: m or n of 0 returns, alpha zero (both parts) returns. A
// column whose y(j) is zero (both parts; a NaN is not) is skipped without
// forming its scalar s = alpha*op(y(j)), so NaN or infinity in x or A never
// reaches it. Nothing is allocated; A is swept once, column by column.
//
// Three ways to do a column, by type and branch:
//   AXPY kernel   S and D on branches 4 to 7, C on 4, Z on 4 to 7 (incx = 1):
//                 the branch's own AXPY on m elements, increments incx and 1,
//                 columns in pairs and then a last one
//   x87 AXPY      S and D on branches 2 and 3: a small AXPY of its own on the
//                 x87 unit, four a pass with one non-temporal prefetch of x
//                 a pass, sums kept at x87 width until the store
//   own walk      C on 7, 6, 5, 3, 2 and Z on 3, 2; the others where the
//                 AXPY kernel does not serve (incx other than 1). With unit
//                 increments columns go in blocks of 4: four nonzero y(j)
//                 share one walk that loads each vector of x once; otherwise
//                 and for the 1 to 3 last columns, one column a walk.
// Complex elements a pass (the narrower pass on branch 7 only):
//   one column    C 8, 4, 1 (7); 8, 1 (others)   Z 8, 2, 1 (7); 8, 1 (6); 2, 1
//   four columns  C 4, 2, 1 (7); 4, 1 (6); 2, 1  Z 1
// A complex product is x*sr +/- swap(x)*si: fmaddsub in branch 7,
// add-subtract in 3 to 6, on branch 2 a sign flip of the swapped x and an
// add (level2/rowwalk.h, simd/cplx.h). Eight xmm or ymm registers: the
// four-column walk keeps x and its swapped copy and broadcasts the scalars
// from memory, one column at a time.
#include <immintrin.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "level1/kernels.h"
#include "level2/kernels.h"
#include "level2/rowwalk.h"

namespace zva::ZVA_NS {
namespace {

template <class T> constexpr bool complex_v = !std::is_arithmetic_v<T>;
// Where a column with incx = 1 is one call of the branch's AXPY kernel.
template <class T> constexpr bool via_axpy =
    !complex_v<T> ? branch >= 4 : sizeof(T) == 16 ? branch >= 4 : branch == 4;

#if ZVA_BRANCH <= 3
// Zero by the bit pattern, the sign masked: -0 returns, NaN goes on.
template <class T> bool zero_bits(T v) {
    if constexpr (sizeof(T) == 4) {
        uint32_t u;
        std::memcpy(&u, &v, 4);
        return (u & 0x7fffffffu) == 0;
    } else {
        uint64_t u;
        std::memcpy(&u, &v, 8);
        return (u & 0x7fffffffffffffffull) == 0;
    }
}

// y[i] += s*x[i*incx] for i < n on the x87 unit, x at its first logical
// element. The prefetch runs 8 elements ahead at unit stride, else four
// increments ahead.
template <class T>
__attribute__((target("fpmath=387"), noinline)) void x87_axpy(int n, T s, const T* x, int incx,
                                                               T* y) {
    if (n <= 0 || zero_bits(s)) return;
    const long double a = s;
    const long step = incx, ahead = incx == 1 ? 8 : 4 * step;
    for (; n >= 4; n -= 4, x += 4 * step, y += 4) {
        _mm_prefetch(reinterpret_cast<const char*>(x + ahead), _MM_HINT_NTA);
        y[0] = (T)((long double)y[0] + a * (long double)x[0]);
        y[1] = (T)((long double)y[1] + a * (long double)x[step]);
        y[2] = (T)((long double)y[2] + a * (long double)x[2 * step]);
        y[3] = (T)((long double)y[3] + a * (long double)x[3 * step]);
    }
    for (; n > 0; --n, x += step, ++y) y[0] = (T)((long double)y[0] + a * (long double)x[0]);
}
#endif

// One column a walk: c[i] += x[i]*s.
template <class T, bool XU> void one_col(int m, const T* x, int incx, T s, T* c) {
    constexpr int W = lanev<T>::W;
    constexpr int U = sizeof(T) == 16 && branch <= 5 ? 2 : 8 / W;
    const vec<const T, XU> src{x, incx};
    upd_rows<1, U, tail7<lanev<T>>>(m, vec<T, true>{c, 1}, &src, &s);
}

// Four columns in one walk: x is loaded (and swapped) once for all four;
// the rows are peeled to the boundary of the last column.
template <class T> void four_cols(int m, const T* x, T* a, int lda, const T* s) {
    using V = lanev<T>;
    using S = lane1<T>;
    using H = tail7<half_lane<T>>;
    T* const c[4] = {a, a + lda, a + 2 * lda, a + 3 * lda};
    auto rows = [&](auto lane, int i) L2_LAMBDA_INLINE {
        using K = decltype(lane);
        const reg<K> xv = K::load(x + i), xs = simd::cswap(xv);
        #pragma GCC unroll 4
        for (int k = 0; k < 4; ++k) {
            const fac<K> f = fac_of<K>(s[k]);
            K::store(c[k] + i, K::add(K::load(c[k] + i), simd::cprod(xv, xs, f.r, f.i)));
        }
    };
    int i = 0;
    const int pe = peel_rows(c[3], m, V::W);
    for (; i < pe; ++i) rows(S{}, i);
    for (; i + V::W <= m; i += V::W) rows(V{}, i);
    if constexpr (!std::is_void_v<H>)
        for (; i + H::W <= m; i += H::W) rows(H{}, i);
    for (; i < m; ++i) rows(S{}, i);
}

template <class T, bool Conj>
void ger_kernel(int m, int n, T alpha, const T* x, int incx, const T* y, int incy, T* a,
                int lda) {
    const T* yl = y + vec_start(n, incy);
    auto yat = [&](int j) { return yl[(long)j * incy]; };
    auto scalar = [&](T yj) { return sc_mul(alpha, sc_conj(yj, Conj)); };
    const int one = 1;
    auto axpy_col = [&](int j) {
        const T yj = yat(j);
        if (is_zero(yj)) return;
        const T s = complex_v<T> ? scalar(yj) : sc_mul(yj, alpha);
        T* c = a + (long)j * lda;
        if constexpr (via_axpy<T>) {
            axpy<T>(&m, &s, x, &incx, c, &one);
        } else {
#if ZVA_BRANCH <= 3
            if constexpr (!complex_v<T>) x87_axpy(m, s, x + vec_start(m, incx), incx, c);
#endif
        }
    };
    if (!complex_v<T> || (via_axpy<T> && incx == 1)) {
        int j = 0;
        for (; j + 2 <= n; j += 2) axpy_col(j), axpy_col(j + 1);
        if (j < n) axpy_col(j);
        return;
    }
    if constexpr (complex_v<T>) {
        auto col = [&](int j) {
            const T yj = yat(j);
            if (is_zero(yj)) return;
            if (incx == 1) one_col<T, true>(m, x, 1, scalar(yj), a + (long)j * lda);
            else one_col<T, false>(m, x + vec_start(m, incx), incx, scalar(yj), a + (long)j * lda);
        };
        int j = 0;
        if (!via_axpy<T> && incx == 1 && incy == 1) {
            for (; j + 4 <= n; j += 4) {
                bool all = true;
                #pragma GCC unroll 4
                for (int k = 0; k < 4; ++k) all = all && !is_zero(y[j + k]);
                if (!all) {
                    #pragma GCC unroll 4
                    for (int k = 0; k < 4; ++k) col(j + k);
                    continue;
                }
                const T s[4] = {scalar(y[j]), scalar(y[j + 1]), scalar(y[j + 2]), scalar(y[j + 3])};
                four_cols(m, x, a + (long)j * lda, lda, s);
            }
        }
        for (; j < n; ++j) col(j);
    }
}

}  // namespace

template <class T, bool Conj>
void ger(I m, I n, const T* alpha, const T* x, I incx, const T* y, I incy, T* a, I lda) {
    if (*m <= 0 || *n <= 0 || is_zero(*alpha)) return;
    ger_kernel<T, Conj>(*m, *n, *alpha, x, *incx, y, *incy, a, *lda);
}

template decltype(ger<float, false>) ger<float, false>;
template decltype(ger<double, false>) ger<double, false>;
template decltype(ger<c32, false>) ger<c32, false>;
template decltype(ger<c64, false>) ger<c64, false>;
template decltype(ger<c32, true>) ger<c32, true>;
template decltype(ger<c64, true>) ger<c64, true>;

}  // namespace zva::ZVA_NS
