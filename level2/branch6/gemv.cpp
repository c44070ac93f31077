// GEMV for branch 6: AVX without FMA, 256-bit vectors, 32-byte boundary.
//
// 32-bit code has eight ymm registers. Every loop is shaped to keep at most
// eight vectors live: the accumulators of its row block, the broadcast column
// factor in use and one or two temporaries. Factors that do not fit are
// broadcast from memory inside the loop, which costs one load, like any other
// operand.
//
// Column blocks per pass (as many of the first width as fit, then at most one
// of each following width; a trailing 1 after a 4 repeats):
//   D  N unit 8,4,2,1   N strided 4,1   T unit 4,2,1   T strided 4,1
//   S  4,1 on every path
//   C  N, T and C unit 4,2,1            strided 2,1
//   Z  N and T unit 4,2,1   C unit 2,1  strided 2,1
//
// Sums (every product is rounded before it is added):
//   Update form (N): y + t0*a0 + t1*a1 + ... left to right, except the D
//   8-column block: one vector of rows a pass gives no row parallelism, so
//   it adds ((y + t6*a6 + t4*a4) + (t7*a7 + t5*a5)) + ((t2*a2 + t0*a0) +
//   (t3*a3 + t1*a1)), four adds deep instead of eight. Its peel and tail
//   rows use the same tree, so a row's result does not depend on where y
//   happens to be aligned.
//   Dot form (T, C): one accumulator per column, x[0]*a[0, k] first, then
//   the peel rows, the vector lanes in lane order, the tail rows; then
//   y + alpha*t.
//   Complex products: swapped-pair multiply, then a separate add-subtract.
#include <immintrin.h>

#include <cstdint>

#include "level2/kernels.h"

#define ZI inline __attribute__((always_inline))
#define NOI __attribute__((noinline))

