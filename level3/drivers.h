// Threaded level-3 drivers: what the routine table's driver column names.
#pragma once
#include "frame/dispatch.h"

namespace zva {

// TRMM: B is cut along its free dimension among the threads.
template <class T>
void trmm_driver(Ch side, Ch uplo, Ch transa, Ch diag, I m, I n, const T* alpha, const T* a,
                 I lda, T* b, I ldb, L, L, L, L);

}  // namespace zva
