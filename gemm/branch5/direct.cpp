// The plain multiply for branch 5: SSE4.2, 128-bit vectors.
// Separate multiplies and adds throughout; the scalar parts run in xmm
// registers too, so every value is rounded to its type at each step.
#include "gemm/direct.h"
#include "gemm/kernels.h"

namespace zva::b5 {
namespace {
using K = gemm_plain::lanes128;
}  // namespace

void sgemm_direct(const char* transa, const char* transb, const int* m, const int* n,
                  const int* k, const float* alpha, const float* a, const int* lda,
                  const float* b, const int* ldb, const float* beta, float* c, const int* ldc) {
    gemm_plain::direct<K::s1, K::sv>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c,
                                     ldc, sgemm_scale_c);
}

void dgemm_direct(const char* transa, const char* transb, const int* m, const int* n,
                  const int* k, const double* alpha, const double* a, const int* lda,
                  const double* b, const int* ldb, const double* beta, double* c,
                  const int* ldc) {
    gemm_plain::direct<K::d1, K::dv>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c,
                                     ldc, dgemm_scale_c);
}

void cgemm_direct(const char* transa, const char* transb, const int* m, const int* n,
                  const int* k, const c32* alpha, const c32* a, const int* lda, const c32* b,
                  const int* ldb, const c32* beta, c32* c, const int* ldc) {
    gemm_plain::direct<K::c1, K::cv>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c,
                                     ldc, cgemm_scale_c);
}

void zgemm_direct(const char* transa, const char* transb, const int* m, const int* n,
                  const int* k, const c64* alpha, const c64* a, const int* lda, const c64* b,
                  const int* ldb, const c64* beta, c64* c, const int* ldc) {
    gemm_plain::direct<K::z1, K::zv>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c,
                                     ldc, zgemm_scale_c);
}

}  // namespace zva::b5
