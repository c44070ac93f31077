// SYMM and HEMM for every branch and type: C := alpha*A*B + beta*C (side
// "L") or alpha*B*A + beta*C, where only one triangle of A is stored.
//
// All arithmetic is the branch's serial multiply. The diagonal of A is
// walked in blocks; each diagonal block is expanded into a full square (the
// missing triangle mirrored, conjugated for HEMM) and multiplied as a plain
// general block, and everything off the diagonal goes to the multiply as it
// is stored, with the letter "T" (HEMM: "C") where the stored triangle is the
// wrong one. Per block of the diagonal that is three calls: the block row
// before it, the square, the block column after it.
//
// What differs between the branches: their serial multiply and their lane
// kinds for the expansion (128-bit lanes up to branch 5, 256-bit from 6),
// and the D kernels of branches 2 to 5, whose engines take any width, so
// they do not cut B and C into panels. Register budget: the expansion holds
// at most four vectors (value, alpha's two parts, a sign mask).
//
// SYMM folds alpha into its square, which comes from the scratch manager;
// HEMM keeps its square on the stack and lets the square's multiply apply
// alpha. Without scratch memory SYMM falls back to a plain multiply.
#include "frame/check.h"
#include "frame/memory.h"
#include "frame/scalar.h"
#include "gemm/kernels.h"
#include "level3/kernels.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

using simd::factor;
using simd::make_factor;
using simd::times;

// Order of the diagonal blocks: SYMM's square fits its scratch block (Z on
// side "R" takes half, as its row panels are long); HEMM's stack block is a
// fixed 128 x 128 with that leading dimension.
constexpr int symm_block = 256, symm_block_z_right = 128, hemm_block = 128;
// Width of the panels of B and C: each multiply then stays within the
// engine's column block; D on side "L" with the upper triangle reads its
// block columns transposed and keeps narrower panels.
constexpr int panel_wide = 5000, panel_d_left_upper = 1000, panel_none = 1 << 30;

template <class T> constexpr bool is_cplx = sizeof(T) != sizeof(R_<T>);
template <class T> constexpr T one_of() {
    if constexpr (is_cplx<T>) return T{1, 0};
    else return T(1);
}

// The serial multiply of this branch for type T.
template <class T>
inline constexpr auto serial = by_type<T, sgemm_serial, dgemm_serial, cgemm_serial, zgemm_serial>;

template <class T, bool Herm> int panel_limit(bool left, bool lower) {
    if constexpr (!Herm && __is_same(T, double)) {
        if (branch <= 5) return panel_none;
        if (left && !lower) return panel_d_left_upper;
    }
    return panel_wide;
}

// ---- expansion of a diagonal block ---------------------------------------

// buf := alpha * A (SYMM) or A (HEMM) over the whole n x n square, reading
// only the stored triangle of A. A column of the square is a run read down
// the stored column and a run read across the stored row (the mirror,
// conjugated for HEMM). HEMM takes the diagonal's real parts only.
template <class T, bool Herm>
struct expander {
    using LV = lanev<T>;
    using L1 = lane1<T>;
    factor<LV> fv;
    factor<L1> f1;
    typename LV::v signv;  // flips the imaginary parts of the mirror
    typename L1::v sign1;

    explicit expander(const T& alpha) : fv(make_factor<LV>(alpha)), f1(make_factor<L1>(alpha)) {
        if constexpr (Herm) {
            signv = LV::pair(R_<T>(0), -R_<T>(0));
            sign1 = L1::pair(R_<T>(0), -R_<T>(0));
        } else {
            signv = LV::zero();
            sign1 = L1::zero();
        }
    }

    template <class L, bool Mirror>
    static typename L::v value(const T* p, int lda, const factor<L>& f, typename L::v sign) {
        typename L::v x = Mirror ? L::gather(p, lda) : L::load(p);
        if constexpr (Herm && Mirror) x = L::flip(x, sign);
        if constexpr (!Herm) x = times(f, x);
        return x;
    }

