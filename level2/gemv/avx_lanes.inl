// Loads, stores, broadcasts and lane moves of the 256-bit branches (6 and
// 7) for the GEMV kernels. Included inside the namespace of a branch, after
// its arithmetic primitives; no include guard.
// Whole vectors (LV) and single elements (LS) are the branch's lane kinds;
// the 128-bit steps (LH) and the moves the lane kinds spell differently
// follow them.
template <class T> ZI auto ld(LV, const T* p) { return lanev<T>::load(p); }
template <class T> ZI void st(LV, T* p, typename lanev<T>::v v) { lanev<T>::store(p, v); }
template <class T> ZI auto ld(LS, const T* p) { return lane1<T>::load(p); }
template <class T> ZI void st(LS, T* p, typename lane1<T>::v v) { lane1<T>::store(p, v); }
template <class T> ZI auto bc(LS, const T* p) { return lane1<T>::bcast(p); }
template <class T> ZI auto bre(LS, const T* p) { return lane1<T>::bre(p); }
template <class T> ZI auto bim(LS, const T* p) { return lane1<T>::bim(p); }

// ---- real loads, stores, broadcasts ----------------------------------------

ZI __m128d ld(LH, const double* p) { return _mm_loadu_pd(p); }
ZI __m128 ld(LH, const float* p) {
    return _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
}

ZI void st(LH, double* p, __m128d v) { _mm_storeu_pd(p, v); }
ZI void st(LH, float* p, __m128 v) { _mm_storel_pi(reinterpret_cast<__m64*>(p), v); }

ZI __m256d bc(LV, const double* p) { return _mm256_set1_pd(*p); }
ZI __m256 bc(LV, const float* p) { return _mm256_set1_ps(*p); }
ZI __m128d bc(LH, const double* p) { return _mm_set1_pd(*p); }
ZI __m128 bc(LH, const float* p) { return _mm_set1_ps(*p); }

// t + lane 0 + lane 1 + ..., in lane order.
ZI double lanesum(double t, __m128d v) {
    t += _mm_cvtsd_f64(v);
    return t + _mm_cvtsd_f64(_mm_unpackhi_pd(v, v));
}
ZI double lanesum(double t, __m256d v) {
    t = lanesum(t, _mm256_castpd256_pd128(v));
    return lanesum(t, _mm256_extractf128_pd(v, 1));
}
ZI float lanesum(float t, __m128 v) {  // the low two lanes (an LH value)
    t += _mm_cvtss_f32(v);
    return t + _mm_cvtss_f32(_mm_movehdup_ps(v));
}
ZI float lanesum4(float t, __m128 v) {
    t = lanesum(t, v);
    return lanesum(t, _mm_movehl_ps(v, v));
}
ZI float lanesum(float t, __m256 v) {
    t = lanesum4(t, _mm256_castps256_ps128(v));
    return lanesum4(t, _mm256_extractf128_ps(v, 1));
}

// ---- complex loads, stores, broadcasts, products ---------------------------

ZI __m128 ld(LH, const c32* p) { return _mm_loadu_ps(&p->re); }
ZI __m128d ld(LH, const c64* p) { return _mm_loadu_pd(&p->re); }

ZI void st(LH, c32* p, __m128 v) { _mm_storeu_ps(&p->re, v); }
// movlps, where the single lane kind stores by movq.
ZI void st(LS, c32* p, __m128 v) { _mm_storel_pi(reinterpret_cast<__m64*>(p), v); }
ZI void st(LH, c64* p, __m128d v) { _mm_storeu_pd(&p->re, v); }

// Real and imaginary part of *p in every lane.
ZI __m256 bre(LV, const c32* p) { return _mm256_set1_ps(p->re); }
ZI __m256 bim(LV, const c32* p) { return _mm256_set1_ps(p->im); }
ZI __m128 bre(LH, const c32* p) { return _mm_set1_ps(p->re); }
ZI __m128 bim(LH, const c32* p) { return _mm_set1_ps(p->im); }
ZI __m256d bre(LV, const c64* p) { return _mm256_set1_pd(p->re); }
ZI __m256d bim(LV, const c64* p) { return _mm256_set1_pd(p->im); }
ZI __m128d bre(LH, const c64* p) { return _mm_set1_pd(p->re); }
ZI __m128d bim(LH, const c64* p) { return _mm_set1_pd(p->im); }

// Pairs swapped: (re, im) -> (im, re).
ZI __m256 swp(__m256 v) { return _mm256_permute_ps(v, 0xB1); }
ZI __m128 swp(__m128 v) { return _mm_permute_ps(v, 0xB1); }
ZI __m256d swp(__m256d v) { return _mm256_permute_pd(v, 5); }
ZI __m128d swp(__m128d v) { return _mm_permute_pd(v, 1); }

// Real / imaginary part of each pair duplicated over the pair.
ZI __m256 dre(__m256 v) { return _mm256_moveldup_ps(v); }
ZI __m256 dim(__m256 v) { return _mm256_movehdup_ps(v); }
ZI __m128 dre(__m128 v) { return _mm_moveldup_ps(v); }
ZI __m128 dim(__m128 v) { return _mm_movehdup_ps(v); }
ZI __m256d dre(__m256d v) { return _mm256_movedup_pd(v); }
ZI __m256d dim(__m256d v) { return _mm256_permute_pd(v, 15); }
ZI __m128d dre(__m128d v) { return _mm_movedup_pd(v); }
ZI __m128d dim(__m128d v) { return _mm_permute_pd(v, 3); }

ZI __m256 neg(__m256 v) { return _mm256_xor_ps(v, _mm256_set1_ps(-0.0f)); }
ZI __m128 neg(__m128 v) { return _mm_xor_ps(v, _mm_set1_ps(-0.0f)); }
ZI __m256d neg(__m256d v) { return _mm256_xor_pd(v, _mm256_set1_pd(-0.0)); }
ZI __m128d neg(__m128d v) { return _mm_xor_pd(v, _mm_set1_pd(-0.0)); }

// Imaginary parts negated.
ZI __m128 conj(__m128 v) { return _mm_xor_ps(v, _mm_setr_ps(0.0f, -0.0f, 0.0f, -0.0f)); }
ZI __m128d conj(__m128d v) { return _mm_xor_pd(v, _mm_setr_pd(0.0, -0.0)); }

