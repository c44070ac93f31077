// Internal argument lists by family: the published order, every argument by
// address, the hidden lengths of the character arguments at the end.  One
// alias per family serves all its types.
#pragma once
#include "frame/types.h"

namespace zva {

using I = const int*;   // INTEGER by address
using L = int;          // hidden length of a character argument, by value
using Ch = const char*; // character option; only its first byte counts

// Real type of a complex element (and the type itself for S and D).
template <class T> struct real_of { using type = T; };
template <> struct real_of<c32> { using type = float; };
template <> struct real_of<c64> { using type = double; };
template <class T> using R_ = typename real_of<T>::type;

// ---- level 1 -------------------------------------------------------------
template <class T> using sig_axpy = void(I, const T*, const T*, I, T*, I);
template <class T> using sig_copy = void(I, const T*, I, T*, I);
template <class T> using sig_swap = void(I, T*, I, T*, I);
template <class T> using sig_dot = T(I, const T*, I, const T*, I);
// Complex functions: the first word is the caller's result slot, handed back.
template <class T> using sig_cdot = T*(T*, I, const T*, I, const T*, I);
using sig_sdsdot = float(I, const float*, const float*, I, const float*, I);
using sig_dsdot = double(I, const float*, I, const float*, I);
template <class T, class A> using sig_scal = void(I, const A*, T*, I);
template <class T> using sig_asum = R_<T>(I, const T*, I);
template <class T> using sig_iamax = int(I, const T*, I);
template <class T, class C> using sig_rot = void(I, T*, I, T*, I, const C*, const C*);
template <class T> using sig_rotg = void(T*, T*, R_<T>*, T*);
template <class T> using sig_rotm = void(I, T*, I, T*, I, const T*);
template <class T> using sig_rotmg = void(T*, T*, T*, const T*, T*);
// ---- sparse level 1 --------------------------------------------------------
template <class T> using sig_axpyi = void(I, const T*, const T*, I, T*);
template <class T> using sig_doti = T(I, const T*, I, const T*);
template <class T> using sig_cdoti = T*(T*, I, const T*, I, const T*);
template <class T> using sig_gthr = void(I, const T*, T*, I);   // nz, y, x, indx
template <class T> using sig_gthrz = void(I, T*, T*, I);        // y is zeroed
template <class T> using sig_sctr = void(I, const T*, I, T*);   // nz, x, indx, y
template <class T> using sig_roti = void(I, T*, I, T*, const T*, const T*);
// ---- level 2 -------------------------------------------------------------
template <class T> using sig_gemv = void(Ch, I, I, const T*, const T*, I, const T*, I, const T*, T*, I, L);
// The GEMV kernels take the same list without the hidden length.
template <class T> using sig_gemv_k = void(Ch, I, I, const T*, const T*, I, const T*, I, const T*, T*, I);
template <class T> using sig_gbmv = void(Ch, I, I, I, I, const T*, const T*, I, const T*, I, const T*, T*, I, L);
template <class T> using sig_symv = void(Ch, I, const T*, const T*, I, const T*, I, const T*, T*, I, L);
template <class T> using sig_sbmv = void(Ch, I, I, const T*, const T*, I, const T*, I, const T*, T*, I, L);
template <class T> using sig_spmv = void(Ch, I, const T*, const T*, const T*, I, const T*, T*, I, L);
template <class T> using sig_trmv = void(Ch, Ch, Ch, I, const T*, I, T*, I, L, L, L);
template <class T> using sig_tbmv = void(Ch, Ch, Ch, I, I, const T*, I, T*, I, L, L, L);
template <class T> using sig_tpmv = void(Ch, Ch, Ch, I, const T*, T*, I, L, L, L);
template <class T> using sig_ger = void(I, I, const T*, const T*, I, const T*, I, T*, I);
template <class T, class A> using sig_syr = void(Ch, I, const A*, const T*, I, T*, I, L);
template <class T> using sig_syr2 = void(Ch, I, const T*, const T*, I, const T*, I, T*, I, L);
template <class T, class A> using sig_spr = void(Ch, I, const A*, const T*, I, T*, L);
template <class T> using sig_spr2 = void(Ch, I, const T*, const T*, I, const T*, I, T*, L);
// ---- level 3 -------------------------------------------------------------
template <class T> using sig_gemm = void(Ch, Ch, I, I, I, const T*, const T*, I, const T*, I, const T*, T*, I, L, L);
template <class T> using sig_symm = void(Ch, Ch, I, I, const T*, const T*, I, const T*, I, const T*, T*, I, L, L);
template <class T, class A> using sig_syrk = void(Ch, Ch, I, I, const A*, const T*, I, const A*, T*, I, L, L);
template <class T, class B> using sig_syr2k = void(Ch, Ch, I, I, const T*, const T*, I, const T*, I, const B*, T*, I, L, L);
template <class T> using sig_trmm = void(Ch, Ch, Ch, Ch, I, I, const T*, const T*, I, T*, I, L, L, L, L);

// ---- points inside the multiply engine ----------------------------------
struct gemm_context;
// gemm_serial: the export's thirteen arguments without the hidden lengths.
template <class T> using sig_gemm_serial = void(Ch, Ch, I, I, I, const T*, const T*, I, const T*, I, const T*, T*, I);
template <class T> using sig_gemm_scale_c = void(I, I, const T*, T*, I);
using sig_ctx_avail = int();
using sig_ctx_clear = void(gemm_context*);
using sig_ctx_load = void(gemm_context*);
template <class T> using sig_ctx_driver = int(Ch, Ch, I, I, I, const T*, const T*, I, const T*, I, const T*, T*, I, int, gemm_context*);
using sig_ctx_size = int(int which, int clamp, int m, int n, int k, gemm_context*);
using sig_ctx_store = void(gemm_context*, int mb, int nb, int kb);
// Parallel-region kernels: the routine's list, then the slice [first, last).
template <class T> using sig_syr_region = void(Ch, I, const T*, const T*, I, T*, I, int, int);
template <class T> using sig_syr2_region = void(Ch, I, const T*, const T*, I, const T*, I, T*, I, int, int);
template <class T> using sig_trmv_region = void(Ch, Ch, Ch, I, const T*, I, T*, I, T*, int, int);

}  // namespace zva

