// A stand-in for libzva_m.so with only the complex dot exports, written from
// the definitions: it lets the Fortran test check how complex function
// values come back before zva's own dots are built.
#include <stdint.h>

struct cf { float re, im; };
struct cd { double re, im; };

template <class T> T* dot(T* slot, const int* n, const T* x, const int* incx, const T* y, const int* incy, bool c) {
    long double re = 0, im = 0;
    for (int i = 0; i < *n; ++i) {
        const T a = x[i * *incx], b = y[i * *incy];
        const long double ai = c ? -a.im : a.im;
        re += a.re * b.re - ai * b.im;
        im += a.re * b.im + ai * b.re;
    }
    slot->re = (decltype(slot->re))re;
    slot->im = (decltype(slot->im))im;
    return slot;
}

#define ZVA_STANDIN(N, T, C)                                                               \
    extern "C" __attribute__((visibility("default"), stdcall)) T* standin_##N(             \
        T* s, const int* n, const T* x, const int* ix, const T* y, const int* iy)          \
        __asm__("_" #N "$24");                                                             \
    T* standin_##N(T* s, const int* n, const T* x, const int* ix, const T* y, const int* iy) { \
        return dot(s, n, x, ix, y, iy, C);                                                 \
    }
ZVA_STANDIN(CDOTU, cf, false)
ZVA_STANDIN(ZDOTC, cd, true)