namespace zva::b6 {
namespace {

// Elements to step until p sits on a 32-byte boundary, or -1 when it never
// will (p not aligned to its element size).
ZI int peel_to_32(const void* p, unsigned elem) {
    const unsigned r = static_cast<unsigned>(reinterpret_cast<uintptr_t>(p)) & 31u;
    if (r == 0) return 0;
    if (r % elem) return -1;
    return static_cast<int>((32u - r) / elem);
}

// Calls f(0) .. f(N-1) with constant arguments, so that small arrays of
// accumulators indexed by k stay in registers.
template <int N, class F>
ZI void each(F&& f) {
    f(0);
    if constexpr (N > 1) f(1);
    if constexpr (N > 2) f(2);
    if constexpr (N > 3) f(3);
    if constexpr (N > 4) f(4);
    if constexpr (N > 5) f(5);
    if constexpr (N > 6) f(6);
    if constexpr (N > 7) f(7);
}

// Lane widths: LV a whole ymm, LH 128 bits (two reals, or the low 64 bits in
// S; two complex singles or one complex double), LS one element in the low
// lane of an xmm register, the rest zero (real) or ignored (complex). Scalar
// steps stay in vector registers, so no moves are needed between scalar and
// vector form around the intrinsics.
struct LV {};
struct LH {};
struct LS {};

template <class T> struct vt;
template <> struct vt<float> { using V = __m256; using E = __m128; static constexpr int W = 8; };
template <> struct vt<double> { using V = __m256d; using E = __m128d; static constexpr int W = 4; };
template <> struct vt<c32> { using V = __m256; using E = __m128; static constexpr int W = 4; };
template <> struct vt<c64> { using V = __m256d; using E = __m128d; static constexpr int W = 2; };

// ---- arithmetic, overloaded on the register type --------------------------

ZI __m256d add(__m256d a, __m256d b) { return _mm256_add_pd(a, b); }
ZI __m256 add(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
ZI __m128d add(__m128d a, __m128d b) { return _mm_add_pd(a, b); }
ZI __m128 add(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
ZI double add(double a, double b) { return a + b; }
ZI float add(float a, float b) { return a + b; }

ZI __m256d mul(__m256d a, __m256d b) { return _mm256_mul_pd(a, b); }
ZI __m256 mul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
ZI __m128d mul(__m128d a, __m128d b) { return _mm_mul_pd(a, b); }
ZI __m128 mul(__m128 a, __m128 b) { return _mm_mul_ps(a, b); }
ZI double mul(double a, double b) { return a * b; }
ZI float mul(float a, float b) { return a * b; }

// a*b + c, the product rounded first.
template <class A>
ZI A madd(A a, A b, A c) {
    return add(mul(a, b), c);
}

// ---- real loads, stores, broadcasts ----------------------------------------

ZI __m256d ld(LV, const double* p) { return _mm256_loadu_pd(p); }
ZI __m256 ld(LV, const float* p) { return _mm256_loadu_ps(p); }
ZI __m128d ld(LH, const double* p) { return _mm_loadu_pd(p); }
ZI __m128 ld(LH, const float* p) {
    return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
}
ZI __m128d ld(LS, const double* p) { return _mm_load_sd(p); }
ZI __m128 ld(LS, const float* p) { return _mm_load_ss(p); }

ZI void st(LV, double* p, __m256d v) { _mm256_storeu_pd(p, v); }
ZI void st(LV, float* p, __m256 v) { _mm256_storeu_ps(p, v); }
ZI void st(LH, double* p, __m128d v) { _mm_storeu_pd(p, v); }
ZI void st(LH, float* p, __m128 v) { _mm_storel_pi(reinterpret_cast<__m64*>(p), v); }
ZI void st(LS, double* p, __m128d v) { _mm_store_sd(p, v); }
ZI void st(LS, float* p, __m128 v) { _mm_store_ss(p, v); }

ZI __m256d bc(LV, const double* p) { return _mm256_set1_pd(*p); }
ZI __m256 bc(LV, const float* p) { return _mm256_set1_ps(*p); }
ZI __m128d bc(LH, const double* p) { return _mm_set1_pd(*p); }
ZI __m128 bc(LH, const float* p) { return _mm_set1_ps(*p); }
ZI __m128d bc(LS, const double* p) { return _mm_load_sd(p); }
ZI __m128 bc(LS, const float* p) { return _mm_load_ss(p); }

// t + lane 0 + lane 1 + ..., in lane order.
ZI double lanesum(double t, __m128d v) {
    t += _mm_cvtsd_f64(v);
    return t + _mm_cvtsd_f64(_mm_unpackhi_pd(v, v));
}
ZI double lanesum(double t, __m256d v) {
    t = lanesum(t, _mm256_castpd256_pd128(v));
    return lanesum(t, _mm256_extractf128_pd(v, 1));
}
ZI float lanesum(float t, __m128 v) {  // the low two lanes (an LH value)
    t += _mm_cvtss_f32(v);
    return t + _mm_cvtss_f32(_mm_movehdup_ps(v));
}
ZI float lanesum4(float t, __m128 v) {
    t = lanesum(t, v);
    return lanesum(t, _mm_movehl_ps(v, v));
}
ZI float lanesum(float t, __m256 v) {
    t = lanesum4(t, _mm256_castps256_ps128(v));
    return lanesum4(t, _mm256_extractf128_ps(v, 1));
}

// ---- complex loads, stores, broadcasts, products ---------------------------

ZI __m256 ld(LV, const c32* p) { return _mm256_loadu_ps(&p->re); }
ZI __m128 ld(LH, const c32* p) { return _mm_loadu_ps(&p->re); }
ZI __m128 ld(LS, const c32* p) {
    return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
}
ZI __m256d ld(LV, const c64* p) { return _mm256_loadu_pd(&p->re); }
ZI __m128d ld(LH, const c64* p) { return _mm_loadu_pd(&p->re); }
ZI __m128d ld(LS, const c64* p) { return _mm_loadu_pd(&p->re); }

ZI void st(LV, c32* p, __m256 v) { _mm256_storeu_ps(&p->re, v); }
ZI void st(LH, c32* p, __m128 v) { _mm_storeu_ps(&p->re, v); }
ZI void st(LS, c32* p, __m128 v) { _mm_storel_pi(reinterpret_cast<__m64*>(p), v); }
ZI void st(LV, c64* p, __m256d v) { _mm256_storeu_pd(&p->re, v); }
ZI void st(LH, c64* p, __m128d v) { _mm_storeu_pd(&p->re, v); }
ZI void st(LS, c64* p, __m128d v) { _mm_storeu_pd(&p->re, v); }

// Real and imaginary part of *p in every lane.
ZI __m256 bre(LV, const c32* p) { return _mm256_set1_ps(p->re); }
ZI __m256 bim(LV, const c32* p) { return _mm256_set1_ps(p->im); }
ZI __m128 bre(LH, const c32* p) { return _mm_set1_ps(p->re); }
ZI __m128 bim(LH, const c32* p) { return _mm_set1_ps(p->im); }
ZI __m128 bre(LS, const c32* p) { return _mm_set1_ps(p->re); }
ZI __m128 bim(LS, const c32* p) { return _mm_set1_ps(p->im); }
ZI __m256d bre(LV, const c64* p) { return _mm256_set1_pd(p->re); }
ZI __m256d bim(LV, const c64* p) { return _mm256_set1_pd(p->im); }
ZI __m128d bre(LH, const c64* p) { return _mm_set1_pd(p->re); }
ZI __m128d bim(LH, const c64* p) { return _mm_set1_pd(p->im); }
ZI __m128d bre(LS, const c64* p) { return _mm_set1_pd(p->re); }
ZI __m128d bim(LS, const c64* p) { return _mm_set1_pd(p->im); }

// Pairs swapped: (re, im) -> (im, re).
ZI __m256 swp(__m256 v) { return _mm256_permute_ps(v, 0xB1); }
ZI __m128 swp(__m128 v) { return _mm_permute_ps(v, 0xB1); }
ZI __m256d swp(__m256d v) { return _mm256_permute_pd(v, 5); }
ZI __m128d swp(__m128d v) { return _mm_permute_pd(v, 1); }

// Real / imaginary part of each pair duplicated over the pair.
ZI __m256 dre(__m256 v) { return _mm256_moveldup_ps(v); }
ZI __m256 dim(__m256 v) { return _mm256_movehdup_ps(v); }
ZI __m128 dre(__m128 v) { return _mm_moveldup_ps(v); }
ZI __m128 dim(__m128 v) { return _mm_movehdup_ps(v); }
ZI __m256d dre(__m256d v) { return _mm256_movedup_pd(v); }
ZI __m256d dim(__m256d v) { return _mm256_permute_pd(v, 15); }
ZI __m128d dre(__m128d v) { return _mm_movedup_pd(v); }
ZI __m128d dim(__m128d v) { return _mm_permute_pd(v, 3); }

ZI __m256 neg(__m256 v) { return _mm256_xor_ps(v, _mm256_set1_ps(-0.0f)); }
ZI __m128 neg(__m128 v) { return _mm_xor_ps(v, _mm_set1_ps(-0.0f)); }
ZI __m256d neg(__m256d v) { return _mm256_xor_pd(v, _mm256_set1_pd(-0.0)); }
ZI __m128d neg(__m128d v) { return _mm_xor_pd(v, _mm_set1_pd(-0.0)); }

// Imaginary parts negated.
ZI __m128 conj(__m128 v) { return _mm_xor_ps(v, _mm_setr_ps(0.0f, -0.0f, 0.0f, -0.0f)); }
ZI __m128d conj(__m128d v) { return _mm_xor_pd(v, _mm_setr_pd(0.0, -0.0)); }

ZI __m256 addsub(__m256 a, __m256 b) { return _mm256_addsub_ps(a, b); }
ZI __m128 addsub(__m128 a, __m128 b) { return _mm_addsub_ps(a, b); }
ZI __m256d addsub(__m256d a, __m256d b) { return _mm256_addsub_pd(a, b); }
ZI __m128d addsub(__m128d a, __m128d b) { return _mm_addsub_pd(a, b); }

// a * (br + i bi) per pair: (ar br - ai bi, ai br + ar bi).
template <class V>
ZI V cmul(V a, V br, V bi) {
    return addsub(mul(a, br), mul(swp(a), bi));
}

// t + pair 0 + pair 1 + ..., in pair order (result in the low pair).
ZI __m128 csum(__m128 t, __m128 h) {  // two complex singles
    t = _mm_add_ps(t, h);
    return _mm_add_ps(t, _mm_movehl_ps(h, h));
}
ZI __m128 csum(__m128 t, __m256 v) {
    t = csum(t, _mm256_castps256_ps128(v));
    return csum(t, _mm256_extractf128_ps(v, 1));
}
ZI __m128d csum(__m128d t, __m256d v) {
    t = _mm_add_pd(t, _mm256_castpd256_pd128(v));
    return _mm_add_pd(t, _mm256_extractf128_pd(v, 1));
}

// ---- x accessors for the dot form: unit stride, or gathered -----------------

template <class T>
struct XUnit {
    const T* x;
    ZI auto s(int i) const {
        if constexpr (__is_same(T, float) || __is_same(T, double)) return x[i];
        else return ld(LS{}, x + i);
    }
    ZI auto h(int i) const { return ld(LH{}, x + i); }
    ZI auto v(int i) const { return ld(LV{}, x + i); }
};

template <class T> struct XGath;

template <>
struct XGath<double> {
    const double* x;
    int inc;
    ZI double s(int i) const { return x[i * inc]; }
    ZI __m128d h(int i) const {
        const double* p = x + i * inc;
        return _mm_loadh_pd(_mm_load_sd(p), p + inc);
    }
    ZI __m256d v(int i) const {
        const double* p = x + i * inc;
        const __m128d lo = _mm_loadh_pd(_mm_load_sd(p), p + inc);
        const __m128d hi = _mm_loadh_pd(_mm_load_sd(p + 2 * inc), p + 3 * inc);
        return _mm256_insertf128_pd(_mm256_castpd128_pd256(lo), hi, 1);
    }
};

template <>
struct XGath<float> {
    const float* x;
    int inc;
    ZI float s(int i) const { return x[i * inc]; }
    ZI __m128 pair(const float* p) const {
        return _mm_unpacklo_ps(_mm_load_ss(p), _mm_load_ss(p + inc));
    }
    ZI __m128 h(int i) const { return pair(x + i * inc); }
    ZI __m256 v(int i) const {
        const float* p = x + i * inc;
        const int i2 = 2 * inc;
        const __m128 lo = _mm_movelh_ps(pair(p), pair(p + i2));
        const __m128 hi = _mm_movelh_ps(pair(p + 2 * i2), pair(p + 3 * i2));
        return _mm256_insertf128_ps(_mm256_castps128_ps256(lo), hi, 1);
    }
};

template <>
struct XGath<c32> {
    const c32* x;
    int inc;
    ZI __m128 s(int i) const { return ld(LS{}, x + i * inc); }
    ZI __m128 pair(const c32* p) const {
        return _mm_loadh_pi(ld(LS{}, p), reinterpret_cast<const __m64*>(p + inc));
    }
    ZI __m128 h(int i) const { return pair(x + i * inc); }
    ZI __m256 v(int i) const {
        const c32* p = x + i * inc;
        return _mm256_insertf128_ps(_mm256_castps128_ps256(pair(p)), pair(p + 2 * inc), 1);
    }
};

template <>
struct XGath<c64> {
    const c64* x;
    int inc;
    ZI __m128d s(int i) const { return ld(LS{}, x + i * inc); }
    ZI __m128d h(int i) const { return s(i); }
    ZI __m256d v(int i) const {
        const c64* p = x + i * inc;
        return _mm256_insertf128_pd(_mm256_castpd128_pd256(ld(LS{}, p)), ld(LS{}, p + inc), 1);
    }
};

// ---- y := beta*y ------------------------------------------------------------

// Below about 100 bytes a store loop beats the call of a fill.
template <class T> constexpr int fill_from = 0;
template <> constexpr int fill_from<float> = 25;
template <> constexpr int fill_from<double> = 13;
template <> constexpr int fill_from<c32> = 13;
template <> constexpr int fill_from<c64> = 7;

// One zero element, written as integer zeros.
ZI void zero1(void* p, unsigned bytes) {
    const __m128i z = _mm_setzero_si128();
    if (bytes == 4) _mm_storeu_si32(p, z);
    else if (bytes == 8) _mm_storel_epi64(static_cast<__m128i*>(p), z);
    else _mm_storeu_si128(static_cast<__m128i*>(p), z);
}

// Eight contiguous zero elements.
template <class T>
ZI void zero8(T* p) {
    const __m256i z = _mm256_setzero_si256();
    char* c = reinterpret_cast<char*>(p);
    for (unsigned b = 0; b < 8 * sizeof(T); b += 32)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(c + b), z);
}

// beta == 0: y is written, never read, so NaNs in it go away.
template <class T>
void zero_y(T* y, int n, int incy) {
    constexpr unsigned E = sizeof(T);
    if (incy == 1) {
        if (n >= fill_from<T>) {
            // A plain fill: the C library's is the fastest for long runs.
            __builtin_memset(y, 0, static_cast<unsigned>(n) * E);
            return;
        }
        // Short: straight-line stores, 8 elements a pass, then singly. No
        // loops here, so the compiler does not turn them into a fill call.
        constexpr int passes = (fill_from<T> - 1) / 8;
        int i = 0;
        if constexpr (passes >= 1) if (n >= 8) { zero8(y); i = 8; }
        if constexpr (passes >= 2) if (n >= 16) { zero8(y + 8); i = 16; }
        if constexpr (passes >= 3) if (n >= 24) { zero8(y + 16); i = 24; }
        T* p = y + i;
        switch (n - i) {
            case 7: zero1(p + 6, E); [[fallthrough]];
            case 6: zero1(p + 5, E); [[fallthrough]];
            case 5: zero1(p + 4, E); [[fallthrough]];
            case 4: zero1(p + 3, E); [[fallthrough]];
            case 3: zero1(p + 2, E); [[fallthrough]];
            case 2: zero1(p + 1, E); [[fallthrough]];
            case 1: zero1(p, E); [[fallthrough]];
            default: break;
        }
        return;
    }
    // The elements in memory order; the direction of incy does not matter.
    const int s = incy < 0 ? -incy : incy;
    T* p = y;
    int i = 0;
    for (; i + 8 <= n; i += 8, p += 8 * s) {
        zero1(p, E); zero1(p + s, E); zero1(p + 2 * s, E); zero1(p + 3 * s, E);
        zero1(p + 4 * s, E); zero1(p + 5 * s, E); zero1(p + 6 * s, E); zero1(p + 7 * s, E);
    }
    for (; i < n; ++i, p += s) zero1(p, E);
}

template <class T>
void scale_real(T* y, int n, int incy, T beta) {
    int i = 0;
    if (incy == 1) {
        if (n >= 16) {
            const int p = peel_to_32(y, sizeof(T));
            for (; i < p; ++i) y[i] = beta * y[i];
            constexpr int W = vt<T>::W;
            const auto b = bc(LV{}, &beta);
            for (; i + 16 <= n; i += 16) {
                if constexpr (W == 4) {
                    st(LV{}, y + i, mul(b, ld(LV{}, y + i)));
                    st(LV{}, y + i + 4, mul(b, ld(LV{}, y + i + 4)));
                    st(LV{}, y + i + 8, mul(b, ld(LV{}, y + i + 8)));
                    st(LV{}, y + i + 12, mul(b, ld(LV{}, y + i + 12)));
                } else {
                    st(LV{}, y + i, mul(b, ld(LV{}, y + i)));
                    st(LV{}, y + i + 8, mul(b, ld(LV{}, y + i + 8)));
                }
            }
            for (; i + 4 <= n; i += 4) {
                if constexpr (W == 4)
                    st(LV{}, y + i, mul(b, ld(LV{}, y + i)));
                else
                    _mm_storeu_ps(y + i, _mm_mul_ps(_mm256_castps256_ps128(b), _mm_loadu_ps(y + i)));
            }
        }
        for (; i < n; ++i) y[i] = beta * y[i];
        return;
    }
    const int s = incy < 0 ? -incy : incy;
    T* p = y;
    for (; i + 2 <= n; i += 2, p += 2 * s) {
        p[0] = beta * p[0];
        p[s] = beta * p[s];
    }
    if (i < n) *p = beta * *p;
}

template <class CT>
void scale_cplx(CT* y, int n, int incy, const CT& beta) {
    using E = typename vt<CT>::E;
    const E br1 = bre(LS{}, &beta), bi1 = bim(LS{}, &beta);
    auto one = [&](CT* p) __attribute__((always_inline)) {
        st(LS{}, p, cmul(ld(LS{}, p), br1, bi1));
    };
    int i = 0;
    if (incy == 1) {
        if (n >= 16) {
            const int p = peel_to_32(y, sizeof(CT));
            for (; i < p; ++i) one(y + i);
            constexpr int W = vt<CT>::W;
            const auto br = bre(LV{}, &beta), bi = bim(LV{}, &beta);
            for (; i + 16 <= n; i += 16) {
#pragma GCC unroll 8
                for (int r = 0; r < 16; r += W)
                    st(LV{}, y + i + r, cmul(ld(LV{}, y + i + r), br, bi));
            }
            for (; i + 4 <= n; i += 4) {
#pragma GCC unroll 2
                for (int r = 0; r < 4; r += W)
                    st(LV{}, y + i + r, cmul(ld(LV{}, y + i + r), br, bi));
            }
        }
        for (; i < n; ++i) one(y + i);
        return;
    }
    const int s = incy < 0 ? -incy : incy;
    CT* p = y;
    for (; i + 2 <= n; i += 2, p += 2 * s) {
        one(p);
        one(p + s);
    }
    if (i < n) one(p);
}

// ---- not transposed, unit increments: the update form ------------------------

// D 8-column block, every row (LV, LH, LS):
// ((y + t6*a6 + t4*a4) + (t7*a7 + t5*a5)) + ((t2*a2 + t0*a0) + (t3*a3 + t1*a1))
template <class L, class T, class C>
ZI void n_tree8_v(L l, C a, const T* t, T* yp) {
    auto b = [&](int k) __attribute__((always_inline)) { return bc(l, t + k); };
    auto s = madd(b(6), a(6), ld(l, yp));
    s = madd(b(4), a(4), s);
    auto u = mul(b(7), a(7));
    u = madd(b(5), a(5), u);
    s = add(s, u);
    auto v = mul(b(2), a(2));
    v = madd(b(0), a(0), v);
    auto w = mul(b(3), a(3));
    w = madd(b(1), a(1), w);
    st(l, yp, add(s, add(v, w)));
}

template <class T>
ZI void n_tree8_s(const T* p, int lda, const T* t, T* yp) {
    n_tree8_v(LS{}, [&](int k) __attribute__((always_inline)) { return ld(LS{}, p + k * lda); }, t, yp);
}
#include "level2/gemv256_body.h"

}  // namespace zva::b6
