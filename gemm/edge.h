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

}  // namespace
}  // namespace zva::gemm_edge
