// The blocked engine of branch 6: the rows of the rotation form.
#include "gemm/blocked.h"
#include "gemm/kernels.h"

namespace zva::b6 {
#include "gemm/rotation_rows.h"
}  // namespace zva::b6
