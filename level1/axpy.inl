// AXPY, y := alpha*x + y, for S, D, C and Z on every branch: the kernels
// behind the four AXPY dispatch points.
//
// Every kernel: n <= 0 returns; alpha zero (either sign) returns and leaves
// y alone, a NaN alpha goes on. The general path starts each vector by the
// BLAS rule and stores every element before it reads the next, so incy = 0
// accumulates all products into y[0] in order. No prefetches, no
// non-temporal stores.
//
// Three families of kernels, by the registers and loads of the branch:
//   branches 2, 3  SSE2, SSE3      sse2.inl   D only on aligned pairs of
//                                             phases; x87 scalars on 2
//   branches 4, 5  SSSE3, SSE4.1   ssse3.inl  y peeled to 16 bytes, an x of
//                                             another phase joined from
//                                             aligned loads
//   branches 6, 7  AVX, AVX2+FMA   avx.inl    y peeled to 32 bytes, fused
//                                             in 7
// Within a family the branches differ in a few pieces, chosen by the branch
// number inside the family text.
#include <immintrin.h>

#include <cstdint>
#include <cstring>

#include "frame/scalar.h"
#include "level1/kernels.h"
#include "simd/branch.h"

#if ZVA_BRANCH >= 6
#include "level1/axpy/avx.inl"
#elif ZVA_BRANCH >= 4
#include "level1/axpy/ssse3.inl"
#else
#include "level1/axpy/sse2.inl"
#endif
