// zva_bench: speed and agreement of zva against OpenBLAS and the reference
// BLAS.
//
// Every cell (operation, size, threads, branch) runs in a child made by
// fork() before any library is loaded: zva, the OpenMP runtime and OpenBLAS
// read their environment once, at their first use, so each cell needs a
// fresh process, and a routine that aborts then loses only its own cell.
// fork() without exec also works unchanged under qemu-i386.
//
// The run ends with a summary of the ratios per operation and size, and on
// request a plot drawn by gnuplot; both come from records the children leave
// in memory shared with the parent.
//
// New operations are rows of the table `ops` below.
#include <type_traits>
#include <dlfcn.h>
#include <errno.h>
#include <math.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#ifndef ZVA_BENCH_LIB
#define ZVA_BENCH_LIB "libzva_m.so"
#endif

#define STDCALL __attribute__((stdcall))

namespace {

// ---------------------------------------------------------------- libraries

enum { L_ZVA, L_OBL, L_REF, NLIB };
const char* const lib_label[NLIB] = {"zva", "OpenBLAS", "ref"};
const char* lib_path[NLIB] = {
    ZVA_BENCH_LIB,
    // Opened by its own name: libblas.so.3 of that folder binds to
    // whichever OpenBLAS variant the process loaded first.
    "/usr/lib/i386-linux-gnu/openblas-pthread/libopenblas.so.0",
    "/usr/lib/i386-linux-gnu/blas/libblas.so.3",
};
void* lib_handle[NLIB];
const char* lib_error[NLIB];

void load_libraries(int threads) {
    for (int l = 0; l < NLIB; ++l) {
        lib_handle[l] = nullptr;
        if (!*lib_path[l]) continue;
        // Local binding: the peers export the same Fortran names.
        lib_handle[l] = dlopen(lib_path[l], RTLD_NOW | RTLD_LOCAL);
        if (!lib_handle[l]) lib_error[l] = strdup(dlerror());
    }
    if (void* obl = lib_handle[L_OBL]) {
        typedef void (*set_fn)(int);
        typedef int (*get_fn)();
        if (auto set = (set_fn)dlsym(obl, "openblas_set_num_threads")) set(threads);
        auto get = (get_fn)dlsym(obl, "openblas_get_num_threads");
        if (get && get() != threads)
            fprintf(stderr, "zva_bench: OpenBLAS runs %d threads, not %d\n",
                    get(), threads);
    }
}

// ---------------------------------------------------------------- operands

struct Case {
    int n;
    void* buf[4];                 // operands; freed by the driver
    alignas(16) double scal[4];   // scalars, complex ones as pairs
};

void* bench_alloc(size_t bytes) {
    void* p = nullptr;
    if (posix_memalign(&p, 64, bytes ? bytes : 64) != 0) return nullptr;
    return p;
}

// The same numbers for every library and every run: 0.5 <= |v| < 1 with a
// hashed sign and mantissa, built from bits, since a filler in floating
// point would cost more than the calls under an emulator.
inline uint32_t hash(uint32_t i, uint32_t seed) {
    uint32_t h = (i + seed * 0x9E3779B9u) * 2654435761u;
    return h ^ (h >> 15);
}
inline void fill(float* v, size_t len, uint32_t seed) {
    for (size_t i = 0; i < len; ++i) {
        uint32_t h = hash((uint32_t)i, seed);
        uint32_t b = (h & 0x80000000u) | (126u << 23) | (h & 0x7FFFFFu);
        memcpy(&v[i], &b, 4);
    }
}
inline void fill(double* v, size_t len, uint32_t seed) {
    for (size_t i = 0; i < len; ++i) {
        uint32_t h = hash((uint32_t)i, seed);
        uint64_t b = ((uint64_t)(h & 0x80000000u) << 32) | (1022ull << 52) |
                     ((uint64_t)(h & 0x7FFFFFFFu) << 21);
        memcpy(&v[i], &b, 8);
    }
}

// Odd elements weigh twice, so that exchanged real and imaginary parts show.
template <class R> double checksum_of(const R* v, size_t len) {
    double even = 0, odd = 0;
    size_t i = 0;
    for (; i + 1 < len; i += 2) even += (double)v[i], odd += (double)v[i + 1];
    if (i < len) even += (double)v[i];
    return even + 2 * odd;
}

// Largest difference from the base output, relative to the base's largest
// magnitude: element by element, since a sum hides a few wrong elements.
template <class R> double rel_diff(const R* v, const R* base, size_t len) {
    R d = 0, m = 0;
    for (size_t i = 0; i < len; ++i) {
        R e = v[i] > base[i] ? v[i] - base[i] : base[i] - v[i];
        if (!(e <= d)) {
            if (e != e && base[i] == base[i]) return INFINITY;
            if (e == e) d = e;
        }
        R a = base[i] < 0 ? -base[i] : base[i];
        if (a > m) m = a;
    }
    return d == 0 ? 0 : m > 0 ? (double)d / (double)m : INFINITY;
}

// ---------------------------------------------------------------- operations

struct Op {
    const char* name;
    char type;                    // S, D, C or Z: the element type
    const char* zva_sym;          // decorated stdcall export
    const char* peer_sym;         // Fortran (cdecl) name in the peers
    double (*flops)(double n);
    double (*bytes)(double n);    // nullptr where compute-bound
    bool (*setup)(Case&);         // allocate; fill the inputs that stay fixed
    void (*reset)(Case&);         // refill the outputs before a checked call
    void (*call_zva)(void* fn, Case&);
    void (*call_peer)(void* fn, Case&);
    // The output that is checked, as a count of reals (two per complex).
    void (*result)(const Case&, const void** out, size_t* nreal);
    int max_n;                    // larger sizes are skipped (n x n matrices)
    int shape;                    // VEC, MV or MM: picks the default sizes
};

// Operation classes, for the default sizes: vectors of n, n x n matrix
// times vector, n x n matrix products.
enum { VEC, MV, MM, NSHAPE };

const int one = 1;

// y += alpha x; C = 2 for complex elements.  buf: x, y.
template <class R, int C> struct axpy {
    typedef void(STDCALL* zfn)(const int*, const R*, const R*, const int*, R*,
                               const int*);
    typedef void (*pfn)(const int*, const R*, const R*, const int*, R*,
                        const int*);
    static size_t len(const Case& c) { return (size_t)c.n * C; }
    static double flops(double n) { return (C == 1 ? 2.0 : 8.0) * n; }
    // Read x and y, write y.
    static double bytes(double n) { return 3.0 * n * C * sizeof(R); }
    static R* alpha(Case& c) { return (R*)c.scal; }
    static bool setup(Case& c) {
        c.buf[0] = bench_alloc(len(c) * sizeof(R));
        c.buf[1] = bench_alloc(len(c) * sizeof(R));
        if (!c.buf[0] || !c.buf[1]) return false;
        fill((R*)c.buf[0], len(c), 1);
        alpha(c)[0] = (R)0.75;
        if (C == 2) alpha(c)[1] = (R)-0.5;
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[1], len(c), 2); }
    static void call_zva(void* f, Case& c) {
        ((zfn)f)(&c.n, alpha(c), (R*)c.buf[0], &one, (R*)c.buf[1], &one);
    }
    static void call_peer(void* f, Case& c) {
        ((pfn)f)(&c.n, alpha(c), (R*)c.buf[0], &one, (R*)c.buf[1], &one);
    }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[1];
        *nreal = len(c);
    }
};

// x = alpha x; C = 2 for complex elements.  buf: x.  alpha = -1 keeps the
// values where they are however many calls a measurement makes.
template <class R, int C> struct scal {
    typedef void(STDCALL* zfn)(const int*, const R*, R*, const int*);
    typedef void (*pfn)(const int*, const R*, R*, const int*);
    static size_t len(const Case& c) { return (size_t)c.n * C; }
    static double flops(double n) { return (C == 1 ? 1.0 : 6.0) * n; }
    static double bytes(double n) { return 2.0 * n * C * sizeof(R); }  // read and write x
    static R* alpha(Case& c) { return (R*)c.scal; }
    static bool setup(Case& c) {
        if (!(c.buf[0] = bench_alloc(len(c) * sizeof(R)))) return false;
        alpha(c)[0] = (R)-1;
        if (C == 2) alpha(c)[1] = (R)0;
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[0], len(c), 1); }
    static void call_zva(void* f, Case& c) { ((zfn)f)(&c.n, alpha(c), (R*)c.buf[0], &one); }
    static void call_peer(void* f, Case& c) { ((pfn)f)(&c.n, alpha(c), (R*)c.buf[0], &one); }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[0];
        *nreal = len(c);
    }
};

// y := x (SWAP: x <-> y); C = 2 for complex elements.  buf: x, y.  SWAP
// checks y, which holds x's values after one call.
template <class R, int C, bool SWAP> struct move {
    typedef void(STDCALL* zfn)(const int*, R*, const int*, R*, const int*);
    typedef void (*pfn)(const int*, R*, const int*, R*, const int*);
    static size_t len(const Case& c) { return (size_t)c.n * C; }
    static double flops(double) { return 0; }
    // COPY reads x and writes y; SWAP reads and writes both.
    static double bytes(double n) { return (SWAP ? 4.0 : 2.0) * n * C * sizeof(R); }
    static bool setup(Case& c) {
        c.buf[0] = bench_alloc(len(c) * sizeof(R));
        c.buf[1] = bench_alloc(len(c) * sizeof(R));
        if (!c.buf[0] || !c.buf[1]) return false;
        fill((R*)c.buf[0], len(c), 1);
        return true;
    }
    static void reset(Case& c) {
        fill((R*)c.buf[0], len(c), 1);
        fill((R*)c.buf[1], len(c), 2);
    }
    static void call_zva(void* f, Case& c) {
        ((zfn)f)(&c.n, (R*)c.buf[0], &one, (R*)c.buf[1], &one);
    }
    static void call_peer(void* f, Case& c) {
        ((pfn)f)(&c.n, (R*)c.buf[0], &one, (R*)c.buf[1], &one);
    }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[1];
        *nreal = len(c);
    }
};

// A function value of x (NRM2, ASUM): the result is kept in the case, where
// the check reads it as an output of one real.  buf: x.
template <class R, int C> struct reduce {
    typedef R(STDCALL* zfn)(const int*, const R*, const int*);
    typedef R (*pfn)(const int*, const R*, const int*);
    static double flops(double n) { return 2.0 * n * C; }
    static double bytes(double n) { return n * C * sizeof(R); }
    static R* value(const Case& c) { return (R*)&c.scal[2]; }
    static bool setup(Case& c) {
        if (!(c.buf[0] = bench_alloc((size_t)c.n * C * sizeof(R)))) return false;
        fill((R*)c.buf[0], (size_t)c.n * C, 1);
        return true;
    }
    static void reset(Case& c) { *value(c) = 0; }
    static void call_zva(void* f, Case& c) { *value(c) = ((zfn)f)(&c.n, (R*)c.buf[0], &one); }
    static void call_peer(void* f, Case& c) { *value(c) = ((pfn)f)(&c.n, (R*)c.buf[0], &one); }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = value(c);
        *nreal = 1;
    }
};

