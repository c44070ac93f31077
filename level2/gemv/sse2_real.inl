// GEMV of branches 2 and 3: the complex single moves, the S and D update
// and dot forms and Z's beta scaling. Included by sse2.inl inside the
// branch namespace, after the branch's primitives; no include guard.

// One complex single in both halves: the upper lanes repeat the lower ones
// and raise no flag of their own.
GEMV_INLINE __m128 c_dup(const c32* p) { return simd::dup_pair(p); }
GEMV_INLINE void c_st1(c32* p, __m128 v) { _mm_storel_pi((__m64*)p, v); }
GEMV_INLINE __m128 c_ld2(const c32* p) { return ldu(&p->re); }
GEMV_INLINE __m128 c_gather(const c32* p, const c32* q) {
    return _mm_loadh_pi(_mm_loadl_pi(_mm_setzero_ps(), (const __m64*)p),
                        (const __m64*)q);
}

// ============================================================================
// DGEMV
// ============================================================================

// beta scaling of y; beta != 1.
GEMV_HALF_TUNE void d_scale(int n, double b, double* y, int incy) {
    if (incy == 1) {
        if (b == 0.0) {
            if (n >= 13) {
                std::memset(y, 0, (size_t)n * sizeof(double));
                return;
            }
            for (; n >= 8; n -= 8, y += 8)
#pragma GCC unroll 8
                for (int k = 0; k < 8; ++k) y[k] = 0.0;
            for (; n > 0; --n) *y++ = 0.0;
            return;
        }
        if (n >= 16) {
            if (((uintptr_t)y & 7) == 0 && ((uintptr_t)y & 8)) {
                *y = *y * b;
                ++y;
                --n;
            }
            const __m128d vb = _mm_set1_pd(b);
            if (aligned16(y)) {
                for (; n >= 16; n -= 16, y += 16)
#pragma GCC unroll 8
                    for (int k = 0; k < 16; k += 2)
                        st2<true>(y + k, _mm_mul_pd(ld2<true>(y + k), vb));
                for (; n >= 4; n -= 4, y += 4) {
                    st2<true>(y, _mm_mul_pd(ld2<true>(y), vb));
                    st2<true>(y + 2, _mm_mul_pd(ld2<true>(y + 2), vb));
                }
            } else {
                for (; n >= 16; n -= 16, y += 16)
#pragma GCC unroll 8
                    for (int k = 0; k < 16; k += 2)
                        st2<false>(y + k, _mm_mul_pd(ld2<false>(y + k), vb));
                for (; n >= 4; n -= 4, y += 4) {
                    st2<false>(y, _mm_mul_pd(ld2<false>(y), vb));
                    st2<false>(y + 2, _mm_mul_pd(ld2<false>(y + 2), vb));
                }
            }
        }
        for (; n > 0; --n, ++y) *y = *y * b;
        return;
    }
    // y points at its first used element.
    if (b == 0.0) {
        for (; n >= 8; n -= 8)
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k, y += incy) *y = 0.0;
        for (; n > 0; --n, y += incy) *y = 0.0;
        return;
    }
    for (; n >= 2; n -= 2) {
        y[0] = y[0] * b;
        y[incy] = y[incy] * b;
        y += 2 * incy;
    }
    if (n) *y = *y * b;
}

// x of the dot form: contiguous, or strided and gathered by pairs.
struct dx_unit {
    const double* p;
    GEMV_INLINE double at(int i) const { return p[i]; }
    GEMV_INLINE __m128d pair(int i) const { return _mm_set_pd(p[i + 1], p[i]); }
};
struct dx_step {
    const double* p;
    int inc;
    GEMV_INLINE double at(int i) const { return p[i * inc]; }
    GEMV_INLINE __m128d pair(int i) const {
        return _mm_set_pd(p[(i + 1) * inc], p[i * inc]);
    }
};

