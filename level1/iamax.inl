// Index of the largest and of the smallest element, I?AMAX and I?AMIN, for
// S, D, C and Z on every branch: one-based position of the first element
// whose measure is extreme. The measure is |x|, and |re| + |im| for complex
// elements, one addition in the element's own precision.
//
// Every kernel: n < 1 or incx < 1 gives 0 without reading x, n = 1 gives 1.
// From best = measure(x[0]) the rest is compared in ascending order, singly
// or in lanes:
//   singles  an element replaces the best unless best >= v (the smallest:
//            unless v >= best); ties keep the first position, and a NaN on
//            either side replaces, so the element after a NaN replaces it.
//   lanes    W lanes, each with a value and a position. Per group of W:
//            keep := v <= value (>= for the smallest); value := max(v,
//            value) (min), which keeps the lane's value when either side is
//            a NaN; position := keep ? position : its new position. Then
//            the lanes are reduced: M their max (min); if M is a NaN the
//            position stays as it was before the run, else it becomes the
//            lowest position among the lanes that hold M.
// Which lane holds which element of a group is free: the reduction does not
// look at lane numbers, so the complex kinds keep the order their shuffles
// leave.
//
// Lanes by branch (unit stride: peel of x + 1 to the alignment; the second
// width serves once after the first):
//   branch  S          D          C          Z          alignment
//   7       8, then 4  4, then 2  8, then 4  4, then 2  32 bytes
//   6       4          4          4          4          32 bytes
//   2 - 5   4          2          2          singles    16 bytes
// Other increments gather with the first width, without peel; C on branch 7
// goes on with 4 there too.
//
// Positions: 32-bit in 32- or 64-bit integer lanes, except the double
// lanes of branch 6, which has no 256-bit integer add and counts in doubles
// (exact far beyond 2^31). Branches 2 to 4 select positions by and/andnot/or,
// 5 to 7 by blendv. Register budget: a run keeps value, position, next
// position and step live beside the loaded group: at most seven of the
// eight registers, the sign mask and the step may come from memory.
#include <immintrin.h>

#include "frame/scalar.h"
#include "level1/kernels.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

template <class T> inline R_<T> measure(const T& x) {
    if constexpr (requires { x.re; }) return __builtin_fabs(x.re) + __builtin_fabs(x.im);
    else return __builtin_fabs(x);
}

template <bool Min, class T>
inline void singles(const T*& p, int s, int count, int& pos, R_<T>& best, int& idx) {
    for (int k = 0; k < count; ++k, ++pos, p += s) {
        const R_<T> v = measure(*p);
        if (Min ? !(v >= best) : !(best >= v)) {
            best = v;
            idx = pos;
        }
    }
}

// ---- positions beside values ----------------------------------------------
// The lanes of positions that go with a register of measures (pos_ps with
// __m128, pos_pd with __m128d, pos_pd4 with __m256d, pos_ps8 with __m256):
//   bcast, at(pos, order)  a value in every lane; pos + order[l] in lane l
//   keep, pick             the compare and the max/min of the rule above
//   sel(k, old, neu)       old where k is set, else neu
//   spill                  values and positions into plain arrays
inline __m128i sel128(__m128i k, __m128i old, __m128i neu) {
#if ZVA_BRANCH >= 5
    return _mm_blendv_epi8(neu, old, k);
#else
    return _mm_or_si128(_mm_and_si128(k, old), _mm_andnot_si128(k, neu));
#endif
}

struct pos_ps {
    using V = __m128;
    using I = __m128i;
    static V bcast(float b) { return _mm_set1_ps(b); }
    static I at(int p, const int* o) { return _mm_setr_epi32(p + o[0], p + o[1], p + o[2], p + o[3]); }
    static I add(I a, int w) { return _mm_add_epi32(a, _mm_set1_epi32(w)); }
    template <bool Min> static V keep(V v, V b) { return Min ? _mm_cmpge_ps(v, b) : _mm_cmple_ps(v, b); }
    template <bool Min> static V pick(V v, V b) { return Min ? _mm_min_ps(v, b) : _mm_max_ps(v, b); }
    static I sel(V k, I old, I neu) { return sel128(_mm_castps_si128(k), old, neu); }
    static void spill(V v, I i, float* vb, int* ib) {
        _mm_storeu_ps(vb, v);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(ib), i);
    }
};

