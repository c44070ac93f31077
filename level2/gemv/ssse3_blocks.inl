// GEMV column blocks of branch 4 (SSSE3): D and Z by 64-bit halves off the
// 16-byte boundary, S with eight-row passes and a fall-through tail.
// Included by ssse3.inl inside the branch namespace; no include guard.

// ------------------------------------------------------------------- S

// Not transposed, unit increments: K columns from c, t = alpha*x.
template <int K>
[[gnu::noinline]] void s_n_block(int m, float alpha, const float* c, idx lda, const float* x,
                                 float* y) {
    float t[K];
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) t[k] = alpha * x[k];
    auto row = [&](int r) {
        float s = y[r];
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k) s = s + t[k] * c[k * lda + r];
        y[r] = s;
    };
    int i = 0;
    if ((addr_bits(y) & 3u) != 0) {
        for (; i < m; ++i) row(i);
        return;
    }
    int peel = static_cast<int>(((0u - addr_bits(y)) & 15u) >> 2);
    if (peel > m) peel = m;
    for (; i < peel; ++i) row(i);
    __m128 tv[K];
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) tv[k] = _mm_set1_ps(t[k]);
    auto vec = [&](int r) {
        __m128 s = _mm_load_ps(y + r);
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k)
            s = _mm_add_ps(s, _mm_mul_ps(_mm_loadu_ps(c + k * lda + r), tv[k]));
        _mm_store_ps(y + r, s);
    };
    // Four vectors a pass, each finished over the K columns before the
    // next: one y, t and a temporary live, no spill with eight registers.
    for (; i + 16 <= m; i += 16) {
        vec(i);
        vec(i + 4);
        vec(i + 8);
        vec(i + 12);
    }
    if (i + 8 <= m) {
        vec(i);
        vec(i + 4);
        i += 8;
    }
    // The last rows fall through, no loop.
    switch (m - i) {
        case 7: row(i + 6); [[fallthrough]];
        case 6: row(i + 5); [[fallthrough]];
        case 5: row(i + 4); [[fallthrough]];
        case 4: row(i + 3); [[fallthrough]];
        case 3: row(i + 2); [[fallthrough]];
        case 2: row(i + 1); [[fallthrough]];
        case 1: row(i); [[fallthrough]];
        default: break;
    }
}

// The vector rows and the tail of the S dot form, from row i on (see
// t_block); vec: the last column could be aligned.
template <int K, bool XU, class Row>
[[gnu::always_inline]] inline void dot_rows(bool vec, int m, int& i, const float*& xp, idx ix,
                                            const float*, const float* c, idx lda, float* t,
                                            Row& row) {
    if (!vec) {
        while (i < m) row();
    } else {
        if (m - i >= 8) {
            // x by lddqu: the compiler takes a movups of x for a
            // memory value and reloads it for every column, but keeps
            // this one in a register. Here lddqu is at worst a movdqu.
            auto ldx = [&](const float* p) {
                if constexpr (XU)
                    return _mm_castsi128_ps(
                        _mm_lddqu_si128(reinterpret_cast<const __m128i*>(p)));
                else
                    return _mm_movelh_ps(
                        _mm_unpacklo_ps(_mm_load_ss(p), _mm_load_ss(p + ix)),
                        _mm_unpacklo_ps(_mm_load_ss(p + 2 * ix), _mm_load_ss(p + 3 * ix)));
            };
            // The first x vector against all columns, then the second:
            // each accumulator sees the same adds, and only one x is
            // live. Columns from two bases and the stride in bytes
            // (b0 + 0..2 L, b3), which leaves integer registers for x.
            const idx lb = lda * static_cast<idx>(sizeof(float));
            const char* b0 = reinterpret_cast<const char*>(c + i);
            const char* b3 = b0 + 3 * lb;
            auto col = [&](int k, int h) {
                return reinterpret_cast<const float*>(k < 3 ? b0 + k * lb : b3 + (k - 3) * lb) +
                       h;
            };
            __m128 acc[K];
            __m128 xv = ldx(xp);
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k) acc[k] = _mm_mul_ps(_mm_loadu_ps(col(k, 0)), xv);
            xv = ldx(xp + 4 * ix);
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k)
                acc[k] = _mm_add_ps(acc[k], _mm_mul_ps(_mm_loadu_ps(col(k, 4)), xv));
            const int q0 = (m - i) >> 3;
            for (int q = q0 - 1; q > 0; --q) {
                b0 += 32;
                b3 += 32;
                xp += 8 * ix;
#pragma GCC unroll 2
                for (int h = 0; h < 8; h += 4) {
                    xv = ldx(xp + h * ix);
#pragma GCC unroll 4
                    for (int k = 0; k < K; ++k)
                        acc[k] = _mm_add_ps(acc[k], _mm_mul_ps(_mm_loadu_ps(col(k, h)), xv));
                }
            }
            i += 8 * q0;
            xp += 8 * ix;
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k) {
                alignas(16) float l[4];
                _mm_store_ps(l, acc[k]);
                t[k] = t[k] + l[0];
                t[k] = t[k] + l[1];
                t[k] = t[k] + l[2];
                t[k] = t[k] + l[3];
            }
        }
        // The last rows fall through in order, no loop.
        switch (m - i) {
            case 7: row(); [[fallthrough]];
            case 6: row(); [[fallthrough]];
            case 5: row(); [[fallthrough]];
            case 4: row(); [[fallthrough]];
            case 3: row(); [[fallthrough]];
            case 2: row(); [[fallthrough]];
            case 1: row(); [[fallthrough]];
            default: break;
        }
    }
}

