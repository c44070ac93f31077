// The thread decision and the vector split shared by the threaded level-1
// drivers.  Each routine has a row of size limits, tuned per processor
// class (micro-architecture codes 32/33 and 64/66/128).
#pragma once

namespace zva {

constexpr int none = -1;  // the row has no such limit
struct l1_limits { int s0, s1, c1, c2, d1, d2, a1, a2, a3, b1, b2; };

namespace l1_rows {
//                             s0    s1     c1    c2    d1    d2    a1     a2    a3    b1    b2
inline constexpr l1_limits daxpy{2000, 2500, 15000, 4000, 5000, 5000, 6500, 2500, 3000, 5000, 15000};
inline constexpr l1_limits saxpy{4000, 4900, 25000, 6000, 3750, 3333, 10000, 5000, 5000, 6000, 18000};
inline constexpr l1_limits caxpy{2000, 3000, 20000, 3000, 5000, 5000, 6500, 2500, 3000, 6000, 15000};
inline constexpr l1_limits dcopy{2000, 3000, 20000, 2500, 5000, 5000, 6500, 2500, 3000, 5000, 10000};
inline constexpr l1_limits scopy{5000, 6000, 45000, none, 3750, 3333, 10000, 5000, 6000, 8000, 20000};
inline constexpr l1_limits ccopy{2500, 3000, 20000, none, 5000, 5000, 6500, 2500, 3000, 5000, 8000};
inline constexpr l1_limits dswap{2000, 2500, 15000, 2500, 5000, 5000, 6500, 2500, 2500, 5000, 10000};
inline constexpr l1_limits sswap{5000, none, 20000, none, 3750, 3333, 10000, 5000, none, 8000, 20000};
inline constexpr l1_limits cswap{2000, 3000, 15000, none, 5000, 5000, 6500, 2500, 3000, 5000, 10000};
inline constexpr l1_limits drot{2000, none, 10000, none, 5000, 5000, 6500, 2500, 2500, 5000, 15000};
inline constexpr l1_limits srot{4000, 5000, 20000, none, 3750, 3333, 10000, 5000, none, 8000, 30000};
inline constexpr l1_limits ddot{2500, none, 20000, none, 5000, 5000, 6500, 2500, 3000, 6000, 10000};
inline constexpr l1_limits sdot{5000, none, 30000, none, 7000, 3333, 10000, 5000, 6000, 8000, 20000};
inline constexpr l1_limits cdotc{2000, 3000, 20000, 2500, 5000, 5000, 6500, 2500, 4000, 6000, 15000};
}  // namespace l1_rows

// Threads to fork for a vector of n elements; 1 means one call on the
// caller's thread.
int l1_threads(const l1_limits& row, int n, int incx, int incy);
// The double-complex drivers: two threads with dynamic adjustment on,
// serial with it off.
int l1_threads_z(int s0, int n, int incx, int incy);

// The part of the vector that thread k of a team of t takes, and the offset
// of its base pointer for increment inc, in elements, so that a call on the
// slice sees logical elements start .. start + count - 1 of the whole.
struct l1_slice { int start, count; };
l1_slice l1_split(int n, int t, int k);
inline long long l1_offset(int n, int inc, l1_slice s) {
    int first = s.start < n - 1 ? s.start : n - 1;
    return inc > 0 ? (long long)inc * first
                   : (long long)inc * first + (long long)inc * (s.count - n);
}

}  // namespace zva
