// DOT family on every branch: SDOT, DDOT, CDOTU, CDOTC, ZDOTU, ZDOTC, and
// the mixed-precision SDSDOT and DSDOT.
//
// The rounding of a dot product is fixed by where each product is added:
// the accumulator layout of the branch (how many vector sums, which lanes
// take which elements, what meets a scalar sum and when), the order of the
// reduction, and the path (unit stride or not, alignment). The texts follow
// those layouts exactly; a test models each of them bit for bit.
//
// Common ground: n <= 0 gives 0 (SDSDOT: sb; the complex ones store (0, 0)).
// Products and sums are separate roundings everywhere but in the complex
// kernels of branch 7 (fmaddsub) and the mixed dots (exact products). The
// vector accumulators are reduced as (a0 + a1) + (a2 + a3), then the upper
// half onto the lower, down to one lane (one complex pair).
//
//   branches 6, 7  AVX, AVX2+FMA  dot/avx.inl    y peeled to 32 bytes; a
//                                                scalar sum starts lane 0
//   branches 4, 5  SSSE3, SSE4.1  dot/ssse3.inl  y peeled to 16 bytes into
//                                                a scalar sum that takes
//                                                the vector sum last
//   branches 2, 3  SSE2, SSE3     dot/sse2.inl   both vectors in one phase;
//                                                x87 scalar paths on 2
//   all            mixed dots     dot/mixed.inl  double sums of widened
//                                                singles
#include <immintrin.h>

#include <cstdint>

#include "frame/scalar.h"
#include "level1/kernels.h"
#include "simd/branch.h"

#if ZVA_BRANCH >= 6
#include "level1/dot/avx.inl"
#elif ZVA_BRANCH >= 4
#include "level1/dot/ssse3.inl"
#else
#include "level1/dot/sse2.inl"
#endif
#include "level1/dot/mixed.inl"
