// 64-bit pair moves of the 128-bit branches (2 to 5), as level 2 needs
// them: two floats or one complex single moved as one 64-bit unit,
// duplicated over both halves, swapped in place, or a vector of two doubles
// put together from two halves.
//
// Each is spelled with the instruction its callers were tuned for (movlps,
// movq, pshufd), which the lane kinds of lanes128.h do not promise: keep
// them where the generated code matters.
//
// Included only by branch code, in an unnamed namespace: each branch object
// gets its own copy, compiled with that branch's flags.
#pragma once
#include <immintrin.h>

#include "frame/types.h"

namespace zva::simd {
namespace {

// ---- added for level 2 (GEMV) ---------------------------------------------

// Two floats (or one complex single) into the low half, the upper half zero;
// movlps, which needs no 8-byte alignment.
inline __m128 load_pair(const float* p) {
    return _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(p));
}
inline void store_pair(float* p, __m128 v) {
    _mm_storel_pi(reinterpret_cast<__m64*>(p), v);
}

// A complex single seen as one 64-bit unit; c32 arrays may be only 4-aligned.
typedef double c32_bits __attribute__((may_alias, aligned(4)));

// One complex single in both halves: the upper lanes repeat the lower ones
// and raise no flag of their own.
inline __m128 dup_pair(const c32* p) {
    return _mm_castpd_ps(_mm_set1_pd(*reinterpret_cast<const c32_bits*>(p)));
}

// (re, im) -> (im, re) in every pair; pshufd swaps without the register
// copy that shufps would need.
inline __m128 swap_pairs(__m128 v) {
    return _mm_castsi128_ps(_mm_shuffle_epi32(_mm_castps_si128(v), 0xB1));
}
inline __m128d swap_pairs(__m128d v) {
    return _mm_castsi128_pd(_mm_shuffle_epi32(_mm_castpd_si128(v), 0x4E));
}

// A vector of two doubles from two 64-bit halves. The low half goes by movq:
// the compiler fuses a movsd/movhpd pair on adjacent addresses into the very
// movupd that a caller of this avoids.
inline __m128d load_halves(const double* lo, const double* hi) {
    return _mm_loadh_pd(_mm_castsi128_pd(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(lo))),
                        hi);
}

}  // namespace
}  // namespace zva::simd
