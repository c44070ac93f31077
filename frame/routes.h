// What each export runs: its checker, then its threaded driver or its main
// dispatch point.  Null entries are parts not built yet.
#pragma once
#include <type_traits>

#include "frame/check_table.h"
#include "frame/dispatch.h"
#include "level1/drivers.h"

namespace zva {

template <class Sig> struct checker_of;
template <class R, class... A> struct checker_of<R(A...)> {
    using type = int(A...);
};

struct driver_table {
#define ZVA_DRIVER_MEMBER(N, B, R, S, K) ZVA_SIG(S)* N = nullptr;
    ZVA_ROUTINES(ZVA_DRIVER_MEMBER)
#undef ZVA_DRIVER_MEMBER
};

struct checker_table {
#define ZVA_CHECKER_MEMBER(N, B, R, S, K)                                      \
    typename checker_of<ZVA_SIG(S)>::type* N = nullptr;
    ZVA_ROUTINES(ZVA_CHECKER_MEMBER)
#undef ZVA_CHECKER_MEMBER
};

inline constexpr driver_table drivers = [] {
    driver_table t;
    t.SAXPY = axpy_driver<float>;
    t.DAXPY = axpy_driver<double>;
    t.CAXPY = axpy_driver<c32>;
    t.ZAXPY = axpy_driver<c64>;
    return t;
}();

inline constexpr checker_table checkers = [] {
    checker_table t;
#define ZVA_CHECKER_ENTRY(N, family)                                           \
    t.N = &checker<std::remove_pointer_t<decltype(driver_table::N)>,           \
                   checks::family, pid_##N>::run;
    ZVA_CHECKED(ZVA_CHECKER_ENTRY)
#undef ZVA_CHECKER_ENTRY
    return t;
}();

}  // namespace zva
