#include "level1/threading.h"

#include "frame/cpu.h"
#include "frame/threads.h"

namespace zva {

namespace {
int max(int a, int b) { return a > b ? a : b; }
int min(int a, int b) { return a < b ? a : b; }
bool has(int v) { return v != none; }
}  // namespace

int l1_threads(const l1_limits& r, int n, int incx, int incy) {
    if (n <= r.s0) return 1;
    int t = thr_max_threads(1);
    if (t <= 1) return 1;
    int ma = cpu_microarch();
    bool small_cache_class = ma == ma_ssse3 || ma == ma_sse41;
    bool big_class = ma == ma_sse42 || ma == ma_sse42_aes || ma == ma_avx;
    if (small_cache_class && has(r.s1) && n <= r.s1) return 1;
    // ma_none (branches 2, 3 and 7, other vendors) never forks here.
    if (!small_cache_class && !big_class) return 1;
    if (incx == 0 || incy == 0) return 1;
    if (thr_dynamic() != 1) return t;
    if (big_class) {
        if (n < r.c1 && t > 4) return 4;
        if (t == 2) return has(r.c2) && n < r.c2 ? 1 : 2;
        if (t > 16 && n < t * r.d1) return max(n / r.d1, 16);
        if (t > 8 && n < t * r.d2) return max(n / r.d2, 8);
        return t;
    }
    int32_t caches[5];
    cpu_cache_sizes(caches);
    if (caches[0] >= 1 && caches[2] <= 3145728) {
        if (t <= 4) return t == 2 && has(r.a3) && n < r.a3 ? 1 : t;
        if (t > 12 && n < t * r.a1) return max(n / r.a1, 4);
        if (n < t * r.a2) return max(n / r.a2, 4);
        return t;
    }
    if (n < r.b1) t = min(t, 2);
    else if (n < r.b2) t = min(t, 4);
    if (ma == ma_sse41) t = min(t, 4);
    return t;
}

int l1_threads_z(int s0, int n, int incx, int incy) {
    if (n <= s0) return 1;
    if (thr_max_threads(1) <= 1) return 1;
    int ma = cpu_microarch();
    if (ma != ma_ssse3 && ma != ma_sse41 && ma != ma_sse42 && ma != ma_sse42_aes && ma != ma_avx)
        return 1;
    if (incx == 0 || incy == 0) return 1;
    return thr_dynamic() == 1 ? 2 : 1;
}

l1_slice l1_split(int n, int t, int k) {
    if (t <= 1) return {0, n};
    int chunk = (n / t) & ~7;
    if (k < t - 1) return {k * chunk, chunk};
    int start = (t - 1) * chunk;
    return {start, n - start > 0 ? n - start : 0};
}

}  // namespace zva
