// Access to the library under test through its decorated exports.
#pragma once
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>

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

// The branch this run was asked for (ZVA_DEBUG_CPU_TYPE), or 0 for the
// processor's own choice.
inline int test_branch() {
    const char* v = getenv("ZVA_DEBUG_CPU_TYPE");
    int b = v ? atoi(v) : 0;
    return b >= 2 && b <= 7 ? b : 0;
}

struct cfloat { float re, im; };
struct cdouble { double re, im; };
