// Moves of COPY and SWAP: elements go from one place to another as bits,
// by whole vectors where the operands allow, by single elements elsewhere.
// Nothing is computed, so every path gives the same bits, except where the
// x87 unit carries a value: a signalling NaN arrives quiet there.
//
// Included only by branch code, in an unnamed namespace: each branch object
// gets its own copy, compiled with that branch's flags.
#pragma once
#include <immintrin.h>

#include <cstddef>

#include "frame/scalar.h"
#include "frame/signatures.h"

namespace zva {
namespace {

using byte = unsigned char;

// A vector of 16 or 32 bytes (128 or 256 bits) moved as bits; A: the
// address is a multiple of its size.
struct v16 {
    using v = __m128i;
    static constexpr int B = 16;
    template <bool A> static v load(const byte* p) {
        if constexpr (A) return _mm_load_si128(reinterpret_cast<const v*>(p));
        else return _mm_loadu_si128(reinterpret_cast<const v*>(p));
    }
    template <bool A> static void store(byte* p, v x) {
        if constexpr (A) _mm_store_si128(reinterpret_cast<v*>(p), x);
        else _mm_storeu_si128(reinterpret_cast<v*>(p), x);
    }
};
#ifdef __AVX__
struct v32 {
    using v = __m256i;
    static constexpr int B = 32;
    template <bool A> static v load(const byte* p) {
        if constexpr (A) return _mm256_load_si256(reinterpret_cast<const v*>(p));
        else return _mm256_loadu_si256(reinterpret_cast<const v*>(p));
    }
    template <bool A> static void store(byte* p, v x) {
        if constexpr (A) _mm256_store_si256(reinterpret_cast<v*>(p), x);
        else _mm256_storeu_si256(reinterpret_cast<v*>(p), x);
    }
};
#endif

// Passes of U vectors of V while `bytes` holds that many: loads, then
// stores, four vectors at a time. AX, AY: x or y aligned to V.
template <class V, int U, bool AX, bool AY>
inline void copy_pass(const byte*& x, byte*& y, size_t& bytes) {
    constexpr int G = U < 4 ? U : 4;
    for (; bytes >= U * V::B; bytes -= U * V::B, x += U * V::B, y += U * V::B) {
#pragma GCC unroll 4
        for (int g = 0; g < U; g += G) {
            typename V::v r[G];
#pragma GCC unroll 4
            for (int j = 0; j < G; ++j) r[j] = V::template load<AX>(x + (g + j) * V::B);
#pragma GCC unroll 4
            for (int j = 0; j < G; ++j) V::template store<AY>(y + (g + j) * V::B, r[j]);
        }
    }
}

// The same for SWAP: U vectors of each operand loaded, then both stored,
// so x = y leaves both as they were. PF > 0: x and y are prefetched PF and
// PF + 32 bytes ahead at the start of each pass.
template <class V, int U, bool AX, bool AY, int PF = 0>
inline void swap_pass(byte*& x, byte*& y, size_t& bytes) {
    constexpr int G = U < 4 ? U : 4;  // vectors of each operand in registers
    for (; bytes >= U * V::B; bytes -= U * V::B, x += U * V::B, y += U * V::B) {
        if constexpr (PF > 0) {
            _mm_prefetch(reinterpret_cast<const char*>(x + PF), _MM_HINT_T0);
            _mm_prefetch(reinterpret_cast<const char*>(y + PF), _MM_HINT_T0);
            _mm_prefetch(reinterpret_cast<const char*>(x + PF + 32), _MM_HINT_T0);
            _mm_prefetch(reinterpret_cast<const char*>(y + PF + 32), _MM_HINT_T0);
        }
#pragma GCC unroll 4
        for (int g = 0; g < U; g += G) {
            typename V::v a[G], b[G];
#pragma GCC unroll 4
            for (int j = 0; j < G; ++j) {
                a[j] = V::template load<AX>(x + (g + j) * V::B);
                b[j] = V::template load<AY>(y + (g + j) * V::B);
            }
#pragma GCC unroll 4
            for (int j = 0; j < G; ++j) {
                V::template store<AY>(y + (g + j) * V::B, a[j]);
                V::template store<AX>(x + (g + j) * V::B, b[j]);
            }
        }
    }
}

// Strided passes of K elements of type E while n holds K, in logical order:
// with incy = 0 the last element stored is the last of x.
template <int K, class E>
inline void copy_strided(int& n, const E*& x, int incx, E*& y, int incy) {
    for (; n >= K; n -= K) {
#pragma GCC unroll 16
        for (int j = 0; j < K; ++j, x += incx, y += incy) *y = *x;
    }
}
template <int K, class E>
inline void swap_strided(int& n, E*& x, int incx, E*& y, int incy) {
    for (; n >= K; n -= K) {
#pragma GCC unroll 16
        for (int j = 0; j < K; ++j, x += incx, y += incy) {
            const E a = *x, b = *y;
            *y = a;
            *x = b;
        }
    }
}

// Elements before p reaches a multiple of `to` bytes, at most n; -1 when p
// is not aligned to its element and never will be.
template <class E> inline int peel_within(const E* p, unsigned to, int n) {
    const unsigned r = addr_bits(p) & (to - 1);
    if (r % sizeof(E)) return -1;
    const int e = static_cast<int>(((to - r) & (to - 1)) / sizeof(E));
    return e < n ? e : n;
}

#if ZVA_BRANCH <= 5
// ---- the x87 unit (branches 2 to 5) ---------------------------------------
// Every real part is loaded onto the x87 stack and stored from it (fld,
// fstp): SSE2 is off in these functions, so the compiler cannot turn the
// moves into integer or SSE moves. E is real or complex; a complex element
// moves as its two parts. K elements a pass, then singles; a non-temporal
// prefetch of x and y, PF elements ahead, opens each pass where PF > 0.
#define ZVA_X87 __attribute__((target("fpmath=387,no-sse2"), noinline))

template <class E> using part_of = R_<E>;
template <class E> inline constexpr int parts = sizeof(E) / sizeof(part_of<E>);

// One element through the stack; a macro, since an inline function without
// the x87 target would not be inlined into these.
#define ZVA_X87_COPY1(x, y)                                        \
    for (int p = 0; p < parts<E>; ++p) {                           \
        const long double t = reinterpret_cast<const R*>(x)[p];    \
        reinterpret_cast<R*>(y)[p] = static_cast<R>(t);            \
    }
// Both elements of a pair are on the stack before either is stored, so
// x = y leaves the element as it was (apart from a quieted NaN).
#define ZVA_X87_SWAP1(x, y)                                        \
    {                                                              \
        R* xp = reinterpret_cast<R*>(x);                           \
        R* yp = reinterpret_cast<R*>(y);                           \
        long double a[parts<E>], b[parts<E>];                      \
        for (int p = 0; p < parts<E>; ++p) a[p] = xp[p], b[p] = yp[p]; \
        for (int p = 0; p < parts<E>; ++p) {                       \
            yp[p] = static_cast<R>(a[p]);                          \
            xp[p] = static_cast<R>(b[p]);                          \
        }                                                          \
    }
#define ZVA_X87_LOOP(ONE, RW)                                      \
    using R = part_of<E>;                                          \
    for (; n >= K; n -= K) {                                       \
        if constexpr (PF > 0) {                                    \
            __builtin_prefetch(x + PF * incx, RW, 0);              \
            __builtin_prefetch(y + PF * incy, 1, 0);               \
        }                                                          \
        _Pragma("GCC unroll 32")                                   \
        for (int j = 0; j < K; ++j, x += incx, y += incy) ONE(x, y) \
    }                                                              \
    for (; n > 0; --n, x += incx, y += incy) ONE(x, y)

template <int K, int PF, class E>
ZVA_X87 void x87_copy(int n, const E* x, int incx, E* y, int incy) {
    ZVA_X87_LOOP(ZVA_X87_COPY1, 0);
}
template <int K, int PF, class E>
ZVA_X87 void x87_swap(int n, E* x, int incx, E* y, int incy) {
    ZVA_X87_LOOP(ZVA_X87_SWAP1, 1);
}
#undef ZVA_X87_COPY1
#undef ZVA_X87_SWAP1
#undef ZVA_X87_LOOP
#undef ZVA_X87
#endif

}  // namespace
}  // namespace zva