// y = alpha op(A) x + beta y on an n x n matrix.  buf: A, x, y.
template <class R, char T> struct gemv {
    typedef void(STDCALL* zfn)(const char*, int, const int*, const int*, const R*, const R*,
                               const int*, const R*, const int*, const R*, R*, const int*);
    // Fortran peers take the length of the letter last.
    typedef void (*pfn)(const char*, const int*, const int*, const R*, const R*, const int*,
                        const R*, const int*, const R*, R*, const int*, size_t);
    static double flops(double n) { return 2.0 * n * n; }
    static double bytes(double n) { return n * n * sizeof(R); }
    static bool setup(Case& c) {
        size_t n = (size_t)c.n;
        for (int i = 0; i < 3; ++i) {
            c.buf[i] = bench_alloc((i == 0 ? n * n : n) * sizeof(R));
            if (!c.buf[i]) return false;
        }
        fill((R*)c.buf[0], n * n, 3);
        fill((R*)c.buf[1], n, 4);
        c.scal[0] = 0.75, c.scal[1] = -0.5;
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[2], (size_t)c.n, 5); }
    static const R* scalar(Case& c, int i) {
        static thread_local R v[2];
        v[i] = (R)c.scal[i];
        return &v[i];
    }
    static void call_zva(void* f, Case& c) {
        static const char t[2] = {T, 0};
        ((zfn)f)(t, 1, &c.n, &c.n, scalar(c, 0), (R*)c.buf[0], &c.n, (R*)c.buf[1], &one,
                 scalar(c, 1), (R*)c.buf[2], &one);
    }
    static void call_peer(void* f, Case& c) {
        static const char t[2] = {T, 0};
        ((pfn)f)(t, &c.n, &c.n, scalar(c, 0), (R*)c.buf[0], &c.n, (R*)c.buf[1], &one,
                 scalar(c, 1), (R*)c.buf[2], &one, 1);
    }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[2];
        *nreal = (size_t)c.n;
    }
};

// y = alpha A x + beta y with A symmetric (C = 1) or Hermitian (C = 2) and
// its upper triangle stored.  buf: A, x, y; scal: alpha, beta as pairs.
template <class R, int C> struct symv {
    typedef void(STDCALL* zfn)(const char*, int, const int*, const R*, const R*, const int*, const R*,
                               const int*, const R*, R*, const int*);
    typedef void (*pfn)(const char*, const int*, const R*, const R*, const int*, const R*, const int*,
                        const R*, R*, const int*, size_t);
    static double flops(double n) { return (C == 1 ? 2.0 : 8.0) * n * n; }
    static double bytes(double n) { return 0.5 * n * n * C * sizeof(R); }  // the triangle
    static const R* scalar(Case& c, int i) {
        static thread_local R v[4];
        v[2 * i] = (R)c.scal[2 * i], v[2 * i + 1] = (R)c.scal[2 * i + 1];
        return &v[2 * i];
    }
    static bool setup(Case& c) {
        size_t n = (size_t)c.n;
        for (int i = 0; i < 3; ++i)
            if (!(c.buf[i] = bench_alloc((i == 0 ? n * n : n) * C * sizeof(R)))) return false;
        fill((R*)c.buf[0], n * n * C, 3);
        fill((R*)c.buf[1], n * C, 4);
        c.scal[0] = 0.75, c.scal[1] = C == 2 ? 0.25 : 0, c.scal[2] = -0.5, c.scal[3] = 0;
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[2], (size_t)c.n * C, 5); }
    static void call_zva(void* f, Case& c) {
        ((zfn)f)("U", 1, &c.n, scalar(c, 0), (R*)c.buf[0], &c.n, (R*)c.buf[1], &one, scalar(c, 1),
                 (R*)c.buf[2], &one);
    }
    static void call_peer(void* f, Case& c) {
        ((pfn)f)("U", &c.n, scalar(c, 0), (R*)c.buf[0], &c.n, (R*)c.buf[1], &one, scalar(c, 1),
                 (R*)c.buf[2], &one, 1);
    }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[2];
        *nreal = (size_t)c.n * C;
    }
};

// A += alpha x y' + alpha y x' on the upper triangle.  buf: A, x, y.
template <class R> struct syr2 {
    typedef void(STDCALL* zfn)(const char*, int, const int*, const R*, const R*, const int*, const R*,
                               const int*, R*, const int*);
    typedef void (*pfn)(const char*, const int*, const R*, const R*, const int*, const R*, const int*, R*,
                        const int*, size_t);
    static double flops(double n) { return 2.0 * n * n; }
    static double bytes(double n) { return n * n * sizeof(R); }  // the triangle, read and written
    static const R* alpha(Case& c) {
        static thread_local R v;
        v = (R)c.scal[0];
        return &v;
    }
    static bool setup(Case& c) {
        size_t n = (size_t)c.n;
        for (int i = 0; i < 3; ++i)
            if (!(c.buf[i] = bench_alloc((i == 0 ? n * n : n) * sizeof(R)))) return false;
        fill((R*)c.buf[1], n, 4);
        fill((R*)c.buf[2], n, 5);
        c.scal[0] = 0.75;
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[0], (size_t)c.n * c.n, 3); }
    static void call_zva(void* f, Case& c) {
        ((zfn)f)("U", 1, &c.n, alpha(c), (R*)c.buf[1], &one, (R*)c.buf[2], &one, (R*)c.buf[0], &c.n);
    }
    static void call_peer(void* f, Case& c) {
        ((pfn)f)("U", &c.n, alpha(c), (R*)c.buf[1], &one, (R*)c.buf[2], &one, (R*)c.buf[0], &c.n, 1);
    }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[0];
        *nreal = (size_t)c.n * c.n;
    }
};

// x = A x (TRMV) or x = inv(A) x (TRSV) with A lower triangular, not
// transposed, non-unit.  The diagonal is +-1 and the other elements are of
// size 1/n, so that x keeps its size over any number of calls.  buf: A, x.
template <class R, bool SOLVE> struct trmv {
    typedef void(STDCALL* zfn)(const char*, int, const char*, int, const char*, int, const int*,
                               const R*, const int*, R*, const int*);
    typedef void (*pfn)(const char*, const char*, const char*, const int*, const R*, const int*,
                        R*, const int*, size_t, size_t, size_t);
    static double flops(double n) { return n * n; }
    static double bytes(double n) { return n * n / 2 * sizeof(R); }  // the triangle
    static bool setup(Case& c) {
        size_t n = (size_t)c.n;
        c.buf[0] = bench_alloc(n * n * sizeof(R));
        c.buf[1] = bench_alloc(n * sizeof(R));
        if (!c.buf[0] || !c.buf[1]) return false;
        R* a = (R*)c.buf[0];
        fill(a, n * n, 3);
        for (size_t j = 0; j < n; ++j)
            for (size_t i = j; i < n; ++i)
                a[j * n + i] = i == j ? (a[j * n + i] < 0 ? -1 : 1) : a[j * n + i] / (R)n;
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[1], (size_t)c.n, 4); }
    static void call_zva(void* f, Case& c) {
        ((zfn)f)("L", 1, "N", 1, "N", 1, &c.n, (R*)c.buf[0], &c.n, (R*)c.buf[1], &one);
    }
    static void call_peer(void* f, Case& c) {
        ((pfn)f)("L", "N", "N", &c.n, (R*)c.buf[0], &c.n, (R*)c.buf[1], &one, 1, 1, 1);
    }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[1];
        *nreal = (size_t)c.n;
    }
};

// An n x n matrix as its packed upper triangle: y = alpha A x + beta y
// (SPMV), or x = A x with A triangular, not transposed, non-unit (TPMV), x
// copied in afresh before each call so that repeated calls keep the same
// numbers.  buf: A, x, y (SPMV) or the x the call works on (TPMV).
template <class R, bool Tri> struct packed {
    typedef void(STDCALL* zspmv)(const char*, int, const int*, const R*, const R*, const R*,
                                 const int*, const R*, R*, const int*);
    typedef void(STDCALL* ztpmv)(const char*, int, const char*, int, const char*, int, const int*,
                                 const R*, R*, const int*);
    typedef void (*pspmv)(const char*, const int*, const R*, const R*, const R*, const int*,
                          const R*, R*, const int*, size_t);
    typedef void (*ptpmv)(const char*, const char*, const char*, const int*, const R*, R*,
                          const int*, size_t, size_t, size_t);
    static double flops(double n) { return (Tri ? 1.0 : 2.0) * n * n; }
    static double bytes(double n) { return n * (n + 1) / 2 * sizeof(R); }
    static bool setup(Case& c) {
        size_t n = (size_t)c.n;
        c.buf[0] = bench_alloc(n * (n + 1) / 2 * sizeof(R));
        c.buf[1] = bench_alloc(n * sizeof(R));
        c.buf[2] = bench_alloc(n * sizeof(R));
        if (!c.buf[0] || !c.buf[1] || !c.buf[2]) return false;
        fill((R*)c.buf[0], n * (n + 1) / 2, 10);
        fill((R*)c.buf[1], n, 11);
        c.scal[0] = 0.75, c.scal[1] = -0.5;
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[2], (size_t)c.n, 12); }
    static const R* scalar(Case& c, int i) {
        static thread_local R v[2];
        v[i] = (R)c.scal[i];
        return &v[i];
    }
    template <class S, class T> static void call(void* f, Case& c) {
        R* w = (R*)c.buf[2];
        if constexpr (Tri) {
            memcpy(w, c.buf[1], (size_t)c.n * sizeof(R));
            if constexpr (std::is_same_v<T, ztpmv>) ((T)f)("U", 1, "N", 1, "N", 1, &c.n, (R*)c.buf[0], w, &one);
            else ((T)f)("U", "N", "N", &c.n, (R*)c.buf[0], w, &one, 1, 1, 1);
        } else if constexpr (std::is_same_v<S, zspmv>) {
            ((S)f)("U", 1, &c.n, scalar(c, 0), (R*)c.buf[0], (R*)c.buf[1], &one, scalar(c, 1), w, &one);
        } else {
            ((S)f)("U", &c.n, scalar(c, 0), (R*)c.buf[0], (R*)c.buf[1], &one, scalar(c, 1), w, &one, 1);
        }
    }
    static void call_zva(void* f, Case& c) { call<zspmv, ztpmv>(f, c); }
    static void call_peer(void* f, Case& c) { call<pspmv, ptpmv>(f, c); }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[2];
        *nreal = (size_t)c.n;
    }
};

// A += alpha x y' (conjugated y for the complex rows) on an n x n matrix;
// C = 2 for complex elements.  buf: A, x, y.
template <class R, int C> struct ger {
    typedef void(STDCALL* zfn)(const int*, const int*, const R*, const R*, const int*, const R*,
                               const int*, R*, const int*);
    typedef void (*pfn)(const int*, const int*, const R*, const R*, const int*, const R*,
                        const int*, R*, const int*);
    static double flops(double n) { return (C == 1 ? 2.0 : 8.0) * n * n; }
    static double bytes(double n) { return 2.0 * n * n * C * sizeof(R); }  // read and write A
    static bool setup(Case& c) {
        size_t n = (size_t)c.n;
        c.buf[0] = bench_alloc(n * n * C * sizeof(R));
        c.buf[1] = bench_alloc(n * C * sizeof(R));
        c.buf[2] = bench_alloc(n * C * sizeof(R));
        if (!c.buf[0] || !c.buf[1] || !c.buf[2]) return false;
        fill((R*)c.buf[1], n * C, 4);
        fill((R*)c.buf[2], n * C, 5);
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[0], (size_t)c.n * c.n * C, 3); }
    static const R* alpha() {
        static const R v[2] = {(R)0.75, (R)-0.25};
        return v;
    }
    template <class F> static void call(void* f, Case& c) {
        ((F)f)(&c.n, &c.n, alpha(), (R*)c.buf[1], &one, (R*)c.buf[2], &one, (R*)c.buf[0], &c.n);
    }
    static void call_zva(void* f, Case& c) { call<zfn>(f, c); }
    static void call_peer(void* f, Case& c) { call<pfn>(f, c); }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[0];
        *nreal = (size_t)c.n * c.n * C;
    }
};

