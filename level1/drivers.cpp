#include "level1/drivers.h"

namespace zva {

// One thread for now: the whole vector goes to the branch kernel.
template <class T>
void axpy_driver(I n, const T* alpha, const T* x, I incx, T* y, I incy) {
    axpy_point<T>(n, alpha, x, incx, y, incy);
}

template void axpy_driver<float>(I, const float*, const float*, I, float*, I);
template void axpy_driver<double>(I, const double*, const double*, I, double*, I);
template void axpy_driver<c32>(I, const c32*, const c32*, I, c32*, I);
template void axpy_driver<c64>(I, const c64*, const c64*, I, c64*, I);

}  // namespace zva
