// y := alpha*op(A)*x + beta*y for every branch and type: the kernels behind
// the four GEMV dispatch points.
//
// Three families of kernels, by the registers and loads of the branch:
//   branches 2, 3  SSE2, SSE3      sse2.inl   D and Z read A by 64-bit halves
//                                             off the 16-byte boundary; C in
//                                             six two-column lower kernels
//   branches 4, 5  SSSE3, SSE4.1   ssse3.inl  one noinline function per
//                                             column block
//   branches 6, 7  AVX, AVX2+FMA   avx.inl    256-bit lanes, fused in 7
// Within a family the branches differ in a few pieces (loads, the complex
// product, sum trees), chosen by the branch number inside the family text.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "level2/kernels.h"
#include "simd/branch.h"
#if ZVA_BRANCH <= 5
#include "simd/pairs128.h"
#endif

#if ZVA_BRANCH >= 6
#include "level2/gemv/avx.inl"
#elif ZVA_BRANCH >= 4
#include "level2/gemv/ssse3.inl"
#else
#include "level2/gemv/sse2.inl"
#endif
