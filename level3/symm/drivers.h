// Threaded drivers of SYMM and HEMM.
#pragma once
#include "frame/dispatch.h"

namespace zva {

template <class T>
void symm_driver(Ch side, Ch uplo, I m, I n, const T* alpha, const T* a, I lda, const T* b, I ldb,
                 const T* beta, T* c, I ldc, L, L);
template <class T>
void hemm_driver(Ch side, Ch uplo, I m, I n, const T* alpha, const T* a, I lda, const T* b, I ldb,
                 const T* beta, T* c, I ldc, L, L);

}  // namespace zva
