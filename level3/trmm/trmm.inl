// TRMM, B := alpha*op(A)*B (A on the left) or alpha*B*op(A) (on the right)
// with A triangular, in place, for S, D, C and Z on every branch: the kernel
// behind the four TRMM dispatch points.
//
// The triangle is walked in up to three levels of nested blocks. Each level
// cuts the free dimension of B into slabs and the triangle into blocks; a
// block is first multiplied by the next level down (its diagonal block) and
// then receives the product of the off-diagonal part of A with the rows or
// columns of B that no earlier block has overwritten, by the serial
// multiply with beta 1. The blocks run in the order that keeps those rows or
// columns unwritten: when a row (left) or column (right) of the result reads
// only itself and later ones, from the first block up, else from the last
// block down. alpha is carried down to the multiply and to the base
// routines (base.inl), which apply it themselves.
//
// Block sizes are the same on every branch; the branches differ only in the
// lane kind of the base routines: 128-bit on branches 2 to 5, 256-bit on 6
// and 7, fused multiply-add on 7 (registers: base.inl).
#include <cstring>

#include "frame/scalar.h"
#include "gemm/kernels.h"
#include "level3/kernels.h"
#include "simd/branch.h"
#include "simd/pairs128.h"

namespace zva::ZVA_NS {
namespace {

template <class T> constexpr bool cplx_v = sizeof(T) != sizeof(R_<T>);

// One call's case, as the walk and the base routines need it.
template <class T> struct tr_case {
    bool left;    // A on the left of B
    bool trans;   // op(A) = A^T, or A^H where conj is set
    bool conj;    // complex types only
    bool unit;    // the diagonal is not read and counts as 1
    bool fwd;     // blocks, rows and columns from the first up
    const T* alpha;
    int lda, ldb;
    const char* op;  // op(A)'s letter for the multiply
};

// Address of element (r, k) of op(A), from the diagonal block's corner a.
template <class T> const T* op_at(const tr_case<T>& c, const T* a, int r, int k) {
    return c.trans ? a + k + (long long)r * c.lda : a + r + (long long)k * c.lda;
}
// Row i (left) or column i (right) of the triangle's index in B.
template <class T> T* b_at(const tr_case<T>& c, T* b, int i) {
    return c.left ? b + i : b + (long long)i * c.ldb;
}

// ---- scalar arithmetic of the corners, tails and coefficients -------------

template <class T> T s_mul(const T& x, const T& y) {
    if constexpr (cplx_v<T>) return {x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re};
    else return x * y;
}
template <class T> T s_add(const T& x, const T& y) {
    if constexpr (cplx_v<T>) return {x.re + y.re, x.im + y.im};
    else return x + y;
}
template <class T> T s_one() {
    if constexpr (cplx_v<T>) return {1, 0};
    else return T(1);
}
// Element (r, k) of op(A); the caller keeps to the triangle.
template <class T> T op_elem(const tr_case<T>& c, const T* a, int r, int k) {
    T x = *op_at(c, a, r, k);
    if constexpr (cplx_v<T>)
        if (c.conj) x.im = -x.im;
    return x;
}

}  // namespace
}  // namespace zva::ZVA_NS

#include "level3/trmm/base.inl"

