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
// Sparse level 1 (level1/sparse/): compressed vectors with one-based
// indices. GTHR and GTHRZ share one gather text, the conjugated and the
// plain complex dots one dot text (Conj).
ZVA_IN_EVERY_BRANCH(
    template <class T> sig_axpyi<T> axpyi;
    template <class T> sig_doti<T> doti;
    template <class T, bool Conj> sig_cdoti<T> cdoti;
    template <class T> sig_gthr<T> gthr;
    template <class T> sig_gthrz<T> gthrz;
    template <class T> sig_sctr<T> sctr;
    template <class T> sig_roti<T> roti;)

// The first position of the largest (smallest) measure.
ZVA_IN_EVERY_BRANCH(
    template <class T> sig_iamax<T> iamax;
    template <class T> sig_iamax<T> iamin;)

// SCAL: T the vector, A alpha (CSSCAL: c32 vector, float alpha). NRM2 and
// ASUM share an argument list but are two families.
ZVA_IN_EVERY_BRANCH(
    template <class T, class A> sig_scal<T, A> scal;
    template <class T> sig_asum<T> asum;
    template <class T> sig_asum<T> nrm2;)

// COPY and SWAP move bits; complex vectors go through the real kernels.
ZVA_IN_EVERY_BRANCH(
    template <class T> sig_copy<T> copy;
    template <class T> sig_swap<T> swap;)

// Plane rotations: ROT (real c, s; complex x, y for CSROT, ZDROT), ROTM,
// and the generators ROTG, ROTMG.
ZVA_IN_EVERY_BRANCH(
    template <class T, class C> sig_rot<T, C> rot;
    template <class T> sig_rotm<T> rotm;
    template <class T> sig_rotg<T> rotg;
    template <class T> sig_rotmg<T> rotmg;)
