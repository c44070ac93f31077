// GEMV of branches 2 and 3, complex: the Z column blocks and drivers, and
// the six lower C kernels. Included by sse2.inl inside the branch
// namespace, after the branch's primitives; no include guard.
template <int C, bool CONJ>
GEMV_INLINE void z_dot_any(int m, const c64* a, int lda, const c64* x, int incx,
                           __m128d* t) {
    if (aligned16(a))
        z_dot<C, CONJ, true>(m, a, lda, x, incx, t);
    else
        z_dot<C, CONJ, false>(m, a, lda, x, incx, t);
}

GEMV_INLINE void z_add_y(c64* y, __m128d t, __m128d are, __m128d aim) {
    st2<false>(&y->re,
               _mm_add_pd(ld2<false>(&y->re), zprod<false>(t, are, aim)));
}

// Transposed and conjugate: unit increments 4,2,1 (conjugate 2,1), strided
// 2,1.  x and y point at their first used elements.
template <bool CONJ, bool UNIT>
GEMV_HALF_TUNE void z_t(int m, int n, const c64* alpha, const c64* a, int lda,
                        const c64* x, int incx, c64* y, int incy) {
    if (UNIT) incx = incy = 1;
    __m128d are, aim;
    zscal<false>(alpha, are, aim);
    __m128d t[4];
    int j = 0;
    if (UNIT && !CONJ) {
        for (; j + 4 <= n; j += 4, a += 4 * lda, y += 4) {
            z_dot_any<4, CONJ>(m, a, lda, x, incx, t);
#pragma GCC unroll 8
            for (int k = 0; k < 4; ++k) z_add_y(y + k, t[k], are, aim);
        }
    }
    for (; j + 2 <= n; j += 2, a += 2 * lda, y += 2 * incy) {
        z_dot_any<2, CONJ>(m, a, lda, x, incx, t);
        z_add_y(y, t[0], are, aim);
        z_add_y(y + incy, t[1], are, aim);
    }
    if (j < n) {
        z_dot_any<1, CONJ>(m, a, lda, x, incx, t);
        z_add_y(y, t[0], are, aim);
    }
}

// Update rows, four a pass, then single rows; the same chain on every row.
// An element is a whole vector, so no peel can align y: a y off the 16-byte
// boundary is read and written by halves.  Each row is stored before the
// next row's loads, which keeps the block's scalars in registers.
template <int C, bool AL, bool YAL>
GEMV_INLINE void z_upd_rows(int m, const c64* a, int lda, const __m128d* tr,
                            const __m128d* ti, c64* y) {
    int i = 0;
    for (; i + 4 <= m; i += 4) {
#pragma GCC unroll 4
        for (int q = 0; q < 4; ++q) {
            __m128d s = ld2<YAL>(&y[i + q].re);
#pragma GCC unroll 8
            for (int k = 0; k < C; ++k)
                s = _mm_add_pd(
                    s, zprod_at<false, AL>(&a[k * lda + i + q], tr[k], ti[k]));
            st2<YAL>(&y[i + q].re, s);
        }
    }
    for (; i < m; ++i) {
        __m128d s = ld2<YAL>(&y[i].re);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            s = _mm_add_pd(s,
                           zprod_at<false, AL>(&a[k * lda + i], tr[k], ti[k]));
        st2<YAL>(&y[i].re, s);
    }
}

template <int C>
GEMV_INLINE void z_upd(int m, const c64* a, int lda, const c64* x, __m128d are,
                       __m128d aim, c64* y) {
    __m128d tr[C], ti[C];
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k)
        zscal_reg(zprod<false>(ld2<false>(&x[k].re), are, aim), tr[k], ti[k]);
    if (aligned16(y)) {
        if (aligned16(a))
            z_upd_rows<C, true, true>(m, a, lda, tr, ti, y);
        else
            z_upd_rows<C, false, true>(m, a, lda, tr, ti, y);
    } else {
        if (aligned16(a))
            z_upd_rows<C, true, false>(m, a, lda, tr, ti, y);
        else
            z_upd_rows<C, false, false>(m, a, lda, tr, ti, y);
    }
}

