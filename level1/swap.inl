// SWAP, x <-> y, for S, D, C and Z on every branch: the kernels behind the
// four SWAP dispatch points.
//
// Every kernel: n <= 0 returns. Each pair of elements (or of vectors) is
// loaded, then both are stored, so x = y leaves the vector as it was. The
// general path starts both vectors by the BLAS rule and walks them in
// logical order.
//
// Register budget: eight vector registers; a pass holds four vectors of
// each operand at most.
//
// What differs between the branches (unit path; general path):
//   6, 7  from 16 real or 8 complex elements on, y peeled to 32 bytes and
//         128 bytes (D, Z) or 64 bytes (S, C) a pass, one more 32-byte
//         vector on 7, then singles; Z on 6 one element at a time.
//         General: 2 a pass (S, D), 1 (C, Z).
//   2..5  16-byte moves. D: 64 bytes a pass, aligned where both are. S:
//         same 16-byte phase, y peeled, 128 bytes then 16 a pass; other
//         phases on the x87 unit. C (also for incx = incy = -1): same phase,
//         128 bytes a pass, then 16, the last element on the x87 unit. Z:
//         64 bytes a pass with prefetch, the rest on the x87 unit.
//         General: x87 (C by 64-bit moves, its last elements on x87).
//         Where the x87 unit carries a value, a signalling NaN arrives quiet.
#include <immintrin.h>

#include "level1/kernels.h"
#include "level1/moves.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

template <class E> inline void swap_singles(size_t n, E* x, E* y) {
    for (; n > 0; --n, ++x, ++y) {
        const E a = *x, b = *y;
        *y = a;
        *x = b;
    }
}

#if ZVA_BRANCH >= 6
// Unit stride: shorter than a main pass, or y not on its element, singly;
// otherwise y peeled to 32 bytes, then passes of 16 real or 8 complex
// elements, on branch 7 one more 32-byte vector, then singles.
template <class E> bool unit(int n, E* x, E* y) {
    if constexpr (ZVA_BRANCH == 6 && sizeof(E) == 16) return false;  // one at a time
    constexpr int pass = sizeof(E) == 16 || (sizeof(E) == 8 && __is_same(E, c32)) ? 8 : 16;
    const int peel = n < pass ? -1 : peel_within(y, 32, n);
    if (peel < 0) {
        swap_singles(n, x, y);
        return true;
    }
    swap_singles(peel, x, y);
    byte* xb = (byte*)(x + peel);
    byte* yb = (byte*)(y + peel);
    size_t bytes = (size_t)(n - peel) * sizeof(E);
    swap_pass<v32, pass * sizeof(E) / 32, false, true>(xb, yb, bytes);
    if constexpr (ZVA_BRANCH == 7) swap_pass<v32, 1, false, true>(xb, yb, bytes);
    swap_singles(bytes / sizeof(E), (E*)xb, (E*)yb);
    return true;
}

template <class E> void general(int n, E* x, int incx, E* y, int incy) {
    if constexpr (sizeof(E) <= 8 && !__is_same(E, c32)) swap_strided<2>(n, x, incx, y, incy);
    swap_strided<1>(n, x, incx, y, incy);
}

#else
// Both on a 16-byte boundary, or both in the same phase after peel
// elements: aligned passes; ok false where the phases differ.
template <class E> int same_phase(const E* x, const E* y, int n, bool& ok) {
    ok = ((addr_bits(x) ^ addr_bits(y)) & 15u) == 0;
    const int peel = peel_within(y, 16, n);
    ok = ok && peel >= 0;
    return ok ? peel : 0;
}

