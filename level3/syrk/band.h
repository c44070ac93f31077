// What the serial SYRK and SYR2K kernels share: the letters and operands of
// one call, the scaling of the triangle, and the band along the diagonal.
//
// Everything away from the diagonal goes to the branch's gemm_serial. The
// diagonal blocks are a full square product into a temporary block (so that
// they too run at multiply speed) whose triangle is then added to C; where
// no temporary block is at hand (ZHERK, or a failed request for memory),
// the leaf kernels (level3/syrk/leaf.h) sum the block's triangle instead.
//
// Branch code: included by the recipes only, in an unnamed namespace, so
// each branch keeps its own copy.
#pragma once
#include <stddef.h>

#include "frame/check.h"
#include "frame/memory.h"
#include "gemm/kernels.h"
#include "level3/kernels.h"
#include "level3/syrk/leaf.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

// The temporary block has this leading dimension whatever its width.
inline constexpr int temp_ld = 128;

template <class T> inline constexpr bool is_cplx = sizeof(T) != sizeof(R_<T>);
template <class T> inline constexpr auto gemm_of =
    by_type<T, &sgemm_serial, &dgemm_serial, &cgemm_serial, &zgemm_serial>;

template <class T> constexpr T unit(R_<T> x) {
    if constexpr (is_cplx<T>) return T{x, 0};
    else return x;
}
template <class T> T conj_of(T x) {
    if constexpr (is_cplx<T>) return T{x.re, -x.im};
    else return x;
}
template <class T> T add(T x, T y) {
    if constexpr (is_cplx<T>) return T{x.re + y.re, x.im + y.im};
    else return x + y;
}

// One call as the blocks see it. Row r of op(X) starts at at(x, ld, r);
// ta, tb are the letters that give X*op(Y)' to gemm_serial.
struct band_op {
    bool upper, notrans, herm;
    char ta, tb;
    int n, k;
};
inline band_op band_op_of(Ch uplo, Ch trans, int n, int k, bool herm) {
    band_op o;
    o.upper = (*uplo & ~0x20) == 'U';
    o.notrans = (*trans & ~0x20) == 'N';
    o.herm = herm;
    const char t = herm ? 'C' : 'T';
    o.ta = o.notrans ? 'N' : t;
    o.tb = o.notrans ? t : 'N';
    o.n = n, o.k = k;
    return o;
}
template <class T> const T* at(const band_op& o, const T* x, int ld, int r) {
    return o.notrans ? x + r : x + (ptrdiff_t)r * ld;
}

// C := beta*C on the triangle, zeros for beta = 0 without reading C. A real
// beta of a complex C (HERK, HER2K) scales both parts alike, and the
// diagonal's imaginary parts become 0.
template <class T, class B> void scale_triangle(const band_op& o, const B& beta, T* c, int ldc) {
    static const int one = 1;
    for (int j = 0; j < o.n; ++j) {
        const int first = o.upper ? 0 : j, len = o.upper ? j + 1 : o.n - j;
        T* col = c + first + (ptrdiff_t)j * ldc;
        if constexpr (sizeof(B) != sizeof(T)) {
            const int len2 = 2 * len;
            gemm_scale_c<B>(&len2, &one, &beta, reinterpret_cast<B*>(col), &ldc);
            c[j + (ptrdiff_t)j * ldc].im = 0;
        } else {
            gemm_scale_c<T>(&len, &one, &beta, col, &ldc);
        }
    }
}

// The rectangle of C beside diagonal block j (width jb) inside the
// triangle: right of it for "U", below it for "L". C += alpha*X*op(Y)',
// X giving the rows of C and Y the columns; beta is 1 here.
template <class T>
void beside(const band_op& o, int j, int jb, const T& alpha, const T* x, int ldx, const T* y,
            int ldy, T* c, int ldc) {
    static const T one = unit<T>(1);
    const int rest = o.n - j - jb;
    if (rest <= 0) return;
    const int r0 = o.upper ? j : j + jb, c0 = o.upper ? j + jb : j;
    int m = o.upper ? jb : rest, n = o.upper ? rest : jb;
    gemm_of<T>(&o.ta, &o.tb, &m, &n, &o.k, &alpha, at(o, x, ldx, r0), &ldx, at(o, y, ldy, c0),
               &ldy, &one, c + r0 + (ptrdiff_t)c0 * ldc, &ldc);
}

