// GEMV column blocks of branch 5 (SSE4.1): unaligned whole-vector loads in
// every type. Included by ssse3.inl inside the branch namespace; no include
// guard.

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
    if ((addr_bits(y) & 3u) == 0) {
        int peel = static_cast<int>(((0u - addr_bits(y)) & 15u) >> 2);
        if (peel > m) peel = m;
        for (; i < peel; ++i) row(i);
        __m128 tv[K];
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k) tv[k] = _mm_set1_ps(t[k]);
        // Four vectors a pass, each finished over the K columns before the
        // next: one y, t and a temporary live, no spill with eight registers.
        for (; i + 16 <= m; i += 16) {
#pragma GCC unroll 4
            for (int v = 0; v < 16; v += 4) {
                __m128 s = _mm_load_ps(y + i + v);
#pragma GCC unroll 4
                for (int k = 0; k < K; ++k)
                    s = _mm_add_ps(s, _mm_mul_ps(_mm_loadu_ps(c + k * lda + i + v), tv[k]));
                _mm_store_ps(y + i + v, s);
            }
        }
        // One vector a pass after the four: at most three of them remain,
        // and each would otherwise cost two 2-lane steps.
        for (; i + 4 <= m; i += 4) {
            __m128 s = _mm_load_ps(y + i);
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k)
                s = _mm_add_ps(s, _mm_mul_ps(_mm_loadu_ps(c + k * lda + i), tv[k]));
            _mm_store_ps(y + i, s);
        }
        if (i + 2 <= m) {
            __m128 s = load_pair(y + i);
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k)
                s = _mm_add_ps(s, _mm_mul_ps(load_pair(c + k * lda + i), tv[k]));
            store_pair(y + i, s);
            i += 2;
        }
    }
    for (; i < m; ++i) row(i);
}

// The vector rows and the tail of the S dot form, from row i on (see
// t_block); vec: the last column could be aligned.
template <int K, bool XU, class Row>
[[gnu::always_inline]] inline void dot_rows(bool vec, int m, int& i, const float*& xp, idx ix,
                                            const float*, const float* c, idx lda, float* t,
                                            Row& row) {
    if (vec && m - i >= 4) {
        auto ldx = [&]() {
            if constexpr (XU)
                return _mm_loadu_ps(xp);
            else
                return _mm_movelh_ps(
                    _mm_unpacklo_ps(_mm_load_ss(xp), _mm_load_ss(xp + ix)),
                    _mm_unpacklo_ps(_mm_load_ss(xp + 2 * ix), _mm_load_ss(xp + 3 * ix)));
        };
        __m128 acc[K];
        __m128 xv = ldx();
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k) acc[k] = _mm_mul_ps(_mm_loadu_ps(c + k * lda + i), xv);
        i += 4;
        xp += 4 * ix;
        for (; i + 4 <= m; i += 4, xp += 4 * ix) {
            xv = ldx();
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k)
                acc[k] = _mm_add_ps(acc[k], _mm_mul_ps(_mm_loadu_ps(c + k * lda + i), xv));
        }
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k) {
            alignas(16) float l[4];
            _mm_store_ps(l, acc[k]);
            t[k] = t[k] + l[0];
            t[k] = t[k] + l[1];
            t[k] = t[k] + l[2];
            t[k] = t[k] + l[3];
        }
        if (m - i >= 2) {
            const __m128 x2 =
                XU ? load_pair(xp) : _mm_unpacklo_ps(_mm_load_ss(xp), _mm_load_ss(xp + ix));
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k) {
                const __m128 p = _mm_mul_ps(load_pair(c + k * lda + i), x2);
                t[k] = t[k] + _mm_cvtss_f32(p);
                t[k] = t[k] + _mm_cvtss_f32(_mm_shuffle_ps(p, p, 1));
            }
            i += 2;
            xp += 2 * ix;
        }
    }
    while (i < m) row();
}

