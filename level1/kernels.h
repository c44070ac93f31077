// Level-1 kernels, declared once for every branch namespace; each branch's
// recipe or override defines them for the four types.
#pragma once
#include "frame/signatures.h"

ZVA_IN_EVERY_BRANCH(
    template <class T> sig_axpy<T> axpy;)

// Plane rotations: ROT (real c, s; complex x, y for CSROT, ZDROT), ROTM,
// and the generators ROTG, ROTMG.
ZVA_IN_EVERY_BRANCH(
    template <class T, class C> sig_rot<T, C> rot;
    template <class T> sig_rotm<T> rotm;
    template <class T> sig_rotg<T> rotg;
    template <class T> sig_rotmg<T> rotmg;)