// C = alpha op(A) op(B) + beta C with m = n = size and k = size, or k = K
// for the skinny shapes; C = 2 for complex elements.  buf: A, B, C.
template <class R, char TA, char TB, int K = 0, int C = 1> struct gemm {
    typedef void(STDCALL* zfn)(const char*, int, const char*, int, const int*, const int*,
                               const int*, const R*, const R*, const int*, const R*,
                               const int*, const R*, R*, const int*);
    typedef void (*pfn)(const char*, const char*, const int*, const int*, const int*, const R*,
                        const R*, const int*, const R*, const int*, const R*, R*, const int*,
                        size_t, size_t);
    static int kk(const Case& c) { return K ? K : c.n; }
    static double flops(double n) { return (C == 1 ? 2.0 : 8.0) * n * n * (K ? K : n); }
    static constexpr double (*bytes)(double) = nullptr;  // compute-bound
    static bool setup(Case& c) {
        size_t n = (size_t)c.n, k = (size_t)kk(c);
        c.buf[0] = bench_alloc(n * k * C * sizeof(R));
        c.buf[1] = bench_alloc(n * k * C * sizeof(R));
        c.buf[2] = bench_alloc(n * n * C * sizeof(R));
        if (!c.buf[0] || !c.buf[1] || !c.buf[2]) return false;
        fill((R*)c.buf[0], n * k * C, 6);
        fill((R*)c.buf[1], n * k * C, 7);
        c.scal[0] = 0.75, c.scal[1] = 0.5;
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[2], (size_t)c.n * c.n * C, 8); }
    // Complex scalars get an imaginary part of -0.25.
    static const R* scalar(Case& c, int i) {
        static thread_local R v[4];
        v[C * i] = (R)c.scal[i];
        if (C == 2) v[2 * i + 1] = (R)-0.25;
        return &v[C * i];
    }
    // Leading dimensions of the stored A and B.
    static int lda(const Case& c) { return TA == 'N' ? c.n : kk(c); }
    static int ldb(const Case& c) { return TB == 'N' ? kk(c) : c.n; }
    static void call_zva(void* f, Case& c) {
        static const char ta[2] = {TA, 0}, tb[2] = {TB, 0};
        int k = kk(c), la = lda(c), lb = ldb(c);
        ((zfn)f)(ta, 1, tb, 1, &c.n, &c.n, &k, scalar(c, 0), (R*)c.buf[0], &la, (R*)c.buf[1],
                 &lb, scalar(c, 1), (R*)c.buf[2], &c.n);
    }
    static void call_peer(void* f, Case& c) {
        static const char ta[2] = {TA, 0}, tb[2] = {TB, 0};
        int k = kk(c), la = lda(c), lb = ldb(c);
        ((pfn)f)(ta, tb, &c.n, &c.n, &k, scalar(c, 0), (R*)c.buf[0], &la, (R*)c.buf[1], &lb,
                 scalar(c, 1), (R*)c.buf[2], &c.n, 1, 1);
    }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[2];
        *nreal = (size_t)c.n * c.n * C;
    }
};

// C = alpha op(A) op(A)' + beta C on the upper triangle of an n x n C, k = n
// (SYRK; HERK where H: real alpha and beta), or alpha op(A) op(B)' +
// alpha op(B) op(A)' + beta C (SYR2K, Two).  C = 2 for complex elements.
// The other triangle keeps reset()'s values in every library.  buf: A, B, C.
template <class R, char TR, bool Two, int C = 1, bool H = false> struct syrk {
    typedef void(STDCALL* zfn)(const char*, int, const char*, int, const int*, const int*,
                               const R*, const R*, const int*, const R*, R*, const int*);
    typedef void (*pfn)(const char*, const char*, const int*, const int*, const R*, const R*,
                        const int*, const R*, R*, const int*, size_t, size_t);
    typedef void(STDCALL* z2fn)(const char*, int, const char*, int, const int*, const int*,
                                const R*, const R*, const int*, const R*, const int*, const R*,
                                R*, const int*);
    typedef void (*p2fn)(const char*, const char*, const int*, const int*, const R*, const R*,
                         const int*, const R*, const int*, const R*, R*, const int*, size_t,
                         size_t);
    static double flops(double n) { return (Two ? 2.0 : 1.0) * (C == 1 ? 1.0 : 4.0) * n * n * n; }
    static constexpr double (*bytes)(double) = nullptr;  // compute-bound
    static bool setup(Case& c) {
        size_t n = (size_t)c.n;
        c.buf[0] = bench_alloc(n * n * C * sizeof(R));
        c.buf[1] = bench_alloc(n * n * C * sizeof(R));
        c.buf[2] = bench_alloc(n * n * C * sizeof(R));
        if (!c.buf[0] || !c.buf[1] || !c.buf[2]) return false;
        fill((R*)c.buf[0], n * n * C, 6);
        fill((R*)c.buf[1], n * n * C, 7);
        c.scal[0] = 0.75, c.scal[1] = 0.5;
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[2], (size_t)c.n * c.n * C, 8); }
    // Complex scalars get an imaginary part of -0.25, except HERK's.
    static const R* scalar(Case& c, int i) {
        static thread_local R v[4];
        v[C * i] = (R)c.scal[i];
        if (C == 2) v[2 * i + 1] = H ? 0 : (R)-0.25;
        return &v[C * i];
    }
    static void call_zva(void* f, Case& c) {
        static const char u[2] = {'U', 0}, t[2] = {TR, 0};
        const R *a = (R*)c.buf[0], *b = (R*)c.buf[1];
        if constexpr (Two)
            ((z2fn)f)(u, 1, t, 1, &c.n, &c.n, scalar(c, 0), a, &c.n, b, &c.n, scalar(c, 1),
                      (R*)c.buf[2], &c.n);
        else
            ((zfn)f)(u, 1, t, 1, &c.n, &c.n, scalar(c, 0), a, &c.n, scalar(c, 1), (R*)c.buf[2],
                     &c.n);
    }
    static void call_peer(void* f, Case& c) {
        static const char u[2] = {'U', 0}, t[2] = {TR, 0};
        const R *a = (R*)c.buf[0], *b = (R*)c.buf[1];
        if constexpr (Two)
            ((p2fn)f)(u, t, &c.n, &c.n, scalar(c, 0), a, &c.n, b, &c.n, scalar(c, 1),
                      (R*)c.buf[2], &c.n, 1, 1);
        else
            ((pfn)f)(u, t, &c.n, &c.n, scalar(c, 0), a, &c.n, scalar(c, 1), (R*)c.buf[2], &c.n,
                     1, 1);
    }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[2];
        *nreal = (size_t)c.n * c.n * C;
    }
};

// C = alpha A B + beta C (side "L") or alpha B A + beta C with A symmetric,
// Hermitian for HEMM, of which one triangle is read; m = n = size; C = 2
// for complex elements.  buf: A, B, C.
template <class R, char SIDE, char UPLO, int C = 1> struct symm {
    typedef void(STDCALL* zfn)(const char*, int, const char*, int, const int*, const int*,
                               const R*, const R*, const int*, const R*, const int*, const R*,
                               R*, const int*);
    typedef void (*pfn)(const char*, const char*, const int*, const int*, const R*, const R*,
                        const int*, const R*, const int*, const R*, R*, const int*, size_t,
                        size_t);
    static double flops(double n) { return (C == 1 ? 2.0 : 8.0) * n * n * n; }
    static constexpr double (*bytes)(double) = nullptr;  // compute-bound
    static bool setup(Case& c) {
        size_t n = (size_t)c.n;
        for (int i = 0; i < 3; ++i)
            if (!(c.buf[i] = bench_alloc(n * n * C * sizeof(R)))) return false;
        fill((R*)c.buf[0], n * n * C, 6);
        fill((R*)c.buf[1], n * n * C, 7);
        c.scal[0] = 0.75, c.scal[1] = 0.5;
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[2], (size_t)c.n * c.n * C, 8); }
    static const R* scalar(Case& c, int i) {
        static thread_local R v[4];
        v[C * i] = (R)c.scal[i];
        if (C == 2) v[2 * i + 1] = (R)-0.25;
        return &v[C * i];
    }
    static void call_zva(void* f, Case& c) {
        static const char s[2] = {SIDE, 0}, u[2] = {UPLO, 0};
        ((zfn)f)(s, 1, u, 1, &c.n, &c.n, scalar(c, 0), (R*)c.buf[0], &c.n, (R*)c.buf[1], &c.n,
                 scalar(c, 1), (R*)c.buf[2], &c.n);
    }
    static void call_peer(void* f, Case& c) {
        static const char s[2] = {SIDE, 0}, u[2] = {UPLO, 0};
        ((pfn)f)(s, u, &c.n, &c.n, scalar(c, 0), (R*)c.buf[0], &c.n, (R*)c.buf[1], &c.n,
                 scalar(c, 1), (R*)c.buf[2], &c.n, 1, 1);
    }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[2];
        *nreal = (size_t)c.n * c.n * C;
    }
};

// B := alpha op(A) B (side L) or alpha B op(A) (side R) on an n x n B, in
// place; C = 2 for complex elements. A has 1 on its diagonal and the
// filler divided by n off it, so that B keeps its size over the repeated
// timed calls. alpha is 1. buf: A, B.
template <class R, char S, char U, char T, int C = 1> struct trmm {
    typedef void(STDCALL* zfn)(const char*, int, const char*, int, const char*, int,
                               const char*, int, const int*, const int*, const R*, const R*,
                               const int*, R*, const int*);
    typedef void (*pfn)(const char*, const char*, const char*, const char*, const int*,
                        const int*, const R*, const R*, const int*, R*, const int*, size_t,
                        size_t, size_t, size_t);
    static double flops(double n) { return (C == 1 ? 1.0 : 4.0) * n * n * n; }
    static constexpr double (*bytes)(double) = nullptr;  // compute-bound
    static bool setup(Case& c) {
        const size_t n = (size_t)c.n;
        c.buf[0] = bench_alloc(n * n * C * sizeof(R));
        c.buf[1] = bench_alloc(n * n * C * sizeof(R));
        if (!c.buf[0] || !c.buf[1]) return false;
        R* a = (R*)c.buf[0];
        fill(a, n * n * C, 6);
        for (size_t j = 0; j < n; ++j)
            for (size_t i = 0; i < n * C; ++i) {
                R& e = a[i + j * n * C];
                e = i / C == j ? (i % C ? R(0) : R(1)) : e / (R)c.n;
            }
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[1], (size_t)c.n * c.n * C, 8); }
    static const R* alpha() {
        static const R v[2] = {1, 0};
        return v;
    }
    static void call_zva(void* f, Case& c) {
        static const char s[2] = {S, 0}, u[2] = {U, 0}, t[2] = {T, 0}, d[2] = {'N', 0};
        ((zfn)f)(s, 1, u, 1, t, 1, d, 1, &c.n, &c.n, alpha(), (R*)c.buf[0], &c.n,
                 (R*)c.buf[1], &c.n);
    }
    static void call_peer(void* f, Case& c) {
        static const char s[2] = {S, 0}, u[2] = {U, 0}, t[2] = {T, 0}, d[2] = {'N', 0};
        ((pfn)f)(s, u, t, d, &c.n, &c.n, alpha(), (R*)c.buf[0], &c.n, (R*)c.buf[1], &c.n, 1, 1,
                 1, 1);
    }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[1];
        *nreal = (size_t)c.n * c.n * C;
    }
};