// ------------------------------------------------------------------- D

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
        __m128d tv[K];
#pragma GCC unroll 8
        for (int k = 0; k < K; ++k) tv[k] = _mm_set1_pd(t[k]);
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
            auto ld = [](const char* p) {
                return _mm_loadu_pd(reinterpret_cast<const double*>(p));
            };
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
            i += (m - i) & ~1;
        } else {
            for (; i + 8 <= m; i += 8) {
#pragma GCC unroll 4
                for (int v = 0; v < 8; v += 2) {
                    __m128d s = _mm_load_pd(y + i + v);
#pragma GCC unroll 4
                    for (int k = 0; k < K; ++k)
                        s = _mm_add_pd(s, _mm_mul_pd(_mm_loadu_pd(c + k * lda + i + v), tv[k]));
                    _mm_store_pd(y + i + v, s);
                }
            }
            for (; i + 2 <= m; i += 2) {
                __m128d s = _mm_load_pd(y + i);
#pragma GCC unroll 4
                for (int k = 0; k < K; ++k)
                    s = _mm_add_pd(s, _mm_mul_pd(_mm_loadu_pd(c + k * lda + i), tv[k]));
                _mm_store_pd(y + i, s);
            }
        }
    }
    for (; i < m; ++i) row(i);
}

// The vector rows and the tail of the D dot form, from row i on (see
// t_block); vec: the last column could be aligned.
template <int K, bool XU, class Row>
[[gnu::always_inline]] inline void dot_rows(bool vec, int m, int& i, const double*& xp, idx ix,
                                            const double*, const double* c, idx lda, double* t,
                                            Row& row) {
    if (vec && m - i >= 2) {
        auto ldx = [&]() {
            if constexpr (XU)
                return _mm_loadu_pd(xp);
            else
                return _mm_loadh_pd(_mm_load_sd(xp), xp + ix);
        };
        __m128d acc[K];
        __m128d xv = ldx();
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k) acc[k] = _mm_mul_pd(_mm_loadu_pd(c + k * lda + i), xv);
        i += 2;
        xp += 2 * ix;
        for (; i + 2 <= m; i += 2, xp += 2 * ix) {
            xv = ldx();
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k)
                acc[k] = _mm_add_pd(acc[k], _mm_mul_pd(_mm_loadu_pd(c + k * lda + i), xv));
        }
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k) {
            t[k] = t[k] + _mm_cvtsd_f64(acc[k]);
            t[k] = t[k] + _mm_cvtsd_f64(_mm_unpackhi_pd(acc[k], acc[k]));
        }
    }
    while (i < m) row();
}

#include "level2/gemv/ssse3_strided.inl"

// ------------------------------------------------------------------- Z
// Walked as doubles like C. An element is one vector, so there is no peel:
// the "scalar" step is the same vector operation.

template <int K>
[[gnu::noinline]] void z_n_block(int m, __m128d alr, __m128d ali, const double* c, idx lda,
                                 const double* x, double* y) {
    __m128d trv[K], tiv[K];
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) {
        const __m128d t = z_mul(_mm_loadu_pd(x + 2 * k), alr, ali);
        trv[k] = _mm_unpacklo_pd(t, t);
        tiv[k] = _mm_unpackhi_pd(t, t);
    }
    auto elem = [&](int r) {
        __m128d s = _mm_loadu_pd(y + 2 * r);
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k)
            s = _mm_add_pd(s, z_mul(_mm_loadu_pd(c + k * lda + 2 * r), trv[k], tiv[k]));
        _mm_storeu_pd(y + 2 * r, s);
    };
    int i = 0;
    if ((addr_bits(y) & 15u) == 0) {
        for (; i + 4 <= m; i += 4) {
#pragma GCC unroll 4
            for (int v = 0; v < 4; ++v) {
                __m128d s = _mm_load_pd(y + 2 * (i + v));
#pragma GCC unroll 4
                for (int k = 0; k < K; ++k)
                    s = _mm_add_pd(s,
                                   z_mul(_mm_loadu_pd(c + k * lda + 2 * (i + v)), trv[k], tiv[k]));
                _mm_store_pd(y + 2 * (i + v), s);
            }
        }
    }
    for (; i < m; ++i) elem(i);
}

