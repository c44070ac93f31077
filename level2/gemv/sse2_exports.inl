// The GEMV kernels that branches 2 and 3 export to their dispatch tables.
// Included by sse2.inl inside the branch namespace, after the family's
// kernels; no include guard.

// ============================================================================
// Kernels
// ============================================================================

// S and D share the prologue and the choice of path; the kernels are the
// type's own.
template <class T>
GEMV_INLINE void real_gemv(const char* trans, const int* m_, const int* n_, const T* alpha,
                           const T* a, const int* lda_, const T* x, const int* incx_,
                           const T* beta, T* y, const int* incy_) {
    constexpr bool S = sizeof(T) == 4;
    const int m = *m_, n = *n_;
    if (m <= 0 || n <= 0) return;
    const T al = *alpha, be = *beta;
    if (al == T(0) && be == T(1)) return;
    const bool notrans = op_of(trans, false) == OP_N;
    const int lda = *lda_, incx = *incx_, incy = *incy_;
    const int lenx = notrans ? n : m, leny = notrans ? m : n;
    y = first_used(y, leny, incy);
    if (be != T(1)) {
        if constexpr (S) s_scale(leny, be, y, incy);
        else d_scale(leny, be, y, incy);
    }
    if (al == T(0)) return;
    if (incx == 1 && incy == 1) {
        if (notrans) {
            if constexpr (S) s_n_unit(m, n, al, a, lda, x, y);
            else d_n_unit(m, n, al, a, lda, x, y);
        } else {
            if constexpr (S) s_t<true>(m, n, al, a, lda, sx_unit{x}, y, 1);
            else d_t<true>(m, n, al, a, lda, dx_unit{x}, y, 1);
        }
        return;
    }
    x = first_used(x, lenx, incx);
    if (notrans) {
        if constexpr (S) s_n_step(m, n, al, a, lda, x, incx, y, incy);
        else d_n_step(m, n, al, a, lda, x, incx, y, incy);
    } else {
        if constexpr (S) s_t<false>(m, n, al, a, lda, sx_step{x, incx}, y, incy);
        else d_t<false>(m, n, al, a, lda, dx_step{x, incx}, y, incy);
    }
}

template <> void gemv<float>(const char* trans, const int* m, const int* n, const float* alpha,
                             const float* a, const int* lda, const float* x, const int* incx,
                             const float* beta, float* y, const int* incy) {
    real_gemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

template <> void gemv<double>(const char* trans, const int* m, const int* n, const double* alpha,
                              const double* a, const int* lda, const double* x, const int* incx,
                              const double* beta, double* y, const int* incy) {
    real_gemv(trans, m, n, alpha, a, lda, x, incx, beta, y, incy);
}

template <> void gemv<c32>(const char* trans, const int* m_, const int* n_, const c32* alpha,
           const c32* a, const int* lda_, const c32* x, const int* incx_,
           const c32* beta, c32* y, const int* incy_) {
    const int m = *m_, n = *n_;
    if (m <= 0 || n <= 0) return;
    const bool a0 = is_zero(*alpha);
    const bool b1 = is_one(*beta);
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
    const bool a0 = is_zero(*alpha);
    const bool b1 = is_one(*beta);
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

