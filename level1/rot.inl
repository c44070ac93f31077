// Plane rotation, x' = c*x + s*y, y' = c*y - s*x, on every branch: SROT and
// DROT (the kernels behind their threaded drivers), CSROT and ZDROT (complex
// vectors, real c and s on both parts).
//
// n <= 0 returns. c and s are never tested: c = 1, s = 0 multiplies too, so
// NaN and infinity in the data go through the arithmetic.
//
// Rounding of one pair, by branch:
//   apart  c*x and s*y rounded, then the add (or subtract): branches 2 to 6
//   fused  x' = fma(c, x, s*y), y' = fma(c, y, -(s*x)): real ROT on 7, and
//          the long passes of CSROT and ZDROT on 7
//   x87    c*x + s*y at x87 width, rounded once by the store: ZDROT on 2 to
//          5 everywhere; CSROT on 2 to 5 for its peel, its singles and its
//          strided path
// Real ROT rounds alike on every path of a branch; CSROT and ZDROT mix forms
// by path, as listed at their kernels.
//
// Shapes (level1/rot/plane.inl walks them; a pass counts elements):
//   branch  D unit path                     S unit path            strided
//   7       peel y to 32; 4; 2; singles     8; 4; singles          2 a pass
//   6       peel y to 32; 4; singles        8; singles             2 a pass
//   5       peel y to 16; 32; 2; singles    64; 4; singles         1 a pass
//   4       peel y to 16; 16; 2; singles    32; 4; singles         1 a pass
//   3, 2    peel y to 16; 2; singles        4; singles             2 a pass
// On 2 to 5 an x in the phase of y is read by aligned loads, an x out of
// phase by unaligned ones.
#include <immintrin.h>

#include "level1/kernels.h"
#include "level1/rot/plane.inl"

