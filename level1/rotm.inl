// Modified rotation, SROTM and DROTM, on every branch: (x, y) := H (x, y)
// with H from param = (flag, h11, h21, h12, h22).
//
// flag = -2 leaves the vectors alone; otherwise the sign of flag picks the
// form (a NaN flag is not below 0 and not 0: the last form):
//   flag < 0   x' = x*h11 + y*h12   y' = x*h21 + y*h22
//   flag = 0   x' = x + y*h12       y' = x*h21 + y
//   flag > 0   x' = x*h11 + y       y' = -x + y*h22
// Branch 7 fuses the last multiplication with the add, the other product
// rounded first; the other branches round each product. Every path of a
// branch rounds alike.
//
// Loops: incx = incy = 1 takes the vector walk of level1/rot/plane.inl;
// every other pair of increments goes two pairs a pass from the start rule
// (for incx = incy >= 1 that is the published strided loop). Unit-stride
// shapes, a pass counted in elements:
//   branch   D, flags 0 and 1     D, flag < 0       S, every flag
//   7        peel; 16; 4; single  peel; 4; 2; single  32; 8; 4; singles
//   6        peel; 16; single     peel; 4; single     32; 8; singles
//   5        peel; 8; single      peel; 2; single     16; 4; singles
//   4, 3, 2  peel; 8; single      peel; 2; single     4; singles
// (y peeled to 32 bytes on 6 and 7, 16 below; on 2 to 5 an x in the phase
// of y read by aligned loads.) S runs whole vectors of consecutive elements
// rather than gathers four apart: the same pairs, the same roundings.
#include "level1/kernels.h"
#include "level1/rot/plane.inl"

namespace zva::ZVA_NS {
namespace {

template <class R> struct rotm_full {
    R h11, h21, h12, h22;
    template <class V> void operator()(V& x, V& y) const {
        const V a = x, b = y;
        x = madd<fused>(a, splat<V>(h11), b * splat<V>(h12));
        y = madd<fused>(a, splat<V>(h21), b * splat<V>(h22));
    }
};
template <class R> struct rotm_off {
    R h21, h12;
    template <class V> void operator()(V& x, V& y) const {
        const V a = x, b = y;
        x = madd<fused>(b, splat<V>(h12), a);
        y = madd<fused>(a, splat<V>(h21), b);
    }
};
template <class R> struct rotm_diag {
    R h11, h22;
    template <class V> void operator()(V& x, V& y) const {
        const V a = x, b = y;
        x = madd<fused>(a, splat<V>(h11), b);
        y = madd<fused>(b, splat<V>(h22), -a);
    }
};

// Unit-stride shape of one form: U vectors a pass, then one-vector and
// half-vector passes as the table above gives them.
template <class R, bool full> struct rotm_shape {
    static constexpr bool dbl = sizeof(R) == 8;
    static constexpr int U = dbl ? (full ? 1 : 4) : (branch >= 5 ? 4 : 1);
    static constexpr bool one = dbl ? (!full && branch == 7) : branch >= 5;
    static constexpr bool half = branch == 7 && (!dbl || full);
};

template <class R, bool full, class Step>
void rotm_walk(int n, R* x, int incx, R* y, int incy, const Step& step) {
    using S = rotm_shape<R, full>;
    if (incx == 1 && incy == 1) return plane_unit<S::U, S::one, S::half>(n, x, y, step);
    plane_strided<2>(n, x, incx, y, incy, [&](R* a, R* b) { plane_one(a, b, step); });
}

template <class R> void rotm_real(I pn, R* x, I pincx, R* y, I pincy, const R* param) {
    const int n = *pn;
    if (n < 1) return;
    const R flag = param[0];
    if (flag + 2 == 0) return;
    const int incx = *pincx, incy = *pincy;
    if (flag < 0)
        rotm_walk<R, true>(n, x, incx, y, incy, rotm_full<R>{param[1], param[2], param[3], param[4]});
    else if (flag == 0)
        rotm_walk<R, false>(n, x, incx, y, incy, rotm_off<R>{param[2], param[3]});
    else
        rotm_walk<R, false>(n, x, incx, y, incy, rotm_diag<R>{param[1], param[4]});
}

}  // namespace

template <> void rotm<float>(I n, float* x, I incx, float* y, I incy, const float* param) {
    rotm_real(n, x, incx, y, incy, param);
}
template <> void rotm<double>(I n, double* x, I incx, double* y, I incy, const double* param) {
    rotm_real(n, x, incx, y, incy, param);
}

}  // namespace zva::ZVA_NS
