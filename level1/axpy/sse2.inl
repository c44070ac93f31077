// AXPY of branches 2 (SSE2) and 3 (SSE3): 128-bit vectors, no fused
// multiply-add, so every product is rounded before it is added.
//
// Register budget: eight xmm registers in 32-bit code; the widest pass, four
// vectors of DAXPY, keeps alpha and four x vectors live.
//
// DAXPY is one text for both: a unit path only where x and y share a 16-byte
// phase (both aligned, or both 8 modulo 16 after one element), 16 a pass
// then at most one block of 8, 4, 2, 1; every other call takes the general
// path, two elements a pass. The branches differ in two pieces: branch 2
// opens the unit path on incx*incy = 1, and takes alpha by value; branch 3
// needs incx = incy = 1, and broadcasts alpha by movddup from its address.
//
// S, C and Z are each branch's own, in its text:
//   branch 2  sse2_x87.inl     S and C scalars on the x87 unit, their sums
//                              kept at x87 width until the store; Z by pairs
//                              of 64-bit moves under Pentium 4 tuning
//   branch 3  sse3_addsub.inl  lddqu for unaligned S and C loads, addsub
//                              for the complex product, movddup for Z
namespace zva::ZVA_NS {
namespace {

// Zero alpha by the bit pattern, sign masked: -0 returns, NaN goes on.
inline bool zero_bits(float a) {
    uint32_t u;
    std::memcpy(&u, &a, sizeof u);
    return (u & 0x7fffffffu) == 0;
}
// The double is tested where it is loaded, in xmm: the shift drops the sign.
inline bool zero_bits(double a) {
    const __m128i b = _mm_slli_epi64(_mm_castpd_si128(_mm_set_sd(a)), 1);
    return (_mm_movemask_epi8(_mm_cmpeq_epi32(b, _mm_setzero_si128())) &
            0xff) == 0xff;
}

// Four vectors: all x loads first, then the sums, then the stores; needs
// alpha and four registers.
inline void d_vec4(const double* x, double* y, __m128d va) {
    __m128d x0 = _mm_load_pd(x), x1 = _mm_load_pd(x + 2);
    __m128d x2 = _mm_load_pd(x + 4), x3 = _mm_load_pd(x + 6);
    x0 = _mm_add_pd(_mm_load_pd(y), _mm_mul_pd(x0, va));
    x1 = _mm_add_pd(_mm_load_pd(y + 2), _mm_mul_pd(x1, va));
    x2 = _mm_add_pd(_mm_load_pd(y + 4), _mm_mul_pd(x2, va));
    x3 = _mm_add_pd(_mm_load_pd(y + 6), _mm_mul_pd(x3, va));
    _mm_store_pd(y, x0);
    _mm_store_pd(y + 2, x1);
    _mm_store_pd(y + 4, x2);
    _mm_store_pd(y + 6, x3);
}

// How d_unit receives alpha: branch 3 by address, for movddup to broadcast
// it from memory; branch 2 by value.
#if ZVA_BRANCH == 3
using d_alpha = const double*;
#define AXPY_D_ALPHA alpha
#define AXPY_D_BCAST(p) _mm_loaddup_pd(p)
#define AXPY_D_VALUE(p) (*(p))
#else
using d_alpha = double;
#define AXPY_D_ALPHA a
#define AXPY_D_BCAST(v) _mm_set1_pd(v)
#define AXPY_D_VALUE(v) (v)
#endif

// ---- DAXPY -------------------------------------------------------------

// x and y 16-aligned; 16 a pass, then at most one block of 8, 4, 2, 1.
void d_unit(int n, d_alpha alpha, const double* x, double* y) {
    const __m128d va = AXPY_D_BCAST(alpha);
    for (; n >= 16; n -= 16, x += 16, y += 16) {
        d_vec4(x, y, va);
        d_vec4(x + 8, y + 8, va);
    }
    if (n & 8) {
        d_vec4(x, y, va);
        x += 8;
        y += 8;
    }
    if (n & 4) {
        __m128d x0 = _mm_load_pd(x), x1 = _mm_load_pd(x + 2);
        x0 = _mm_add_pd(_mm_load_pd(y), _mm_mul_pd(x0, va));
        x1 = _mm_add_pd(_mm_load_pd(y + 2), _mm_mul_pd(x1, va));
        _mm_store_pd(y, x0);
        _mm_store_pd(y + 2, x1);
        x += 4;
        y += 4;
    }
    if (n & 2) {
        _mm_store_pd(y, _mm_add_pd(_mm_load_pd(y),
                                   _mm_mul_pd(_mm_load_pd(x), va)));
        x += 2;
        y += 2;
    }
    if (n & 1) y[0] = y[0] + x[0] * AXPY_D_VALUE(alpha);
}

}  // namespace

template <> void axpy<double>(const int* n_, const double* alpha, const double* x,
           const int* incx_, double* y, const int* incy_) {
    int n = *n_;
    if (n <= 0) return;
    const double a = *alpha;
    if (zero_bits(a)) return;
    const int incx = *incx_, incy = *incy_;

#if ZVA_BRANCH == 2
    // incx*incy = 1 also admits incx = incy = -1: both vectors are then
    // walked forward from the given pointers, the same pairs as the BLAS
    // rule.  The product wraps like the machine's; a wrapped 1 needs
    // |inc| >= 2^30, which only n = 1 can meet, where both paths agree.
    if ((unsigned)incx * (unsigned)incy == 1u) {
#else
    if (incx == 1 && incy == 1) {
#endif
        const uintptr_t px = (uintptr_t)x & 15, py = (uintptr_t)y & 15;
        if (px == 0 && py == 0) {
            d_unit(n, AXPY_D_ALPHA, x, y);
            return;
        }
        if (px == 8 && py == 8) {
            y[0] = y[0] + x[0] * a;
            d_unit(n - 1, AXPY_D_ALPHA, x + 1, y + 1);
            return;
        }
        // Phases differ: no vector code for it, the strided loop serves.
    }

    x += vec_start(n, incx);
    y += vec_start(n, incy);
    // Each element is stored before the next is read: incy = 0 sums in order.
    for (; n >= 2; n -= 2) {
        y[0] = y[0] + x[0] * a;
        x += incx;
        y += incy;
        y[0] = y[0] + x[0] * a;
        x += incx;
        y += incy;
    }
    if (n) y[0] = y[0] + x[0] * a;
}

}  // namespace zva::ZVA_NS

#undef AXPY_D_ALPHA
#undef AXPY_D_BCAST
#undef AXPY_D_VALUE

#if ZVA_BRANCH == 2
#include "level1/axpy/sse2_x87.inl"
#else
#include "level1/axpy/sse3_addsub.inl"
#endif
