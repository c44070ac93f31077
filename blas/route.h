// The way from the companion's entries to libzva_m.so: each routine's
// decorated export, called with its real stack order, and the checks that
// name the parameter zva rejects.  Everything per routine is expanded from
// frame/routines.h.
#pragma once
#include <stddef.h>
#include <stdint.h>

#include <type_traits>
#include <utility>

#include "frame/check_table.h"
#include "frame/routines.h"
#include "frame/words.h"

namespace zva::blas {

enum routine_id {
#define ZVA_BLAS_ID(N, ...) id_##N,
    ZVA_ROUTINES(ZVA_BLAS_ID)
#undef ZVA_BLAS_ID
    routine_count
};

inline constexpr const char* routine_names[] = {
#define ZVA_BLAS_NAME(N, ...) #N,
    ZVA_ROUTINES(ZVA_BLAS_NAME)
#undef ZVA_BLAS_NAME
};

// The check family of each routine, null for the 78 without a checker.
// Whether a routine has one is kept apart as a plain flag: with the
// sanitizers on, g++ no longer folds the test of an address against null.
struct family_table {
    const check_family* of[routine_count] = {};
    bool checked[routine_count] = {};
};
inline constexpr family_table families = [] {
    family_table t;
#define ZVA_BLAS_FAMILY(N, family) t.of[id_##N] = &checks::family, t.checked[id_##N] = true;
    ZVA_CHECKED(ZVA_BLAS_FAMILY)
#undef ZVA_BLAS_FAMILY
    return t;
}();

template <class Sig> struct ret_of;
template <class R, class... A> struct ret_of<R(A...)> { using type = R; };

}  // namespace zva::blas

// The decorated exports by their placeholder names: after linking,
// tools/elf_decorate turns "_DGEMM$60" into "_DGEMM@60" in this library as in
// libzva_m.so (the assembler reads '@' as a version mark), and the dynamic
// loader binds the two.
#define ZVA_BLAS_IMPORT(N, B, R, S, ...)                                       \
    extern "C" __attribute__((stdcall))                                        \
    typename ::zva::blas::ret_of<ZVA_SIG(S)>::type zva_import_##N(ZVA_WORDS_##B) \
        __asm__("_" #N "$" #B);
ZVA_ROUTINES(ZVA_BLAS_IMPORT)
#undef ZVA_BLAS_IMPORT

namespace zva::blas {

template <routine_id Id, class Sig, auto Import> struct route;
template <routine_id Id, class R, class... A, auto Import>
struct route<Id, R(A...), Import> : word_layout<A...> {
    static constexpr routine_id id = Id;
    using word_layout<A...>::n;
    using word_layout<A...>::internal_of;
    static constexpr const check_family* family = families.of[Id];
    static constexpr bool checked = families.checked[Id];

    template <size_t... S>
    [[gnu::always_inline]] static inline R words(const uintptr_t* in, std::index_sequence<S...>) {
        return Import(in[internal_of(S)]...);
    }
    // The export, given the internal list.
    static R forward(const uintptr_t* in) { return words(in, std::make_index_sequence<n>()); }
    // The parameter that zva's checker rejects, 0 if none: the same table
    // and the same code as the checker itself.
    static int fault(const uintptr_t* in) {
        if constexpr (checked) return check_find(*family, in);
        else return 0;
    }
    // Typed entry for the C interface: a checked routine returns the
    // rejected parameter (0 if the call went through), others their value.
    static auto call(A... a) {
        const uintptr_t in[] = {(uintptr_t)a...};
        if constexpr (checked) {
            const int p = fault(in);
            forward(in);  // a rejected call still prints zva's own message
            return p;
        } else {
            return forward(in);
        }
    }
};

namespace routes {
#define ZVA_BLAS_ROUTE(N, B, R, S, ...) using N = route<id_##N, ZVA_SIG(S), &zva_import_##N>;
ZVA_ROUTINES(ZVA_BLAS_ROUTE)
#undef ZVA_BLAS_ROUTE
}  // namespace routes

// The routines in the internal order, typed: f77::DGEMM(&ta, &tb, &m, ...,
// 1, 1).
namespace f77 {
#define ZVA_BLAS_ENTRY(N, ...) inline constexpr auto N = &routes::N::call;
ZVA_ROUTINES(ZVA_BLAS_ENTRY)
#undef ZVA_BLAS_ENTRY
}  // namespace f77

// A fault zva reported, passed on to the published XERBLA with zva's name
// and number; from a C interface routine with its layout (row-major or not).
void report_fortran(routine_id id, int param);
void report_cblas(routine_id id, int param, bool row);

}  // namespace zva::blas
