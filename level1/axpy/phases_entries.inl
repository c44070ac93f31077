// The S and D entries of branches 4 and 5, after level1/axpy/phases.inl and
// the branch's d_unit; included at namespace scope of the branch.
template <> void axpy<float>(const int* pn, const float* palpha, const float* x, const int* pincx, float* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const float a = *palpha;
    if (a == 0.0f) return;  // either sign; NaN goes on
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1 && ((addr_bits(x) | addr_bits(y)) & 3u) == 0) {
        s_unit(n, a, x, y);
        return;
    }
    // Each element is stored before the next is read: incy = 0 accumulates
    // every product into one element in order.
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k, x += incx, y += incy) s_one(a, x, y);
}

template <> void axpy<double>(const int* pn, const double* palpha, const double* x, const int* pincx, double* y,
           const int* pincy) {
    const int n = *pn;
    if (n <= 0) return;
    const double a = *palpha;
    if (a == 0.0) return;
    const int incx = *pincx, incy = *pincy;
    if (incx == 1 && incy == 1 && ((addr_bits(x) | addr_bits(y)) & 7u) == 0) {
        d_unit(n, a, x, y);
        return;
    }
    x += vec_start(n, incx);
    y += vec_start(n, incy);
    for (int k = 0; k < n; ++k, x += incx, y += incy) d_one(a, x, y);
}
