// AXPY pieces of branch 4 (SSSE3), after the common part in ssse3.inl.
//
// These processors pay heavily for unaligned 16-byte moves, so there are
// none: an x out of phase with y is read by aligned loads joined with
// palignr (tails too, loading only what lies within x), and a y that cannot
// be aligned is moved in 8-byte halves. CAXPY sits behind a thin entry;
// ZAXPY has two kernels of one shape, picked by the micro-architecture.
#include "frame/cpu.h"

namespace zva::ZVA_NS {
namespace {

// The bytes B.. of lo followed by the first B bytes of hi.
template <int B>
inline __m128 join_ps(__m128 lo, __m128 hi) {
    return _mm_castsi128_ps(_mm_alignr_epi8(_mm_castps_si128(hi), _mm_castps_si128(lo), B));
}
inline __m128d join_pd(__m128d lo, __m128d hi) {
    return _mm_castsi128_pd(_mm_alignr_epi8(_mm_castpd_si128(hi), _mm_castpd_si128(lo), 8));
}

// The last aligned block of x when it reaches past the end: only its first
// P floats, which are x's own, in lanes 0..P-1.
template <int P>
inline __m128 s_last(const float* p) {
    if constexpr (P == 1) {
        return _mm_load_ss(p);
    } else if constexpr (P == 2) {
        return _mm_castpd_ps(_mm_load_sd(reinterpret_cast<const double*>(p)));
    } else {
        return _mm_movelh_ps(_mm_castpd_ps(_mm_load_sd(reinterpret_cast<const double*>(p))),
                             _mm_load_ss(p + 2));
    }
}

// Unit stride, y 16-aligned, x P floats past a boundary: aligned loads from
// the first boundary inside x, each vector joined from two of them. The
// 64-pass runs while its last aligned block still lies within x; the 8-tail
// takes the part of its last block that does.
template <int P>
void s_unit_shifted(int n, __m128 av, float a, const float* x, float* y) {
    if (n >= 8) {
        __m128 prev = s_first<P>(x);
        const float* xb = x + (4 - P);
        for (; n >= 68 - P; n -= 64, x += 64, xb += 64, y += 64) {
#pragma GCC unroll 16
            for (int j = 0; j < 64; j += 4) {
                const __m128 cur = _mm_load_ps(xb + j);
                const __m128 xv = join_ps<4 * P>(prev, cur);
                prev = cur;
                _mm_store_ps(y + j, s_step(_mm_load_ps(y + j), xv, av));
            }
        }
        for (; n >= 8; n -= 8, x += 8, xb += 8, y += 8) {
            const __m128 c1 = _mm_load_ps(xb);
            const __m128 c2 = n >= 12 - P ? _mm_load_ps(xb + 4) : s_last<P>(xb + 4);
            _mm_store_ps(y, s_step(_mm_load_ps(y), join_ps<4 * P>(prev, c1), av));
            _mm_store_ps(y + 4, s_step(_mm_load_ps(y + 4), join_ps<4 * P>(c1, c2), av));
            prev = c2;
        }
    }
    for (; n > 0; --n) s_one(a, x++, y++);
}

void d_unit(int n, double a, const double* x, double* y) {
    if (addr_bits(y) & 8u) {
        d_one(a, x++, y++);
        if (--n == 0) return;
    }
    const __m128d av = _mm_set1_pd(a);
    if ((addr_bits(x) & 15u) == 0) {
        for (; n >= 32; n -= 32, x += 32, y += 32) {
#pragma GCC unroll 16
            for (int j = 0; j < 32; j += 2)
                _mm_store_pd(y + j, d_step(_mm_load_pd(y + j), _mm_load_pd(x + j), av));
        }
        for (; n >= 2; n -= 2, x += 2, y += 2)
            _mm_store_pd(y, d_step(_mm_load_pd(y), _mm_load_pd(x), av));
        if (n) d_one(a, x, y);
        return;
    }
    // x one element past a boundary: aligned loads from x + 1, the pass
    // needing x[32] for its last one, the 4-tail only what is there.
    if (n >= 4) {
        __m128d prev = _mm_loaddup_pd(x);
        for (; n >= 33; n -= 32, x += 32, y += 32) {
#pragma GCC unroll 16
            for (int j = 0; j < 32; j += 2) {
                const __m128d cur = _mm_load_pd(x + j + 1);
                const __m128d xv = join_pd(prev, cur);
                prev = cur;
                _mm_store_pd(y + j, d_step(_mm_load_pd(y + j), xv, av));
            }
        }
        for (; n >= 4; n -= 4, x += 4, y += 4) {
            const __m128d c1 = _mm_load_pd(x + 1);
            const __m128d c2 = n >= 5 ? _mm_load_pd(x + 3) : _mm_load_sd(x + 3);
            _mm_store_pd(y, d_step(_mm_load_pd(y), join_pd(prev, c1), av));
            _mm_store_pd(y + 2, d_step(_mm_load_pd(y + 2), join_pd(c1, c2), av));
            prev = c2;
        }
    }
    for (; n > 0; --n) d_one(a, x++, y++);
}

// y not on a boundary: two 8-byte moves. The low half goes by the integer
// movq: the compiler merges an FP movsd/movhpd (movlpd/movhpd) pair at
// adjacent addresses into one movupd under its default tuning, the very
// move these processors pay for.
inline __m128i lo_load(const void* p) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
}
inline void lo_store(void* p, __m128i v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }

inline __m128 c_load_y(const float* p) {
    return _mm_loadh_pi(_mm_castsi128_ps(lo_load(p)), reinterpret_cast<const __m64*>(p + 2));
}
inline void c_store_y(float* p, __m128 v) {
    lo_store(p, _mm_castps_si128(v));
    _mm_storeh_pi(reinterpret_cast<__m64*>(p + 2), v);
}

// One loop for each pair of phases, x and y 8-aligned. An x at 8 modulo 16
// is read by aligned loads from x + 1 joined by palignr; the pass needs
// x[32] for its last load, the 2-tail only what is there.
template <bool XA, bool YA>
void caxpy_unit(int n, float ar, float ai, const c32* x, c32* y) {
    const float* xf = &x->re;
    float* yf = &y->re;
    const __m128 arv = _mm_set1_ps(ar), aiv = _mm_set1_ps(ai);
    const __m128 sg = _mm_set_ps(0.0f, -0.0f, 0.0f, -0.0f);
    auto ld_y = [](const float* p) { return YA ? _mm_load_ps(p) : c_load_y(p); };
    auto st_y = [](float* p, __m128 v) {
        if constexpr (YA)
            _mm_store_ps(p, v);
        else
            c_store_y(p, v);
    };
    if constexpr (XA) {
        for (; n >= 32; n -= 32, xf += 64, yf += 64) {
#pragma GCC unroll 16
            for (int j = 0; j < 64; j += 4)
                st_y(yf + j, c_step(ld_y(yf + j), _mm_load_ps(xf + j), arv, aiv, sg));
        }
        for (; n >= 2; n -= 2, xf += 4, yf += 4)
            st_y(yf, c_step(ld_y(yf), _mm_load_ps(xf), arv, aiv, sg));
    } else if (n >= 2) {
        __m128 prev = _mm_loadh_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(xf));
        for (; n >= 33; n -= 32, xf += 64, yf += 64) {
#pragma GCC unroll 16
            for (int j = 0; j < 64; j += 4) {
                const __m128 cur = _mm_load_ps(xf + j + 2);
                const __m128 xv = join_ps<8>(prev, cur);
                prev = cur;
                st_y(yf + j, c_step(ld_y(yf + j), xv, arv, aiv, sg));
            }
        }
        for (; n >= 2; n -= 2, xf += 4, yf += 4) {
            const __m128 cur = n >= 3 ? _mm_load_ps(xf + 2)
                                      : _mm_castpd_ps(_mm_load_sd(reinterpret_cast<const double*>(xf + 2)));
            const __m128 xv = join_ps<8>(prev, cur);
            prev = cur;
            st_y(yf, c_step(ld_y(yf), xv, arv, aiv, sg));
        }
    }
    if (n) c_one(ar, ai, reinterpret_cast<const c32*>(xf), reinterpret_cast<c32*>(yf));
}

