// GEMV helpers of branches 4 and 5: loads and stores of element pairs.
// Included inside the namespace of branch 4 and of branch 5, after that
// branch's own primitives, which is where the two branches differ; they
// share this text. No include guard.
inline __m128 load_pair(const float* p) {
    return _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(p));
}
inline void store_pair(float* p, __m128 v) {
    _mm_storel_pi(reinterpret_cast<__m64*>(p), v);
}

// ------------------------------------------------------------ beta scaling
// Called only when beta is not exactly 1. beta 0 stores zeros without
// reading y, so NaNs there go away.

void s_scale(int len, float beta, float* y, int incy) {
    if (incy == 1) {
        if (beta == 0.0f) {
            if (len >= 25) {
                std::memset(y, 0, static_cast<size_t>(len) * sizeof(float));
                return;
            }
            for (int i = 0; i < len; ++i) y[i] = 0.0f;
            return;
        }
        int i = 0;
        if (len >= 16) {
            if ((addr_bits(y) & 3u) == 0)
                for (; (addr_bits(y + i) & 15u) != 0; ++i) y[i] = beta * y[i];
            const __m128 b = _mm_set1_ps(beta);
            for (; i + 16 <= len; i += 16) {
#pragma GCC unroll 4
                for (int v = 0; v < 16; v += 4)
                    _mm_storeu_ps(y + i + v, _mm_mul_ps(b, _mm_loadu_ps(y + i + v)));
            }
            for (; i + 4 <= len; i += 4) _mm_storeu_ps(y + i, _mm_mul_ps(b, _mm_loadu_ps(y + i)));
        }
        for (; i < len; ++i) y[i] = beta * y[i];
        return;
    }
    const idx inc = incy;
    y += vec_start(len, incy);
    int i = 0;
    if (beta == 0.0f) {
        for (; i + 8 <= len; i += 8, y += 8 * inc) {
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k) y[k * inc] = 0.0f;
        }
        for (; i < len; ++i, y += inc) *y = 0.0f;
        return;
    }
    for (; i + 2 <= len; i += 2, y += 2 * inc) {
        y[0] = beta * y[0];
        y[inc] = beta * y[inc];
    }
    if (i < len) *y = beta * *y;
}
