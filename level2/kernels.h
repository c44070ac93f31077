// Level-2 kernels, declared once for every branch namespace; each branch's
// recipe or override defines them for the four types.
#pragma once
#include "frame/signatures.h"

ZVA_IN_EVERY_BRANCH(
    // trans, m, n, alpha, a, lda, x, incx, beta, y, incy: the export's list
    // without the hidden length.
    template <class T> sig_gemv_k<T> gemv;)

#include "frame/dispatch.h"  // stand_in

// TRMV and TRSV: the export's list with the hidden lengths. GER: CGERU and
// ZGERU with Conj false, CGERC and ZGERC with Conj true.
ZVA_IN_EVERY_BRANCH(
    template <class T> sig_trmv<T> trmv;
    template <class T> sig_trmv<T> trsv;
    template <class T, bool Conj> sig_ger<T> ger;)
// The slice kernel of the threaded TRMV on branches 4 to 7; branches 2 and
// 3 never fork (their micro-architecture code is 0) and hold the empty
// kernel.
#define ZVA_TRMV_REGION(ns) \
    namespace zva::ns { template <class T> sig_trmv_region<T> trmv_region; }
#define ZVA_TRMV_NO_REGION(ns)                                                 \
    namespace zva::ns {                                                        \
    template <class T>                                                         \
    inline constexpr auto trmv_region = stand_in<sig_trmv_region<T>>::none;    \
    }
ZVA_TRMV_NO_REGION(b2)
ZVA_TRMV_NO_REGION(b3)
ZVA_TRMV_REGION(b4)
ZVA_TRMV_REGION(b5)
ZVA_TRMV_REGION(b6)
ZVA_TRMV_REGION(b7)
#undef ZVA_TRMV_REGION
#undef ZVA_TRMV_NO_REGION