// Vector part of the dot: one accumulator per column, started by the first
// product, then reduced lane by lane into t.  Returns the next row.
template <int C, bool AL, class X>
GEMV_INLINE int d_dot_vec(int i, int m, const double* a, int lda, X x,
                          double* t) {
    __m128d acc[C];
    {
        const __m128d xv = x.pair(i);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            acc[k] = _mm_mul_pd(ld2<AL>(a + k * lda + i), xv);
        i += 2;
    }
    // One vector of rows a pass: a second x vector in flight would push the
    // four-column block past 8 registers.
    for (; i + 2 <= m; i += 2) {
        const __m128d xv = x.pair(i);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            acc[k] =
                _mm_add_pd(acc[k], _mm_mul_pd(ld2<AL>(a + k * lda + i), xv));
    }
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) {
        t[k] = t[k] + _mm_cvtsd_f64(acc[k]);
        t[k] = t[k] + _mm_cvtsd_f64(_mm_unpackhi_pd(acc[k], acc[k]));
    }
    return i;
}

// t[k] = sum over rows of x[i]*a[i, k]: row 0 starts t, a scalar peel brings
// row 1 of the last column to 16 bytes, then vectors, then the tail.
template <int C, class X>
GEMV_INLINE void d_dot(int m, const double* a, int lda, X x, double* t) {
    const double x0 = x.at(0);
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) t[k] = x0 * a[k * lda];
    int i = 1;
    if (m - 1 >= 4) {
        const double* last = a + (C - 1) * lda + 1;
        if (((uintptr_t)last & 7) == 0) {
            if ((uintptr_t)last & 8) {
                const double xi = x.at(1);
#pragma GCC unroll 8
                for (int k = 0; k < C; ++k) t[k] = t[k] + xi * a[k * lda + 1];
                i = 2;
            }
            // The last column is aligned now; the others are when lda is even.
            if (C == 1 || (lda & 1) == 0)
                i = d_dot_vec<C, true>(i, m, a, lda, x, t);
            else
                i = d_dot_vec<C, false>(i, m, a, lda, x, t);
        }
    }
    for (; i < m; ++i) {
        const double xi = x.at(i);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k) t[k] = t[k] + xi * a[k * lda + i];
    }
}

// Transposed: x over the rows, one y element per column.
template <bool UNIT, class X>
GEMV_HALF_TUNE void d_t(int m, int n, double al, const double* a, int lda, X x,
                        double* y, int incy) {
    if (UNIT) incy = 1;
    double t[4];
    int j = 0;
    for (; j + 4 <= n; j += 4, a += 4 * lda, y += 4 * incy) {
        d_dot<4>(m, a, lda, x, t);
#pragma GCC unroll 8
        for (int k = 0; k < 4; ++k) y[k * incy] = y[k * incy] + al * t[k];
    }
    if (UNIT && n - j >= 2) {
        d_dot<2>(m, a, lda, x, t);
        y[0] = y[0] + al * t[0];
        y[1] = y[1] + al * t[1];
        j += 2;
        a += 2 * lda;
        y += 2;
    }
    for (; j < n; ++j, a += lda, y += incy) {
        d_dot<1>(m, a, lda, x, t);
        y[0] = y[0] + al * t[0];
    }
}

// One row of the update, scalar: the same chain as the vectors.
template <int C>
GEMV_INLINE void d_row(int i, const double* a, int lda, const double* ts,
                       double* y) {
    double s = y[i];
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) s = s + ts[k] * a[k * lda + i];
    y[i] = s;
}

