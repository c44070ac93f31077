// Multiply-engine kernels: the same names in every branch namespace.
#pragma once
#include "frame/types.h"
#include "gemm/engine.h"

// C := beta*C on an m x n block; beta = 0 stores zeros without reading C.
#define ZVA_GEMM_SCALE_C(name, T)                                              \
    void name(const int* m, const int* n, const T* beta, T* c, const int* ldc);
// The plain multiply without packing: C := alpha*op(A)*op(B) + beta*C.
#define ZVA_GEMM_DIRECT(name, T)                                               \
    void name(const char* transa, const char* transb, const int* m,            \
              const int* n, const int* k, const T* alpha, const T* a,          \
              const int* lda, const T* b, const int* ldb, const T* beta, T* c, \
              const int* ldc);

#define ZVA_GEMM_KERNELS(ns)                                                   \
    namespace zva::ns {                                                        \
    ZVA_GEMM_SCALE_C(sgemm_scale_c, float)                                     \
    ZVA_GEMM_SCALE_C(dgemm_scale_c, double)                                    \
    ZVA_GEMM_SCALE_C(cgemm_scale_c, c32)                                       \
    ZVA_GEMM_SCALE_C(zgemm_scale_c, c64)                                       \
    ZVA_GEMM_DIRECT(sgemm_direct, float)                                       \
    ZVA_GEMM_DIRECT(dgemm_direct, double)                                      \
    ZVA_GEMM_DIRECT(cgemm_direct, c32)                                         \
    ZVA_GEMM_DIRECT(zgemm_direct, c64)                                         \
    }

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

// The serial engine of each branch, and on branches 4 to 7 its blocked
// driver and the operations on a gemm_context.
#define ZVA_GEMM_ENGINE(ns)                                                    \
    namespace zva::ns {                                                        \
    sig_gemm_serial<float> sgemm_serial;                                       \
    sig_gemm_serial<double> dgemm_serial;                                      \
    sig_gemm_serial<c32> cgemm_serial;                                         \
    sig_gemm_serial<c64> zgemm_serial;                                         \
    }
#define ZVA_GEMM_TYPE_FNS(p, T)                                                \
    sig_ctx_load p##gemm_ctx_load;                                             \
    sig_ctx_driver<T> p##gemm_driver;                                          \
    sig_ctx_size p##gemm_size_buffers;
#define ZVA_GEMM_BLOCKED(ns)                                                   \
    namespace zva::ns {                                                        \
    sig_ctx_avail gemm_ctx_avail;                                              \
    sig_ctx_clear gemm_ctx_clear;                                              \
    sig_ctx_store gemm_ctx_store;                                              \
    sig_ctx_load dgemm_ctx_load;                                               \
    sig_ctx_driver<double> dgemm_driver;                                       \
    sig_ctx_size dgemm_size_buffers;                                           \
    ZVA_GEMM_TYPE_FNS(s, float)                                                \
    ZVA_GEMM_TYPE_FNS(c, c32)                                                  \
    ZVA_GEMM_TYPE_FNS(z, c64)                                                  \
    ZVA_GEMM_ROW_FNS(dgemm_, double)                                           \
    ZVA_GEMM_ROW_FNS(sgemm_, float)                                            \
    ZVA_GEMM_CROW_FNS(cgemm_, c32)                                             \
    ZVA_GEMM_CROW_FNS(zgemm_, c64)                                             \
    }

ZVA_GEMM_KERNELS(b2)
ZVA_GEMM_KERNELS(b3)
ZVA_GEMM_KERNELS(b4)
ZVA_GEMM_KERNELS(b5)
ZVA_GEMM_KERNELS(b6)
ZVA_GEMM_KERNELS(b7)

ZVA_GEMM_ENGINE(b2)
ZVA_GEMM_ENGINE(b3)
ZVA_GEMM_ENGINE(b4)
ZVA_GEMM_ENGINE(b5)
ZVA_GEMM_ENGINE(b6)
ZVA_GEMM_ENGINE(b7)
ZVA_GEMM_BLOCKED(b4)
ZVA_GEMM_BLOCKED(b5)
ZVA_GEMM_BLOCKED(b6)
ZVA_GEMM_BLOCKED(b7)
// Branch 4 without SSE4.1: the k-pair rows of D and S, and the split rows
// of C and Z with the broadcast stage.
namespace zva::b4 {
ZVA_GEMM_ROW_FNS(dgemm_kp_, double)
ZVA_GEMM_ROW_FNS(sgemm_kp_, float)
sig_gemm_block<c32> cgemm_bc_block_multiply;
sig_gemm_block<c64> zgemm_bc_block_multiply;
}
