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

// COPY and SWAP: the same decision with their own rows; the slices of y
// (and, for SWAP, of x) are disjoint because a zero increment never forks.
template <class T> void copy_driver(I n, const T* x, I incx, T* y, I incy) {
    constexpr auto point = by_type<T, dp::SCOPY, dp::DCOPY, dp::CCOPY, dp::ZCOPY>;
    const int t = l1_threads_of<T>(l1_rows::scopy, l1_rows::dcopy, l1_rows::ccopy, 1600, n,
                                   incx, incy);
    if (t <= 1) return point(n, x, incx, y, incy);
    l1_fork(t, *n, *incx, *incy, [&](int, int, int count, long long ox, long long oy) {
        point(&count, x + ox, incx, y + oy, incy);
    });
}

template <class T> void swap_driver(I n, T* x, I incx, T* y, I incy) {
    constexpr auto point = by_type<T, dp::SSWAP, dp::DSWAP, dp::CSWAP, dp::ZSWAP>;
    const int t = l1_threads_of<T>(l1_rows::sswap, l1_rows::dswap, l1_rows::cswap, 1600, n,
                                   incx, incy);
    if (t <= 1) return point(n, x, incx, y, incy);
    l1_fork(t, *n, *incx, *incy, [&](int, int, int count, long long ox, long long oy) {
        point(&count, x + ox, incx, y + oy, incy);
    });
}

ZVA_INSTANTIATE_TYPES(copy_driver)
ZVA_INSTANTIATE_TYPES(swap_driver)
// SROT and DROT: every thread rotates its slice of both vectors with the
// caller's c and s.
template <class T>
void rot_driver(I n, T* x, I incx, T* y, I incy, const T* c, const T* s) {
    constexpr auto point = by_type<T, dp::SROT, dp::DROT, nullptr, nullptr>;
    const int t = l1_threads_of<T>(l1_rows::srot, l1_rows::drot, l1_rows::drot, 0, n, incx, incy);
    if (t <= 1) return point(n, x, incx, y, incy, c, s);
    l1_fork(t, *n, *incx, *incy, [&](int, int, int count, long long ox, long long oy) {
        point(&count, x + ox, incx, y + oy, incy, c, s);
    });
}

template decltype(rot_driver<float>) rot_driver<float>;
template decltype(rot_driver<double>) rot_driver<double>;

}  // namespace zva
