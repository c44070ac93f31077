// The blocked engine of branch 7: the rows of the rotation form.
#include "gemm/blocked.h"
#include "gemm/kernels.h"

namespace zva::b7 {
#include "gemm/rotation_rows.h"
}  // namespace zva::b7
