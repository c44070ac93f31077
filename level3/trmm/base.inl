// The base routines of TRMM: the diagonal blocks at the bottom of the walk,
// at most base_most elements of the triangle on a side.
//
// A on the left: dot products, the block of B multiplied by alpha first
// unless alpha is 1. Real types take the rows of op(A) in pairs: a pair
// meets a pair of columns of B in vectors along the range of k that both
// rows read past their corner, with 2 x 2 accumulators; the corner (the
// diagonal pair and the element between the rows) and the part past the
// last whole vector (a masked vector on the 256-bit branches, single steps
// on the others) are added to the pair of sums. Complex types take one row
// against two columns, with the like and the crossed products of each
// summed apart and joined at the end, the conjugate a sign there. Rows of
// op(A) that are columns of A (transa T or C) are read in place; rows of A
// (transa N), whose elements lie lda apart, are first copied to a buffer.
// Rows run in the order of the walk, so each reads only rows of B not yet
// written; an odd last row goes alone. When both sizes are even the
// routines are compiled without their odd tails.
//
// A on the right: column sums. Column j of B is multiplied by alpha times
// the diagonal and receives the columns it reads two at a time, with the
// coefficients alpha*op(A)(k, j), in one pass over the rows each: single
// rows up to the vector boundary, then four vectors a step, one, and single
// rows again; fused on branch 7.
//
// Registers: the real pairs keep four accumulators, both rows of A, one
// vector of B and a product, all eight; the complex row keeps four.
namespace zva::ZVA_NS {
namespace {

using simd::factor;
using simd::make_factor;
using simd::times;

constexpr int base_most = 128;

// ---- A on the left, one row -------------------------------------------------

// out[q] = sum over k < len of a[k] * b[k + q*ldb], a conjugated where
// Conj is set.
template <class T, bool Conj, int C>
inline void dots(int len, const T* a, const T* b, int ldb, T* out) {
    using LV = lanev<T>;
    using V = typename LV::v;
    const int lv = len - len % LV::W;
    if constexpr (!cplx_v<T>) {
        V acc[C];
        for (int q = 0; q < C; ++q) acc[q] = LV::zero();
        for (int k = 0; k < lv; k += LV::W) {
            const V ak = LV::load(a + k);
            for (int q = 0; q < C; ++q) acc[q] = LV::madd(acc[q], ak, LV::load(b + k + q * ldb));
        }
        for (int q = 0; q < C; ++q) {
            T s = simd::total(acc[q]);
            for (int k = lv; k < len; ++k) s += a[k] * b[k + q * ldb];
            out[q] = s;
        }
    } else {
        V like[C], cross[C];
        for (int q = 0; q < C; ++q) like[q] = cross[q] = LV::zero();
        for (int k = 0; k < lv; k += LV::W) {
            const V ak = LV::load(a + k);
            for (int q = 0; q < C; ++q) {
                const V bk = LV::load(b + k + q * ldb);
                like[q] = LV::madd(like[q], ak, bk);
                cross[q] = LV::madd(cross[q], ak, LV::swp(bk));
            }
        }
        for (int q = 0; q < C; ++q) {
            const T l = simd::total_pairs(like[q]), x = simd::total_pairs(cross[q]);
            T s = Conj ? T{l.re + l.im, x.re - x.im} : T{l.re - l.im, x.re + x.im};
            for (int k = lv; k < len; ++k) {
                T e = a[k];
                if (Conj) e.im = -e.im;
                s = s_add(s, s_mul(e, b[k + q * ldb]));
            }
            out[q] = s;
        }
    }
}

// Row i of the block against pairs of columns: its range of k past the
// diagonal in vectors, then the diagonal.
template <class T, bool Conj, bool Even>
void left_row(const tr_case<T>& c, int mb, int nb, int i, const T* a, T* b) {
    const int k0 = c.fwd ? i + 1 : 0, len = c.fwd ? mb - k0 : i;
    T buf[base_most];
    const T* ar = op_at(c, a, i, k0);
    if (!c.trans) {
        for (int k = 0; k < len; ++k) buf[k] = ar[(long long)k * c.lda];
        ar = buf;
    }
    const T d = c.unit ? s_one<T>() : op_elem(c, a, i, i);
    const int ldb = c.ldb;
    int j = 0;
    for (; j + 2 <= nb; j += 2) {
        T* const bj = b + (long long)j * ldb;
        T out[2];
        dots<T, Conj, 2>(len, ar, bj + k0, ldb, out);
        bj[i] = s_add(out[0], s_mul(d, bj[i]));
        bj[i + ldb] = s_add(out[1], s_mul(d, bj[i + ldb]));
    }
    if (!Even && j < nb) {
        T* const bj = b + (long long)j * ldb;
        T out[1];
        dots<T, Conj, 1>(len, ar, bj + k0, ldb, out);
        bj[i] = s_add(out[0], s_mul(d, bj[i]));
    }
}

// ---- A on the left, two rows (real types) ----------------------------------

// Rows i and i+1 of one column of B in the low two lanes of a 128-bit
// register, and the steps that finish them.
template <class T> struct pair2;
template <> struct pair2<double> {
    using v = __m128d;
    static v load(const double* p) { return _mm_loadu_pd(p); }
    static void store(double* p, v x) { _mm_storeu_pd(p, x); }
    static v set(double lo, double hi) { return _mm_setr_pd(lo, hi); }
    static v bcast(const double* p) { return _mm_set1_pd(*p); }
    static v add(v a, v b) { return _mm_add_pd(a, b); }
    static v mul(v a, v b) { return _mm_mul_pd(a, b); }
    static v madd(v s, v a, v b) {
#if ZVA_BRANCH == 7
        return _mm_fmadd_pd(a, b, s);
#else
        return _mm_add_pd(s, _mm_mul_pd(a, b));
#endif
    }
    // (x1, 0) and (0, x0): an element moved to the other row, a zero in its
    // place that multiplies nothing but zero.
    static v up(v x) { return _mm_unpackhi_pd(x, _mm_setzero_pd()); }
    static v down(v x) { return _mm_unpacklo_pd(_mm_setzero_pd(), x); }
    // (sum of x's lanes, sum of y's lanes)
    static v sums(__m128d x, __m128d y) {
        return _mm_add_pd(_mm_unpacklo_pd(x, y), _mm_unpackhi_pd(x, y));
    }
#if ZVA_BRANCH >= 6
    static v sums(__m256d x, __m256d y) {
        const __m256d h = _mm256_hadd_pd(x, y);
        return _mm_add_pd(_mm256_castpd256_pd128(h), _mm256_extractf128_pd(h, 1));
    }
#endif
};
template <> struct pair2<float> {
    using v = __m128;
    static v load(const float* p) { return simd::load_pair(p); }
    static void store(float* p, v x) { simd::store_pair(p, x); }
    static v set(float lo, float hi) { return _mm_setr_ps(lo, hi, 0, 0); }
    static v bcast(const float* p) { return _mm_set1_ps(*p); }
    static v add(v a, v b) { return _mm_add_ps(a, b); }
    static v mul(v a, v b) { return _mm_mul_ps(a, b); }
    static v madd(v s, v a, v b) {
#if ZVA_BRANCH == 7
        return _mm_fmadd_ps(a, b, s);
#else
        return _mm_add_ps(s, _mm_mul_ps(a, b));
#endif
    }
    // As for double, on a pair fresh from load, whose upper lanes are zero.
    static v up(v x) { return _mm_shuffle_ps(x, x, _MM_SHUFFLE(3, 3, 2, 1)); }
    static v down(v x) { return _mm_shuffle_ps(x, x, _MM_SHUFFLE(3, 3, 0, 2)); }
    static v sums(__m128 x, __m128 y) {
        const __m128 t = _mm_add_ps(_mm_unpacklo_ps(x, y), _mm_unpackhi_ps(x, y));
        return _mm_add_ps(t, _mm_movehl_ps(t, t));
    }
#if ZVA_BRANCH >= 6
    static v sums(__m256 x, __m256 y) {
        return sums(_mm_add_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1)),
                    _mm_add_ps(_mm256_castps256_ps128(y), _mm256_extractf128_ps(y, 1)));
    }
#endif
};

