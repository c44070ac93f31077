// AXPYI, y[indx[i]-1] += alpha*x[i], for S, D, C and Z on every branch.
//
// Scalar code on all branches: the reads of y are scattered, so a vector
// would be assembled element by element and would lose the guarantee below.
// In ascending i each element of y is read, updated and stored before the
// next, so a repeated index accumulates every product in order. nz <= 0 or
// alpha zero (complex: both parts) returns without reading x or y; a NaN
// alpha goes on.
//
// What differs between the branches:
//   real      branch 7 one fused step, the others product then sum; two
//             elements a pass, then one
//   complex   one element a pass, in the product order of the branch's
//             CAXPY (complex.inl)
#include <immintrin.h>

#include "frame/scalar.h"
#include "level1/kernels.h"
#include "simd/branch.h"
#include "level1/sparse/complex.inl"

namespace zva::ZVA_NS {
namespace {

template <class T> inline void axpyi_one(T a, T x, T* y) {
    if constexpr (requires { a.re; }) {
        *y = cmadd(*y, a, x);
    } else if constexpr (branch == 7 && sizeof(T) == 8) {
        _mm_store_sd(y, _mm_fmadd_sd(_mm_set_sd(a), _mm_set_sd(x), _mm_load_sd(y)));
    } else if constexpr (branch == 7) {
        _mm_store_ss(y, _mm_fmadd_ss(_mm_set_ss(a), _mm_set_ss(x), _mm_load_ss(y)));
    } else {
        *y = *y + a * x;
    }
}

}  // namespace

template <class T> void axpyi(const int* pnz, const T* palpha, const T* x, const int* indx, T* y) {
    const int nz = *pnz;
    if (nz <= 0) return;
    const T a = *palpha;
    if (is_zero(a)) return;  // either sign; NaN goes on
    int i = 0;
    if constexpr (!requires { a.re; }) {
        for (; i + 2 <= nz; i += 2) {
            axpyi_one(a, x[i], &y[indx[i] - 1]);
            axpyi_one(a, x[i + 1], &y[indx[i + 1] - 1]);
        }
    }
    for (; i < nz; ++i) axpyi_one(a, x[i], &y[indx[i] - 1]);
}

ZVA_INSTANTIATE_TYPES(axpyi)

}  // namespace zva::ZVA_NS