namespace zva::ZVA_NS {
namespace {

// x' = c*x + s*y, y' = c*y - s*x; with F, each fused with the other
// product rounded first.
template <bool F, class R> struct rot_step {
    R c, s;
    template <class V> void operator()(V& x, V& y) const {
        const V cv = splat<V>(c), sv = splat<V>(s), a = x, b = y;
        x = madd<F>(cv, a, sv * b);
        y = madd<F>(cv, b, -(sv * a));
    }
};
template <class R> using rot_apart = rot_step<false, R>;

#if ZVA_BRANCH <= 5
// The x87 unit keeps c*x + s*y at its own width; the store rounds once.
struct rot_x87 {
    long double c, s;
    template <class R> void operator()(R& x, R& y) const {
        const long double a = x, b = y;
        x = (R)(c * a + s * b);
        y = (R)(c * b - s * a);
    }
};
#endif

// Vectors a pass of real ROT on the unit path (U), then one-vector passes
// on 4 and 5 and a half-vector pass on 7; pairs a pass on the strided path
// (G).
inline constexpr int rot_u = branch == 5 ? 16 : branch == 4 ? 8 : 1;
inline constexpr int rot_g = branch == 4 || branch == 5 ? 1 : 2;

template <class R> void rot_real(I pn, R* x, I pincx, R* y, I pincy, const R* c, const R* s) {
    const int n = *pn;
    if (n <= 0) return;
    const rot_step<fused, R> step{*c, *s};
    if (*pincx == 1 && *pincy == 1)
        return plane_unit<rot_u, (rot_u > 1), (branch == 7)>(n, x, y, step);
    plane_strided<rot_g>(n, x, *pincx, y, *pincy, [&](R* a, R* b) { plane_one(a, b, step); });
}

// One complex pair, both parts by the same real step.
template <class C, class Step> inline void cplx_one(C* x, C* y, const Step& step) {
    plane_one(&x->re, &y->re, step);
    plane_one(&x->im, &y->im, step);
}

#if ZVA_BRANCH >= 6
// Unit stride on 6 and 7: the first n mod 4 elements singly, then the
// passes over the parts as one real vector; loads where the data lies.
template <class R> void cplx_unit(int n, R* x, R* y, R c, R s) {
    using V = typename regs<R>::v;
    constexpr int W = sizeof(V) / sizeof(R);   // parts in a register
    const rot_apart<R> apart{c, s};
    int i = 2 * (n % 4);
    plane_passes<R, 1, none_aligned>(0, i, x, y, apart);
    const int m = 2 * n;
#if ZVA_BRANCH == 7
    const rot_step<true, R> fmas{c, s};
    if constexpr (sizeof(R) == 4) {
        // CSROT: 32 elements a pass, then 8, fused; a last 4 apart.
        i = plane_passes<V, 64 / W, none_aligned>(i, m, x, y, fmas);
        i = plane_passes<V, 16 / W, none_aligned>(i, m, x, y, fmas);
    } else {
        // ZDROT: 8 elements a pass, fused; a last 4 apart.
        i = plane_passes<V, 16 / W, none_aligned>(i, m, x, y, fmas);
    }
#else
    // CSROT 16 elements a pass, ZDROT 8; then 4.
    i = plane_passes<V, (sizeof(R) == 4 ? 32 : 16) / W, none_aligned>(i, m, x, y, apart);
#endif
    plane_passes<V, 8 / W, none_aligned>(i, m, x, y, apart);
}
#endif

#if ZVA_BRANCH >= 6

// CSROT and ZDROT on 6 and 7: unit stride as cplx_unit; strided one
// element a pass, apart.
template <class C, class R> void cplx_rot(I pn, C* x, I pincx, C* y, I pincy, const R* c,
                                          const R* s) {
    const int n = *pn;
    if (n <= 0) return;
    if (*pincx == 1 && *pincy == 1) return cplx_unit(n, &x->re, &y->re, *c, *s);
    const rot_apart<R> apart{*c, *s};
    plane_strided<1>(n, x, *pincx, y, *pincy, [&](C* a, C* b) { cplx_one(a, b, apart); });
}

#else

// ZDROT on 2 to 5: all on the x87 unit, four elements a pass, prefetching
// 64 bytes ahead of each vector on the unit path.
void zdrot_x87(I pn, c64* x, I pincx, c64* y, I pincy, const double* c, const double* s) {
    const int n = *pn;
    if (n <= 0) return;
    const rot_x87 step{*c, *s};
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1) {
        int i = 0;
        for (; n - i >= 4; i += 4) {
            _mm_prefetch(reinterpret_cast<const char*>(x + i + 4), _MM_HINT_T0);
            _mm_prefetch(reinterpret_cast<const char*>(y + i + 4), _MM_HINT_T0);
            for (int k = 0; k < 4; ++k) cplx_one(x + i + k, y + i + k, step);
        }
        for (; i < n; ++i) cplx_one(x + i, y + i, step);
        return;
    }
    plane_strided<4>(n, x, incx, y, incy, [&](c64* a, c64* b) {
        _mm_prefetch(reinterpret_cast<const char*>(a + 4 * incx), _MM_HINT_T0);
        _mm_prefetch(reinterpret_cast<const char*>(b + 4 * incy), _MM_HINT_T0);
        cplx_one(a, b, step);
    });
}

// CSROT on 2 to 5. Unit stride (incx = incy = 1 or -1; with -1 both
// vectors are walked forward from the given pointers, the same pairs as
// the BLAS rule): x87 singles until y is 16-aligned; then with x in the
// phase of y 24 elements a pass by aligned moves, else 16 a pass with x
// unaligned; then 2 a pass; x87 singles. Vector passes round apart.
// Strided: x87, 4 a pass.
void csrot_mixed(I pn, c32* x, I pincx, c32* y, I pincy, const float* c, const float* s) {
    const int n = *pn;
    if (n <= 0) return;
    const rot_x87 x87{*c, *s};
    const int incx = *pincx, incy = *pincy;
    if (incx == incy && (incx == 1 || incx == -1)) {
        int i = 0;
        if (addr_bits(y) % 8 == 0) {   // else y never meets a 16-byte boundary
            if (addr_bits(y) % 16 != 0 && n > 0) cplx_one(x, y, x87), i = 1;
            const rot_apart<float> apart{*c, *s};
            float* xr = &x->re;
            float* yr = &y->re;
            int j = 2 * i;
            if (addr_bits(x + i) % 16 == 0) {
                j = plane_passes<__m128, 12, both_aligned>(j, 2 * n, xr, yr, apart);
                j = plane_passes<__m128, 1, both_aligned>(j, 2 * n, xr, yr, apart);
            } else {
                j = plane_passes<__m128, 8, y_aligned>(j, 2 * n, xr, yr, apart);
                j = plane_passes<__m128, 1, y_aligned>(j, 2 * n, xr, yr, apart);
            }
            i = j / 2;
        }
        for (; i < n; ++i) cplx_one(x + i, y + i, x87);
        return;
    }
    plane_strided<4>(n, x, incx, y, incy, [&](c32* a, c32* b) { cplx_one(a, b, x87); });
}

#endif

}  // namespace

template <> void rot<float, float>(I n, float* x, I incx, float* y, I incy, const float* c,
                                   const float* s) {
    rot_real(n, x, incx, y, incy, c, s);
}
template <> void rot<double, double>(I n, double* x, I incx, double* y, I incy, const double* c,
                                     const double* s) {
    rot_real(n, x, incx, y, incy, c, s);
}

template <> void rot<c32, float>(I n, c32* x, I incx, c32* y, I incy, const float* c,
                                 const float* s) {
#if ZVA_BRANCH >= 6
    cplx_rot(n, x, incx, y, incy, c, s);
#else
    csrot_mixed(n, x, incx, y, incy, c, s);
#endif
}
template <> void rot<c64, double>(I n, c64* x, I incx, c64* y, I incy, const double* c,
                                  const double* s) {
#if ZVA_BRANCH >= 6
    cplx_rot(n, x, incx, y, incy, c, s);
#else
    zdrot_x87(n, x, incx, y, incy, c, s);
#endif
}

}  // namespace zva::ZVA_NS