GEMV_HALF_TUNE void z_n_unit(int m, int n, const c64* alpha, const c64* a,
                             int lda, const c64* x, c64* y) {
    __m128d are, aim;
    zscal<false>(alpha, are, aim);
    int j = 0;
    for (; j + 4 <= n; j += 4)
        z_upd<4>(m, a + j * lda, lda, x + j, are, aim, y);
    if (n - j >= 2) {
        z_upd<2>(m, a + j * lda, lda, x + j, are, aim, y);
        j += 2;
    }
    if (n - j) z_upd<1>(m, a + j * lda, lda, x + j, are, aim, y);
}

// Strided: two columns a pass with alpha*x in scalars, rows one at a time;
// the last column with rows in pairs.  A's columns share its alignment.
template <bool AL>
GEMV_INLINE void z_n_step_rows(int m, int n, __m128d are, __m128d aim,
                               const c64* a, int lda, const c64* x, int incx,
                               c64* y, int incy) {
    int j = 0;
    for (; j + 2 <= n; j += 2, a += 2 * lda, x += 2 * incx) {
        __m128d r0, i0, r1, i1;
        zscal_reg(zprod<false>(ld2<false>(&x[0].re), are, aim), r0, i0);
        zscal_reg(zprod<false>(ld2<false>(&x[incx].re), are, aim), r1, i1);
        const c64 *a0 = a, *a1 = a + lda;
        c64* yp = y;
        for (int i = 0; i < m; ++i, yp += incy) {
            __m128d s = ld2<false>(&yp->re);
            s = _mm_add_pd(s, zprod_at<false, AL>(&a0[i], r0, i0));
            s = _mm_add_pd(s, zprod_at<false, AL>(&a1[i], r1, i1));
            st2<false>(&yp->re, s);
        }
    }
    if (j < n) {
        __m128d r0, i0;
        zscal_reg(zprod<false>(ld2<false>(&x[0].re), are, aim), r0, i0);
        c64* yp = y;
        int i = 0;
        for (; i + 2 <= m; i += 2, yp += 2 * incy) {
            const __m128d s0 = _mm_add_pd(ld2<false>(&yp[0].re),
                                          zprod_at<false, AL>(&a[i], r0, i0));
            const __m128d s1 =
                _mm_add_pd(ld2<false>(&yp[incy].re),
                           zprod_at<false, AL>(&a[i + 1], r0, i0));
            st2<false>(&yp[0].re, s0);
            st2<false>(&yp[incy].re, s1);
        }
        if (i < m)
            st2<false>(&yp->re, _mm_add_pd(ld2<false>(&yp->re),
                                           zprod_at<false, AL>(&a[i], r0, i0)));
    }
}

GEMV_HALF_TUNE void z_n_step(int m, int n, const c64* alpha, const c64* a,
                             int lda, const c64* x, int incx, c64* y,
                             int incy) {
    __m128d are, aim;
    zscal<false>(alpha, are, aim);
    if (aligned16(a))
        z_n_step_rows<true>(m, n, are, aim, a, lda, x, incx, y, incy);
    else
        z_n_step_rows<false>(m, n, are, aim, a, lda, x, incx, y, incy);
}

// ============================================================================
// CGEMV: six lower kernels
// ============================================================================