// Vector rows of the update, y 16-aligned at row i.  Eight columns: one
// vector of rows a pass, eight streams of A; fewer: four vectors a pass.
template <int C, bool AL>
GEMV_INLINE int d_upd_vec(int i, int m, const double* a, int lda,
                          const __m128d* tv, double* y) {
    if (C == 8) {
        // Three walking column pointers reach all eight columns by offsets
        // of lda, 2*lda and 4*lda: few general registers in 32-bit mode.
        const double* p0 = a + i;
        const double* p3 = p0 + 3 * lda;
        const double* p6 = p0 + 6 * lda;
        double* yp = y + i;
        for (int r = (m - i) >> 1; r > 0;
             --r, p0 += 2, p3 += 2, p6 += 2, yp += 2) {
            __m128d s = _mm_load_pd(yp);
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p0), tv[0]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p0 + lda), tv[1]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p0 + 2 * lda), tv[2]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p3), tv[3]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p0 + 4 * lda), tv[4]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p3 + 2 * lda), tv[5]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p6), tv[6]));
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(p6 + lda), tv[7]));
            _mm_store_pd(yp, s);
        }
        return i + ((m - i) & ~1);
    }
    // Each vector is finished and stored before the next one's loads: the
    // scalars stay in registers and nothing spills.
    for (; i + 8 <= m; i += 8) {
#pragma GCC unroll 4
        for (int r = 0; r < 8; r += 2) {
            __m128d s = _mm_load_pd(y + i + r);
#pragma GCC unroll 8
            for (int k = 0; k < C; ++k)
                s = _mm_add_pd(s,
                               _mm_mul_pd(ld2<AL>(a + k * lda + i + r), tv[k]));
            _mm_store_pd(y + i + r, s);
        }
    }
    for (; i + 2 <= m; i += 2) {
        __m128d s = _mm_load_pd(y + i);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            s = _mm_add_pd(s, _mm_mul_pd(ld2<AL>(a + k * lda + i), tv[k]));
        _mm_store_pd(y + i, s);
    }
    return i;
}

// C columns into y: alpha folded into x once per column, y read and written
// once.  peel < 0: y is not 8-aligned, every row scalar.
template <int C>
GEMV_INLINE void d_upd(int m, int peel, const double* a, int lda,
                       const double* x, double al, double* y) {
    double ts[C];
    __m128d tv[C];
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) {
        ts[k] = al * x[k];
        tv[k] = _mm_set1_pd(ts[k]);
    }
    int i = 0;
    if (peel >= 0) {
        for (; i < peel; ++i) d_row<C>(i, a, lda, ts, y);
        if (aligned16(a + i) && (C == 1 || (lda & 1) == 0))
            i = d_upd_vec<C, true>(i, m, a, lda, tv, y);
        else
            i = d_upd_vec<C, false>(i, m, a, lda, tv, y);
    }
    for (; i < m; ++i) d_row<C>(i, a, lda, ts, y);
}

GEMV_HALF_TUNE void d_n_unit(int m, int n, double al, const double* a, int lda,
                             const double* x, double* y) {
    int peel = -1;
    if (((uintptr_t)y & 7) == 0) peel = ((uintptr_t)y & 8) && m ? 1 : 0;
    int j = 0;
    for (; j + 8 <= n; j += 8)
        d_upd<8>(m, peel, a + j * lda, lda, x + j, al, y);
    if (n - j >= 4) {
        d_upd<4>(m, peel, a + j * lda, lda, x + j, al, y);
        j += 4;
    }
    if (n - j >= 2) {
        d_upd<2>(m, peel, a + j * lda, lda, x + j, al, y);
        j += 2;
    }
    if (n - j) d_upd<1>(m, peel, a + j * lda, lda, x + j, al, y);
}

// Strided: alpha*x in scalars, rows in a scalar loop over strided y.
GEMV_HALF_TUNE void d_n_step(int m, int n, double al, const double* a, int lda,
                             const double* x, int incx, double* y, int incy) {
    int j = 0;
    for (; j + 4 <= n; j += 4, a += 4 * lda, x += 4 * incx) {
        const double t0 = al * x[0], t1 = al * x[incx];
        const double t2 = al * x[2 * incx], t3 = al * x[3 * incx];
        const double *a0 = a, *a1 = a + lda, *a2 = a + 2 * lda,
                     *a3 = a + 3 * lda;
        double* yp = y;
        for (int i = 0; i < m; ++i, yp += incy)
            *yp = *yp + t0 * a0[i] + t1 * a1[i] + t2 * a2[i] + t3 * a3[i];
    }
    for (; j < n; ++j, a += lda, x += incx) {
        const double t = al * x[0];
        double* yp = y;
        int i = 0;
        for (; i + 2 <= m; i += 2, yp += 2 * incy) {
            yp[0] = yp[0] + t * a[i];
            yp[incy] = yp[incy] + t * a[i + 1];
        }
        if (i < m) *yp = *yp + t * a[i];
    }
}