// The dot product x.y, conjugated x for the complex rows; C = 2 for complex
// elements.  buf: x, y; the function value lands in scal[2..3].  Complex
// functions: zva takes the result slot as its first word and hands it back;
// the gfortran-ABI peers return a COMPLEX through a hidden first argument
// that the callee pops (ret $4 on i386), which is how g++ returns
// __complex__, so the peers are called as returning one.
template <class R, int C> struct dot {
    typedef R(STDCALL* zfn)(const int*, const R*, const int*, const R*, const int*);
    typedef R (*pfn)(const int*, const R*, const int*, const R*, const int*);
    typedef R*(STDCALL* zcfn)(R*, const int*, const R*, const int*, const R*, const int*);
    typedef __complex__ double cd;
    typedef __complex__ float cf;
    typedef std::conditional_t<sizeof(R) == 8, cd, cf> CR;
    typedef CR (*pcfn)(const int*, const R*, const int*, const R*, const int*);
    static size_t len(const Case& c) { return (size_t)c.n * C; }
    static double flops(double n) { return (C == 1 ? 2.0 : 8.0) * n; }
    static double bytes(double n) { return 2.0 * n * C * sizeof(R); }  // read x and y
    static R* out(Case& c) { return (R*)&c.scal[2]; }
    static bool setup(Case& c) {
        c.buf[0] = bench_alloc(len(c) * sizeof(R));
        c.buf[1] = bench_alloc(len(c) * sizeof(R));
        if (!c.buf[0] || !c.buf[1]) return false;
        fill((R*)c.buf[0], len(c), 1);
        fill((R*)c.buf[1], len(c), 2);
        return true;
    }
    static void reset(Case& c) { c.scal[2] = c.scal[3] = 0; }
    static void call_zva(void* f, Case& c) {
        const R* x = (R*)c.buf[0];
        const R* y = (R*)c.buf[1];
        if constexpr (C == 1) out(c)[0] = ((zfn)f)(&c.n, x, &one, y, &one);
        else ((zcfn)f)(out(c), &c.n, x, &one, y, &one);
    }
    static void call_peer(void* f, Case& c) {
        const R* x = (R*)c.buf[0];
        const R* y = (R*)c.buf[1];
        if constexpr (C == 1) {
            out(c)[0] = ((pfn)f)(&c.n, x, &one, y, &one);
        } else {
            const CR v = ((pcfn)f)(&c.n, x, &one, y, &one);
            out(c)[0] = __real__ v;
            out(c)[1] = __imag__ v;
        }
    }
    static void result(const Case& c, const void** o, size_t* nreal) {
        *o = &c.scal[2];
        *nreal = C;
    }
};

// Sparse level 1 in double: nz elements x with ascending one-based indices
// spread over a vector y of about 4 nz (gaps of 1 to 7).  OpenBLAS and the
// reference BLAS have no sparse routines, so the peers run the dense
// routine of the gathered length instead: DAXPY and DDOT on a dense copy of
// the indexed elements of y, DCOPY from it for GTHR.  They move fewer bytes
// and read no indices; the ratio says what the indirection costs.  The
// byte rates count the elements zva's routine touches (x, indx, y).
// buf: x, indx, y (spread), the dense copy of y's indexed elements.
// scal[0] alpha, scal[2] a dot's value, scal[3] 0 after zva's call, 1 after
// a peer's.
enum sparse_kind { AXPYI, DOTI, GTHR };
template <sparse_kind K> struct sparse1 {
    typedef void(STDCALL* zaxpyi)(const int*, const double*, const double*, const int*, double*);
    typedef double(STDCALL* zdoti)(const int*, const double*, const int*, const double*);
    typedef void(STDCALL* zgthr)(const int*, const double*, double*, const int*);
    typedef void (*paxpy)(const int*, const double*, const double*, const int*, double*, const int*);
    typedef double (*pdot)(const int*, const double*, const int*, const double*, const int*);
    typedef void (*pcopy)(const int*, const double*, const int*, double*, const int*);
    static double* x(const Case& c) { return (double*)c.buf[0]; }
    static int* indx(const Case& c) { return (int*)c.buf[1]; }
    static double* y(const Case& c) { return (double*)c.buf[2]; }
    static double* dense(const Case& c) { return (double*)c.buf[3]; }
    static double flops(double n) { return K == GTHR ? 0 : 2.0 * n; }
    static double bytes(double n) { return n * (K == AXPYI ? 8 + 4 + 16 : 8 + 4 + 8); }
    static size_t span(int n) { return 8 * (size_t)n + 8; }
    static void gather(const Case& c) {
        for (int i = 0; i < c.n; ++i) dense(c)[i] = y(c)[indx(c)[i] - 1];
    }
    static bool setup(Case& c) {
        size_t n = (size_t)c.n;
        c.buf[0] = bench_alloc(n * sizeof(double));
        c.buf[1] = bench_alloc(n * sizeof(int));
        c.buf[2] = bench_alloc(span(c.n) * sizeof(double));
        c.buf[3] = bench_alloc(n * sizeof(double));
        if (!c.buf[0] || !c.buf[1] || !c.buf[2] || !c.buf[3]) return false;
        int k = 0;
        for (size_t i = 0; i < n; ++i) indx(c)[i] = k += 1 + (int)(hash((uint32_t)i, 11) % 7);
        fill(x(c), n, 1);
        fill(y(c), span(c.n), 2);
        gather(c);
        c.scal[0] = 0.75;
        return true;
    }
    static void reset(Case& c) {
        if (K == AXPYI) fill(y(c), span(c.n), 2), gather(c);
        if (K == GTHR) fill(x(c), (size_t)c.n, 9);
    }
    static void call_zva(void* f, Case& c) {
        if (K == AXPYI) ((zaxpyi)f)(&c.n, c.scal, x(c), indx(c), y(c)), c.scal[3] = 0;
        if (K == DOTI) c.scal[2] = ((zdoti)f)(&c.n, x(c), indx(c), y(c));
        if (K == GTHR) ((zgthr)f)(&c.n, y(c), x(c), indx(c));
    }
    static void call_peer(void* f, Case& c) {
        if (K == AXPYI) ((paxpy)f)(&c.n, c.scal, x(c), &one, dense(c), &one), c.scal[3] = 1;
        if (K == DOTI) c.scal[2] = ((pdot)f)(&c.n, x(c), &one, dense(c), &one);
        if (K == GTHR) ((pcopy)f)(&c.n, dense(c), &one, x(c), &one);
    }
    // AXPYI: zva's result is gathered into the dense copy, outside the timing.
    static void result(const Case& c, const void** out, size_t* nreal) {
        if (K == AXPYI && c.scal[3] == 0) gather(c);
        *out = K == AXPYI ? (const void*)dense(c) : K == DOTI ? (const void*)&c.scal[2] : (const void*)x(c);
        *nreal = K == DOTI ? 1 : (size_t)c.n;
    }
};

// Position of the largest |x|, an integer function value.  buf: x, and the
// position as two reals, its low 10 bits and the rest, so that a difference
// of one position stands out against the relative tolerance of the check.
template <class R> struct iamax {
    typedef int(STDCALL* zfn)(const int*, const R*, const int*);
    typedef int (*pfn)(const int*, const R*, const int*);
    static double flops(double n) { return n; }  // one compare per element
    static double bytes(double n) { return n * sizeof(R); }
    static bool setup(Case& c) {
        c.buf[0] = bench_alloc((size_t)c.n * sizeof(R));
        c.buf[1] = bench_alloc(2 * sizeof(R));
        if (!c.buf[0] || !c.buf[1]) return false;
        fill((R*)c.buf[0], (size_t)c.n, 9);
        return true;
    }
    static void reset(Case& c) { ((R*)c.buf[1])[0] = ((R*)c.buf[1])[1] = -1; }
    static void keep(Case& c, int pos) {
        ((R*)c.buf[1])[0] = (R)(pos & 1023);
        ((R*)c.buf[1])[1] = (R)(pos >> 10);
    }
    static void call_zva(void* f, Case& c) { keep(c, ((zfn)f)(&c.n, (R*)c.buf[0], &one)); }
    static void call_peer(void* f, Case& c) { keep(c, ((pfn)f)(&c.n, (R*)c.buf[0], &one)); }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[1];
        *nreal = 2;
    }
};

// Plane rotation of x and y, by c and s (ROT) or by a full H (ROTM, flag
// -1).  buf: x and y in one block, so that the checked output covers both.
template <class R, bool M> struct rot {
    typedef void(STDCALL* zfn)(const int*, R*, const int*, R*, const int*, const R*, const R*);
    typedef void(STDCALL* zmfn)(const int*, R*, const int*, R*, const int*, const R*);
    typedef void (*pfn)(const int*, R*, const int*, R*, const int*, const R*, const R*);
    typedef void (*pmfn)(const int*, R*, const int*, R*, const int*, const R*);
    static double flops(double n) { return 6.0 * n; }
    // Read x and y, write both.
    static double bytes(double n) { return 4.0 * n * sizeof(R); }
    static R* x(const Case& c) { return (R*)c.buf[0]; }
    static R* y(const Case& c) { return (R*)c.buf[0] + c.n; }
    static const R* param() {
        static const R p[5] = {-1, (R)0.6, (R)-0.8, (R)0.8, (R)0.6};
        return p;
    }
    static bool setup(Case& c) {
        c.buf[0] = bench_alloc(2 * (size_t)c.n * sizeof(R));
        return c.buf[0] != nullptr;
    }
    static void reset(Case& c) { fill(x(c), 2 * (size_t)c.n, 9); }
    template <class F, class G> static void call(void* f, Case& c) {
        if constexpr (M) ((G)f)(&c.n, x(c), &one, y(c), &one, param());
        else ((F)f)(&c.n, x(c), &one, y(c), &one, &param()[1], &param()[3]);
    }
    static void call_zva(void* f, Case& c) { call<zfn, zmfn>(f, c); }
    static void call_peer(void* f, Case& c) { call<pfn, pmfn>(f, c); }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[0];
        *nreal = 2 * (size_t)c.n;
    }
};

// Banded matrix times vector (GBMV, kl = ku = K) and banded triangular solve
// (TBSV, upper, not transposed, k = K) on n columns, in double.  buf: the
// band (K + 1 or 2K + 1 rows), x, y.  TBSV solves in place, call after call:
// its diagonal is +-1 and the band above it of size 2^-22, so that the
// repeated solves stay near the start values for any number of calls,
// while the first, checked, solve still depends on every band element.
template <bool SOLVE, int K> struct band {
    typedef void(STDCALL* zgb)(const char*, int, const int*, const int*, const int*,
                               const int*, const double*, const double*, const int*,
                               const double*, const int*, const double*, double*, const int*);
    typedef void (*pgb)(const char*, const int*, const int*, const int*, const int*,
                        const double*, const double*, const int*, const double*, const int*,
                        const double*, double*, const int*, size_t);
    typedef void(STDCALL* ztb)(const char*, int, const char*, int, const char*, int,
                               const int*, const int*, const double*, const int*, double*,
                               const int*);
    typedef void (*ptb)(const char*, const char*, const char*, const int*, const int*,
                        const double*, const int*, double*, const int*, size_t, size_t,
                        size_t);
    static constexpr int k = K, lda = SOLVE ? K + 1 : 2 * K + 1;
    static double flops(double n) { return 2.0 * n * (SOLVE ? K + 1 : 2 * K + 1); }
    static double bytes(double n) { return n * lda * sizeof(double); }
    static double* out(const Case& c) { return (double*)c.buf[SOLVE ? 1 : 2]; }
    static bool setup(Case& c) {
        size_t n = (size_t)c.n;
        c.buf[0] = bench_alloc(n * lda * sizeof(double));
        c.buf[1] = bench_alloc(n * sizeof(double));
        c.buf[2] = bench_alloc(n * sizeof(double));
        if (!c.buf[0] || !c.buf[1] || !c.buf[2]) return false;
        double* a = (double*)c.buf[0];
        fill(a, n * lda, 3);
        fill((double*)c.buf[1], n, 4);
        if (SOLVE)
            for (size_t j = 0; j < n; ++j) {
                for (int r = 0; r < K; ++r) a[j * lda + r] *= 0x1p-22;
                a[j * lda + K] = a[j * lda + K] < 0 ? -1.0 : 1.0;
            }
        c.scal[0] = 0.75, c.scal[1] = -0.5;
        return true;
    }
    static void reset(Case& c) { fill(out(c), (size_t)c.n, 5); }
    static void call_zva(void* f, Case& c) {
        if (SOLVE) ((ztb)f)("U", 1, "N", 1, "N", 1, &c.n, &k, (double*)c.buf[0], &lda, out(c), &one);
        else ((zgb)f)("N", 1, &c.n, &c.n, &k, &k, &c.scal[0], (double*)c.buf[0], &lda,
                      (double*)c.buf[1], &one, &c.scal[1], out(c), &one);
    }
    static void call_peer(void* f, Case& c) {
        if (SOLVE) ((ptb)f)("U", "N", "N", &c.n, &k, (double*)c.buf[0], &lda, out(c), &one, 1, 1, 1);
        else ((pgb)f)("N", &c.n, &c.n, &k, &k, &c.scal[0], (double*)c.buf[0], &lda,
                      (double*)c.buf[1], &one, &c.scal[1], out(c), &one, 1);
    }
    static void result(const Case& c, const void** o, size_t* nreal) {
        *o = out(c);
        *nreal = (size_t)c.n;
    }
};

