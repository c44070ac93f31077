// DOTI, the sum of x[i]*y[indx[i]-1], real (SDOTI, DDOTI) and complex
// (CDOTUI, ZDOTUI; CDOTCI, ZDOTCI with conj(x[i]): cdoti<T, Conj>).
// nz <= 0: 0, the complex forms store (0, 0). The complex result goes to
// the caller's slot, whose address is returned.
//
// Branches 2 to 4 (all real; complex up to 4 for C, up to 5 for Z): scalar.
//   real     eight accumulators, eight a pass; a0 + a1 + ... + a7 from the
//            left; the 0 to 7 elements left over added one by one from the
//            highest position down
//   complex  one accumulator, one element a pass, ascending (complex.inl)
// Branches 5 to 7: accumulators of vectors whose y lanes are read one by
// one; x is loaded whole. One text, dot_vector<kind>; the kinds give
//   width    W elements a vector; ACC accumulators; G groups of W a pass
//            (group g to accumulator g % ACC, DDOTI on 7 in the order
//            2, 3, 0, 1: a0 takes group 2 then 0, a1 group 3 then 1)
//   start    the least nz of the vector path; alignment taken from indx
//            on 6 and 7 (peel to 32 bytes, all singly if indx is not
//            4-aligned), from x on 5 (peel to 16 bytes if element-aligned)
//   step     real: fused on 7, product then sum elsewhere; complex: the
//            CDOTU step of the branch: fmaddsub on 7, addsub on 6, re and
//            im products in separate accumulators on 5
//   tail     on 7 one vector a pass, product then sum (not ZDOTUI)
// The peeled sum enters lane 0 (pair 0) of the first accumulator.
// Reduction: accumulators pairwise from the first, then the high half onto
// the low half down to one element. Singles: s + x*y, product then sum.
// Register budget on 32-bit code (8 vector registers): at most four
// accumulators, one x, one y and one product live.
#include <immintrin.h>

#include "frame/scalar.h"
#include "level1/kernels.h"
#include "simd/branch.h"
#include "level1/sparse/complex.inl"

