// Threaded drivers of SDOT, DDOT and CDOTC: each thread of the team takes a
// slice and leaves its result in an entry of a partial-sum array; the caller
// adds the entries in ascending thread order after the region, so a result
// depends on the team size and on nothing else about the schedule.
#include "frame/check.h"
#include "frame/memory.h"
#include "level1/drivers.h"

namespace zva {

namespace {

// Entries kept in the driver's frame; a larger team gets its array from the
// scratch manager.
constexpr int frame_entries = 128;

// Entry array for a team of t: the frame's, or scratch memory; null when the
// scratch request failed (already reported).
template <class E> E* partial_array(int t, E* in_frame) {
    if (t <= frame_entries) return in_frame;
    E* p = static_cast<E*>(scratch_alloc(static_cast<uint32_t>(t * sizeof(E)), 0));
    return err_no_memory(p, "dot") ? nullptr : p;
}

// The sum of entries 0 .. T-1 in one x87 accumulator: it keeps the x87
// width while the entries go by, two a turn, and is rounded once by the
// final conversion.  The control word is the caller's.
template <class T> T sum_in_order(const T* e, int team) {
    long double s = 0;
    int k = 0;
    for (; k + 2 <= team; k += 2) {
        s += e[k];
        s += e[k + 1];
    }
    if (k < team) s += e[k];
    return static_cast<T>(s);
}

}  // namespace

template <class T> T dot_driver(I n, const T* x, I incx, const T* y, I incy) {
    constexpr auto point = by_type<T, dp::SDOT, dp::DDOT, dp::CDOTC, dp::ZDOTC>;
    const int t = l1_threads_of<T>(l1_rows::sdot, l1_rows::ddot, l1_rows::cdotc, 0, n, incx,
                                   incy);
    if (t <= 1) return point(n, x, incx, y, incy);
    T in_frame[frame_entries];
    T* part = partial_array(t, in_frame);
    if (!part) return point(n, x, incx, y, incy);
    int team = 1;
    T whole = 0;
    l1_fork(t, *n, *incx, *incy, [&](int k, int tm, int count, long long ox, long long oy) {
        if (tm == 1) {
            whole = point(n, x, incx, y, incy);
            return;
        }
        if (k == 0) team = tm;
        part[k] = point(&count, x + ox, incx, y + oy, incy);
    });
    const T r = team == 1 ? whole : sum_in_order(part, team);
    if (part != in_frame) scratch_free(part);
    return r;
}

template float dot_driver<float>(I, const float*, I, const float*, I);
template double dot_driver<double>(I, const double*, I, const double*, I);

// CDOTC: unlike the real sum, every entry is added to the caller's single-
// precision result and rounded there before the next.
c32* cdotc_driver(c32* result, I n, const c32* x, I incx, const c32* y, I incy) {
    const int t = l1_threads_of<c32>(l1_rows::sdot, l1_rows::ddot, l1_rows::cdotc, 0, n, incx,
                                     incy);
    if (t <= 1) return dp::CDOTC(result, n, x, incx, y, incy);
    c32 in_frame[frame_entries];
    c32* part = partial_array(t, in_frame);
    if (!part) return dp::CDOTC(result, n, x, incx, y, incy);
    int team = 1;
    l1_fork(t, *n, *incx, *incy, [&](int k, int tm, int count, long long ox, long long oy) {
        if (tm == 1) {
            dp::CDOTC(result, n, x, incx, y, incy);
            return;
        }
        if (k == 0) team = tm;
        dp::CDOTC(&part[k], &count, x + ox, incx, y + oy, incy);
    });
    if (team > 1) {
        // SSE arithmetic: each sum is rounded to single as it is formed.
        c32 r{0.0f, 0.0f};
        for (int k = 0; k < team; ++k) {
            r.re = r.re + part[k].re;
            r.im = r.im + part[k].im;
        }
        *result = r;
    }
    if (part != in_frame) scratch_free(part);
    return result;
}

}  // namespace zva