// ---- added for TRSM ----------------------------------------------------------
// B = alpha inv(A) B (side L) or alpha B inv(A) (side R), transa N, non-unit,
// n x n; C = 2 for complex elements.  buf: A, B.  Calls repeat on the same B
// without a refill, so A keeps it in range: a diagonal of +-1 and
// off-diagonal elements below 1/(64 n), and alpha -1 (complex: i).
template <class R, char SIDE, char UPLO, int C> struct trsm {
    typedef void(STDCALL* zfn)(const char*, int, const char*, int, const char*, int,
                               const char*, int, const int*, const int*, const R*, const R*,
                               const int*, R*, const int*);
    typedef void (*pfn)(const char*, const char*, const char*, const char*, const int*,
                        const int*, const R*, const R*, const int*, R*, const int*, size_t,
                        size_t, size_t, size_t);
    static double flops(double n) { return (C == 1 ? 1.0 : 4.0) * n * n * n; }
    static constexpr double (*bytes)(double) = nullptr;  // compute-bound
    static bool setup(Case& c) {
        size_t n = (size_t)c.n, len = n * n * C;
        c.buf[0] = bench_alloc(len * sizeof(R));
        c.buf[1] = bench_alloc(len * sizeof(R));
        if (!c.buf[0] || !c.buf[1]) return false;
        R* a = (R*)c.buf[0];
        fill(a, len, 10);
        const R small = (R)(1.0 / (64.0 * (double)n));
        for (size_t j = 0; j < n; ++j)
            for (size_t i = 0; i < n; ++i)
                for (int p = 0; p < C; ++p) {
                    R& e = a[C * (i + j * n) + p];
                    if (i != j) e *= small;
                    else e = p ? 0 : e < 0 ? -1 : 1;
                }
        c.scal[0] = C == 1 ? -1 : 0, c.scal[1] = C == 1 ? 0 : 1;
        return true;
    }
    static void reset(Case& c) { fill((R*)c.buf[1], (size_t)c.n * c.n * C, 11); }
    static const R* alpha(Case& c) {
        static thread_local R v[2];
        v[0] = (R)c.scal[0], v[1] = (R)c.scal[1];
        return v;
    }
    static void call_zva(void* f, Case& c) {
        static const char s[2] = {SIDE, 0}, u[2] = {UPLO, 0};
        ((zfn)f)(s, 1, u, 1, "N", 1, "N", 1, &c.n, &c.n, alpha(c), (R*)c.buf[0], &c.n,
                 (R*)c.buf[1], &c.n);
    }
    static void call_peer(void* f, Case& c) {
        static const char s[2] = {SIDE, 0}, u[2] = {UPLO, 0};
        ((pfn)f)(s, u, "N", "N", &c.n, &c.n, alpha(c), (R*)c.buf[0], &c.n, (R*)c.buf[1], &c.n,
                 1, 1, 1, 1);
    }
    static void result(const Case& c, const void** out, size_t* nreal) {
        *out = c.buf[1];
        *nreal = (size_t)c.n * c.n * C;
    }
};

#define ROW(name, type, zsym, psym, max_n, shape, ...)                       \
    {name, type, zsym, psym, __VA_ARGS__::flops, __VA_ARGS__::bytes,         \
     __VA_ARGS__::setup, __VA_ARGS__::reset, __VA_ARGS__::call_zva,          \
     __VA_ARGS__::call_peer, __VA_ARGS__::result, max_n, shape}

const Op ops[] = {
    ROW("daxpy", 'D', "_DAXPY@24", "daxpy_", 1 << 30, VEC, axpy<double, 1>),
    ROW("saxpy", 'S', "_SAXPY@24", "saxpy_", 1 << 30, VEC, axpy<float, 1>),
    ROW("caxpy", 'C', "_CAXPY@24", "caxpy_", 1 << 30, VEC, axpy<float, 2>),
    ROW("zaxpy", 'Z', "_ZAXPY@24", "zaxpy_", 1 << 30, VEC, axpy<double, 2>),
    ROW("ddot", 'D', "_DDOT@20", "ddot_", 1 << 30, VEC, dot<double, 1>),
    ROW("sdot", 'S', "_SDOT@20", "sdot_", 1 << 30, VEC, dot<float, 1>),
    ROW("zdotc", 'Z', "_ZDOTC@24", "zdotc_", 1 << 30, VEC, dot<double, 2>),
    // Sparse rows: the peers run dense DAXPY, DDOT, DCOPY (see sparse1).
    ROW("daxpyi", 'D', "_DAXPYI@20", "daxpy_", 1 << 27, VEC, sparse1<AXPYI>),
    ROW("ddoti", 'D', "_DDOTI@16", "ddot_", 1 << 27, VEC, sparse1<DOTI>),
    ROW("dgthr", 'D', "_DGTHR@16", "dcopy_", 1 << 27, VEC, sparse1<GTHR>),
    ROW("idamax", 'D', "_IDAMAX@12", "idamax_", 1 << 30, VEC, iamax<double>),
    ROW("dscal", 'D', "_DSCAL@16", "dscal_", 1 << 30, VEC, scal<double, 1>),
    ROW("zscal", 'Z', "_ZSCAL@16", "zscal_", 1 << 30, VEC, scal<double, 2>),
    ROW("dnrm2", 'D', "_DNRM2@12", "dnrm2_", 1 << 30, VEC, reduce<double, 1>),
    ROW("dasum", 'D', "_DASUM@12", "dasum_", 1 << 30, VEC, reduce<double, 1>),
    ROW("dcopy", 'D', "_DCOPY@20", "dcopy_", 1 << 30, VEC, move<double, 1, false>),
    ROW("scopy", 'S', "_SCOPY@20", "scopy_", 1 << 30, VEC, move<float, 1, false>),
    ROW("zcopy", 'Z', "_ZCOPY@20", "zcopy_", 1 << 30, VEC, move<double, 2, false>),
    ROW("dswap", 'D', "_DSWAP@20", "dswap_", 1 << 30, VEC, move<double, 1, true>),
    ROW("zswap", 'Z', "_ZSWAP@20", "zswap_", 1 << 30, VEC, move<double, 2, true>),
    ROW("drot", 'D', "_DROT@28", "drot_", 1 << 30, VEC, rot<double, false>),
    ROW("srot", 'S', "_SROT@28", "srot_", 1 << 30, VEC, rot<float, false>),
    ROW("drotm", 'D', "_DROTM@24", "drotm_", 1 << 30, VEC, rot<double, true>),
    ROW("dgemv_n", 'D', "_DGEMV@48", "dgemv_", 4000, MV, gemv<double, 'N'>),
    ROW("dgemv_t", 'D', "_DGEMV@48", "dgemv_", 4000, MV, gemv<double, 'T'>),
    ROW("dsymv", 'D', "_DSYMV@44", "dsymv_", 4000, MV, symv<double, 1>),
    ROW("zhemv", 'Z', "_ZHEMV@44", "zhemv_", 4000, MV, symv<double, 2>),
    ROW("dsyr2", 'D', "_DSYR2@40", "dsyr2_", 4000, MV, syr2<double>),
    ROW("dtrmv", 'D', "_DTRMV@44", "dtrmv_", 4000, MV, trmv<double, false>),
    ROW("dtrsv", 'D', "_DTRSV@44", "dtrsv_", 4000, MV, trmv<double, true>),
    ROW("dger", 'D', "_DGER@36", "dger_", 4000, MV, ger<double, 1>),
    ROW("zgerc", 'Z', "_ZGERC@36", "zgerc_", 4000, MV, ger<double, 2>),
    ROW("dgbmv", 'D', "_DGBMV@56", "dgbmv_", 1 << 20, MV, band<false, 32>),
    ROW("dtbsv", 'D', "_DTBSV@48", "dtbsv_", 1 << 20, MV, band<true, 32>),
    ROW("dspmv", 'D', "_DSPMV@40", "dspmv_", 4000, MV, packed<double, false>),
    ROW("dtpmv", 'D', "_DTPMV@40", "dtpmv_", 4000, MV, packed<double, true>),
    ROW("dgemm", 'D', "_DGEMM@60", "dgemm_", 2000, MM, gemm<double, 'N', 'N'>),
    ROW("dgemm_nt", 'D', "_DGEMM@60", "dgemm_", 2000, MM, gemm<double, 'N', 'T'>),
    ROW("dgemm_tn", 'D', "_DGEMM@60", "dgemm_", 2000, MM, gemm<double, 'T', 'N'>),
    ROW("dgemm_tt", 'D', "_DGEMM@60", "dgemm_", 2000, MM, gemm<double, 'T', 'T'>),
    ROW("dgemm_k64", 'D', "_DGEMM@60", "dgemm_", 2000, MM, gemm<double, 'N', 'N', 64>),
    ROW("sgemm", 'S', "_SGEMM@60", "sgemm_", 2000, MM, gemm<float, 'N', 'N'>),
    ROW("sgemm_k64", 'S', "_SGEMM@60", "sgemm_", 2000, MM, gemm<float, 'N', 'N', 64>),
    ROW("cgemm", 'C', "_CGEMM@60", "cgemm_", 2000, MM, gemm<float, 'N', 'N', 0, 2>),
    ROW("cgemm_ct", 'C', "_CGEMM@60", "cgemm_", 2000, MM, gemm<float, 'C', 'T', 0, 2>),
    ROW("cgemm_k64", 'C', "_CGEMM@60", "cgemm_", 2000, MM, gemm<float, 'N', 'N', 64, 2>),
    ROW("zgemm", 'Z', "_ZGEMM@60", "zgemm_", 2000, MM, gemm<double, 'N', 'N', 0, 2>),
    ROW("zgemm_ct", 'Z', "_ZGEMM@60", "zgemm_", 2000, MM, gemm<double, 'C', 'T', 0, 2>),
    ROW("zgemm_k64", 'Z', "_ZGEMM@60", "zgemm_", 2000, MM, gemm<double, 'N', 'N', 64, 2>),
    ROW("dtrsm_ll", 'D', "_DTRSM@60", "dtrsm_", 2000, MM, trsm<double, 'L', 'L', 1>),
    ROW("dtrsm_ru", 'D', "_DTRSM@60", "dtrsm_", 2000, MM, trsm<double, 'R', 'U', 1>),
    ROW("strsm_ll", 'S', "_STRSM@60", "strsm_", 2000, MM, trsm<float, 'L', 'L', 1>),
    ROW("strsm_ru", 'S', "_STRSM@60", "strsm_", 2000, MM, trsm<float, 'R', 'U', 1>),
    ROW("ztrsm_ll", 'Z', "_ZTRSM@60", "ztrsm_", 2000, MM, trsm<double, 'L', 'L', 2>),
    ROW("ztrsm_ru", 'Z', "_ZTRSM@60", "ztrsm_", 2000, MM, trsm<double, 'R', 'U', 2>),
    ROW("dsyrk", 'D', "_DSYRK@48", "dsyrk_", 2000, MM, syrk<double, 'N', false>),
    ROW("ssyrk", 'S', "_SSYRK@48", "ssyrk_", 2000, MM, syrk<float, 'N', false>),
    ROW("zherk", 'Z', "_ZHERK@48", "zherk_", 2000, MM, syrk<double, 'N', false, 2, true>),
    ROW("dsyr2k", 'D', "_DSYR2K@56", "dsyr2k_", 2000, MM, syrk<double, 'N', true>),
    ROW("dtrmm", 'D', "_DTRMM@60", "dtrmm_", 2000, MM, trmm<double, 'L', 'U', 'N'>),
    ROW("dtrmm_rn", 'D', "_DTRMM@60", "dtrmm_", 2000, MM, trmm<double, 'R', 'U', 'N'>),
    ROW("ztrmm", 'Z', "_ZTRMM@60", "ztrmm_", 2000, MM, trmm<double, 'L', 'U', 'N', 2>),
    ROW("strmm", 'S', "_STRMM@60", "strmm_", 2000, MM, trmm<float, 'L', 'U', 'N'>),
    ROW("ctrmm", 'C', "_CTRMM@60", "ctrmm_", 2000, MM, trmm<float, 'L', 'U', 'N', 2>),
    ROW("dsymm", 'D', "_DSYMM@56", "dsymm_", 2000, MM, symm<double, 'L', 'L'>),
    ROW("dsymm_ru", 'D', "_DSYMM@56", "dsymm_", 2000, MM, symm<double, 'R', 'U'>),
    ROW("zhemm", 'Z', "_ZHEMM@56", "zhemm_", 2000, MM, symm<double, 'L', 'L', 2>),
    ROW("zhemm_ru", 'Z', "_ZHEMM@56", "zhemm_", 2000, MM, symm<double, 'R', 'U', 2>),
};
const int nops = sizeof ops / sizeof ops[0];

