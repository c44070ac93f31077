// The table of routines: every export with its stack bytes, route, internal
// argument list and the signature of its main dispatch point.  Everything
// per-routine (exports, dispatch points, kernel tables, the export-name test)
// is expanded from this one list.
//
// Routes: DSP  dispatch point only       CDSP checker, then dispatch point
//         DRV  threaded driver           CDRV checker, then threaded driver
// The main dispatch point of a driver-route routine is the kernel its driver
// runs on the whole vector or on a slice; for GEMM it is gemm_serial.
#pragma once
#include "frame/signatures.h"

using zva::c32;
using zva::c64;

// X(NAME, BYTES, ROUTE, (internal list), (main dispatch point signature),
//   (kernel), (driver)):
//   kernel  what each branch runs at the main point, named as it stands in
//           every branch namespace (declared once, in the family's
//           kernels.h)
//   driver  the threaded driver of the DRV and CDRV routes;
//           (no_driver) on the other routes
// Signatures and names come in parentheses because some hold commas.
#define ZVA_SAME(X, N, B, R, S, K, D) X(N, B, R, S, S, K, D)

#define ZVA_ROUTINES(X)                                                                                                  \
    /* level 1 */                                                                                                        \
    ZVA_SAME(X, SAXPY, 24, DRV, (zva::sig_axpy<float>), (axpy<float>), (axpy_driver<float>))                             \
    ZVA_SAME(X, DAXPY, 24, DRV, (zva::sig_axpy<double>), (axpy<double>), (axpy_driver<double>))                          \
    ZVA_SAME(X, CAXPY, 24, DRV, (zva::sig_axpy<c32>), (axpy<c32>), (axpy_driver<c32>))                                   \
    ZVA_SAME(X, ZAXPY, 24, DRV, (zva::sig_axpy<c64>), (axpy<c64>), (axpy_driver<c64>))                                   \
    ZVA_SAME(X, SCOPY, 20, DRV, (zva::sig_copy<float>), (copy<float>), (copy_driver<float>))                             \
    ZVA_SAME(X, DCOPY, 20, DRV, (zva::sig_copy<double>), (copy<double>), (copy_driver<double>))                          \
    ZVA_SAME(X, CCOPY, 20, DRV, (zva::sig_copy<c32>), (copy<c32>), (copy_driver<c32>))                                   \
    ZVA_SAME(X, ZCOPY, 20, DRV, (zva::sig_copy<c64>), (copy<c64>), (copy_driver<c64>))                                   \
    ZVA_SAME(X, SSWAP, 20, DRV, (zva::sig_swap<float>), (swap<float>), (swap_driver<float>))                             \
    ZVA_SAME(X, DSWAP, 20, DRV, (zva::sig_swap<double>), (swap<double>), (swap_driver<double>))                          \
    ZVA_SAME(X, CSWAP, 20, DRV, (zva::sig_swap<c32>), (swap<c32>), (swap_driver<c32>))                                   \
    ZVA_SAME(X, ZSWAP, 20, DRV, (zva::sig_swap<c64>), (swap<c64>), (swap_driver<c64>))                                   \
    ZVA_SAME(X, SDOT, 20, DRV, (zva::sig_dot<float>), (dot<float>), (dot_driver<float>))                                 \
    ZVA_SAME(X, DDOT, 20, DRV, (zva::sig_dot<double>), (dot<double>), (dot_driver<double>))                              \
    ZVA_SAME(X, CDOTC, 24, DRV, (zva::sig_cdot<c32>), (dotc<c32>), (cdotc_driver))                                       \
    ZVA_SAME(X, ZDOTC, 24, DSP, (zva::sig_cdot<c64>), (dotc<c64>), (no_driver))                                         \
    ZVA_SAME(X, CDOTU, 24, DSP, (zva::sig_cdot<c32>), (dotu<c32>), (no_driver))                                         \
    ZVA_SAME(X, ZDOTU, 24, DSP, (zva::sig_cdot<c64>), (dotu<c64>), (no_driver))                                         \
    ZVA_SAME(X, SDSDOT, 24, DSP, (zva::sig_sdsdot), (sdsdot), (no_driver))                                              \
    ZVA_SAME(X, DSDOT, 20, DSP, (zva::sig_dsdot), (dsdot), (no_driver))                                                 \
    ZVA_SAME(X, SSCAL, 16, DSP, (zva::sig_scal<float, float>), (scal<float, float>), (no_driver))                       \
    ZVA_SAME(X, DSCAL, 16, DSP, (zva::sig_scal<double, double>), (scal<double, double>), (no_driver))                   \
    ZVA_SAME(X, CSCAL, 16, DSP, (zva::sig_scal<c32, c32>), (scal<c32, c32>), (no_driver))                               \
    ZVA_SAME(X, ZSCAL, 16, DSP, (zva::sig_scal<c64, c64>), (scal<c64, c64>), (no_driver))                               \
    ZVA_SAME(X, CSSCAL, 16, DSP, (zva::sig_scal<c32, float>), (scal<c32, float>), (no_driver))                          \
    ZVA_SAME(X, ZDSCAL, 16, DSP, (zva::sig_scal<c64, double>), (scal<c64, double>), (no_driver))                        \
    ZVA_SAME(X, SASUM, 12, DSP, (zva::sig_asum<float>), (asum<float>), (no_driver))                                     \
    ZVA_SAME(X, DASUM, 12, DSP, (zva::sig_asum<double>), (asum<double>), (no_driver))                                   \
    ZVA_SAME(X, SCASUM, 12, DSP, (zva::sig_asum<c32>), (asum<c32>), (no_driver))                                        \
    ZVA_SAME(X, DZASUM, 12, DSP, (zva::sig_asum<c64>), (asum<c64>), (no_driver))                                        \
    ZVA_SAME(X, SNRM2, 12, DSP, (zva::sig_asum<float>), (nrm2<float>), (no_driver))                                     \
    ZVA_SAME(X, DNRM2, 12, DSP, (zva::sig_asum<double>), (nrm2<double>), (no_driver))                                   \
    ZVA_SAME(X, SCNRM2, 12, DSP, (zva::sig_asum<c32>), (nrm2<c32>), (no_driver))                                        \
    ZVA_SAME(X, DZNRM2, 12, DSP, (zva::sig_asum<c64>), (nrm2<c64>), (no_driver))                                        \
    ZVA_SAME(X, ISAMAX, 12, DSP, (zva::sig_iamax<float>), (iamax<float>), (no_driver))                                  \
    ZVA_SAME(X, IDAMAX, 12, DSP, (zva::sig_iamax<double>), (iamax<double>), (no_driver))                                \
    ZVA_SAME(X, ICAMAX, 12, DSP, (zva::sig_iamax<c32>), (iamax<c32>), (no_driver))                                      \
    ZVA_SAME(X, IZAMAX, 12, DSP, (zva::sig_iamax<c64>), (iamax<c64>), (no_driver))                                      \
    ZVA_SAME(X, ISAMIN, 12, DSP, (zva::sig_iamax<float>), (iamin<float>), (no_driver))                                  \
    ZVA_SAME(X, IDAMIN, 12, DSP, (zva::sig_iamax<double>), (iamin<double>), (no_driver))                                \
    ZVA_SAME(X, ICAMIN, 12, DSP, (zva::sig_iamax<c32>), (iamin<c32>), (no_driver))                                      \
    ZVA_SAME(X, IZAMIN, 12, DSP, (zva::sig_iamax<c64>), (iamin<c64>), (no_driver))                                      \
    ZVA_SAME(X, SROT, 28, DRV, (zva::sig_rot<float, float>), (rot<float, float>), (rot_driver<float>))                   \
    ZVA_SAME(X, DROT, 28, DRV, (zva::sig_rot<double, double>), (rot<double, double>), (rot_driver<double>))              \
    ZVA_SAME(X, CSROT, 28, DSP, (zva::sig_rot<c32, float>), (rot<c32, float>), (no_driver))                             \
    ZVA_SAME(X, ZDROT, 28, DSP, (zva::sig_rot<c64, double>), (rot<c64, double>), (no_driver))                           \
    ZVA_SAME(X, SROTG, 16, DSP, (zva::sig_rotg<float>), (rotg<float>), (no_driver))                                     \
    ZVA_SAME(X, DROTG, 16, DSP, (zva::sig_rotg<double>), (rotg<double>), (no_driver))                                   \
    ZVA_SAME(X, CROTG, 16, DSP, (zva::sig_rotg<c32>), (rotg<c32>), (no_driver))                                         \
    ZVA_SAME(X, ZROTG, 16, DSP, (zva::sig_rotg<c64>), (rotg<c64>), (no_driver))                                         \
    ZVA_SAME(X, SROTM, 24, DSP, (zva::sig_rotm<float>), (rotm<float>), (no_driver))                                     \
    ZVA_SAME(X, DROTM, 24, DSP, (zva::sig_rotm<double>), (rotm<double>), (no_driver))                                   \
    ZVA_SAME(X, SROTMG, 20, DSP, (zva::sig_rotmg<float>), (rotmg<float>), (no_driver))                                  \
    ZVA_SAME(X, DROTMG, 20, DSP, (zva::sig_rotmg<double>), (rotmg<double>), (no_driver))                                \
    /* sparse level 1 */                                                                                                 \
    ZVA_SAME(X, SAXPYI, 20, DSP, (zva::sig_axpyi<float>), (axpyi<float>), (no_driver))                                  \
    ZVA_SAME(X, DAXPYI, 20, DSP, (zva::sig_axpyi<double>), (axpyi<double>), (no_driver))                                \
    ZVA_SAME(X, CAXPYI, 20, DSP, (zva::sig_axpyi<c32>), (axpyi<c32>), (no_driver))                                      \
    ZVA_SAME(X, ZAXPYI, 20, DSP, (zva::sig_axpyi<c64>), (axpyi<c64>), (no_driver))                                      \
    ZVA_SAME(X, SDOTI, 16, DSP, (zva::sig_doti<float>), (doti<float>), (no_driver))                                     \
    ZVA_SAME(X, DDOTI, 16, DSP, (zva::sig_doti<double>), (doti<double>), (no_driver))                                   \
    ZVA_SAME(X, CDOTCI, 20, DSP, (zva::sig_cdoti<c32>), (cdoti<c32, true>), (no_driver))                                \
    ZVA_SAME(X, ZDOTCI, 20, DSP, (zva::sig_cdoti<c64>), (cdoti<c64, true>), (no_driver))                                \
    ZVA_SAME(X, CDOTUI, 20, DSP, (zva::sig_cdoti<c32>), (cdoti<c32, false>), (no_driver))                               \
    ZVA_SAME(X, ZDOTUI, 20, DSP, (zva::sig_cdoti<c64>), (cdoti<c64, false>), (no_driver))                               \
    ZVA_SAME(X, SGTHR, 16, DSP, (zva::sig_gthr<float>), (gthr<float>), (no_driver))                                     \
    ZVA_SAME(X, DGTHR, 16, DSP, (zva::sig_gthr<double>), (gthr<double>), (no_driver))                                   \
    ZVA_SAME(X, CGTHR, 16, DSP, (zva::sig_gthr<c32>), (gthr<c32>), (no_driver))                                         \
    ZVA_SAME(X, ZGTHR, 16, DSP, (zva::sig_gthr<c64>), (gthr<c64>), (no_driver))                                         \
    ZVA_SAME(X, SGTHRZ, 16, DSP, (zva::sig_gthrz<float>), (gthrz<float>), (no_driver))                                  \
    ZVA_SAME(X, DGTHRZ, 16, DSP, (zva::sig_gthrz<double>), (gthrz<double>), (no_driver))                                \
    ZVA_SAME(X, CGTHRZ, 16, DSP, (zva::sig_gthrz<c32>), (gthrz<c32>), (no_driver))                                      \
    ZVA_SAME(X, ZGTHRZ, 16, DSP, (zva::sig_gthrz<c64>), (gthrz<c64>), (no_driver))                                      \
    ZVA_SAME(X, SSCTR, 16, DSP, (zva::sig_sctr<float>), (sctr<float>), (no_driver))                                     \
    ZVA_SAME(X, DSCTR, 16, DSP, (zva::sig_sctr<double>), (sctr<double>), (no_driver))                                   \
    ZVA_SAME(X, CSCTR, 16, DSP, (zva::sig_sctr<c32>), (sctr<c32>), (no_driver))                                         \
    ZVA_SAME(X, ZSCTR, 16, DSP, (zva::sig_sctr<c64>), (sctr<c64>), (no_driver))                                         \
    ZVA_SAME(X, SROTI, 24, DSP, (zva::sig_roti<float>), (roti<float>), (no_driver))                                     \
    ZVA_SAME(X, DROTI, 24, DSP, (zva::sig_roti<double>), (roti<double>), (no_driver))                                   \
    /* level 2 */                                                                                                        \
    X(SGEMV, 48, CDRV, (zva::sig_gemv<float>), (zva::sig_gemv_k<float>), (gemv<float>), (gemv_driver<float>))            \
    X(DGEMV, 48, CDRV, (zva::sig_gemv<double>), (zva::sig_gemv_k<double>), (gemv<double>), (gemv_driver<double>))        \
    X(CGEMV, 48, CDRV, (zva::sig_gemv<c32>), (zva::sig_gemv_k<c32>), (gemv<c32>), (gemv_driver<c32>))                    \
    X(ZGEMV, 48, CDRV, (zva::sig_gemv<c64>), (zva::sig_gemv_k<c64>), (gemv<c64>), (gemv_driver<c64>))                    \
    ZVA_SAME(X, SGBMV, 56, CDSP, (zva::sig_gbmv<float>), (gbmv<float>), (no_driver))                                    \
    ZVA_SAME(X, DGBMV, 56, CDSP, (zva::sig_gbmv<double>), (gbmv<double>), (no_driver))                                  \
    ZVA_SAME(X, CGBMV, 56, CDSP, (zva::sig_gbmv<c32>), (gbmv<c32>), (no_driver))                                        \
    ZVA_SAME(X, ZGBMV, 56, CDSP, (zva::sig_gbmv<c64>), (gbmv<c64>), (no_driver))                                        \
    ZVA_SAME(X, SSYMV, 44, CDRV, (zva::sig_symv<float>), (symv<float>), (symv_driver<float>))                            \
    ZVA_SAME(X, DSYMV, 44, CDRV, (zva::sig_symv<double>), (symv<double>), (symv_driver<double>))                         \
    ZVA_SAME(X, CHEMV, 44, CDSP, (zva::sig_symv<c32>), (hemv<c32>), (no_driver))                                        \
    ZVA_SAME(X, ZHEMV, 44, CDSP, (zva::sig_symv<c64>), (hemv<c64>), (no_driver))                                        \
    ZVA_SAME(X, SSBMV, 48, CDSP, (zva::sig_sbmv<float>), (sbmv<float>), (no_driver))                                    \
    ZVA_SAME(X, DSBMV, 48, CDSP, (zva::sig_sbmv<double>), (sbmv<double>), (no_driver))                                  \
    ZVA_SAME(X, CHBMV, 48, CDSP, (zva::sig_sbmv<c32>), (sbmv<c32>), (no_driver))                                        \
    ZVA_SAME(X, ZHBMV, 48, CDSP, (zva::sig_sbmv<c64>), (sbmv<c64>), (no_driver))                                        \
    ZVA_SAME(X, SSPMV, 40, CDSP, (zva::sig_spmv<float>), (spmv<float>), (no_driver))                                    \
    ZVA_SAME(X, DSPMV, 40, CDSP, (zva::sig_spmv<double>), (spmv<double>), (no_driver))                                  \
    ZVA_SAME(X, CHPMV, 40, CDSP, (zva::sig_spmv<c32>), (spmv<c32>), (no_driver))                                        \
    ZVA_SAME(X, ZHPMV, 40, CDSP, (zva::sig_spmv<c64>), (spmv<c64>), (no_driver))                                        \
    ZVA_SAME(X, STRMV, 44, CDRV, (zva::sig_trmv<float>), (trmv<float>), (trmv_driver<float>))                           \
    ZVA_SAME(X, DTRMV, 44, CDRV, (zva::sig_trmv<double>), (trmv<double>), (trmv_driver<double>))                        \
    ZVA_SAME(X, CTRMV, 44, CDRV, (zva::sig_trmv<c32>), (trmv<c32>), (trmv_driver<c32>))                                 \
    ZVA_SAME(X, ZTRMV, 44, CDRV, (zva::sig_trmv<c64>), (trmv<c64>), (trmv_driver<c64>))                                 \
    ZVA_SAME(X, STBMV, 48, CDSP, (zva::sig_tbmv<float>), (tbmv<float>), (no_driver))                                    \
    ZVA_SAME(X, DTBMV, 48, CDSP, (zva::sig_tbmv<double>), (tbmv<double>), (no_driver))                                  \
    ZVA_SAME(X, CTBMV, 48, CDSP, (zva::sig_tbmv<c32>), (tbmv<c32>), (no_driver))                                        \
    ZVA_SAME(X, ZTBMV, 48, CDSP, (zva::sig_tbmv<c64>), (tbmv<c64>), (no_driver))                                        \
    ZVA_SAME(X, STBSV, 48, CDSP, (zva::sig_tbmv<float>), (tbsv<float>), (no_driver))                                    \
    ZVA_SAME(X, DTBSV, 48, CDSP, (zva::sig_tbmv<double>), (tbsv<double>), (no_driver))                                  \
    ZVA_SAME(X, CTBSV, 48, CDSP, (zva::sig_tbmv<c32>), (tbsv<c32>), (no_driver))                                        \
    ZVA_SAME(X, ZTBSV, 48, CDSP, (zva::sig_tbmv<c64>), (tbsv<c64>), (no_driver))                                        \
    ZVA_SAME(X, STPMV, 40, CDSP, (zva::sig_tpmv<float>), (tpmv<float>), (no_driver))                                    \
    ZVA_SAME(X, DTPMV, 40, CDSP, (zva::sig_tpmv<double>), (tpmv<double>), (no_driver))                                  \
    ZVA_SAME(X, CTPMV, 40, CDSP, (zva::sig_tpmv<c32>), (tpmv<c32>), (no_driver))                                        \
    ZVA_SAME(X, ZTPMV, 40, CDSP, (zva::sig_tpmv<c64>), (tpmv<c64>), (no_driver))                                        \
    ZVA_SAME(X, STPSV, 40, CDSP, (zva::sig_tpmv<float>), (tpsv<float>), (no_driver))                                    \
    ZVA_SAME(X, DTPSV, 40, CDSP, (zva::sig_tpmv<double>), (tpsv<double>), (no_driver))                                  \
    ZVA_SAME(X, CTPSV, 40, CDSP, (zva::sig_tpmv<c32>), (tpsv<c32>), (no_driver))                                        \
    ZVA_SAME(X, ZTPSV, 40, CDSP, (zva::sig_tpmv<c64>), (tpsv<c64>), (no_driver))                                        \
    ZVA_SAME(X, STRSV, 44, CDSP, (zva::sig_trmv<float>), (trsv<float>), (no_driver))                                   \
    ZVA_SAME(X, DTRSV, 44, CDRV, (zva::sig_trmv<double>), (trsv<double>), (dtrsv_driver))                               \
    ZVA_SAME(X, CTRSV, 44, CDSP, (zva::sig_trmv<c32>), (trsv<c32>), (no_driver))                                       \
    ZVA_SAME(X, ZTRSV, 44, CDSP, (zva::sig_trmv<c64>), (trsv<c64>), (no_driver))                                       \
    ZVA_SAME(X, SGER, 36, CDSP, (zva::sig_ger<float>), (ger<float, false>), (no_driver))                               \
    ZVA_SAME(X, DGER, 36, CDSP, (zva::sig_ger<double>), (ger<double, false>), (no_driver))                             \
    ZVA_SAME(X, CGERU, 36, CDSP, (zva::sig_ger<c32>), (ger<c32, false>), (no_driver))                                  \
    ZVA_SAME(X, ZGERU, 36, CDSP, (zva::sig_ger<c64>), (ger<c64, false>), (no_driver))                                  \
    ZVA_SAME(X, CGERC, 36, CDSP, (zva::sig_ger<c32>), (ger<c32, true>), (no_driver))                                   \
    ZVA_SAME(X, ZGERC, 36, CDSP, (zva::sig_ger<c64>), (ger<c64, true>), (no_driver))                                   \
    ZVA_SAME(X, SSYR, 32, CDRV, (zva::sig_syr<float, float>), (syr<float, float>), (syr_driver<float>))                  \
    ZVA_SAME(X, DSYR, 32, CDRV, (zva::sig_syr<double, double>), (syr<double, double>), (syr_driver<double>))             \
    ZVA_SAME(X, CHER, 32, CDSP, (zva::sig_syr<c32, float>), (her<c32, float>), (no_driver))                             \
    ZVA_SAME(X, ZHER, 32, CDSP, (zva::sig_syr<c64, double>), (her<c64, double>), (no_driver))                           \
    ZVA_SAME(X, SSYR2, 40, CDRV, (zva::sig_syr2<float>), (syr2<float>), (syr2_driver<float>))                            \
    ZVA_SAME(X, DSYR2, 40, CDRV, (zva::sig_syr2<double>), (syr2<double>), (syr2_driver<double>))                         \
    ZVA_SAME(X, CHER2, 40, CDSP, (zva::sig_syr2<c32>), (her2<c32>), (no_driver))                                        \
    ZVA_SAME(X, ZHER2, 40, CDSP, (zva::sig_syr2<c64>), (her2<c64>), (no_driver))                                        \
    ZVA_SAME(X, SSPR, 28, CDSP, (zva::sig_spr<float, float>), (spr<float, float>), (no_driver))                         \
    ZVA_SAME(X, DSPR, 28, CDSP, (zva::sig_spr<double, double>), (spr<double, double>), (no_driver))                     \
    ZVA_SAME(X, CHPR, 28, CDSP, (zva::sig_spr<c32, float>), (spr<c32, float>), (no_driver))                             \
    ZVA_SAME(X, ZHPR, 28, CDSP, (zva::sig_spr<c64, double>), (spr<c64, double>), (no_driver))                           \
    ZVA_SAME(X, SSPR2, 36, CDSP, (zva::sig_spr2<float>), (spr2<float>), (no_driver))                                    \
    ZVA_SAME(X, DSPR2, 36, CDSP, (zva::sig_spr2<double>), (spr2<double>), (no_driver))                                  \
    ZVA_SAME(X, CHPR2, 36, CDSP, (zva::sig_spr2<c32>), (spr2<c32>), (no_driver))                                        \
    ZVA_SAME(X, ZHPR2, 36, CDSP, (zva::sig_spr2<c64>), (spr2<c64>), (no_driver))                                        \
    /* level 3 */                                                                                                        \
    X(SGEMM, 60, CDRV, (zva::sig_gemm<float>), (zva::sig_gemm_serial<float>), (sgemm_serial), (gemm_threaded<float>))    \
    X(DGEMM, 60, CDRV, (zva::sig_gemm<double>), (zva::sig_gemm_serial<double>), (dgemm_serial), (gemm_threaded<double>)) \
    X(CGEMM, 60, CDRV, (zva::sig_gemm<c32>), (zva::sig_gemm_serial<c32>), (cgemm_serial), (gemm_threaded<c32>))          \
    X(ZGEMM, 60, CDRV, (zva::sig_gemm<c64>), (zva::sig_gemm_serial<c64>), (zgemm_serial), (gemm_threaded<c64>))          \
    ZVA_SAME(X, SSYMM, 56, CDRV, (zva::sig_symm<float>), (symm<float>), (symm_driver<float>))                            \
    ZVA_SAME(X, DSYMM, 56, CDRV, (zva::sig_symm<double>), (symm<double>), (symm_driver<double>))                         \
    ZVA_SAME(X, CSYMM, 56, CDRV, (zva::sig_symm<c32>), (symm<c32>), (symm_driver<c32>))                                  \
    ZVA_SAME(X, ZSYMM, 56, CDRV, (zva::sig_symm<c64>), (symm<c64>), (symm_driver<c64>))                                  \
    ZVA_SAME(X, CHEMM, 56, CDRV, (zva::sig_symm<c32>), (hemm<c32>), (hemm_driver<c32>))                                  \
    ZVA_SAME(X, ZHEMM, 56, CDRV, (zva::sig_symm<c64>), (hemm<c64>), (hemm_driver<c64>))                                  \
    ZVA_SAME(X, SSYRK, 48, CDRV, (zva::sig_syrk<float, float>), (syrk<float, float>), (syrk_driver<float, float>))       \
    ZVA_SAME(X, DSYRK, 48, CDRV, (zva::sig_syrk<double, double>), (syrk<double, double>), (syrk_driver<double, double>)) \
    ZVA_SAME(X, CSYRK, 48, CDRV, (zva::sig_syrk<c32, c32>), (syrk<c32, c32>), (syrk_driver<c32, c32>))                   \
    ZVA_SAME(X, ZSYRK, 48, CDRV, (zva::sig_syrk<c64, c64>), (syrk<c64, c64>), (syrk_driver<c64, c64>))                   \
    ZVA_SAME(X, CHERK, 48, CDRV, (zva::sig_syrk<c32, float>), (syrk<c32, float>), (syrk_driver<c32, float>))             \
    ZVA_SAME(X, ZHERK, 48, CDRV, (zva::sig_syrk<c64, double>), (syrk<c64, double>), (syrk_driver<c64, double>))          \
    ZVA_SAME(X, SSYR2K, 56, CDRV, (zva::sig_syr2k<float, float>), (syr2k<float, float>), (syr2k_driver<float, float>))   \
    ZVA_SAME(X, DSYR2K, 56, CDRV, (zva::sig_syr2k<double, double>), (syr2k<double, double>), (syr2k_driver<double, double>)) \
    ZVA_SAME(X, CSYR2K, 56, CDRV, (zva::sig_syr2k<c32, c32>), (syr2k<c32, c32>), (syr2k_driver<c32, c32>))               \
    ZVA_SAME(X, ZSYR2K, 56, CDRV, (zva::sig_syr2k<c64, c64>), (syr2k<c64, c64>), (syr2k_driver<c64, c64>))               \
    ZVA_SAME(X, CHER2K, 56, CDRV, (zva::sig_syr2k<c32, float>), (syr2k<c32, float>), (syr2k_driver<c32, float>))         \
    ZVA_SAME(X, ZHER2K, 56, CDRV, (zva::sig_syr2k<c64, double>), (syr2k<c64, double>), (syr2k_driver<c64, double>))      \
    ZVA_SAME(X, STRMM, 60, CDRV, (zva::sig_trmm<float>), (trmm<float>), (trmm_driver<float>))                            \
    ZVA_SAME(X, DTRMM, 60, CDRV, (zva::sig_trmm<double>), (trmm<double>), (trmm_driver<double>))                         \
    ZVA_SAME(X, CTRMM, 60, CDRV, (zva::sig_trmm<c32>), (trmm<c32>), (trmm_driver<c32>))                                  \
    ZVA_SAME(X, ZTRMM, 60, CDRV, (zva::sig_trmm<c64>), (trmm<c64>), (trmm_driver<c64>))                                  \
    ZVA_SAME(X, STRSM, 60, CDRV, (zva::sig_trmm<float>), (trsm<float>), (trsm_driver<float>))                            \
    ZVA_SAME(X, DTRSM, 60, CDRV, (zva::sig_trmm<double>), (trsm<double>), (trsm_driver<double>))                         \
    ZVA_SAME(X, CTRSM, 60, CDRV, (zva::sig_trmm<c32>), (trsm<c32>), (trsm_driver<c32>))                                  \
    ZVA_SAME(X, ZTRSM, 60, CDRV, (zva::sig_trmm<c64>), (trsm<c64>), (trsm_driver<c64>))