#if ZVA_BRANCH >= 6
// A mask of the first r elements of T in a 256-bit vector. A masked load
// neither reads nor faults on the other lanes and leaves them zero.
template <class T> __m256i first_lanes(int r) {
    static const int32_t bits[16] = {-1, -1, -1, -1, -1, -1, -1, -1, 0, 0, 0, 0, 0, 0, 0, 0};
    const int words = r * (int)(sizeof(T) / 4);
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(bits + 8 - words));
}
inline __m256d load_first(const double* p, __m256i m) { return _mm256_maskload_pd(p, m); }
inline __m256 load_first(const float* p, __m256i m) { return _mm256_maskload_ps(p, m); }
#endif

// What the columns of one pair of rows share: the rows of op(A) along the
// common range, its part past the last whole vector (on the 256-bit
// branches a masked vector step, else pairs of A for single steps), and
// the corner: the diagonal pair and the one element between the two rows.
template <class T> struct row_pair {
    using P = pair2<T>;
    using V = typename lanev<T>::v;
    const T *a0, *a1;
    int k0, len, lv;
#if ZVA_BRANCH >= 6
    __m256i mask;
    V last0, last1;
#else
    typename P::v tail[lanev<T>::W];
#endif
    typename P::v diag, off;
    bool fwd;
};