// ---------------------------------------------------------------- options

const int max_list = 128;  // above the number of operations
struct Options {
    int op[max_list], nop = 0;
    int size[NSHAPE][max_list], nsize[NSHAPE] = {};  // per operation class
    int thr[max_list], nthr = 0;
    int br[max_list], nbr = 0;    // 0 = the library's own choice
    int rounds = 3;
    double min_time = 0.020;      // seconds per measurement
    double budget = 1.0;          // seconds of timed calls per library and cell
    bool child = false;
    const char* plot = nullptr;   // --plot FILE
} opt;

double now() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (double)t.tv_sec + 1e-9 * (double)t.tv_nsec;
}

const char* branch_label(int b) {
    static char s[8];
    if (b == 0) return "def";
    snprintf(s, sizeof s, "%d", b);
    return s;
}

// ---------------------------------------------------------------- one cell

double time_calls(const Op& op, int lib, void* fn, Case& c, long reps) {
    void (*call)(void*, Case&) = lib == L_ZVA ? op.call_zva : op.call_peer;
    double t0 = now();
    for (long r = 0; r < reps; ++r) call(fn, c);
    return now() - t0;
}

void print_cell_head(const Op& op, int n, int threads, const char* branch) {
    printf("%-6s %9d %3d %-4s", op.name, n, threads, branch);
}

void print_value(double v) {
    if (v > 0 && isfinite(v))
        printf(" %9.4g", v);
    else
        printf(" %9s", "-");
}

bool single(const Op& op) { return op.type == 'S' || op.type == 'C'; }

// The branches of one (operation, size, threads) differ only in zva.  When
// the peers' calls are long (ten times the least time), the first cell of
// the group leaves their results here and the base output in `store_fd`,
// and the other branches take them instead of spending minutes under an
// emulator on the same numbers.
struct PeerStore {
    int valid;
    char branch[8];
    int base;
    bool have[NLIB];
    double best[NLIB], sum[NLIB];
    size_t bytes;
};
PeerStore* store;    // shared by the children; nullptr: no reuse
int store_fd = -1;

// What a cell leaves for the summary, in memory shared with the parent.
enum { R_NONE, R_DONE, R_FAILED };
enum { C_OK, C_MISMATCH, C_UNCHECKED };
struct CellResult {
    int state, check;
    bool have[NLIB];
    double best[NLIB];            // seconds per call
};
CellResult* cell_result;          // this cell's record; nullptr: none kept

bool write_all(int fd, const void* p, size_t bytes) {
    if (ftruncate(fd, 0) != 0) return false;
    for (size_t done = 0; done < bytes;) {
        ssize_t w = pwrite(fd, (const char*)p + done, bytes - done, (off_t)done);
        if (w <= 0) return false;
        done += (size_t)w;
    }
    return true;
}

bool read_all(int fd, void* p, size_t bytes) {
    for (size_t done = 0; done < bytes;) {
        ssize_t r = pread(fd, (char*)p + done, bytes - done, (off_t)done);
        if (r <= 0) return false;
        done += (size_t)r;
    }
    return true;
}

// Runs in the cell's own process, the libraries already loaded.
void run_cell(const Op& op, int n, int threads, const char* branch) {
    void* fn[NLIB] = {};
    for (int l = 0; l < NLIB; ++l)
        if (lib_handle[l])
            fn[l] = dlsym(lib_handle[l], l == L_ZVA ? op.zva_sym : op.peer_sym);
    bool reuse = store && store->valid;
    bool have[NLIB];
    for (int l = 0; l < NLIB; ++l) have[l] = fn[l] != nullptr;
    if (reuse)
        for (int l = L_OBL; l < NLIB; ++l) have[l] = store->have[l], fn[l] = nullptr;
    // The base of the check: the reference BLAS, or OpenBLAS without it.
    int base = have[L_REF] ? L_REF : have[L_OBL] ? L_OBL : -1;
    size_t elsize = single(op) ? sizeof(float) : sizeof(double);

    Case c = {};
    c.n = n;
    void* saved = nullptr;
    size_t saved_bytes = 0;
    const char* fail = op.setup(c) ? nullptr : "out of memory";
    if (!fail && base >= 0) {
        const void* p;
        size_t len;
        op.result(c, &p, &len);
        saved_bytes = len * elsize;
        if (!(saved = bench_alloc(saved_bytes))) fail = "out of memory";
        else if (reuse && (store->bytes != saved_bytes ||
                           !read_all(store_fd, saved, saved_bytes)))
            fail = "cannot read the stored output";
    }
    if (fail) {
        if (cell_result) cell_result->state = R_FAILED;
        print_cell_head(op, n, threads, branch);
        printf(" | %s\n", fail);
        fflush(stdout);
        for (void* p : c.buf) free(p);
        free(saved);
        return;
    }

    // One checked call per library from the same inputs, the base first so
    // that only its output need be kept.  It is timed: a call that lasts
    // long enough is already a measurement.
    int order[NLIB], norder = 0;
    if (base >= 0 && fn[base]) order[norder++] = base;
    for (int l = 0; l < NLIB; ++l)
        if (fn[l] && l != base) order[norder++] = l;
    double sum[NLIB] = {}, diff[NLIB] = {}, best[NLIB], first[NLIB] = {},
           spent[NLIB] = {};
    long reps[NLIB] = {};
    for (int l = 0; l < NLIB; ++l) best[l] = INFINITY;
    for (int k = 0; k < norder; ++k) {
        int l = order[k];
        op.reset(c);
        double t = first[l] = time_calls(op, l, fn[l], c, 1);
        const void* p;
        size_t len;
        op.result(c, &p, &len);
        if (single(op)) {
            sum[l] = checksum_of((const float*)p, len);
            if (l != base && base >= 0)
                diff[l] = rel_diff((const float*)p, (const float*)saved, len);
        } else {
            sum[l] = checksum_of((const double*)p, len);
            if (l != base && base >= 0)
                diff[l] = rel_diff((const double*)p, (const double*)saved, len);
        }
        if (l == base) memcpy(saved, p, len * elsize);
        if (t >= opt.min_time) best[l] = spent[l] = t, reps[l] = 1;
    }

    // Repeat counts for the short calls.  Then the rounds go library by
    // library, so that a slow spell of the machine hits all of them; a
    // library whose calls have used the budget has measured enough.
    for (int l = 0; l < NLIB; ++l) {
        if (!fn[l] || reps[l]) continue;
        reps[l] = 1;
        for (;;) {
            double t = time_calls(op, l, fn[l], c, reps[l]);
            if (t >= opt.min_time || reps[l] >= (1L << 30)) {
                best[l] = t / (double)reps[l];
                spent[l] = t;
                break;
            }
            double grow = t > 0 ? 1.25 * opt.min_time / t : 100.0;
            if (grow < 2) grow = 2;
            if (grow > 1000) grow = 1000;
            double next = (double)reps[l] * grow;
            reps[l] = next < (double)(1L << 30) ? (long)next : 1L << 30;
        }
    }
    for (int r = 1; r < opt.rounds; ++r)
        for (int l = 0; l < NLIB; ++l) {
            if (!fn[l] || spent[l] >= opt.budget) continue;
            double t = time_calls(op, l, fn[l], c, reps[l]);
            spent[l] += t;
            if (t / (double)reps[l] < best[l]) best[l] = t / (double)reps[l];
        }
    for (void* p : c.buf) free(p);

    if (reuse) {
        for (int l = L_OBL; l < NLIB; ++l)
            best[l] = store->best[l], sum[l] = store->sum[l];
    } else if (store && base >= 0) {
        bool slow = true;
        for (int l = L_OBL; l < NLIB; ++l)
            if (fn[l] && first[l] < 10 * opt.min_time) slow = false;
        if (slow && write_all(store_fd, saved, saved_bytes)) {
            for (int l = 0; l < NLIB; ++l)
                store->have[l] = have[l], store->best[l] = best[l],
                store->sum[l] = sum[l];
            store->base = base;
            store->bytes = saved_bytes;
            snprintf(store->branch, sizeof store->branch, "%s", branch);
            store->valid = 1;
        }
    }
    free(saved);

    print_cell_head(op, n, threads, branch);
    printf(" |");
    for (int l = 0; l < NLIB; ++l)
        print_value(have[l] ? op.flops(n) / best[l] * 1e-9 : 0);
    printf(" |");
    for (int l = 0; l < NLIB; ++l)
        print_value(have[l] && op.bytes ? op.bytes(n) / best[l] * 1e-9 : 0);
    printf(" |");
    for (int l = L_OBL; l < NLIB; ++l)
        print_value(have[L_ZVA] && have[l] ? best[l] / best[L_ZVA] : 0);
    printf(" |");
    for (int l = 0; l < NLIB; ++l) {
        if (have[l])
            printf(" %+17.10e", sum[l]);
        else
            printf(" %17s", "-");
    }
    double tol = single(op) ? 1e-3 : 1e-6;
    bool bad = false;
    printf(" |");
    for (int l = 0; base >= 0 && l < NLIB; ++l) {
        if (!fn[l] || l == base || diff[l] <= tol) continue;
        printf("%s%s(%.1e)", bad ? "," : " MISMATCH:", lib_label[l], diff[l]);
        bad = true;
    }
    if (!bad) printf(base < 0 || !have[L_ZVA] ? " unchecked" : " ok");
    if (cell_result) {
        for (int l = 0; l < NLIB; ++l)
            cell_result->have[l] = have[l], cell_result->best[l] = best[l];
        cell_result->check = bad ? C_MISMATCH : base < 0 || !have[L_ZVA] ? C_UNCHECKED : C_OK;
        cell_result->state = R_DONE;
    }
    if (reuse) printf(" (peers of br %s)", store->branch);
    printf("\n");
    fflush(stdout);
}

// ---------------------------------------------------------------- children

void set_cell_environment(int threads, int branch) {
    char t[16];
    snprintf(t, sizeof t, "%d", threads);
    setenv("ZVA_NUM_THREADS", t, 1);
    setenv("OMP_NUM_THREADS", t, 1);
    setenv("OPENBLAS_NUM_THREADS", t, 1);
    if (branch)
        setenv("ZVA_DEBUG_CPU_TYPE", branch_label(branch), 1);
    else
        unsetenv("ZVA_DEBUG_CPU_TYPE");
}