// The CAXPY kernel proper; the export's entry below only forwards to it.
__attribute__((noinline)) void caxpy_kernel(const int* pn, const c32* palpha, const c32* x,
                                            const int* pincx, c32* y, const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const float ar = palpha->re, ai = palpha->im;
    if (ar == 0.0f && ai == 0.0f) return;  // either sign; a NaN part goes on
    const int incx = *pincx, incy = *pincy;
    // A vector not even 8-aligned has no aligned-move form: general path.
    if (incx == 1 && incy == 1 && ((addr_bits(x) | addr_bits(y)) & 7u) == 0) {
        const bool xa = (addr_bits(x) & 15u) == 0, ya = (addr_bits(y) & 15u) == 0;
        if (xa && ya)
            caxpy_unit<true, true>(n, ar, ai, x, y);
        else if (xa)
            caxpy_unit<true, false>(n, ar, ai, x, y);
        else if (ya)
            caxpy_unit<false, true>(n, ar, ai, x, y);
        else
            caxpy_unit<false, false>(n, ar, ai, x, y);
        return;
    }
    // Each element is stored before the next is read: incy = 0 accumulates
    // every product into one element in order.
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k, x += incx, y += incy) c_one(ar, ai, x, y);
}

inline __m128d z_load_half(const double* p) {
    return _mm_loadh_pd(_mm_castsi128_pd(lo_load(p)), p + 1);
}
inline void z_store_half(double* p, __m128d v) {
    lo_store(p, _mm_castpd_si128(v));
    _mm_storeh_pd(p + 1, v);
}

