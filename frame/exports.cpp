// The 174 exports.  Each is a stdcall function of its stack words that puts
// them in the internal order (character arguments in place, their hidden
// lengths moved to the end), runs the checker if the routine has one, and
// goes on to the driver or the dispatch point.  Function values pass through:
// x87 results stay on the x87 stack, integers and result slots in eax.
//
// The symbols are linked as "_DGEMM$60"; a step after linking renames them
// to the decorated "_DGEMM@60", which the assembler and linker do not accept.
#include <stddef.h>
#include <stdint.h>

#include <type_traits>
#include <utility>

#include "frame/routes.h"
#include "frame/words.h"

namespace zva {
namespace {

template <class A> [[gnu::always_inline]] inline A word_as(uint32_t w) {
    if constexpr (std::is_pointer_v<A>)
        return reinterpret_cast<A>((uintptr_t)w);
    else
        return (A)w;
}

template <class Sig> struct frame_of;
template <class R, class... A> struct frame_of<R(A...)> : word_layout<A...> {
    using word_layout<A...>::n;
    using word_layout<A...>::word_of;
    using fn = R (*)(A...);
    using chk = int (*)(A...);

    template <bool Checked, chk Check, fn Target>
    [[gnu::always_inline]] static inline R run(A... a) {
        if constexpr (Checked)
            if (Check(a...)) return R();
        return Target(a...);
    }

    template <bool Checked, chk Check, fn Target, std::size_t... J>
    [[gnu::always_inline]] static inline R call(const uint32_t* w,
                                                std::index_sequence<J...>) {
        return run<Checked, Check, Target>(word_as<A>(w[word_of(J)])...);
    }
};

template <class S> struct ret_of;
template <class R, class... A> struct ret_of<R(A...)> { using type = R; };

}  // namespace
}  // namespace zva

#define ZVA_CHECKED_DSP false
#define ZVA_CHECKED_DRV false
#define ZVA_CHECKED_CDSP true
#define ZVA_CHECKED_CDRV true
#define ZVA_TARGET_DSP(N, K) &ZVA_DP_TYPE(N, K)::call
#define ZVA_TARGET_CDSP(N, K) &ZVA_DP_TYPE(N, K)::call
#define ZVA_TARGET_DRV(N, K) zva::drivers.N
#define ZVA_TARGET_CDRV(N, K) zva::drivers.N

// Exports realign the stack: 32-bit callers may hand over only 4 bytes of
// alignment, and the kernels below keep vectors on it.
#define ZVA_EXPORT(N, B, R, S, K, ...)                                            \
    static_assert(4 * zva::frame_of<ZVA_SIG(S)>::n == B, #N " stack bytes");   \
    extern "C" __attribute__((visibility("default"), stdcall,                  \
                              force_align_arg_pointer))                        \
    typename zva::ret_of<ZVA_SIG(S)>::type zva_export_##N(ZVA_WORDS_##B)       \
        __asm__("_" #N "$" #B);                                                \
    typename zva::ret_of<ZVA_SIG(S)>::type zva_export_##N(ZVA_WORDS_##B) {     \
        const uint32_t w[] = {ZVA_NAMES_##B};                                  \
        using F = zva::frame_of<ZVA_SIG(S)>;                                   \
        return F::template call<ZVA_CHECKED_##R, zva::checkers.N,                       \
                       ZVA_TARGET_##R(N, K)>(                                  \
            w, std::make_index_sequence<F::n>());                              \
    }

ZVA_ROUTINES(ZVA_EXPORT)

#define ZVA_COUNT(...) +1
static_assert(0 ZVA_ROUTINES(ZVA_COUNT) == 174, "the library exports 174 routines");
