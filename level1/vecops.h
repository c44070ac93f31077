// Register-level helpers of the SCAL, ASUM and NRM2 recipes, overloaded on
// the register type, so that one text serves the 128-bit and the 256-bit
// lane kinds: absolute value, the first lane set alone, the lanes of one
// register added (halves first, then neighbours) and the complex add-
// subtract steps.
//
// Included only by branch code, in an unnamed namespace: each branch object
// gets its own copy, compiled with that branch's flags.
#pragma once
#include <immintrin.h>

namespace zva::ZVA_NS {
namespace {

// Clearing the sign bit is exact, and keeps a NaN a NaN.
inline __m128 vabs(__m128 v) { return _mm_andnot_ps(_mm_set1_ps(-0.0f), v); }
inline __m128d vabs(__m128d v) { return _mm_andnot_pd(_mm_set1_pd(-0.0), v); }
inline void set_lane0(__m128& v, float s) { v = _mm_set_ss(s); }
inline void set_lane0(__m128d& v, double s) { v = _mm_set_sd(s); }
// (l0 + l2, l1 + l3), then the two added.
inline float lanes_sum(__m128 v) {
    const __m128 h = _mm_add_ps(v, _mm_movehl_ps(v, v));
    return _mm_cvtss_f32(_mm_add_ss(h, _mm_shuffle_ps(h, h, 1)));
}
inline double lanes_sum(__m128d v) { return _mm_cvtsd_f64(_mm_add_sd(v, _mm_unpackhi_pd(v, v))); }

#if ZVA_BRANCH >= 3
inline __m128 addsub(__m128 a, __m128 b) { return _mm_addsub_ps(a, b); }
inline __m128d addsub(__m128d a, __m128d b) { return _mm_addsub_pd(a, b); }
#endif

#ifdef __AVX__
inline __m256 vabs(__m256 v) { return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), v); }
inline __m256d vabs(__m256d v) { return _mm256_andnot_pd(_mm256_set1_pd(-0.0), v); }
inline void set_lane0(__m256& v, float s) { v = _mm256_setr_ps(s, 0, 0, 0, 0, 0, 0, 0); }
inline void set_lane0(__m256d& v, double s) { v = _mm256_setr_pd(s, 0, 0, 0); }
// The high half onto the low half, then as for 128 bits.
inline float lanes_sum(__m256 v) {
    return lanes_sum(_mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1)));
}
inline double lanes_sum(__m256d v) {
    return lanes_sum(_mm_add_pd(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1)));
}
inline __m256 addsub(__m256 a, __m256 b) { return _mm256_addsub_ps(a, b); }
inline __m256d addsub(__m256d a, __m256d b) { return _mm256_addsub_pd(a, b); }
#endif

#ifdef __FMA__
inline __m128 fmaddsub(__m128 a, __m128 b, __m128 c) { return _mm_fmaddsub_ps(a, b, c); }
inline __m128d fmaddsub(__m128d a, __m128d b, __m128d c) { return _mm_fmaddsub_pd(a, b, c); }
inline __m256 fmaddsub(__m256 a, __m256 b, __m256 c) { return _mm256_fmaddsub_ps(a, b, c); }
inline __m256d fmaddsub(__m256d a, __m256d b, __m256d c) { return _mm256_fmaddsub_pd(a, b, c); }
#endif

}  // namespace
}  // namespace zva::ZVA_NS
