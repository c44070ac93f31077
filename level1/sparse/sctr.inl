// SCTR, y[indx[i]-1] := x[i], for S, D, C and Z on every branch.
//
// Two elements a pass, then one, in ascending i, each stored before the
// next: a repeated index keeps the last value. Pure moves, the same code on
// every branch; only the width of the element moves differs.
#include "level1/kernels.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {

template <class T> void sctr(const int* pnz, const T* x, const int* indx, T* y) {
    const int nz = *pnz;
    int i = 0;
    for (; i + 2 <= nz; i += 2) {
        y[indx[i] - 1] = x[i];
        y[indx[i + 1] - 1] = x[i + 1];
    }
    if (i < nz) y[indx[i] - 1] = x[i];
}

ZVA_INSTANTIATE_TYPES(sctr)

}  // namespace zva::ZVA_NS
