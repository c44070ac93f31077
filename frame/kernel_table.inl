// The kernel table of one branch, filled from the routine table: each
// dispatch point gets the kernel its row names, as this branch's namespace
// defines it.  Compiled once
// per branch like a recipe; it holds addresses only, no code.
#include "frame/dispatch.h"
#include "gemm/kernels.h"
#include "level1/kernels.h"
#include "level2/kernels.h"
#include "level3/kernels.h"

namespace zva::ZVA_NS {

// Names resolve in this branch's namespace first, so a kernel name means
// this branch's kernel.  A column without a kernel does not compile.
constinit const kernel_table table = [] {
    kernel_table t{};
#define ZVA_ROUTINE_ENTRY(N, B, R, S, K, KERNEL, ...) set_kernel(t.N, ZVA_UNPAREN KERNEL);
#define ZVA_INNER_ENTRY(N, S, KERNEL) set_kernel(t.N, ZVA_UNPAREN KERNEL);
    ZVA_ROUTINES(ZVA_ROUTINE_ENTRY)
    ZVA_INNER_POINTS(ZVA_INNER_ENTRY)
#undef ZVA_ROUTINE_ENTRY
#undef ZVA_INNER_ENTRY
    return t;
}();

}  // namespace zva::ZVA_NS
