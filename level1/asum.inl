// ASUM, the sum of |x[i]| (complex: |re| + |im|), in S, D, C, Z on every
// branch: the kernels behind the four ASUM dispatch points.
//
// Every kernel: n <= 0 returns 0. There is no test for zero or NaN: a NaN
// passes into the sum. Unlike the reference BLAS, a negative increment reads
// n elements |incx| apart (S and D walk forward from x, so incx = -1 is the
// unit path; C and Z start by the BLAS rule and reach the same set), and
// incx = 0 gives n*|x[0]| added one at a time. Single precision sums stay
// in single precision.
//
// Register budget: at most four accumulators, the sign mask and one loaded
// vector (a gather needs two more on the 256-bit branches): no spills.
//
// One text for all branches; what differs is a row of constants per type
// and branch (asum_shape below). The vector part sums |v| into A
// accumulators, each taken `reps` times a pass; the peel sum enters lane 0
// of the first; they are reduced (a0 + a1) + (a2 + a3), the high half onto
// the low half, then neighbouring lanes. Then, where the shape says so, one
// vector at a time into one register holding the sum in lane 0, reduced the
// same way; then singles, ascending. Complex singles add |re| to one sum and
// |im| to a second, the two added at the end.
#include <immintrin.h>

#include <climits>
#include <cstdint>

#include "frame/scalar.h"
#include "level1/kernels.h"
#include "level1/vecops.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

struct asum_shape {
    int min_n;        // shorter vectors go singly
    int align;        // unit stride: x peeled to this many bytes (0: no peel)
    bool any_phase;   // x off its element size: vectors anyway (else singly)
    int acc;          // accumulators
    int reps;         // each taken this many times a pass
    bool tail;        // one vector at a time after the reduction
    bool cascade;     // blocks of half, a quarter ... of a pass before it
    int gather_min;   // other increments: gathered loads from this n (0: never)
};

constexpr int never = INT_MAX;

template <class T> constexpr asum_shape shape_of() {
    constexpr int b = branch;
    if constexpr (__is_same(T, double)) {
        if (b == 7) return {16, 32, false, 4, 1, true, false, 16};
        if (b == 6) return {16, 32, false, 4, 1, false, false, 16};
        if (b >= 4) return {8, 16, true, 4, 4, true, false, 8};
        if (b == 3) return {16, 16, true, 4, 2, false, true, 0};
        return {8, 16, true, 4, 1, false, false, 8};
    } else if constexpr (__is_same(T, float)) {
        if (b == 7) return {32, 32, false, 4, 1, true, false, 32};
        if (b == 6) return {32, 32, false, 4, 1, false, false, 32};
        if (b == 5) return {16, 16, true, 4, 4, true, false, 0};
        if (b == 4) return {16, 16, true, 4, 1, true, false, 0};
        if (b == 3) return {32, 16, true, 4, 2, false, false, 0};
        return {16, 16, true, 4, 1, true, false, 0};
    } else if constexpr (__is_same(T, c64)) {
        // One shape for every nonzero increment.
        if (b == 7) return {16, 0, true, 4, 2, true, false, 16};
        if (b == 6) return {16, 0, true, 4, 2, false, false, 16};
        return {8, 0, true, 4, 2, false, false, 8};
    } else {
        if (b == 7) return {32, 0, true, 4, 2, true, false, 32};
        if (b == 6) return {16, 0, true, 2, 2, false, false, 16};
        if (b == 5) return {8, 0, true, 2, 2, false, false, 8};
        return {never, 0, true, 1, 1, false, false, 0};  // scalar sums only
    }
}

template <class L, bool Unit>
inline typename L::v load_at(const typename L::T* x, int i, int s) {
    if constexpr (Unit) return L::load(x + i);
    else return L::gather(x + static_cast<intptr_t>(i) * s, s);
}

// The vector part from element i on (advanced past what it takes), with s0
// in lane 0 of the first accumulator; returns the reduced sum.
template <class T, bool Unit> R_<T> vector_part(const T* x, int s, int n, int& i, R_<T> s0) {
    using L = lanev<T>;
    constexpr asum_shape S = shape_of<T>();
    constexpr int W = L::W, A = S.acc, P = W * A * S.reps;
    typename L::v a[A];
    set_lane0(a[0], s0);
    for (int j = 1; j < A; ++j) a[j] = L::zero();
    for (; n - i >= P; i += P) {
#pragma GCC unroll 16
        for (int k = 0; k < A * S.reps; ++k)
            a[k % A] = L::add(a[k % A], vabs(load_at<L, Unit>(x, i + k * W, s)));
    }
    if constexpr (S.cascade) {
        // Blocks of P/2, P/4 ... W elements, vector k into accumulator k.
#pragma GCC unroll 8
        for (int m = A * S.reps / 2; m >= 1; m /= 2)
            if (n - i >= m * W) {
#pragma GCC unroll 8
                for (int k = 0; k < m; ++k)
                    a[k % A] = L::add(a[k % A], vabs(load_at<L, Unit>(x, i + k * W, s)));
                i += m * W;
            }
    }
    typename L::v r = a[0];
    if constexpr (A == 4) r = L::add(L::add(a[0], a[1]), L::add(a[2], a[3]));
    else if constexpr (A == 2) r = L::add(a[0], a[1]);
    R_<T> sum = lanes_sum(r);
    if constexpr (S.tail) {
        if (n - i >= W) {
            set_lane0(r, sum);
            for (; n - i >= W; i += W) r = L::add(r, vabs(load_at<L, Unit>(x, i, s)));
            sum = lanes_sum(r);
        }
    }
    return sum;
}

template <class R> inline R mag(R v) { return __builtin_fabs(v); }
inline float mag(float v) { return __builtin_fabsf(v); }

}  // namespace

template <class T> R_<T> asum(const int* pn, const T* x, const int* pincx) {
    using R = R_<T>;
    const int n = *pn;
    if (n <= 0) return 0;
    constexpr asum_shape S = shape_of<T>();
    constexpr bool cplx = !__is_same(T, R);
    int s = *pincx;
    if constexpr (cplx) x += vec_start(n, s);
    else s = s < 0 ? -s : s;

    R sum = 0;
    int i = 0;
    if constexpr (S.min_n == never) {
        // scalar sums only
    } else if (s == 1) {
        if (n >= S.min_n) {
            int peel = S.align ? peel_to(x, S.align, sizeof(T)) : 0;
            if (peel < 0 && S.any_phase) peel = 0;
            if (peel >= 0 && n >= peel + S.min_n) {
                if constexpr (!cplx)
                    for (; i < peel; ++i) sum += mag(x[i]);
                sum = vector_part<T, true>(x, 1, n, i, sum);
            }
        }
    } else if (s != 0 && S.gather_min && n >= S.gather_min) {
        sum = vector_part<T, false>(x, s, n, i, sum);
    }

    const T* p = x + static_cast<intptr_t>(i) * s;
    if constexpr (cplx) {
        R im = 0;
        for (; i < n; ++i, p += s) {
            sum += mag(p->re);
            im += mag(p->im);
        }
        return sum + im;
    } else {
        for (; i < n; ++i, p += s) sum += mag(*p);
        return sum;
    }
}

ZVA_INSTANTIATE_TYPES(asum)

}  // namespace zva::ZVA_NS
