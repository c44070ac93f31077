// The threaded TRSM driver: one call of the kernel, or a team whose threads
// each solve the whole triangle on their own slab of B.
#pragma once
#include "frame/signatures.h"

namespace zva {

template <class T>
void trsm_driver(Ch side, Ch uplo, Ch transa, Ch diag, I m, I n, const T* alpha, const T* a,
                 I lda, T* b, I ldb, L, L, L, L);

}  // namespace zva
