// The plain multiply C := alpha*op(A)*op(B) + beta*C, without packing, on
// the branch's lane kinds; one recipe for every branch and type.
//
// Every C element is one register sum, started at zero, of its products in
// increasing k; only then is it multiplied by alpha and merged with C. A
// lane of a register always holds one C element, so the peels, the vector
// body and the tails give the same bits for an element: which path served
// it never shows. Complex: per k the real part takes + ar*br, then - ai*bi,
// the imaginary part + ai*br, then + ar*bi, each a separate madd.
//
// Rows of C go across the lanes. Without transposition they are the unit-
// stride columns of A; with it, each lane reads its own column of A along
// k, 128 bits at a time, and a register transpose turns those loads into
// one register per k step. B is broadcast one element at a time. Columns of
// C go four at a time, with an accumulator each.
#include "gemm/kernels.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

using simd::factor;
using simd::make_factor;
using simd::times;

// The call as the blocks see it. Element l of column j of op(B) is
// b[j * bcol + l * bstep].
template <class T>
struct operands {
    const T* a;
    int lda;
    const T* b;
    int bcol, bstep;
    T* c;
    int ldc;
    int k;
    bool beta0;
};

// Per lane kind: alpha, beta, and the sign masks of conjugation. ma flips
// the imaginary parts of A for a conjugated A; mp turns swp(A) = (ai, ar)
// into the partner of the imaginary part of B, (-ai, ar) with the signs of
// both conjugations folded in.
template <class L>
struct consts {
    factor<L> alpha, beta;
    typename L::v ma, mp;
};

template <class L>
consts<L> make_consts(const typename L::T& alpha, const typename L::T& beta, bool conja,
                      bool conjb) {
    using R = typename L::R;
    consts<L> w;
    w.alpha = make_factor<L>(alpha);
    w.beta = make_factor<L>(beta);
    if constexpr (L::cplx) {
        const R neg = -R(0), pos = R(0);
        w.ma = L::pair(pos, conja ? neg : pos);
        w.mp = L::pair(conja == conjb ? neg : pos, conjb ? neg : pos);
    } else {
        w.ma = L::zero();
        w.mp = w.ma;
    }
    return w;
}

// One k step: lanes a of op(A) against NC elements of op(B) from bl on.
template <class L, int NC>
[[gnu::always_inline]] inline void step(typename L::v* acc, typename L::v a,
                                        const typename L::T* bl, int bcol, const consts<L>& w) {
    if constexpr (L::cplx) {
        const typename L::v ae = L::flip(a, w.ma), as = L::flip(L::swp(a), w.mp);
#pragma GCC unroll 4
        for (int q = 0; q < NC; ++q) {
            const typename L::T* e = bl + q * bcol;
            acc[q] = L::madd(L::madd(acc[q], ae, L::bre(e)), as, L::bim(e));
        }
    } else {
#pragma GCC unroll 4
        for (int q = 0; q < NC; ++q) acc[q] = L::madd(acc[q], a, L::bcast(bl + q * bcol));
    }
}

// W rows from row i, NC columns from column j. TransA: row r of op(A) is
// column r of A.
template <class L, int NC, bool TransA>
void block(const operands<typename L::T>& o, const consts<L>& w, int i, int j) {
    using T = typename L::T;
    using v = typename L::v;
    v acc[NC];
#pragma GCC unroll 4
    for (int q = 0; q < NC; ++q) acc[q] = L::zero();
    const T* const bj = o.b + j * o.bcol;
    const int k = o.k;
    if constexpr (!TransA) {
        const T* al = o.a + i;
        const T* bl = bj;
        for (int l = 0; l < k; ++l, al += o.lda, bl += o.bstep)
            step<L, NC>(acc, L::load(al), bl, o.bcol, w);
    } else {
        const T* const ai = o.a + i * o.lda;
        int l = 0;
        if constexpr (L::G > 1) {
            // Peel k until the first lane's column is 32-byte aligned.
            for (const int p = peel_to_32_within(ai, k); l < p; ++l)
                step<L, NC>(acc, L::gather(ai + l, o.lda), bj + l * o.bstep, o.bcol, w);
            for (; l + L::G <= k; l += L::G) {
                v g[L::G];
                L::tgroup(ai + l, o.lda, g);
#pragma GCC unroll 4
                for (int t = 0; t < L::G; ++t)
                    step<L, NC>(acc, g[t], bj + (l + t) * o.bstep, o.bcol, w);
            }
        }
        for (; l < k; ++l) step<L, NC>(acc, L::gather(ai + l, o.lda), bj + l * o.bstep, o.bcol, w);
    }
    T* const cij = o.c + i + j * o.ldc;
#pragma GCC unroll 4
    for (int q = 0; q < NC; ++q) {
        T* const e = cij + q * o.ldc;
        v r = times(w.alpha, acc[q]);
        if (!o.beta0) r = L::add(times(w.beta, L::load(e)), r);
        L::store(e, r);
    }
}

