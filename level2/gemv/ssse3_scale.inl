// y := beta*y in the GEMV kernels of branches 4 and 5, for every type.
// Called only when beta is not exactly 1; beta 0 stores zeros without
// reading y, so NaNs there go away. Included by
// ssse3.inl inside the branch namespace; no include guard.

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

void d_scale(int len, double beta, double* y, int incy) {
    if (incy == 1) {
        if (beta == 0.0) {
            if (len >= 13) {
                std::memset(y, 0, static_cast<size_t>(len) * sizeof(double));
                return;
            }
            // At most twelve: one pass of eight, then single stores, spelled
            // out so that the compiler does not turn them into a call.
            if (len >= 8) {
                const __m128d z = _mm_setzero_pd();
                st2<false>(y, z);
                st2<false>(y + 2, z);
                st2<false>(y + 4, z);
                st2<false>(y + 6, z);
                y += 8;
                len -= 8;
            }
            switch (len) {
                case 7: y[6] = 0.0; [[fallthrough]];
                case 6: y[5] = 0.0; [[fallthrough]];
                case 5: y[4] = 0.0; [[fallthrough]];
                case 4: y[3] = 0.0; [[fallthrough]];
                case 3: y[2] = 0.0; [[fallthrough]];
                case 2: y[1] = 0.0; [[fallthrough]];
                case 1: y[0] = 0.0; [[fallthrough]];
                default: break;
            }
            return;
        }
        int i = 0;
        if (len >= 16) {
            const __m128d b = _mm_set1_pd(beta);
            auto run = [&]<bool AL>() {
                for (; i + 16 <= len; i += 16) {
#pragma GCC unroll 8
                    for (int v = 0; v < 16; v += 2)
                        st2<AL>(y + i + v, _mm_mul_pd(b, ld2<AL>(y + i + v)));
                }
                for (; i + 4 <= len; i += 4) {
                    st2<AL>(y + i, _mm_mul_pd(b, ld2<AL>(y + i)));
                    st2<AL>(y + i + 2, _mm_mul_pd(b, ld2<AL>(y + i + 2)));
                }
            };
            // Peeled to the boundary, y takes whole vectors in branch 4 too.
            const bool el = (addr_bits(y) & 7u) == 0;
            if (el && (addr_bits(y) & 8u) != 0) {
                y[0] = beta * y[0];
                i = 1;
            }
            if (halves && el)
                run.template operator()<halves>();
            else
                run.template operator()<false>();
        }
        for (; i < len; ++i) y[i] = beta * y[i];
        return;
    }
    const idx inc = incy;
    y += vec_start(len, incy);
    int i = 0;
    if (beta == 0.0) {
        for (; i + 8 <= len; i += 8, y += 8 * inc) {
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k) y[k * inc] = 0.0;
        }
        for (; i < len; ++i, y += inc) *y = 0.0;
        return;
    }
    for (; i + 2 <= len; i += 2, y += 2 * inc) {
        y[0] = beta * y[0];
        y[inc] = beta * y[inc];
    }
    if (i < len) *y = beta * *y;
}


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

void z_scale(int len, double br, double bi, c64* yc, int incy) {
    double* y = &yc->re;
    if (br == 0.0 && bi == 0.0) {
        const __m128d z = _mm_setzero_pd();
        if (incy == 1) {
            if (len >= 7) {
                std::memset(y, 0, static_cast<size_t>(len) * sizeof(c64));
                return;
            }
            for (int i = 0; i < len; ++i) st2<false>(y + 2 * i, z);
            return;
        }
        const idx inc = 2 * static_cast<idx>(incy);
        y += 2 * vec_start(len, incy);
        int i = 0;
        for (; i + 8 <= len; i += 8, y += 8 * inc) {
#pragma GCC unroll 8
            for (int k = 0; k < 8; ++k) st2<false>(y + k * inc, z);
        }
        for (; i < len; ++i, y += inc) st2<false>(y, z);
        return;
    }
    // Every element has the alignment of the first: in branch 4 one copy of
    // the loops for aligned y, one with half loads.
    auto run = [&]<bool AL>() {
        const __m128d r = _mm_set1_pd(br), s = _mm_set1_pd(bi);
        auto one = [&](double* p) { st2<AL>(p, z_mul(ld2<AL>(p), r, s)); };
        if (incy == 1) {
            // An element is a whole vector: there is nothing to peel.
            int i = 0;
            if (len >= 16) {
                for (; i + 16 <= len; i += 16) {
#pragma GCC unroll 16
                    for (int v = 0; v < 16; ++v) one(y + 2 * (i + v));
                }
                for (; i + 4 <= len; i += 4) {
#pragma GCC unroll 4
                    for (int v = 0; v < 4; ++v) one(y + 2 * (i + v));
                }
            }
            for (; i < len; ++i) one(y + 2 * i);
            return;
        }
        const idx inc = 2 * static_cast<idx>(incy);
        double* p = y + 2 * vec_start(len, incy);
        int i = 0;
        for (; i + 2 <= len; i += 2, p += 2 * inc) {
            one(p);
            one(p + inc);
        }
        if (i < len) one(p);
    };
    if (halves && (addr_bits(y) & 15u) == 0)
        run.template operator()<halves>();
    else
        run.template operator()<false>();
}
