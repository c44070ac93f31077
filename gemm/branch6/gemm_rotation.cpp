// The rotation form of branch 6 in all four types.
#include "gemm/kernels.h"
#include "gemm/rotation.h"

namespace zva::b6 {
ZVA_GEMM_ROTATION(false)
}  // namespace zva::b6
