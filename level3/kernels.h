// Level-3 kernels other than the multiply's, declared once for every branch
// namespace; each family's recipe defines them.
#pragma once
#include "frame/signatures.h"

ZVA_IN_EVERY_BRANCH(
    // SYRK and HERK (real alpha and beta make it HERK), SYR2K and HER2K (a
    // real beta makes it HER2K): the serial kernels of level3/syrk.
    template <class T, class A> sig_syrk<T, A> syrk;
    template <class T, class B> sig_syr2k<T, B> syr2k;
    // TRMM: the kernel behind the four TRMM dispatch points (the export's list)
    template <class T> sig_trmm<T> trmm;
    // SYMM, HEMM: side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc and
    // the two hidden lengths, as the driver hands them on.
    template <class T> sig_symm<T> symm;
    template <class T> sig_symm<T> hemm;)

// TRSM (level3/trsm/): B := alpha*inv(op(A))*B or alpha*B*inv(op(A)), with
// the export's argument list; serial, m or n may be 0.
ZVA_IN_EVERY_BRANCH(
    template <class T> sig_trmm<T> trsm;)