// Columns j .. j+C-1 of rows i, i+1. The sums are four chains of separate
// multiplies and adds, also on branch 7: an add waits fewer cycles than a
// fused step, and the chains set the pace. The corner and the part past the
// last whole vector come first, off those chains, so that little is left
// to wait for once the loop ends.
template <class T, int C>
[[gnu::always_inline]] inline void pair_cols(const row_pair<T>& g, int i, T* bj, int ldb) {
    using LV = lanev<T>;
    using V = typename LV::v;
    using P = pair2<T>;
    using PV = typename P::v;
    const T* const bk = bj + g.k0;
    PV corner[C];
#pragma GCC unroll 2
    for (int q = 0; q < C; ++q) {
        const PV p = P::load(bj + i + q * ldb);
        corner[q] = P::madd(P::mul(g.diag, p), g.off, g.fwd ? P::up(p) : P::down(p));
    }
#if ZVA_BRANCH >= 6
    if (g.lv < g.len) {
#pragma GCC unroll 2
        for (int q = 0; q < C; ++q) {
            const V y = load_first(bk + g.lv + q * ldb, g.mask);
            corner[q] = P::add(corner[q], P::sums(LV::mul(g.last0, y), LV::mul(g.last1, y)));
        }
    }
#endif
    V acc0[C], acc1[C];
#pragma GCC unroll 2
    for (int q = 0; q < C; ++q) acc0[q] = acc1[q] = LV::zero();
    for (int k = 0; k < g.lv; k += LV::W) {
        V x0 = LV::load(g.a0 + k), x1 = LV::load(g.a1 + k);
        // Both rows of A stay in registers, each B vector is loaded once.
        asm volatile("" : "+x"(x0), "+x"(x1));
#pragma GCC unroll 2
        for (int q = 0; q < C; ++q) {
            V y = LV::load(bk + k + q * ldb);
            asm volatile("" : "+x"(y));
            acc0[q] = LV::add(acc0[q], LV::mul(x0, y));
            acc1[q] = LV::add(acc1[q], LV::mul(x1, y));
        }
    }
#pragma GCC unroll 2
    for (int q = 0; q < C; ++q) {
        PV s = P::sums(acc0[q], acc1[q]);
#if ZVA_BRANCH < 6
        for (int e = g.lv; e < g.len; ++e)
            s = P::madd(s, g.tail[e - g.lv], P::bcast(bk + e + q * ldb));
#endif
        P::store(bj + i + q * ldb, P::add(s, corner[q]));
    }
}

// The same columns for each pair of a sweep, in the order of the walk.
template <class T, int C>
[[gnu::noinline]] void sweep_cols(const row_pair<T>* g, const int* row, int count, T* bj, int ldb) {
    for (int r = 0; r < count; ++r) pair_cols<T, C>(g[r], row[r], bj, ldb);
}

