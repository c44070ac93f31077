// TRSM, B := alpha*inv(op(A))*B or alpha*B*inv(op(A)), for S, D, C and Z on
// every branch: the kernels behind the four TRSM dispatch points. Serial; the
// driver gives each thread its own slab of B.
//
// alpha = 0 clears B without reading A. Otherwise S, D and C scale B once up
// front (unless alpha = 1) and solve with alpha 1; Z scales each panel of 32
// after its last use as the source of an update instead. There is no test
// for a zero on the diagonal.
//
// The triangle is walked in nested blocks, the same on every branch: each
// level solves a diagonal block on one slab of the free dimension by the
// level below and updates the unsolved part of the slab by the serial
// multiply of the branch (alpha -1, beta 1). D on the left has walks of its
// own (dleft.inl); the smallest blocks are in base.inl. The branches differ
// only in their lanes (128 or 256 bits, fused multiply-add on 7).
#include <cstring>

#include "frame/scalar.h"
#include "gemm/kernels.h"
#include "level3/kernels.h"
#include "level3/trsm/trsm.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

template <class T> constexpr bool complex_type = sizeof(T) != sizeof(R_<T>);

template <class T> constexpr T unit_value(double x) {
    if constexpr (complex_type<T>) return T{R_<T>(x), R_<T>(0)};
    else return T(x);
}

// The serial multiply of this branch for T.
template <class T>
inline constexpr sig_gemm_serial<T>* gemm_of = by_type<T, sgemm_serial, dgemm_serial,
                                                        cgemm_serial, zgemm_serial>;

// B(m x n) := alpha*B column by column: from 16 elements (8 complex) on a
// peel to the vector boundary, then Pass elements a pass, Four (if any), and
// one. The up-front scaling takes 16 and 4, Z's panels 8 and none.
template <class T, int Pass = 16, int Four = 4>
void scale(int m, int n, const T* alpha, T* b, int ldb) {
    using LV = lanev<T>;
    using L1 = lane1<T>;
    const simd::factor<LV> fv = simd::make_factor<LV>(*alpha);
    const simd::factor<L1> f1 = simd::make_factor<L1>(*alpha);
    constexpr int peel_from = complex_type<T> ? 8 : 16;
    for (int j = 0; j < n; ++j) {
        T* x = b + (long)j * ldb;
        int i = 0;
        if (m >= peel_from) {
            const unsigned off = (unsigned)-addr_bits(x) & (sizeof(typename LV::v) - 1);
            const int peel = off % sizeof(T) ? 0 : (int)(off / sizeof(T));
            for (; i < peel && i < m; ++i) L1::store(x + i, simd::times(f1, L1::load(x + i)));
        }
        constexpr int pass = Pass > LV::W ? Pass : LV::W, four = Four > LV::W ? Four : LV::W;
        for (; i + pass <= m; i += pass) {
#pragma GCC unroll 16
            for (int u = 0; u < pass; u += LV::W)
                LV::store(x + i + u, simd::times(fv, LV::load(x + i + u)));
        }
        for (; Four && i + four <= m; i += four) {
#pragma GCC unroll 4
            for (int u = 0; u < four; u += LV::W)
                LV::store(x + i + u, simd::times(fv, LV::load(x + i + u)));
        }
        for (; i < m; ++i) L1::store(x + i, simd::times(f1, L1::load(x + i)));
    }
}

// B := 0 without reading anything.
template <class T> void clear(int m, int n, T* b, int ldb) {
    constexpr int fill_from = 13;
    for (int j = 0; j < n; ++j) {
        T* x = b + (long)j * ldb;
        if (m >= fill_from) {
            memset(static_cast<void*>(x), 0, (size_t)m * sizeof(T));
        } else {
            for (int i = 0; i < m; ++i) x[i] = T{};
        }
    }
}

