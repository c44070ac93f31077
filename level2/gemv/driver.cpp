// GEMV: one call of the branch kernel, or a team that cuts y into slices
// (rows when A is not transposed, columns when it is).  Every element of y
// is computed by one thread in the serial column order, so threads need no
// reduction and no barrier.
#include <omp.h>

#include "frame/cpu.h"
#include "frame/threads.h"
#include "level2/drivers.h"

namespace zva {

namespace {

// Size limits of the thread decision, per type.
struct gemv_limits {
    int s0;           // m and n both below: serial
    int b;            // per-thread chunk boundary
    int n_small, n_big;  // not transposed, t <= 12: serial below, by chunk
    int t_small, t_big;  // transposed, t <= 12
    int high;         // t > 12: keep t at or above this much work a thread
    int d;            // divisor of m*n that reduces t
};
template <class T> constexpr gemv_limits limits_of = {};
template <> constexpr gemv_limits limits_of<float> = {128, 32, 1536, 3072, 2048, 4096, 4096, 3072};
template <> constexpr gemv_limits limits_of<double> = {64, 64, 1536, 3072, 2048, 4096, 4096, 3072};
template <> constexpr gemv_limits limits_of<c32> = {256, 64, 1024, 2048, 1024, 2048, 2048, 2048};
template <> constexpr gemv_limits limits_of<c64> = {64, 32, 512, 1024, 512, 1024, 1024, 1024};

// Threads for an m x n product; 1 keeps the call on the caller's thread.
template <class T> int gemv_threads(bool notrans, int m, int n) {
    const gemv_limits& c = limits_of<T>;
    if (m < c.s0 && n < c.s0) return 1;
    int ma = cpu_microarch();
    if (ma != ma_ssse3 && ma != ma_sse41 && ma != ma_sse42 && ma != ma_sse42_aes && ma != ma_avx)
        return 1;
    int t = thr_max_threads(1);
    if (t <= 1) return 1;
    int per, small, big;
    long long work;
    if (notrans) {
        per = m / t;
        int per8 = per & ~7;
        if (sizeof(T) == 4 && t <= 12) {
            // A chunk of exactly eight rows is never split.
            if (per8 == 8) per8 = 0;
            if (per8 < 32 && n < 256) return 1;
        }
        work = (long long)(t <= 12 ? per8 : per) * n;
        small = c.n_small, big = c.n_big;
        if (t <= 12) return work < ((per8 < c.b) ? small : big) ? 1 : t;
    } else {
        per = n / t;
        work = (long long)m * per;
        small = c.t_small, big = c.t_big;
        if (t <= 12) return work < ((per < c.b) ? small : big) ? 1 : t;
    }
    if (work >= c.high) return t;
    if (per == 0 || thr_dynamic() != 1) return 1;
    long long r = (long long)m * n / c.d;
    int reduced = r < 1 ? 1 : (r > t ? t : (int)r);
    return reduced;
}

}  // namespace

template <class T>
void gemv_driver(Ch trans, I m, I n, const T* alpha, const T* a, I lda, const T* x, I incx,
                 const T* beta, T* y, I incy, L) {
    constexpr auto gemv_point = by_type<T, dp::SGEMV, dp::DGEMV, dp::CGEMV, dp::ZGEMV>;
    if (*m <= 0 || *n <= 0) return;
    bool notrans = (*trans & ~0x20) == 'N';
    int t = gemv_threads<T>(notrans, *m, *n);
    if (t <= 1) {
        gemv_point(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
        return;
    }
#pragma omp parallel num_threads(t)
    {
        int team = omp_get_num_threads(), i = omp_get_thread_num();
        if (team == 1) {
            gemv_point(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
        } else {
            int total = notrans ? *m : *n;
            int chunk = notrans ? (total / team) & ~7 : total / team;
            int start = i * chunk;
            int count = i < team - 1 ? chunk : total - start;
            long long ys = *incy >= 0 ? (long long)start * *incy
                                      : (long long)(start + count - total) * *incy;
            if (notrans) {
                gemv_point(trans, &count, n, alpha, a + start, lda, x, incx, beta, y + ys, incy);
            } else {
                gemv_point(trans, m, &count, alpha, a + (long long)start * *lda, lda, x, incx,
                              beta, y + ys, incy);
            }
        }
    }
}

ZVA_INSTANTIATE_TYPES(gemv_driver)

}  // namespace zva
