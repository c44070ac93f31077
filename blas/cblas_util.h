// Shared pieces of the C interface: option letters, layout, reports in the
// reference CBLAS manner, and the conjugations that row-major complex calls
// need.
#pragma once
#include <stdio.h>
#include <stdlib.h>

#include "blas/cblas.h"
#include "blas/route.h"

#define ZVA_CBLAS_API extern "C" __attribute__((visibility("default")))

extern "C" int RowMajorStrg;

namespace zva::blas {

inline char trans_letter(int t) { return t == CblasNoTrans ? 'N' : t == CblasTrans ? 'T' : t == CblasConjTrans ? 'C' : 0; }
inline char uplo_letter(int u) { return u == CblasUpper ? 'U' : u == CblasLower ? 'L' : 0; }
inline char diag_letter(int d) { return d == CblasNonUnit ? 'N' : d == CblasUnit ? 'U' : 0; }
inline char side_letter(int s) { return s == CblasLeft ? 'L' : s == CblasRight ? 'R' : 0; }
// A row-major matrix is the column-major transpose: triangles and sides swap.
inline char other_uplo(char u) { return u == 'U' ? 'L' : 'U'; }
inline char other_side(char s) { return s == 'L' ? 'R' : 'L'; }

// An option the C routine rejects itself, numbered in its own list.
inline void bad_option(int p, const char* rout, bool row, const char* what, int value) {
    RowMajorStrg = row;
    cblas_xerbla(p, rout, "Illegal %s setting, %d\n", what, value);
    RowMajorStrg = 0;
}
// 0 column-major, 1 row-major, -1 for a layout that was reported.
inline int layout_of(int layout, const char* rout) {
    if (layout == CblasColMajor) return 0;
    if (layout == CblasRowMajor) return 1;
    bad_option(1, rout, false, "layout", layout);
    return -1;
}
inline void done(routine_id id, int fault, bool row) {
    if (fault) report_cblas(id, fault, row);
}

// Scalars: real ones come by value, complex ones by address.
template <class T> const T* sp(const T& v) { return &v; }
template <class T> const T* sp(const void* v) { return (const T*)v; }

template <class T> inline constexpr bool is_cplx = __is_same(T, c32) || __is_same(T, c64);
template <class T> T conj(const T& v) { return {v.re, -v.im}; }

// Negates the imaginary parts of a vector in place; twice leaves every bit
// as it was.  An increment of 0 is left to zva's check.
template <class T> void conj_in_place(T* x, int n, int inc) {
    if (inc == 0) return;
    const int s = inc < 0 ? -inc : inc;
    for (int i = 0; i < n; ++i) x[(long long)i * s].im = -x[(long long)i * s].im;
}

// A conjugated copy of an input vector, with increment 1, for the row-major
// cases that would otherwise need a conjugated matrix.  The vector itself
// where no copy can matter (n <= 0; increment 0, which zva rejects).
template <class T> struct conj_vec {
    const T* p;
    int inc;
    T* owned;
};
template <class T> conj_vec<T> conj_copy(int n, const T* x, int inc) {
    if (n <= 0 || inc == 0) return {x, inc, nullptr};
    T* c = (T*)malloc(sizeof(T) * n);
    if (!c) return {nullptr, 0, nullptr};
    const long long start = vec_start(n, inc);
    for (int i = 0; i < n; ++i) c[i] = conj(x[start + (long long)i * inc]);
    return {c, 1, c};
}
inline void no_memory(const char* rout) {
    fprintf(stderr, "%s: not enough memory for a conjugated copy of a vector\n", rout);
}

}  // namespace zva::blas
