// Threaded level-3 drivers: what the routine table's driver column names.
#pragma once
#include "frame/signatures.h"

namespace zva {

// TRSM: one call of the kernel, or a team whose threads each solve the whole
// triangle on their own slab of B.
template <class T>
void trsm_driver(Ch side, Ch uplo, Ch transa, Ch diag, I m, I n, const T* alpha, const T* a,
                 I lda, T* b, I ldb, L, L, L, L);

// TRMM: B is cut along its free dimension among the threads.
template <class T>
void trmm_driver(Ch side, Ch uplo, Ch transa, Ch diag, I m, I n, const T* alpha, const T* a,
                 I lda, T* b, I ldb, L, L, L, L);

// SYRK, or HERK where alpha and beta are real (A = R_<T>); SYR2K, or HER2K
// where beta is real (B = R_<T>): diagonal strips on a team, then the
// rectangles between them through the threaded multiply.
template <class T, class A>
void syrk_driver(Ch uplo, Ch trans, I n, I k, const A* alpha, const T* a, I lda, const A* beta,
                 T* c, I ldc, L, L);
template <class T, class B>
void syr2k_driver(Ch uplo, Ch trans, I n, I k, const T* alpha, const T* a, I lda, const T* b,
                  I ldb, const B* beta, T* c, I ldc, L, L);

// SYMM and HEMM.
template <class T>
void symm_driver(Ch side, Ch uplo, I m, I n, const T* alpha, const T* a, I lda, const T* b, I ldb,
                 const T* beta, T* c, I ldc, L, L);
template <class T>
void hemm_driver(Ch side, Ch uplo, I m, I n, const T* alpha, const T* a, I lda, const T* b, I ldb,
                 const T* beta, T* c, I ldc, L, L);

}  // namespace zva