    // count elements into dst, from p on, down a column (step 1) or across
    // a row (step lda) of A.
    template <bool Mirror> void run(T* dst, const T* p, int lda, int count) const {
        const long step = Mirror ? lda : 1;
        int r = 0;
        for (; r + LV::W <= count; r += LV::W)
            LV::store(dst + r, value<LV, Mirror>(p + r * step, lda, fv, signv));
        for (; r < count; ++r) L1::store(dst + r, value<L1, Mirror>(p + r * step, lda, f1, sign1));
    }

    void expand(bool lower, int n, const T* a, int lda, T* buf, int ldbuf) const {
        for (int j = 0; j < n; ++j) {
            T* col = buf + (long)j * ldbuf;
            const T* stored = a + (long)j * lda;  // A(0, j)
            const T* across = a + j;              // A(j, 0)
            if (lower) {
                run<true>(col, across, lda, j);
                run<false>(col + j, stored + j, lda, n - j);
            } else {
                run<false>(col, stored, lda, j + 1);
                run<true>(col + j + 1, across + (long)(j + 1) * lda, lda, n - j - 1);
            }
            if constexpr (Herm) col[j].im = 0;
        }
    }
};

// ---- the blocked product ---------------------------------------------------

// The operands of one call, with C already scaled: beta counts as 1.
template <class T>
struct operands {
    bool left, lower;
    int m, n;
    const T* alpha;
    const T* a;
    int lda;
    const T* b;
    int ldb;
    T* c;
    int ldc;
};

// Walks the diagonal of A in blocks of nd; buf holds one expanded block with
// leading dimension ldbuf (0: the block's own order).
template <class T, bool Herm>
void multiply_blocks(const operands<T>& o, T* buf, int nd, int ldbuf) {
    static const T one = one_of<T>();
    static const char nn[] = "N", tr[] = {Herm ? 'C' : 'T', 0};
    const expander<T, Herm> ex(*o.alpha);
    // SYMM's square carries alpha already.
    const T* square_alpha = Herm ? o.alpha : &one;
    const int order = o.left ? o.m : o.n, other = o.left ? o.n : o.m;
    const int limit = panel_limit<T, Herm>(o.left, o.lower);
    const int lda = o.lda, ldb = o.ldb, ldc = o.ldc;
    for (int p = 0; p < other; p += limit) {
        int pw = other - p < limit ? other - p : limit;
        for (int i = 0; i < order; i += nd) {
            int bs = order - i < nd ? order - i : nd;
            int rest = order - i - bs;
            int ldq = ldbuf ? ldbuf : bs;
            // The stored block row before the square and block column after
            // it: A(i, 0) and A(i + bs, i) below the diagonal, A(0, i) and
            // A(i, i + bs) above it. The one that lies across the diagonal
            // from the product's side is read transposed.
            const T* before = o.lower ? o.a + i : o.a + (long)i * lda;
            const T* after = o.lower ? o.a + i + bs + (long)i * lda : o.a + i + (long)(i + bs) * lda;
            const char* before_letter = o.lower == o.left ? tr : nn;
            const char* after_letter = o.lower == o.left ? nn : tr;
            if (o.left) {
                const T* bp = o.b + i + (long)p * ldb;
                T* cp = o.c + (long)p * ldc;
                if (i > 0)
                    serial<T>(before_letter, nn, &i, &pw, &bs, o.alpha, before, &o.lda, bp, &o.ldb,
                              &one, cp, &o.ldc);
                ex.expand(o.lower, bs, o.a + i + (long)i * lda, lda, buf, ldq);
                serial<T>(nn, nn, &bs, &pw, &bs, square_alpha, buf, &ldq, bp, &o.ldb, &one, cp + i,
                          &o.ldc);
                if (rest > 0)
                    serial<T>(after_letter, nn, &rest, &pw, &bs, o.alpha, after, &o.lda, bp, &o.ldb,
                              &one, cp + i + bs, &o.ldc);
            } else {
                const T* bp = o.b + p + (long)i * ldb;
                T* cp = o.c + p;
                if (i > 0)
                    serial<T>(nn, before_letter, &pw, &i, &bs, o.alpha, bp, &o.ldb, before, &o.lda,
                              &one, cp, &o.ldc);
                ex.expand(o.lower, bs, o.a + i + (long)i * lda, lda, buf, ldq);
                serial<T>(nn, nn, &pw, &bs, &bs, square_alpha, bp, &o.ldb, buf, &ldq, &one,
                          cp + (long)i * ldc, &o.ldc);
                if (rest > 0)
                    serial<T>(nn, after_letter, &pw, &rest, &bs, o.alpha, bp, &o.ldb, after, &o.lda,
                              &one, cp + (long)(i + bs) * ldc, &o.ldc);
            }
        }
    }
}

