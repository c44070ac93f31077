// The walk that ROT and ROTM share: a 2 x 2 step applied to each pair
// (x[i], y[i]), on registers of any width.
//
// A step is a struct whose template operator()(V& x, V& y) takes two
// registers of one kind (a scalar, or a 128-bit or 256-bit vector) and
// replaces them with the rotated pair; it rounds every lane alike, so a
// result never depends on the width that served it. The registers are
// GCC vector types, so c*x + s*y is a multiply and an add of the width at
// hand, never contracted (-ffp-contract=off); fused steps say so by fmadd.
//
// Unit stride: y is peeled to the vector boundary of the branch (32 bytes
// on 6 and 7, 16 below), then passes of U vectors, then one-vector passes,
// on branch 7 a half-vector pass, then singles. On the 128-bit branches an
// x in the phase of y is read by aligned loads, else by unaligned ones;
// the 256-bit branches read x where it lies. Strided: the start rule, G
// pairs a pass, every pair stored before the next is read, so an increment
// of 0 rotates the same element again and again, in order.
#include <immintrin.h>

#include <cstring>

#include "frame/scalar.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

// One value in every lane; a broadcast the compiler hoists out of loops.
template <class V, class T> inline V splat(T a) {
    if constexpr (sizeof(V) == sizeof(T)) return a;
    else if constexpr (sizeof(V) == 16 && sizeof(T) == 4) return _mm_set1_ps(a);
    else if constexpr (sizeof(V) == 16) return _mm_set1_pd(a);
#if ZVA_BRANCH >= 6
    else if constexpr (sizeof(T) == 4) return _mm256_set1_ps(a);
    else return _mm256_set1_pd(a);
#endif
}
template <class V, class T> inline V ldu(const T* p) {
    V v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class V, class T> inline void stu(T* p, V v) { std::memcpy(p, &v, sizeof v); }
template <class V, class T> inline V lda(const T* p) {
    if constexpr (sizeof(V) == sizeof(T)) return *p;
    else return *reinterpret_cast<const V*>(p);
}
template <class V, class T> inline void sta(T* p, V v) {
    if constexpr (sizeof(V) == sizeof(T)) *p = v;
    else *reinterpret_cast<V*>(p) = v;
}

#if ZVA_BRANCH == 7
// a*b + c rounded once, at every width.
inline float fmadd(float a, float b, float c) { return __builtin_fmaf(a, b, c); }
inline double fmadd(double a, double b, double c) { return __builtin_fma(a, b, c); }
inline __m128 fmadd(__m128 a, __m128 b, __m128 c) { return _mm_fmadd_ps(a, b, c); }
inline __m128d fmadd(__m128d a, __m128d b, __m128d c) { return _mm_fmadd_pd(a, b, c); }
inline __m256 fmadd(__m256 a, __m256 b, __m256 c) { return _mm256_fmadd_ps(a, b, c); }
inline __m256d fmadd(__m256d a, __m256d b, __m256d c) { return _mm256_fmadd_pd(a, b, c); }
#endif

// a*b + c: rounded once where F is set (branch 7 only), else product and
// sum rounded apart.
template <bool F, class V> inline V madd(V a, V b, V c) {
    if constexpr (F) return fmadd(a, b, c);
    else return a * b + c;
}
inline constexpr bool fused = branch == 7;

// Register kinds of element type T: the vector of the branch and its half.
template <class T> struct regs;
#if ZVA_BRANCH >= 6
template <> struct regs<float> { using v = __m256; using h = __m128; };
template <> struct regs<double> { using v = __m256d; using h = __m128d; };
inline constexpr unsigned vec_bytes = 32;
#else
template <> struct regs<float> { using v = __m128; using h = __m128; };
template <> struct regs<double> { using v = __m128d; using h = __m128d; };
inline constexpr unsigned vec_bytes = 16;
#endif

template <class T, class Step> inline void plane_one(T* x, T* y, const Step& step) {
    T a = *x, b = *y;
    step(a, b);
    *x = a;
    *y = b;
}

// Alignment a pass may count on: none, y only, or x and y.
enum aligned_to { none_aligned, y_aligned, both_aligned };

// Passes of U vectors of kind V from element i while a whole pass is left;
// returns where they stopped.
template <class V, int U, aligned_to A, class T, class Step>
inline int plane_passes(int i, int n, T* x, T* y, const Step& step) {
    constexpr int W = sizeof(V) / sizeof(T), P = U * W;
    for (const int last = n - P; i <= last; i += P) {
#pragma GCC unroll 16
        for (int u = 0; u < P; u += W) {
            V a = A == both_aligned ? lda<V>(x + i + u) : ldu<V>(x + i + u);
            V b = A != none_aligned ? lda<V>(y + i + u) : ldu<V>(y + i + u);
            step(a, b);
            if constexpr (A == both_aligned) sta(x + i + u, a);
            else stu(x + i + u, a);
            if constexpr (A != none_aligned) sta(y + i + u, b);
            else stu(y + i + u, b);
        }
    }
    return i;
}

// Unit stride. Vector code from one vector on, once y is peeled; a y off
// its element boundary, or too short a vector, goes singly. After the
// passes of U vectors: one-vector passes where `one` is set, a half-vector
// pass where `half` is, then singles.
template <int U, bool one, bool half, class T, class Step>
void plane_unit(int n, T* x, T* y, const Step& step) {
    using V = typename regs<T>::v;
    constexpr int W = sizeof(V) / sizeof(T);
    int i = 0;
    const int peel = n < W ? -1 : peel_to_32(y, sizeof(T)) % int(vec_bytes / sizeof(T));
    if (peel >= 0 && n >= peel + W) {
        for (; i < peel; ++i) plane_one(x + i, y + i, step);
        if (branch >= 6 || addr_bits(x + i) % vec_bytes != 0) {
            i = plane_passes<V, U, y_aligned>(i, n, x, y, step);
            if constexpr (one) i = plane_passes<V, 1, y_aligned>(i, n, x, y, step);
        } else {
            i = plane_passes<V, U, both_aligned>(i, n, x, y, step);
            if constexpr (one) i = plane_passes<V, 1, both_aligned>(i, n, x, y, step);
        }
        if constexpr (half) i = plane_passes<typename regs<T>::h, 1, y_aligned>(i, n, x, y, step);
    }
    for (; i < n; ++i) plane_one(x + i, y + i, step);
}

// Any increments, 0 included: the start rule, G pairs a pass; one(x, y)
// rotates one pair of elements (real or complex).
template <int G, class T, class One>
void plane_strided(int n, T* x, int incx, T* y, int incy, const One& one) {
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    int k = n;
    for (; k >= G; k -= G) {
#pragma GCC unroll 4
        for (int g = 0; g < G; ++g, x += incx, y += incy) one(x, y);
    }
    for (; k > 0; --k, x += incx, y += incy) one(x, y);
}

}  // namespace
}  // namespace zva::ZVA_NS
