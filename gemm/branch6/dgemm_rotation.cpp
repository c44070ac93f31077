// The rotation form of branch 6 in D.
#include "gemm/kernels.h"
#include "gemm/rotation.h"

namespace zva::b6 {
ZVA_GEMM_ROTATION_D(false)
}  // namespace zva::b6
