// Edge kernel of the blocked multiply: the last rows of a block, fewer than
// a packed A panel holds. Plain loops: these rows are a small share of the
// work, and a plain loop reads the partial panel without caring for slots
// that hold no row.
//
// Each element is a dot product over k with four partial sums (k unrolled
// by 4), joined as (s0 + s1) + (s2 + s3); the steps beyond a multiple of 4
// are added after that in increasing k. Then C := C*beta + sum. With Fma the
// products and the final merge are fused.
#pragma once
#include "frame/types.h"

namespace zva::gemm_edge {
namespace {

// 1 in any of the four types.
template <class T> constexpr T unit() {
    if constexpr (requires(T x) { x.re; }) return T{1, 0};
    else return T(1);
}

template <bool Fma, class T> inline T madd(T a, T b, T c) {
    if constexpr (Fma) return __builtin_fma(a, b, c);
    else return a * b + c;
}

// a: packed A panel, MR slots per step, r rows used (1 .. MR-1).
// mode 2: b packed in panels of NR columns, panel stride ldb elements.
// mode 3: b is the caller's B, element (l, j) at b[l + j*ldb] for "N" and at
// b[j + l*ldb] otherwise.
template <class T, int MR, int NR, bool Fma>
void edge(int r, int n, int k, const T* a, const T* b, int ldb, T* c, int ldc, const T* beta,
          int mode, char transb) {
    const bool notb = (transb & ~0x20) == 'N';
    long bl, bj;  // steps of B along l and between columns (mode 3)
    if (notb) bl = 1, bj = ldb;
    else bl = ldb, bj = 1;
    const T be = *beta;
    const int k4 = k & ~3;
    for (int i = 0; i < r; ++i) {
        for (int j0 = 0; j0 < n; j0 += 4) {
            const int jn = n - j0 < 4 ? n - j0 : 4;
            for (int jj = 0; jj < jn; ++jj) {
                const int j = j0 + jj;
                const T* bp;
                long step;
                if (mode == 2) {
                    bp = b + (long)(j / NR) * ldb + j % NR;
                    step = NR;
                } else {
                    bp = b + j * bj;
                    step = bl;
                }
                const T* ap = a + i;
                T s0 = 0, s1 = 0, s2 = 0, s3 = 0;
                int l = 0;
                for (; l < k4; l += 4) {
                    s0 = madd<Fma>(ap[(l + 0) * MR], bp[(l + 0) * step], s0);
                    s1 = madd<Fma>(ap[(l + 1) * MR], bp[(l + 1) * step], s1);
                    s2 = madd<Fma>(ap[(l + 2) * MR], bp[(l + 2) * step], s2);
                    s3 = madd<Fma>(ap[(l + 3) * MR], bp[(l + 3) * step], s3);
                }
                T s = (s0 + s1) + (s2 + s3);
                for (; l < k; ++l) s = madd<Fma>(ap[l * MR], bp[l * step], s);
                T* cp = c + i + (long)j * ldc;
                *cp = madd<Fma>(*cp, be, s);
            }
        }
    }
}


// The same for complex elements. A holds per step either MR (re, im) pairs
// (Split false) or the MR real parts then the MR imaginary parts. In mode 3
// the letter "C" conjugates B as it is read. Per product the real part
// takes + ar*br, then - ai*bi, the imaginary part + ar*bi, then + ai*br.
template <class T, int MR, int NR, bool Fma, bool Split>
void edge_c(int r, int n, int k, const T* a, const T* b, int ldb, T* c, int ldc, const T* beta,
            int mode, char transb) {
    using R = decltype(T{}.re);
    const char tb = transb & ~0x20;
    const bool notb = tb == 'N', conj = mode == 3 && tb == 'C';
    long bl, bj;
    if (notb) bl = 1, bj = ldb;
    else bl = ldb, bj = 1;
    const bool beta1 = beta->re == R(1) && beta->im == R(0);
    const R* ar = (const R*)a;
    const int k4 = k & ~3;
    for (int i = 0; i < r; ++i) {
        // Offsets of re and im of row i at step l: l*step + (re_at, im_at).
        const int step = 2 * MR, re_at = Split ? i : 2 * i, im_at = Split ? MR + i : 2 * i + 1;
        for (int j = 0; j < n; ++j) {
            const T* bp;
            long bs;
            if (mode == 2) bp = b + (long)(j / NR) * ldb + j % NR, bs = NR;
            else bp = b + j * bj, bs = bl;
            R sr[4] = {0, 0, 0, 0}, si[4] = {0, 0, 0, 0};
            auto term = [&](int l, R& pr, R& pi) {
                const R xr = ar[l * step + re_at], xi = ar[l * step + im_at];
                const R br = bp[l * bs].re, bi = conj ? -bp[l * bs].im : bp[l * bs].im;
                pr = madd<Fma>(xr, br, pr);
                pr = madd<Fma>(-xi, bi, pr);
                pi = madd<Fma>(xr, bi, pi);
                pi = madd<Fma>(xi, br, pi);
            };
            int l = 0;
            for (; l < k4; l += 4)
                for (int q = 0; q < 4; ++q) term(l + q, sr[q], si[q]);
            R tr = (sr[0] + sr[1]) + (sr[2] + sr[3]), ti = (si[0] + si[1]) + (si[2] + si[3]);
            for (; l < k; ++l) term(l, tr, ti);
            T* cp = c + i + (long)j * ldc;
            if (beta1) {
                cp->re += tr, cp->im += ti;
            } else {
                const T x = *cp;
                cp->re = madd<Fma>(x.re, beta->re, madd<Fma>(-x.im, beta->im, tr));
                cp->im = madd<Fma>(x.re, beta->im, madd<Fma>(x.im, beta->re, ti));
            }
        }
    }
}

}  // namespace
}  // namespace zva::gemm_edge
