// What AXPY on branches 2 (SSE2) and 3 (SSE3) shares: the zero test of
// alpha and the four-vector step of the DAXPY unit path. Included inside
// the unnamed namespace of level1/branch2/axpy.cpp and branch3/axpy.cpp.

// Zero alpha by the bit pattern, sign masked: -0 returns, NaN goes on.
inline bool zero_bits(float a) {
    uint32_t u;
    std::memcpy(&u, &a, sizeof u);
    return (u & 0x7fffffffu) == 0;
}
// The double is tested where it is loaded, in xmm: the shift drops the sign.
inline bool zero_bits(double a) {
    const __m128i b = _mm_slli_epi64(_mm_castpd_si128(_mm_set_sd(a)), 1);
    return (_mm_movemask_epi8(_mm_cmpeq_epi32(b, _mm_setzero_si128())) &
            0xff) == 0xff;
}

// Four vectors: all x loads first, then the sums, then the stores; needs
// alpha and four registers.
inline void d_vec4(const double* x, double* y, __m128d va) {
    __m128d x0 = _mm_load_pd(x), x1 = _mm_load_pd(x + 2);
    __m128d x2 = _mm_load_pd(x + 4), x3 = _mm_load_pd(x + 6);
    x0 = _mm_add_pd(_mm_load_pd(y), _mm_mul_pd(x0, va));
    x1 = _mm_add_pd(_mm_load_pd(y + 2), _mm_mul_pd(x1, va));
    x2 = _mm_add_pd(_mm_load_pd(y + 4), _mm_mul_pd(x2, va));
    x3 = _mm_add_pd(_mm_load_pd(y + 6), _mm_mul_pd(x3, va));
    _mm_store_pd(y, x0);
    _mm_store_pd(y + 2, x1);
    _mm_store_pd(y + 4, x2);
    _mm_store_pd(y + 6, x3);
}
