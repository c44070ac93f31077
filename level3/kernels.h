// Level-3 kernels other than the multiply's, declared once for every branch
// namespace; each family's recipe defines them.
#pragma once
#include "frame/signatures.h"

ZVA_IN_EVERY_BRANCH(
    // one block of declarations per family
    // SYMM, HEMM: side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc and
    // the two hidden lengths, as the driver hands them on.
    template <class T> sig_symm<T> symm;
    template <class T> sig_symm<T> hemm;
)
