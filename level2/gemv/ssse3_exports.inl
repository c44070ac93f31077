// The GEMV kernels that branches 4 and 5 export to their dispatch tables.
// Included by ssse3.inl inside the branch namespace; no include guard.
template <> void gemv<float>(const char* trans, const int* pm, const int* pn, const float* palpha, const float* a,
           const int* plda, const float* x, const int* pincx, const float* pbeta, float* y,
           const int* pincy) {
    const int m = *pm, n = *pn;
    if (m <= 0 || n <= 0) return;
    const float alpha = *palpha, beta = *pbeta;
    if (alpha == 0.0f && beta == 1.0f) return;
    const bool nt = letter(trans) == op::n;
    const int incx = *pincx, incy = *pincy;
    if (beta != 1.0f) s_scale(nt ? m : n, beta, y, incy);
    if (alpha == 0.0f) return;
    const idx lda = *plda;
    if (nt) {
        if (incx != 1 || incy != 1) {
            s_n_strided(m, n, alpha, a, lda, x, incx, y, incy);
            return;
        }
        int j = 0;
        for (; j + 4 <= n; j += 4) s_n_block<4>(m, alpha, a + j * lda, lda, x + j, y);
        for (; j < n; ++j) s_n_block<1>(m, alpha, a + j * lda, lda, x + j, y);
        return;
    }
    const idx ix = incx, iy = incy;
    x += vec_start(m, incx);
    y += vec_start(n, incy);
    int j = 0;
    if (incx == 1) {
        for (; j + 4 <= n; j += 4)
            t_block<4, true>(m, alpha, a + j * lda, lda, x, 1, y + j * iy, iy);
        for (; j < n; ++j) t_block<1, true>(m, alpha, a + j * lda, lda, x, 1, y + j * iy, iy);
    } else {
        for (; j + 4 <= n; j += 4)
            t_block<4, false>(m, alpha, a + j * lda, lda, x, ix, y + j * iy, iy);
        for (; j < n; ++j) t_block<1, false>(m, alpha, a + j * lda, lda, x, ix, y + j * iy, iy);
    }
}

template <> void gemv<double>(const char* trans, const int* pm, const int* pn, const double* palpha, const double* a,
           const int* plda, const double* x, const int* pincx, const double* pbeta, double* y,
           const int* pincy) {
    const int m = *pm, n = *pn;
    if (m <= 0 || n <= 0) return;
    const double alpha = *palpha, beta = *pbeta;
    if (alpha == 0.0 && beta == 1.0) return;
    const bool nt = letter(trans) == op::n;
    const int incx = *pincx, incy = *pincy;
    if (beta != 1.0) d_scale(nt ? m : n, beta, y, incy);
    if (alpha == 0.0) return;
    const idx lda = *plda;
    if (nt) {
        if (incx != 1 || incy != 1) {
            d_n_strided(m, n, alpha, a, lda, x, incx, y, incy);
            return;
        }
        int j = 0;
        for (; j + 8 <= n; j += 8) d_n_block<8>(m, alpha, a + j * lda, lda, x + j, y);
        if (n - j >= 4) {
            d_n_block<4>(m, alpha, a + j * lda, lda, x + j, y);
            j += 4;
        }
        if (n - j >= 2) {
            d_n_block<2>(m, alpha, a + j * lda, lda, x + j, y);
            j += 2;
        }
        if (j < n) d_n_block<1>(m, alpha, a + j * lda, lda, x + j, y);
        return;
    }
    const idx ix = incx, iy = incy;
    x += vec_start(m, incx);
    y += vec_start(n, incy);
    int j = 0;
    if (incx == 1 && incy == 1) {
        for (; j + 4 <= n; j += 4) t_block<4, true>(m, alpha, a + j * lda, lda, x, 1, y + j, 1);
        if (n - j >= 2) {
            t_block<2, true>(m, alpha, a + j * lda, lda, x, 1, y + j, 1);
            j += 2;
        }
        if (j < n) t_block<1, true>(m, alpha, a + j * lda, lda, x, 1, y + j, 1);
    } else if (incx == 1) {
        for (; j + 4 <= n; j += 4)
            t_block<4, true>(m, alpha, a + j * lda, lda, x, 1, y + j * iy, iy);
        for (; j < n; ++j) t_block<1, true>(m, alpha, a + j * lda, lda, x, 1, y + j * iy, iy);
    } else {
        for (; j + 4 <= n; j += 4)
            t_block<4, false>(m, alpha, a + j * lda, lda, x, ix, y + j * iy, iy);
        for (; j < n; ++j) t_block<1, false>(m, alpha, a + j * lda, lda, x, ix, y + j * iy, iy);
    }
}

