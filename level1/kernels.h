// Level-1 kernels, declared once for every branch namespace; each branch's
// recipe or override defines them for the four types.
#pragma once
#include "frame/signatures.h"

ZVA_IN_EVERY_BRANCH(
    template <class T> sig_axpy<T> axpy;)

// DOT family: real dots return their value; the complex ones store it in the
// caller's slot (the first argument) and hand the slot back.
ZVA_IN_EVERY_BRANCH(
    template <class T> sig_dot<T> dot;
    template <class T> sig_cdot<T> dotc;
    template <class T> sig_cdot<T> dotu;
    sig_sdsdot sdsdot;
    sig_dsdot dsdot;)
