// GEMV helpers of the 256-bit branches (6 and 7): sums across lanes,
// y = beta*y, the dot-form accumulators and the column runs of the update
// form, written over the branch's primitives (ld, st, mul, add, madd, cmul).
// Included inside the namespace of a branch; no include guard.
// t + pair 0 + pair 1 + ..., in pair order (result in the low pair).
ZI __m128 csum(__m128 t, __m128 h) {  // two complex singles
    t = _mm_add_ps(t, h);
    return _mm_add_ps(t, _mm_movehl_ps(h, h));
}
ZI __m128 csum(__m128 t, __m256 v) {
    t = csum(t, _mm256_castps256_ps128(v));
    return csum(t, _mm256_extractf128_ps(v, 1));
}
ZI __m128d csum(__m128d t, __m256d v) {
    t = _mm_add_pd(t, _mm256_castpd256_pd128(v));
    return _mm_add_pd(t, _mm256_extractf128_pd(v, 1));
}

// ---- x accessors for the dot form: unit stride, or gathered -----------------

template <class T>
struct XUnit {
    const T* x;
    ZI auto s(int i) const {
        if constexpr (__is_same(T, float) || __is_same(T, double)) return x[i];
        else return ld(LS{}, x + i);
    }
    ZI auto h(int i) const { return ld(LH{}, x + i); }
    ZI auto v(int i) const { return ld(LV{}, x + i); }
};

template <class T> struct XGath;

template <>
struct XGath<double> {
    const double* x;
    int inc;
    ZI double s(int i) const { return x[i * inc]; }
    ZI __m128d h(int i) const {
        const double* p = x + i * inc;
        return _mm_loadh_pd(_mm_load_sd(p), p + inc);
    }
    ZI __m256d v(int i) const {
        const double* p = x + i * inc;
        const __m128d lo = _mm_loadh_pd(_mm_load_sd(p), p + inc);
        const __m128d hi = _mm_loadh_pd(_mm_load_sd(p + 2 * inc), p + 3 * inc);
        return _mm256_insertf128_pd(_mm256_castpd128_pd256(lo), hi, 1);
    }
};

template <>
struct XGath<float> {
    const float* x;
    int inc;
    ZI float s(int i) const { return x[i * inc]; }
    ZI __m128 pair(const float* p) const {
        return _mm_unpacklo_ps(_mm_load_ss(p), _mm_load_ss(p + inc));
    }
    ZI __m128 h(int i) const { return pair(x + i * inc); }
    ZI __m256 v(int i) const {
        const float* p = x + i * inc;
        const int i2 = 2 * inc;
        const __m128 lo = _mm_movelh_ps(pair(p), pair(p + i2));
        const __m128 hi = _mm_movelh_ps(pair(p + 2 * i2), pair(p + 3 * i2));
        return _mm256_insertf128_ps(_mm256_castps128_ps256(lo), hi, 1);
    }
};

template <>
struct XGath<c32> {
    const c32* x;
    int inc;
    ZI __m128 s(int i) const { return ld(LS{}, x + i * inc); }
    ZI __m128 pair(const c32* p) const {
        return _mm_loadh_pi(ld(LS{}, p), reinterpret_cast<const __m64*>(p + inc));
    }
    ZI __m128 h(int i) const { return pair(x + i * inc); }
    ZI __m256 v(int i) const {
        const c32* p = x + i * inc;
        return _mm256_insertf128_ps(_mm256_castps128_ps256(pair(p)), pair(p + 2 * inc), 1);
    }
};

template <>
struct XGath<c64> {
    const c64* x;
    int inc;
    ZI __m128d s(int i) const { return ld(LS{}, x + i * inc); }
    ZI __m128d h(int i) const { return s(i); }
    ZI __m256d v(int i) const {
        const c64* p = x + i * inc;
        return _mm256_insertf128_pd(_mm256_castpd128_pd256(ld(LS{}, p)), ld(LS{}, p + inc), 1);
    }
};

// ---- y := beta*y ------------------------------------------------------------

// Below about 100 bytes a store loop beats the call of a fill.
template <class T> constexpr int fill_from = 0;
template <> constexpr int fill_from<float> = 25;
template <> constexpr int fill_from<double> = 13;
template <> constexpr int fill_from<c32> = 13;
template <> constexpr int fill_from<c64> = 7;

// One zero element, written as integer zeros.
ZI void zero1(void* p, unsigned bytes) {
    const __m128i z = _mm_setzero_si128();
    if (bytes == 4) _mm_storeu_si32(p, z);
    else if (bytes == 8) _mm_storel_epi64(static_cast<__m128i*>(p), z);
    else _mm_storeu_si128(static_cast<__m128i*>(p), z);
}

// Eight contiguous zero elements.
template <class T>
ZI void zero8(T* p) {
    const __m256i z = _mm256_setzero_si256();
    char* c = reinterpret_cast<char*>(p);
    for (unsigned b = 0; b < 8 * sizeof(T); b += 32)
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(c + b), z);
}

