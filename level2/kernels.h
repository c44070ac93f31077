// Level-2 kernels: the same names in every branch namespace.
#pragma once
#include "frame/types.h"

// GEMV kernels take the export's eleven arguments without the hidden length:
// trans, m, n, alpha, a, lda, x, incx, beta, y, incy.
#define ZVA_GEMV_KERNEL(name, T)                                               \
    void name(const char* trans, const int* m, const int* n, const T* alpha,   \
              const T* a, const int* lda, const T* x, const int* incx,         \
              const T* beta, T* y, const int* incy);

#define ZVA_LEVEL2_KERNELS(ns)                                                 \
    namespace zva::ns {                                                        \
    ZVA_GEMV_KERNEL(sgemv, float)                                              \
    ZVA_GEMV_KERNEL(dgemv, double)                                             \
    ZVA_GEMV_KERNEL(cgemv, c32)                                                \
    ZVA_GEMV_KERNEL(zgemv, c64)                                                \
    }

ZVA_LEVEL2_KERNELS(b2)
ZVA_LEVEL2_KERNELS(b3)
ZVA_LEVEL2_KERNELS(b4)
ZVA_LEVEL2_KERNELS(b5)
ZVA_LEVEL2_KERNELS(b6)
ZVA_LEVEL2_KERNELS(b7)
