// Level-2 kernels, declared once for every branch namespace; each branch's
// recipe or override defines them for the four types.
#pragma once
#include "frame/signatures.h"

ZVA_IN_EVERY_BRANCH(
    // trans, m, n, alpha, a, lda, x, incx, beta, y, incy: the export's list
    // without the hidden length.
    template <class T> sig_gemv_k<T> gemv;)

// Band kernels (level2/band/): the export's list with its hidden lengths.
// sbmv of a complex type is HBMV; tbmv and tbsv share one argument list.
ZVA_IN_EVERY_BRANCH(
    template <class T> sig_gbmv<T> gbmv;
    template <class T> sig_sbmv<T> sbmv;
    template <class T> sig_tbmv<T> tbmv;
    template <class T> sig_tbmv<T> tbsv;)
