// Scalar tests and address arithmetic that kernels and drivers share.
//
// Unnamed namespace on purpose: every object that includes this gets its
// own copy, compiled with its own instruction-set flags, so the linker can
// never hand baseline code an AVX copy of a helper (or the reverse).
#pragma once
#include <cstdint>

#include "frame/types.h"

namespace zva {
namespace {

// Exact compares: a NaN is neither zero nor one.
template <class T> constexpr bool is_zero(const T& x) {
    if constexpr (requires { x.re; }) return x.re == 0 && x.im == 0;
    else return x == 0;
}
template <class T> constexpr bool is_one(const T& x) {
    if constexpr (requires { x.re; }) return x.re == 1 && x.im == 0;
    else return x == 1;
}

// The low bits of an address, for alignment tests.
inline unsigned addr_bits(const void* p) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p));
}

// Elements of size elem to step over before p sits on an align-byte
// boundary (a power of two), or -1 when it never will (p not aligned to its
// element size).
inline int peel_to(const void* p, unsigned align, unsigned elem) {
    const unsigned r = addr_bits(p) & (align - 1);
    if (r == 0) return 0;
    if (r % elem) return -1;
    return static_cast<int>((align - r) / elem);
}
inline int peel_to_32(const void* p, unsigned elem) { return peel_to(p, 32, elem); }

// The same count capped at limit, and 0 where no peel helps: the caller
// then simply starts its vector loop at once.
template <class T> int peel_to_32_within(const T* p, int limit) {
    const unsigned off = (32u - (addr_bits(p) & 31u)) & 31u;
    if (off % sizeof(T)) return 0;
    const int e = static_cast<int>(off / sizeof(T));
    return e < limit ? e : limit;
}

}  // namespace
}  // namespace zva