namespace zva::ZVA_NS {
namespace {

// ---- block sizes ------------------------------------------------------------

// Slab of the free dimension by block of the triangle, at each level.
struct trmm_level {
    int slab, tri;
};
struct trmm_plan {
    int levels;
    trmm_level lv[3];
};

// Rows by side (right, left), op(A) (N, C, T) and triangle (lower, upper);
// S and D take "C" as "T".
constexpr int plan_row(bool left, char op, bool upper) {
    return (left ? 6 : 0) + (op == 'N' ? 0 : op == 'C' ? 2 : 4) + (upper ? 1 : 0);
}
constexpr trmm_plan plans_s[12] = {
    {3, {{1024, 128}, {512, 64}, {64, 8}}},     {3, {{1024, 128}, {512, 64}, {64, 8}}},
    {3, {{512, 256}, {128, 64}, {64, 8}}},      {3, {{1024, 128}, {512, 64}, {64, 8}}},
    {3, {{512, 256}, {128, 64}, {64, 8}}},      {3, {{1024, 128}, {512, 64}, {64, 8}}},
    {3, {{1024, 512}, {512, 256}, {256, 128}}}, {3, {{1024, 512}, {512, 256}, {128, 128}}},
    {3, {{1024, 256}, {256, 128}, {128, 128}}}, {3, {{1024, 512}, {256, 256}, {256, 64}}},
    {3, {{1024, 256}, {256, 128}, {128, 128}}}, {3, {{1024, 512}, {256, 256}, {256, 64}}},
};
constexpr trmm_plan plans_d[12] = {
    {3, {{1024, 128}, {128, 64}, {32, 8}}},     {3, {{1024, 128}, {128, 64}, {32, 8}}},
    {3, {{1024, 128}, {128, 64}, {32, 16}}},    {3, {{1024, 128}, {128, 64}, {32, 16}}},
    {3, {{1024, 128}, {128, 64}, {32, 16}}},    {3, {{1024, 128}, {128, 64}, {32, 16}}},
    {3, {{2048, 256}, {512, 128}, {128, 128}}}, {3, {{2048, 256}, {512, 128}, {128, 128}}},
    {3, {{1024, 512}, {512, 64}, {32, 64}}},    {3, {{1024, 256}, {512, 128}, {128, 64}}},
    {3, {{1024, 512}, {512, 64}, {32, 64}}},    {3, {{1024, 256}, {512, 128}, {128, 64}}},
};
constexpr trmm_plan plans_c[12] = {
    {3, {{1024, 128}, {1024, 64}, {256, 16}}},  {3, {{1024, 128}, {1024, 64}, {1024, 16}}},
    {3, {{1024, 128}, {1024, 64}, {1024, 16}}}, {3, {{1024, 256}, {1024, 64}, {1024, 16}}},
    {3, {{1024, 128}, {1024, 32}, {1024, 16}}}, {3, {{1024, 128}, {1024, 32}, {1024, 16}}},
    {3, {{1024, 256}, {1024, 128}, {1024, 32}}}, {3, {{1024, 256}, {1024, 128}, {1024, 32}}},
    {3, {{1024, 128}, {1024, 64}, {1024, 32}}}, {3, {{1024, 256}, {1024, 64}, {1024, 32}}},
    {3, {{1024, 256}, {1024, 128}, {1024, 32}}}, {3, {{1024, 256}, {1024, 64}, {1024, 32}}},
};
constexpr trmm_plan plans_z[12] = {
    {2, {{1024, 128}, {256, 32}}},  {2, {{1024, 128}, {256, 32}}},
    {2, {{1024, 128}, {256, 32}}},  {2, {{1024, 64}, {512, 32}}},
    {2, {{1024, 128}, {256, 32}}},  {2, {{1024, 64}, {512, 32}}},
    {2, {{512, 128}, {256, 32}}},   {2, {{512, 128}, {256, 32}}},
    {2, {{1024, 128}, {1024, 32}}}, {2, {{1024, 128}, {512, 32}}},
    {2, {{512, 128}, {256, 32}}},   {2, {{1024, 128}, {256, 64}}},
};
template <class T>
constexpr const trmm_plan* plans = by_type<T, plans_s, plans_d, plans_c, plans_z>;

// The base routines hold a row pair of A in a buffer of base_most elements.
constexpr bool base_fits(const trmm_plan* p) {
    for (int r = 0; r < 12; ++r)
        if (p[r].lv[p[r].levels - 1].tri > base_most) return false;
    return true;
}
static_assert(base_fits(plans_s) && base_fits(plans_d) && base_fits(plans_c) &&
              base_fits(plans_z));

// ---- the walk ------------------------------------------------------------------

template <class T> void serial_multiply(Ch ta, Ch tb, int m, int n, int k, const T* alpha,
                                        const T* a, int lda, const T* b, int ldb, T* c, int ldc) {
    constexpr auto serial = by_type<T, sgemm_serial, dgemm_serial, cgemm_serial, zgemm_serial>;
    static const T one = s_one<T>();
    serial(ta, tb, &m, &n, &k, alpha, a, &lda, b, &ldb, &one, c, &ldc);
}

// mt is the triangle's order, nf the free extent of B; a is the diagonal
// block's corner.
template <class T>
void walk(const tr_case<T>& c, const trmm_plan& p, int level, int mt, int nf, const T* a, T* b) {
    if (level == p.levels) {
        base(c, mt, nf, a, b);
        return;
    }
    const int slab = p.lv[level].slab, tb = p.lv[level].tri;
    const int blocks = (mt + tb - 1) / tb;
    const char* const none = cplx_v<T> ? "N" : "No transpose";
    for (int s = 0; s < nf; s += slab) {
        const int ns = nf - s < slab ? nf - s : slab;
        T* const bs = c.left ? b + (long long)s * c.ldb : b + s;
        for (int q = 0; q < blocks; ++q) {
            const int i0 = (c.fwd ? q : blocks - 1 - q) * tb;
            const int ib = mt - i0 < tb ? mt - i0 : tb;
            walk(c, p, level + 1, ib, ns, op_at(c, a, i0, i0), b_at(c, bs, i0));
            // The rows or columns of B that this block still reads.
            const int k0 = c.fwd ? i0 + ib : 0, kk = c.fwd ? mt - k0 : i0;
            if (kk == 0) continue;
            if (c.left)
                serial_multiply(c.op, none, ib, ns, kk, c.alpha, op_at(c, a, i0, k0), c.lda,
                                bs + k0, c.ldb, bs + i0, c.ldb);
            else
                serial_multiply(none, c.op, ns, ib, kk, c.alpha, bs + (long long)k0 * c.ldb,
                                c.ldb, op_at(c, a, k0, i0), c.lda, b_at(c, bs, i0), c.ldb);
        }
    }
}

// Fewer elements than this are stored one by one, more by a memory fill.
constexpr int zero_fill_least = 13;

}  // namespace

template <class T>
void trmm(Ch side, Ch uplo, Ch transa, Ch diag, I m, I n, const T* alpha, const T* a, I lda,
          T* b, I ldb, L, L, L, L) {
    const int mm = *m, nn = *n;
    if (nn <= 0) return;
    if (is_zero(*alpha)) {
        // A is not read; whatever B held, NaN included, becomes zero.
        for (int j = 0; j < nn && mm > 0; ++j) {
            T* col = b + (long long)j * *ldb;
            if (mm < zero_fill_least)
                for (int i = 0; i < mm; ++i) col[i] = T{};
            else
                memset(static_cast<void*>(col), 0, sizeof(T) * mm);
        }
        return;
    }
    if (mm <= 0) return;
    tr_case<T> c;
    const char t = *transa & ~0x20;
    c.left = (*side & ~0x20) == 'L';
    c.trans = t != 'N';
    c.conj = cplx_v<T> && t == 'C';
    c.unit = (*diag & ~0x20) == 'U';
    const bool upper = (*uplo & ~0x20) == 'U';
    // op(A) upper: a row of the product reads itself and later rows of B,
    // a column reads itself and earlier columns.
    const bool op_upper = upper != c.trans;
    c.fwd = c.left ? op_upper : !op_upper;
    c.alpha = alpha;
    c.lda = *lda;
    c.ldb = *ldb;
    if constexpr (cplx_v<T>) c.op = c.conj ? "C" : c.trans ? "T" : "N";
    else c.op = c.trans ? "Transpose" : "No transpose";
    const char op = c.conj ? 'C' : c.trans ? 'T' : 'N';
    const trmm_plan& p = plans<T>[plan_row(c.left, op, upper)];
    walk(c, p, 0, c.left ? mm : nn, c.left ? nn : mm, a, b);
}
ZVA_INSTANTIATE_TYPES(trmm)

}  // namespace zva::ZVA_NS
