// Threaded level-1 drivers: each decides between one call of its dispatch
// point and a team of threads that call it on slices.
#pragma once
#include <omp.h>

#include "frame/dispatch.h"
#include "level1/threading.h"

namespace zva {

// The team of a threaded level-1 driver: t threads requested; each thread
// of the team that came calls slice(k, T, count, x offset, y offset) with
// its number k, the team size T and its part of the vectors.  A smaller
// team than asked for still covers the vectors, since the split counts the
// threads that came.
template <class Slice> void l1_fork(int t, int n, int incx, int incy, Slice slice) {
#pragma omp parallel num_threads(t)
    {
        const int team = omp_get_num_threads(), k = omp_get_thread_num();
        if (k < team) {
            l1_slice s = l1_split(n, team, k);
            slice(k, team, s.count, l1_offset(n, incx, s), l1_offset(n, incy, s));
        }
    }
}

// Threads for one call: the row of the type (S, D, C) or, for Z, the short
// rule with its own lower size limit.
template <class T>
int l1_threads_of(const l1_limits& s, const l1_limits& d, const l1_limits& c, int z_s0, I n,
                  I incx, I incy) {
    if constexpr (sizeof(T) == 16) return l1_threads_z(z_s0, *n, *incx, *incy);
    else return l1_threads(sizeof(T) == 4 ? s : __is_same(T, double) ? d : c, *n, *incx, *incy);
}

template <class T> void axpy_driver(I n, const T* alpha, const T* x, I incx, T* y, I incy);
template <class T> T dot_driver(I n, const T* x, I incx, const T* y, I incy);
c32* cdotc_driver(c32* result, I n, const c32* x, I incx, const c32* y, I incy);
template <class T> void copy_driver(I n, const T* x, I incx, T* y, I incy);
template <class T> void swap_driver(I n, T* x, I incx, T* y, I incy);
template <class T> void rot_driver(I n, T* x, I incx, T* y, I incy, const T* c, const T* s);

}  // namespace zva
