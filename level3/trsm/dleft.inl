// DTRSM with side "L": B := inv(op(A))*B, alpha already applied.
//
// Four walks over the rows of B, one per (transa, uplo), in outer blocks with
// a multiply update of the unsolved rows after each. Inside a block the rows
// go through triangle kernels written out by their size R: the far rows of
// the triangle (where the substitution starts) are solved first, the near
// rows then lose their product with them through an update kernel of fixed
// shape, and the near rows are solved in turn.
//
// The update kernels read the off-diagonal block of op(A) from a packed copy
// on the stack (groups of four rows, each a run of column pairs), so that one
// set of kernels serves the transposed and the plain walks alike. They work
// on 128-bit vectors of two doubles with separate multiply and add on every
// branch: 4 accumulators, one B pair and one product in the 8 registers of
// 32-bit code. The branches differ only in the 4x4 solves and the tail rows:
// branch 7 subtracts by a fused negative multiply-add, the others by a
// multiply and a subtract. Bits do not depend on the alignment of B: the
// aligned and unaligned forms differ only in their loads and stores.
#include <immintrin.h>

#include "frame/scalar.h"
#include "gemm/kernels.h"
#include "level3/trsm/trsm.h"
#include "simd/branch.h"

// Without this, the compiler folds each accumulator's chain of the unrolled
// update kernels into one expression and evaluates them one after another:
// every B pair is then loaded four times (or spilled), and the loads, not the
// arithmetic, bound the kernel. Kept apart, a pair is loaded once per group.
#pragma GCC optimize("no-tree-ter")

