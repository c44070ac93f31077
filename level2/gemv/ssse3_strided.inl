// GEMV update forms of branches 4 and 5 in S and D for strided vectors,
// and what follows them.
// Included by the branch's column-block text; no include guard.
template <class R>
void n_strided(int m, int n, R alpha, const R* a, idx lda, const R* x, int incx, R* y, int incy) {
    const idx ix = incx, iy = incy;
    x += vec_start(n, incx);
    y += vec_start(m, incy);
    int j = 0;
    for (; j + 4 <= n; j += 4) {
        const R* c = a + j * lda;
        const R t0 = alpha * x[j * ix], t1 = alpha * x[(j + 1) * ix];
        const R t2 = alpha * x[(j + 2) * ix], t3 = alpha * x[(j + 3) * ix];
        R* yp = y;
        for (int i = 0; i < m; ++i, yp += iy) {
            R s = *yp;
            s = s + t0 * c[i];
            s = s + t1 * c[lda + i];
            s = s + t2 * c[2 * lda + i];
            s = s + t3 * c[3 * lda + i];
            *yp = s;
        }
    }
    for (; j < n; ++j) {
        const R* c = a + j * lda;
        const R t = alpha * x[j * ix];
        R* yp = y;
        int i = 0;
        for (; i + 2 <= m; i += 2, yp += 2 * iy) {
            yp[0] = yp[0] + t * c[i];
            yp[iy] = yp[iy] + t * c[i + 1];
        }
        if (i < m) *yp = *yp + t * c[i];
    }
}
void s_n_strided(int m, int n, float alpha, const float* a, idx lda, const float* x, int incx,
                 float* y, int incy) {
    n_strided(m, n, alpha, a, lda, x, incx, y, incy);
}
void d_n_strided(int m, int n, double alpha, const double* a, idx lda, const double* x,
                 int incx, double* y, int incy) {
    n_strided(m, n, alpha, a, lda, x, incx, y, incy);
}

// ------------------------------------------------------------------- C
// Complex operands are walked as floats: c and y point at real parts,
// lda and the increments count floats.

// t = alpha*x for one column, the lanes of c_mul(x, ar, ai).
inline void c_prod(const float* q, float tr, float ti, float& pr, float& pi) {
    pr = q[0] * tr - q[1] * ti;
    pi = q[1] * tr + q[0] * ti;
}

// A single element lives in the low half of a register and goes through
// the same c_mul as the vectors: the peel and tail rows give the bits the
// vector lanes would, and a row of K columns fits the eight registers.
template <int K>
[[gnu::noinline]] void c_n_block(int m, float ar, float ai, const float* c, idx lda, const float* x,
                                 float* y) {
    __m128 trv[K], tiv[K];
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) {
        float tr, ti;
        c_prod(x + 2 * k, ar, ai, tr, ti);
        trv[k] = _mm_set1_ps(tr);
        tiv[k] = _mm_set1_ps(ti);
    }
    auto row = [&](int r) {
        __m128 s = load_pair(y + 2 * r);
#pragma GCC unroll 4
        for (int k = 0; k < K; ++k)
            s = _mm_add_ps(s, c_mul(load_pair(c + k * lda + 2 * r), trv[k], tiv[k]));
        store_pair(y + 2 * r, s);
    };
    int i = 0;
    if ((addr_bits(y) & 7u) == 0) {
        if ((addr_bits(y) & 8u) != 0 && m > 0) row(i++);
        // Four vectors (eight elements) a pass, each vector finished over
        // the K columns before the next: one y and two temporaries live.
        for (; i + 8 <= m; i += 8) {
#pragma GCC unroll 4
            for (int v = 0; v < 16; v += 4) {
                __m128 s = _mm_load_ps(y + 2 * i + v);
#pragma GCC unroll 4
                for (int k = 0; k < K; ++k)
                    s = _mm_add_ps(s, c_mul(_mm_loadu_ps(c + k * lda + 2 * i + v), trv[k], tiv[k]));
                _mm_store_ps(y + 2 * i + v, s);
            }
        }
        for (; i + 2 <= m; i += 2) {
            __m128 s = _mm_load_ps(y + 2 * i);
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k)
                s = _mm_add_ps(s, c_mul(_mm_loadu_ps(c + k * lda + 2 * i), trv[k], tiv[k]));
            _mm_store_ps(y + 2 * i, s);
        }
    }
    for (; i < m; ++i) row(i);
}

