// Level-2 kernels, declared once for every branch namespace; each branch's
// recipe or override defines them for the four types.
#pragma once
#include "frame/signatures.h"
#include "frame/dispatch.h"  // stand_in, for the regions of branches 2 and 3

ZVA_IN_EVERY_BRANCH(
    // trans, m, n, alpha, a, lda, x, incx, beta, y, incy: the export's list
    // without the hidden length.
    template <class T> sig_gemv_k<T> gemv;)

// Symmetric and Hermitian matrix-vector operations (level2/symv/): SYMV and
// HEMV, the rank-1 updates SYR and HER, the rank-2 updates SYR2 and HER2.
ZVA_IN_EVERY_BRANCH(
    template <class T> sig_symv<T> symv;
    template <class T> sig_symv<T> hemv;
    template <class T, class A> sig_syr<T, A> syr;
    template <class T, class A> sig_syr<T, A> her;
    template <class T> sig_syr2<T> syr2;
    template <class T> sig_syr2<T> her2;)
// The columns [first, last) of SYR and SYR2 in S and D, for the threads of
// their regions; branches 2 and 3 never fork (their micro-architecture code
// is 0) and hold the empty kernel.
#define ZVA_SYR_REGIONS(ns)                                                    \
    namespace zva::ns {                                                        \
    template <class T> sig_syr_region<T> syr_region;                           \
    template <class T> sig_syr2_region<T> syr2_region;                         \
    }
ZVA_SYR_REGIONS(b4)
ZVA_SYR_REGIONS(b5)
ZVA_SYR_REGIONS(b6)
ZVA_SYR_REGIONS(b7)
#undef ZVA_SYR_REGIONS
#define ZVA_NO_SYR_REGIONS(ns)                                                 \
    namespace zva::ns {                                                        \
    template <class T>                                                         \
    inline constexpr auto syr_region = stand_in<sig_syr_region<T>>::none;      \
    template <class T>                                                         \
    inline constexpr auto syr2_region = stand_in<sig_syr2_region<T>>::none;    \
    }
ZVA_NO_SYR_REGIONS(b2)
ZVA_NO_SYR_REGIONS(b3)
#undef ZVA_NO_SYR_REGIONS
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
// Band kernels (level2/band/): the export's list with its hidden lengths.
// sbmv of a complex type is HBMV; tbmv and tbsv share one argument list.
ZVA_IN_EVERY_BRANCH(
    template <class T> sig_gbmv<T> gbmv;
    template <class T> sig_sbmv<T> sbmv;
    template <class T> sig_tbmv<T> tbmv;
    template <class T> sig_tbmv<T> tbsv;)
// Packed triangles (level2/packed/): spmv is HPMV in the complex types, spr
// HPR (A, the type of alpha, real there) and spr2 HPR2; tpmv and tpsv take
// all four types alike.
ZVA_IN_EVERY_BRANCH(
    template <class T> sig_spmv<T> spmv;
    template <class T, class A> sig_spr<T, A> spr;
    template <class T> sig_spr2<T> spr2;
    template <class T> sig_tpmv<T> tpmv;
    template <class T> sig_tpmv<T> tpsv;)