// ------------------------------------------------------------------- D

// The vector rows of a D update block from row i on (y aligned there);
// AL: every column of the block is 16-byte aligned at row i. Returns the
// first row left to the scalar tail.
template <int K, bool AL>
inline int d_n_rows(int m, int i, const __m128d* tv, const double* c, idx lda, double* y) {
    if constexpr (K == 8) {
        // Eight streams of A, one vector of rows a pass. The columns are
        // reached from three bases and the stride in bytes (b0 + 0..2 L,
        // b3 + 0..2 L, b6 + 0..1 L), so the pass needs six integer
        // registers and no reload of a column address.
        const idx lb = lda * static_cast<idx>(sizeof(double));
        const char* b0 = reinterpret_cast<const char*>(c + i);
        const char* b3 = b0 + 3 * lb;
        const char* b6 = b0 + 6 * lb;
        double* yp = y + i;
        auto ld = [](const char* p) { return ld2<AL>(reinterpret_cast<const double*>(p)); };
        for (int q = (m - i) >> 1; q > 0; --q) {
            __m128d s = _mm_load_pd(yp);
            s = _mm_add_pd(s, _mm_mul_pd(ld(b0), tv[0]));
            s = _mm_add_pd(s, _mm_mul_pd(ld(b0 + lb), tv[1]));
            s = _mm_add_pd(s, _mm_mul_pd(ld(b0 + 2 * lb), tv[2]));
            s = _mm_add_pd(s, _mm_mul_pd(ld(b3), tv[3]));
            s = _mm_add_pd(s, _mm_mul_pd(ld(b3 + lb), tv[4]));
            s = _mm_add_pd(s, _mm_mul_pd(ld(b3 + 2 * lb), tv[5]));
            s = _mm_add_pd(s, _mm_mul_pd(ld(b6), tv[6]));
            s = _mm_add_pd(s, _mm_mul_pd(ld(b6 + lb), tv[7]));
            _mm_store_pd(yp, s);
            b0 += 16;
            b3 += 16;
            b6 += 16;
            yp += 2;
        }
        return i + ((m - i) & ~1);
    } else {
        auto vec = [&](int r) {
            __m128d s = _mm_load_pd(y + r);
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k)
                s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(c + k * lda + r), tv[k]));
            _mm_store_pd(y + r, s);
        };
        for (; i + 8 <= m; i += 8) {
            vec(i);
            vec(i + 2);
            vec(i + 4);
            vec(i + 6);
        }
        for (; i + 2 <= m; i += 2) vec(i);
        return i;
    }
}

template <int K>
[[gnu::noinline]] void d_n_block(int m, double alpha, const double* c, idx lda, const double* x,
                                 double* y) {
    double t[K];
#pragma GCC unroll 8
    for (int k = 0; k < K; ++k) t[k] = alpha * x[k];
    auto row = [&](int r) {
        double s = y[r];
#pragma GCC unroll 8
        for (int k = 0; k < K; ++k) s = s + t[k] * c[k * lda + r];
        y[r] = s;
    };
    int i = 0;
    if ((addr_bits(y) & 7u) == 0) {
        if ((addr_bits(y) & 8u) != 0 && m > 0) row(i++);
        if (m - i >= 2) {
            __m128d tv[K];
            unsigned al = 0;
#pragma GCC unroll 8
            for (int k = 0; k < K; ++k) {
                tv[k] = _mm_set1_pd(t[k]);
                al |= addr_bits(c + k * lda + i);
            }
            if ((al & 15u) == 0)
                i = d_n_rows<K, true>(m, i, tv, c, lda, y);
            else
                i = d_n_rows<K, false>(m, i, tv, c, lda, y);
        }
    }
    for (; i < m; ++i) row(i);
}

