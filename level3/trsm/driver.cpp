// TRSM: the right-hand sides are independent, so a team splits them (the
// columns of B on the left, its rows on the right) and every thread runs the
// serial kernel on its slab, scaling it by alpha itself. A is shared and read
// by all; there is no barrier and nothing to add up.
#include "level3/drivers.h"

#include <omp.h>

#include "frame/cpu.h"
#include "frame/dispatch.h"
#include "frame/threads.h"

namespace zva {
namespace {

template <class T>
inline constexpr auto trsm_point = by_type<T, dp::STRSM, dp::DTRSM, dp::CTRSM, dp::ZTRSM>;

// Either side and problems up to this size stay on the caller's thread.
constexpr int serial_size = 16;

// DTRSM's thread rule: a cap where a large second-level cache serves four
// threads, then per branch. The 128-bit branches below SSE4.2 fork only when
// the triangle work p and the work per thread q (in units of their engines'
// blocks) pay for the team.
bool dtrsm_forks(bool left, int m, int n, int* t) {
    if (*t > 4 && thr_dynamic() == 1) {
        const double w = left ? (double)m * m * n : (double)m * n * n;
        if (w < 200000000.0 && cpu_microarch() == ma_sse41 && cpu_cache_size(2) > 3145728)
            *t = 4;
    }
    if (m <= serial_size && n <= serial_size) return false;
    if (cpu_branch() >= 5) return true;
    if (left) {
        const int c = n / *t;
        const double p = (double)m * (m + 1) / 256, q = (double)m * c / 128;
        return !((p < 1 && q < 6) || p + q <= 6 || (m > 512 && c < 8));
    }
    const int c = m / *t;
    const double p = (double)n * (n + 1) / 256, q = (double)n * c / 128;
    return !(p <= 1 || q < 4 || p + q <= 10);
}

// The region: thread i takes chunk right-hand sides from i*chunk, the last
// one all that is left; a smaller team than asked for cuts again.
template <class T>
void trsm_fork(int nthreads, Ch side, Ch uplo, Ch transa, Ch diag, I m, I n, const T* alpha,
               const T* a, I lda, T* b, I ldb, int chunk) {
    const bool left = (*side & ~0x20) == 'L';
#pragma omp parallel num_threads(nthreads)
    {
        const int team = omp_get_num_threads(), i = omp_get_thread_num();
        if (team == 1) {
            trsm_point<T>(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb, 1, 1, 1, 1);
        } else {
            const int total = left ? *n : *m;
            const int per = team < nthreads ? total / team : chunk;
            const int start = i * per;
            int count = i == team - 1 ? total - start : per;
            if (count > total - start) count = total - start;
            if (count < 0) count = 0;
            if (left)
                trsm_point<T>(side, uplo, transa, diag, m, &count, alpha, a, lda,
                              b + (long)start * *ldb, ldb, 1, 1, 1, 1);
            else
                trsm_point<T>(side, uplo, transa, diag, &count, n, alpha, a, lda, b + start,
                              ldb, 1, 1, 1, 1);
        }
    }
}

}  // namespace

template <class T>
void trsm_driver(Ch side, Ch uplo, Ch transa, Ch diag, I m, I n, const T* alpha, const T* a,
                 I lda, T* b, I ldb, L, L, L, L) {
    if (*n == 0) return;
    const bool left = (*side & ~0x20) == 'L';
    int t = thr_max_threads(1);
    bool forks = t > 1;
    if (forks) {
        if constexpr (__is_same(T, double)) forks = dtrsm_forks(left, *m, *n, &t);
        else forks = *m > serial_size || *n > serial_size;
    }
    if (!forks) {
        trsm_point<T>(side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb, 1, 1, 1, 1);
        return;
    }
    trsm_fork<T>(t, side, uplo, transa, diag, m, n, alpha, a, lda, b, ldb,
                 (left ? *n : *m) / t);
}

#define ZVA_TRSM_DRIVER(T)                                                     \
    template void trsm_driver<T>(Ch, Ch, Ch, Ch, I, I, const T*, const T*, I, T*, I, L, L, L, L);
ZVA_TRSM_DRIVER(float)
ZVA_TRSM_DRIVER(double)
ZVA_TRSM_DRIVER(c32)
ZVA_TRSM_DRIVER(c64)
#undef ZVA_TRSM_DRIVER

}  // namespace zva
