// GEMV of branches 4 (SSSE3) and 5 (SSE4.1): 128-bit vectors, 16-byte
// boundary, no fused multiply-add.
//
// Branch 4's processors split an unaligned 16-byte load of doubles into
// several micro-ops, so D and Z read the matrix with two 64-bit half loads
// unless the address is 16-byte aligned, and each such loop has two copies:
// whole vectors on aligned data, halves on the rest; S ends its row loops
// with an unrolled fall-through of up to seven rows.  Branch 5's processors
// load an aligned movups as fast as movaps, and a line split costs less than
// a second copy of each loop: matrix data is read with unaligned 128-bit
// loads in every type.  S and C read unaligned 128-bit vectors in both.
//
// 32-bit code has eight xmm registers. The update form (not transposed)
// keeps the row block of y in registers and takes the column scalars
// alpha*x as memory operands where they do not fit; the dot form
// (transposed) keeps one accumulator per column plus x and two temporaries.
//
// Columns per pass:      S      D          C        Z
//   N, unit increments   4,1    8,4,2,1    4,2,1    4,2,1
//   N, other             4,1    4,1        2,1      2,1
//   T, unit increments   4,1    4,2,1      4,2,1    4,2,1
//   T, other             4,1    4,1        2,1      2,1
//   C, unit increments   -      -          4,2,1    2,1
//   C, other             -      -          2,1      2,1
//
// Sums. Not transposed: every row is the chain y + t0*a0 + t1*a1 + ... in
// column order, with t = alpha*x rounded once per column, on every path,
// so the column blocks and the alignment peels do not change any bit.
// Transposed: t = x0*a0, then the peel rows one by one into t, then one
// vector accumulator per column, started with its first product and fed
// in row order (eight rows a pass in branch 4's S), whose lanes are added
// to t in order, then the tail rows one by one; last y + alpha*t. In Z a
// vector is one element, so t itself takes every row in order. Complex
// products: (a*tr) addsub (swap(a)*ti), re = ar*tr - ai*ti, im = ai*tr +
// ar*ti; single elements of C and Z go through the same operation, those
// of S and D through mul, add.
namespace zva::ZVA_NS {
namespace {

using idx = ptrdiff_t;

// D and Z read A by 64-bit halves off the 16-byte boundary (branch 4).
constexpr bool halves = branch == 4;

// Each column block below is a function of its own (noinline): the
// register allocator then sees one pass at a time, and the passes stay
// free of spills.

using simd::load_halves;
using simd::load_pair;
using simd::store_pair;
using simd::swap_pairs;

// (a*tr) addsub (swap(a)*ti): the product of each complex lane of a with
// the complex (tr, ti), whose parts come broadcast.
inline __m128 c_mul(__m128 a, __m128 tr, __m128 ti) {
    return _mm_addsub_ps(_mm_mul_ps(a, tr), _mm_mul_ps(swap_pairs(a), ti));
}
inline __m128d z_mul(__m128d a, __m128d tr, __m128d ti) {
    return _mm_addsub_pd(_mm_mul_pd(a, tr), _mm_mul_pd(swap_pairs(a), ti));
}

#if ZVA_BRANCH == 4
// A vector of two doubles: one aligned move, or two 64-bit halves.
template <bool AL>
inline __m128d ld2(const double* p) {
    if constexpr (AL)
        return _mm_load_pd(p);
    else
        return load_halves(p, p + 1);
}
template <bool AL>
inline void st2(double* p, __m128d v) {
    if constexpr (AL) {
        _mm_store_pd(p, v);
    } else {
        _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_castpd_si128(v));
        _mm_storeh_pd(p + 1, v);
    }
}
#else
// Unaligned whole vectors; AL only names the copy a loop belongs to.
template <bool AL>
inline __m128d ld2(const double* p) {
    return _mm_loadu_pd(p);
}
template <bool AL>
inline void st2(double* p, __m128d v) {
    _mm_storeu_pd(p, v);
}
#endif

#include "level2/gemv/ssse3_scale.inl"

#if ZVA_BRANCH == 4
#include "level2/gemv/ssse3_blocks.inl"
#else
#include "level2/gemv/sse41_blocks.inl"
#endif

// Transposed, S and D: K dot products against x (unit or strided), added
// to y. Row 0 starts t; the last column of the block is brought to the
// 16-byte boundary by single rows (the others follow it when lda allows);
// the branch's dot_rows does the vector rows and the tail.
template <int K, bool XU, class R>
[[gnu::noinline]] void t_block(int m, R alpha, const R* c, idx lda, const R* x, idx incx, R* y,
                               idx incy) {
    // Branch 4's D rows index x; the others walk a pointer.
    constexpr bool x_indexed = halves && sizeof(R) == 8;
    constexpr int per16 = 16 / sizeof(R);
    const idx ix = XU ? 1 : incx;
    R t[K];
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) t[k] = x[0] * c[k * lda];
    if (m >= 2) {
        int i = 1;
        const R* xp = x + ix;
        auto row = [&]() {
            const R xv = x_indexed ? x[i * ix] : *xp;
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k) t[k] = t[k] + xv * c[k * lda + i];
            ++i;
            if constexpr (!x_indexed) xp += ix;
        };
        bool vec = false;
        if (m - 1 >= per16) {
            const unsigned pa = addr_bits(c + (K - 1) * lda + 1);
            if ((pa & (sizeof(R) - 1)) == 0) {
                vec = true;
                if constexpr (per16 == 4) {
                    for (int p = static_cast<int>(((0u - pa) & 15u) >> 2); p > 0; --p) row();
                } else {
                    if (pa & 8u) row();
                }
            }
        }
        dot_rows<K, XU>(vec, m, i, xp, ix, x, c, lda, t, row);
    }
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) y[k * incy] = y[k * incy] + alpha * t[k];
}

enum class op { n, t, c };

inline op letter(const char* trans) {
    const char t = *trans;
    if (t == 'N' || t == 'n') return op::n;
    if (t == 'T' || t == 't') return op::t;
    return op::c;
}

}  // namespace

#include "level2/gemv/ssse3_exports.inl"

}  // namespace zva::ZVA_NS
