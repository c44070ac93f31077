// The threaded drivers of SYRK, HERK, SYR2K and HER2K: diagonal strips on a
// team, then the rectangles between them through the threaded multiply.
#pragma once
#include "frame/signatures.h"

namespace zva {

// SYRK, or HERK where alpha and beta are real (A = R_<T>).
template <class T, class A>
void syrk_driver(Ch uplo, Ch trans, I n, I k, const A* alpha, const T* a, I lda, const A* beta,
                 T* c, I ldc, L, L);
// SYR2K, or HER2K where beta is real (B = R_<T>).
template <class T, class B>
void syr2k_driver(Ch uplo, Ch trans, I n, I k, const T* alpha, const T* a, I lda, const T* b,
                  I ldb, const B* beta, T* c, I ldc, L, L);

}  // namespace zva
