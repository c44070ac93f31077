// Threaded level-2 drivers.
#pragma once
#include "frame/dispatch.h"

namespace zva {

template <class T> void gemv_driver(Ch trans, I m, I n, const T* alpha, const T* a, I lda,
                                    const T* x, I incx, const T* beta, T* y, I incy, L);

// The same product from inside the library (no hidden length).
template <class T> inline void gemv(Ch trans, I m, I n, const T* alpha, const T* a, I lda,
                                    const T* x, I incx, const T* beta, T* y, I incy) {
    gemv_driver<T>(trans, m, n, alpha, a, lda, x, incx, beta, y, incy, 1);
}

// SYMV, SYR and SYR2 in S and D (level2/symv/driver.cpp).
template <class T> void symv_driver(Ch uplo, I n, const T* alpha, const T* a, I lda, const T* x, I incx,
                                    const T* beta, T* y, I incy, L);
template <class T> void syr_driver(Ch uplo, I n, const T* alpha, const T* x, I incx, T* a, I lda, L);
template <class T> void syr2_driver(Ch uplo, I n, const T* alpha, const T* x, I incx, const T* y, I incy, T* a,
                                    I lda, L);
// TRMV: the kernel, or the rows of the triangle split over a team with a
// private copy of x. DTRSV: n > 0, then the kernel.
template <class T> void trmv_driver(Ch uplo, Ch trans, Ch diag, I n, const T* a, I lda, T* x,
                                    I incx, L, L, L);
void dtrsv_driver(Ch uplo, Ch trans, Ch diag, I n, const double* a, I lda, double* x, I incx,
                  L, L, L);

}  // namespace zva