// The vector part of a D dot block from row i on; returns the next row.
// x comes in halves on both copies: it is shared by the K columns. The
// columns are reached from two bases and the stride in bytes (b0 + 0..2 L,
// b3), which leaves an integer register for the strided x.
template <int K, bool AL>
inline int d_t_rows(int m, int i, double* t, const double* c, idx lda, const double* xp, idx ix) {
    const idx lb = lda * static_cast<idx>(sizeof(double));
    const char* b0 = reinterpret_cast<const char*>(c + i);
    const char* b3 = b0 + 3 * lb;
    auto col = [&](int k) {
        return reinterpret_cast<const double*>(k < 3 ? b0 + k * lb : b3 + (k - 3) * lb);
    };
    __m128d acc[K];
    __m128d xv = load_halves(xp, xp + ix);
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) acc[k] = _mm_mul_pd(ld2<AL>(col(k)), xv);
    const int q0 = (m - i) >> 1;
    for (int q = q0 - 1; q > 0; --q) {
        b0 += 16;
        b3 += 16;
        xp += 2 * ix;
        xv = load_halves(xp, xp + ix);
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k) acc[k] = _mm_add_pd(acc[k], _mm_mul_pd(ld2<AL>(col(k)), xv));
    }
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) {
        t[k] = t[k] + _mm_cvtsd_f64(acc[k]);
        t[k] = t[k] + _mm_cvtsd_f64(_mm_unpackhi_pd(acc[k], acc[k]));
    }
    return i + 2 * q0;
}

// The vector rows and the tail of the D dot form, from row i on (see
// t_block); vec: the last column could be aligned.
template <int K, bool XU, class Row>
[[gnu::always_inline]] inline void dot_rows(bool vec, int m, int& i, const double*&, idx ix,
                                            const double* x, const double* c, idx lda, double* t,
                                            Row& row) {
    if (vec && m - i >= 2) {
        unsigned al = 0;
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k) al |= addr_bits(c + k * lda + i);
        // A single column is aligned by its own peel.
        if (K == 1 || (al & 15u) == 0)
            i = d_t_rows<K, true>(m, i, t, c, lda, x + i * ix, ix);
        else
            i = d_t_rows<K, false>(m, i, t, c, lda, x + i * ix, ix);
    }
    while (i < m) row();
}

#include "level2/gemv/ssse3_strided.inl"

// ------------------------------------------------------------------- Z
// Walked as doubles like C. An element is one vector, so there is no peel:
// the "scalar" step is the same vector operation.

// y rows of a Z update block. YA: y is 16-byte aligned; AL: so is every
// column of the block (an element is one vector, so the first row decides).
template <int K, bool YA, bool AL>
inline void z_n_rows(int m, const __m128d* trv, const __m128d* tiv, const double* c, idx lda,
                     double* y) {
    auto elem = [&](int r) {
        __m128d s = ld2<YA>(y + 2 * r);
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k)
            s = _mm_add_pd(s, z_mul(ld2<AL>(c + k * lda + 2 * r), trv[k], tiv[k]));
        st2<YA>(y + 2 * r, s);
    };
    int i = 0;
    if constexpr (YA) {
        for (; i + 4 <= m; i += 4) {
            elem(i);
            elem(i + 1);
            elem(i + 2);
            elem(i + 3);
        }
    }
    for (; i < m; ++i) elem(i);
}

template <int K>
[[gnu::noinline]] void z_n_block(int m, __m128d alr, __m128d ali, const double* c, idx lda,
                                 const double* x, double* y) {
    __m128d trv[K], tiv[K];
    unsigned al = 0;
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) {
        const __m128d t = z_mul(ld2<false>(x + 2 * k), alr, ali);
        trv[k] = _mm_unpacklo_pd(t, t);
        tiv[k] = _mm_unpackhi_pd(t, t);
        al |= addr_bits(c + k * lda);
    }
    // A y off the boundary takes the element loop with halves throughout.
    if ((addr_bits(y) & 15u) != 0)
        z_n_rows<K, false, false>(m, trv, tiv, c, lda, y);
    else if ((al & 15u) == 0)
        z_n_rows<K, true, true>(m, trv, tiv, c, lda, y);
    else
        z_n_rows<K, true, false>(m, trv, tiv, c, lda, y);
}