// One level of the nested blocks: triangle blocks of Blk in the order of the
// substitution (the last one takes the remainder) times slabs of Slab of the
// free dimension; each block is solved on a slab by Next, and the unsolved
// part of the slab loses its product. With defer (Z), a block is multiplied
// by alpha once all of B is updated from it.
template <class T, int Blk, int Slab, trsm_part<T>* Next>
void level_of(const trsm_case& c, int m, int n, const T* a, int lda, T* b, int ldb,
              const T* defer) {
    static const T minus_one = unit_value<T>(-1), one = unit_value<T>(1);
    const int tdim = c.left ? m : n, fdim = c.left ? n : m;
    const char* op = !c.trans ? "N" : c.conj ? "C" : "T";
    for (int done = 0; done < tdim; done += Blk) {
        int jb = tdim - done < Blk ? tdim - done : Blk;
        const int j0 = c.forward ? done : tdim - done - jb;
        // the rows or columns of the triangle still unsolved after this block
        int r0 = c.forward ? j0 + jb : 0, rn = c.forward ? tdim - j0 - jb : j0;
        const T* ad = a + (long)j0 * (lda + 1);
        for (int f0 = 0; f0 < fdim; f0 += Slab) {
            int fb = fdim - f0 < Slab ? fdim - f0 : Slab;
            if (c.left) {
                T* bs = b + (long)f0 * ldb;
                Next(c, jb, fb, ad, lda, bs + j0, ldb);
                if (rn > 0) {
                    const T* ar = c.trans ? a + j0 + (long)r0 * lda : a + r0 + (long)j0 * lda;
                    gemm_of<T>(op, "N", &rn, &fb, &jb, &minus_one, ar, &lda, bs + j0, &ldb, &one,
                               bs + r0, &ldb);
                }
            } else {
                T* bs = b + f0;
                Next(c, fb, jb, ad, lda, bs + (long)j0 * ldb, ldb);
                if (rn > 0) {
                    const T* ar = c.trans ? a + r0 + (long)j0 * lda : a + j0 + (long)r0 * lda;
                    gemm_of<T>("N", op, &fb, &rn, &jb, &minus_one, bs + (long)j0 * ldb, &ldb, ar,
                               &lda, &one, bs + (long)r0 * ldb, &ldb);
                }
            }
        }
        if (defer) {
            if (c.left) scale<T, 8, 0>(jb, n, defer, b + j0, ldb);
            else scale<T, 8, 0>(m, jb, defer, b + (long)j0 * ldb, ldb);
        }
    }
}
template <class T, int Blk, int Slab, trsm_part<T>* Next>
void level(const trsm_case& c, int m, int n, const T* a, int lda, T* b, int ldb) {
    level_of<T, Blk, Slab, Next>(c, m, n, a, lda, b, ldb, nullptr);
}

// Block sizes by type, side and case: triangle block x slab at each level.
//   D, S right      256 x 1024, 128 x 1024, 64 x 256, column sweep
//   S left, N, U    256 x 1024, 64 x 1024, four-row blocks
//   S left, others  256 x 2048, 64 x 2048, four-row blocks
//   C right; C left, N, U   256 x 1024, 64 x 1024, 32 x 1024, four-row blocks
//   C left, others  256 x 1024, 32 x 1024, four-row blocks
//   Z               32 without slabs, four-row blocks, alpha deferred
template <class T>
constexpr trsm_part<T>* right_sweep =
    level<T, 256, 1024, level<T, 128, 1024, level<T, 64, 256, trsm_sweep<T>>>>;
constexpr trsm_part<float>* s_left_nu = level<float, 256, 1024, level<float, 64, 1024, trsm_rows4<float>>>;
constexpr trsm_part<float>* s_left = level<float, 256, 2048, level<float, 64, 2048, trsm_rows4<float>>>;
constexpr trsm_part<c32>* c_three =
    level<c32, 256, 1024, level<c32, 64, 1024, level<c32, 32, 1024, trsm_rows4<c32>>>>;
constexpr trsm_part<c32>* c_two = level<c32, 256, 1024, level<c32, 32, 1024, trsm_rows4<c32>>>;
constexpr int no_slabs = 1 << 30;

inline bool is_letter(Ch p, char upper) { return (*p & ~0x20) == upper; }

}  // namespace

template <class T>
void trsm(Ch side, Ch uplo, Ch transa, Ch diag, I pm, I pn, const T* alpha, const T* a, I plda,
          T* b, I pldb, L, L, L, L) {
    const int m = *pm, n = *pn, lda = *plda, ldb = *pldb;
    if (n <= 0) return;
    if (is_zero(*alpha)) {
        if (m >= 1) clear(m, n, b, ldb);
        return;
    }
    trsm_case c;
    c.left = is_letter(side, 'L');
    c.upper = is_letter(uplo, 'U');
    c.trans = !is_letter(transa, 'N');
    c.conj = complex_type<T> && is_letter(transa, 'C');
    c.unit = is_letter(diag, 'U');
    c.forward = c.left ? c.upper == c.trans : c.upper != c.trans;
    if constexpr (__is_same(T, c64)) {
        level_of<T, 32, no_slabs, trsm_rows4<T>>(c, m, n, a, lda, b, ldb, alpha);
        return;
    } else {
        if (!is_one(*alpha)) scale(m, n, alpha, b, ldb);
        trsm_part<T>* walk;
        if constexpr (__is_same(T, double)) walk = c.left ? dtrsm_left : right_sweep<T>;
        else if constexpr (__is_same(T, float))
            walk = !c.left ? right_sweep<T> : !c.trans && c.upper ? s_left_nu : s_left;
        else walk = !c.left || (!c.trans && c.upper) ? c_three : c_two;
        walk(c, m, n, a, lda, b, ldb);
    }
}
ZVA_INSTANTIATE_TYPES(trsm)

}  // namespace zva::ZVA_NS
