#include "level1/drivers.h"

#include <omp.h>

#include "level1/threading.h"

namespace zva {

namespace {
template <class T> constexpr const l1_limits* axpy_row = nullptr;
template <> constexpr const l1_limits* axpy_row<float> = &l1_rows::saxpy;
template <> constexpr const l1_limits* axpy_row<double> = &l1_rows::daxpy;
template <> constexpr const l1_limits* axpy_row<c32> = &l1_rows::caxpy;
}  // namespace

// Above its size limits the vector is cut among a team; every thread calls
// the branch kernel on its own slice.  A smaller team than asked for still
// covers the vector, since the split counts the threads that came.
template <class T>
void axpy_driver(I n, const T* alpha, const T* x, I incx, T* y, I incy) {
    constexpr auto axpy_point = by_type<T, dp::SAXPY, dp::DAXPY, dp::CAXPY, dp::ZAXPY>;
    int t;
    if constexpr (sizeof(T) == 16) t = l1_threads_z(2000, *n, *incx, *incy);
    else t = l1_threads(*axpy_row<T>, *n, *incx, *incy);
    if (t <= 1) {
        axpy_point(n, alpha, x, incx, y, incy);
        return;
    }
#pragma omp parallel num_threads(t)
    {
        int team = omp_get_num_threads(), k = omp_get_thread_num();
        l1_slice s = l1_split(*n, team, k);
        if (k < team) {
            axpy_point(&s.count, alpha, x + l1_offset(*n, *incx, s), incx,
                          y + l1_offset(*n, *incy, s), incy);
        }
    }
}

ZVA_INSTANTIATE_TYPES(axpy_driver)

}  // namespace zva