// ============================================================================
// SGEMV
// ============================================================================

void s_scale(int n, float b, float* y, int incy) {
    if (incy == 1) {
        if (b == 0.0f) {
            if (n >= 25) {
                std::memset(y, 0, (size_t)n * sizeof(float));
                return;
            }
            for (; n > 0; --n) *y++ = 0.0f;
            return;
        }
        if (n >= 16) {
            if (((uintptr_t)y & 3) == 0)
                for (; !aligned16(y); --n, ++y) *y = *y * b;
            const __m128 vb = _mm_set1_ps(b);
            if (aligned16(y)) {
                for (; n >= 16; n -= 16, y += 16)
#pragma GCC unroll 4
                    for (int k = 0; k < 16; k += 4)
                        _mm_store_ps(y + k, _mm_mul_ps(_mm_load_ps(y + k), vb));
                for (; n >= 4; n -= 4, y += 4)
                    _mm_store_ps(y, _mm_mul_ps(_mm_load_ps(y), vb));
            } else {
                for (; n >= 16; n -= 16, y += 16)
#pragma GCC unroll 4
                    for (int k = 0; k < 16; k += 4)
                        _mm_storeu_ps(y + k, _mm_mul_ps(ldu(y + k), vb));
                for (; n >= 4; n -= 4, y += 4)
                    _mm_storeu_ps(y, _mm_mul_ps(ldu(y), vb));
            }
        }
        for (; n > 0; --n, ++y) *y = *y * b;
        return;
    }
    if (b == 0.0f) {
        for (; n >= 8; n -= 8)
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k, y += incy) *y = 0.0f;
        for (; n > 0; --n, y += incy) *y = 0.0f;
        return;
    }
    for (; n >= 2; n -= 2) {
        y[0] = y[0] * b;
        y[incy] = y[incy] * b;
        y += 2 * incy;
    }
    if (n) *y = *y * b;
}

// The last r < 8 rows, straight-line in row order: row() once for each.
template <class F>
GEMV_INLINE void rows_upto7(int r, F&& row) {
    switch (r) {
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

struct sx_unit {
    const float* p;
    GEMV_INLINE float at(int i) const { return p[i]; }
    GEMV_INLINE __m128 quad(int i) const { return ldu(p + i); }
};
// Strided x: pairs of loads, then a merge.
struct sx_step {
    const float* p;
    int inc;
    GEMV_INLINE float at(int i) const { return p[i * inc]; }
    GEMV_INLINE __m128 quad(int i) const {
        const float* q = p + i * inc;
        const __m128 lo = _mm_unpacklo_ps(_mm_load_ss(q), _mm_load_ss(q + inc));
        const __m128 hi =
            _mm_unpacklo_ps(_mm_load_ss(q + 2 * inc), _mm_load_ss(q + 3 * inc));
        return _mm_movelh_ps(lo, hi);
    }
};

template <int C, class X>
GEMV_INLINE void s_dot_row(int i, const float* a, int lda, X x, float* t) {
    const float xi = x.at(i);
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) t[k] = t[k] + xi * a[k * lda + i];
}

template <int C, class X>
GEMV_INLINE void s_dot(int m, const float* a, int lda, X x, float* t) {
    const float x0 = x.at(0);
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) t[k] = x0 * a[k * lda];
    int i = 1, r = m - 1;
    if (r >= 4) {
        const float* last = a + (C - 1) * lda + 1;
        if (((uintptr_t)last & 3) == 0) {
            for (int p = (int)((-(uintptr_t)last & 15) >> 2); p > 0;
                 --p, ++i, --r)
                s_dot_row<C>(i, a, lda, x, t);
            if (r >= 8) {
                __m128 acc[C];
                {
                    const __m128 x0v = x.quad(i), x1v = x.quad(i + 4);
#pragma GCC unroll 8
                    for (int k = 0; k < C; ++k) {
                        const float* c = a + k * lda + i;
                        acc[k] = _mm_mul_ps(ldu(c), x0v);
                        acc[k] =
                            _mm_add_ps(acc[k], _mm_mul_ps(ldu(c + 4), x1v));
                    }
                    i += 8;
                    r -= 8;
                }
                for (; r >= 8; r -= 8, i += 8) {
                    const __m128 x0v = x.quad(i), x1v = x.quad(i + 4);
#pragma GCC unroll 8
                    for (int k = 0; k < C; ++k) {
                        const float* c = a + k * lda + i;
                        acc[k] = _mm_add_ps(acc[k], _mm_mul_ps(ldu(c), x0v));
                        acc[k] =
                            _mm_add_ps(acc[k], _mm_mul_ps(ldu(c + 4), x1v));
                    }
                }
#pragma GCC unroll 8
                for (int k = 0; k < C; ++k) {
                    const __m128 v = acc[k];
                    t[k] = t[k] + _mm_cvtss_f32(v);
                    t[k] = t[k] + _mm_cvtss_f32(_mm_shuffle_ps(v, v, 1));
                    t[k] = t[k] + _mm_cvtss_f32(_mm_movehl_ps(v, v));
                    t[k] = t[k] + _mm_cvtss_f32(_mm_shuffle_ps(v, v, 3));
                }
            }
        }
    }
    // More than 7 left only when the vector loop could not run.
    for (; r >= 8; r -= 8)
        for (int q = 0; q < 8; ++q, ++i) s_dot_row<C>(i, a, lda, x, t);
    rows_upto7(r, [&]() GEMV_INLINE_LAMBDA { s_dot_row<C>(i++, a, lda, x, t); });
}

