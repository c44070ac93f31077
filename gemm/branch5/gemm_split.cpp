// The split complex form of branch 5 in C and Z.
#include "gemm/kernels.h"
#include "gemm/split.h"

namespace zva::b5 {
ZVA_GEMM_SPLIT(gemm_, false)
}  // namespace zva::b5