// Status of a finished child, or nullptr for a clean exit.
const char* child_failure(int status, char* buf, size_t size) {
    if (WIFEXITED(status)) {
        if (WEXITSTATUS(status) == 0) return nullptr;
        snprintf(buf, size, "exit code %d", WEXITSTATUS(status));
    } else if (WIFSIGNALED(status)) {
        int s = WTERMSIG(status);
        snprintf(buf, size, "killed by signal %d (%s)%s", s, strsignal(s),
                 s == SIGILL ? ": the processor lacks the branch's instructions"
                               " (under qemu-i386, QEMU_CPU=max may help)"
                             : "");
    } else {
        snprintf(buf, size, "status %#x", status);
    }
    return buf;
}

// Loads the libraries once, in a child, to report them and their missing
// routines before the table.  Exit code 2: zva itself failed to load.
int probe() {
    load_libraries(opt.thr[0]);
    for (int l = 0; l < NLIB; ++l) {
        if (!*lib_path[l]) {
            printf("# %-9s (disabled)\n", lib_label[l]);
            continue;
        }
        printf("# %-9s %s", lib_label[l], lib_path[l]);
        if (!lib_handle[l]) {
            printf("  NOT LOADED%s: %s\n", l == L_ZVA ? "" : ", skipped",
                   lib_error[l]);
            continue;
        }
        typedef const char* (*str_fn)();
        auto cfg = (str_fn)dlsym(lib_handle[l], "openblas_get_config");
        auto core = (str_fn)dlsym(lib_handle[l], "openblas_get_corename");
        if (cfg) printf("  [%s%s%s]", cfg(), core ? ", core " : "", core ? core() : "");
        printf("\n");
        for (int i = 0; i < opt.nop; ++i) {
            const Op& op = ops[opt.op[i]];
            const char* sym = l == L_ZVA ? op.zva_sym : op.peer_sym;
            if (!dlsym(lib_handle[l], sym))
                printf("#           lacks %s: %s skipped\n", sym, op.name);
        }
    }
    fflush(stdout);
    return lib_handle[L_ZVA] ? 0 : 2;
}

void print_header() {
    printf("# zva_bench: best of %d rounds of at least %.0f ms each, fewer once"
           " a library's calls have taken %.1f s\n",
           opt.rounds, opt.min_time * 1e3, opt.budget);
    printf("# columns: op n threads branch (def = the library's choice, else"
           " ZVA_DEBUG_CPU_TYPE)\n"
           "#   | GFLOP/s of zva OpenBLAS ref | GB/s of zva OpenBLAS ref"
           " (- where compute-bound)\n"
           "#   | speed ratios zva/OpenBLAS zva/ref (>1: zva faster)\n"
           "#   | checksums of the output, zva OpenBLAS ref (same inputs for"
           " all)\n"
           "#   | check: ok, or MISMATCH:lib(d) where the largest difference d"
           " from ref's output\n"
           "#     (OpenBLAS's without ref),"
           " relative to its largest element, exceeds 1e-6 (D,Z) or 1e-3"
           " (S,C);\n"
           "#     \"(peers of br B)\": long peer calls, timed once in branch B's"
           " cell\n");
    printf("%-6s %9s %3s %-4s | %9s %9s %9s | %9s %9s %9s | %9s %9s | %17s %17s %17s | %s\n",
           "#op", "n", "thr", "br", "zva", "OpenBLAS", "ref", "zva", "OpenBLAS",
           "ref", "zva/OBL", "zva/ref", "sum zva", "sum OpenBLAS", "sum ref",
           "check");
}

// One cell in a child; returns why it failed, or nullptr.
const char* run_child(const Op& op, int n, int thr, int br, char* why,
                      size_t size) {
    fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        set_cell_environment(thr, br);
        load_libraries(thr);
        run_cell(op, n, thr, branch_label(br));
        fflush(stdout);
        _exit(0);
    }
    if (pid < 0) return "fork failed";
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return "lost the child";
    return child_failure(status, why, size);
}

// ---------------------------------------------------------------- summary

// The speed of a call in the operation's own unit: GFLOP/s, or GB/s for
// the operations that only move data.
bool counts_bytes(const Op& op, int n) { return !(op.flops(n) > 0) && op.bytes; }
double speed(const Op& op, int n, double seconds) {
    if (!(seconds > 0) || !isfinite(seconds)) return 0;
    return (counts_bytes(op, n) ? op.bytes(n) : op.flops(n)) / seconds * 1e-9;
}

// The cells of one (operation, size, threads), one per branch, and the
// branch where zva was fastest (-1: none measured).
struct Group {
    const Op* op;
    int n, thr, best;
    const CellResult* cell;       // opt.nbr records
};

// Calls f(group) in the order of the table, for the sizes that ran.
template <class F> void for_each_group(const CellResult* results, F f) {
    int k = 0;
    for (int i = 0; i < opt.nop; ++i) {
        const Op& op = ops[opt.op[i]];
        for (int s = 0; s < opt.nsize[op.shape]; ++s)
            for (int t = 0; t < opt.nthr; ++t, k += opt.nbr) {
                Group g = {&op, opt.size[op.shape][s], opt.thr[t], -1, &results[k]};
                if (g.n > op.max_n) continue;
                for (int b = 0; b < opt.nbr; ++b) {
                    const CellResult& r = g.cell[b];
                    if (r.state == R_DONE && r.have[L_ZVA] && isfinite(r.best[L_ZVA]) &&
                        (g.best < 0 || r.best[L_ZVA] < g.cell[g.best].best[L_ZVA]))
                        g.best = b;
                }
                f(g);
            }
    }
}

// zva's time over a peer's in one cell: > 1, zva faster.  0: not measured.
double ratio(const CellResult& r, int peer) {
    if (r.state != R_DONE || !r.have[L_ZVA] || !r.have[peer]) return 0;
    double v = r.best[peer] / r.best[L_ZVA];
    return v > 0 && isfinite(v) ? v : 0;
}

void print_summary(const CellResult* results) {
    bool branches = opt.nbr > 1;
    int def = -1;                 // the default branch's place, if it ran
    for (int b = 0; b < opt.nbr; ++b)
        if (opt.br[b] == 0) def = b;
    printf("\n# summary: speed of zva%s against OpenBLAS and ref,\n"
           "#   in GFLOP/s (GF/s), or GB/s for the operations that only move data;\n"
           "#   ratios within one cell, > 1: zva faster%s\n",
           branches ? " in its fastest branch (br)" : "",
           branches && def >= 0 ? "; def/OBL: zva's own choice of branch" : "");
    printf("%-10s %9s %3s %5s %9s", "#op", "n", "thr", "unit", "zva");
    if (branches) printf(" %-4s", "br");
    printf(" %9s %9s %8s %8s", "OpenBLAS", "ref", "zva/OBL", "zva/ref");
    if (branches && def >= 0) printf(" %8s", "def/OBL");
    printf("  %s\n", "check");
    double logsum[NLIB] = {};
    int count[NLIB] = {};
    for_each_group(results, [&](const Group& g) {
        printf("%-10s %9d %3d %5s", g.op->name, g.n, g.thr,
               counts_bytes(*g.op, g.n) ? "GB/s" : "GF/s");
        const CellResult* r = g.best >= 0 ? &g.cell[g.best] : nullptr;
        auto column = [](double v, int width, const char* format) {
            if (v > 0) printf(format, width, v);
            else printf(" %*s", width, "-");
        };
        column(r ? speed(*g.op, g.n, r->best[L_ZVA]) : 0, 9, " %*.4g");
        if (branches) printf(" %-4s", r ? branch_label(opt.br[g.best]) : "-");
        for (int l = L_OBL; l < NLIB; ++l)
            column(r && r->have[l] ? speed(*g.op, g.n, r->best[l]) : 0, 9, " %*.4g");
        for (int l = L_OBL; l < NLIB; ++l) {
            double v = r ? ratio(*r, l) : 0;
            column(v, 8, " %*.3f");
            if (v > 0) logsum[l] += log(v), ++count[l];
        }
        if (branches && def >= 0) column(ratio(g.cell[def], L_OBL), 8, " %*.3f");
        // The worst of the branches' checks.
        bool failed = false, mismatch = false, checked = false;
        for (int b = 0; b < opt.nbr; ++b) {
            const CellResult& c = g.cell[b];
            failed |= c.state != R_DONE;
            mismatch |= c.state == R_DONE && c.check == C_MISMATCH;
            checked |= c.state == R_DONE && c.check == C_OK;
        }
        printf("  %s\n", failed     ? "FAILED"
                         : mismatch ? "MISMATCH"
                         : checked  ? "ok"
                                    : "unchecked");
    });
    printf("# geometric mean");
    for (int l = L_OBL; l < NLIB; ++l)
        if (count[l])
            printf("%s zva/%s %.3f over %d rows", l == L_OBL ? "" : ",",
                   l == L_OBL ? "OBL" : "ref", exp(logsum[l] / count[l]), count[l]);
    printf("\n");
    fflush(stdout);
}

// ---------------------------------------------------------------- plot

bool on_path(const char* name) {
    const char* path = getenv("PATH");
    char file[4096];
    while (path && *path) {
        size_t len = strcspn(path, ":");
        if (len > 0 && len + strlen(name) + 2 < sizeof file) {
            snprintf(file, sizeof file, "%.*s/%s", (int)len, path, name);
            if (access(file, X_OK) == 0) return true;
        }
        path += len;
        if (*path == ':') ++path;
    }
    return false;
}

// One panel per operation: speed against size on logarithmic axes, zva (its
// fastest branch) against the peers, drawn by gnuplot from inline data.
// Without gnuplot the run still succeeds; the plot is only skipped.
void write_plot(const CellResult* results, const char* file) {
    if (!on_path("gnuplot")) {
        fprintf(stderr, "zva_bench: gnuplot not found, no plot written to %s"
                        " (Debian: apt-get install gnuplot-nox)\n", file);
        return;
    }
    const char* dot = strrchr(file, '.');
    bool png = dot && !strcasecmp(dot, ".png");
    FILE* gp = popen("gnuplot", "w");
    if (!gp) {
        fprintf(stderr, "zva_bench: cannot start gnuplot: %s\n", strerror(errno));
        return;
    }
    const int columns = opt.nop < 6 ? opt.nop : 6;
    int rows = (opt.nop + columns - 1) / columns;
    const int panel_w = 330, panel_h = 250;
    if (png)
        fprintf(gp, "set terminal pngcairo size %d,%d font 'sans,8'\n",
                columns * panel_w, rows * panel_h + 40);
    else
        fprintf(gp, "set terminal svg size %d,%d font 'sans,9' background 'white'\n",
                columns * panel_w, rows * panel_h + 40);
    fprintf(gp, "set output '");
    for (const char* p = file; *p; ++p) fprintf(gp, *p == '\'' ? "''" : "%c", *p);
    fprintf(gp, "'\nset datafile missing '?'\n"
                "set logscale xy\nset format x '10^{%%L}'\nset grid\n"
                "set key below horizontal font ',7'\nset offsets graph 0.1, graph 0.1, 0, 0\n"
                "set multiplot layout %d,%d title 'zva%s, OpenBLAS and ref: speed"
                " against size (%d thread%s)' noenhanced\n",
                rows, columns, opt.nbr > 1 ? " (fastest branch)" : "", opt.thr[0],
                opt.thr[0] > 1 ? "s" : "");
    // Operation by operation: the groups of one operation are consecutive.
    const Op* current = nullptr;
    auto close_panel = [&]() {
        if (!current) return;
        fprintf(gp, "EOD\nset title '%s' noenhanced\nset ylabel '%s'\n"
                    "plot $d u 1:2 w lp pt 7 lw 2 t 'zva', '' u 1:3 w lp pt 5 t 'OpenBLAS',"
                    " '' u 1:4 w lp pt 9 t 'ref'\n",
                current->name, counts_bytes(*current, 1000) ? "GB/s" : "GFLOP/s");
    };
    for_each_group(results, [&](const Group& g) {
        if (g.thr != opt.thr[0]) return;  // one thread count per plot
        if (g.op != current) {
            close_panel();
            current = g.op;
            fprintf(gp, "$d << EOD\n");
        }
        fprintf(gp, "%d", g.n);
        const CellResult* r = g.best >= 0 ? &g.cell[g.best] : nullptr;
        for (int l = 0; l < NLIB; ++l) {
            double v = r && r->have[l] ? speed(*g.op, g.n, r->best[l]) : 0;
            if (v > 0) fprintf(gp, " %.6g", v);
            else fprintf(gp, " ?");
        }
        fprintf(gp, "\n");
    });
    close_panel();
    fprintf(gp, "unset multiplot\n");
    int status = pclose(gp);
    if (status != 0)
        fprintf(stderr, "zva_bench: gnuplot failed (status %#x); plot %s may be"
                        " incomplete\n", status, file);
    else
        fprintf(stderr, "zva_bench: plot written to %s\n", file);
}

