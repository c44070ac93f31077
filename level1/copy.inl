// COPY, y := x, for S, D, C and Z on every branch: the kernels behind the
// four COPY dispatch points.
//
// Every kernel: n <= 0 returns. The general path starts both vectors by the
// BLAS rule and moves the elements in logical order, so incy = 0 leaves the
// last element of x in y[0] and incx = 0 spreads x[0]. A complex unit-stride
// copy is the real copy of its own branch on the 2n parts.
//
// Register budget: eight vector registers; a pass keeps four vectors (the
// shifted loop of branch 5 one more, carried) and nothing else.
//
// What differs between the branches (unit path; general path):
//   6, 7  from 13 doubles or 25 singles on (13 and 7 complex), one block
//         move of the bytes: y peeled to 32 bytes, 128 bytes a pass,
//         non-temporal stores once x and y together outgrow the last-level
//         cache; shorter vectors go one vector a pass (32 bytes on 7, 16 on
//         6), then singly; branch 6 reads x in 128-bit halves.
//         General: 2 a pass; C (and Z on 7) 16 a pass from 16 on.
//   5     y peeled to 16 bytes, 256 bytes a pass; an x in another phase is
//         read by aligned loads joined by palignr. General: 1 a pass.
//   2..4  16-byte moves, aligned where x and y share a phase; the general
//         path of S and D on the x87 unit (D with a non-temporal prefetch),
//         so a signalling NaN arrives quiet there.
#include <immintrin.h>

#include "frame/cpu.h"
#include "level1/kernels.h"
#include "level1/moves.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

template <class R> inline void singles(size_t n, const R* x, R* y) {
    for (; n > 0; --n) *y++ = *x++;
}

#if ZVA_BRANCH >= 6
// A 32-byte x vector: branch 6 reads it in 128-bit halves, since on
// AVX-only cores a 256-bit load that splits a cache line costs far more.
inline __m256i load_x(const byte* p) {
#if ZVA_BRANCH == 7
    return v32::load<false>(p);
#else
    return _mm256_insertf128_si256(_mm256_castsi128_si256(v16::load<false>(p)),
                                   v16::load<false>(p + 16), 1);
#endif
}

// Streaming y past the caches pays once x and y together outgrow the
// last-level cache: the copy evicts everything anyway, and the stores then
// need not read y's old lines first.
constexpr size_t stream_floor = 1u << 20;   // bytes; below it caches win
constexpr int unknown_cache = 8 << 20;      // bytes, when none is reported
inline bool stream_y(size_t bytes) {
    if (bytes < stream_floor) return false;
    const int llc = cpu_cache_size(0);
    return 2.0 * (double)bytes > (double)(llc > 0 ? llc : unknown_cache);
}

template <bool NT> void block_pass(const byte*& x, byte*& y, size_t& bytes) {
    for (; bytes >= 128; bytes -= 128, x += 128, y += 128) {
        const __m256i r0 = load_x(x), r1 = load_x(x + 32);
        const __m256i r2 = load_x(x + 64), r3 = load_x(x + 96);
        __m256i* p = reinterpret_cast<__m256i*>(y);
        if constexpr (NT) {
            _mm256_stream_si256(p, r0);
            _mm256_stream_si256(p + 1, r1);
            _mm256_stream_si256(p + 2, r2);
            _mm256_stream_si256(p + 3, r3);
        } else {
            _mm256_store_si256(p, r0);
            _mm256_store_si256(p + 1, r1);
            _mm256_store_si256(p + 2, r2);
            _mm256_store_si256(p + 3, r3);
        }
    }
}

