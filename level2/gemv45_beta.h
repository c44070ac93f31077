// GEMV helpers of branches 4 and 5: y = beta*y for complex elements.
// Included inside the namespace of branch 4 and of branch 5, after that
// branch's own primitives, which is where the two branches differ; they
// share this text. No include guard.
// y = y*beta for one complex element, the lanes of c_mul(y, br, bi).
inline void c_scale_one(float* y, float br, float bi) {
    const float yr = y[0], yi = y[1];
    y[0] = yr * br - yi * bi;
    y[1] = yi * br + yr * bi;
}

void c_scale(int len, float br, float bi, c32* yc, int incy) {
    float* y = &yc->re;
    if (br == 0.0f && bi == 0.0f) {
        if (incy == 1) {
            if (len >= 13) {
                std::memset(y, 0, static_cast<size_t>(len) * sizeof(c32));
                return;
            }
            for (int i = 0; i < 2 * len; ++i) y[i] = 0.0f;
            return;
        }
        const idx inc = 2 * static_cast<idx>(incy);
        y += 2 * vec_start(len, incy);
        int i = 0;
        for (; i + 8 <= len; i += 8, y += 8 * inc) {
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k) store_pair(y + k * inc, _mm_setzero_ps());
        }
        for (; i < len; ++i, y += inc) store_pair(y, _mm_setzero_ps());
        return;
    }
    if (incy == 1) {
        int i = 0;
        if (len >= 16) {
            if ((addr_bits(y) & 7u) == 0 && (addr_bits(y) & 8u) != 0) {
                c_scale_one(y, br, bi);
                i = 1;
            }
            const __m128 r = _mm_set1_ps(br), s = _mm_set1_ps(bi);
            for (; i + 16 <= len; i += 16) {
#pragma GCC unroll 8
                for (int v = 0; v < 32; v += 4)
                    _mm_storeu_ps(y + 2 * i + v, c_mul(_mm_loadu_ps(y + 2 * i + v), r, s));
            }
            for (; i + 4 <= len; i += 4) {
                _mm_storeu_ps(y + 2 * i, c_mul(_mm_loadu_ps(y + 2 * i), r, s));
                _mm_storeu_ps(y + 2 * i + 4, c_mul(_mm_loadu_ps(y + 2 * i + 4), r, s));
            }
        }
        for (; i < len; ++i) c_scale_one(y + 2 * i, br, bi);
        return;
    }
    const idx inc = 2 * static_cast<idx>(incy);
    y += 2 * vec_start(len, incy);
    int i = 0;
    for (; i + 2 <= len; i += 2, y += 2 * inc) {
        c_scale_one(y, br, bi);
        c_scale_one(y + inc, br, bi);
    }
    if (i < len) c_scale_one(y, br, bi);
}
