// Multiply-engine kernels: the same names in every branch namespace.
#pragma once
#include "frame/dispatch.h"
#include "gemm/engine.h"

// C := beta*C on an m x n block; beta = 0 stores zeros without reading C.
// The plain multiply without packing: C := alpha*op(A)*op(B) + beta*C.
// The serial engine.
ZVA_IN_EVERY_BRANCH(
    template <class T> sig_gemm_scale_c<T> gemm_scale_c;
    template <class T> sig_gemm_serial<T> gemm_direct;
    sig_gemm_serial<float> sgemm_serial;
    sig_gemm_serial<double> dgemm_serial;
    sig_gemm_serial<c32> cgemm_serial;
    sig_gemm_serial<c64> zgemm_serial;)

// The packing routines and block multiply of one gemm_kernel_record; the
// complex rows have conjugating copies as well.
#define ZVA_GEMM_ROW_FNS(p, T)                                                 \
    sig_gemm_copy_a<T> p##copy_a_n, p##copy_a_t;                               \
    sig_gemm_copy_b<T> p##copy_b_n, p##copy_b_t;                               \
    sig_gemm_block<T> p##block_multiply;
#define ZVA_GEMM_CROW_FNS(p, T)                                                \
    ZVA_GEMM_ROW_FNS(p, T)                                                     \
    sig_gemm_copy_a<T> p##copy_a_c;                                            \
    sig_gemm_copy_b<T> p##copy_b_c;

// On branches 4 to 7 the blocked driver and the operations on a
// gemm_context.
#define ZVA_GEMM_TYPE_FNS(p, T)                                                \
    sig_ctx_load p##gemm_ctx_load;                                             \
    sig_ctx_driver<T> p##gemm_driver;                                          \
    sig_ctx_size p##gemm_size_buffers;
#define ZVA_GEMM_BLOCKED(ns)                                                   \
    namespace zva::ns {                                                        \
    sig_ctx_avail gemm_ctx_avail;                                              \
    sig_ctx_clear gemm_ctx_clear;                                              \
    sig_ctx_store gemm_ctx_store;                                              \
    ZVA_GEMM_TYPE_FNS(s, float)                                                \
    ZVA_GEMM_TYPE_FNS(d, double)                                               \
    ZVA_GEMM_TYPE_FNS(c, c32)                                                  \
    ZVA_GEMM_TYPE_FNS(z, c64)                                                  \
    ZVA_GEMM_ROW_FNS(dgemm_, double)                                           \
    ZVA_GEMM_ROW_FNS(sgemm_, float)                                            \
    ZVA_GEMM_CROW_FNS(cgemm_, c32)                                             \
    ZVA_GEMM_CROW_FNS(zgemm_, c64)                                             \
    }
ZVA_GEMM_BLOCKED(b4)
ZVA_GEMM_BLOCKED(b5)
ZVA_GEMM_BLOCKED(b6)
ZVA_GEMM_BLOCKED(b7)

// Branches 2 and 3 have no blocked driver: each engine is self-contained,
// and the context operations answer that nothing is there.
#define ZVA_GEMM_NO_CONTEXT_FNS(p, T)                                          \
    inline constexpr auto p##gemm_ctx_load = stand_in<sig_ctx_load>::none;     \
    inline constexpr auto p##gemm_driver = stand_in<sig_ctx_driver<T>>::none;  \
    inline constexpr auto p##gemm_size_buffers = stand_in<sig_ctx_size>::none;
#define ZVA_GEMM_NO_CONTEXT(ns)                                                \
    namespace zva::ns {                                                        \
    inline constexpr auto gemm_ctx_avail = stand_in<sig_ctx_avail>::none;      \
    inline constexpr auto gemm_ctx_clear = stand_in<sig_ctx_clear>::none;      \
    inline constexpr auto gemm_ctx_store = stand_in<sig_ctx_store>::none;      \
    ZVA_GEMM_NO_CONTEXT_FNS(s, float)                                          \
    ZVA_GEMM_NO_CONTEXT_FNS(d, double)                                         \
    ZVA_GEMM_NO_CONTEXT_FNS(c, c32)                                            \
    ZVA_GEMM_NO_CONTEXT_FNS(z, c64)                                            \
    }
ZVA_GEMM_NO_CONTEXT(b2)
ZVA_GEMM_NO_CONTEXT(b3)

// Branch 4 without SSE4.1: the k-pair rows of D and S, and the split rows
// of C and Z with the broadcast stage.
namespace zva::b4 {
ZVA_GEMM_ROW_FNS(dgemm_kp_, double)
ZVA_GEMM_ROW_FNS(sgemm_kp_, float)
sig_gemm_block<c32> cgemm_bc_block_multiply;
sig_gemm_block<c64> zgemm_bc_block_multiply;
}
