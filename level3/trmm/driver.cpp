// TRMM: one call of the branch kernel, or a team that cuts B along its free
// dimension (columns for A on the left, rows for A on the right). A column
// (left) or a row (right) of B depends on no other, so the threads share A
// read only and need no barrier and no reduction.
#include <omp.h>

#include "frame/threads.h"
#include "frame/dispatch.h"
#include "level3/drivers.h"

namespace zva {

namespace {

// Below both limits the call stays on the caller's thread.
constexpr int trmm_serial_limit = 16;

template <class T>
void trmm_fork(int nthreads, Ch side, Ch uplo, Ch transa, Ch diag, I m, I n, const T* alpha,
               const T* a, I lda, T* b, I ldb) {
    constexpr auto kernel = by_type<T, dp::STRMM, dp::DTRMM, dp::CTRMM, dp::ZTRMM>;
    const bool left = (*side & ~0x20) == 'L';
#pragma omp parallel num_threads(nthreads)
    {
        const int team = omp_get_num_threads(), i = omp_get_thread_num();
        if (team == 1) {
            kernel(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb, 1, 1, 1, 1);
        } else {
            // The last thread takes what is left: with fewer columns (left)
            // or rows (right) than threads, that is everything.
            const int total = left ? *n : *m, chunk = total / team;
            const int start = i * chunk, rest = total - start;
            const int count = i == team - 1 ? rest : (chunk < rest ? chunk : rest);
            if (left) {
                kernel(side, uplo, transa, diag, m, &count, alpha, a, lda,
                       b + (long long)start * *ldb, ldb, 1, 1, 1, 1);
            } else {
                kernel(side, uplo, transa, diag, &count, n, alpha, a, lda, b + start, ldb, 1, 1,
                       1, 1);
            }
        }
    }
}

}  // namespace

template <class T>
void trmm_driver(Ch side, Ch uplo, Ch transa, Ch diag, I m, I n, const T* alpha, const T* a,
                 I lda, T* b, I ldb, L, L, L, L) {
    constexpr auto kernel = by_type<T, dp::STRMM, dp::DTRMM, dp::CTRMM, dp::ZTRMM>;
    if (*n == 0) return;
    const int t = thr_max_threads(1);
    // No branch, micro-architecture or work test: only the two sizes.
    const bool serial = t <= 1 || (*m <= trmm_serial_limit && *n <= trmm_serial_limit) ||
                        (*m == 0 && *n > trmm_serial_limit);
    if (serial) {
        kernel(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb, 1, 1, 1, 1);
        return;
    }
    trmm_fork<T>(t, side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb);
}

ZVA_INSTANTIATE_TYPES(trmm_driver)

}  // namespace zva