// Two positions in the low words of 64-bit lanes.
struct pos_pd {
    using V = __m128d;
    using I = __m128i;
    static V bcast(double b) { return _mm_set1_pd(b); }
    static I at(int p, const int* o) { return _mm_setr_epi32(p + o[0], 0, p + o[1], 0); }
    static I add(I a, int w) { return _mm_add_epi64(a, _mm_setr_epi32(w, 0, w, 0)); }
    template <bool Min> static V keep(V v, V b) { return Min ? _mm_cmpge_pd(v, b) : _mm_cmple_pd(v, b); }
    template <bool Min> static V pick(V v, V b) { return Min ? _mm_min_pd(v, b) : _mm_max_pd(v, b); }
    static I sel(V k, I old, I neu) { return sel128(_mm_castpd_si128(k), old, neu); }
    static void spill(V v, I i, double* vb, int* ib) {
        alignas(16) int w[4];
        _mm_storeu_pd(vb, v);
        _mm_store_si128(reinterpret_cast<__m128i*>(w), i);
        ib[0] = w[0];
        ib[1] = w[2];
    }
};

#if ZVA_BRANCH >= 6
struct pos_pd4 {
    using V = __m256d;
    static V bcast(double b) { return _mm256_set1_pd(b); }
    template <bool Min> static V keep(V v, V b) {
        return _mm256_cmp_pd(v, b, Min ? _CMP_GE_OQ : _CMP_LE_OQ);
    }
    template <bool Min> static V pick(V v, V b) { return Min ? _mm256_min_pd(v, b) : _mm256_max_pd(v, b); }
#if ZVA_BRANCH == 7
    using I = __m256i;  // positions in the low words of 64-bit lanes
    static I at(int p, const int* o) {
        return _mm256_setr_epi32(p + o[0], 0, p + o[1], 0, p + o[2], 0, p + o[3], 0);
    }
    static I add(I a, int w) { return _mm256_add_epi64(a, _mm256_set1_epi64x(w)); }
    static I sel(V k, I old, I neu) {
        return _mm256_castpd_si256(
            _mm256_blendv_pd(_mm256_castsi256_pd(neu), _mm256_castsi256_pd(old), k));
    }
    static void spill(V v, I i, double* vb, int* ib) {
        alignas(32) int w[8];
        _mm256_storeu_pd(vb, v);
        _mm256_store_si256(reinterpret_cast<__m256i*>(w), i);
        for (int l = 0; l < 4; ++l) ib[l] = w[2 * l];
    }
#else
    using I = __m256d;  // positions counted in doubles
    static I at(int p, const int* o) {
        return _mm256_setr_pd(p + o[0], p + o[1], p + o[2], p + o[3]);
    }
    static I add(I a, int w) { return _mm256_add_pd(a, _mm256_set1_pd(w)); }
    // Bitwise: given blendv on these doubles, the compiler splits the
    // select into scalar branches.
    static I sel(V k, I old, I neu) { return _mm256_or_pd(_mm256_and_pd(k, old), _mm256_andnot_pd(k, neu)); }
    static void spill(V v, I i, double* vb, int* ib) {
        alignas(32) double w[4];
        _mm256_storeu_pd(vb, v);
        _mm256_store_pd(w, i);
        for (int l = 0; l < 4; ++l) ib[l] = static_cast<int>(w[l]);
    }
#endif
};
#endif