namespace zva::ZVA_NS {
namespace {

template <class T> inline T ld(const T* y, const int* ix, int k) { return y[ix[k] - 1]; }

#if ZVA_BRANCH >= 5

// ---- vector kinds ---------------------------------------------------------

template <class T, bool Conj> struct kind;

// The loop constants of a kind.
template <int W_, int ACC_, int G_, int START_, bool TAIL_> struct kind_base {
    static constexpr int W = W_, ACC = ACC_, G = G_, P = W_ * G_, START = START_;
    static constexpr bool TAIL = TAIL_;
    static constexpr int order(int g) { return (ACC == 2 && G == 4 && branch == 7 && W == 4) ? (g + 2) % 4 : g; }
};

#if ZVA_BRANCH >= 6
inline double sum_of(__m256d v) {
    const __m128d h = _mm_add_pd(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1));
    return _mm_cvtsd_f64(_mm_add_sd(h, _mm_unpackhi_pd(h, h)));
}
inline float sum_of(__m256 v) {
    __m128 h = _mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
    h = _mm_add_ps(h, _mm_movehl_ps(h, h));
    return _mm_cvtss_f32(_mm_add_ss(h, _mm_movehdup_ps(h)));
}

template <> struct kind<double, false> : kind_base<4, branch == 7 ? 2 : 4, 4, 16, branch == 7> {
    static __m256d load(const double* x) { return _mm256_loadu_pd(x); }
    static __m256d gather(const double* y, const int* ix) {
        return _mm256_setr_pd(ld(y, ix, 0), ld(y, ix, 1), ld(y, ix, 2), ld(y, ix, 3));
    }
    static __m256d first(double s) { return _mm256_setr_pd(s, 0, 0, 0); }
};

template <> struct kind<float, false> : kind_base<8, 2, 2, 16, branch == 7> {
    static __m256 load(const float* x) { return _mm256_loadu_ps(x); }
    static __m256 gather(const float* y, const int* ix) {
        return _mm256_setr_ps(ld(y, ix, 0), ld(y, ix, 1), ld(y, ix, 2), ld(y, ix, 3), ld(y, ix, 4),
                              ld(y, ix, 5), ld(y, ix, 6), ld(y, ix, 7));
    }
    static __m256 first(float s) { return _mm256_setr_ps(s, 0, 0, 0, 0, 0, 0, 0); }
};
#else
inline double sum_of(__m128d h) { return _mm_cvtsd_f64(_mm_add_sd(h, _mm_unpackhi_pd(h, h))); }
inline float sum_of(__m128 h) {
    h = _mm_add_ps(h, _mm_movehl_ps(h, h));
    return _mm_cvtss_f32(_mm_add_ss(h, _mm_movehdup_ps(h)));
}

template <> struct kind<double, false> : kind_base<2, 4, 4, 8, false> {
    static __m128d load(const double* x) { return _mm_loadu_pd(x); }
    static __m128d gather(const double* y, const int* ix) { return _mm_setr_pd(ld(y, ix, 0), ld(y, ix, 1)); }
    static __m128d first(double s) { return _mm_setr_pd(s, 0); }
};

template <> struct kind<float, false> : kind_base<4, 2, 2, 8, false> {
    static __m128 load(const float* x) { return _mm_loadu_ps(x); }
    static __m128 gather(const float* y, const int* ix) {
        return _mm_setr_ps(ld(y, ix, 0), ld(y, ix, 1), ld(y, ix, 2), ld(y, ix, 3));
    }
    static __m128 first(float s) { return _mm_setr_ps(s, 0, 0, 0); }
};
#endif

// Operations on the vector types, by overload.
#if ZVA_BRANCH >= 6
inline __m256d vadd(__m256d a, __m256d b) { return _mm256_add_pd(a, b); }
inline __m256 vadd(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
inline __m256d vmul(__m256d a, __m256d b) { return _mm256_mul_pd(a, b); }
inline __m256 vmul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
#endif
inline __m128d vadd(__m128d a, __m128d b) { return _mm_add_pd(a, b); }
inline __m128 vadd(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
inline __m128d vmul(__m128d a, __m128d b) { return _mm_mul_pd(a, b); }
inline __m128 vmul(__m128 a, __m128 b) { return _mm_mul_ps(a, b); }
#if ZVA_BRANCH == 7
inline __m256d vfma(__m256d a, __m256d b, __m256d c) { return _mm256_fmadd_pd(a, b, c); }
inline __m256 vfma(__m256 a, __m256 b, __m256 c) { return _mm256_fmadd_ps(a, b, c); }
#endif

// ---- complex kinds ----------------------------------------------------------

// Complex vectors: pairs (re, im). re/im duplicate x's parts over their
// pair, swp exchanges the parts of y, neg_im is the sign of the conjugate.
#if ZVA_BRANCH >= 6
struct cvec_c {  // four c32
    using V = __m256;
    static V load(const c32* x) { return _mm256_loadu_ps(&x->re); }
    static __m128 two(const c32* y, const int* ix) {
        const __m128 lo = _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(&y[ix[0] - 1]));
        return _mm_loadh_pi(lo, reinterpret_cast<const __m64*>(&y[ix[1] - 1]));
    }
    static V gather(const c32* y, const int* ix) { return _mm256_setr_m128(two(y, ix), two(y, ix + 2)); }
    static V re(V x) { return _mm256_moveldup_ps(x); }
    static V im(V x) { return _mm256_movehdup_ps(x); }
    static V swp(V y) { return _mm256_permute_ps(y, 0xB1); }
    static V addsub(V a, V b) { return _mm256_addsub_ps(a, b); }
    static V neg_im() { return _mm256_setr_ps(0.f, -0.f, 0.f, -0.f, 0.f, -0.f, 0.f, -0.f); }
    static V flip(V x, V m) { return _mm256_xor_ps(x, m); }
    static V first(c32 s) { return _mm256_setr_ps(s.re, s.im, 0, 0, 0, 0, 0, 0); }
    static c32 sum(V v) {
        __m128 h = _mm_add_ps(_mm256_castps256_ps128(v), _mm256_extractf128_ps(v, 1));
        h = _mm_add_ps(h, _mm_movehl_ps(h, h));
        c32 out;
        _mm_storel_pi(reinterpret_cast<__m64*>(&out), h);
        return out;
    }
#if ZVA_BRANCH == 7
    static V fmaddsub(V a, V b, V c) { return _mm256_fmaddsub_ps(a, b, c); }
#endif
};

struct cvec_z {  // two c64
    using V = __m256d;
    static V load(const c64* x) { return _mm256_loadu_pd(&x->re); }
    static V gather(const c64* y, const int* ix) {
        return _mm256_setr_m128d(_mm_loadu_pd(&y[ix[0] - 1].re), _mm_loadu_pd(&y[ix[1] - 1].re));
    }
    static V re(V x) { return _mm256_movedup_pd(x); }
    static V im(V x) { return _mm256_permute_pd(x, 0xF); }
    static V swp(V y) { return _mm256_permute_pd(y, 5); }
    static V addsub(V a, V b) { return _mm256_addsub_pd(a, b); }
    static V neg_im() { return _mm256_setr_pd(0., -0., 0., -0.); }
    static V flip(V x, V m) { return _mm256_xor_pd(x, m); }
    static V first(c64 s) { return _mm256_setr_pd(s.re, s.im, 0, 0); }
    static c64 sum(V v) {
        c64 out;
        _mm_storeu_pd(&out.re, _mm_add_pd(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1)));
        return out;
    }
#if ZVA_BRANCH == 7
    static V fmaddsub(V a, V b, V c) { return _mm256_fmaddsub_pd(a, b, c); }
#endif
};

template <bool Conj> struct kind<c32, Conj> : cvec_c, kind_base<4, 2, 2, 8, branch == 7> {};
template <bool Conj>
struct kind<c64, Conj> : cvec_z, kind_base<2, branch == 7 ? 2 : 4, branch == 7 ? 2 : 4, 0, branch == 7 && Conj> {};
#else
struct cvec_c {  // two c32, SSE4.1
    using V = __m128;
    static V load(const c32* x) { return _mm_loadu_ps(&x->re); }
    static V gather(const c32* y, const int* ix) {
        const __m128 lo = _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(&y[ix[0] - 1]));
        return _mm_loadh_pi(lo, reinterpret_cast<const __m64*>(&y[ix[1] - 1]));
    }
    static V re(V x) { return _mm_moveldup_ps(x); }
    static V im(V x) { return _mm_movehdup_ps(x); }
    static V swp(V y) { return _mm_shuffle_ps(y, y, 0xB1); }
    static V addsub(V a, V b) { return _mm_addsub_ps(a, b); }
    static V neg_im() { return _mm_setr_ps(0.f, -0.f, 0.f, -0.f); }
    static V flip(V x, V m) { return _mm_xor_ps(x, m); }
    static V first(c32 s) { return _mm_setr_ps(s.re, s.im, 0, 0); }
    static c32 sum(V h) {
        h = _mm_add_ps(h, _mm_movehl_ps(h, h));
        c32 out;
        _mm_storel_pi(reinterpret_cast<__m64*>(&out), h);
        return out;
    }
};
template <bool Conj> struct kind<c32, Conj> : cvec_c, kind_base<2, 2, 4, 8, false> {};
#endif

