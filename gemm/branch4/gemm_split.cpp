// The split complex form of branch 4 in C and Z: the kernels of branch 5
// for processors with SSE4.1, and the broadcast stage, which needs no
// shuffle, for the others. Both give the same results.
#include "gemm/kernels.h"
#include "gemm/split.h"

namespace zva::b4 {
ZVA_GEMM_SPLIT(gemm_, false)
ZVA_GEMM_SPLIT_BLOCK(cgemm_bc_, form_c, c32, true)
ZVA_GEMM_SPLIT_BLOCK(zgemm_bc_, form_z, c64, true)
}  // namespace zva::b4
