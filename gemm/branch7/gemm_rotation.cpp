// The rotation form of branch 7 in all four types.
// The main kernel is branch 6's; the edge rows fuse.
#include "gemm/kernels.h"
#include "gemm/rotation.h"

namespace zva::b7 {
ZVA_GEMM_ROTATION(true)
}  // namespace zva::b7
