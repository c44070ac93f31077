// SYRK and HERK, the serial kernels of every branch: C := alpha*A*A' +
// beta*C ("N") or alpha*A'*A + beta*C on one triangle of C, ' conjugating
// for HERK. C is scaled by beta once, first; every later addition runs with
// beta = 1.
//
// DSYRK on branches 4 to 7 cuts the triangle recursively by a table of four
// levels: at each level into diagonal blocks, each done in chunks of k by
// the next level down or by the leaf kernels (level3/syrk/leaf.h), and the
// rectangles between the blocks and the edge by gemm_serial with the whole
// k of the level. Everything else (S, C, Z on every branch, D on branches 3
// and 2) walks the diagonal in blocks of nd through a temporary square
// (level3/syrk/band.h); ZHERK sums its 32-wide diagonal triangles by the
// leaf kernels instead. The branches differ only in gemm_serial, in the
// lanes of the leaf kernels and in gemm_scale_c.
#include "level3/syrk/band.h"
#include "level3/syrk/leaf.h"

namespace zva::ZVA_NS {
namespace {

// One level of the DSYRK recursion: diagonal blocks of nb, chunks of kb.
struct level_row {
    int nb, kb;
};
inline constexpr int levels = 4;
// "N": the level table with its blocks of k; other letters sum longer runs
// of k per chunk, as A's columns run along k there.
inline constexpr level_row rows_n[levels] = {{512, 128}, {128, 64}, {32, 32}, {16, 16}};
inline constexpr level_row rows_t[levels] = {{512, 256}, {128, 128}, {32, 128}, {16, 32}};
// Up to this order the whole triangle goes to the leaf kernel at once.
inline constexpr int leaf_only = 8;

struct dsyrk_plan {
    band_op o;
    const level_row* rows;
    bool rect_first;  // the rectangle of a block before the block itself
    double alpha;
    int lda, ldc;
};

void dsyrk_leaf(const dsyrk_plan& p, int n, int k, const double* a, double* c) {
    const leaf_args<double> l = {n, k, p.alpha, a, p.lda, a, p.lda, c, p.ldc, p.o.notrans,
                                 false, false, false};
    if (p.o.notrans) leaf_of<double>(p.o.upper, l);
    else leaf_of<double, true>(p.o.upper, l);
}

// The triangle of order n, k terms, at A's rows (columns) a and C's
// diagonal element c, on level lv.
void dsyrk_level(const dsyrk_plan& p, int lv, int n, int k, const double* a, double* c) {
    const level_row& row = p.rows[lv];
    const level_row& last = p.rows[levels - 1];
    band_op o = p.o;
    o.n = n, o.k = k;
    for (int j = 0; j < n; j += row.nb) {
        const int jb = n - j < row.nb ? n - j : row.nb;
        if (p.rect_first) beside(o, j, jb, p.alpha, a, p.lda, a, p.lda, c, p.ldc);
        for (int l = 0; l < k; l += row.kb) {
            const int kc = k - l < row.kb ? k - l : row.kb;
            const double* al =
                o.notrans ? a + j + (ptrdiff_t)l * p.lda : a + l + (ptrdiff_t)j * p.lda;
            double* cj = c + j + (ptrdiff_t)j * p.ldc;
            if (lv < levels - 1 && jb > last.nb && kc > last.kb)
                dsyrk_level(p, lv + 1, jb, kc, al, cj);
            else
                dsyrk_leaf(p, jb, kc, al, cj);
        }
        if (!p.rect_first) beside(o, j, jb, p.alpha, a, p.lda, a, p.lda, c, p.ldc);
    }
}

// Branches 3 and 2 keep to the band kernel.
[[maybe_unused]] void dsyrk_blocked(const band_op& o, double alpha, const double* a, int lda,
                                    double* c, int ldc) {
    dsyrk_plan p;
    p.o = o;
    p.rows = o.notrans ? rows_n : rows_t;
    p.rect_first = !o.notrans && o.upper;
    p.alpha = alpha;
    p.lda = lda, p.ldc = ldc;
    if (o.n <= leaf_only) return dsyrk_leaf(p, o.n, o.k, a, c);
    // The first level whose blocks fit the triangle ("N"), or are smaller
    // than it (other letters); the top one where none does.
    int lv = 0;
    while (lv < levels && (o.notrans ? p.rows[lv].nb > o.n : p.rows[lv].nb >= o.n)) ++lv;
    dsyrk_level(p, lv == levels ? 0 : lv, o.n, o.k, a, c);
}

// Width of the diagonal blocks of the band kernel.
template <class T, bool Herm> int band_width(bool notrans) {
    if (Herm && sizeof(T) == 16) return 32;  // ZHERK: the leaf kernels
    if (notrans) return 128;
    if (!Herm && __is_same(T, c32)) return 128;
    if (!Herm && __is_same(T, c64)) return 32;
    return 64;
}

}  // namespace

template <class T, class A>
void syrk(Ch uplo, Ch trans, I pn, I pk, const A* alpha, const T* a, I lda, const A* beta,
          T* c, I ldc, L, L) {
    constexpr bool herm = sizeof(A) != sizeof(T);
    const int n = *pn, k = *pk;
    if (n <= 0) return;
    const bool nothing = k <= 0 || is_zero(*alpha);
    if (nothing && is_one(*beta)) return;
    const band_op o = band_op_of(uplo, trans, n, k, herm);
    if (!is_one(*beta)) scale_triangle(o, *beta, c, *ldc);
    if (nothing) return;
    if constexpr (__is_same(T, double) && branch >= 4) {
        dsyrk_blocked(o, *alpha, a, *lda, c, *ldc);
    } else {
        T al;
        if constexpr (herm) al = unit<T>(*alpha);
        else al = *alpha;
        const bool temp = !(herm && sizeof(T) == 16);
        band<T, false>(o, band_width<T, herm>(o.notrans), temp, "xsyrk", al, a, *lda, a, *lda,
                       nullptr, c, *ldc);
    }
}

template decltype(syrk<float, float>) syrk<float, float>;
template decltype(syrk<double, double>) syrk<double, double>;
template decltype(syrk<c32, c32>) syrk<c32, c32>;
template decltype(syrk<c64, c64>) syrk<c64, c64>;
template decltype(syrk<c32, float>) syrk<c32, float>;
template decltype(syrk<c64, double>) syrk<c64, double>;

}  // namespace zva::ZVA_NS
