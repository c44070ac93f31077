// The swap form of branch 5 in D.
#include "gemm/kernels.h"
#include "gemm/swap.h"

namespace zva::b5 {
ZVA_GEMM_SWAP_D
}  // namespace zva::b5
