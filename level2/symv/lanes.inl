// Registers by width for the symmetric and Hermitian kernels, and the row
// walk they share. Included by symv.inl and syr.inl inside a branch
// namespace; no include guard.
//
// rv<T, K> is one register of K consecutive elements of T: K = 1 is a single
// element (a plain float or double for the real types, the low 64 or all 128
// bits of an xmm register for the complex ones), K = full<T> is a whole
// register of the branch, K = full<T> / 2 the 128-bit half on the 256-bit
// branches. madd is fused on branch 7 at every width, scalars included, and
// a multiply rounded before its add on the other branches.
//
// A complex factor t is kept as (tr, tr) and (-ti, ti): t*a is then
// tr*a + (-ti, ti)*swap(a), an add-subtract with the sign folded into the
// factor, which rounds as the add-subtract does and needs no SSE3.
#define ZI inline __attribute__((always_inline))
#define NOI __attribute__((noinline))
#define ZI_L __attribute__((always_inline))

template <int N> using c_ = std::integral_constant<int, N>;

// f(0) .. f(N-1) with constant arguments, so that small arrays indexed by
// them stay in registers.
template <int N, class F> ZI void each(F&& f) {
    if constexpr (N > 0) f(0);
    if constexpr (N > 1) f(1);
    if constexpr (N > 2) f(2);
    if constexpr (N > 3) f(3);
    if constexpr (N > 4) f(4);
    if constexpr (N > 5) f(5);
    if constexpr (N > 6) f(6);
    if constexpr (N > 7) f(7);
}

template <class T> inline constexpr bool cplx = sizeof(T) == 2 * sizeof(R_<T>);
// The vector boundary of the branch, and the elements of T in one register.
inline constexpr unsigned vbytes = branch >= 6 ? 32 : 16;
template <class T> inline constexpr int full = (int)(vbytes / sizeof(T));

// ---- registers --------------------------------------------------------------

template <class T, int K> struct rv;

template <class R> struct rv_real1 {
    using v = R;
    static ZI v ld(const R* p) { return *p; }
    static ZI void st(R* p, v x) { *p = x; }
    static ZI v gat(const R* p, int) { return *p; }
    static ZI v set(R s) { return s; }
    static ZI v zero() { return 0; }
    static ZI R fold(v x) { return x; }
};
template <> struct rv<float, 1> : rv_real1<float> {};
template <> struct rv<double, 1> : rv_real1<double> {};

template <> struct rv<double, 2> {
    using v = __m128d;
    static ZI v ld(const double* p) { return _mm_loadu_pd(p); }
    static ZI void st(double* p, v x) { _mm_storeu_pd(p, x); }
    static ZI v gat(const double* p, int s) { return _mm_loadh_pd(_mm_load_sd(p), p + s); }
    static ZI v set(double s) { return _mm_set1_pd(s); }
    static ZI v zero() { return _mm_setzero_pd(); }
    static ZI double fold(v x) { return _mm_cvtsd_f64(x) + _mm_cvtsd_f64(_mm_unpackhi_pd(x, x)); }
};

template <> struct rv<float, 4> {
    using v = __m128;
    static ZI v ld(const float* p) { return _mm_loadu_ps(p); }
    static ZI void st(float* p, v x) { _mm_storeu_ps(p, x); }
    static ZI v gat(const float* p, int s) { return _mm_setr_ps(p[0], p[s], p[2 * s], p[3 * s]); }
    static ZI v set(float s) { return _mm_set1_ps(s); }
    static ZI v zero() { return _mm_setzero_ps(); }
    // Lanes onto the first, in lane order.
    static ZI float fold(v x) {
        float s = _mm_cvtss_f32(x) + _mm_cvtss_f32(_mm_shuffle_ps(x, x, 1));
        s += _mm_cvtss_f32(_mm_movehl_ps(x, x));
        return s + _mm_cvtss_f32(_mm_shuffle_ps(x, x, 3));
    }
};

// One complex single in the low 64 bits, the upper half zero.
template <> struct rv<c32, 1> {
    using v = __m128;
    static ZI v ld(const c32* p) { return simd::c32_half(p); }
    static ZI void st(c32* p, v x) { _mm_storel_pi(reinterpret_cast<__m64*>(p), x); }
    static ZI v gat(const c32* p, int) { return simd::c32_half(p); }
    static ZI v set(float s) { return _mm_set1_ps(s); }
    static ZI v pair(float re, float im) { return _mm_setr_ps(re, im, re, im); }
    static ZI v zero() { return _mm_setzero_ps(); }
    static ZI v fold(v x) { return x; }
};

