// GEMV of the SSE2 and SSE3 branches (2 and 3): 128-bit vectors, no fused
// multiply-add, so every product is rounded before it is added.
//
// Branch 2 has no addsub and no movddup: broadcasts are shuffles, and the
// complex add-subtract is a sign mask and an add, the mask applied once to
// the scalar instead of to every product.  Branch 3 brings movddup,
// movsldup/movshdup for the broadcasts, addsubps/addsubpd for the complex
// product and lddqu for unaligned single loads.  Scalars run on SSE too
// (-mfpmath=sse), rounded like the vectors.
//
// Register budget: 8 xmm registers in 32-bit mode.  Where the scalars of a
// block do not fit next to its accumulators (D eight columns, Z four) they
// stay in an aligned stack array and enter as memory operands: a load per
// use, no spill.
//
// Columns per pass: as many of the first width as fit, then at most one of
// each following width, except that single columns repeat for the rest:
//   D  N unit 8,4,2,1   T unit 4,2,1   N and T strided 4,1
//   S  4,1 on every path
//   Z  N and T unit 4,2,1   C unit and every strided path 2,1
//   C  the prologue here, then six lower kernels {unit, strided} x {N, T, C}:
//      two columns a pass, rows 4, 2, 1; a single column last.
// Not-transposed sums are left-to-right chains y + t0*a0 + t1*a1 + ... in
// every path, peel and tail included, so a row's result does not depend on
// where the row falls.
namespace zva::ZVA_NS {
namespace {

// Generic tuning fuses a pair of 64-bit loads into one movupd, which the
// SSE2-only cores of branch 2 (Pentium 4, K8) and the Prescott-class cores
// of branch 3 run slower than two halves (above all across a cache line).
// The D and Z loops are tuned for those cores; no instruction set changes.
// Their helpers are always_inline to cross the tuning boundary.
#if ZVA_BRANCH == 2
#define GEMV_HALF_TUNE __attribute__((target("tune=pentium4"), noinline))
#else
#define GEMV_HALF_TUNE __attribute__((target("tune=nocona"), noinline))
#endif

#define GEMV_INLINE __attribute__((always_inline)) inline
#define GEMV_INLINE_LAMBDA __attribute__((always_inline))

GEMV_INLINE bool aligned16(const void* p) { return ((uintptr_t)p & 15) == 0; }

// Only the first byte counts; real types know no conjugate.
enum op_kind { OP_N, OP_T, OP_C };
inline op_kind op_of(const char* trans, bool complex_type) {
    const char c = *trans;
    if (c == 'N' || c == 'n') return OP_N;
    if (!complex_type || c == 'T' || c == 't') return OP_T;
    return OP_C;
}

// First used element of a strided vector of n elements.
template <class T>
inline T* first_used(T* p, int n, int inc) {
    return inc >= 0 ? p : p + (long)(1 - n) * inc;
}

// Whole vector when 16-aligned, two 64-bit halves otherwise.  The halves are
// two plain scalar loads, which the compiler places at their use (a load
// builtin would stay where it is written, and a row's loads would pile up
// ahead of its arithmetic and spill).
template <bool AL>
GEMV_INLINE __m128d ld2(const double* p) {
    if (AL) return _mm_load_pd(p);
    return _mm_set_pd(p[1], p[0]);
}
template <bool AL>
GEMV_INLINE void st2(double* p, __m128d v) {
    if (AL) {
        _mm_store_pd(p, v);
    } else {
        _mm_storel_pd(p, v);
        _mm_storeh_pd(p + 1, v);
    }
}

#if ZVA_BRANCH == 2
GEMV_INLINE __m128 ldu(const float* p) { return _mm_loadu_ps(p); }
#else
GEMV_INLINE __m128 ldu(const float* p) {
    return _mm_castsi128_ps(_mm_lddqu_si128((const __m128i*)p));
}
#endif

// ---- Complex products ------------------------------------------------------
//
#if ZVA_BRANCH == 2
// Every product is a*re + swap(a)*im with the signs in the scalars:
//   a * s:        re = (sr, sr),  im = (-si, si)
//                 (ar*sr + -(ai*si), ai*sr + ar*si)
//   conj(a) * s:  re = (sr, -sr), im = (si, si), A's imaginary sign folded in
//                 (ar*sr + ai*si, -(ai*sr) + ar*si)
// x + -y rounds as x - y, so the results equal branch 3's addsub bit for bit.

// CONJ only selects the scalars' signs (zscal, cscal).
// s is a with its halves swapped.
template <bool CONJ>
GEMV_INLINE __m128d zprod_s(__m128d a, __m128d s, __m128d re, __m128d im) {
    return _mm_add_pd(_mm_mul_pd(a, re), _mm_mul_pd(s, im));
}
template <bool CONJ>
GEMV_INLINE __m128d zprod(__m128d a, __m128d re, __m128d im) {
    return zprod_s<CONJ>(a, _mm_shuffle_pd(a, a, 1), re, im);
}
// With an element of A: unaligned, the swapped pair comes from its own two
// half loads instead of a shuffle, which also spares a register.
template <bool CONJ, bool AL>
GEMV_INLINE __m128d zprod_at(const c64* p, __m128d re, __m128d im) {
    if (AL) return zprod<CONJ>(_mm_load_pd(&p->re), re, im);
    return zprod_s<CONJ>(_mm_set_pd(p->im, p->re), _mm_set_pd(p->re, p->im), re,
                         im);
}
template <bool CONJ>
GEMV_INLINE void zscal(const c64* s, __m128d& re, __m128d& im) {
    re = _mm_load1_pd(&s->re);
    im = _mm_load1_pd(&s->im);
    if (CONJ)
        re = _mm_xor_pd(re, _mm_set_pd(-0.0, 0.0));
    else
        im = _mm_xor_pd(im, _mm_set_pd(0.0, -0.0));
}
GEMV_INLINE void zscal_reg(__m128d s, __m128d& re, __m128d& im) {
    re = _mm_unpacklo_pd(s, s);
    im = _mm_xor_pd(_mm_unpackhi_pd(s, s), _mm_set_pd(0.0, -0.0));
}

template <bool CONJ>
GEMV_INLINE __m128 cprod(__m128 a, __m128 re, __m128 im) {
    const __m128 s = _mm_shuffle_ps(a, a, 0xb1);
    return _mm_add_ps(_mm_mul_ps(a, re), _mm_mul_ps(s, im));
}
// Two complex scalars (one per 64-bit lane) split into re and im vectors.
template <bool CONJ>
GEMV_INLINE void cscal(__m128 s, __m128& re, __m128& im) {
    re = _mm_shuffle_ps(s, s, 0xa0);
    im = _mm_shuffle_ps(s, s, 0xf5);
    if (CONJ)
        re = _mm_xor_ps(re, _mm_set_ps(-0.0f, 0.0f, -0.0f, 0.0f));
    else
        im = _mm_xor_ps(im, _mm_set_ps(0.0f, -0.0f, 0.0f, -0.0f));
}
#else
// a * s for a complex scalar s given as re = (sr, sr), im = (si, si):
//   (ar*sr - ai*si, ai*sr + ar*si)
// conj(a) * s takes re = (-sr, -sr), im = (si, si), the sign of A's imaginary
// part folded into the scalar:
//   (ai*si + ar*sr, ar*si - ai*sr)
// Both are the swapped-pair multiply and one addsub.

// s is a with its halves swapped.
template <bool CONJ>
GEMV_INLINE __m128d zprod_s(__m128d a, __m128d s, __m128d re, __m128d im) {
    if (CONJ) return _mm_addsub_pd(_mm_mul_pd(s, im), _mm_mul_pd(a, re));
    return _mm_addsub_pd(_mm_mul_pd(a, re), _mm_mul_pd(s, im));
}
template <bool CONJ>
GEMV_INLINE __m128d zprod(__m128d a, __m128d re, __m128d im) {
    return zprod_s<CONJ>(a, _mm_shuffle_pd(a, a, 1), re, im);
}
// With an element of A: unaligned, the swapped pair comes from its own two
// half loads instead of a shuffle, which also spares a register.
template <bool CONJ, bool AL>
GEMV_INLINE __m128d zprod_at(const c64* p, __m128d re, __m128d im) {
    if (AL) return zprod<CONJ>(_mm_load_pd(&p->re), re, im);
    return zprod_s<CONJ>(_mm_set_pd(p->im, p->re), _mm_set_pd(p->re, p->im), re,
                         im);
}
template <bool CONJ>
GEMV_INLINE void zscal(const c64* s, __m128d& re, __m128d& im) {
    re = _mm_loaddup_pd(&s->re);
    im = _mm_loaddup_pd(&s->im);
    if (CONJ) re = _mm_xor_pd(re, _mm_set1_pd(-0.0));
}
GEMV_INLINE void zscal_reg(__m128d s, __m128d& re, __m128d& im) {
    re = _mm_unpacklo_pd(s, s);
    im = _mm_unpackhi_pd(s, s);
}

template <bool CONJ>
GEMV_INLINE __m128 cprod(__m128 a, __m128 re, __m128 im) {
    const __m128 s = _mm_shuffle_ps(a, a, 0xb1);
    if (CONJ) return _mm_addsub_ps(_mm_mul_ps(s, im), _mm_mul_ps(a, re));
    return _mm_addsub_ps(_mm_mul_ps(a, re), _mm_mul_ps(s, im));
}
// Two complex scalars (one per 64-bit lane) split into re and im vectors.
template <bool CONJ>
GEMV_INLINE void cscal(__m128 s, __m128& re, __m128& im) {
    re = _mm_moveldup_ps(s);
    im = _mm_movehdup_ps(s);
    if (CONJ) re = _mm_xor_ps(re, _mm_set1_ps(-0.0f));
}
#endif
#include "level2/gemv/sse2_real.inl"

#if ZVA_BRANCH == 2
// The dot form turns the product around: x is the vector and A's parts are
// broadcast.  Per row X = (xr, xi) and Xs, X swapped with the sign folded in:
//   a * x:        Xs = (-xi, xr)  ->  (ar*xr + -(ai*xi), ar*xi + ai*xr)
//   conj(a) * x:  Xs = (xi, -xr)  ->  (ar*xr + ai*xi, ar*xi + -(ai*xr))
// the same roundings as above; a four-column row then needs X and Xs and two
// temporaries next to its accumulators, which fits the eight registers.
template <bool AL>
GEMV_INLINE __m128d z_bprod(const c64* p, __m128d xv, __m128d xs) {
    __m128d ar, ai;
    if (AL) {
        const __m128d a = _mm_load_pd(&p->re);
        ar = _mm_unpacklo_pd(a, a);
        ai = _mm_unpackhi_pd(a, a);
    } else {
        ar = _mm_load1_pd(&p->re);
        ai = _mm_load1_pd(&p->im);
    }
    return _mm_add_pd(_mm_mul_pd(ar, xv), _mm_mul_pd(ai, xs));
}

// t[k] = sum over rows of op(a[i, k]) * x[i], in row order: a 16-byte
// element fills the vector, so t itself is the accumulator and no peel is
// needed; the columns share A's alignment.
template <int C, bool CONJ, bool AL>
GEMV_INLINE void z_dot(int m, const c64* a, int lda, const c64* x, int incx,
                       __m128d* t) {
    // Read from the stack once a row: held in a register, the mask would push
    // an accumulator of the four-column block out of the eight.
    volatile __m128d mask =
        CONJ ? _mm_set_pd(-0.0, 0.0) : _mm_set_pd(0.0, -0.0);
    __m128d xv = _mm_set_pd(x->im, x->re);
    __m128d xs = _mm_xor_pd(_mm_shuffle_pd(xv, xv, 1), mask);
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) t[k] = z_bprod<AL>(&a[k * lda], xv, xs);
    for (int i = 1; i < m; ++i) {
        const c64* xi = x + i * incx;
        xv = _mm_set_pd(xi->im, xi->re);
        xs = _mm_xor_pd(_mm_shuffle_pd(xv, xv, 1), mask);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            t[k] = _mm_add_pd(t[k], z_bprod<AL>(&a[k * lda + i], xv, xs));
    }
}

#else
// t[k] = sum over rows of op(a[i, k]) * x[i], in row order: a 16-byte
// element fills the vector, so t itself is the accumulator and no peel is
// needed; the columns share A's alignment.
template <int C, bool CONJ, bool AL>
GEMV_INLINE void z_dot(int m, const c64* a, int lda, const c64* x, int incx,
                       __m128d* t) {
    __m128d re, im;
    zscal<CONJ>(x, re, im);
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) t[k] = zprod_at<CONJ, AL>(&a[k * lda], re, im);
    for (int i = 1; i < m; ++i) {
        zscal<CONJ>(x + i * incx, re, im);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            t[k] =
                _mm_add_pd(t[k], zprod_at<CONJ, AL>(&a[k * lda + i], re, im));
    }
}

#endif
#include "level2/gemv/sse2_complex.inl"
}  // namespace
#include "level2/gemv/sse2_exports.inl"
}  // namespace zva::ZVA_NS