#if ZVA_BRANCH == 7
struct pos_ps8 {
    using V = __m256;
    using I = __m256i;
    static V bcast(float b) { return _mm256_set1_ps(b); }
    static I at(int p, const int* o) {
        return _mm256_add_epi32(_mm256_set1_epi32(p),
                                _mm256_loadu_si256(reinterpret_cast<const __m256i*>(o)));
    }
    static I add(I a, int w) { return _mm256_add_epi32(a, _mm256_set1_epi32(w)); }
    template <bool Min> static V keep(V v, V b) {
        return _mm256_cmp_ps(v, b, Min ? _CMP_GE_OQ : _CMP_LE_OQ);
    }
    template <bool Min> static V pick(V v, V b) { return Min ? _mm256_min_ps(v, b) : _mm256_max_ps(v, b); }
    static I sel(V k, I old, I neu) {
        return _mm256_castps_si256(
            _mm256_blendv_ps(_mm256_castsi256_ps(neu), _mm256_castsi256_ps(old), k));
    }
    static void spill(V v, I i, float* vb, int* ib) {
        _mm256_storeu_ps(vb, v);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(ib), i);
    }
};
#endif

// ---- measures of a group ----------------------------------------------------
// A measure kind reads W elements, consecutive (Unit) or s apart, and
// returns their measures in a register V; order[l] is the element of the
// group whose measure lane l holds. W = 0: no lanes.
struct no_lanes {
    static constexpr int W = 0;
};

inline __m128 abs_ps(__m128 x) { return _mm_andnot_ps(_mm_set1_ps(-0.0f), x); }
inline __m128d abs_pd(__m128d x) { return _mm_andnot_pd(_mm_set1_pd(-0.0), x); }

struct s4 {
    using X = pos_ps;
    using T = float;
    using V = __m128;
    static constexpr int W = 4;
    static constexpr int order[4] = {0, 1, 2, 3};
    template <bool Unit> static V get(const T* p, int s) {
        if constexpr (Unit) return abs_ps(_mm_loadu_ps(p));
        else return abs_ps(simd::F128::gather(p, s));
    }
};

struct d2 {
    using X = pos_pd;
    using T = double;
    using V = __m128d;
    static constexpr int W = 2;
    static constexpr int order[2] = {0, 1};
    template <bool Unit> static V get(const T* p, int s) {
        if constexpr (Unit) return abs_pd(_mm_loadu_pd(p));
        else return abs_pd(simd::D128::gather(p, s));
    }
};

// Two complex singles; lanes 2 and 3 repeat lanes 0 and 1, and the
// reduction reads only the first two.
struct c2 {
    using X = pos_ps;
    using T = c32;
    using V = __m128;
    static constexpr int W = 2;
    static constexpr int order[4] = {0, 1, 0, 1};
    template <bool Unit> static V get(const T* p, int s) {
        const __m128 a = abs_ps(Unit ? simd::C128::load(p) : simd::C128::gather(p, s));
        return _mm_add_ps(_mm_shuffle_ps(a, a, 0x88), _mm_shuffle_ps(a, a, 0xDD));
    }
};

#if ZVA_BRANCH >= 6
using simd_c = simd::C256<false>;
using simd_z = simd::Z256<false>;
inline __m256 abs256_ps(__m256 x) { return _mm256_andnot_ps(_mm256_set1_ps(-0.0f), x); }
inline __m256d abs256_pd(__m256d x) { return _mm256_andnot_pd(_mm256_set1_pd(-0.0), x); }

struct d4 {
    using X = pos_pd4;
    using T = double;
    using V = __m256d;
    static constexpr int W = 4;
    static constexpr int order[4] = {0, 1, 2, 3};
    template <bool Unit> static V get(const T* p, int s) {
        if constexpr (Unit) return abs256_pd(_mm256_loadu_pd(p));
        else return abs256_pd(simd::D256<false>::gather(p, s));
    }
};

// Four complex singles: real and imaginary parts of the two halves apart.
struct c4 {
    using X = pos_ps;
    using T = c32;
    using V = __m128;
    static constexpr int W = 4;
    static constexpr int order[4] = {0, 1, 2, 3};
    template <bool Unit> static V get(const T* p, int s) {
        const __m256 a = abs256_ps(Unit ? simd_c::load(p) : simd_c::gather(p, s));
        const __m128 lo = _mm256_castps256_ps128(a), hi = _mm256_extractf128_ps(a, 1);
        return _mm_add_ps(_mm_shuffle_ps(lo, hi, 0x88), _mm_shuffle_ps(lo, hi, 0xDD));
    }
};

