// Level-1 kernels: the same set of names in every branch namespace, so that
// each branch's kernel table can name them alike.
#pragma once
#include "frame/types.h"

#define ZVA_LEVEL1_KERNELS(ns)                                                 \
    namespace zva::ns {                                                        \
    void saxpy(const int* n, const float* alpha, const float* x,              \
               const int* incx, float* y, const int* incy);                   \
    void daxpy(const int* n, const double* alpha, const double* x,            \
               const int* incx, double* y, const int* incy);                  \
    void caxpy(const int* n, const c32* alpha, const c32* x, const int* incx, \
               c32* y, const int* incy);                                      \
    void zaxpy(const int* n, const c64* alpha, const c64* x, const int* incx, \
               c64* y, const int* incy);                                      \
    }

ZVA_LEVEL1_KERNELS(b2)
ZVA_LEVEL1_KERNELS(b3)
ZVA_LEVEL1_KERNELS(b4)
ZVA_LEVEL1_KERNELS(b5)
ZVA_LEVEL1_KERNELS(b6)
ZVA_LEVEL1_KERNELS(b7)
