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

