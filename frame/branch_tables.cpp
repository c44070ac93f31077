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
    t.zgemm_scale_c = ns::zgemm_scale_c;                                       \
    t.SGEMM = ns::sgemm_serial;                                                \
    t.DGEMM = ns::dgemm_serial;                                                \
    t.CGEMM = ns::cgemm_serial;                                                \
    t.ZGEMM = ns::zgemm_serial;

// Branches 2 and 3 have no blocked driver: each engine is self-contained.
#define ZVA_NO_CONTEXT(p)                                                      \
    t.p##ctx_avail = stand_in<sig_ctx_avail>::none;                            \
    t.p##ctx_clear = stand_in<sig_ctx_clear>::none;                            \
    t.p##ctx_load = stand_in<sig_ctx_load>::none;                              \
    t.p##ctx_driver = stand_in<S_##p>::none;                          \
    t.p##ctx_size_buffers = stand_in<sig_ctx_size>::none;                      \
    t.p##ctx_store = stand_in<sig_ctx_store>::none;
#define ZVA_CONTEXT(ns, p)                                                     \
    t.p##ctx_avail = ns::gemm_ctx_avail;                                       \
    t.p##ctx_clear = ns::gemm_ctx_clear;                                       \
    t.p##ctx_load = ns::p##gemm_ctx_load;                                      \
    t.p##ctx_driver = ns::p##gemm_driver;                                      \
    t.p##ctx_size_buffers = ns::p##gemm_size_buffers;                          \
    t.p##ctx_store = ns::gemm_ctx_store;
#define ZVA_NO_CONTEXTS ZVA_NO_CONTEXT(s) ZVA_NO_CONTEXT(d) ZVA_NO_CONTEXT(c) ZVA_NO_CONTEXT(z)
#define ZVA_CONTEXTS(ns)                                                       \
    ZVA_CONTEXT(ns, s) ZVA_CONTEXT(ns, d) ZVA_CONTEXT(ns, c) ZVA_CONTEXT(ns, z)

using S_s = sig_ctx_driver<float>;
using S_d = sig_ctx_driver<double>;
using S_c = sig_ctx_driver<c32>;
using S_z = sig_ctx_driver<c64>;

#define ZVA_BRANCH_TABLE(ns, contexts)                                         \
    constexpr kernel_table ns##_table = [] {                                   \
        kernel_table t{};                                                      \
        ZVA_LEVEL1_ENTRIES(ns)                                                 \
        ZVA_LEVEL2_ENTRIES(ns)                                                 \
        ZVA_GEMM_ENTRIES(ns)                                                   \
        contexts                                                               \
        return t;                                                              \
    }();

ZVA_BRANCH_TABLE(b2, ZVA_NO_CONTEXTS)
ZVA_BRANCH_TABLE(b3, ZVA_NO_CONTEXTS)
ZVA_BRANCH_TABLE(b4, ZVA_CONTEXTS(b4))
ZVA_BRANCH_TABLE(b5, ZVA_CONTEXTS(b5))
ZVA_BRANCH_TABLE(b6, ZVA_CONTEXTS(b6))
ZVA_BRANCH_TABLE(b7, ZVA_CONTEXTS(b7))

}  // namespace

const kernel_table* const branch_tables[6] = {&b2_table, &b3_table, &b4_table,
                                              &b5_table, &b6_table, &b7_table};

}  // namespace zva
