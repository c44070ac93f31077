// Threaded level-1 drivers: each decides between one call of its dispatch
// point and a team of threads that call it on slices.
#pragma once
#include "frame/dispatch.h"

namespace zva {

template <class T> void axpy_driver(I n, const T* alpha, const T* x, I incx,
                                    T* y, I incy);

}  // namespace zva