// The shared part of rows i, i+1; buf holds the rows of A for transa N.
template <class T>
void make_pair(const tr_case<T>& c, int mb, int i, const T* a, row_pair<T>& g,
               T (*buf)[base_most]) {
    using P = pair2<T>;
    g.fwd = c.fwd;
    g.k0 = c.fwd ? i + 2 : 0;
    g.len = c.fwd ? mb - g.k0 : i;
    g.lv = g.len - g.len % lanev<T>::W;
    g.a0 = op_at(c, a, i, g.k0);
    g.a1 = op_at(c, a, i + 1, g.k0);
    if (!c.trans) {
        for (int k = 0; k < g.len; ++k) {
            buf[0][k] = g.a0[(long long)k * c.lda];
            buf[1][k] = g.a1[(long long)k * c.lda];
        }
        g.a0 = buf[0], g.a1 = buf[1];
    }
#if ZVA_BRANCH >= 6
    if (g.lv < g.len) {
        g.mask = first_lanes<T>(g.len - g.lv);
        g.last0 = load_first(g.a0 + g.lv, g.mask);
        g.last1 = load_first(g.a1 + g.lv, g.mask);
    }
#else
    for (int e = g.lv; e < g.len; ++e) g.tail[e - g.lv] = P::set(g.a0[e], g.a1[e]);
#endif
    g.diag = c.unit ? P::set(1, 1) : P::set(*op_at(c, a, i, i), *op_at(c, a, i + 1, i + 1));
    g.off = c.fwd ? P::set(*op_at(c, a, i, i + 1), 0) : P::set(0, *op_at(c, a, i + 1, i));
}

// Pairs of rows taken together across the columns, so that the rows of B
// they read are still in the first-level cache when the next pair reads
// them.
constexpr int sweep_pairs = 8;

// Pairs p0 .. p0+count-1 of the walk.
template <class T, bool Even>
void left_pairs(const tr_case<T>& c, int mb, int nb, int p0, int count, const T* a, T* b) {
    row_pair<T> g[sweep_pairs];
    T buf[sweep_pairs][2][base_most];
    int row[sweep_pairs];
    for (int r = 0; r < count; ++r) {
        row[r] = c.fwd ? 2 * (p0 + r) : mb - 2 - 2 * (p0 + r);
        make_pair(c, mb, row[r], a, g[r], buf[r]);
    }
    // The rows of B the pairs read; those of the next two columns are
    // fetched while these are worked on, the first pair's reads would wait
    // for them otherwise.
    const int lo = c.fwd ? row[0] : 0, hi = c.fwd ? mb : row[0] + 2;
    constexpr int line = 64 / sizeof(T);
    int j = 0;
    for (; j + 2 <= nb; j += 2) {
        if (j + 4 <= nb) {
            const T* next = b + (long long)(j + 2) * c.ldb;
            for (int e = lo; e < hi; e += line) {
                _mm_prefetch(reinterpret_cast<const char*>(next + e), _MM_HINT_T0);
                _mm_prefetch(reinterpret_cast<const char*>(next + c.ldb + e), _MM_HINT_T0);
            }
        }
        sweep_cols<T, 2>(g, row, count, b + (long long)j * c.ldb, c.ldb);
    }
    if (!Even && j < nb)
        sweep_cols<T, 1>(g, row, count, b + (long long)j * c.ldb, c.ldb);
}

template <class T, bool Conj, bool Even>
void base_left(const tr_case<T>& c, int mb, int nb, const T* a, T* b) {
    if (!is_one(*c.alpha)) gemm_scale_c<T>(&mb, &nb, c.alpha, b, &c.ldb);
    if constexpr (cplx_v<T>) {
        for (int q = 0; q < mb; ++q)
            left_row<T, Conj, Even>(c, mb, nb, c.fwd ? q : mb - 1 - q, a, b);
    } else {
        const int pairs = mb / 2;
        for (int p = 0; p < pairs; p += sweep_pairs) {
            const int count = pairs - p < sweep_pairs ? pairs - p : sweep_pairs;
            left_pairs<T, Even>(c, mb, nb, p, count, a, b);
        }
        // The odd row comes last in the walk: the bottom one going up, the
        // top one going down.
        if (!Even && mb % 2) left_row<T, false, Even>(c, mb, nb, c.fwd ? mb - 1 : 0, a, b);
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
        even ? base_left<T, false, true>(c, mt, nf, a, b)
             : base_left<T, false, false>(c, mt, nf, a, b);
}

}  // namespace
}  // namespace zva::ZVA_NS