int run_all() {
    fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        set_cell_environment(opt.thr[0], 0);
        fflush(stdout);
        _exit(probe());
    }
    int status = 0;
    char why[160];
    if (pid < 0 || waitpid(pid, &status, 0) < 0 ||
        child_failure(status, why, sizeof why)) {
        fprintf(stderr, "zva_bench: cannot load zva from %s\n", lib_path[L_ZVA]);
        return 1;
    }
    print_header();
    fflush(stdout);

    // Shared with the children, for the peers' results of a group.
    void* m = mmap(nullptr, sizeof(PeerStore), PROT_READ | PROT_WRITE,
                   MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    store_fd = memfd_create("zva_bench", 0);
    if (m != MAP_FAILED && store_fd >= 0) store = (PeerStore*)m;

    int cells = 0, k = 0, failed = 0;
    for (int i = 0; i < opt.nop; ++i)
        cells += opt.nsize[ops[opt.op[i]].shape] * opt.nthr * opt.nbr;
    // One record per cell, in the order of the loops below.
    CellResult* results = (CellResult*)mmap(nullptr, cells * sizeof(CellResult),
                                            PROT_READ | PROT_WRITE,
                                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (results == MAP_FAILED) results = nullptr;
    double start = now();
    for (int i = 0; i < opt.nop; ++i)
        for (int s = 0; s < opt.nsize[ops[opt.op[i]].shape]; ++s)
            for (int t = 0; t < opt.nthr; ++t) {
                if (store) {
                    store->valid = 0;
                    if (ftruncate(store_fd, 0) != 0) store = nullptr;
                }
                for (int b = 0; b < opt.nbr; ++b) {
                    const Op& op = ops[opt.op[i]];
                    int n = opt.size[op.shape][s], thr = opt.thr[t], br = opt.br[b];
                    cell_result = results ? &results[k] : nullptr;
                    if (n > op.max_n) {
                        ++k;
                        continue;
                    }
                    double t0 = now();
                    const char* bad = run_child(op, n, thr, br, why, sizeof why);
                    if (bad) {
                        if (cell_result) cell_result->state = R_FAILED;
                        ++failed;
                        print_cell_head(op, n, thr, branch_label(br));
                        printf(" | FAILED: %s\n", bad);
                        fflush(stdout);
                    }
                    fprintf(stderr, "zva_bench: [%d/%d] %s n=%d threads=%d branch=%s: %.1f s%s\n",
                            ++k, cells, op.name, n, thr, branch_label(br),
                            now() - t0, bad ? " FAILED" : "");
                }
            }
    cell_result = nullptr;
    fprintf(stderr, "zva_bench: %d cells in %.1f s%s\n", cells, now() - start,
            failed ? ", some failed" : "");
    if (results) {
        print_summary(results);
        if (opt.plot) write_plot(results, opt.plot);
    }
    return failed ? 1 : 0;
}

// In this process, with the environment as it stands (for a debugger).
int run_here() {
    const char* t = getenv("ZVA_NUM_THREADS");
    int thr = t && atoi(t) > 0 ? atoi(t) : 1;
    const char* b = getenv("ZVA_DEBUG_CPU_TYPE");
    load_libraries(thr);
    for (int l = 0; l < NLIB; ++l)
        if (lib_error[l])
            fprintf(stderr, "zva_bench: %s not loaded: %s\n", lib_label[l], lib_error[l]);
    if (!lib_handle[L_ZVA]) return 1;
    print_header();
    for (int i = 0; i < opt.nop; ++i)
        for (int s = 0; s < opt.nsize[ops[opt.op[i]].shape]; ++s)
            run_cell(ops[opt.op[i]], opt.size[ops[opt.op[i]].shape][s], thr,
                     b && *b ? b : "def");
    return 0;
}

// ---------------------------------------------------------------- arguments

// Sizes by operation class (VEC, MV, MM), plain and with --quick.
const char* const default_sizes[NSHAPE] = {"1000,100000,10000000", "100,1000,4000",
                                           "100,300,1000"};
const char* const quick_sizes[NSHAPE] = {"1000,100000", "100,1000", "100,300"};
const char* const all_branches = "default,2,3,4,5,6,7";

void usage(FILE* f) {
    fprintf(f,
        "usage: zva_bench [options]\n"
        "  --ops LIST        operations (default all:");
    for (int i = 0; i < nops; ++i) fprintf(f, "%s%s", i ? "," : "", ops[i].name);
    fprintf(f,
        ")\n"
        "  --sizes LIST      problem sizes for every operation, k/M suffixes or\n"
        "                    1e7 allowed (default by class: vectors %s;\n"
        "                    matrix-vector n x n, n = %s;\n"
        "                    matrix products n x n, n = %s)\n"
        "  --threads LIST    thread counts for all three libraries (default 1)\n"
        "  --branches LIST   default and/or 2..7, set as ZVA_DEBUG_CPU_TYPE\n"
        "                    (default: default, the library's own choice)\n"
        "  --all-branches    the sweep over every branch: default,2,3,4,5,6,7\n"
        "                    (about seven times the default run)\n"
        "  --rounds N        timed rounds per library (default 3)\n"
        "  --min-time MS     least time of one measurement (default 20)\n"
        "  --quick           sizes %s / %s / %s; 2 rounds of 5 ms\n"
        "  --plot FILE       also draw speed against size, one panel per\n"
        "                    operation, into FILE.svg or FILE.png (needs gnuplot;\n"
        "                    without it the plot is skipped with a note)\n"
        "  --lib PATH        zva library (default %s)\n"
        "  --openblas PATH   OpenBLAS, or \"none\" (default %s)\n"
        "  --ref PATH        reference BLAS, or \"none\" (default %s)\n"
        "  --child           run here, without children, with the environment\n"
        "                    as it is (ZVA_NUM_THREADS, ZVA_DEBUG_CPU_TYPE)\n"
        "  --help            this text\n"
        "Each cell runs in its own child process.  Rows go to standard output,\n"
        "progress to standard error.  Where one call of each peer takes ten\n"
        "times the least time, the other branches of the same operation, size\n"
        "and threads reuse the peers' results of the first branch.  A summary\n"
        "table closes every run: per operation and size, zva's speed and its\n"
        "ratio to OpenBLAS and ref, in zva's fastest branch where several ran.\n",
        default_sizes[VEC], default_sizes[MV], default_sizes[MM], quick_sizes[VEC],
        quick_sizes[MV], quick_sizes[MM], ZVA_BENCH_LIB, lib_path[L_OBL], lib_path[L_REF]);
}

[[noreturn]] void bad_arg(const char* what, const char* val) {
    fprintf(stderr, "zva_bench: bad %s: %s (see --help)\n", what, val);
    exit(2);
}

// Splits a comma list; `parse` returns false on a bad item.
template <class F>
int parse_list(const char* what, const char* s, int* out, F parse) {
    char item[64];
    int count = 0;
    while (*s) {
        size_t len = strcspn(s, ",");
        if (len == 0 || len >= sizeof item || count == max_list)
            bad_arg(what, s);
        memcpy(item, s, len);
        item[len] = 0;
        if (!parse(item, &out[count])) bad_arg(what, item);
        ++count;
        s += len;
        if (*s == ',') ++s;
    }
    if (count == 0) bad_arg(what, "(empty)");
    return count;
}

bool parse_count(const char* s, double lo, double hi, int* out) {
    char* end;
    double v = strtod(s, &end);
    if (*end == 'k' || *end == 'K') v *= 1e3, ++end;
    else if (*end == 'M' || *end == 'm') v *= 1e6, ++end;
    if (end == s || *end || !(v >= lo && v <= hi) || v != floor(v)) return false;
    *out = (int)v;
    return true;
}

void parse_args(int argc, char** argv) {
    const char* sizes = nullptr;
    const char* branches = "default";
    const char* ops_arg = nullptr;
    const char* threads = "1";
    bool quick = false, rounds_set = false, time_set = false;
    for (int i = 1; i < argc; ++i) {
        const char* a = argv[i];
        auto value = [&]() -> const char* {
            if (i + 1 >= argc) bad_arg("option without value", a);
            return argv[++i];
        };
        int v;
        if (!strcmp(a, "--help") || !strcmp(a, "-h")) usage(stdout), exit(0);
        else if (!strcmp(a, "--ops")) ops_arg = value();
        else if (!strcmp(a, "--sizes")) sizes = value();
        else if (!strcmp(a, "--threads")) threads = value();
        else if (!strcmp(a, "--branches")) branches = value();
        else if (!strcmp(a, "--all-branches")) branches = all_branches;
        else if (!strcmp(a, "--plot")) opt.plot = value();
        else if (!strcmp(a, "--quick")) quick = true;
        else if (!strcmp(a, "--child")) opt.child = true;
        else if (!strcmp(a, "--lib")) lib_path[L_ZVA] = value();
        else if (!strcmp(a, "--openblas") || !strcmp(a, "--ref")) {
            const char* p = value();
            lib_path[a[2] == 'o' ? L_OBL : L_REF] = strcmp(p, "none") ? p : "";
        } else if (!strcmp(a, "--rounds")) {
            if (!parse_count(value(), 1, 1000, &v)) bad_arg("--rounds", argv[i]);
            opt.rounds = v, rounds_set = true;
        } else if (!strcmp(a, "--min-time")) {
            if (!parse_count(value(), 0, 60000, &v)) bad_arg("--min-time", argv[i]);
            opt.min_time = v * 1e-3, time_set = true;
        } else {
            bad_arg("option", a);
        }
    }
    if (opt.plot) {
        const char* dot = strrchr(opt.plot, '.');
        if (!dot || (strcasecmp(dot, ".svg") && strcasecmp(dot, ".png")))
            bad_arg("--plot file (.svg or .png)", opt.plot);
    }
    if (quick) {
        if (!rounds_set) opt.rounds = 2;
        if (!time_set) opt.min_time = 0.005;
    }
    opt.budget = 50 * opt.min_time;
    if (ops_arg && strcmp(ops_arg, "all")) {
        opt.nop = parse_list("--ops", ops_arg, opt.op, [](const char* s, int* o) {
            for (int i = 0; i < nops; ++i)
                if (!strcasecmp(s, ops[i].name)) return *o = i, true;
            return false;
        });
    } else {
        for (int i = 0; i < nops; ++i) opt.op[opt.nop++] = i;
    }
    for (int c = 0; c < NSHAPE; ++c)
        opt.nsize[c] = parse_list("--sizes",
                                  sizes ? sizes : quick ? quick_sizes[c] : default_sizes[c],
                                  opt.size[c], [](const char* s, int* o) {
                                      return parse_count(s, 0, 2147483647.0, o);
                                  });
    opt.nthr = parse_list("--threads", threads, opt.thr, [](const char* s, int* o) {
        return parse_count(s, 1, 1024, o);
    });
    opt.nbr = parse_list("--branches", branches, opt.br, [](const char* s, int* o) {
        if (!strcmp(s, "default") || !strcmp(s, "def")) return *o = 0, true;
        return parse_count(s, 2, 7, o);
    });
}

}  // namespace

int main(int argc, char** argv) {
    parse_args(argc, argv);
    return opt.child ? run_here() : run_all();
}
