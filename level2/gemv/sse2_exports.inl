// The GEMV kernels that branches 2 and 3 export to their dispatch tables.
// Included in the namespace of branch 2 and of branch 3, after that
// branch's own primitives: the two branches differ only in a few loads and
// in the complex dot kernel, and share this text. No include guard.

// ============================================================================
// Kernels
// ============================================================================

template <> void gemv<float>(const char* trans, const int* m_, const int* n_, const float* alpha,
           const float* a, const int* lda_, const float* x, const int* incx_,
           const float* beta, float* y, const int* incy_) {
    const int m = *m_, n = *n_;
    if (m <= 0 || n <= 0) return;
    const float al = *alpha, be = *beta;
    if (al == 0.0f && be == 1.0f) return;
    const bool notrans = op_of(trans, false) == OP_N;
    const int lda = *lda_, incx = *incx_, incy = *incy_;
    const int lenx = notrans ? n : m, leny = notrans ? m : n;
    y = first_used(y, leny, incy);
    if (be != 1.0f) s_scale(leny, be, y, incy);
    if (al == 0.0f) return;
    if (incx == 1 && incy == 1) {
        if (notrans)
            s_n_unit(m, n, al, a, lda, x, y);
        else
            s_t<true>(m, n, al, a, lda, sx_unit{x}, y, 1);
        return;
    }
    x = first_used(x, lenx, incx);
    if (notrans)
        s_n_step(m, n, al, a, lda, x, incx, y, incy);
    else
        s_t<false>(m, n, al, a, lda, sx_step{x, incx}, y, incy);
}

template <> void gemv<double>(const char* trans, const int* m_, const int* n_, const double* alpha,
           const double* a, const int* lda_, const double* x, const int* incx_,
           const double* beta, double* y, const int* incy_) {
    const int m = *m_, n = *n_;
    if (m <= 0 || n <= 0) return;
    const double al = *alpha, be = *beta;
    if (al == 0.0 && be == 1.0) return;
    const bool notrans = op_of(trans, false) == OP_N;
    const int lda = *lda_, incx = *incx_, incy = *incy_;
    const int lenx = notrans ? n : m, leny = notrans ? m : n;
    y = first_used(y, leny, incy);
    if (be != 1.0) d_scale(leny, be, y, incy);
    if (al == 0.0) return;
    if (incx == 1 && incy == 1) {
        if (notrans)
            d_n_unit(m, n, al, a, lda, x, y);
        else
            d_t<true>(m, n, al, a, lda, dx_unit{x}, y, 1);
        return;
    }
    x = first_used(x, lenx, incx);
    if (notrans)
        d_n_step(m, n, al, a, lda, x, incx, y, incy);
    else
        d_t<false>(m, n, al, a, lda, dx_step{x, incx}, y, incy);
}

template <> void gemv<c32>(const char* trans, const int* m_, const int* n_, const c32* alpha,
           const c32* a, const int* lda_, const c32* x, const int* incx_,
           const c32* beta, c32* y, const int* incy_) {
    const int m = *m_, n = *n_;
    if (m <= 0 || n <= 0) return;
    const bool a0 = alpha->re == 0.0f && alpha->im == 0.0f;
    const bool b1 = beta->re == 1.0f && beta->im == 0.0f;
    if (a0 && b1) return;
    const op_kind op = op_of(trans, true);
    const int lda = *lda_, incx = *incx_, incy = *incy_;
    const int lenx = op == OP_N ? n : m, leny = op == OP_N ? m : n;
    y = first_used(y, leny, incy);
    if (!b1) c_scale(leny, beta, y, incy);
    if (a0) return;
    if (incx == 1 && incy == 1) {
        if (op == OP_N)
            c_n<true>(m, n, alpha, a, lda, x, 1, y, 1);
        else if (op == OP_T)
            c_t<false, true>(m, n, alpha, a, lda, x, 1, y, 1);
        else
            c_t<true, true>(m, n, alpha, a, lda, x, 1, y, 1);
        return;
    }
    x = first_used(x, lenx, incx);
    if (op == OP_N)
        c_n<false>(m, n, alpha, a, lda, x, incx, y, incy);
    else if (op == OP_T)
        c_t<false, false>(m, n, alpha, a, lda, x, incx, y, incy);
    else
        c_t<true, false>(m, n, alpha, a, lda, x, incx, y, incy);
}

template <> void gemv<c64>(const char* trans, const int* m_, const int* n_, const c64* alpha,
           const c64* a, const int* lda_, const c64* x, const int* incx_,
           const c64* beta, c64* y, const int* incy_) {
    const int m = *m_, n = *n_;
    if (m <= 0 || n <= 0) return;
    const bool a0 = alpha->re == 0.0 && alpha->im == 0.0;
    const bool b1 = beta->re == 1.0 && beta->im == 0.0;
    if (a0 && b1) return;
    const op_kind op = op_of(trans, true);
    const int lda = *lda_, incx = *incx_, incy = *incy_;
    const int lenx = op == OP_N ? n : m, leny = op == OP_N ? m : n;
    y = first_used(y, leny, incy);
    if (!b1) z_scale(leny, beta, y, incy);
    if (a0) return;
    if (incx == 1 && incy == 1) {
        if (op == OP_N)
            z_n_unit(m, n, alpha, a, lda, x, y);
        else if (op == OP_T)
            z_t<false, true>(m, n, alpha, a, lda, x, 1, y, 1);
        else
            z_t<true, true>(m, n, alpha, a, lda, x, 1, y, 1);
        return;
    }
    x = first_used(x, lenx, incx);
    if (op == OP_N)
        z_n_step(m, n, alpha, a, lda, x, incx, y, incy);
    else if (op == OP_T)
        z_t<false, false>(m, n, alpha, a, lda, x, incx, y, incy);
    else
        z_t<true, false>(m, n, alpha, a, lda, x, incx, y, incy);
}