// beta == 0: y is written, never read, so NaNs in it go away.
template <class T>
void zero_y(T* y, int n, int incy) {
    constexpr unsigned E = sizeof(T);
    if (incy == 1) {
        if (n >= fill_from<T>) {
            // A plain fill: the C library's is the fastest for long runs.
            __builtin_memset(y, 0, static_cast<unsigned>(n) * E);
            return;
        }
        // Short: straight-line stores, 8 elements a pass, then singly. No
        // loops here, so the compiler does not turn them into a fill call.
        constexpr int passes = (fill_from<T> - 1) / 8;
        int i = 0;
        if constexpr (passes >= 1) if (n >= 8) { zero8(y); i = 8; }
        if constexpr (passes >= 2) if (n >= 16) { zero8(y + 8); i = 16; }
        if constexpr (passes >= 3) if (n >= 24) { zero8(y + 16); i = 24; }
        T* p = y + i;
        switch (n - i) {
            case 7: zero1(p + 6, E); [[fallthrough]];
            case 6: zero1(p + 5, E); [[fallthrough]];
            case 5: zero1(p + 4, E); [[fallthrough]];
            case 4: zero1(p + 3, E); [[fallthrough]];
            case 3: zero1(p + 2, E); [[fallthrough]];
            case 2: zero1(p + 1, E); [[fallthrough]];
            case 1: zero1(p, E); [[fallthrough]];
            default: break;
        }
        return;
    }
    // The elements in memory order; the direction of incy does not matter.
    const int s = incy < 0 ? -incy : incy;
    T* p = y;
    int i = 0;
    for (; i + 8 <= n; i += 8, p += 8 * s) {
        zero1(p, E); zero1(p + s, E); zero1(p + 2 * s, E); zero1(p + 3 * s, E);
        zero1(p + 4 * s, E); zero1(p + 5 * s, E); zero1(p + 6 * s, E); zero1(p + 7 * s, E);
    }
    for (; i < n; ++i, p += s) zero1(p, E);
}

template <class T>
void scale_real(T* y, int n, int incy, T beta) {
    int i = 0;
    if (incy == 1) {
        if (n >= 16) {
            const int p = peel_to_32(y, sizeof(T));
            for (; i < p; ++i) y[i] = beta * y[i];
            constexpr int W = vt<T>::W;
            const auto b = bc(LV{}, &beta);
            for (; i + 16 <= n; i += 16) {
                if constexpr (W == 4) {
                    st(LV{}, y + i, mul(b, ld(LV{}, y + i)));
                    st(LV{}, y + i + 4, mul(b, ld(LV{}, y + i + 4)));
                    st(LV{}, y + i + 8, mul(b, ld(LV{}, y + i + 8)));
                    st(LV{}, y + i + 12, mul(b, ld(LV{}, y + i + 12)));
                } else {
                    st(LV{}, y + i, mul(b, ld(LV{}, y + i)));
                    st(LV{}, y + i + 8, mul(b, ld(LV{}, y + i + 8)));
                }
            }
            for (; i + 4 <= n; i += 4) {
                if constexpr (W == 4)
                    st(LV{}, y + i, mul(b, ld(LV{}, y + i)));
                else
                    _mm_storeu_ps(y + i, _mm_mul_ps(_mm256_castps256_ps128(b), _mm_loadu_ps(y + i)));
            }
        }
        for (; i < n; ++i) y[i] = beta * y[i];
        return;
    }
    const int s = incy < 0 ? -incy : incy;
    T* p = y;
    for (; i + 2 <= n; i += 2, p += 2 * s) {
        p[0] = beta * p[0];
        p[s] = beta * p[s];
    }
    if (i < n) *p = beta * *p;
}

template <class CT>
void scale_cplx(CT* y, int n, int incy, const CT& beta) {
    using E = typename vt<CT>::E;
    const E br1 = bre(LS{}, &beta), bi1 = bim(LS{}, &beta);
    auto one = [&](CT* p) __attribute__((always_inline)) {
        st(LS{}, p, cmul(ld(LS{}, p), br1, bi1));
    };
    int i = 0;
    if (incy == 1) {
        if (n >= 16) {
            const int p = peel_to_32(y, sizeof(CT));
            for (; i < p; ++i) one(y + i);
            constexpr int W = vt<CT>::W;
            const auto br = bre(LV{}, &beta), bi = bim(LV{}, &beta);
            for (; i + 16 <= n; i += 16) {
#pragma GCC unroll 8
                for (int r = 0; r < 16; r += W)
                    st(LV{}, y + i + r, cmul(ld(LV{}, y + i + r), br, bi));
            }
            for (; i + 4 <= n; i += 4) {
#pragma GCC unroll 2
                for (int r = 0; r < 4; r += W)
                    st(LV{}, y + i + r, cmul(ld(LV{}, y + i + r), br, bi));
            }
        }
        for (; i < n; ++i) one(y + i);
        return;
    }
    const int s = incy < 0 ? -incy : incy;
    CT* p = y;
    for (; i + 2 <= n; i += 2, p += 2 * s) {
        one(p);
        one(p + s);
    }
    if (i < n) one(p);
}

// ---- not transposed, unit increments: the update form ------------------------