template <class E> bool unit(int n, E* x, E* y) {
    byte* xb = (byte*)x;
    byte* yb = (byte*)y;
    size_t bytes = (size_t)n * sizeof(E);
    if constexpr (__is_same(E, double)) {
        if (((addr_bits(x) | addr_bits(y)) & 15u) == 0) swap_pass<v16, 4, true, true>(xb, yb, bytes);
        else swap_pass<v16, 4, false, false>(xb, yb, bytes);
        swap_singles(bytes / sizeof(E), (E*)xb, (E*)yb);
    } else if constexpr (__is_same(E, float) || __is_same(E, c32)) {
        bool ok;
        const int peel = same_phase(x, y, n, ok);
        if (!ok && __is_same(E, float)) {
            // Other phases: all on the x87 unit, 32 a pass, then 4, then singly.
            const int m = n & ~31;
            x87_swap<32, 0>(m, x, 1, y, 1);
            x87_swap<4, 0>(n - m, x + m, 1, y + m, 1);
            return true;
        }
        swap_singles(peel, x, y);
        xb += peel * sizeof(E);
        yb += peel * sizeof(E);
        bytes -= peel * sizeof(E);
        if (ok) {
            swap_pass<v16, 8, true, true>(xb, yb, bytes);
            swap_pass<v16, 1, true, true>(xb, yb, bytes);
        } else {
            swap_pass<v16, 8, false, false>(xb, yb, bytes);
            swap_pass<v16, 1, false, false>(xb, yb, bytes);
        }
        // S: up to three singles; C: one element, on the x87 unit.
        if constexpr (__is_same(E, float)) swap_singles(bytes / sizeof(E), (E*)xb, (E*)yb);
        else x87_swap<1, 0>(bytes / sizeof(E), (E*)xb, 1, (E*)yb, 1);
    } else {
        // Z: four elements a pass, prefetched 128 and 160 bytes ahead; the
        // rest on the x87 unit.
        constexpr int ahead = 128;
        if (((addr_bits(x) | addr_bits(y)) & 15u) == 0) swap_pass<v16, 4, true, true, ahead>(xb, yb, bytes);
        else swap_pass<v16, 4, false, false, ahead>(xb, yb, bytes);
        x87_swap<1, 0>(bytes / sizeof(E), (E*)xb, 1, (E*)yb, 1);
    }
    return true;
}

template <class E> void general(int n, E* x, int incx, E* y, int incy) {
    if constexpr (__is_same(E, c32)) {
        swap_strided<4>(n, x, incx, y, incy);  // 64-bit moves
        x87_swap<1, 0>(n, x, incx, y, incy);
    } else {
        // Four elements a pass for D and Z, with a prefetch four ahead;
        // five for S.
        constexpr bool four = sizeof(E) >= 8;
        x87_swap<four ? 4 : 5, four ? 4 : 0>(n, x, incx, y, incy);
    }
}
#endif

template <class E> void swap_kernel(const int* pn, E* x, const int* pincx, E* y, const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const int incx = *pincx, incy = *pincy;
    bool unit_path = incx == 1 && incy == 1;
#if ZVA_BRANCH <= 5
    // Single complex also for incx = incy = -1: walking both vectors forward
    // from the given pointers pairs the same elements.
    if constexpr (__is_same(E, c32)) unit_path = incx == incy && (incx == 1 || incx == -1);
#endif
    if (unit_path && unit(n, x, y)) return;
    general(n, x + vec_start(n, incx), incx, y + vec_start(n, incy), incy);
}

}  // namespace

template <> void swap<float>(const int* n, float* x, const int* incx, float* y, const int* incy) {
    swap_kernel(n, x, incx, y, incy);
}
template <> void swap<double>(const int* n, double* x, const int* incx, double* y, const int* incy) {
    swap_kernel(n, x, incx, y, incy);
}
template <> void swap<c32>(const int* n, c32* x, const int* incx, c32* y, const int* incy) {
    swap_kernel(n, x, incx, y, incy);
}
template <> void swap<c64>(const int* n, c64* x, const int* incx, c64* y, const int* incy) {
    swap_kernel(n, x, incx, y, incy);
}

}  // namespace zva::ZVA_NS