void c_scale(int n, const c32* beta, c32* y, int incy) {
    const bool zero = is_zero(*beta);
    if (incy == 1) {
        if (zero) {
            if (n >= 13) {
                std::memset((void*)y, 0, (size_t)n * sizeof(c32));
                return;
            }
            for (; n > 0; --n, ++y) y->re = y->im = 0.0f;
            return;
        }
        __m128 re, im;
        cscal<false>(c_dup(beta), re, im);
        if (n >= 16) {
            if (((uintptr_t)y & 7) == 0 && !aligned16(y)) {
                c_st1(y, cprod<false>(c_dup(y), re, im));
                ++y;
                --n;
            }
            float* p = &y->re;
            if (aligned16(p)) {
                for (; n >= 16; n -= 16, p += 32)
#pragma GCC unroll 8
                    for (int k = 0; k < 32; k += 4)
                        _mm_store_ps(p + k,
                                     cprod<false>(_mm_load_ps(p + k), re, im));
                for (; n >= 4; n -= 4, p += 8) {
                    _mm_store_ps(p, cprod<false>(_mm_load_ps(p), re, im));
                    _mm_store_ps(p + 4,
                                 cprod<false>(_mm_load_ps(p + 4), re, im));
                }
            } else {
                for (; n >= 16; n -= 16, p += 32)
#pragma GCC unroll 8
                    for (int k = 0; k < 32; k += 4)
                        _mm_storeu_ps(p + k, cprod<false>(ldu(p + k), re, im));
                for (; n >= 4; n -= 4, p += 8) {
                    _mm_storeu_ps(p, cprod<false>(ldu(p), re, im));
                    _mm_storeu_ps(p + 4, cprod<false>(ldu(p + 4), re, im));
                }
            }
            y = (c32*)p;
        }
        for (; n > 0; --n, ++y) c_st1(y, cprod<false>(c_dup(y), re, im));
        return;
    }
    if (zero) {
        for (; n >= 8; n -= 8)
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k, y += incy) y->re = y->im = 0.0f;
        for (; n > 0; --n, y += incy) y->re = y->im = 0.0f;
        return;
    }
    __m128 re, im;
    cscal<false>(c_dup(beta), re, im);
    for (; n >= 2; n -= 2) {
        const __m128 v0 = cprod<false>(c_dup(y), re, im);
        const __m128 v1 = cprod<false>(c_dup(y + incy), re, im);
        c_st1(y, v0);
        c_st1(y + incy, v1);
        y += 2 * incy;
    }
    if (n) c_st1(y, cprod<false>(c_dup(y), re, im));
}

// Two adjacent elements of a vector; strided ones are gathered.
template <bool UNIT>
GEMV_INLINE __m128 c_pair(const c32* p, int inc) {
    return UNIT ? c_ld2(p) : c_gather(p, p + inc);
}
template <bool UNIT>
GEMV_INLINE void c_put_pair(c32* p, int inc, __m128 v) {
    if (UNIT) {
        _mm_storeu_ps(&p->re, v);
    } else {
        _mm_storel_pi((__m64*)p, v);
        _mm_storeh_pi((__m64*)(p + inc), v);
    }
}

// Not transposed: y := y + A*(alpha*x), two columns a pass.  x and y point
// at their first used elements; UNIT means both increments are 1.
template <int C, bool UNIT>
GEMV_INLINE void c_upd(int m, const c32* a, int lda, const c32* x, int incx,
                       __m128 are, __m128 aim, c32* y, int incy) {
    __m128 tr[C], ti[C];
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k)
        cscal<false>(cprod<false>(c_dup(x + k * incx), are, aim), tr[k], ti[k]);
    int i = 0;
    for (; i + 4 <= m; i += 4) {
#pragma GCC unroll 2
        for (int q = 0; q < 4; q += 2) {
            __m128 s = c_pair<UNIT>(y + (i + q) * incy, incy);
#pragma GCC unroll 8
            for (int k = 0; k < C; ++k)
                s = _mm_add_ps(
                    s, cprod<false>(c_ld2(a + k * lda + i + q), tr[k], ti[k]));
            c_put_pair<UNIT>(y + (i + q) * incy, incy, s);
        }
    }
    if (i + 2 <= m) {
        __m128 s = c_pair<UNIT>(y + i * incy, incy);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            s = _mm_add_ps(s,
                           cprod<false>(c_ld2(a + k * lda + i), tr[k], ti[k]));
        c_put_pair<UNIT>(y + i * incy, incy, s);
        i += 2;
    }
    if (i < m) {
        __m128 s = c_dup(y + i * incy);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            s = _mm_add_ps(s,
                           cprod<false>(c_dup(a + k * lda + i), tr[k], ti[k]));
        c_st1(y + i * incy, s);
    }
}