template <bool UNIT, class X>
__attribute__((noinline)) void s_t(int m, int n, float al, const float* a,
                                   int lda, X x, float* y, int incy) {
    if (UNIT) incy = 1;
    float t[4];
    int j = 0;
    for (; j + 4 <= n; j += 4, a += 4 * lda, y += 4 * incy) {
        s_dot<4>(m, a, lda, x, t);
#pragma GCC unroll 8
        for (int k = 0; k < 4; ++k) y[k * incy] = y[k * incy] + al * t[k];
    }
    for (; j < n; ++j, a += lda, y += incy) {
        s_dot<1>(m, a, lda, x, t);
        y[0] = y[0] + al * t[0];
    }
}

template <int C>
GEMV_INLINE void s_row(int i, const float* a, int lda, const float* ts,
                       float* y) {
    float s = y[i];
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) s = s + ts[k] * a[k * lda + i];
    y[i] = s;
}

// C columns into y.  Vectors of 8 rows a pass on a 16-aligned y (A read
// unaligned); a fall-through of up to 7 rows ends the row loop.
template <int C>
GEMV_INLINE void s_upd(int m, const float* a, int lda, const float* x, float al,
                       float* y) {
    float ts[C];
    __m128 tv[C];
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) {
        ts[k] = al * x[k];
        tv[k] = _mm_set1_ps(ts[k]);
    }
    int i = 0, r = m;
    if (((uintptr_t)y & 3) == 0) {
        for (; r > 0 && !aligned16(y + i); ++i, --r) s_row<C>(i, a, lda, ts, y);
        for (; r >= 8; r -= 8, i += 8) {
#pragma GCC unroll 2
            for (int q = 0; q < 8; q += 4) {
                __m128 s = _mm_load_ps(y + i + q);
#pragma GCC unroll 8
                for (int k = 0; k < C; ++k)
                    s = _mm_add_ps(s,
                                   _mm_mul_ps(ldu(a + k * lda + i + q), tv[k]));
                _mm_store_ps(y + i + q, s);
            }
        }
    }
    for (; r >= 8; r -= 8)
        for (int q = 0; q < 8; ++q, ++i) s_row<C>(i, a, lda, ts, y);
    rows_upto7(r, [&]() GEMV_INLINE_LAMBDA { s_row<C>(i++, a, lda, ts, y); });
}