namespace {

template <bool CJ>
void c_t(int m, int n, float ar, float ai, const float* a, idx lda, const float* x, int incx,
         float* y, int incy) {
    const __m128 alr = _mm_set1_ps(ar), ali = _mm_set1_ps(ai);
    const idx ix = 2 * static_cast<idx>(incx), iy = 2 * static_cast<idx>(incy);
    x += 2 * vec_start(m, incx);
    y += 2 * vec_start(n, incy);
    int j = 0;
    if (incx == 1 && incy == 1) {
        for (; j + 4 <= n; j += 4)
            c_t_block<4, true, CJ>(m, alr, ali, a + j * lda, lda, x, 2, y + 2 * j, 2);
        if (n - j >= 2) {
            c_t_block<2, true, CJ>(m, alr, ali, a + j * lda, lda, x, 2, y + 2 * j, 2);
            j += 2;
        }
        if (j < n) c_t_block<1, true, CJ>(m, alr, ali, a + j * lda, lda, x, 2, y + 2 * j, 2);
    } else if (incx == 1) {
        for (; j + 2 <= n; j += 2)
            c_t_block<2, true, CJ>(m, alr, ali, a + j * lda, lda, x, 2, y + j * iy, iy);
        if (j < n) c_t_block<1, true, CJ>(m, alr, ali, a + j * lda, lda, x, 2, y + j * iy, iy);
    } else {
        for (; j + 2 <= n; j += 2)
            c_t_block<2, false, CJ>(m, alr, ali, a + j * lda, lda, x, ix, y + j * iy, iy);
        if (j < n) c_t_block<1, false, CJ>(m, alr, ali, a + j * lda, lda, x, ix, y + j * iy, iy);
    }
}

template <bool CJ>
void z_t(int m, int n, __m128d alr, __m128d ali, const double* a, idx lda, const double* x,
         int incx, double* y, int incy) {
    const idx ix = 2 * static_cast<idx>(incx), iy = 2 * static_cast<idx>(incy);
    x += 2 * vec_start(m, incx);
    y += 2 * vec_start(n, incy);
    int j = 0;
    // The conjugate goes two columns a pass on every path.
    if constexpr (!CJ) {
        if (incx == 1 && incy == 1) {
            for (; j + 4 <= n; j += 4)
                z_t_block<4, CJ>(m, alr, ali, a + j * lda, lda, x, 2, y + 2 * j, 2);
            if (n - j >= 2) {
                z_t_block<2, CJ>(m, alr, ali, a + j * lda, lda, x, 2, y + 2 * j, 2);
                j += 2;
            }
            if (j < n) z_t_block<1, CJ>(m, alr, ali, a + j * lda, lda, x, 2, y + 2 * j, 2);
            return;
        }
    }
    for (; j + 2 <= n; j += 2)
        z_t_block<2, CJ>(m, alr, ali, a + j * lda, lda, x, ix, y + j * iy, iy);
    if (j < n) z_t_block<1, CJ>(m, alr, ali, a + j * lda, lda, x, ix, y + j * iy, iy);
}

}  // namespace

template <> void gemv<c32>(const char* trans, const int* pm, const int* pn, const c32* palpha, const c32* pa,
           const int* plda, const c32* px, const int* pincx, const c32* pbeta, c32* py,
           const int* pincy) {
    const int m = *pm, n = *pn;
    if (m <= 0 || n <= 0) return;
    const float ar = palpha->re, ai = palpha->im;
    const bool azero = is_zero(*palpha);
    const bool bone = is_one(*pbeta);
    if (azero && bone) return;
    const op o = letter(trans);
    const int incx = *pincx, incy = *pincy;
    if (!bone) c_scale(o == op::n ? m : n, pbeta->re, pbeta->im, py, incy);
    if (azero) return;
    const idx lda = 2 * static_cast<idx>(*plda);
    const float* a = &pa->re;
    const float* x = &px->re;
    float* y = &py->re;
    if (o == op::n) {
        if (incx != 1 || incy != 1) {
            c_n_strided(m, n, ar, ai, a, lda, x + 2 * vec_start(n, incx),
                        2 * static_cast<idx>(incx), y + 2 * vec_start(m, incy),
                        2 * static_cast<idx>(incy));
            return;
        }
        int j = 0;
        for (; j + 4 <= n; j += 4) c_n_block<4>(m, ar, ai, a + j * lda, lda, x + 2 * j, y);
        if (n - j >= 2) {
            c_n_block<2>(m, ar, ai, a + j * lda, lda, x + 2 * j, y);
            j += 2;
        }
        if (j < n) c_n_block<1>(m, ar, ai, a + j * lda, lda, x + 2 * j, y);
        return;
    }
    if (o == op::t)
        c_t<false>(m, n, ar, ai, a, lda, x, incx, y, incy);
    else
        c_t<true>(m, n, ar, ai, a, lda, x, incx, y, incy);
}

template <> void gemv<c64>(const char* trans, const int* pm, const int* pn, const c64* palpha, const c64* pa,
           const int* plda, const c64* px, const int* pincx, const c64* pbeta, c64* py,
           const int* pincy) {
    const int m = *pm, n = *pn;
    if (m <= 0 || n <= 0) return;
    const double ar = palpha->re, ai = palpha->im;
    const bool azero = is_zero(*palpha);
    const bool bone = is_one(*pbeta);
    if (azero && bone) return;
    const op o = letter(trans);
    const int incx = *pincx, incy = *pincy;
    if (!bone) z_scale(o == op::n ? m : n, pbeta->re, pbeta->im, py, incy);
    if (azero) return;
    const idx lda = 2 * static_cast<idx>(*plda);
    const double* a = &pa->re;
    const double* x = &px->re;
    double* y = &py->re;
    const __m128d alr = _mm_set1_pd(ar), ali = _mm_set1_pd(ai);
    if (o == op::n) {
        if (incx != 1 || incy != 1) {
            z_n_strided(m, n, alr, ali, a, lda, x + 2 * vec_start(n, incx),
                        2 * static_cast<idx>(incx), y + 2 * vec_start(m, incy),
                        2 * static_cast<idx>(incy));
            return;
        }
        int j = 0;
        for (; j + 4 <= n; j += 4) z_n_block<4>(m, alr, ali, a + j * lda, lda, x + 2 * j, y);
        if (n - j >= 2) {
            z_n_block<2>(m, alr, ali, a + j * lda, lda, x + 2 * j, y);
            j += 2;
        }
        if (j < n) z_n_block<1>(m, alr, ali, a + j * lda, lda, x + 2 * j, y);
        return;
    }
    if (o == op::t)
        z_t<false>(m, n, alr, ali, a, lda, x, incx, y, incy);
    else
        z_t<true>(m, n, alr, ali, a, lda, x, incx, y, incy);
}
