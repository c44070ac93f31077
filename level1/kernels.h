// Level-1 kernels, declared once for every branch namespace; each branch's
// recipe or override defines them for the four types.
#pragma once
#include "frame/signatures.h"

ZVA_IN_EVERY_BRANCH(
    template <class T> sig_axpy<T> axpy;
    template <class T> sig_copy<T> copy;
    template <class T> sig_swap<T> swap;)
