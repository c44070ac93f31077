// The base routines of TRMM: the diagonal blocks at the bottom of the walk,
// at most base_most elements of the triangle on a side.
//
// A on the left: dot products. A group of rows of op(A) (two for the real
// types, one for the complex) meets a pair of columns of B in vectors along
// the range of k that all rows of the group share; the corner of the group
// that lies in the triangle is added element by element. Rows of op(A) that
// are columns of A (transa T or C) are read in place; rows of A (transa N),
// whose elements lie lda apart, are first copied to a buffer. The block of
// B is multiplied by alpha first, unless alpha is 1. The groups run in the
// order of the walk, so each reads only rows that are not yet written.
// When both sizes are even the routine is compiled without its odd tails.
//
// A on the right: column sums. Column j of B is multiplied by alpha times
// the diagonal and receives the columns it reads two at a time, with the
// coefficients alpha*op(A)(k, j), in one pass over the rows each: single
// rows up to the vector boundary, then four vectors a step, one, and single
// rows again.
//
// Registers: the real dots keep 2 x 2 accumulators, the complex ones 1 x 2
// pairs (like parts, crossed parts; the conjugate is a sign where they are
// summed), so that the operands fit in the other three or four of the
// eight registers.
namespace zva::ZVA_NS {
namespace {

using simd::factor;
using simd::make_factor;
using simd::times;

constexpr int base_most = 128;

// out[r][q] = sum over k < len of a[r][k] * b[k + q*ldb], a conjugated
// where Conj is set.
template <class T, bool Conj, int G, int C>
inline void dots(int len, const T* const* a, const T* b, int ldb, T (*out)[C]) {
    using LV = lanev<T>;
    using V = typename LV::v;
    const int lv = len - len % LV::W;
    if constexpr (!cplx_v<T>) {
        V acc[G][C];
        for (int r = 0; r < G; ++r)
            for (int q = 0; q < C; ++q) acc[r][q] = LV::zero();
        for (int k = 0; k < lv; k += LV::W) {
            V bk[C];
            for (int q = 0; q < C; ++q) bk[q] = LV::load(b + k + q * ldb);
            for (int r = 0; r < G; ++r) {
                const V ak = LV::load(a[r] + k);
                for (int q = 0; q < C; ++q) acc[r][q] = LV::madd(acc[r][q], ak, bk[q]);
            }
        }
        for (int r = 0; r < G; ++r)
            for (int q = 0; q < C; ++q) {
                T s = simd::total(acc[r][q]);
                for (int k = lv; k < len; ++k) s += a[r][k] * b[k + q * ldb];
                out[r][q] = s;
            }
    } else {
        V like[G][C], cross[G][C];
        for (int r = 0; r < G; ++r)
            for (int q = 0; q < C; ++q) like[r][q] = cross[r][q] = LV::zero();
        for (int k = 0; k < lv; k += LV::W)
            for (int r = 0; r < G; ++r) {
                const V ak = LV::load(a[r] + k);
                for (int q = 0; q < C; ++q) {
                    const V bk = LV::load(b + k + q * ldb);
                    like[r][q] = LV::madd(like[r][q], ak, bk);
                    cross[r][q] = LV::madd(cross[r][q], ak, LV::swp(bk));
                }
            }
        for (int r = 0; r < G; ++r)
            for (int q = 0; q < C; ++q) {
                const T l = simd::total_pairs(like[r][q]), x = simd::total_pairs(cross[r][q]);
                T s = Conj ? T{l.re + l.im, x.re - x.im} : T{l.re - l.im, x.re + x.im};
                for (int k = lv; k < len; ++k) {
                    T e = a[r][k];
                    if (Conj) e.im = -e.im;
                    s = s_add(s, s_mul(e, b[k + q * ldb]));
                }
                out[r][q] = s;
            }
    }
}

// The corner of a group of rows i .. i+G-1 of op(A): which of its elements
// lie in the triangle, and their values, the unit diagonal as 1.
template <class T, int G> struct corner {
    bool in[G][G];
    T v[G][G];
};

// Columns j .. j+C-1 of rows i .. i+G-1 of the block.
template <class T, bool Conj, int G, int C>
inline void left_cols(const tr_case<T>& c, int len, const T* const* ap, int k0, int i, int j,
                      const corner<T, G>& cor, T* b) {
    const int ldb = c.ldb;
    T* const bj = b + (long long)j * ldb;
    T out[G][C];
    dots<T, Conj, G, C>(len, ap, bj + k0, ldb, out);
    for (int r = 0; r < G; ++r)
        for (int q = 0; q < C; ++q)
            for (int g = 0; g < G; ++g)
                if (cor.in[r][g]) out[r][q] = s_add(out[r][q], s_mul(cor.v[r][g], bj[i + g + q * ldb]));
    for (int r = 0; r < G; ++r)
        for (int q = 0; q < C; ++q) bj[i + r + q * ldb] = out[r][q];
}

template <class T, bool Conj, bool Even, int G>
void left_group(const tr_case<T>& c, int mb, int nb, int i, const T* a, T* b) {
    // The range of k that every row of the group reads, past its corner.
    const int k0 = c.fwd ? i + G : 0, len = c.fwd ? mb - k0 : i;
    T buf[G][base_most];
    const T* ap[G];
    for (int r = 0; r < G; ++r) {
        if (c.trans) {
            ap[r] = op_at(c, a, i + r, k0);
        } else {
            const T* row = a + i + r + (long long)k0 * c.lda;
            for (int k = 0; k < len; ++k) buf[r][k] = row[(long long)k * c.lda];
            ap[r] = buf[r];
        }
    }
    corner<T, G> cor;
    for (int r = 0; r < G; ++r)
        for (int g = 0; g < G; ++g) {
            cor.in[r][g] = c.fwd ? g >= r : g <= r;
            cor.v[r][g] = !cor.in[r][g] ? T{}
                          : g == r && c.unit ? s_one<T>()
                                              : op_elem(c, a, i + r, i + g);
        }
    int j = 0;
    for (; j + 2 <= nb; j += 2) left_cols<T, Conj, G, 2>(c, len, ap, k0, i, j, cor, b);
    if (!Even && j < nb) left_cols<T, Conj, G, 1>(c, len, ap, k0, i, j, cor, b);
}

template <class T, bool Conj, bool Even>
void base_left(const tr_case<T>& c, int mb, int nb, const T* a, T* b) {
    constexpr int G = cplx_v<T> ? 1 : 2;
    if (!is_one(*c.alpha)) gemm_scale_c<T>(&mb, &nb, c.alpha, b, &c.ldb);
    if (c.fwd) {
        int i = 0;
        for (; i + G <= mb; i += G) left_group<T, Conj, Even, G>(c, mb, nb, i, a, b);
        if (!Even && i < mb) left_group<T, Conj, Even, 1>(c, mb, nb, i, a, b);
    } else {
        int i = mb;
        for (; i >= G; i -= G) left_group<T, Conj, Even, G>(c, mb, nb, i - G, a, b);
        if (!Even && i > 0) left_group<T, Conj, Even, 1>(c, mb, nb, 0, a, b);
    }
}

// ---- A on the right ---------------------------------------------------------

template <class L>
inline typename L::v add_times(typename L::v x, const factor<L>& f, typename L::v y) {
    if constexpr (L::cplx) return L::add(x, times(f, y));
    else return L::madd(x, y, f.r);
}

// The factors of one pass: the column's own and those of its sources.
template <class L> struct pass_factors {
    factor<L> own, f0, f1;
};

// Rows from i while U vectors fit below i1; returns where it stopped.
template <class L, int U, bool Scale, int S>
inline int pass_rows(int i, int i1, typename L::T* d, const typename L::T* s0,
                     const typename L::T* s1, const pass_factors<L>& f) {
    for (; i + U * L::W <= i1; i += U * L::W)
        for (int u = 0; u < U; ++u) {
            const int e = i + u * L::W;
            typename L::v x = L::load(d + e);
            if constexpr (Scale) x = times(f.own, x);
            if constexpr (S >= 1) x = add_times(x, f.f0, L::load(s0 + e));
            if constexpr (S >= 2) x = add_times(x, f.f1, L::load(s1 + e));
            L::store(d + e, x);
        }
    return i;
}

// d := own*d (if Scale) + c0*s0 + c1*s1 (as many sources as S), rows 0 .. n-1.
template <class T, bool Scale, int S>
void pass(int n, T* d, const T* s0, const T* s1, const T (&cf)[3]) {
    using L1 = lane1<T>;
    using LV = lanev<T>;
    const pass_factors<L1> f1 = {make_factor<L1>(cf[0]), make_factor<L1>(cf[1]),
                                 make_factor<L1>(cf[2])};
    const pass_factors<LV> fv = {make_factor<LV>(cf[0]), make_factor<LV>(cf[1]),
                                 make_factor<LV>(cf[2])};
    const int p = LV::W > 1 ? peel_to_32_within(d, n) : 0;
    int i = pass_rows<L1, 1, Scale, S>(0, p, d, s0, s1, f1);
    i = pass_rows<LV, 4, Scale, S>(i, n, d, s0, s1, fv);
    i = pass_rows<LV, 1, Scale, S>(i, n, d, s0, s1, fv);
    pass_rows<L1, 1, Scale, S>(i, n, d, s0, s1, f1);
}

template <class T>
void base_right(const tr_case<T>& c, int ns, int nt, const T* a, T* b) {
    const long long ldb = c.ldb;
    for (int q = 0; q < nt; ++q) {
        const int j = c.fwd ? q : nt - 1 - q;
        const int k1 = c.fwd ? nt : j;
        int k = c.fwd ? j + 1 : 0;
        T* const d = b + j * ldb;
        T cf[3];
        cf[0] = c.unit ? *c.alpha : s_mul(*c.alpha, op_elem(c, a, j, j));
        bool scale = !is_one(cf[0]);
        if (k == k1 && scale) pass<T, true, 0>(ns, d, nullptr, nullptr, cf);
        for (; k < k1; k += 2) {
            const bool two = k + 1 < k1;
            cf[1] = s_mul(*c.alpha, op_elem(c, a, k, j));
            cf[2] = two ? s_mul(*c.alpha, op_elem(c, a, k + 1, j)) : T{};
            const T *s0 = b + k * ldb, *s1 = s0 + ldb;
            if (scale)
                two ? pass<T, true, 2>(ns, d, s0, s1, cf) : pass<T, true, 1>(ns, d, s0, s1, cf);
            else
                two ? pass<T, false, 2>(ns, d, s0, s1, cf) : pass<T, false, 1>(ns, d, s0, s1, cf);
            scale = false;
        }
    }
}

// The diagonal block of the last level: mt the triangle's order, nf the
// free extent of B.
template <class T> void base(const tr_case<T>& c, int mt, int nf, const T* a, T* b) {
    if (!c.left) {
        base_right(c, nf, mt, a, b);
        return;
    }
    const bool even = mt % 2 == 0 && nf % 2 == 0;
    if (cplx_v<T> && c.conj)
        even ? base_left<T, cplx_v<T>, true>(c, mt, nf, a, b)
             : base_left<T, cplx_v<T>, false>(c, mt, nf, a, b);
    else
        even ? base_left<T, false, true>(c, mt, nf, a, b) : base_left<T, false, false>(c, mt, nf, a, b);
}

}  // namespace
}  // namespace zva::ZVA_NS
