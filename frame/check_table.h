// The tests of each checked family, in the published order.
#pragma once
#include "frame/check.h"

namespace zva::checks {

constexpr check_step opt(int p, const char* letters) { return {chk_option, (uint8_t)p, letters}; }
constexpr check_step neg(int p) { return {chk_negative, (uint8_t)p}; }
constexpr check_step inc(int p) { return {chk_zero, (uint8_t)p}; }
constexpr check_step ld(int p, int a) { return {chk_ld, (uint8_t)p, nullptr, bnd_max1, (uint8_t)a}; }
// max(1, option sel is letter ? a : b)
constexpr check_step ld_sel(int p, int sel, char letter, int a, int b) {
    return {chk_ld, (uint8_t)p, nullptr, bnd_select, (uint8_t)a, (uint8_t)b, (uint8_t)sel, letter};
}
constexpr check_step ld_plus1(int p, int a) { return {chk_ld, (uint8_t)p, nullptr, bnd_plus1, (uint8_t)a}; }
constexpr check_step ld_sum1(int p, int a, int b) {
    return {chk_ld, (uint8_t)p, nullptr, bnd_sum1, (uint8_t)a, (uint8_t)b};
}

#define ZVA_FAMILY(name, ...)                                                  \
    inline constexpr check_step name##_steps[] = {__VA_ARGS__};                \
    inline constexpr check_family name = {name##_steps,                        \
                                          sizeof name##_steps / sizeof(check_step)};

// Level 3.  nrowa and nrowb follow the letters as in the published routines.
ZVA_FAMILY(gemm, opt(1, "NTC"), opt(2, "NTC"), neg(3), neg(4), neg(5),
           ld_sel(8, 1, 'N', 3, 5), ld_sel(10, 2, 'N', 5, 4), ld(13, 3))
ZVA_FAMILY(symm, opt(1, "LR"), opt(2, "UL"), neg(3), neg(4),
           ld_sel(7, 1, 'L', 3, 4), ld(9, 3), ld(12, 3))
#define ZVA_SYRK(name, trans)                                                  \
    ZVA_FAMILY(name, opt(1, "UL"), opt(2, trans), neg(3), neg(4),              \
               ld_sel(7, 2, 'N', 3, 4), ld(10, 3))
ZVA_SYRK(syrk, "NTC")
ZVA_SYRK(csyrk, "NT")
ZVA_SYRK(herk, "NC")
#define ZVA_SYR2K(name, trans)                                                 \
    ZVA_FAMILY(name, opt(1, "UL"), opt(2, trans), neg(3), neg(4),              \
               ld_sel(7, 2, 'N', 3, 4), ld_sel(9, 2, 'N', 3, 4), ld(12, 3))
ZVA_SYR2K(syr2k, "NTC")
ZVA_SYR2K(csyr2k, "NT")
ZVA_SYR2K(her2k, "NC")
ZVA_FAMILY(trmm, opt(1, "LR"), opt(2, "UL"), opt(3, "NTC"), opt(4, "UN"),
           neg(5), neg(6), ld_sel(9, 1, 'L', 5, 6), ld(11, 5))
// Level 2.
ZVA_FAMILY(gemv, opt(1, "NTC"), neg(2), neg(3), ld(6, 2), inc(8), inc(11))
ZVA_FAMILY(gbmv, opt(1, "NTC"), neg(2), neg(3), neg(4), neg(5), ld_sum1(8, 4, 5),
           inc(10), inc(13))
ZVA_FAMILY(symv, opt(1, "UL"), neg(2), ld(5, 2), inc(7), inc(10))
ZVA_FAMILY(sbmv, opt(1, "UL"), neg(2), neg(3), ld_plus1(6, 3), inc(8), inc(11))
ZVA_FAMILY(spmv, opt(1, "UL"), neg(2), inc(6), inc(9))
ZVA_FAMILY(trmv, opt(1, "UL"), opt(2, "NTC"), opt(3, "UN"), neg(4), ld(6, 4), inc(8))
ZVA_FAMILY(tbmv, opt(1, "UL"), opt(2, "NTC"), opt(3, "UN"), neg(4), neg(5),
           ld_plus1(7, 5), inc(9))
ZVA_FAMILY(tpmv, opt(1, "UL"), opt(2, "NTC"), opt(3, "UN"), neg(4), inc(7))
ZVA_FAMILY(ger, neg(1), neg(2), inc(5), inc(7), ld(9, 1))
ZVA_FAMILY(syr, opt(1, "UL"), neg(2), inc(5), ld(7, 2))
ZVA_FAMILY(syr2, opt(1, "UL"), neg(2), inc(5), inc(7), ld(9, 2))
ZVA_FAMILY(spr, opt(1, "UL"), neg(2), inc(5))
ZVA_FAMILY(spr2, opt(1, "UL"), neg(2), inc(5), inc(7))

#undef ZVA_SYRK
#undef ZVA_SYR2K
#undef ZVA_FAMILY

}  // namespace zva::checks

// The 96 checked routines and their families.
#define ZVA_CHECKED(X)                                                         \
    X(SGEMM, gemm) X(DGEMM, gemm) X(CGEMM, gemm) X(ZGEMM, gemm)                \
    X(SSYMM, symm) X(DSYMM, symm) X(CSYMM, symm) X(ZSYMM, symm)                \
    X(CHEMM, symm) X(ZHEMM, symm)                                              \
    X(SSYRK, syrk) X(DSYRK, syrk) X(CSYRK, csyrk) X(ZSYRK, csyrk)              \
    X(CHERK, herk) X(ZHERK, herk)                                              \
    X(SSYR2K, syr2k) X(DSYR2K, syr2k) X(CSYR2K, csyr2k) X(ZSYR2K, csyr2k)      \
    X(CHER2K, her2k) X(ZHER2K, her2k)                                          \
    X(STRMM, trmm) X(DTRMM, trmm) X(CTRMM, trmm) X(ZTRMM, trmm)                \
    X(STRSM, trmm) X(DTRSM, trmm) X(CTRSM, trmm) X(ZTRSM, trmm)                \
    X(SGEMV, gemv) X(DGEMV, gemv) X(CGEMV, gemv) X(ZGEMV, gemv)                \
    X(SGBMV, gbmv) X(DGBMV, gbmv) X(CGBMV, gbmv) X(ZGBMV, gbmv)                \
    X(SSYMV, symv) X(DSYMV, symv) X(CHEMV, symv) X(ZHEMV, symv)                \
    X(SSBMV, sbmv) X(DSBMV, sbmv) X(CHBMV, sbmv) X(ZHBMV, sbmv)                \
    X(SSPMV, spmv) X(DSPMV, spmv) X(CHPMV, spmv) X(ZHPMV, spmv)                \
    X(STRMV, trmv) X(DTRMV, trmv) X(CTRMV, trmv) X(ZTRMV, trmv)                \
    X(STRSV, trmv) X(DTRSV, trmv) X(CTRSV, trmv) X(ZTRSV, trmv)                \
    X(STBMV, tbmv) X(DTBMV, tbmv) X(CTBMV, tbmv) X(ZTBMV, tbmv)                \
    X(STBSV, tbmv) X(DTBSV, tbmv) X(CTBSV, tbmv) X(ZTBSV, tbmv)                \
    X(STPMV, tpmv) X(DTPMV, tpmv) X(CTPMV, tpmv) X(ZTPMV, tpmv)                \
    X(STPSV, tpmv) X(DTPSV, tpmv) X(CTPSV, tpmv) X(ZTPSV, tpmv)                \
    X(SGER, ger) X(DGER, ger) X(CGERU, ger) X(ZGERU, ger) X(CGERC, ger)        \
    X(ZGERC, ger)                                                              \
    X(SSYR, syr) X(DSYR, syr) X(CHER, syr) X(ZHER, syr)                        \
    X(SSYR2, syr2) X(DSYR2, syr2) X(CHER2, syr2) X(ZHER2, syr2)                \
    X(SSPR, spr) X(DSPR, spr) X(CHPR, spr) X(ZHPR, spr)                        \
    X(SSPR2, spr2) X(DSPR2, spr2) X(CHPR2, spr2) X(ZHPR2, spr2)

#define ZVA_COUNT_CHECKED(...) +1
static_assert(0 ZVA_CHECKED(ZVA_COUNT_CHECKED) == 96, "96 routines check their arguments");
#undef ZVA_COUNT_CHECKED