// ---- the plain multiply, when no scratch block can be had ----------------

template <class T> inline T mul(const T& x, const T& y) {
    if constexpr (is_cplx<T>) return {x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re};
    else return x * y;
}
template <class T> inline T add(const T& x, const T& y) {
    if constexpr (is_cplx<T>) return {x.re + y.re, x.im + y.im};
    else return x + y;
}

// Element (i, l) of the symmetric matrix that A's stored triangle stands for.
template <class T> inline T full(bool lower, const T* a, long lda, int i, int l) {
    const bool stored = lower ? i >= l : i <= l;
    return stored ? a[i + l * lda] : a[l + i * lda];
}

// C scaled already: each element of C takes alpha times one sum in
// increasing l.
template <class T>
void symm_direct(const operands<T>& o) {
    const bool left = o.left, lower = o.lower;
    const int m = o.m, n = o.n, order = left ? m : n, lda = o.lda, ldb = o.ldb;
    const T* a = o.a;
    const T* b = o.b;
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < m; ++i) {
            T s{};
            for (int l = 0; l < order; ++l) {
                s = left ? add(s, mul(full(lower, a, lda, i, l), b[l + (long)j * ldb]))
                         : add(s, mul(b[i + (long)l * ldb], full(lower, a, lda, l, j)));
            }
            T& e = o.c[i + (long)j * o.ldc];
            e = add(e, mul(*o.alpha, s));
        }
}

// ---- the kernels -------------------------------------------------------------

// Scales C once, then the blocks with beta = 1; false when nothing more is
// to be done.
template <class T>
bool scale_first(I m, I n, const T* alpha, const T* beta, T* c, I ldc) {
    if (*m == 0 || *n == 0) return false;
    if (is_zero(*alpha) && is_one(*beta)) return false;
    if (!is_one(*beta)) gemm_scale_c<T>(m, n, beta, c, ldc);
    return !is_zero(*alpha);
}

template <class T>
operands<T> operands_of(Ch side, Ch uplo, I m, I n, const T* alpha, const T* a, I lda, const T* b,
                        I ldb, T* c, I ldc) {
    return {(*side & ~0x20) == 'L', (*uplo & ~0x20) == 'L', *m, *n, alpha, a, *lda, b, *ldb, c,
            *ldc};
}

}  // namespace

template <class T>
void symm(Ch side, Ch uplo, I m, I n, const T* alpha, const T* a, I lda, const T* b, I ldb,
          const T* beta, T* c, I ldc, L, L) {
    const operands<T> o = operands_of(side, uplo, m, n, alpha, a, lda, b, ldb, c, ldc);
    const int nd = sizeof(T) == 16 && !o.left ? symm_block_z_right : symm_block;
    T* buf = (T*)scratch_alloc((uint32_t)(nd * nd * sizeof(T)), 64);
    if (err_no_memory(buf, "xsymm")) {
        if (scale_first(m, n, alpha, beta, c, ldc)) symm_direct(o);
        return;
    }
    if (scale_first(m, n, alpha, beta, c, ldc)) multiply_blocks<T, false>(o, buf, nd, 0);
    scratch_free(buf);
}
ZVA_INSTANTIATE_TYPES(symm)

template <class T>
void hemm(Ch side, Ch uplo, I m, I n, const T* alpha, const T* a, I lda, const T* b, I ldb,
          const T* beta, T* c, I ldc, L, L) {
    if (!scale_first(m, n, alpha, beta, c, ldc)) return;
    alignas(64) T square[hemm_block * hemm_block];
    multiply_blocks<T, true>(operands_of(side, uplo, m, n, alpha, a, lda, b, ldb, c, ldc), square,
                             hemm_block, hemm_block);
}
template decltype(hemm<c32>) hemm<c32>;
template decltype(hemm<c64>) hemm<c64>;

}  // namespace zva::ZVA_NS
