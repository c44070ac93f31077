// The swap form of branch 5 in D and S.
#include "gemm/kernels.h"
#include "gemm/swap.h"

namespace zva::b5 {
ZVA_GEMM_SWAP
}  // namespace zva::b5