template <> struct rv<c32, 2> {
    using v = __m128;
    static ZI v ld(const c32* p) { return _mm_loadu_ps(&p->re); }
    static ZI void st(c32* p, v x) { _mm_storeu_ps(&p->re, x); }
    static ZI v gat(const c32* p, int s) { return _mm_movelh_ps(simd::c32_half(p), simd::c32_half(p + s)); }
    static ZI v set(float s) { return _mm_set1_ps(s); }
    static ZI v pair(float re, float im) { return _mm_setr_ps(re, im, re, im); }
    static ZI v zero() { return _mm_setzero_ps(); }
    static ZI v fold(v x) { return _mm_add_ps(x, _mm_movehl_ps(x, x)); }
};

template <> struct rv<c64, 1> {
    using v = __m128d;
    static ZI v ld(const c64* p) { return _mm_loadu_pd(&p->re); }
    static ZI void st(c64* p, v x) { _mm_storeu_pd(&p->re, x); }
    static ZI v gat(const c64* p, int) { return _mm_loadu_pd(&p->re); }
    static ZI v set(double s) { return _mm_set1_pd(s); }
    static ZI v pair(double re, double im) { return _mm_setr_pd(re, im); }
    static ZI v zero() { return _mm_setzero_pd(); }
    static ZI v fold(v x) { return x; }
};

#if ZVA_BRANCH >= 6
template <> struct rv<double, 4> {
    using v = __m256d;
    static ZI v ld(const double* p) { return _mm256_loadu_pd(p); }
    static ZI void st(double* p, v x) { _mm256_storeu_pd(p, x); }
    static ZI v gat(const double* p, int s) {
        return _mm256_insertf128_pd(_mm256_castpd128_pd256(rv<double, 2>::gat(p, s)),
                                    rv<double, 2>::gat(p + 2 * s, s), 1);
    }
    static ZI v set(double s) { return _mm256_set1_pd(s); }
    static ZI v zero() { return _mm256_setzero_pd(); }
    // The upper 128 bits onto the lower, then the lanes onto the first.
    static ZI double fold(v x) {
        return rv<double, 2>::fold(_mm_add_pd(_mm256_castpd256_pd128(x), _mm256_extractf128_pd(x, 1)));
    }
};

template <> struct rv<float, 8> {
    using v = __m256;
    static ZI v ld(const float* p) { return _mm256_loadu_ps(p); }
    static ZI void st(float* p, v x) { _mm256_storeu_ps(p, x); }
    static ZI v gat(const float* p, int s) {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(rv<float, 4>::gat(p, s)),
                                    rv<float, 4>::gat(p + 4 * s, s), 1);
    }
    static ZI v set(float s) { return _mm256_set1_ps(s); }
    static ZI v zero() { return _mm256_setzero_ps(); }
    static ZI float fold(v x) {
        return rv<float, 4>::fold(_mm_add_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1)));
    }
};

template <> struct rv<c32, 4> {
    using v = __m256;
    static ZI v ld(const c32* p) { return _mm256_loadu_ps(&p->re); }
    static ZI void st(c32* p, v x) { _mm256_storeu_ps(&p->re, x); }
    static ZI v gat(const c32* p, int s) {
        return _mm256_insertf128_ps(_mm256_castps128_ps256(rv<c32, 2>::gat(p, s)),
                                    rv<c32, 2>::gat(p + 2 * s, s), 1);
    }
    static ZI v set(float s) { return _mm256_set1_ps(s); }
    static ZI v pair(float re, float im) { return _mm256_setr_ps(re, im, re, im, re, im, re, im); }
    static ZI v zero() { return _mm256_setzero_ps(); }
    static ZI __m128 fold(v x) {
        return rv<c32, 2>::fold(_mm_add_ps(_mm256_castps256_ps128(x), _mm256_extractf128_ps(x, 1)));
    }
};