// ---- the vector text ---------------------------------------------------------

template <class T> inline constexpr bool cplx = requires(T t) { t.re; };

// Whether this branch runs the vector text for T at all.
template <class T> inline constexpr bool vectors = !cplx<T> || sizeof(T) == 8 || branch >= 6;

template <class T, bool Conj> inline T single(T s, const T* x, const T* y, const int* ix, int i) {
    if constexpr (cplx<T>) return cmadd(s, Conj ? conj_of(x[i]) : x[i], ld(y, ix, i));
    else return s + x[i] * ld(y, ix, i);
}

// One pass of W elements into an accumulator; Fused selects the main
// pass's step on branch 7.
template <class K, class T, bool Conj, bool Fused, class A>
inline void step(A& a, const T* x, const T* y, const int* ix) {
    auto xv = K::load(x);
    const auto yv = K::gather(y, ix);
    if constexpr (cplx<T>) {
        if constexpr (Conj) xv = K::flip(xv, K::neg_im());
        const auto t = vmul(K::im(xv), K::swp(yv));
#if ZVA_BRANCH == 7
        a.a = vadd(a.a, K::fmaddsub(K::re(xv), yv, t));
#elif ZVA_BRANCH == 6
        a.a = vadd(a.a, K::addsub(vmul(K::re(xv), yv), t));
#else
        a.a = vadd(a.a, vmul(K::re(xv), yv));
        a.b = vadd(a.b, t);
#endif
    } else {
#if ZVA_BRANCH == 7
        if constexpr (Fused) {
            a.a = vfma(xv, yv, a.a);
            return;
        }
#endif
        a.a = vadd(a.a, vmul(xv, yv));
    }
}

template <class K, class T, class A> inline auto finish(const A& a) {
#if ZVA_BRANCH == 5
    if constexpr (cplx<T>) return K::addsub(a.a, a.b);  // re - re products, im + im products
#endif
    return a.a;
}

template <class K, class T, class V> inline T total(V v) {
    if constexpr (cplx<T>) return K::sum(v);
    else return sum_of(v);
}

