// AXPY of branches 4 (SSSE3) and 5 (SSE4.1): 128-bit vectors, no fused
// multiply-add.
//
// Register budget: eight xmm registers in 32-bit code. A pass keeps alpha
// (complex: ar, ai and the sign mask), the carried x vector of the shifted
// loops and two or three working vectors.
//
// Both branches need x and y aligned to their element for the unit path of
// S and D, peel y to 16 bytes and read an x of another phase by aligned
// loads joined in registers. Multiply and add are separate: real y +
// alpha*x on every path. Complex: (y + ar*x) + sign*(ai*swap(x)), the sign
// applied to the product, so the real lane is (y_re + ar*x_re) - ai*x_im and
// the imaginary lane (y_im + ar*x_im) + ai*x_re, bit for bit what the scalar
// code computes, in any rounding mode. So no result depends on the path that
// took it.
//
// What differs, in the branch's own text (s_unit_shifted, d_unit and the C
// and Z kernels):
//   branch 4  ssse3_aligned.inl    no unaligned 16-byte move anywhere: x
//                                  joined by palignr, tails too; a y off the
//                                  16-byte boundary moved in 8-byte halves;
//                                  CAXPY behind a thin entry, ZAXPY in two
//                                  kernels picked by the micro-architecture
//   branch 5  sse41_unaligned.inl  x joined by shufps or palignr in the main
//                                  pass only; tails and complex operands
//                                  off the boundary go by movups
namespace zva::ZVA_NS {
namespace {

inline void s_one(float a, const float* x, float* y) { *y = *y + a * *x; }
inline void d_one(double a, const double* x, double* y) { *y = *y + a * *x; }

// Both parts of x are read before y is written: x may be y itself.
inline void c_one(float ar, float ai, const c32* x, c32* y) {
    const float xr = x->re, xi = x->im;
    const float re = (y->re + ar * xr) - ai * xi;
    const float im = (y->im + ar * xi) + ai * xr;
    y->re = re;
    y->im = im;
}

inline __m128 s_step(__m128 yv, __m128 xv, __m128 a) {
    return _mm_add_ps(yv, _mm_mul_ps(xv, a));
}
inline __m128d d_step(__m128d yv, __m128d xv, __m128d a) {
    return _mm_add_pd(yv, _mm_mul_pd(xv, a));
}

// pshufd swaps re and im without a register copy (shufps needs one, and the
// allocator adds a second); where x is not aligned the compiler reads it
// twice instead, an L1 load cheaper than the two moves.
inline __m128 c_step(__m128 yv, __m128 xv, __m128 ar, __m128 ai, __m128 sg) {
    const __m128 sw = _mm_castsi128_ps(_mm_shuffle_epi32(_mm_castps_si128(xv), 0xB1));
    const __m128 s = _mm_add_ps(yv, _mm_mul_ps(xv, ar));
    return _mm_add_ps(s, _mm_xor_ps(_mm_mul_ps(sw, ai), sg));
}
inline __m128d z_step(__m128d yv, __m128d xv, __m128d ar, __m128d ai, __m128d sg) {
    const __m128d sw = _mm_castsi128_pd(_mm_shuffle_epi32(_mm_castpd_si128(xv), 0x4E));
    const __m128d s = _mm_add_pd(yv, _mm_mul_pd(xv, ar));
    return _mm_add_pd(s, _mm_xor_pd(_mm_mul_pd(sw, ai), sg));
}

// The first carried vector: x[0 .. 3-P] in lanes P..3, read without touching
// the floats before x.
template <int P>
inline __m128 s_first(const float* x) {
    if constexpr (P == 1) {
        const __m128 h = _mm_loadh_pi(_mm_load_ss(x), reinterpret_cast<const __m64*>(x + 1));
        return _mm_shuffle_ps(h, h, _MM_SHUFFLE(3, 2, 0, 0));
    } else if constexpr (P == 2) {
        return _mm_loadh_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(x));
    } else {
        return _mm_load1_ps(x);
    }
}

// Unit stride, y 16-aligned, x P floats past a 16-byte boundary: each
// branch's own loop.
template <int P>
void s_unit_shifted(int n, __m128 av, float a, const float* x, float* y);

void s_unit(int n, float a, const float* x, float* y) {
    int peel = static_cast<int>(((0u - addr_bits(y)) & 15u) >> 2);
    if (peel > n) peel = n;
    n -= peel;
    for (; peel > 0; --peel) s_one(a, x++, y++);
    if (n == 0) return;

    const __m128 av = _mm_set1_ps(a);
    switch ((addr_bits(x) & 15u) >> 2) {
        case 1: s_unit_shifted<1>(n, av, a, x, y); return;
        case 2: s_unit_shifted<2>(n, av, a, x, y); return;
        case 3: s_unit_shifted<3>(n, av, a, x, y); return;
        default: break;
    }
    for (; n >= 64; n -= 64, x += 64, y += 64) {
#pragma GCC unroll 16
        for (int j = 0; j < 64; j += 4)
            _mm_store_ps(y + j, s_step(_mm_load_ps(y + j), _mm_load_ps(x + j), av));
    }
    for (; n >= 4; n -= 4, x += 4, y += 4)
        _mm_store_ps(y, s_step(_mm_load_ps(y), _mm_load_ps(x), av));
    for (; n > 0; --n) s_one(a, x++, y++);
}

// Unit stride, y 8-aligned: the branch's own text.
void d_unit(int n, double a, const double* x, double* y);

}  // namespace
}  // namespace zva::ZVA_NS

#if ZVA_BRANCH == 4
#include "level1/axpy/ssse3_aligned.inl"
#else
#include "level1/axpy/sse41_unaligned.inl"
#endif

namespace zva::ZVA_NS {

template <> void axpy<float>(const int* pn, const float* palpha, const float* x, const int* pincx, float* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const float a = *palpha;
    if (a == 0.0f) return;  // either sign; NaN goes on
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1 && ((addr_bits(x) | addr_bits(y)) & 3u) == 0) {
        s_unit(n, a, x, y);
        return;
    }
    // Each element is stored before the next is read: incy = 0 accumulates
    // every product into one element in order.
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k, x += incx, y += incy) s_one(a, x, y);
}

template <> void axpy<double>(const int* pn, const double* palpha, const double* x, const int* pincx, double* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const double a = *palpha;
    if (a == 0.0) return;
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1 && ((addr_bits(x) | addr_bits(y)) & 7u) == 0) {
        d_unit(n, a, x, y);
        return;
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k, x += incx, y += incy) d_one(a, x, y);
}

}  // namespace zva::ZVA_NS
