// Threaded SYMV, SYR and SYR2 in S and D: one call of the branch kernel, or
// a team. SYMV runs two phases, the diagonal blocks and then the strips
// beside them by GEMV, with no copy of y and no reduction; SYR and SYR2
// split the columns of the triangle over two groups of threads. Only the
// processors of branches 4, 5 and 6 fork (micro-architecture codes 32 to
// 128); on the others these drivers always call the kernel.
#include <omp.h>

#include "frame/cpu.h"
#include "frame/threads.h"
#include "level2/drivers.h"

namespace zva {

namespace {

bool may_fork() {
    const int ma = cpu_microarch();
    return ma == ma_ssse3 || ma == ma_sse41 || ma == ma_sse42 || ma == ma_sse42_aes || ma == ma_avx;
}

// Where a slice [start, start + count) of a vector of total elements
// begins: from its far end when the increment is negative.
inline long long slice_at(int start, int count, int total, int inc) {
    return inc >= 0 ? (long long)start * inc : (long long)(start + count - total) * inc;
}

// SYMV limits: n below floor stays serial; more than 8 threads need n above
// per_thread * t; up to 8 threads a matrix above high stays on one thread.
struct symv_limits {
    int floor, per_thread, high;
};
template <class T> constexpr symv_limits symv_of = {256, 15, 4000};
template <> constexpr symv_limits symv_of<double> = {144, 10, 3000};

template <class T> int symv_threads(int n) {
    const symv_limits& c = symv_of<T>;
    if (n < c.floor || !may_fork()) return 1;
    int t = thr_max_threads(1);
    if (t <= 1) return 1;
    if (t > 8) {
        if (n <= c.per_thread * t) return 1;
    } else if (n > c.high) {
        return 1;
    }
    if (sizeof(T) == 8 && n < 200 && t > 4 && thr_dynamic() == 1) t = 4;
    return t;
}

}  // namespace

// An even number P of blocks (an odd team leaves its last thread idle), all
// b rows (n / P, a multiple of 8) but the last, which runs to n. Phase 1:
// the SYMV kernel on each diagonal block, with the caller's alpha and beta.
// After the barrier, thread i adds to its block of y alone, by the GEMV
// kernel with beta 1, the strips left and right of its diagonal block; each
// stored off-diagonal element is read by the two threads that need it.
template <class T>
void symv_driver(Ch uplo, I n, const T* alpha, const T* a, I lda, const T* x, I incx, const T* beta, T* y,
                 I incy, L len) {
    constexpr auto symv_point = by_type<T, dp::SSYMV, dp::DSYMV, nullptr, nullptr>;
    constexpr auto gemv_point = by_type<T, dp::SGEMV, dp::DGEMV, nullptr, nullptr>;
    const int nn = *n;
    if (nn <= 0) return;
    const int t = symv_threads<T>(nn);
    if (t <= 1) return symv_point(uplo, n, alpha, a, lda, x, incx, beta, y, incy, len);
    const bool up = *uplo == 'U' || *uplo == 'u';
    const int ld = *lda, ix = *incx, iy = *incy;
#pragma omp parallel num_threads(t)
    {
        const int team = omp_get_num_threads(), me = omp_get_thread_num();
        if (team == 1) {
            symv_point(uplo, n, alpha, a, lda, x, incx, beta, y, incy, len);
        } else {
            const int blocks = team & ~1, b = (nn / blocks) & ~7;
            auto size = [&](int i) { return i < blocks - 1 ? b : nn - (blocks - 1) * b; };
            auto xs = [&](int start, int count) { return x + slice_at(start, count, nn, ix); };
            auto ys = [&](int start, int count) { return y + slice_at(start, count, nn, iy); };
#pragma omp for schedule(static)
            for (int i = 0; i < blocks; ++i) {
                int s = size(i);
                symv_point(uplo, &s, alpha, a + (long long)i * b * (ld + 1), lda, xs(i * b, s), incx, beta,
                           ys(i * b, s), incy, len);
            }
            if (me < blocks) {
                static const T one = T(1);
                const int start = me * b, end = (me + 1) * b;
                int s = size(me), left = start, right = nn - end;
                T* yb = ys(start, s);
                if (me > 0) {
                    if (up)
                        gemv_point("T", &left, &s, alpha, a + (long long)start * ld, lda, xs(0, left), incx, &one,
                                   yb, incy);
                    else
                        gemv_point("N", &s, &left, alpha, a + start, lda, xs(0, left), incx, &one, yb, incy);
                }
                if (me < blocks - 1) {
                    if (up)
                        gemv_point("N", &s, &right, alpha, a + start + (long long)end * ld, lda, xs(end, right),
                                   incx, &one, yb, incy);
                    else
                        gemv_point("T", &right, &s, alpha, a + end + (long long)start * ld, lda, xs(end, right),
                                   incx, &one, yb, incy);
                }
            }
        }
    }
}

template decltype(symv_driver<float>) symv_driver<float>;
template decltype(symv_driver<double>) symv_driver<double>;

namespace {

// SYR and SYR2 (S and D alike): n from 1500 on may fork.
int rank_threads(int n) {
    if (n < 1500 || !may_fork()) return 1;
    return thr_max_threads(1);
}

// Columns [first, last) of thread me in a team: H = team / 2 threads take
// chunks of p columns, the others of q, both multiples of 8, the last thread
// the rest. With uplo U the first columns are the short ones and the first
// group takes two thirds of them; with L they are the long ones and it
// takes a third: each group gets near half of the triangle.
template <class Whole, class Slice> void rank_fork(int t, bool up, int n, Whole whole, Slice slice) {
#pragma omp parallel num_threads(t)
    {
        const int team = omp_get_num_threads(), me = omp_get_thread_num();
        if (team == 1) {
            whole();
        } else {
            const int h = team / 2;
            const int p = ((up ? 2 * n / 3 : n / 3) / h) & ~7;
            const int q = ((n - h * p) / (team - h)) & ~7;
            const int first = me < h ? me * p : h * p + (me - h) * q;
            const int last = me == team - 1 ? n : first + (me < h ? p : q);
            slice(first, last);
        }
    }
}

}  // namespace

template <class T> void syr_driver(Ch uplo, I n, const T* alpha, const T* x, I incx, T* a, I lda, L len) {
    constexpr auto syr_point = by_type<T, dp::SSYR, dp::DSYR, nullptr, nullptr>;
    constexpr auto region = by_type<T, dp::ssyr_region, dp::dsyr_region, nullptr, nullptr>;
    if (*n <= 0) return;
    const int t = rank_threads(*n);
    if (t <= 1) return syr_point(uplo, n, alpha, x, incx, a, lda, len);
    rank_fork(
        t, *uplo == 'U' || *uplo == 'u', *n, [&] { syr_point(uplo, n, alpha, x, incx, a, lda, len); },
        [&](int first, int last) { region(uplo, n, alpha, x, incx, a, lda, first, last); });
}

template <class T>
void syr2_driver(Ch uplo, I n, const T* alpha, const T* x, I incx, const T* y, I incy, T* a, I lda, L len) {
    constexpr auto syr2_point = by_type<T, dp::SSYR2, dp::DSYR2, nullptr, nullptr>;
    constexpr auto region = by_type<T, dp::ssyr2_region, dp::dsyr2_region, nullptr, nullptr>;
    if (*n <= 0) return;
    const int t = rank_threads(*n);
    if (t <= 1) return syr2_point(uplo, n, alpha, x, incx, y, incy, a, lda, len);
    rank_fork(
        t, *uplo == 'U' || *uplo == 'u', *n, [&] { syr2_point(uplo, n, alpha, x, incx, y, incy, a, lda, len); },
        [&](int first, int last) { region(uplo, n, alpha, x, incx, y, incy, a, lda, first, last); });
}

template decltype(syr_driver<float>) syr_driver<float>;
template decltype(syr_driver<double>) syr_driver<double>;
template decltype(syr2_driver<float>) syr2_driver<float>;
template decltype(syr2_driver<double>) syr2_driver<double>;

}  // namespace zva
