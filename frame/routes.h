// What each export runs: its checker, then its threaded driver or its main
// dispatch point.
#pragma once
#include <type_traits>

#include "frame/check_table.h"
#include "frame/dispatch.h"
#include "gemm/threaded.h"
#include "level1/drivers.h"
#include "level2/drivers.h"
#include "level3/drivers.h"

namespace zva {

template <class Sig> struct checker_of;
template <class R, class... A> struct checker_of<R(A...)> {
    using type = int(A...);
};

// Each export's driver (routes DRV, CDRV) and checker (CDSP, CDRV).
struct driver_table {
#define ZVA_DRIVER_MEMBER(N, B, R, S, ...)                                     \
    ZVA_SIG(S)* N = nullptr;
    ZVA_ROUTINES(ZVA_DRIVER_MEMBER)
#undef ZVA_DRIVER_MEMBER
};

struct checker_table {
#define ZVA_CHECKER_MEMBER(N, B, R, S, ...)                                    \
    typename checker_of<ZVA_SIG(S)>::type* N = nullptr;
    ZVA_ROUTINES(ZVA_CHECKER_MEMBER)
#undef ZVA_CHECKER_MEMBER
};

// A driver column names a driver, or no_driver where the export goes to the
// dispatch point.
template <class F> constexpr void set_driver(F*& slot, std::type_identity_t<F>* f) { slot = f; }
template <class F> constexpr void set_driver(F*&, decltype(nullptr)) {}

inline constexpr driver_table drivers = [] {
    driver_table t;
#define ZVA_DRIVER_ENTRY(N, B, R, S, K, KERNEL, DRIVER) set_driver(t.N, ZVA_UNPAREN DRIVER);
    ZVA_ROUTINES(ZVA_DRIVER_ENTRY)
#undef ZVA_DRIVER_ENTRY
    return t;
}();

// Every threaded route has its driver, and no other route has one.
#define ZVA_DRIVEN_DSP false
#define ZVA_DRIVEN_CDSP false
#define ZVA_DRIVEN_DRV true
#define ZVA_DRIVEN_CDRV true
#define ZVA_DRIVER_CHECK(N, B, R, S, K, KERNEL, DRIVER)                        \
    static_assert(                                                             \
        !std::is_null_pointer_v<std::remove_cvref_t<decltype(ZVA_UNPAREN DRIVER)>> == \
            ZVA_DRIVEN_##R,                                                    \
        #N " driver column");
ZVA_ROUTINES(ZVA_DRIVER_CHECK)
#undef ZVA_DRIVER_CHECK

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