// Transposed (CJ false) or conjugate transposed (CJ true). The conjugate
// folds the sign of A's imaginary part into the broadcast parts of x:
// re lanes (xr, -xr), im lanes (-xi, xi), so c_mul yields conj(a)*x.
template <int K, bool XU, bool CJ>
[[gnu::noinline]] void c_t_block(int m, const __m128& alr, const __m128& ali, const float* c,
                                 idx lda, const float* x, idx incx, float* y, idx incy) {
    const idx ix = XU ? 2 : incx;
    const __m128 sr = _mm_set_ps(-0.0f, 0.0f, -0.0f, 0.0f);
    const __m128 si = _mm_set_ps(0.0f, -0.0f, 0.0f, -0.0f);
    __m128 xr, xi;
    auto split = [&](__m128 v) {
        xr = _mm_moveldup_ps(v);
        xi = _mm_movehdup_ps(v);
        if constexpr (CJ) {
            xr = _mm_xor_ps(xr, sr);
            xi = _mm_xor_ps(xi, si);
        }
    };
    // The dot products, one element in the low half of each register.
    __m128 t[K];
    split(load_pair(x));
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) t[k] = c_mul(load_pair(c + k * lda), xr, xi);
    if (m >= 2) {
        int i = 1;
        const float* xp = x + ix;
        auto row = [&]() {
            split(load_pair(xp));
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k)
                t[k] = _mm_add_ps(t[k], c_mul(load_pair(c + k * lda + 2 * i), xr, xi));
            ++i;
            xp += ix;
        };
        bool vec = false;
        if (m - 1 >= 2) {
            const unsigned pa = addr_bits(c + (K - 1) * lda + 2);
            if ((pa & 7u) == 0) {
                vec = true;
                if (pa & 8u) row();
            }
        }
        if (vec && m - i >= 2) {
            auto ldx = [&]() {
                if constexpr (XU)
                    split(_mm_loadu_ps(xp));
                else
                    split(_mm_loadh_pi(load_pair(xp), reinterpret_cast<const __m64*>(xp + ix)));
            };
            __m128 acc[K];
            ldx();
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k) acc[k] = c_mul(_mm_loadu_ps(c + k * lda + 2 * i), xr, xi);
            i += 2;
            xp += 2 * ix;
            for (; i + 2 <= m; i += 2, xp += 2 * ix) {
                ldx();
#pragma GCC unroll 4
                for (int k = 0; k < K; ++k)
                    acc[k] = _mm_add_ps(acc[k], c_mul(_mm_loadu_ps(c + k * lda + 2 * i), xr, xi));
            }
            // Lane by lane: the low element first, then the high one.
#pragma GCC unroll 4
            for (int k = 0; k < K; ++k) {
                t[k] = _mm_add_ps(t[k], acc[k]);
                t[k] = _mm_add_ps(t[k], _mm_movehl_ps(acc[k], acc[k]));
            }
        }
        while (i < m) row();
    }
#pragma GCC unroll 4
    for (int k = 0; k < K; ++k) {
        float* q = y + k * incy;
        store_pair(q, _mm_add_ps(load_pair(q), c_mul(t[k], alr, ali)));
    }
}

void c_n_strided(int m, int n, float ar, float ai, const float* a, idx lda, const float* x,
                 idx incx, float* y, idx incy) {
    int j = 0;
    for (; j + 2 <= n; j += 2) {
        const float* c0 = a + j * lda;
        const float* c1 = c0 + lda;
        float t0r, t0i, t1r, t1i;
        c_prod(x + j * incx, ar, ai, t0r, t0i);
        c_prod(x + (j + 1) * incx, ar, ai, t1r, t1i);
        const __m128 r0 = _mm_set1_ps(t0r), i0 = _mm_set1_ps(t0i);
        const __m128 r1 = _mm_set1_ps(t1r), i1 = _mm_set1_ps(t1i);
        float* yp = y;
        for (int i = 0; i < m; ++i, yp += incy) {
            __m128 s = load_pair(yp);
            s = _mm_add_ps(s, c_mul(load_pair(c0 + 2 * i), r0, i0));
            s = _mm_add_ps(s, c_mul(load_pair(c1 + 2 * i), r1, i1));
            store_pair(yp, s);
        }
    }
    if (j < n) {
        const float* c = a + j * lda;
        float tr, ti;
        c_prod(x + j * incx, ar, ai, tr, ti);
        const __m128 r = _mm_set1_ps(tr), q = _mm_set1_ps(ti);
        float* yp = y;
        int i = 0;
        for (; i + 2 <= m; i += 2, yp += 2 * incy) {
            store_pair(yp, _mm_add_ps(load_pair(yp), c_mul(load_pair(c + 2 * i), r, q)));
            store_pair(yp + incy,
                       _mm_add_ps(load_pair(yp + incy), c_mul(load_pair(c + 2 * i + 2), r, q)));
        }
        if (i < m) store_pair(yp, _mm_add_ps(load_pair(yp), c_mul(load_pair(c + 2 * i), r, q)));
    }
}
