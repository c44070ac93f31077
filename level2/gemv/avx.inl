// GEMV of the 256-bit branches: 6 (AVX) and 7 (AVX2 with FMA).
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
// Sums. Branch 6 rounds every product before it is added; branch 7 fuses.
//   Update form (N): y + t0*a0 + t1*a1 + ... left to right (each step fused
//   in branch 7), except the D 8-column block: one vector of rows a pass
//   gives no row parallelism, so it adds ((y + t6*a6 + t4*a4) + (t7*a7 +
//   t5*a5)) + ((t2*a2 + t0*a0) + (t3*a3 + t1*a1)), four adds deep instead
//   of eight. In branch 6 the peel and tail rows use the same tree, so a
//   row's result does not depend on where y happens to be aligned; branch 7
//   runs them through a tree of its own (n_tree8_s).
//   Dot form (T, C): one accumulator per column, x[0]*a[0, k] first, then
//   the peel rows, the vector lanes in lane order, the tail rows, with a
//   separate multiply and add per row also in branch 7; then y + alpha*t
//   (fused in branch 7: one fma in the real types, fmaddsub in the complex).
//   Complex products: swapped-pair multiply, then an add-subtract (branch 6)
//   or fmaddsub (branch 7).
#define ZI inline __attribute__((always_inline))
#define NOI __attribute__((noinline))

namespace zva::ZVA_NS {
namespace {

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

#if ZVA_BRANCH == 7
// a*b + c, one rounding.
ZI __m256d madd(__m256d a, __m256d b, __m256d c) { return _mm256_fmadd_pd(a, b, c); }
ZI __m256 madd(__m256 a, __m256 b, __m256 c) { return _mm256_fmadd_ps(a, b, c); }
ZI __m128d madd(__m128d a, __m128d b, __m128d c) { return _mm_fmadd_pd(a, b, c); }
ZI __m128 madd(__m128 a, __m128 b, __m128 c) { return _mm_fmadd_ps(a, b, c); }
ZI double madd(double a, double b, double c) {
    return _mm_cvtsd_f64(_mm_fmadd_sd(_mm_set_sd(a), _mm_set_sd(b), _mm_set_sd(c)));
}
ZI float madd(float a, float b, float c) {
    return _mm_cvtss_f32(_mm_fmadd_ss(_mm_set_ss(a), _mm_set_ss(b), _mm_set_ss(c)));
}
#else
// a*b + c, the product rounded first.
template <class A>
ZI A madd(A a, A b, A c) {
    return add(mul(a, b), c);
}
#endif

#include "level2/gemv/avx_lanes.inl"

#if ZVA_BRANCH == 7
ZI __m256 fmaddsub(__m256 a, __m256 b, __m256 c) { return _mm256_fmaddsub_ps(a, b, c); }
ZI __m128 fmaddsub(__m128 a, __m128 b, __m128 c) { return _mm_fmaddsub_ps(a, b, c); }
ZI __m256d fmaddsub(__m256d a, __m256d b, __m256d c) { return _mm256_fmaddsub_pd(a, b, c); }
ZI __m128d fmaddsub(__m128d a, __m128d b, __m128d c) { return _mm_fmaddsub_pd(a, b, c); }
#else
ZI __m256 addsub(__m256 a, __m256 b) { return _mm256_addsub_ps(a, b); }
ZI __m128 addsub(__m128 a, __m128 b) { return _mm_addsub_ps(a, b); }
ZI __m256d addsub(__m256d a, __m256d b) { return _mm256_addsub_pd(a, b); }
ZI __m128d addsub(__m128d a, __m128d b) { return _mm_addsub_pd(a, b); }
#endif

// a * (br + i bi) per pair: (ar br - ai bi, ai br + ar bi).
template <class V>
ZI V cmul(V a, V br, V bi) {
#if ZVA_BRANCH == 7
    return fmaddsub(a, br, mul(swp(a), bi));
#else
    return addsub(mul(a, br), mul(swp(a), bi));
#endif
}

#include "level2/gemv/avx_scale.inl"

// D 8-column block, vector rows (LV, LH), in branch 6 also the scalar rows:
// ((y + t6*a6 + t4*a4) + (t7*a7 + t5*a5)) + ((t2*a2 + t0*a0) + (t3*a3 + t1*a1))
// In branch 7 every product added into a partial sum is a fused step.
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

// D 8-column block, scalar peel and tail rows. Branch 6: the vector tree.
// Branch 7 (fused steps):
// (((y + t5*a5) + t7*a7) + (t4*a4 + t6*a6)) + ((t1*a1 + t3*a3) + (t0*a0 + t2*a2))
template <class T>
ZI void n_tree8_s(const T* p, int lda, const T* t, T* yp) {
    auto a = [&](int k) __attribute__((always_inline)) { return ld(LS{}, p + k * lda); };
    if constexpr (branch == 6) {
        n_tree8_v(LS{}, a, t, yp);
    } else {
        auto b = [&](int k) __attribute__((always_inline)) { return bc(LS{}, t + k); };
        auto s = madd(b(5), a(5), ld(LS{}, yp));
        s = madd(b(7), a(7), s);
        auto u = mul(b(4), a(4));
        u = madd(b(6), a(6), u);
        s = add(s, u);
        auto v = mul(b(1), a(1));
        v = madd(b(3), a(3), v);
        auto w = mul(b(0), a(0));
        w = madd(b(2), a(2), w);
        st(LS{}, yp, add(s, add(v, w)));
    }
}

#include "level2/gemv/avx_kernels.inl"

}  // namespace zva::ZVA_NS
