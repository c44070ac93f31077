// SYR2K and HER2K, the serial kernels of every branch: C := alpha*A*B' +
// alpha2*B*A' + beta*C ("N") or alpha*A'*B + alpha2*B'*A + beta*C on one
// triangle of C; alpha2 is alpha, or its conjugate for HER2K, where ' also
// conjugates. C is scaled by beta once, first.
//
// The diagonal walks in blocks of 128 (64 for ZHER2K): one product T =
// alpha*A*B' per block into the temporary square, then C := (C + T) + T'
// on the block's triangle, and two gemm_serial calls for the rectangle
// beside it (level3/syrk/band.h). The branches differ only in gemm_serial
// and gemm_scale_c.
#include "level3/syrk/band.h"

namespace zva::ZVA_NS {

template <class T, class B>
void syr2k(Ch uplo, Ch trans, I pn, I pk, const T* alpha, const T* a, I lda, const T* b, I ldb,
           const B* beta, T* c, I ldc, L, L) {
    constexpr bool herm = sizeof(B) != sizeof(T);
    const int n = *pn, k = *pk;
    if (n <= 0) return;
    const bool nothing = k <= 0 || is_zero(*alpha);
    if (nothing && is_one(*beta)) return;
    const band_op o = band_op_of(uplo, trans, n, k, herm);
    if (!is_one(*beta)) scale_triangle(o, *beta, c, *ldc);
    if (nothing) return;
    const T alpha2 = herm ? conj_of(*alpha) : *alpha;
    const int nd = herm && sizeof(T) == 16 ? 64 : 128;
    band<T, true>(o, nd, true, "xsyr2k", *alpha, a, *lda, b, *ldb, &alpha2, c, *ldc);
}

template decltype(syr2k<float, float>) syr2k<float, float>;
template decltype(syr2k<double, double>) syr2k<double, double>;
template decltype(syr2k<c32, c32>) syr2k<c32, c32>;
template decltype(syr2k<c64, c64>) syr2k<c64, c64>;
template decltype(syr2k<c32, float>) syr2k<c32, float>;
template decltype(syr2k<c64, double>) syr2k<c64, double>;

}  // namespace zva::ZVA_NS
