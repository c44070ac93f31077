// C := beta*C on an m x n block, for every branch and type.
//
// Four columns at a time. Rows are peeled one by one until the first column
// of the group reaches a 32-byte boundary, then go by wide lanes, then one
// by one again; the other three columns follow the same row split. beta = 1
// leaves C alone (a complex 1 would turn an infinity's partner into NaN),
// beta = 0 stores zeros without reading C.
#include "gemm/kernels.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

using simd::factor;
using simd::make_factor;
using simd::times;

// Rows i0 to i1 - 1 of nc columns, in steps of the kind's width.
template <class L>
inline void scale_rows(typename L::T* col, int ldc, int nc, int i0, int i1, bool zero,
                       const factor<L>& f) {
    for (int i = i0; i < i1; i += L::W)
        for (int q = 0; q < nc; ++q) {
            typename L::T* e = col + q * ldc + i;
            L::store(e, zero ? L::zero() : times(f, L::load(e)));
        }
}

template <class L1, class LV>
void scale_c(int m, int n, const typename L1::T* beta, typename L1::T* c, int ldc) {
    using T = typename L1::T;
    if (m <= 0 || n <= 0 || is_one(*beta)) return;
    const bool zero = is_zero(*beta);
    const factor<L1> f1 = make_factor<L1>(*beta);
    const factor<LV> fv = make_factor<LV>(*beta);
    for (int j = 0; j < n; j += 4) {
        const int nc = n - j < 4 ? n - j : 4;
        T* const col = c + j * ldc;
        const int p = LV::W > 1 ? peel_to_32_within(col, m) : 0;
        const int mv = p + (m - p) / LV::W * LV::W;
        scale_rows<L1>(col, ldc, nc, 0, p, zero, f1);
        scale_rows<LV>(col, ldc, nc, p, mv, zero, fv);
        scale_rows<L1>(col, ldc, nc, mv, m, zero, f1);
    }
}

}  // namespace

template <class T>
void gemm_scale_c(const int* m, const int* n, const T* beta, T* c, const int* ldc) {
    scale_c<lane1<T>, lanev<T>>(*m, *n, beta, c, *ldc);
}
ZVA_INSTANTIATE_TYPES(gemm_scale_c)

}  // namespace zva::ZVA_NS
