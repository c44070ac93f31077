// One complex multiply-add s + a*b, shared by AXPYI (s = y, a = alpha,
// b = x) and the complex dots (s = sum, a = x, b = y), in the order of this
// branch's CAXPY and CDOTU:
//   branches 2, 4, 5  (s_re + a_re*b_re) - a_im*b_im, (s_im + a_re*b_im) + a_im*b_re
//   branches 3, 6     s + addsub(a_re*b, a_im*swap(b)), every product rounded
//   branch 7          s + fmaddsub(a_re, b, a_im*swap(b))
// The 128-bit forms hold a c32 in both halves, so that no lane computes on
// a zero that could meet an infinity.
namespace zva::ZVA_NS {
namespace {

#if ZVA_BRANCH == 2 || ZVA_BRANCH == 4 || ZVA_BRANCH == 5
template <class C> inline C cmadd(C s, C a, C b) {
    return {(s.re + a.re * b.re) - a.im * b.im, (s.im + a.re * b.im) + a.im * b.re};
}
#else
inline __m128d cprod(__m128d ar, __m128d ai, __m128d b) {
    const __m128d t = _mm_mul_pd(ai, _mm_shuffle_pd(b, b, 1));
#if ZVA_BRANCH == 7
    return _mm_fmaddsub_pd(ar, b, t);
#else
    return _mm_addsub_pd(_mm_mul_pd(ar, b), t);
#endif
}

inline __m128 cprod(__m128 ar, __m128 ai, __m128 b) {
    const __m128 t = _mm_mul_ps(ai, _mm_shuffle_ps(b, b, 0xB1));
#if ZVA_BRANCH == 7
    return _mm_fmaddsub_ps(ar, b, t);
#else
    return _mm_addsub_ps(_mm_mul_ps(ar, b), t);
#endif
}

inline c64 cmadd(c64 s, c64 a, c64 b) {
    const __m128d r = _mm_add_pd(_mm_setr_pd(s.re, s.im),
                                 cprod(_mm_set1_pd(a.re), _mm_set1_pd(a.im), _mm_setr_pd(b.re, b.im)));
    c64 out;
    _mm_storeu_pd(&out.re, r);
    return out;
}

inline c32 cmadd(c32 s, c32 a, c32 b) {
    const __m128 r = _mm_add_ps(_mm_setr_ps(s.re, s.im, s.re, s.im),
                                cprod(_mm_set1_ps(a.re), _mm_set1_ps(a.im),
                                      _mm_setr_ps(b.re, b.im, b.re, b.im)));
    c32 out;
    _mm_storel_pi(reinterpret_cast<__m64*>(&out), r);
    return out;
}
#endif

template <class C> inline C conj_of(C a) { return {a.re, -a.im}; }

}  // namespace
}  // namespace zva::ZVA_NS