// The two ZAXPY kernels have one shape and one rounding; they differ in how
// the unit-stride loops order their reads. G = 2 (for the SSE4.1-class core,
// code 33) reads the x vectors of two elements before the first y, so the
// x loads, and the palignr joins of a shifted x, run ahead of the y traffic;
// G = 1 (the others) finishes each element before reading the next, the
// shortest register lives. Both stay within the eight registers.
template <int G, bool XA, bool YA>
void zaxpy_unit(int n, double ar, double ai, const c64* x, c64* y) {
    const double* xd = &x->re;
    double* yd = &y->re;
    const __m128d arv = _mm_set1_pd(ar), aiv = _mm_set1_pd(ai);
    const __m128d sg = _mm_set_pd(0.0, -0.0);
    auto ld_y = [](const double* p) { return YA ? _mm_load_pd(p) : z_load_half(p); };
    auto one = [&](double* p, __m128d xv) {
        const __m128d r = z_step(ld_y(p), xv, arv, aiv, sg);
        if constexpr (YA)
            _mm_store_pd(p, r);
        else
            z_store_half(p, r);
    };
    if constexpr (XA) {
        for (; n >= 16; n -= 16, xd += 32, yd += 32) {
#pragma GCC unroll 8
            for (int j = 0; j < 32; j += 4) {
                if constexpr (G == 2) {
                    const __m128d x0 = _mm_load_pd(xd + j), x1 = _mm_load_pd(xd + j + 2);
                    one(yd + j, x0);
                    one(yd + j + 2, x1);
                } else {
                    one(yd + j, _mm_load_pd(xd + j));
                    one(yd + j + 2, _mm_load_pd(xd + j + 2));
                }
            }
        }
        for (; n >= 2; n -= 2, xd += 4, yd += 4) {
            one(yd, _mm_load_pd(xd));
            one(yd + 2, _mm_load_pd(xd + 2));
        }
        if (n) one(yd, _mm_load_pd(xd));
        return;
    }
    // x at 8 modulo 16: aligned loads from x + 8 bytes, each holding the
    // imaginary part of one element and the real part of the next; the
    // pass needs x[16] for its last load, the 2-tail only what is there.
    if (n >= 2) {
        __m128d prev = _mm_loaddup_pd(xd);
        for (; n >= 17; n -= 16, xd += 32, yd += 32) {
#pragma GCC unroll 8
            for (int j = 0; j < 32; j += 4) {
                if constexpr (G == 2) {
                    const __m128d c1 = _mm_load_pd(xd + j + 1);
                    const __m128d c2 = _mm_load_pd(xd + j + 3);
                    const __m128d x0 = join_pd(prev, c1), x1 = join_pd(c1, c2);
                    prev = c2;
                    one(yd + j, x0);
                    one(yd + j + 2, x1);
                } else {
                    const __m128d c1 = _mm_load_pd(xd + j + 1);
                    one(yd + j, join_pd(prev, c1));
                    prev = _mm_load_pd(xd + j + 3);
                    one(yd + j + 2, join_pd(c1, prev));
                }
            }
        }
        for (; n >= 2; n -= 2, xd += 4, yd += 4) {
            const __m128d c1 = _mm_load_pd(xd + 1);
            const __m128d c2 = n >= 3 ? _mm_load_pd(xd + 3) : _mm_load_sd(xd + 3);
            one(yd, join_pd(prev, c1));
            one(yd + 2, join_pd(c1, c2));
            prev = c2;
        }
    }
    if (n) one(yd, z_load_half(xd));
}

template <int G>
__attribute__((noinline)) void zaxpy_kernel(const int* pn, const c64* palpha, const c64* x,
                                            const int* pincx, c64* y, const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const double ar = palpha->re, ai = palpha->im;
    if (ar == 0.0 && ai == 0.0) return;
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1 && ((addr_bits(x) | addr_bits(y)) & 7u) == 0) {
        const bool xa = (addr_bits(x) & 15u) == 0, ya = (addr_bits(y) & 15u) == 0;
        if (xa && ya)
            zaxpy_unit<G, true, true>(n, ar, ai, x, y);
        else if (xa)
            zaxpy_unit<G, true, false>(n, ar, ai, x, y);
        else if (ya)
            zaxpy_unit<G, false, true>(n, ar, ai, x, y);
        else
            zaxpy_unit<G, false, false>(n, ar, ai, x, y);
        return;
    }
    const __m128d arv = _mm_set1_pd(ar), aiv = _mm_set1_pd(ai);
    const __m128d sg = _mm_set_pd(0.0, -0.0);
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k, x += incx, y += incy)
        z_store_half(&y->re, z_step(z_load_half(&y->re), z_load_half(&x->re), arv, aiv, sg));
}

}  // namespace

template <> void axpy<c32>(const int* n, const c32* alpha, const c32* x, const int* incx, c32* y,
           const int* incy) {
    caxpy_kernel(n, alpha, x, incx, y, incy);
}

template <> void axpy<c64>(const int* n, const c64* alpha, const c64* x, const int* incx, c64* y,
           const int* incy) {
    if (cpu_microarch() == 33)
        zaxpy_kernel<2>(n, alpha, x, incx, y, incy);
    else
        zaxpy_kernel<1>(n, alpha, x, incx, y, incy);
}

}  // namespace zva::ZVA_NS
