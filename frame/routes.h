// What each export runs: its checker, then its threaded driver or its main
// dispatch point.
#pragma once
#include <type_traits>

#include "frame/check_table.h"
#include "frame/dispatch.h"
#include "gemm/threaded.h"
#include "level1/drivers.h"
#include "level2/drivers.h"

namespace zva {

template <class Sig> struct checker_of;
template <class R, class... A> struct checker_of<R(A...)> {
    using type = int(A...);
};

// Stand-ins until a routine's driver or checker is written: they stop the
// process with a line naming the routine.
template <point_id Id, class Sig> struct unbuilt;
template <point_id Id, class R, class... A> struct unbuilt<Id, R(A...)> {
    static R driver(A...) { route_unbuilt(point_names[Id], "driver"); }
    static int checker(A...) { route_unbuilt(point_names[Id], "argument checker"); }
};

struct driver_table {
#define ZVA_DRIVER_MEMBER(N, B, R, S, K)                                       \
    ZVA_SIG(S)* N = &unbuilt<pid_##N, ZVA_SIG(S)>::driver;
    ZVA_ROUTINES(ZVA_DRIVER_MEMBER)
#undef ZVA_DRIVER_MEMBER
};

struct checker_table {
#define ZVA_CHECKER_MEMBER(N, B, R, S, K)                                      \
    typename checker_of<ZVA_SIG(S)>::type* N = &unbuilt<pid_##N, ZVA_SIG(S)>::checker;
    ZVA_ROUTINES(ZVA_CHECKER_MEMBER)
#undef ZVA_CHECKER_MEMBER
};

inline constexpr driver_table drivers = [] {
    driver_table t;
    t.SAXPY = axpy_driver<float>;
    t.DAXPY = axpy_driver<double>;
    t.CAXPY = axpy_driver<c32>;
    t.ZAXPY = axpy_driver<c64>;
    t.SGEMV = gemv_driver<float>;
    t.DGEMV = gemv_driver<double>;
    t.CGEMV = gemv_driver<c32>;
    t.ZGEMV = gemv_driver<c64>;
    t.SGEMM = gemm_threaded<float>;
    t.DGEMM = gemm_threaded<double>;
    t.CGEMM = gemm_threaded<c32>;
    t.ZGEMM = gemm_threaded<c64>;
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