namespace zva::ZVA_NS {
namespace {

// op(A)(i, j) of a walk.
template <bool Trans> inline const double* at(const double* a, int lda, int i, int j) {
    return Trans ? a + j + (long)i * lda : a + i + (long)j * lda;
}

// ---- 4x4 solves and tail rows ------------------------------------------------

// Two columns of B side by side (pd), or one (sd).
struct two_cols {
    static __m128d load(const double* p, int ld) { return _mm_loadh_pd(_mm_load_sd(p), p + ld); }
    static void store(double* p, int ld, __m128d x) {
        _mm_storel_pd(p, x);
        _mm_storeh_pd(p + ld, x);
    }
    static __m128d div(__m128d x, __m128d d) { return _mm_div_pd(x, d); }
    static __m128d nmadd(__m128d y, __m128d a, __m128d x) {
        if constexpr (branch == 7) return _mm_fnmadd_pd(a, x, y);
        else return _mm_sub_pd(y, _mm_mul_pd(a, x));
    }
};
struct one_col {
    static __m128d load(const double* p, int) { return _mm_load_sd(p); }
    static void store(double* p, int, __m128d x) { _mm_store_sd(p, x); }
    static __m128d div(__m128d x, __m128d d) { return _mm_div_sd(x, d); }
    static __m128d nmadd(__m128d y, __m128d a, __m128d x) {
        if constexpr (branch == 7) return _mm_fnmadd_sd(a, x, y);
        else return _mm_sub_sd(y, _mm_mul_sd(a, x));
    }
};

// N rows (1 to 4) of one or two columns, held in registers: in each round a
// true division by the diagonal (none for a unit one), then the rows still
// to come lose their product with the row just solved.
template <class V, int N, bool Trans, bool Fwd>
[[gnu::always_inline]] inline void solve_cols(bool unit, const double* a, int lda, double* b,
                                              int ldb) {
    __m128d x[N];
#pragma GCC unroll 4
    for (int i = 0; i < N; ++i) x[i] = V::load(b + i, ldb);
#pragma GCC unroll 4
    for (int s = 0; s < N; ++s) {
        const int i = Fwd ? s : N - 1 - s;
        if (!unit) x[i] = V::div(x[i], _mm_set1_pd(*at<Trans>(a, lda, i, i)));
#pragma GCC unroll 4
        for (int t = s + 1; t < N; ++t) {
            const int k = Fwd ? t : N - 1 - t;
            x[k] = V::nmadd(x[k], _mm_set1_pd(*at<Trans>(a, lda, k, i)), x[i]);
        }
    }
#pragma GCC unroll 4
    for (int i = 0; i < N; ++i) V::store(b + i, ldb, x[i]);
}

// The N x N triangle at a (its first diagonal element) on cols columns.
template <int N, bool Trans, bool Fwd>
void solve(bool unit, int cols, const double* a, int lda, double* b, int ldb) {
    int j = 0;
    for (; j + 2 <= cols; j += 2)
        solve_cols<two_cols, N, Trans, Fwd>(unit, a, lda, b + (long)j * ldb, ldb);
    if (j < cols) solve_cols<one_col, N, Trans, Fwd>(unit, a, lda, b + (long)j * ldb, ldb);
}

// The tail of 1 to 3 rows of a block.
template <bool Trans, bool Fwd>
void solve_tail(int r, bool unit, int cols, const double* a, int lda, double* b, int ldb) {
    if (r == 1) solve<1, Trans, Fwd>(unit, cols, a, lda, b, ldb);
    else if (r == 2) solve<2, Trans, Fwd>(unit, cols, a, lda, b, ldb);
    else solve<3, Trans, Fwd>(unit, cols, a, lda, b, ldb);
}

// ---- packed blocks and update kernels ---------------------------------------

// The pack buffer of one triangle kernel: room for any block it packs.
constexpr int pack_doubles = 4096;  // 32 KiB

// rows x k of op(A) from a = op(A)(r0, c0), rows and k multiples of 4: per
// group of four rows, k/2 column pairs of 8 doubles, a(r, c) a(r, c+1) then
// the same for r+1, r+2, r+3.
template <bool Trans>
void pack(const double* a, int lda, int rows, int k, double* buf) {
    for (int g = 0; g < rows; g += 4)
        for (int c = 0; c < k; c += 2, buf += 8) {
            if constexpr (Trans) {
                // op(A)(r, c..c+1) is a pair within column r of A
                for (int r = 0; r < 4; ++r)
                    _mm_store_pd(buf + 2 * r, _mm_loadu_pd(a + c + (long)(g + r) * lda));
            } else {
                // columns c and c+1 of A, four rows each, interleaved
                const double* p = a + g + (long)c * lda;
                const __m128d x01 = _mm_loadu_pd(p), x23 = _mm_loadu_pd(p + 2);
                const __m128d y01 = _mm_loadu_pd(p + lda), y23 = _mm_loadu_pd(p + lda + 2);
                _mm_store_pd(buf, _mm_unpacklo_pd(x01, y01));
                _mm_store_pd(buf + 2, _mm_unpackhi_pd(x01, y01));
                _mm_store_pd(buf + 4, _mm_unpacklo_pd(x23, y23));
                _mm_store_pd(buf + 6, _mm_unpackhi_pd(x23, y23));
            }
        }
}

template <bool Al> inline __m128d load_b(const double* p) {
    return Al ? _mm_load_pd(p) : _mm_loadu_pd(p);
}
template <bool Al> inline void store_b(double* p, __m128d x) {
    if constexpr (Al) _mm_store_pd(p, x);
    else _mm_storeu_pd(p, x);
}

// A plain load of the next column's first word into a dead register, so that
// its line is on its way while this column is worked; the last column has no
// next one and goes without.
inline void touch(const double* p) { (void)*reinterpret_cast<const volatile int*>(p); }

// One column: d(R) -= P(R x K) * s(K). Per group of four rows, an
// accumulator per row runs through the K/2 pairs in order; a pair of rows is
// folded by an unpack high, an unpack low and an add.
template <int R, int K, bool Al, bool Touch>
[[gnu::always_inline]] inline void update_column(const double* P, const double* s, double* d,
                                                 int lds, int ldd) {
#pragma GCC unroll 4
    for (int g = 0; g < R; g += 4) {
        const double* pg = P + g * K;
        __m128d acc0 = _mm_setzero_pd(), acc1 = acc0, acc2 = acc0, acc3 = acc0;
#pragma GCC unroll 16
        for (int p = 0; p < K / 2; ++p) {
            const __m128d x = load_b<Al>(s + 2 * p);
            acc0 = _mm_add_pd(acc0, _mm_mul_pd(_mm_load_pd(pg + 8 * p), x));
            acc1 = _mm_add_pd(acc1, _mm_mul_pd(_mm_load_pd(pg + 8 * p + 2), x));
            acc2 = _mm_add_pd(acc2, _mm_mul_pd(_mm_load_pd(pg + 8 * p + 4), x));
            acc3 = _mm_add_pd(acc3, _mm_mul_pd(_mm_load_pd(pg + 8 * p + 6), x));
        }
        if (Touch && g == 0) {
            touch(s + lds);
            touch(d + ldd);
        }
        const __m128d s01 = _mm_add_pd(_mm_unpacklo_pd(acc0, acc1), _mm_unpackhi_pd(acc0, acc1));
        const __m128d s23 = _mm_add_pd(_mm_unpacklo_pd(acc2, acc3), _mm_unpackhi_pd(acc2, acc3));
        store_b<Al>(d + g, _mm_sub_pd(load_b<Al>(d + g), s01));
        store_b<Al>(d + g + 2, _mm_sub_pd(load_b<Al>(d + g + 2), s23));
    }
}

// Bdst(R x cols) -= P(R x K) * Bsrc(K x cols).
template <int R, int K, bool Al>
void update(int cols, const double* P, const double* s, int lds, double* d, int ldd) {
    for (int j = 0; j < cols - 1; ++j, s += lds, d += ldd)
        update_column<R, K, Al, true>(P, s, d, lds, ldd);
    if (cols > 0) update_column<R, K, Al, false>(P, s, d, lds, ldd);
}

// ---- triangle kernels ----------------------------------------------------------

// R rows (a multiple of 4) of the triangle at a, on cols columns of b. The
// far F rows (4, 8, 16 or 32 by R) go first, by the same kernel; the near
// rows lose op(A)(near, far) * B(far) in chunks of the shapes of F; then the
// near rows are the next triangle.
template <bool Trans, bool Fwd, bool Al>
void tri(bool unit, int R, int cols, const double* a, int lda, double* b, int ldb,
         double* buf) {
    for (;;) {
        if (R == 4) {
            solve<4, Trans, Fwd>(unit, cols, a, lda, b, ldb);
            return;
        }
        const int F = R <= 8 ? 4 : R <= 16 ? 8 : R <= 32 ? 16 : 32;
        const int near = R - F, f0 = Fwd ? 0 : near, n0 = Fwd ? F : 0;
        tri<Trans, Fwd, Al>(unit, F, cols, a + (long)f0 * (lda + 1), lda, b + f0, ldb, buf);
        // near rows from the far side outwards
        int done = 0;
        auto chunk = [&](int rows, auto kernel) {
            const int r0 = Fwd ? n0 + done : n0 + near - done - rows;
            pack<Trans>(at<Trans>(a, lda, r0, f0), lda, rows, F, buf);
            kernel(cols, buf, b + f0, ldb, b + r0, ldb);
            done += rows;
        };
        if (F == 4) {
            chunk(4, update<4, 4, Al>);
        } else if (F == 8) {
            while (near - done >= 8) chunk(8, update<8, 8, Al>);
            if (near - done >= 4) chunk(4, update<4, 8, Al>);
        } else if (F == 16) {
            while (near - done >= 16) chunk(16, update<16, 16, Al>);
            if (near - done >= 8) chunk(8, update<8, 16, Al>);
            if (near - done >= 4) chunk(4, update<4, 16, Al>);
        } else {
            while (near - done >= 16) chunk(16, update<16, 32, Al>);
            while (near - done >= 4) chunk(4, update<4, 32, Al>);
        }
        a += (long)n0 * (lda + 1);
        b += n0;
        R = near;
    }
}

// ---- walks ------------------------------------------------------------------------

// Rows of an outer block, the split above which its far rows go first, and
// the column panel of the triangle kernel.
struct walk_shape {
    int outer, split, panel;
};
template <bool Trans, bool Fwd> constexpr walk_shape shape_of = {};
template <> constexpr walk_shape shape_of<false, false> = {64, 32, 32};   // N, upper
template <> constexpr walk_shape shape_of<false, true> = {512, 256, 128};  // N, lower
template <> constexpr walk_shape shape_of<true, true> = {256, 128, 64};    // T, upper
template <> constexpr walk_shape shape_of<true, false> = {512, 128, 64};   // T, lower

// C(m x n) -= op(A)(m x k) * B(k x n) by the serial multiply of this branch.
template <bool Trans>
void minus_product(int m, int n, int k, const double* a, int lda, const double* b, int ldb,
                   double* c, int ldc) {
    if (m <= 0 || n <= 0 || k <= 0) return;
    static const double minus_one = -1, one = 1;
    dgemm_serial(Trans ? "Transpose" : "No transpose", "No transpose", &m, &n, &k, &minus_one, a,
                 &lda, b, &ldb, &one, c, &ldc);
}

// R rows by the triangle kernel, panel columns a call. The aligned form needs
// every column of the block to start on a 16-byte boundary.
template <bool Trans, bool Fwd>
void tri_panels(bool unit, int R, int n, int panel, const double* a, int lda, double* b,
                int ldb) {
    alignas(16) double buf[pack_doubles];
    const bool aligned = ldb % 2 == 0 && R % 2 == 0 && (addr_bits(b) & 15) == 0;
    for (int j = 0; j < n; j += panel) {
        const int cols = n - j < panel ? n - j : panel;
        double* bj = b + (long)j * ldb;
        if (aligned) tri<Trans, Fwd, true>(unit, R, cols, a, lda, bj, ldb, buf);
        else tri<Trans, Fwd, false>(unit, R, cols, a, lda, bj, ldb, buf);
    }
}

// One outer block of s rows at a (its first diagonal element) and b. Above
// the split, the far split rows go through the triangle kernel and the rest
// lose their product with them, until at most split rows are left; those are
// q rows for the triangle kernel and r = s mod 4 tail rows at the bottom.
template <bool Trans, bool Fwd>
void block(bool unit, int s, int n, const double* a, int lda, double* b, int ldb) {
    constexpr walk_shape w = shape_of<Trans, Fwd>;
    while (s > w.split) {
        const int rest = s - w.split;
        if (Fwd) {
            tri_panels<Trans, Fwd>(unit, w.split, n, w.panel, a, lda, b, ldb);
            minus_product<Trans>(rest, n, w.split, at<Trans>(a, lda, w.split, 0), lda, b, ldb,
                                 b + w.split, ldb);
            a += (long)w.split * (lda + 1);
            b += w.split;
        } else {
            tri_panels<Trans, Fwd>(unit, w.split, n, w.panel, a + (long)rest * (lda + 1), lda,
                                   b + rest, ldb);
            minus_product<Trans>(rest, n, w.split, at<Trans>(a, lda, 0, rest), lda, b + rest, ldb,
                                 b, ldb);
        }
        s = rest;
    }
    const int r = s % 4, q = s - r;
    const int panel = s < 16 ? (n > 0 ? n : 1) : w.panel;
    const double* ar = a + (long)q * (lda + 1);
    if (Fwd) {
        if (q) tri_panels<Trans, Fwd>(unit, q, n, panel, a, lda, b, ldb);
        if (r) {
            minus_product<Trans>(r, n, q, at<Trans>(a, lda, q, 0), lda, b, ldb, b + q, ldb);
            solve_tail<Trans, Fwd>(r, unit, n, ar, lda, b + q, ldb);
        }
    } else {
        if (r) {
            solve_tail<Trans, Fwd>(r, unit, n, ar, lda, b + q, ldb);
            minus_product<Trans>(q, n, r, at<Trans>(a, lda, 0, q), lda, b + q, ldb, b, ldb);
        }
        if (q) tri_panels<Trans, Fwd>(unit, q, n, panel, a, lda, b, ldb);
    }
}

// The outer blocks in the order of the substitution (the last one takes the
// remainder), each followed by the update of all rows not yet solved.
template <bool Trans, bool Fwd>
void walk(bool unit, int m, int n, const double* a, int lda, double* b, int ldb) {
    constexpr int outer = shape_of<Trans, Fwd>.outer;
    if (Fwd) {
        for (int i = 0; i < m; i += outer) {
            const int s = m - i < outer ? m - i : outer;
            block<Trans, Fwd>(unit, s, n, a + (long)i * (lda + 1), lda, b + i, ldb);
            minus_product<Trans>(m - i - s, n, s, at<Trans>(a, lda, i + s, i), lda, b + i, ldb,
                                 b + i + s, ldb);
        }
    } else {
        for (int end = m; end > 0; end -= outer) {
            const int s = end < outer ? end : outer, i = end - s;
            block<Trans, Fwd>(unit, s, n, a + (long)i * (lda + 1), lda, b + i, ldb);
            minus_product<Trans>(i, n, s, at<Trans>(a, lda, 0, i), lda, b + i, ldb, b, ldb);
        }
    }
}

}  // namespace

void dtrsm_left(const trsm_case& c, int m, int n, const double* a, int lda, double* b,
                int ldb) {
    if (!c.trans) {
        if (c.upper) walk<false, false>(c.unit, m, n, a, lda, b, ldb);
        else walk<false, true>(c.unit, m, n, a, lda, b, ldb);
    } else {
        if (c.upper) walk<true, true>(c.unit, m, n, a, lda, b, ldb);
        else walk<true, false>(c.unit, m, n, a, lda, b, ldb);
    }
}

}  // namespace zva::ZVA_NS
