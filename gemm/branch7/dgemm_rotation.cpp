// The rotation form of branch 7 in D.
// The main kernel is branch 6's; the edge rows fuse.
#include "gemm/kernels.h"
#include "gemm/rotation.h"

namespace zva::b7 {
ZVA_GEMM_ROTATION_D(true)
}  // namespace zva::b7