// One block move of at least 32 bytes. A first unaligned vector covers the
// bytes up to y's next 32-byte boundary and a last one the bytes after the
// last whole vector; in between, aligned stores. The end vectors store
// some bytes twice, with the same value.
void block_move(const byte* x, byte* y, size_t bytes) {
    const byte* const xl = x + bytes - 32;
    byte* const yl = y + bytes - 32;
    v32::store<false>(y, load_x(x));
    const unsigned head = (32u - (addr_bits(y) & 31u)) & 31u;
    x += head;
    y += head;
    bytes -= head;
    if (stream_y(bytes)) {
        block_pass<true>(x, y, bytes);
        _mm_sfence();  // the streamed lines before any later store
    } else {
        block_pass<false>(x, y, bytes);
    }
    for (; bytes >= 32; bytes -= 32, x += 32, y += 32) v32::store<true>(y, load_x(x));
    if (bytes) v32::store<false>(yl, load_x(xl));
}

// The block move takes over above 96 bytes: from 13 doubles, 25 singles.
constexpr size_t block_above = 96;
#if ZVA_BRANCH == 7
using vshort = v32;
#else
using vshort = v16;
#endif

template <class R> void unit(int n, const R* x, R* y) {
    if (x == y) return;  // a copy onto itself changes nothing
    size_t bytes = (size_t)n * sizeof(R);
    if (bytes > block_above) return block_move((const byte*)x, (byte*)y, bytes);
    const byte* xb = (const byte*)x;
    byte* yb = (byte*)y;
    copy_pass<vshort, 1, false, false>(xb, yb, bytes);
    singles(bytes / sizeof(R), (const R*)xb, (R*)yb);
}

#elif ZVA_BRANCH == 5
// x S bytes past a 16-byte boundary, y on one: 256 bytes a pass from
// aligned loads, each vector joined from the carried one and the next.
// The first carried vector is x's own first 16 bytes moved up, so nothing
// before x is read; the pass runs while its last load lies within x.
template <int S> void shifted(const byte*& x, byte*& y, size_t& bytes) {
    if (bytes < 256 + 16 - S) return;
    __m128i prev = _mm_slli_si128(v16::load<false>(x), S);
    const byte* xa = x + (16 - S);
    do {
#pragma GCC unroll 16
        for (int j = 0; j < 256; j += 16) {
            const __m128i cur = v16::load<true>(xa + j);
            v16::store<true>(y + j, _mm_alignr_epi8(cur, prev, S));
            prev = cur;
        }
        x += 256;
        xa += 256;
        y += 256;
        bytes -= 256;
    } while (bytes >= 256 + 16 - S);
}

template <int S> void shifted_then_pairs(const byte*& x, byte*& y, size_t& bytes) {
    shifted<S>(x, y, bytes);
    copy_pass<v16, 2, false, true>(x, y, bytes);
}

// x and y aligned to their element.
template <class R> void unit(int n, const R* x, R* y) {
    const int peel = peel_within(y, 16, n);
    singles(peel, x, y);
    const byte* xb = (const byte*)(x + peel);
    byte* yb = (byte*)(y + peel);
    size_t bytes = (size_t)(n - peel) * sizeof(R);
    switch (addr_bits(xb) & 15u) {
        case 0:
            copy_pass<v16, 16, true, true>(xb, yb, bytes);
            copy_pass<v16, 1, true, true>(xb, yb, bytes);
            break;
        case 8: shifted_then_pairs<8>(xb, yb, bytes); break;
        case 4:
            if constexpr (sizeof(R) == 4) shifted_then_pairs<4>(xb, yb, bytes);
            break;
        default:
            if constexpr (sizeof(R) == 4) shifted_then_pairs<12>(xb, yb, bytes);
            break;
    }
    singles(bytes / sizeof(R), (const R*)xb, (R*)yb);
}

