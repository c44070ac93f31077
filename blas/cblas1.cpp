// The C interface, level 1: no layout, no checks; scalars by address, and
// indices of extremes counted from 0.  Also the C reporter.
#include <math.h>
#include <stdarg.h>
#include <string.h>

#include "blas/cblas_util.h"

using zva::c32;
using zva::c64;
using namespace zva::blas;
using I = const CBLAS_INT;

ZVA_CBLAS_API double cblas_dcabs1(const void* z) {
    const c64* v = (const c64*)z;
    return fabs(v->re) + fabs(v->im);
}
ZVA_CBLAS_API float cblas_scabs1(const void* c) {
    const c32* v = (const c32*)c;
    return fabsf(v->re) + fabsf(v->im);
}

ZVA_CBLAS_API float cblas_sdsdot(I n, const float alpha, const float* x, I incx, const float* y, I incy) {
    return f77::SDSDOT(&n, &alpha, x, &incx, y, &incy);
}
ZVA_CBLAS_API double cblas_dsdot(I n, const float* x, I incx, const float* y, I incy) {
    return f77::DSDOT(&n, x, &incx, y, &incy);
}

// Families in every type: p and P the letters, T the element, V what the
// C list points to, S how it passes a scalar.
#define ZVA_L1_ALL(p, P, T, V, S)                                                               \
    ZVA_CBLAS_API void cblas_##p##swap(I n, V* x, I incx, V* y, I incy) {                       \
        f77::P##SWAP(&n, (T*)x, &incx, (T*)y, &incy);                                           \
    }                                                                                           \
    ZVA_CBLAS_API void cblas_##p##copy(I n, const V* x, I incx, V* y, I incy) {                 \
        f77::P##COPY(&n, (const T*)x, &incx, (T*)y, &incy);                                     \
    }                                                                                           \
    ZVA_CBLAS_API void cblas_##p##axpy(I n, S alpha, const V* x, I incx, V* y, I incy) {        \
        f77::P##AXPY(&n, sp<T>(alpha), (const T*)x, &incx, (T*)y, &incy);                       \
    }                                                                                           \
    ZVA_CBLAS_API void cblas_##p##scal(I n, S alpha, V* x, I incx) {                            \
        f77::P##SCAL(&n, sp<T>(alpha), (T*)x, &incx);                                           \
    }                                                                                           \
    ZVA_CBLAS_API CBLAS_INDEX cblas_i##p##amax(I n, const V* x, I incx) {                      \
        const int i = f77::I##P##AMAX(&n, (const T*)x, &incx);                                  \
        return i ? i - 1 : 0;                                                                   \
    }
ZVA_L1_ALL(s, S, float, float, const float)
ZVA_L1_ALL(d, D, double, double, const double)
ZVA_L1_ALL(c, C, c32, void, const void*)
ZVA_L1_ALL(z, Z, c64, void, const void*)

// Real types: dot, norms, rotations.  R is the C name's prefix of the real
// results of complex vectors (sc, dz).
#define ZVA_L1_REAL(p, P, T, R, RU, C)                                                          \
    ZVA_CBLAS_API T cblas_##p##dot(I n, const T* x, I incx, const T* y, I incy) {               \
        return f77::P##DOT(&n, x, &incx, y, &incy);                                             \
    }                                                                                           \
    ZVA_CBLAS_API T cblas_##p##nrm2(I n, const T* x, I incx) { return f77::P##NRM2(&n, x, &incx); } \
    ZVA_CBLAS_API T cblas_##p##asum(I n, const T* x, I incx) { return f77::P##ASUM(&n, x, &incx); } \
    ZVA_CBLAS_API T cblas_##R##nrm2(I n, const void* x, I incx) {                               \
        return f77::RU##NRM2(&n, (const C*)x, &incx);                                           \
    }                                                                                           \
    ZVA_CBLAS_API T cblas_##R##asum(I n, const void* x, I incx) {                               \
        return f77::RU##ASUM(&n, (const C*)x, &incx);                                           \
    }                                                                                           \
    ZVA_CBLAS_API void cblas_##p##rotg(T* a, T* b, T* c, T* s) { f77::P##ROTG(a, b, c, s); }    \
    ZVA_CBLAS_API void cblas_##p##rotmg(T* d1, T* d2, T* b1, const T b2, T* P_) {               \
        f77::P##ROTMG(d1, d2, b1, &b2, P_);                                                     \
    }                                                                                           \
    ZVA_CBLAS_API void cblas_##p##rot(I n, T* x, I incx, T* y, I incy, const T c, const T s) {  \
        f77::P##ROT(&n, x, &incx, y, &incy, &c, &s);                                            \
    }                                                                                           \
    ZVA_CBLAS_API void cblas_##p##rotm(I n, T* x, I incx, T* y, I incy, const T* P_) {          \
        f77::P##ROTM(&n, x, &incx, y, &incy, P_);                                               \
    }
