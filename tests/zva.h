// Test support: the library under test through its decorated exports, the
// element types, long double references and random operands.
#pragma once
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "frame/routines.h"

#define ZVA_STDCALL __attribute__((stdcall))

inline void* zva_lib() {
    static void* h = [] {
        void* p = dlopen(ZVA_LIB, RTLD_NOW | RTLD_LOCAL);
        if (!p) {
            fprintf(stderr, "cannot load %s: %s\n", ZVA_LIB, dlerror());
            abort();
        }
        return p;
    }();
    return h;
}

// The export with the decorated name, e.g. zva_fn<axpy_fn>("_DAXPY@24").
template <class F> F zva_fn(const char* name) {
    void* p = dlsym(zva_lib(), name);
    if (!p) {
        fprintf(stderr, "%s is not exported\n", name);
        abort();
    }
    return (F)p;
}

// The decorated name of a routine, from the routine table: "_DAXPY@24".
inline std::string zva_export_name(const char* routine) {
    struct row { const char* name; int bytes; };
    static const row rows[] = {
#define ZVA_TEST_ROW(N, B, ...) {#N, B},
        ZVA_ROUTINES(ZVA_TEST_ROW)
#undef ZVA_TEST_ROW
    };
    for (const row& r : rows)
        if (strcmp(r.name, routine) == 0) return "_" + std::string(r.name) + "@" + std::to_string(r.bytes);
    fprintf(stderr, "%s is not in the routine table\n", routine);
    abort();
}

// The export of a routine by its name, typed by the caller:
// zva_export<axpy_fn>("DAXPY").
template <class F> F zva_export(const char* routine) {
    return zva_fn<F>(zva_export_name(routine).c_str());
}

// The branch this run was asked for (ZVA_DEBUG_CPU_TYPE), or 0 for the
// processor's own choice.
inline int test_branch() {
    const char* v = getenv("ZVA_DEBUG_CPU_TYPE");
    int b = v ? atoi(v) : 0;
    return b >= 2 && b <= 7 ? b : 0;
}

// ---- element types -----------------------------------------------------------

struct cfloat { float re, im; };
struct cdouble { double re, im; };

// Per element type: its real type, whether it is complex, its letter and a
// unit of rounding.
template <class T> struct elem;
template <> struct elem<float> {
    using R = float;
    static constexpr bool cplx = false;
    static constexpr char letter = 'S';
};
template <> struct elem<double> {
    using R = double;
    static constexpr bool cplx = false;
    static constexpr char letter = 'D';
};
template <> struct elem<cfloat> {
    using R = float;
    static constexpr bool cplx = true;
    static constexpr char letter = 'C';
};
template <> struct elem<cdouble> {
    using R = double;
    static constexpr bool cplx = true;
    static constexpr char letter = 'Z';
};

// "DGEMV" for T = double and "GEMV".
template <class T> std::string routine(const char* family) {
    return std::string(1, elem<T>::letter) + family;
}

template <class T> T make(double re, double im = 0) {
    using R = typename elem<T>::R;
    if constexpr (elem<T>::cplx) return {(R)re, (R)im};
    else return (T)re;
}

template <class T> bool same_bits(const T& a, const T& b) { return memcmp(&a, &b, sizeof(T)) == 0; }

// ---- long double complex references -------------------------------------------

struct lc { long double re, im; };
template <class T> lc to_lc(T v) {
    if constexpr (elem<T>::cplx) return {v.re, v.im};
    else return {v, 0};
}
inline lc mul(lc a, lc b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
inline lc add(lc a, lc b) { return {a.re + b.re, a.im + b.im}; }
inline lc conj(lc a) { return {a.re, -a.im}; }
inline long double mag(lc a) { return fabsl(a.re) + fabsl(a.im); }

// ---- operands -------------------------------------------------------------------

// A small generator of values in [-0.5, 0.5): every test run sees the same
// operands, so a failure repeats.
struct lcg {
    uint32_t state;
    double next() {
        state = state * 1664525u + 1013904223u;
        return (double)(state >> 8) / (1 << 24) - 0.5;
    }
    template <class T> T value() {
        const double re = next();
        return make<T>(re, elem<T>::cplx ? next() : 0);
    }
};

// ---- calls with a misaligned stack ------------------------------------------------

// Pushes n words, last first, calls fn and returns the bytes the callee
// left on the stack: 0 for stdcall.  The stack is misaligned on purpose:
// the exports must cope with a 4-byte aligned caller.
inline int bytes_left_after_call(void* fn, const uint32_t* w, int n) {
    int removed_short;
    asm volatile(
        "mov %[n], %%ecx\n\t"
        "mov %%esp, %%esi\n\t"
        "sub $4, %%esp\n\t"  // a caller whose stack is only 4-byte aligned
        "1:\n\t"
        "test %%ecx, %%ecx\n\t"
        "jz 2f\n\t"
        "push -4(%[w],%%ecx,4)\n\t"
        "dec %%ecx\n\t"
        "jmp 1b\n\t"
        "2:\n\t"
        "call *%[fn]\n\t"
        "mov %%esi, %%eax\n\t"
        "sub %%esp, %%eax\n\t"
        "sub $4, %%eax\n\t"
        "mov %%esi, %%esp\n\t"
        : "=&a"(removed_short), [w] "+d"(w)  // edx does not survive the call
        : [fn] "D"(fn), [n] "m"(n)
        : "ecx", "esi", "memory", "cc", "xmm0", "xmm1", "xmm2", "xmm3",
          "xmm4", "xmm5", "xmm6", "xmm7");
    return removed_short;
}