namespace zva {
// A signature written in parentheses, as the routine table holds them: the
// parenthesised function type becomes a pointer parameter, which is undone.
template <class> struct unparen;
template <class F> struct unparen<void(F*)> { using type = F; };
}  // namespace zva
#define ZVA_SIG(S) typename ::zva::unparen<void S>::type

// ---- registration helpers -------------------------------------------------
#define ZVA_UNPAREN(...) __VA_ARGS__

namespace zva {
// The driver column of a routine whose export goes to its dispatch point.
inline constexpr decltype(nullptr) no_driver = nullptr;

// One of four values by element type, in the order S, D, C, Z: the dispatch
// point a driver template runs for its type, say.
template <class T, auto S, auto D, auto C, auto Z>
inline constexpr auto by_type = [] {
    if constexpr (__is_same(T, float)) return S;
    else if constexpr (__is_same(T, double)) return D;
    else if constexpr (__is_same(T, c32)) return C;
    else return Z;
}();
}  // namespace zva

// Declarations that every branch namespace holds alike: the kernels of a
// family, declared once, e.g. ZVA_IN_EVERY_BRANCH(template <class T>
// sig_axpy<T> axpy;).  Each branch's recipe, or its override, defines them.
#define ZVA_IN_EVERY_BRANCH(...)                                               \
    namespace zva::b2 { __VA_ARGS__ }                                          \
    namespace zva::b3 { __VA_ARGS__ }                                          \
    namespace zva::b4 { __VA_ARGS__ }                                          \
    namespace zva::b5 { __VA_ARGS__ }                                          \
    namespace zva::b6 { __VA_ARGS__ }                                          \
    namespace zva::b7 { __VA_ARGS__ }

// Explicit instantiations of a template f<T> for the four element types.
#define ZVA_INSTANTIATE_TYPES(f)                                               \
    template decltype(f<float>) f<float>;                                      \
    template decltype(f<double>) f<double>;                                    \
    template decltype(f<::zva::c32>) f<::zva::c32>;                            \
    template decltype(f<::zva::c64>) f<::zva::c64>;

// Branch code is compiled with ZVA_BRANCH = 2 .. 7; ZVA_NS is its namespace
// (b2 .. b7), so that a recipe compiled for every branch defines each
// branch's own kernels.
#if defined(ZVA_BRANCH) && ZVA_BRANCH >= 2 && ZVA_BRANCH <= 7
#define ZVA_NS_CAT2(a, b) a##b
#define ZVA_NS_CAT(a, b) ZVA_NS_CAT2(a, b)
#define ZVA_NS ZVA_NS_CAT(b, ZVA_BRANCH)
#endif
