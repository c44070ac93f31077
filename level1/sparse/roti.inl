// ROTI, the plane rotation of x[i] and y[indx[i]-1], in S and D.
//
// One element a pass on every branch, in ascending i, each pair stored
// before the next is read. c = 1 with s = 0 returns with nothing touched (a
// NaN in c or s goes on). Branch 7 rounds each result once after its second
// product: x := fma(c, a, s*b), y := fnma(s, a, c*b); the other branches
// round both products, then the sum or difference.
#include <immintrin.h>

#include "level1/kernels.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {

template <class T> void roti(const int* pnz, T* x, const int* indx, T* y, const T* pc, const T* ps) {
    const int nz = *pnz;
    if (nz <= 0) return;
    const T c = *pc, s = *ps;
    if (c == 1 && s == 0) return;
    for (int i = 0; i < nz; ++i) {
        T* yk = &y[indx[i] - 1];
        const T a = x[i], b = *yk;
#if ZVA_BRANCH == 7
        if constexpr (sizeof(T) == 8) {
            const __m128d va = _mm_set_sd(a), vc = _mm_set_sd(c), vs = _mm_set_sd(s);
            x[i] = _mm_cvtsd_f64(_mm_fmadd_sd(vc, va, _mm_set_sd(s * b)));
            *yk = _mm_cvtsd_f64(_mm_fnmadd_sd(vs, va, _mm_set_sd(c * b)));
        } else {
            const __m128 va = _mm_set_ss(a), vc = _mm_set_ss(c), vs = _mm_set_ss(s);
            x[i] = _mm_cvtss_f32(_mm_fmadd_ss(vc, va, _mm_set_ss(s * b)));
            *yk = _mm_cvtss_f32(_mm_fnmadd_ss(vs, va, _mm_set_ss(c * b)));
        }
#else
        x[i] = c * a + s * b;
        *yk = c * b - s * a;
#endif
    }
}

template decltype(roti<float>) roti<float>;
template decltype(roti<double>) roti<double>;

}  // namespace zva::ZVA_NS