template <int K, bool CJ, bool AL>
inline void z_t_rows(int m, __m128d* t, const double* c, idx lda, const double* x, idx incx) {
    const __m128d sr = _mm_set_pd(-0.0, 0.0), si = _mm_set_pd(0.0, -0.0);
    const double* xp = x + incx;
    for (int i = 1; i < m; ++i, xp += incx) {
        __m128d xr = _mm_loaddup_pd(xp), xi = _mm_loaddup_pd(xp + 1);
        if constexpr (CJ) {
            xr = _mm_xor_pd(xr, sr);
            xi = _mm_xor_pd(xi, si);
        }
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k)
            t[k] = _mm_add_pd(t[k], z_mul(ld2<AL>(c + k * lda + 2 * i), xr, xi));
    }
}

// The accumulators are the dot products themselves: a vector holds one
// element, so there are no lanes to reduce and nothing to peel.
template <int K, bool CJ>
[[gnu::noinline]] void z_t_block(int m, __m128d alr, __m128d ali, const double* c, idx lda,
                                 const double* x, idx incx, double* y, idx incy) {
    __m128d xr = _mm_loaddup_pd(x), xi = _mm_loaddup_pd(x + 1);
    if constexpr (CJ) {
        xr = _mm_xor_pd(xr, _mm_set_pd(-0.0, 0.0));
        xi = _mm_xor_pd(xi, _mm_set_pd(0.0, -0.0));
    }
    __m128d t[K];
    unsigned al = 0;
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) {
        t[k] = z_mul(ld2<false>(c + k * lda), xr, xi);
        al |= addr_bits(c + k * lda);
    }
    if ((al & 15u) == 0)
        z_t_rows<K, CJ, true>(m, t, c, lda, x, incx);
    else
        z_t_rows<K, CJ, false>(m, t, c, lda, x, incx);
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) {
        double* q = y + k * incy;
        st2<false>(q, _mm_add_pd(ld2<false>(q), z_mul(t[k], alr, ali)));
    }
}

template <bool AL>
void z_n_strided_run(int m, int n, __m128d alr, __m128d ali, const double* a, idx lda,
                     const double* x, idx incx, double* y, idx incy) {
    int j = 0;
    for (; j + 2 <= n; j += 2) {
        const double* c0 = a + j * lda;
        const double* c1 = c0 + lda;
        const __m128d t0 = z_mul(ld2<false>(x + j * incx), alr, ali);
        const __m128d t1 = z_mul(ld2<false>(x + (j + 1) * incx), alr, ali);
        const __m128d t0r = _mm_unpacklo_pd(t0, t0), t0i = _mm_unpackhi_pd(t0, t0);
        const __m128d t1r = _mm_unpacklo_pd(t1, t1), t1i = _mm_unpackhi_pd(t1, t1);
        double* yp = y;
        for (int i = 0; i < m; ++i, yp += incy) {
            __m128d s = ld2<AL>(yp);
            s = _mm_add_pd(s, z_mul(ld2<AL>(c0 + 2 * i), t0r, t0i));
            s = _mm_add_pd(s, z_mul(ld2<AL>(c1 + 2 * i), t1r, t1i));
            st2<AL>(yp, s);
        }
    }
    if (j < n) {
        const double* c = a + j * lda;
        const __m128d t = z_mul(ld2<false>(x + j * incx), alr, ali);
        const __m128d tr = _mm_unpacklo_pd(t, t), ti = _mm_unpackhi_pd(t, t);
        double* yp = y;
        int i = 0;
        for (; i + 2 <= m; i += 2, yp += 2 * incy) {
            st2<AL>(yp, _mm_add_pd(ld2<AL>(yp), z_mul(ld2<AL>(c + 2 * i), tr, ti)));
            st2<AL>(yp + incy,
                    _mm_add_pd(ld2<AL>(yp + incy), z_mul(ld2<AL>(c + 2 * i + 2), tr, ti)));
        }
        if (i < m) st2<AL>(yp, _mm_add_pd(ld2<AL>(yp), z_mul(ld2<AL>(c + 2 * i), tr, ti)));
    }
}

// Every element of y and of a column has the alignment of the first, so
// the copy is chosen once for the whole product.
void z_n_strided(int m, int n, __m128d alr, __m128d ali, const double* a, idx lda, const double* x,
                 idx incx, double* y, idx incy) {
    if (((addr_bits(a) | addr_bits(y) | static_cast<unsigned>(lda * 8)) & 15u) == 0)
        z_n_strided_run<true>(m, n, alr, ali, a, lda, x, incx, y, incy);
    else
        z_n_strided_run<false>(m, n, alr, ali, a, lda, x, incx, y, incy);
}
