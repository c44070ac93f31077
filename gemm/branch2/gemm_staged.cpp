// The S, C and Z engines of branch 2; SSE2 only, so B values are
// duplicated by a load and an unpack.
#include "gemm/klane.h"
#include "gemm/zstage.h"

namespace zva::b2 {
namespace {
inline __m128d dup(const double* p) {
    const __m128d x = _mm_load_sd(p);
    return _mm_unpacklo_pd(x, x);
}
}  // namespace
ZVA_GEMM_STAGED_ENGINES(dup)
}  // namespace zva::b2
