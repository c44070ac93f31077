// C := beta*C for branch 4: SSSE3, 128-bit vectors.
#include "gemm/kernels.h"
#include "gemm/scale_c.h"

namespace zva::b4 {
namespace {
using K = gemm_plain::lanes128;
}  // namespace

void sgemm_scale_c(const int* m, const int* n, const float* beta, float* c, const int* ldc) {
    gemm_plain::scale_c<K::s1, K::sv>(*m, *n, beta, c, *ldc);
}

void dgemm_scale_c(const int* m, const int* n, const double* beta, double* c, const int* ldc) {
    gemm_plain::scale_c<K::d1, K::dv>(*m, *n, beta, c, *ldc);
}

void cgemm_scale_c(const int* m, const int* n, const c32* beta, c32* c, const int* ldc) {
    gemm_plain::scale_c<K::c1, K::cv>(*m, *n, beta, c, *ldc);
}

void zgemm_scale_c(const int* m, const int* n, const c64* beta, c64* c, const int* ldc) {
    gemm_plain::scale_c<K::z1, K::zv>(*m, *n, beta, c, *ldc);
}

}  // namespace zva::b4