__attribute__((noinline)) void s_n_unit(int m, int n, float al, const float* a,
                                        int lda, const float* x, float* y) {
    int j = 0;
    for (; j + 4 <= n; j += 4) s_upd<4>(m, a + j * lda, lda, x + j, al, y);
    for (; j < n; ++j) s_upd<1>(m, a + j * lda, lda, x + j, al, y);
}

__attribute__((noinline)) void s_n_step(int m, int n, float al, const float* a,
                                        int lda, const float* x, int incx,
                                        float* y, int incy) {
    int j = 0;
    for (; j + 4 <= n; j += 4, a += 4 * lda, x += 4 * incx) {
        const float t0 = al * x[0], t1 = al * x[incx];
        const float t2 = al * x[2 * incx], t3 = al * x[3 * incx];
        const float *a0 = a, *a1 = a + lda, *a2 = a + 2 * lda,
                    *a3 = a + 3 * lda;
        float* yp = y;
        for (int i = 0; i < m; ++i, yp += incy)
            *yp = *yp + t0 * a0[i] + t1 * a1[i] + t2 * a2[i] + t3 * a3[i];
    }
    for (; j < n; ++j, a += lda, x += incx) {
        const float t = al * x[0];
        float* yp = y;
        int i = 0;
        for (; i + 2 <= m; i += 2, yp += 2 * incy) {
            yp[0] = yp[0] + t * a[i];
            yp[incy] = yp[incy] + t * a[i + 1];
        }
        if (i < m) *yp = *yp + t * a[i];
    }
}

// ============================================================================
// ZGEMV
// ============================================================================

// y * beta, beta != 1, both parts tested by the caller.
GEMV_HALF_TUNE void z_scale(int n, const c64* beta, c64* y, int incy) {
    const bool zero = is_zero(*beta);
    if (incy == 1) {
        if (zero) {
            if (n >= 7) {
                std::memset((void*)y, 0, (size_t)n * sizeof(c64));
                return;
            }
            for (; n > 0; --n, ++y) y->re = y->im = 0.0;
            return;
        }
        __m128d re, im;
        zscal<false>(beta, re, im);
        // A 16-byte element is one vector: nothing to peel.
        if (aligned16(y)) {
            for (; n >= 16; n -= 16, y += 16)
#pragma GCC unroll 16
                for (int k = 0; k < 16; ++k)
                    st2<true>(&y[k].re,
                              zprod<false>(ld2<true>(&y[k].re), re, im));
            for (; n >= 4; n -= 4, y += 4)
#pragma GCC unroll 4
                for (int k = 0; k < 4; ++k)
                    st2<true>(&y[k].re,
                              zprod<false>(ld2<true>(&y[k].re), re, im));
            for (; n > 0; --n, ++y)
                st2<true>(&y->re, zprod<false>(ld2<true>(&y->re), re, im));
        } else {
            for (; n >= 16; n -= 16, y += 16)
#pragma GCC unroll 16
                for (int k = 0; k < 16; ++k)
                    st2<false>(&y[k].re,
                               zprod<false>(ld2<false>(&y[k].re), re, im));
            for (; n >= 4; n -= 4, y += 4)
#pragma GCC unroll 4
                for (int k = 0; k < 4; ++k)
                    st2<false>(&y[k].re,
                               zprod<false>(ld2<false>(&y[k].re), re, im));
            for (; n > 0; --n, ++y)
                st2<false>(&y->re, zprod<false>(ld2<false>(&y->re), re, im));
        }
        return;
    }
    if (zero) {
        for (; n >= 8; n -= 8)
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k, y += incy) y->re = y->im = 0.0;
        for (; n > 0; --n, y += incy) y->re = y->im = 0.0;
        return;
    }
    __m128d re, im;
    zscal<false>(beta, re, im);
    for (; n >= 2; n -= 2) {
        const __m128d v0 = zprod<false>(ld2<false>(&y[0].re), re, im);
        const __m128d v1 = zprod<false>(ld2<false>(&y[incy].re), re, im);
        st2<false>(&y[0].re, v0);
        st2<false>(&y[incy].re, v1);
        y += 2 * incy;
    }
    if (n) st2<false>(&y->re, zprod<false>(ld2<false>(&y->re), re, im));
}
