// Level-2 kernels, declared once for every branch namespace; each branch's
// recipe or override defines them for the four types.
#pragma once
#include "frame/signatures.h"

ZVA_IN_EVERY_BRANCH(
    // trans, m, n, alpha, a, lda, x, incx, beta, y, incy: the export's list
    // without the hidden length.
    template <class T> sig_gemv_k<T> gemv;)
