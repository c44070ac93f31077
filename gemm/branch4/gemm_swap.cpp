// The swap form of branch 4 in D and S.
// The row for processors with SSE4.1: the kernels of branch 5, built here
// with this branch's instruction set, give the same results.
#include "gemm/kernels.h"
#include "gemm/swap.h"

namespace zva::b4 {
ZVA_GEMM_SWAP
}  // namespace zva::b4
