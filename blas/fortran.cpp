// The Fortran entries of all 174 routines, as gfortran calls them on i386:
// every argument by address, the character lengths trailing after all other
// arguments (the internal order of zva's table), REAL and DOUBLE PRECISION
// values on the x87 stack, INTEGER in eax, COMPLEX in eax:edx and COMPLEX*16
// through a hidden first pointer that the callee pops, exactly as g++ returns
// __complex__ float and __complex__ double.  Then the published XERBLA hook.
#include <ctype.h>
#include <string.h>

#include "blas/cblas.h"
#include "blas/fortran_names.h"
#include "blas/route.h"

namespace zva::blas {
namespace {

template <class Route> inline auto fortran(const uintptr_t* in) {
    if constexpr (Route::checked) {
        const int p = Route::fault(in);
        Route::forward(in);
        if (p) report_fortran(Route::id, p);
    } else {
        return Route::forward(in);
    }
}

// The value type of a complex function, from its result slot.
template <class Sig> struct slot_of;
template <class T, class... A> struct slot_of<T*(T*, A...)> { using type = T; };
inline __complex__ float as_value(const c32& v) {
    __complex__ float r;
    __real__ r = v.re;
    __imag__ r = v.im;
    return r;
}
inline __complex__ double as_value(const c64& v) {
    __complex__ double r;
    __real__ r = v.re;
    __imag__ r = v.im;
    return r;
}

}  // namespace
}  // namespace zva::blas

// A complex function has one word less than its export: no slot.
#define ZVA_LESS1_WORDS_20 ZVA_WORDS_16
#define ZVA_LESS1_NAMES_20 ZVA_NAMES_16
#define ZVA_LESS1_WORDS_24 ZVA_WORDS_20
#define ZVA_LESS1_NAMES_24 ZVA_NAMES_20

#define ZVA_F77_plain(N, B, S)                                                 \
    extern "C" __attribute__((visibility("default")))                          \
    typename zva::blas::ret_of<ZVA_SIG(S)>::type zva_f77_##N(ZVA_WORDS_##B)    \
        __asm__(ZVA_F77_NAME_##N);                                             \
    typename zva::blas::ret_of<ZVA_SIG(S)>::type zva_f77_##N(ZVA_WORDS_##B) {  \
        const uintptr_t in[] = {ZVA_NAMES_##B};                                \
        return zva::blas::fortran<zva::blas::routes::N>(in);                   \
    }
#define ZVA_F77_cplx(N, B, S)                                                  \
    using zva_slot_##N = zva::blas::slot_of<ZVA_SIG(S)>::type;                 \
    extern "C" __attribute__((visibility("default")))                          \
    decltype(zva::blas::as_value(zva_slot_##N())) zva_f77_##N(ZVA_LESS1_WORDS_##B) \
        __asm__(ZVA_F77_NAME_##N);                                             \
    decltype(zva::blas::as_value(zva_slot_##N())) zva_f77_##N(ZVA_LESS1_WORDS_##B) { \
        zva_slot_##N slot;                                                     \
        const uintptr_t in[] = {(uintptr_t)&slot, ZVA_LESS1_NAMES_##B};        \
        zva::blas::routes::N::forward(in);                                     \
        return zva::blas::as_value(slot);                                      \
    }
#define ZVA_F77_CAT2(a, b) a##b
#define ZVA_F77_CAT(a, b) ZVA_F77_CAT2(a, b)
#define ZVA_F77_WRAPPER(N, B, R, S, ...) ZVA_F77_CAT(ZVA_F77_, ZVA_F77_KIND_##N)(N, B, S)
ZVA_ROUTINES(ZVA_F77_WRAPPER)

// ---- errors ---------------------------------------------------------------
//
// zva prints its own message for a rejected argument and returns.  Programs
// that install their own XERBLA (the reference test programs do) learn of the
// fault through the published xerbla_, called with zva's routine name, blank
// padded to six, and zva's parameter number.  The C interface follows the
// reference CBLAS: the flags below tell xerbla_ that the call came from C and
// whether it was row-major; xerbla_ then goes on to cblas_xerbla with the C
// routine's name and the number shifted by the layout argument, and
// cblas_xerbla maps the numbers of the swapped arguments of row-major calls.

extern "C" {
__attribute__((visibility("default"))) int RowMajorStrg = 0;
__attribute__((visibility("default"))) int CBLAS_CallFromC = 0;

// zva has already printed its message: without a C caller there is nothing
// more to say.
__attribute__((weak, visibility("default"))) void xerbla_(const char* name, const int* info, size_t len) {
    if (!CBLAS_CallFromC) return;
    char rout[16] = "cblas_";
    for (size_t i = 0; i < len && i < 6 && name[i] != ' '; ++i) rout[6 + i] = (char)tolower((unsigned char)name[i]);
    cblas_xerbla(*info + 1, rout, "");
}
}

namespace zva::blas {

void report_fortran(routine_id id, int param) {
    char name[7] = "      ";
    memcpy(name, routine_names[id], strlen(routine_names[id]));
    xerbla_(name, &param, 6);
}

// The flags are process-wide, as in the reference CBLAS; they are set only
// around a report, so that calls that go through never write them.
void report_cblas(routine_id id, int param, bool row) {
    RowMajorStrg = row;
    CBLAS_CallFromC = 1;
    report_fortran(id, param);
    CBLAS_CallFromC = 0;
    RowMajorStrg = 0;
}

}  // namespace zva::blas
