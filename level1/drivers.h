// Threaded level-1 drivers: each decides between one call of its dispatch
// point and a team of threads that call it on slices.
#pragma once
#include "frame/dispatch.h"

namespace zva {

template <class T> inline constexpr auto axpy_point = nullptr;
template <> inline constexpr auto axpy_point<float> = dp::SAXPY;
template <> inline constexpr auto axpy_point<double> = dp::DAXPY;
template <> inline constexpr auto axpy_point<c32> = dp::CAXPY;
template <> inline constexpr auto axpy_point<c64> = dp::ZAXPY;

template <class T> void axpy_driver(I n, const T* alpha, const T* x, I incx,
                                    T* y, I incy);

}  // namespace zva
