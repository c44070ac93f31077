// TRMV: one call of the branch kernel, or a team that splits the rows of
// the triangle over two groups of threads. Each thread reads the old x from
// a private copy and writes only its own rows, so the team needs no barrier
// and no reduction. DTRSV's driver only returns for n <= 0: the solve gets
// its threads from the GEMV driver of each block update.
#include <omp.h>

#include "frame/check.h"
#include "frame/cpu.h"
#include "frame/memory.h"
#include "frame/threads.h"
#include "level2/drivers.h"

namespace zva {

namespace {

struct trmv_limits {
    int floor;  // below n = floor: one call
    int per;    // more than 8 threads: one call unless n > per * t
    int dyn;    // below n = dyn, with dynamic adjustment: at most 4 threads
};
template <class T> constexpr trmv_limits trmv_limits_of = {};
template <> constexpr trmv_limits trmv_limits_of<float> = {220, 12, 300};
template <> constexpr trmv_limits trmv_limits_of<double> = {176, 9, 256};
template <> constexpr trmv_limits trmv_limits_of<c32> = {128, 7, 256};
template <> constexpr trmv_limits trmv_limits_of<c64> = {96, 3, 128};

// The large copy of x goes to a few threads; smaller ones are not worth a
// team.
constexpr int copy_parallel_from = 3000;
constexpr int copy_threads = 4;

template <class T> int trmv_threads(int n) {
    const trmv_limits& c = trmv_limits_of<T>;
    if (n < c.floor) return 1;
    const int ma = cpu_microarch();
    if (ma != ma_ssse3 && ma != ma_sse41 && ma != ma_sse42 && ma != ma_sse42_aes && ma != ma_avx)
        return 1;
    int t = thr_max_threads(1);
    if (t <= 1) return 1;
    if (t > 8 && n <= c.per * t) return 1;
    if (n < c.dyn && t > 4 && thr_dynamic() == 1) t = 4;
    return t;
}

// work := x in logical order; pairs a pass, then the last one.
template <class T> void copy_pairs(const T* x, long inc, T* w, int n) {
    int i = 0;
    for (; i + 2 <= n; i += 2) w[i] = x[i * inc], w[i + 1] = x[(i + 1) * inc];
    if (i < n) w[i] = x[i * inc];
}

// Rows [first, last) of thread i of a team of T: two groups, H = T / 2
// threads in the first with chunks of p rows, the rest with chunks of q,
// both multiples of 8. For large n the first group takes two thirds of the
// rows where they are the short ones of the triangle, a third where they
// are the long ones, so each group gets near half of the elements.
struct rows { int first, last; };
rows trmv_split(int n, int team, int i, bool short_first) {
    const int h = team / 2;
    int p = n <= 1024 ? (n / 2) / h : (short_first ? 2 * n / 3 : n / 3) / h;
    p &= ~7;
    const int q = ((n - h * p) / (team - h)) & ~7;
    if (i < h) return {i * p, (i + 1) * p};
    const int start = h * p + (i - h) * q;
    if (i < team - 1) return {start, start + q};
    return {start, n > start ? n : start};
}

template <class T>
void trmv_fork(int t, Ch uplo, Ch trans, Ch diag, I n, const T* a, I lda, T* x, I incx) {
    constexpr auto kernel = by_type<T, dp::STRMV, dp::DTRMV, dp::CTRMV, dp::ZTRMV>;
    constexpr auto region = by_type<T, dp::strmv_region, dp::dtrmv_region, dp::ctrmv_region,
                                    dp::ztrmv_region>;
    const int nn = *n;
    T* work = static_cast<T*>(scratch_alloc((uint32_t)nn * sizeof(T), 128));
    if (err_no_memory(work, "trmv")) return kernel(uplo, trans, diag, n, a, lda, x, incx, 1, 1, 1);
    const long inc = *incx;
    const T* x0 = x + vec_start(nn, *incx);
    if (inc == 1 && nn >= copy_parallel_from) {
#pragma omp parallel num_threads(t < copy_threads ? t : copy_threads)
        {
            const int team = omp_get_num_threads(), i = omp_get_thread_num();
            const int chunk = nn / team, start = i * chunk;
            copy_pairs(x0 + start, 1, work + start, i < team - 1 ? chunk : nn - start);
        }
    } else {
        copy_pairs(x0, inc, work, nn);
    }
    // The first rows are the short ones for (L, N) and for (U, T or C).
    const bool up = (*uplo & ~0x20) == 'U', nt = (*trans & ~0x20) == 'N';
    const bool short_first = up != nt;
#pragma omp parallel num_threads(t)
    {
        const int team = omp_get_num_threads(), i = omp_get_thread_num();
        if (team == 1) {
            kernel(uplo, trans, diag, n, a, lda, x, incx, 1, 1, 1);
        } else {
            const rows r = trmv_split(nn, team, i, short_first);
            region(uplo, trans, diag, n, a, lda, x, incx, work, r.first, r.last);
        }
    }
    scratch_free(work);
}

}  // namespace

template <class T>
void trmv_driver(Ch uplo, Ch trans, Ch diag, I n, const T* a, I lda, T* x, I incx, L lu, L lt,
                 L ld) {
    constexpr auto kernel = by_type<T, dp::STRMV, dp::DTRMV, dp::CTRMV, dp::ZTRMV>;
    if (*n <= 0) return;
    const int t = trmv_threads<T>(*n);
    if (t <= 1) return kernel(uplo, trans, diag, n, a, lda, x, incx, lu, lt, ld);
    trmv_fork<T>(t, uplo, trans, diag, n, a, lda, x, incx);
}

ZVA_INSTANTIATE_TYPES(trmv_driver)

void dtrsv_driver(Ch uplo, Ch trans, Ch diag, I n, const double* a, I lda, double* x, I incx,
                  L lu, L lt, L ld) {
    if (*n > 0) dp::DTRSV(uplo, trans, diag, n, a, lda, x, incx, lu, lt, ld);
}

}  // namespace zva