// All rows of NC columns from column j. Without transposition the rows are
// peeled until column 0 of A is 32-byte aligned, since A is what the k loop
// streams; with it the peel is along k, inside the block.
template <class L1, class LV, int NC>
void column_group(const operands<typename L1::T>& o, const consts<L1>& w1,
                  const consts<LV>& wv, int m, int j, bool nota) {
    int i = 0;
    if (nota) {
        for (const int p = LV::W > 1 ? peel_to_32_within(o.a, m) : 0; i < p; ++i)
            block<L1, NC, false>(o, w1, i, j);
        for (; i + LV::W <= m; i += LV::W) block<LV, NC, false>(o, wv, i, j);
        for (; i < m; ++i) block<L1, NC, false>(o, w1, i, j);
    } else {
        for (; i + LV::W <= m; i += LV::W) block<LV, NC, true>(o, wv, i, j);
        for (; i < m; ++i) block<L1, NC, true>(o, w1, i, j);
    }
}

// "N" or "n" means no transposition; for complex types "T" or "t" means
// transposed and any other letter conjugated and transposed. The branch's
// own C := beta*C, scale, is taken when there is nothing to multiply: k = 0
// or alpha = 0, where neither A nor B is read.
template <class L1, class LV>
void direct(const char* transa, const char* transb, const int* pm, const int* pn,
            const int* pk, const typename L1::T* alpha, const typename L1::T* a,
            const int* lda, const typename L1::T* b, const int* ldb,
            const typename L1::T* beta, typename L1::T* c, const int* ldc,
            sig_gemm_scale_c<typename L1::T>* scale) {
    using T = typename L1::T;
    const int m = *pm, n = *pn, k = *pk;
    if (m <= 0 || n <= 0) return;
    if (k <= 0 || is_zero(*alpha)) {
        if (!is_one(*beta)) scale(pm, pn, beta, c, ldc);
        return;
    }
    const char ta = *transa, tb = *transb;
    const bool nota = ta == 'N' || ta == 'n', notb = tb == 'N' || tb == 'n';
    const bool conja = L1::cplx && !nota && ta != 'T' && ta != 't';
    const bool conjb = L1::cplx && !notb && tb != 'T' && tb != 't';

    operands<T> o;
    o.a = a;
    o.lda = *lda;
    o.b = b;
    o.bcol = notb ? *ldb : 1;
    o.bstep = notb ? 1 : *ldb;
    o.c = c;
    o.ldc = *ldc;
    o.k = k;
    o.beta0 = is_zero(*beta);
    const consts<L1> w1 = make_consts<L1>(*alpha, *beta, conja, conjb);
    const consts<LV> wv = make_consts<LV>(*alpha, *beta, conja, conjb);

    int j = 0;
    for (; j + 4 <= n; j += 4) column_group<L1, LV, 4>(o, w1, wv, m, j, nota);
    switch (n - j) {
        case 3: column_group<L1, LV, 3>(o, w1, wv, m, j, nota); break;
        case 2: column_group<L1, LV, 2>(o, w1, wv, m, j, nota); break;
        case 1: column_group<L1, LV, 1>(o, w1, wv, m, j, nota); break;
        default: break;
    }
}

}  // namespace

template <class T>
void gemm_direct(const char* transa, const char* transb, const int* m, const int* n,
                 const int* k, const T* alpha, const T* a, const int* lda, const T* b,
                 const int* ldb, const T* beta, T* c, const int* ldc) {
    direct<lane1<T>, lanev<T>>(transa, transb, m, n, k, alpha, a, lda, b, ldb, beta, c, ldc,
                               gemm_scale_c<T>);
}
ZVA_INSTANTIATE_TYPES(gemm_direct)

}  // namespace zva::ZVA_NS