template <bool UNIT>
__attribute__((noinline)) void c_n(int m, int n, const c32* alpha, const c32* a,
                                   int lda, const c32* x, int incx, c32* y,
                                   int incy) {
    if (UNIT) incx = incy = 1;
    __m128 are, aim;
    cscal<false>(c_dup(alpha), are, aim);
    int j = 0;
    for (; j + 2 <= n; j += 2, a += 2 * lda, x += 2 * incx)
        c_upd<2, UNIT>(m, a, lda, x, incx, are, aim, y, incy);
    if (j < n) c_upd<1, UNIT>(m, a, lda, x, incx, are, aim, y, incy);
}

// Transposed or conjugate dot of C columns: row 0 starts t (a complex in
// both halves), then one accumulator per column over pairs of rows, reduced
// half by half into t, then the odd row.
template <int C, bool CONJ, bool UNIT>
GEMV_INLINE void c_dot(int m, const c32* a, int lda, const c32* x, int incx,
                       __m128* t) {
    __m128 re, im;
    cscal<CONJ>(c_dup(x), re, im);
#pragma GCC unroll 8
    for (int k = 0; k < C; ++k) t[k] = cprod<CONJ>(c_dup(a + k * lda), re, im);
    int i = 1, r = m - 1;
    if (r >= 2) {
        __m128 acc[C];
        cscal<CONJ>(c_pair<UNIT>(x + i * incx, incx), re, im);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            acc[k] = cprod<CONJ>(c_ld2(a + k * lda + i), re, im);
        i += 2;
        r -= 2;
        for (; r >= 4; r -= 4, i += 4) {
            cscal<CONJ>(c_pair<UNIT>(x + i * incx, incx), re, im);
#pragma GCC unroll 8
            for (int k = 0; k < C; ++k)
                acc[k] = _mm_add_ps(
                    acc[k], cprod<CONJ>(c_ld2(a + k * lda + i), re, im));
            cscal<CONJ>(c_pair<UNIT>(x + (i + 2) * incx, incx), re, im);
#pragma GCC unroll 8
            for (int k = 0; k < C; ++k)
                acc[k] = _mm_add_ps(
                    acc[k], cprod<CONJ>(c_ld2(a + k * lda + i + 2), re, im));
        }
        if (r >= 2) {
            cscal<CONJ>(c_pair<UNIT>(x + i * incx, incx), re, im);
#pragma GCC unroll 8
            for (int k = 0; k < C; ++k)
                acc[k] = _mm_add_ps(
                    acc[k], cprod<CONJ>(c_ld2(a + k * lda + i), re, im));
            i += 2;
            r -= 2;
        }
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k) {
            t[k] = _mm_add_ps(t[k], _mm_movelh_ps(acc[k], acc[k]));
            t[k] = _mm_add_ps(t[k], _mm_movehl_ps(acc[k], acc[k]));
        }
    }
    if (r) {
        cscal<CONJ>(c_dup(x + i * incx), re, im);
#pragma GCC unroll 8
        for (int k = 0; k < C; ++k)
            t[k] =
                _mm_add_ps(t[k], cprod<CONJ>(c_dup(a + k * lda + i), re, im));
    }
}

template <bool CONJ, bool UNIT>
__attribute__((noinline)) void c_t(int m, int n, const c32* alpha, const c32* a,
                                   int lda, const c32* x, int incx, c32* y,
                                   int incy) {
    if (UNIT) incx = incy = 1;
    __m128 are, aim;
    cscal<false>(c_dup(alpha), are, aim);
    __m128 t[2];
    int j = 0;
    for (; j + 2 <= n; j += 2, a += 2 * lda, y += 2 * incy) {
        c_dot<2, CONJ, UNIT>(m, a, lda, x, incx, t);
        c_st1(y, _mm_add_ps(c_dup(y), cprod<false>(t[0], are, aim)));
        c_st1(y + incy,
              _mm_add_ps(c_dup(y + incy), cprod<false>(t[1], are, aim)));
    }
    if (j < n) {
        c_dot<1, CONJ, UNIT>(m, a, lda, x, incx, t);
        c_st1(y, _mm_add_ps(c_dup(y), cprod<false>(t[0], are, aim)));
    }
}

