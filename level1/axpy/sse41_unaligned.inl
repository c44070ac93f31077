// AXPY pieces of branch 5 (SSE4.1), after the common part in ssse3.inl.
//
// A shifted x is joined by shufps or palignr in the main pass and its tails
// read x unaligned; the complex loops move unaligned operands by movups.

namespace zva::ZVA_NS {
namespace {

// x vector of a loop whose x lies P floats past a 16-byte boundary, from two
// aligned loads: lanes P..3 of lo, then lanes 0..P-1 of hi. One instruction
// each: shufps stays in the float domain for the half shift, palignr does
// the odd shifts that shufps would need two steps for.
template <int P>
inline __m128 s_join(__m128 lo, __m128 hi) {
    if constexpr (P == 2)
        return _mm_shuffle_ps(lo, hi, _MM_SHUFFLE(1, 0, 3, 2));
    else
        return _mm_castsi128_ps(
            _mm_alignr_epi8(_mm_castps_si128(hi), _mm_castps_si128(lo), 4 * P));
}

// Unit stride, y 16-aligned, x P floats past a boundary. The 64-pass runs
// while its last aligned load still lies within x; the 8-tail reads x
// unaligned, which costs nothing extra on these processors for two vectors.
template <int P>
void s_unit_shifted(int n, __m128 av, float a, const float* x, float* y) {
    if (n >= 68 - P) {
        __m128 prev = s_first<P>(x);
        const float* xb = x + (4 - P);  // first 16-byte boundary inside x
        do {
#pragma GCC unroll 16
            for (int j = 0; j < 64; j += 4) {
                const __m128 cur = _mm_load_ps(xb + j);
                const __m128 xv = s_join<P>(prev, cur);
                prev = cur;
                _mm_store_ps(y + j, s_step(_mm_load_ps(y + j), xv, av));
            }
            n -= 64;
            x += 64;
            xb += 64;
            y += 64;
        } while (n >= 68 - P);
    }
    for (; n >= 8; n -= 8, x += 8, y += 8) {
        _mm_store_ps(y, s_step(_mm_load_ps(y), _mm_loadu_ps(x), av));
        _mm_store_ps(y + 4, s_step(_mm_load_ps(y + 4), _mm_loadu_ps(x + 4), av));
    }
    for (; n > 0; --n) s_one(a, x++, y++);
}

void d_unit(int n, double a, const double* x, double* y) {
    if (addr_bits(y) & 8u) {
        d_one(a, x++, y++);
        if (--n == 0) return;
    }
    const __m128d av = _mm_set1_pd(a);
    if ((addr_bits(x) & 15u) == 0) {
        for (; n >= 32; n -= 32, x += 32, y += 32) {
#pragma GCC unroll 16
            for (int j = 0; j < 32; j += 2)
                _mm_store_pd(y + j, d_step(_mm_load_pd(y + j), _mm_load_pd(x + j), av));
        }
        for (; n >= 2; n -= 2, x += 2, y += 2)
            _mm_store_pd(y, d_step(_mm_load_pd(y), _mm_load_pd(x), av));
        if (n) d_one(a, x, y);
        return;
    }
    // x one element past a boundary: aligned loads from x + 1, each vector
    // joined from the high half of the previous load and the low half of
    // the next by shufpd. The pass needs x[32] for its last load.
    if (n >= 33) {
        __m128d prev = _mm_loaddup_pd(x);
        do {
#pragma GCC unroll 16
            for (int j = 0; j < 32; j += 2) {
                const __m128d cur = _mm_load_pd(x + j + 1);
                const __m128d xv = _mm_shuffle_pd(prev, cur, 1);
                prev = cur;
                _mm_store_pd(y + j, d_step(_mm_load_pd(y + j), xv, av));
            }
            n -= 32;
            x += 32;
            y += 32;
        } while (n >= 33);
    }
    for (; n >= 4; n -= 4, x += 4, y += 4) {
        _mm_store_pd(y, d_step(_mm_load_pd(y), _mm_loadu_pd(x), av));
        _mm_store_pd(y + 2, d_step(_mm_load_pd(y + 2), _mm_loadu_pd(x + 2), av));
    }
    for (; n > 0; --n) d_one(a, x++, y++);
}

// One loop for each pair of phases; aligned operands fold into the
// arithmetic, the others go by movups.
template <bool XA, bool YA>
void c_unit(int n, float ar, float ai, const c32* x, c32* y) {
    const float* xf = &x->re;
    float* yf = &y->re;
    const __m128 arv = _mm_set1_ps(ar), aiv = _mm_set1_ps(ai);
    const __m128 sg = _mm_set_ps(0.0f, -0.0f, 0.0f, -0.0f);
    auto ld_x = [](const float* p) { return XA ? _mm_load_ps(p) : _mm_loadu_ps(p); };
    auto ld_y = [](const float* p) { return YA ? _mm_load_ps(p) : _mm_loadu_ps(p); };
    auto st_y = [](float* p, __m128 v) {
        if constexpr (YA)
            _mm_store_ps(p, v);
        else
            _mm_storeu_ps(p, v);
    };
    for (; n >= 32; n -= 32, xf += 64, yf += 64) {
#pragma GCC unroll 16
        for (int j = 0; j < 64; j += 4)
            st_y(yf + j, c_step(ld_y(yf + j), ld_x(xf + j), arv, aiv, sg));
    }
    for (; n >= 2; n -= 2, xf += 4, yf += 4) st_y(yf, c_step(ld_y(yf), ld_x(xf), arv, aiv, sg));
    if (n)
        c_one(ar, ai, reinterpret_cast<const c32*>(xf), reinterpret_cast<c32*>(yf));
}

template <bool XA, bool YA>
void z_unit(int n, double ar, double ai, const c64* x, c64* y) {
    const double* xd = &x->re;
    double* yd = &y->re;
    const __m128d arv = _mm_set1_pd(ar), aiv = _mm_set1_pd(ai);
    const __m128d sg = _mm_set_pd(0.0, -0.0);
    auto ld_x = [](const double* p) { return XA ? _mm_load_pd(p) : _mm_loadu_pd(p); };
    auto ld_y = [](const double* p) { return YA ? _mm_load_pd(p) : _mm_loadu_pd(p); };
    auto st_y = [](double* p, __m128d v) {
        if constexpr (YA)
            _mm_store_pd(p, v);
        else
            _mm_storeu_pd(p, v);
    };
    for (; n >= 16; n -= 16, xd += 32, yd += 32) {
#pragma GCC unroll 16
        for (int j = 0; j < 32; j += 2)
            st_y(yd + j, z_step(ld_y(yd + j), ld_x(xd + j), arv, aiv, sg));
    }
    for (; n >= 2; n -= 2, xd += 4, yd += 4) {
        st_y(yd, z_step(ld_y(yd), ld_x(xd), arv, aiv, sg));
        st_y(yd + 2, z_step(ld_y(yd + 2), ld_x(xd + 2), arv, aiv, sg));
    }
    if (n) st_y(yd, z_step(ld_y(yd), ld_x(xd), arv, aiv, sg));
}

}  // namespace

template <> void axpy<c32>(const int* pn, const c32* palpha, const c32* x, const int* pincx, c32* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const float ar = palpha->re, ai = palpha->im;
    if (ar == 0.0f && ai == 0.0f) return;
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1) {
        const bool xa = (addr_bits(x) & 15u) == 0, ya = (addr_bits(y) & 15u) == 0;
        if (xa && ya)
            c_unit<true, true>(n, ar, ai, x, y);
        else if (xa)
            c_unit<true, false>(n, ar, ai, x, y);
        else if (ya)
            c_unit<false, true>(n, ar, ai, x, y);
        else
            c_unit<false, false>(n, ar, ai, x, y);
        return;
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k, x += incx, y += incy) c_one(ar, ai, x, y);
}

template <> void axpy<c64>(const int* pn, const c64* palpha, const c64* x, const int* pincx, c64* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const double ar = palpha->re, ai = palpha->im;
    if (ar == 0.0 && ai == 0.0) return;
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1) {
        const bool xa = (addr_bits(x) & 15u) == 0, ya = (addr_bits(y) & 15u) == 0;
        if (xa && ya)
            z_unit<true, true>(n, ar, ai, x, y);
        else if (xa)
            z_unit<true, false>(n, ar, ai, x, y);
        else if (ya)
            z_unit<false, true>(n, ar, ai, x, y);
        else
            z_unit<false, false>(n, ar, ai, x, y);
        return;
    }
    const __m128d arv = _mm_set1_pd(ar), aiv = _mm_set1_pd(ai);
    const __m128d sg = _mm_set_pd(0.0, -0.0);
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k, x += incx, y += incy)
        _mm_storeu_pd(&y->re, z_step(_mm_loadu_pd(&y->re), _mm_loadu_pd(&x->re), arv, aiv, sg));
}

}  // namespace zva::ZVA_NS
