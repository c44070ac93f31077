// Level-1 kernels, declared once for every branch namespace; each branch's
// recipe or override defines them for the four types.
#pragma once
#include "frame/signatures.h"

ZVA_IN_EVERY_BRANCH(
    template <class T> sig_axpy<T> axpy;)

// SCAL: T the vector, A alpha (CSSCAL: c32 vector, float alpha). NRM2 and
// ASUM share an argument list but are two families.
ZVA_IN_EVERY_BRANCH(
    template <class T, class A> sig_scal<T, A> scal;
    template <class T> sig_asum<T> asum;
    template <class T> sig_asum<T> nrm2;)
