// SYMM and HEMM: one kernel call, or a team that cuts B and C into slices
// (columns on side "L", rows on side "R"). Every thread reads the whole of
// A and expands its diagonal blocks itself, so the threads share nothing
// they write and need no barrier.
#include <omp.h>

#include "frame/scalar.h"
#include "frame/threads.h"
#include "gemm/threaded.h"
#include "frame/dispatch.h"
#include "level3/drivers.h"

namespace zva {
namespace {

// Up to this order in both m and n a team costs more than it saves.
constexpr int serial_size = 16;

template <class T, auto Kernel>
void symm_team(Ch side, Ch uplo, I m, I n, const T* alpha, const T* a, I lda, const T* b, I ldb,
               const T* beta, T* c, I ldc, L ls, L lu) {
    if (*m == 0 || *n == 0) return;
    if (is_zero(*alpha)) {
        // Neither A nor B is read; beta = 0 stores zeros, beta = 1 leaves C.
        if (!is_one(*beta)) gemm_points<T>::scale_c(m, n, beta, c, ldc);
        return;
    }
    if (*m <= serial_size && *n <= serial_size) {
        Kernel(side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc, ls, lu);
        return;
    }
    const int t = thr_max_threads(1);
    if (t <= 1) {
        Kernel(side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc, ls, lu);
        return;
    }
    const bool left = (*side & ~0x20) == 'L';
#pragma omp parallel num_threads(t)
    {
        const int team = omp_get_num_threads(), i = omp_get_thread_num();
        if (team == 1) {
            Kernel(side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc, ls, lu);
        } else {
            // Slices of per; the last thread takes the rest. A slice may be
            // empty when the dimension is below the team size.
            const int total = left ? *n : *m, per = total / team;
            const int start = i * per < total - 1 ? i * per : total - 1;
            int count = i == team - 1 ? total - i * per : per;
            if (count < 0) count = 0;
            if (left)
                Kernel(side, uplo, m, &count, alpha, a, lda, b + (long)start * *ldb, ldb, beta,
                       c + (long)start * *ldc, ldc, ls, lu);
            else
                Kernel(side, uplo, &count, n, alpha, a, lda, b + start, ldb, beta, c + start, ldc,
                       ls, lu);
        }
    }
}

}  // namespace

template <class T>
void symm_driver(Ch side, Ch uplo, I m, I n, const T* alpha, const T* a, I lda, const T* b, I ldb,
                 const T* beta, T* c, I ldc, L ls, L lu) {
    symm_team<T, by_type<T, dp::SSYMM, dp::DSYMM, dp::CSYMM, dp::ZSYMM>>(
        side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc, ls, lu);
}
ZVA_INSTANTIATE_TYPES(symm_driver)

template <class T>
void hemm_driver(Ch side, Ch uplo, I m, I n, const T* alpha, const T* a, I lda, const T* b, I ldb,
                 const T* beta, T* c, I ldc, L ls, L lu) {
    symm_team<T, by_type<T, nullptr, nullptr, dp::CHEMM, dp::ZHEMM>>(
        side, uplo, m, n, alpha, a, lda, b, ldb, beta, c, ldc, ls, lu);
}
template decltype(hemm_driver<c32>) hemm_driver<c32>;
template decltype(hemm_driver<c64>) hemm_driver<c64>;

}  // namespace zva