// Dispatch points inside the engine and the parallel regions, beyond the
// one main point per routine.  X(point, (signature), (kernel))
#define ZVA_INNER_POINTS(X)                                                   \
    X(sgemm_scale_c, (zva::sig_gemm_scale_c<float>), (gemm_scale_c<float>))   \
    X(dgemm_scale_c, (zva::sig_gemm_scale_c<double>), (gemm_scale_c<double>)) \
    X(cgemm_scale_c, (zva::sig_gemm_scale_c<c32>), (gemm_scale_c<c32>))       \
    X(zgemm_scale_c, (zva::sig_gemm_scale_c<c64>), (gemm_scale_c<c64>))       \
    X(ssyr_region, (zva::sig_syr_region<float>), (syr_region<float>))         \
    X(dsyr_region, (zva::sig_syr_region<double>), (syr_region<double>))       \
    X(ssyr2_region, (zva::sig_syr2_region<float>), (syr2_region<float>))      \
    X(dsyr2_region, (zva::sig_syr2_region<double>), (syr2_region<double>))    \
    X(strmv_region, (zva::sig_trmv_region<float>), (trmv_region<float>))        \
    X(dtrmv_region, (zva::sig_trmv_region<double>), (trmv_region<double>))       \
    X(ctrmv_region, (zva::sig_trmv_region<c32>), (trmv_region<c32>))          \
    X(ztrmv_region, (zva::sig_trmv_region<c64>), (trmv_region<c64>))          \
    ZVA_CTX_POINTS(X, s, float)                                               \
    ZVA_CTX_POINTS(X, d, double)                                              \
    ZVA_CTX_POINTS(X, c, c32)                                                 \
    ZVA_CTX_POINTS(X, z, c64)

// The six operations on a gemm_context, once per type.
#define ZVA_CTX_POINTS(X, p, T)                                         \
    X(p##ctx_avail, (zva::sig_ctx_avail), (gemm_ctx_avail))             \
    X(p##ctx_clear, (zva::sig_ctx_clear), (gemm_ctx_clear))             \
    X(p##ctx_load, (zva::sig_ctx_load), (p##gemm_ctx_load))             \
    X(p##ctx_driver, (zva::sig_ctx_driver<T>), (p##gemm_driver))        \
    X(p##ctx_size_buffers, (zva::sig_ctx_size), (p##gemm_size_buffers)) \
    X(p##ctx_store, (zva::sig_ctx_store), (gemm_ctx_store))
