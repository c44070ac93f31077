// Element types and the shape of a strided vector, shared by every layer.
#pragma once
#include <cstdint>

namespace zva {

// Complex elements: real part first, as callers store them.
struct c32 { float re, im; };
struct c64 { double re, im; };

// Offset of the first logical element of a strided vector, in elements:
// a negative increment walks the vector from its far end.
inline constexpr long long vec_start(int n, int inc) {
    return inc >= 0 ? 0 : (long long)(1 - n) * inc;
}

}  // namespace zva