// Two complex doubles, from one 256-bit register.
struct z2 {
    using X = pos_pd;
    using T = c64;
    using V = __m128d;
    static constexpr int W = 2;
    static constexpr int order[2] = {0, 1};
    template <bool Unit> static V get(const T* p, int s) {
        const __m256d a = abs256_pd(Unit ? simd_z::load(p) : simd_z::gather(p, s));
        const __m128d lo = _mm256_castpd256_pd128(a), hi = _mm256_extractf128_pd(a, 1);
        return _mm_add_pd(_mm_unpacklo_pd(lo, hi), _mm_unpackhi_pd(lo, hi));
    }
};

// Four complex doubles: unpacking works inside the 128-bit halves, so the
// lanes hold elements 0, 2, 1, 3.
struct z4 {
    using X = pos_pd4;
    using T = c64;
    using V = __m256d;
    static constexpr int W = 4;
    static constexpr int order[4] = {0, 2, 1, 3};
    template <bool Unit> static V get(const T* p, int s) {
        const __m256d a = abs256_pd(Unit ? simd_z::load(p) : simd_z::gather(p, s));
        const __m256d b = abs256_pd(Unit ? simd_z::load(p + 2) : simd_z::gather(p + 2 * s, s));
        return _mm256_add_pd(_mm256_unpacklo_pd(a, b), _mm256_unpackhi_pd(a, b));
    }
};
#endif

#if ZVA_BRANCH == 7
struct s8 {
    using X = pos_ps8;
    using T = float;
    using V = __m256;
    static constexpr int W = 8;
    static constexpr int order[8] = {0, 1, 2, 3, 4, 5, 6, 7};
    template <bool Unit> static V get(const T* p, int s) {
        if constexpr (Unit) return abs256_ps(_mm256_loadu_ps(p));
        else return abs256_ps(simd::F256<true>::gather(p, s));
    }
};

// Eight complex singles: shuffles work inside the 128-bit halves, so the
// lanes hold elements 0, 1, 4, 5, 2, 3, 6, 7.
struct c8 {
    using X = pos_ps8;
    using T = c32;
    using V = __m256;
    static constexpr int W = 8;
    static constexpr int order[8] = {0, 1, 4, 5, 2, 3, 6, 7};
    template <bool Unit> static V get(const T* p, int s) {
        const __m256 a = abs256_ps(Unit ? simd_c::load(p) : simd_c::gather(p, s));
        const __m256 b = abs256_ps(Unit ? simd_c::load(p + 4) : simd_c::gather(p + 4 * s, s));
        return _mm256_add_ps(_mm256_shuffle_ps(a, b, 0x88), _mm256_shuffle_ps(a, b, 0xDD));
    }
};
#endif

// ---- what each branch runs ------------------------------------------------
// unit1, unit2: the widths of the unit path; gath1, gath2: of the others.
template <class T> struct plan;
#if ZVA_BRANCH == 7
template <> struct plan<float> { using unit1 = s8; using unit2 = s4; using gath1 = s8; using gath2 = no_lanes; };
template <> struct plan<double> { using unit1 = d4; using unit2 = d2; using gath1 = d4; using gath2 = no_lanes; };
template <> struct plan<c32> { using unit1 = c8; using unit2 = c4; using gath1 = c8; using gath2 = c4; };
template <> struct plan<c64> { using unit1 = z4; using unit2 = z2; using gath1 = z4; using gath2 = no_lanes; };
inline constexpr unsigned unit_align = 32;
#elif ZVA_BRANCH == 6
template <> struct plan<float> { using unit1 = s4; using unit2 = no_lanes; using gath1 = s4; using gath2 = no_lanes; };
template <> struct plan<double> { using unit1 = d4; using unit2 = no_lanes; using gath1 = d4; using gath2 = no_lanes; };
template <> struct plan<c32> { using unit1 = c4; using unit2 = no_lanes; using gath1 = c4; using gath2 = no_lanes; };
template <> struct plan<c64> { using unit1 = z4; using unit2 = no_lanes; using gath1 = z4; using gath2 = no_lanes; };
inline constexpr unsigned unit_align = 32;
#else
template <> struct plan<float> { using unit1 = s4; using unit2 = no_lanes; using gath1 = s4; using gath2 = no_lanes; };
template <> struct plan<double> { using unit1 = d2; using unit2 = no_lanes; using gath1 = d2; using gath2 = no_lanes; };
template <> struct plan<c32> { using unit1 = c2; using unit2 = no_lanes; using gath1 = c2; using gath2 = no_lanes; };
template <> struct plan<c64> { using unit1 = no_lanes; using unit2 = no_lanes; using gath1 = no_lanes; using gath2 = no_lanes; };
inline constexpr unsigned unit_align = 16;
#endif