#else
// D: 64 bytes a pass, aligned with a cascade of 32 and 16 where x and y are
// both on a 16-byte boundary, unaligned otherwise. S: y peeled to 16 bytes
// (y aligned to its element), 128 bytes a pass, then 16.
template <class R> void unit(int n, const R* x, R* y) {
    int peel = 0;
    if constexpr (sizeof(R) == 4) {
        peel = peel_within(y, 16, n);
        singles(peel, x, y);
    }
    const byte* xb = (const byte*)(x + peel);
    byte* yb = (byte*)(y + peel);
    size_t bytes = (size_t)(n - peel) * sizeof(R);
    const bool xa = (addr_bits(xb) & 15u) == 0, ya = (addr_bits(yb) & 15u) == 0;
    if constexpr (sizeof(R) == 8) {
        if (xa && ya) {
            copy_pass<v16, 4, true, true>(xb, yb, bytes);
            copy_pass<v16, 2, true, true>(xb, yb, bytes);
            copy_pass<v16, 1, true, true>(xb, yb, bytes);
        } else {
            copy_pass<v16, 4, false, false>(xb, yb, bytes);
        }
    } else if (xa) {
        copy_pass<v16, 8, true, true>(xb, yb, bytes);
        copy_pass<v16, 1, true, true>(xb, yb, bytes);
    } else {
        copy_pass<v16, 8, false, true>(xb, yb, bytes);
        copy_pass<v16, 1, false, true>(xb, yb, bytes);
    }
    singles(bytes / sizeof(R), (const R*)xb, (R*)yb);
}
#endif

// Strided S and D, from the start rule on.
template <class R> void general(int n, const R* x, int incx, R* y, int incy) {
#if ZVA_BRANCH >= 6
    copy_strided<2>(n, x, incx, y, incy);
    copy_strided<1>(n, x, incx, y, incy);
#elif ZVA_BRANCH == 5
    copy_strided<1>(n, x, incx, y, incy);
#else
    if constexpr (sizeof(R) == 8) x87_copy<4, 4>(n, x, incx, y, incy);
    else x87_copy<5, 0>(n, x, incx, y, incy);
#endif
}

template <class R> void real_copy(const int* pn, const R* x, const int* pincx, R* y,
                                  const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1) {
#if ZVA_BRANCH >= 2 && ZVA_BRANCH <= 5
        // The 16-byte paths need y on its element: only a wrongly aligned
        // y falls to the general path.
        if (addr_bits(y) % sizeof(R) == 0 && (ZVA_BRANCH < 5 || addr_bits(x) % sizeof(R) == 0))
#endif
            return unit(n, x, y);
    }
    general(n, x + vec_start(n, incx), incx, y + vec_start(n, incy), incy);
}

// Complex: the unit path is the real copy of 2n parts. Strided: whole
// elements (64 or 128 bits), in passes of 16 on the 256-bit branches (C on
// 6 and 7, Z on 7), then 8 (C on 7), then 2.
template <class C> void complex_copy(const int* pn, const C* x, const int* pincx, C* y,
                                     const int* pincy) {
    int n = *pn;
    if (n <= 0) return;
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1) {
        static const int one = 1;
        const int parts = 2 * n;
        return copy<R_<C>>(&parts, &x->re, &one, &y->re, &one);
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    constexpr bool wide_c = ZVA_BRANCH >= 6 && sizeof(C) == 8;
    constexpr bool wide_z = ZVA_BRANCH == 7 && sizeof(C) == 16;
    if (wide_c || wide_z) {
        if (incx != 0 && incy != 0 && n >= 16) {
            copy_strided<16>(n, x, incx, y, incy);
            if constexpr (ZVA_BRANCH == 7 && wide_c) copy_strided<8>(n, x, incx, y, incy);
        }
    }
    copy_strided<2>(n, x, incx, y, incy);
    copy_strided<1>(n, x, incx, y, incy);
}

}  // namespace

template <> void copy<float>(const int* n, const float* x, const int* incx, float* y,
                             const int* incy) {
    real_copy(n, x, incx, y, incy);
}
template <> void copy<double>(const int* n, const double* x, const int* incx, double* y,
                              const int* incy) {
    real_copy(n, x, incx, y, incy);
}
template <> void copy<c32>(const int* n, const c32* x, const int* incx, c32* y, const int* incy) {
    complex_copy(n, x, incx, y, incy);
}
template <> void copy<c64>(const int* n, const c64* x, const int* incx, c64* y, const int* incy) {
    complex_copy(n, x, incx, y, incy);
}

}  // namespace zva::ZVA_NS