// Elements before the vector loop, or -1: everything singly.
template <class K, class T> inline int peel_of(const T* x, const int* ix) {
    if constexpr (cplx<T> && sizeof(T) == 16) return 0;  // ZDOTUI, ZDOTCI: none
    else if constexpr (branch >= 6 || cplx<T>) return peel_to_32(ix, 4);
    else {
        const unsigned r = addr_bits(x) & 15u;
        return r % sizeof(T) ? 0 : static_cast<int>(((16u - r) & 15u) / sizeof(T));
    }
}

template <class T, bool Conj> T dot_vector(int nz, const T* x, const int* ix, const T* y) {
    using K = kind<T, Conj>;
    using V = decltype(K::load(x));
    struct acc { V a, b; };  // b: the complex kinds of branch 5 only
    T s{};
    int i = 0;
    const int peel = nz < K::START ? -1 : peel_of<K>(x, ix);
    if (peel >= 0 && nz >= peel + K::P) {
        for (; i < peel; ++i) s = single<T, Conj>(s, x, y, ix, i);
        acc a[K::ACC] = {};
        a[0].a = K::first(s);
        for (const int m = nz - ((nz - i) % K::P); i < m; i += K::P)
            for (int g = 0; g < K::G; ++g) {
                const int o = i + K::order(g) * K::W;
                step<K, T, Conj, true>(a[K::order(g) % K::ACC], x + o, y, ix + o);
            }
        auto v = vadd(finish<K, T>(a[0]), finish<K, T>(a[1]));
        if constexpr (K::ACC == 4) v = vadd(v, vadd(finish<K, T>(a[2]), finish<K, T>(a[3])));
        s = total<K, T>(v);
        if constexpr (K::TAIL) {
            if (nz - i >= K::W) {
                acc b = {};
                b.a = K::first(s);
                for (; nz - i >= K::W; i += K::W) step<K, T, Conj, false>(b, x + i, y, ix + i);
                s = total<K, T>(finish<K, T>(b));
            }
        }
    }
    for (; i < nz; ++i) s = single<T, Conj>(s, x, y, ix, i);
    return s;
}

#endif  // ZVA_BRANCH >= 5

}  // namespace

template <class T> T doti(const int* pnz, const T* x, const int* ix, const T* y) {
    const int nz = *pnz;
    if (nz <= 0) return 0;
#if ZVA_BRANCH >= 5
    return dot_vector<T, false>(nz, x, ix, y);
#else
    T a0 = 0, a1 = 0, a2 = 0, a3 = 0, a4 = 0, a5 = 0, a6 = 0, a7 = 0;
    const int m = nz & ~7;
    for (int i = 0; i < m; i += 8) {
        a0 = a0 + x[i] * ld(y, ix, i);
        a1 = a1 + x[i + 1] * ld(y, ix, i + 1);
        a2 = a2 + x[i + 2] * ld(y, ix, i + 2);
        a3 = a3 + x[i + 3] * ld(y, ix, i + 3);
        a4 = a4 + x[i + 4] * ld(y, ix, i + 4);
        a5 = a5 + x[i + 5] * ld(y, ix, i + 5);
        a6 = a6 + x[i + 6] * ld(y, ix, i + 6);
        a7 = a7 + x[i + 7] * ld(y, ix, i + 7);
    }
    T s = a0 + a1 + a2 + a3 + a4 + a5 + a6 + a7;
    for (int i = nz - 1; i >= m; --i) s = s + x[i] * ld(y, ix, i);
    return s;
#endif
}

template <class T, bool Conj> T* cdoti(T* result, const int* pnz, const T* x, const int* ix, const T* y) {
    const int nz = *pnz;
    T s{};
    if (nz > 0) {
#if ZVA_BRANCH >= 5
        if constexpr (vectors<T>) s = dot_vector<T, Conj>(nz, x, ix, y);
        else
#endif
            for (int i = 0; i < nz; ++i) s = cmadd(s, Conj ? conj_of(x[i]) : x[i], ld(y, ix, i));
    }
    *result = s;
    return result;
}

template decltype(doti<float>) doti<float>;
template decltype(doti<double>) doti<double>;
template decltype(cdoti<c32, false>) cdoti<c32, false>;
template decltype(cdoti<c32, true>) cdoti<c32, true>;
template decltype(cdoti<c64, false>) cdoti<c64, false>;
template decltype(cdoti<c64, true>) cdoti<c64, true>;

}  // namespace zva::ZVA_NS
