// Dispatch points: one lazily resolved kernel pointer per routine and role,
// with six targets, one per branch.  After the first call a point costs a
// load, a test and a jump; it never touches the caller's arguments.
#pragma once
#include <type_traits>

#include "frame/cpu.h"
#include "frame/routines.h"

namespace zva {

// Every dispatch point: the main point of each routine, then the inner ones.
enum point_id {
#define ZVA_PID(N, ...) pid_##N,
    ZVA_ROUTINES(ZVA_PID) ZVA_INNER_POINTS(ZVA_PID)
#undef ZVA_PID
    point_count
};
static_assert(point_count == 210, "the library has 210 dispatch points");

extern const char* const point_names[point_count];

// What one branch offers at each point; the routine table names a kernel
// for every point on every branch.
struct kernel_table {
#define ZVA_ROUTINE_MEMBER(N, B, R, S, K, ...) ZVA_SIG(K)* N;
#define ZVA_INNER_MEMBER(N, S, ...) ZVA_SIG(S)* N;
    ZVA_ROUTINES(ZVA_ROUTINE_MEMBER)
    ZVA_INNER_POINTS(ZVA_INNER_MEMBER)
#undef ZVA_ROUTINE_MEMBER
#undef ZVA_INNER_MEMBER
};

// A table entry takes a function of the point's type, never a null.
template <class F> constexpr void set_kernel(F*& slot, std::type_identity_t<F>* f) { slot = f; }
template <class F> void set_kernel(F*&, decltype(nullptr)) = delete;

// The tables of branches 2 to 7, in that order.
extern const kernel_table* const branch_tables[6];

}  // namespace zva

// Each branch's own table, filled from the routine table.
ZVA_IN_EVERY_BRANCH(extern const kernel_table table;)

namespace zva {

// Stand-ins for operations a branch does not have.
void kernel_empty(...);
int kernel_false(...);
int kernel_true(...);

// The same, typed for one point: returns at once, with 0 where a value is
// expected.
template <class Sig> struct stand_in;
template <class R, class... A> struct stand_in<R(A...)> {
    static R none(A...) {
        if constexpr (!__is_same(R, void)) return R(0);
    }
};

[[noreturn]] void dispatch_bad_branch();

template <auto Member, point_id Id, class Sig> struct dispatch_point;

template <auto Member, point_id Id, class R, class... A>
struct dispatch_point<Member, Id, R(A...)> {
    using fn = R (*)(A...);
    static inline fn kernel = nullptr;

    [[gnu::noinline, gnu::cold]] static fn resolve() {
        int b = cpu_branch();
        if (b < 2 || b > 7) dispatch_bad_branch();
        fn k = branch_tables[b - 2]->*Member;
        __atomic_store_n(&kernel, k, __ATOMIC_RELAXED);
        return k;
    }

    static R call(A... a) {
        fn k = __atomic_load_n(&kernel, __ATOMIC_RELAXED);
        if (__builtin_expect(k == nullptr, 0)) k = resolve();
        return k(a...);
    }
};

}  // namespace zva

// The dispatch points by name, called like the kernels themselves:
// zva::dp::DAXPY(n, alpha, x, incx, y, incy), zva::dp::dgemm_scale_c(...).
#define ZVA_DP_TYPE(N, K)                                                      \
    ::zva::dispatch_point<&::zva::kernel_table::N, ::zva::pid_##N, ZVA_SIG(K)>
namespace zva::dp {
#define ZVA_DP_ROUTINE(N, B, R, S, K, ...) inline constexpr auto N = &ZVA_DP_TYPE(N, K)::call;
#define ZVA_DP_INNER(N, S, ...) inline constexpr auto N = &ZVA_DP_TYPE(N, S)::call;
ZVA_ROUTINES(ZVA_DP_ROUTINE)
ZVA_INNER_POINTS(ZVA_DP_INNER)
#undef ZVA_DP_ROUTINE
#undef ZVA_DP_INNER
}  // namespace zva::dp