template <> struct rv<c64, 2> {
    using v = __m256d;
    static ZI v ld(const c64* p) { return _mm256_loadu_pd(&p->re); }
    static ZI void st(c64* p, v x) { _mm256_storeu_pd(&p->re, x); }
    static ZI v gat(const c64* p, int s) {
        return _mm256_insertf128_pd(_mm256_castpd128_pd256(_mm_loadu_pd(&p->re)), _mm_loadu_pd(&p[s].re), 1);
    }
    static ZI v set(double s) { return _mm256_set1_pd(s); }
    static ZI v pair(double re, double im) { return _mm256_setr_pd(re, im, re, im); }
    static ZI v zero() { return _mm256_setzero_pd(); }
    static ZI __m128d fold(v x) { return _mm_add_pd(_mm256_castpd256_pd128(x), _mm256_extractf128_pd(x, 1)); }
};
#endif

// ---- arithmetic, by register type -------------------------------------------

ZI float add(float a, float b) { return a + b; }
ZI double add(double a, double b) { return a + b; }
ZI __m128 add(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
ZI __m128d add(__m128d a, __m128d b) { return _mm_add_pd(a, b); }
ZI float mul(float a, float b) { return a * b; }
ZI double mul(double a, double b) { return a * b; }
ZI __m128 mul(__m128 a, __m128 b) { return _mm_mul_ps(a, b); }
ZI __m128d mul(__m128d a, __m128d b) { return _mm_mul_pd(a, b); }
// (re, im) -> (im, re) in every pair.
ZI __m128 swp(__m128 a) { return _mm_shuffle_ps(a, a, 0xB1); }
ZI __m128d swp(__m128d a) { return _mm_shuffle_pd(a, a, 1); }
// The real or the imaginary part of every pair over the whole pair.
ZI __m128 dre(__m128 a) { return _mm_shuffle_ps(a, a, 0xA0); }
ZI __m128 dim(__m128 a) { return _mm_shuffle_ps(a, a, 0xF5); }
ZI __m128d dre(__m128d a) { return _mm_unpacklo_pd(a, a); }
ZI __m128d dim(__m128d a) { return _mm_unpackhi_pd(a, a); }
// Signs changed exactly, by the set bits of m.
ZI __m128 flip(__m128 a, __m128 m) { return _mm_xor_ps(a, m); }
ZI __m128d flip(__m128d a, __m128d m) { return _mm_xor_pd(a, m); }
#if ZVA_BRANCH >= 6
ZI __m256 add(__m256 a, __m256 b) { return _mm256_add_ps(a, b); }
ZI __m256d add(__m256d a, __m256d b) { return _mm256_add_pd(a, b); }
ZI __m256 mul(__m256 a, __m256 b) { return _mm256_mul_ps(a, b); }
ZI __m256d mul(__m256d a, __m256d b) { return _mm256_mul_pd(a, b); }
ZI __m256 swp(__m256 a) { return _mm256_permute_ps(a, 0xB1); }
ZI __m256d swp(__m256d a) { return _mm256_permute_pd(a, 5); }
ZI __m256 dre(__m256 a) { return _mm256_moveldup_ps(a); }
ZI __m256 dim(__m256 a) { return _mm256_movehdup_ps(a); }
ZI __m256d dre(__m256d a) { return _mm256_movedup_pd(a); }
ZI __m256d dim(__m256d a) { return _mm256_permute_pd(a, 15); }
ZI __m256 flip(__m256 a, __m256 m) { return _mm256_xor_ps(a, m); }
ZI __m256d flip(__m256d a, __m256d m) { return _mm256_xor_pd(a, m); }
#endif

// s + a*b.
#if ZVA_BRANCH == 7
ZI float madd(float s, float a, float b) { return __builtin_fmaf(a, b, s); }
ZI double madd(double s, double a, double b) { return __builtin_fma(a, b, s); }
ZI __m128 madd(__m128 s, __m128 a, __m128 b) { return _mm_fmadd_ps(a, b, s); }
ZI __m128d madd(__m128d s, __m128d a, __m128d b) { return _mm_fmadd_pd(a, b, s); }
ZI __m256 madd(__m256 s, __m256 a, __m256 b) { return _mm256_fmadd_ps(a, b, s); }
ZI __m256d madd(__m256d s, __m256d a, __m256d b) { return _mm256_fmadd_pd(a, b, s); }
#else
template <class V> ZI V madd(V s, V a, V b) { return add(s, mul(a, b)); }
#endif

// ---- factors and operands ------------------------------------------------------

// A scalar t spread over a register of K elements (t.r) and, complex, its
// signed imaginary part (t.i = (-ti, ti)).
template <class T, int K> struct fac {
    typename rv<T, K>::v r, i;
};
template <class T, int K> ZI fac<T, K> factor(const T& t) {
    if constexpr (cplx<T>) return {rv<T, K>::set(t.re), rv<T, K>::pair(-t.im, t.im)};
    else return {rv<T, K>::set(t), rv<T, K>::set(t)};
}
// s + t*a.
template <class T, int K, class V> ZI V plus(V s, const fac<T, K>& t, V a) {
    if constexpr (cplx<T>) return madd(madd(s, t.r, a), t.i, swp(a));
    else return madd(s, t.r, a);
}
// t*a, one rounding per product (a complex factor times a complex value).
template <class T> ZI T times(const T& t, const T& a) {
    if constexpr (cplx<T>) {
        using V = typename rv<T, 1>::v;
        const V av = rv<T, 1>::ld(&a);
        T r;
        rv<T, 1>::st(&r, add(mul(rv<T, 1>::set(t.re), av), mul(rv<T, 1>::pair(-t.im, t.im), swp(av))));
        return r;
    } else {
        return t * a;
    }
}

// x(i) as the dots need it: x itself and, complex, (xi, -xr), so that
// conj(a)*x = dre(a)*x + dim(a)*(xi, -xr) needs no shuffle of x per column.
template <class T, int K> struct xop {
    typename rv<T, K>::v x, xs;
};
template <class T, int K, class V> ZI xop<T, K> dot_operand(V x) {
    if constexpr (cplx<T>) return {x, flip(swp(x), rv<T, K>::pair(R_<T>(0), -R_<T>(0)))};
    else return {x, x};
}
// d + conj(a)*x (complex), d + a*x (real): multiply and add separate on
// every branch.
template <class T, int K, class V> ZI V dot(V d, V a, const xop<T, K>& x) {
    if constexpr (cplx<T>) return add(add(d, mul(dre(a), x.x)), mul(dim(a), x.xs));
    else return add(d, mul(a, x.x));
}

// ---- vectors and the row walk -------------------------------------------------

// A vector of increment 1, and a strided one from its first logical element;
// v<K>(i) reads K elements from i on (gathered by pairs of loads when
// strided), put<K> writes them back (strided: single elements only).
template <class T> struct unit_vec {
    using E = std::remove_const_t<T>;
    static constexpr bool unit = true;
    T* p;
    ZI T* at(int i) const { return p + i; }
    ZI unit_vec sub(int i) const { return {p + i}; }
    template <int K> ZI auto v(int i) const { return rv<E, K>::ld(p + i); }
    template <int K> ZI void put(int i, typename rv<E, K>::v x) const { rv<E, K>::st(p + i, x); }
};
template <class T> struct step_vec {
    using E = std::remove_const_t<T>;
    static constexpr bool unit = false;
    T* p;
    int inc;
    ZI T* at(int i) const { return p + i * inc; }
    ZI step_vec sub(int i) const { return {at(i), inc}; }
    template <int K> ZI auto v(int i) const { return rv<E, K>::gat(at(i), inc); }
    template <int K> ZI void put(int i, typename rv<E, K>::v x) const {
        static_assert(K == 1, "strided vectors are written one element at a time");
        rv<E, 1>::st(at(i), x);
    }
};

// The passes of a row walk: u whole registers a pass, then passes of the
// second width (0: none, 1: a whole register, 2: its 128-bit half), then
// single rows. Under one pass of the first width, every row goes singly;
// otherwise single rows first bring the anchor to the vector boundary (if
// it is not element-aligned it never gets there, and all rows go singly).
struct shape {
    int u, second;
};

// ph(K, U, i0, i1) walks rows [i0, i1) with U registers of K elements a pass.
template <class T, shape S, class Ph> ZI void walk(int m, const void* anchor, Ph&& ph) {
    constexpr int K = full<T>, w1 = S.u * K;
    int i = 0;
    if (m >= w1) {
        const int p = peel_to(anchor, vbytes, sizeof(T));
        if (p >= 0) {
            const int pe = p < m ? p : m;
            ph(c_<1>{}, c_<1>{}, 0, pe);
            i = pe + (m - pe) / w1 * w1;
            ph(c_<K>{}, c_<S.u>{}, pe, i);
            if constexpr (S.second != 0) {
                constexpr int K2 = S.second == 1 ? K : K / 2;
                const int e = i + (m - i) / K2 * K2;
                ph(c_<K2>{}, c_<1>{}, i, e);
                i = e;
            }
        }
    }
    ph(c_<1>{}, c_<1>{}, i, m);
}

