// Complex products and lane folds on the registers of the lane kinds, as
// the triangular routines and the rank-one updates of level 2 use them.
//
// A complex product x*(br + i bi), with br and bi broadcast, is
//   branch 7     fmaddsub(x, br, swp(x)*bi)       one rounding per part
//   branches 3-6 addsub(x*br, swp(x)*bi)
//   branch 2     x*br + flip(swp(x))*bi           no add-subtract in SSE2:
//                                                 the sign goes on the
//                                                 swapped x, exactly
// cswap gives the second operand once, so a walk that multiplies one x by
// several scalars swaps (and on branch 2 flips) it once.
//
// Included only by branch code, in an unnamed namespace: each branch object
// gets its own copy, compiled with that branch's flags.
#pragma once
#include <immintrin.h>

namespace zva::simd {
namespace {

// (re, im) -> (im, re) in every pair.
inline __m128 swp(__m128 v) { return _mm_shuffle_ps(v, v, 0xB1); }
inline __m128d swp(__m128d v) { return _mm_shuffle_pd(v, v, 1); }

// Real / imaginary part of each pair over the whole pair.
inline __m128 dre(__m128 v) { return _mm_shuffle_ps(v, v, 0xA0); }
inline __m128 dim(__m128 v) { return _mm_shuffle_ps(v, v, 0xF5); }
inline __m128d dre(__m128d v) { return _mm_unpacklo_pd(v, v); }
inline __m128d dim(__m128d v) { return _mm_unpackhi_pd(v, v); }

inline __m128 neg(__m128 v) { return _mm_xor_ps(v, _mm_set1_ps(-0.0f)); }
inline __m128d neg(__m128d v) { return _mm_xor_pd(v, _mm_set1_pd(-0.0)); }
// The real parts negated: what branch 2 puts on the swapped x.
inline __m128 neg_re(__m128 v) { return _mm_xor_ps(v, _mm_setr_ps(-0.0f, 0.0f, -0.0f, 0.0f)); }
inline __m128d neg_re(__m128d v) { return _mm_xor_pd(v, _mm_setr_pd(-0.0, 0.0)); }

#ifdef __AVX__
inline __m256 swp(__m256 v) { return _mm256_permute_ps(v, 0xB1); }
inline __m256d swp(__m256d v) { return _mm256_permute_pd(v, 5); }
inline __m256 dre(__m256 v) { return _mm256_moveldup_ps(v); }
inline __m256 dim(__m256 v) { return _mm256_movehdup_ps(v); }
inline __m256d dre(__m256d v) { return _mm256_movedup_pd(v); }
inline __m256d dim(__m256d v) { return _mm256_permute_pd(v, 15); }
inline __m256 neg(__m256 v) { return _mm256_xor_ps(v, _mm256_set1_ps(-0.0f)); }
inline __m256d neg(__m256d v) { return _mm256_xor_pd(v, _mm256_set1_pd(-0.0)); }
#endif

// The second operand of cprod for x.
template <class V> inline V cswap(V x) {
#ifdef __SSE3__
    return swp(x);
#else
    return neg_re(swp(x));
#endif
}

#if defined(__FMA__)
inline __m128 cprod(__m128 x, __m128 xs, __m128 br, __m128 bi) {
    return _mm_fmaddsub_ps(x, br, _mm_mul_ps(xs, bi));
}
inline __m128d cprod(__m128d x, __m128d xs, __m128d br, __m128d bi) {
    return _mm_fmaddsub_pd(x, br, _mm_mul_pd(xs, bi));
}
inline __m256 cprod(__m256 x, __m256 xs, __m256 br, __m256 bi) {
    return _mm256_fmaddsub_ps(x, br, _mm256_mul_ps(xs, bi));
}
inline __m256d cprod(__m256d x, __m256d xs, __m256d br, __m256d bi) {
    return _mm256_fmaddsub_pd(x, br, _mm256_mul_pd(xs, bi));
}
#elif defined(__SSE3__)
inline __m128 cprod(__m128 x, __m128 xs, __m128 br, __m128 bi) {
    return _mm_addsub_ps(_mm_mul_ps(x, br), _mm_mul_ps(xs, bi));
}
inline __m128d cprod(__m128d x, __m128d xs, __m128d br, __m128d bi) {
    return _mm_addsub_pd(_mm_mul_pd(x, br), _mm_mul_pd(xs, bi));
}
#ifdef __AVX__
inline __m256 cprod(__m256 x, __m256 xs, __m256 br, __m256 bi) {
    return _mm256_addsub_ps(_mm256_mul_ps(x, br), _mm256_mul_ps(xs, bi));
}
inline __m256d cprod(__m256d x, __m256d xs, __m256d br, __m256d bi) {
    return _mm256_addsub_pd(_mm256_mul_pd(x, br), _mm256_mul_pd(xs, bi));
}
#endif
#else
inline __m128 cprod(__m128 x, __m128 xs, __m128 br, __m128 bi) {
    return _mm_add_ps(_mm_mul_ps(x, br), _mm_mul_ps(xs, bi));
}
inline __m128d cprod(__m128d x, __m128d xs, __m128d br, __m128d bi) {
    return _mm_add_pd(_mm_mul_pd(x, br), _mm_mul_pd(xs, bi));
}
#endif

// x*(br + i bi) for every complex lane of x.
template <class V> inline V cmul(V x, V br, V bi) { return cprod(x, cswap(x), br, bi); }

}  // namespace
}  // namespace zva::simd
