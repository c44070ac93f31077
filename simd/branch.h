// What a recipe compiled for one branch sees: the branch number, its
// namespace (ZVA_NS, b2 to b7) and its set of lane kinds.
//
//   branch  instruction set        lanes                     registers
//   2       SSE2                   lanes128                  8 xmm
//   3       SSE3                   lanes128                  8 xmm
//   4       SSSE3                  lanes128                  8 xmm
//   5       SSE4.1, SSE4.2         lanes128                  8 xmm
//   6       AVX                    lanes256<false>           8 ymm
//   7       AVX2 and FMA           lanes256<true> (fused)    8 ymm
//
// ZVA_BRANCH comes from the build, which compiles each recipe once per
// branch with that branch's flags only.
#pragma once

#include "frame/signatures.h"

#ifndef ZVA_NS
#error "branch code is compiled with ZVA_BRANCH set to 2 .. 7"
#endif

#if ZVA_BRANCH >= 6
#include "simd/lanes256.h"
#else
#include "simd/lanes128.h"
#endif

namespace zva::ZVA_NS {
namespace {
inline constexpr int branch = ZVA_BRANCH;
#if ZVA_BRANCH == 7
using lanes = simd::lanes256<true>;
#elif ZVA_BRANCH == 6
using lanes = simd::lanes256<false>;
#else
using lanes = simd::lanes128;
#endif
// The single and the wide lane kind of element type T on this branch.
template <class T> using lane1 = simd::one<lanes, T>;
template <class T> using lanev = simd::wide<lanes, T>;
}  // namespace
}  // namespace zva::ZVA_NS
