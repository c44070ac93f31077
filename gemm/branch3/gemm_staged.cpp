// The S, C and Z engines of branch 3; B values are duplicated by movddup.
#include <pmmintrin.h>

#include "gemm/klane.h"
#include "gemm/zstage.h"

namespace zva::b3 {
namespace {
inline __m128d dup(const double* p) { return _mm_loaddup_pd(p); }
}  // namespace
ZVA_GEMM_STAGED_ENGINES(dup)
}  // namespace zva::b3