// The full jb x jb product alpha*X*op(Y)' of diagonal block j into t.
template <class T>
void square(const band_op& o, int j, int jb, const T& alpha, const T* x, int ldx, const T* y,
            int ldy, T* t) {
    static const T zero = unit<T>(0);
    static const int ld = temp_ld;
    gemm_of<T>(&o.ta, &o.tb, &jb, &jb, &o.k, &alpha, at(o, x, ldx, j), &ldx, at(o, y, ldy, j),
               &ldy, &zero, t, &ld);
}

// Rows of column q of a jb-wide diagonal block that lie in the triangle.
inline int tri_first(const band_op& o, int q) { return o.upper ? 0 : q; }
inline int tri_end(const band_op& o, int q, int jb) { return o.upper ? q + 1 : jb; }

// C += T on the block's triangle, or, for the 2k updates, C := (C + T) +
// T' in that order, T' conjugated for HER2K. Hermitian diagonals add real
// parts only and keep an imaginary part of 0.
template <class T, bool Two>
void add_square(const band_op& o, int jb, const T* t, T* c, int ldc) {
    for (int q = 0; q < jb; ++q) {
        T* cq = c + (ptrdiff_t)q * ldc;
        for (int r = tri_first(o, q); r < tri_end(o, q, jb); ++r) {
            T v = add(cq[r], t[r + q * temp_ld]);
            if constexpr (Two) {
                const T w = t[q + r * temp_ld];
                v = add(v, o.herm ? conj_of(w) : w);
            }
            cq[r] = v;
        }
        if constexpr (is_cplx<T>)
            if (o.herm) cq[q].im = 0;
    }
}

// The block's triangle by the leaf kernels: C += alpha*X*op(Y)', and for
// the 2k updates + alpha2*Y*op(X)' after it.
template <class T>
void leaf_square(const band_op& o, int j, int jb, const T& alpha, const T* x, int ldx,
                 const T* y, int ldy, const T* alpha2, T* c, int ldc) {
    leaf_args<T> p;
    p.n = jb, p.k = o.k;
    p.c = c + j + (ptrdiff_t)j * ldc, p.ldc = ldc;
    p.notrans = o.notrans, p.herm = o.herm;
    p.conjx = o.herm && !o.notrans, p.conjy = o.herm && o.notrans;
    p.alpha = alpha;
    p.x = at(o, x, ldx, j), p.ldx = ldx;
    p.y = at(o, y, ldy, j), p.ldy = ldy;
    leaf_of(o.upper, p);
    if (alpha2) {
        p.alpha = *alpha2;
        p.x = at(o, y, ldy, j), p.ldx = ldy;
        p.y = at(o, x, ldx, j), p.ldy = ldx;
        leaf_of(o.upper, p);
    }
}

// The band kernel: diagonal blocks of nd, each through the temporary block
// (or the leaf kernels without one), then its rectangle. One product for
// SYRK and HERK (y = x, alpha2 null); for the 2k updates the diagonal block
// still needs one product only, its transpose being the other, while the
// rectangle takes two, the second with alpha2.
template <class T, bool Two>
void band(const band_op& o, int nd, bool with_temp, const char* tag, const T& alpha,
          const T* x, int ldx, const T* y, int ldy, const T* alpha2, T* c, int ldc) {
    T* t = nullptr;
    if (with_temp) {
        const int w = o.n < nd ? o.n : nd;
        t = static_cast<T*>(scratch_alloc((uint32_t)(temp_ld * w * sizeof(T)), 128));
        err_no_memory(t, tag);
    }
    for (int j = 0; j < o.n; j += nd) {
        const int jb = o.n - j < nd ? o.n - j : nd;
        T* cj = c + j + (ptrdiff_t)j * ldc;
        if (t) {
            square(o, j, jb, alpha, x, ldx, y, ldy, t);
            add_square<T, Two>(o, jb, t, cj, ldc);
        } else {
            leaf_square(o, j, jb, alpha, x, ldx, y, ldy, alpha2, c, ldc);
        }
        beside(o, j, jb, alpha, x, ldx, y, ldy, c, ldc);
        if (Two) beside(o, j, jb, *alpha2, y, ldy, x, ldx, c, ldc);
    }
    if (t) scratch_free(t);
}

}  // namespace
}  // namespace zva::ZVA_NS