inline constexpr int same_place[8] = {};

// One run of `groups` groups of K::W elements from p, then the reduction.
template <class K, bool Min, bool Unit, class T>
void lanes_run(const T*& p, int s, int groups, int& pos, R_<T>& best, int& idx) {
    using X = typename K::X;
    using R = R_<T>;
    typename K::V value = X::bcast(best);
    typename X::I at = X::at(idx, same_place);
    typename X::I next = X::at(pos, K::order);
    for (int g = 0; g < groups; ++g) {
        const typename K::V v = K::template get<Unit>(p, s);
        const typename K::V k = X::template keep<Min>(v, value);
        value = X::template pick<Min>(v, value);
        at = X::sel(k, at, next);
        next = X::add(next, K::W);
        p += Unit ? K::W : K::W * s;
    }
    pos += groups * K::W;

    alignas(32) R vb[8];
    alignas(32) int ib[8];
    X::spill(value, at, vb, ib);
    R m = vb[0];
    for (int l = 1; l < K::W; ++l) m = Min ? (vb[l] < m ? vb[l] : m) : (vb[l] > m ? vb[l] : m);
    best = m;
    if (m != m) return;  // best was a NaN when the run began: idx stays
    int first = 0x7FFFFFFF;
    for (int l = 0; l < K::W; ++l)
        if (vb[l] == m && ib[l] < first) first = ib[l];
    idx = first;
}

template <class T, bool Min> int index_of(const int* pn, const T* x, const int* pincx) {
    const int n = *pn, s = *pincx;
    if (n < 1 || s < 1) return 0;
    if (n == 1) return 1;
    using P = plan<T>;
    R_<T> best = measure(*x);
    int idx = 1, pos = 2;
    const T* p = x + s;
    const int m = n - 1;
    if (s == 1) {
        using K1 = typename P::unit1;
        using K2 = typename P::unit2;
        if constexpr (K1::W > 0) {
            const int peel = m < K1::W ? -1 : peel_to(p, unit_align, sizeof(T));
            if (peel >= 0 && m >= peel + K1::W) {
                singles<Min>(p, 1, peel, pos, best, idx);
                lanes_run<K1, Min, true>(p, 1, (n - pos + 1) / K1::W, pos, best, idx);
                if constexpr (K2::W > 0)
                    if (n - pos + 1 >= K2::W) lanes_run<K2, Min, true>(p, 1, 1, pos, best, idx);
            }
        }
    } else {
        using K1 = typename P::gath1;
        using K2 = typename P::gath2;
        if constexpr (K1::W > 0)
            if (m >= K1::W) lanes_run<K1, Min, false>(p, s, m / K1::W, pos, best, idx);
        if constexpr (K2::W > 0)
            if (n - pos + 1 >= K2::W) lanes_run<K2, Min, false>(p, s, 1, pos, best, idx);
    }
    singles<Min>(p, s, n - pos + 1, pos, best, idx);
    return idx;
}

}  // namespace

template <class T> int iamax(const int* n, const T* x, const int* incx) { return index_of<T, false>(n, x, incx); }
template <class T> int iamin(const int* n, const T* x, const int* incx) { return index_of<T, true>(n, x, incx); }
ZVA_INSTANTIATE_TYPES(iamax)
ZVA_INSTANTIATE_TYPES(iamin)

}  // namespace zva::ZVA_NS
