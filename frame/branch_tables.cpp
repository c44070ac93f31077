// The kernel tables of branches 2 to 7.  Kernels of every branch have the
// same names in their own namespace, so one list serves all six; operations
// a branch lacks are named here explicitly.
#include "frame/dispatch.h"
#include "gemm/kernels.h"
#include "level1/kernels.h"
#include "level2/kernels.h"

namespace zva {
namespace {

#define ZVA_LEVEL1_ENTRIES(ns)                                                 \
    t.SAXPY = ns::saxpy;                                                       \
    t.DAXPY = ns::daxpy;                                                       \
    t.CAXPY = ns::caxpy;                                                       \
    t.ZAXPY = ns::zaxpy;

#define ZVA_LEVEL2_ENTRIES(ns)                                                 \
    t.SGEMV = ns::sgemv;                                                       \
    t.DGEMV = ns::dgemv;                                                       \
    t.CGEMV = ns::cgemv;                                                       \
    t.ZGEMV = ns::zgemv;

#define ZVA_GEMM_ENTRIES(ns)                                                   \
    t.sgemm_scale_c = ns::sgemm_scale_c;                                       \
    t.dgemm_scale_c = ns::dgemm_scale_c;                                       \
    t.cgemm_scale_c = ns::cgemm_scale_c;                                       \
    t.zgemm_scale_c = ns::zgemm_scale_c;

#define ZVA_BRANCH_TABLE(ns)                                                   \
    constexpr kernel_table ns##_table = [] {                                   \
        kernel_table t{};                                                      \
        ZVA_LEVEL1_ENTRIES(ns)                                                 \
        ZVA_LEVEL2_ENTRIES(ns)                                                 \
        ZVA_GEMM_ENTRIES(ns)                                                   \
        return t;                                                              \
    }();

ZVA_BRANCH_TABLE(b2)
ZVA_BRANCH_TABLE(b3)
ZVA_BRANCH_TABLE(b4)
ZVA_BRANCH_TABLE(b5)
ZVA_BRANCH_TABLE(b6)
ZVA_BRANCH_TABLE(b7)

}  // namespace

const kernel_table* const branch_tables[6] = {&b2_table, &b3_table, &b4_table,
                                              &b5_table, &b6_table, &b7_table};

}  // namespace zva
