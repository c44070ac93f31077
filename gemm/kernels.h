// Multiply-engine kernels: the same names in every branch namespace.
#pragma once
#include "frame/types.h"

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

ZVA_GEMM_KERNELS(b2)
ZVA_GEMM_KERNELS(b3)
ZVA_GEMM_KERNELS(b4)
ZVA_GEMM_KERNELS(b5)
ZVA_GEMM_KERNELS(b6)
ZVA_GEMM_KERNELS(b7)
