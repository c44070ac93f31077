// Level-2 kernels, declared once for every branch namespace; each branch's
// recipe or override defines them for the four types.
#pragma once
#include "frame/signatures.h"

ZVA_IN_EVERY_BRANCH(
    // trans, m, n, alpha, a, lda, x, incx, beta, y, incy: the export's list
    // without the hidden length.
    template <class T> sig_gemv_k<T> gemv;)

// Packed triangles (level2/packed/): spmv is HPMV in the complex types, spr
// HPR (A, the type of alpha, real there) and spr2 HPR2; tpmv and tpsv take
// all four types alike.
ZVA_IN_EVERY_BRANCH(
    template <class T> sig_spmv<T> spmv;
    template <class T, class A> sig_spr<T, A> spr;
    template <class T> sig_spr2<T> spr2;
    template <class T> sig_tpmv<T> tpmv;
    template <class T> sig_tpmv<T> tpsv;)