ZVA_L1_REAL(s, S, float, sc, SC, c32)
ZVA_L1_REAL(d, D, double, dz, DZ, c64)

// Complex types: dots into the caller's slot, rotations with real c and s,
// scaling by a real.  RP is the real prefix in CSROT, ZDROT, CSSCAL, ZDSCAL.
#define ZVA_L1_CPLX(p, P, T, R, RP, RPU)                                                        \
    ZVA_CBLAS_API void cblas_##p##dotu_sub(I n, const void* x, I incx, const void* y, I incy, void* dot) { \
        f77::P##DOTU((T*)dot, &n, (const T*)x, &incx, (const T*)y, &incy);                      \
    }                                                                                           \
    ZVA_CBLAS_API void cblas_##p##dotc_sub(I n, const void* x, I incx, const void* y, I incy, void* dot) { \
        f77::P##DOTC((T*)dot, &n, (const T*)x, &incx, (const T*)y, &incy);                      \
    }                                                                                           \
    ZVA_CBLAS_API void cblas_##p##rotg(void* a, void* b, R* c, void* s) {                       \
        f77::P##ROTG((T*)a, (T*)b, c, (T*)s);                                                   \
    }                                                                                           \
    ZVA_CBLAS_API void cblas_##p##RP##rot(I n, void* x, I incx, void* y, I incy, const R c, const R s) { \
        f77::P##RPU##ROT(&n, (T*)x, &incx, (T*)y, &incy, &c, &s);                               \
    }                                                                                           \
    ZVA_CBLAS_API void cblas_##p##RP##scal(I n, const R alpha, void* x, I incx) {               \
        f77::P##RPU##SCAL(&n, &alpha, (T*)x, &incx);                                            \
    }
ZVA_L1_CPLX(c, C, c32, float, s, S)
ZVA_L1_CPLX(z, Z, c64, double, d, D)

// The library's own C reporter: one line on standard error, and the call
// returns, as zva's own reports do.  Row-major numbers are mapped back to
// the arguments the caller wrote, as the reference CBLAS does; a program may
// replace this function with its own.
namespace {
struct swap_rule {
    const char* family;  // part of the routine's name
    const char* except;  // a longer name that also contains it
    int pairs[4][2];
};
const swap_rule row_major_swaps[] = {
    {"gemm", nullptr, {{4, 5}, {9, 11}}},
    {"symm", nullptr, {{4, 5}}},
    {"hemm", nullptr, {{4, 5}}},
    {"trmm", nullptr, {{6, 7}}},
    {"trsm", nullptr, {{6, 7}}},
    {"gemv", nullptr, {{3, 4}}},
    {"gbmv", nullptr, {{3, 4}, {5, 6}}},
    {"ger", nullptr, {{2, 3}, {6, 8}}},
    {"her2", "her2k", {{6, 8}}},
    {"hpr2", nullptr, {{6, 8}}},
};
int row_major_param(const char* rout, int p) {
    for (const swap_rule& r : row_major_swaps) {
        if (!strstr(rout, r.family) || (r.except && strstr(rout, r.except))) continue;
        for (const auto& pair : r.pairs) {
            if (p == pair[0] && pair[0]) return pair[1];
            if (p == pair[1] && pair[1]) return pair[0];
        }
        return p;
    }
    return p;
}
}  // namespace

extern "C" __attribute__((weak, visibility("default"))) void cblas_xerbla(CBLAS_INT p, const char* rout, const char* form, ...) {
    if (RowMajorStrg) p = row_major_param(rout, p);
    if (p) fprintf(stderr, "Parameter %d to routine %s was incorrect\n", (int)p, rout);
    va_list ap;
    va_start(ap, form);
    vfprintf(stderr, form, ap);
    va_end(ap);
}