template <int K, bool CJ>
[[gnu::noinline]] void z_t_block(int m, __m128d alr, __m128d ali, const double* c, idx lda,
                                 const double* x, idx incx, double* y, idx incy) {
    const __m128d sr = _mm_set_pd(-0.0, 0.0), si = _mm_set_pd(0.0, -0.0);
    __m128d xr, xi;
    auto ldx = [&](const double* p) {
        xr = _mm_loaddup_pd(p);
        xi = _mm_loaddup_pd(p + 1);
        if constexpr (CJ) {
            xr = _mm_xor_pd(xr, sr);
            xi = _mm_xor_pd(xi, si);
        }
    };
    // The accumulators are the dot products themselves: a vector holds
    // one element, so there are no lanes to reduce.
    __m128d t[K];
    ldx(x);
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) t[k] = z_mul(_mm_loadu_pd(c + k * lda), xr, xi);
    const double* xp = x + incx;
    for (int i = 1; i < m; ++i, xp += incx) {
        ldx(xp);
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k)
            t[k] = _mm_add_pd(t[k], z_mul(_mm_loadu_pd(c + k * lda + 2 * i), xr, xi));
    }
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) {
        double* q = y + k * incy;
        _mm_storeu_pd(q, _mm_add_pd(_mm_loadu_pd(q), z_mul(t[k], alr, ali)));
    }
}

void z_n_strided(int m, int n, __m128d alr, __m128d ali, const double* a, idx lda, const double* x,
                 idx incx, double* y, idx incy) {
    int j = 0;
    for (; j + 2 <= n; j += 2) {
        const double* c0 = a + j * lda;
        const double* c1 = c0 + lda;
        const __m128d t0 = z_mul(_mm_loadu_pd(x + j * incx), alr, ali);
        const __m128d t1 = z_mul(_mm_loadu_pd(x + (j + 1) * incx), alr, ali);
        const __m128d t0r = _mm_unpacklo_pd(t0, t0), t0i = _mm_unpackhi_pd(t0, t0);
        const __m128d t1r = _mm_unpacklo_pd(t1, t1), t1i = _mm_unpackhi_pd(t1, t1);
        double* yp = y;
        for (int i = 0; i < m; ++i, yp += incy) {
            __m128d s = _mm_loadu_pd(yp);
            s = _mm_add_pd(s, z_mul(_mm_loadu_pd(c0 + 2 * i), t0r, t0i));
            s = _mm_add_pd(s, z_mul(_mm_loadu_pd(c1 + 2 * i), t1r, t1i));
            _mm_storeu_pd(yp, s);
        }
    }
    if (j < n) {
        const double* c = a + j * lda;
        const __m128d t = z_mul(_mm_loadu_pd(x + j * incx), alr, ali);
        const __m128d tr = _mm_unpacklo_pd(t, t), ti = _mm_unpackhi_pd(t, t);
        double* yp = y;
        int i = 0;
        for (; i + 2 <= m; i += 2, yp += 2 * incy) {
            _mm_storeu_pd(yp, _mm_add_pd(_mm_loadu_pd(yp), z_mul(_mm_loadu_pd(c + 2 * i), tr, ti)));
            _mm_storeu_pd(yp + incy, _mm_add_pd(_mm_loadu_pd(yp + incy),
                                                z_mul(_mm_loadu_pd(c + 2 * i + 2), tr, ti)));
        }
        if (i < m)
            _mm_storeu_pd(yp, _mm_add_pd(_mm_loadu_pd(yp), z_mul(_mm_loadu_pd(c + 2 * i), tr, ti)));
    }
}
