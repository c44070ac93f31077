#include "level1/drivers.h"

namespace zva {

// Above its size limits the vector is cut among a team; every thread calls
// the branch kernel on its own slice.
template <class T>
void axpy_driver(I n, const T* alpha, const T* x, I incx, T* y, I incy) {
    constexpr auto point = by_type<T, dp::SAXPY, dp::DAXPY, dp::CAXPY, dp::ZAXPY>;
    const int t = l1_threads_of<T>(l1_rows::saxpy, l1_rows::daxpy, l1_rows::caxpy, 2000, n,
                                   incx, incy);
    if (t <= 1) return point(n, alpha, x, incx, y, incy);
    l1_fork(t, *n, *incx, *incy, [&](int, int, int count, long long ox, long long oy) {
        point(&count, alpha, x + ox, incx, y + oy, incy);
    });
}

ZVA_INSTANTIATE_TYPES(axpy_driver)

}  // namespace zva
