// GTHR, x[i] := y[indx[i]-1], and GTHRZ, which then sets y[indx[i]-1] := 0,
// for S, D, C and Z on every branch: one gather text, gather<T, Zero>.
//
// GTHRZ, and GTHR where no vector pass serves, go two elements a pass, then
// one, in ascending i; GTHRZ finishes each element (read, then zero) before
// it reads the next, so a repeated index hands its value to the first read
// and 0 to the later ones.
//
// Vector passes of GTHR assemble whole vectors of x from single reads of y
// and store them at once; x, read contiguously, is the array that gets
// peeled (the reads of y cannot be aligned):
//   branch 7  from nz >= 8, x peeled to 32 bytes: D 8 a pass then 4;
//             S 8 then 4 (128-bit); C 8 then 4
//   branch 6  as 7 without the narrower pass; S 16 a pass
//   branch 5  S only: x peeled to 16 bytes, 4 a pass
// Z moves by 128-bit loads and stores from branch 5 up, by two 64-bit
// moves on 2 to 4; registers hold at most two vectors and their parts.
#include <immintrin.h>

#include "frame/scalar.h"
#include "level1/kernels.h"
#include "simd/branch.h"

namespace zva::ZVA_NS {
namespace {

template <class T> inline void put1(T* to, const T* from) {
#if ZVA_BRANCH >= 5
    if constexpr (sizeof(T) == 16) {
        _mm_storeu_pd(reinterpret_cast<double*>(to), _mm_loadu_pd(reinterpret_cast<const double*>(from)));
        return;
    }
#endif
    *to = *from;
}

#if ZVA_BRANCH >= 5
// Two c32 of y as one 128-bit vector, by two 64-bit loads.
inline __m128 c2(const c32* y, const int* ix) {
    const __m128 lo = _mm_loadl_pi(_mm_setzero_ps(), reinterpret_cast<const __m64*>(&y[ix[0] - 1]));
    return _mm_loadh_pi(lo, reinterpret_cast<const __m64*>(&y[ix[1] - 1]));
}

inline __m128 s4(const float* y, const int* ix) {
    return _mm_setr_ps(y[ix[0] - 1], y[ix[1] - 1], y[ix[2] - 1], y[ix[3] - 1]);
}
#endif

#if ZVA_BRANCH >= 6
// Four elements of y as one 256-bit vector, stored unaligned at x (aligned
// once peeled).
inline void put4(double* x, const double* y, const int* ix) {
    _mm256_storeu_pd(x, _mm256_setr_pd(y[ix[0] - 1], y[ix[1] - 1], y[ix[2] - 1], y[ix[3] - 1]));
}
inline void put4(c32* x, const c32* y, const int* ix) {
    _mm256_storeu_ps(&x->re, _mm256_setr_m128(c2(y, ix), c2(y, ix + 2)));
}
inline void put8(float* x, const float* y, const int* ix) {
    _mm256_storeu_ps(x, _mm256_setr_m128(s4(y, ix), s4(y, ix + 4)));
}
#endif

// The vector passes of GTHR; returns the count done. nz >= 8 on entry.
template <class T> inline int gather_vectors(int nz, const T* y, T* x, const int* ix) {
    int i = 0;
#if ZVA_BRANCH >= 6
    if constexpr (sizeof(T) == 8 || sizeof(T) == 4) {
        const int peel = peel_to_32(x, sizeof(T));
        if (peel > 0) {
            for (; i < peel; ++i) x[i] = y[ix[i] - 1];
        }
        if constexpr (sizeof(T) == 4) {
            constexpr int pass = branch == 7 ? 8 : 16;
            for (; i + pass <= nz; i += pass) {
                put8(x + i, y, ix + i);
                if constexpr (pass == 16) put8(x + i + 8, y, ix + i + 8);
            }
            if constexpr (branch == 7)
                for (; i + 4 <= nz; i += 4) _mm_storeu_ps(x + i, s4(y, ix + i));
        } else {
            for (; i + 8 <= nz; i += 8) {
                put4(x + i, y, ix + i);
                put4(x + i + 4, y, ix + i + 4);
            }
            if constexpr (branch == 7)
                for (; i + 4 <= nz; i += 4) put4(x + i, y, ix + i);
        }
    }
#elif ZVA_BRANCH == 5
    if constexpr (sizeof(T) == 4) {
        const unsigned r = addr_bits(x) & 15u;
        if (r % 4 == 0)
            for (const int peel = static_cast<int>((16u - r) & 15u) / 4; i < peel; ++i) x[i] = y[ix[i] - 1];
        for (; i + 4 <= nz; i += 4) _mm_storeu_ps(x + i, s4(y, ix + i));
    }
#endif
    (void)nz, (void)y, (void)x, (void)ix;
    return i;
}

template <class T, bool Zero, class Y> inline void gather(const int* pnz, Y* y, T* x, const int* ix) {
    const int nz = *pnz;
    int i = 0;
    if constexpr (!Zero)
        if (nz >= 8) i = gather_vectors(nz, y, x, ix);
    for (; i + 2 <= nz; i += 2) {
        put1(&x[i], &y[ix[i] - 1]);
        if constexpr (Zero) y[ix[i] - 1] = T{};
        put1(&x[i + 1], &y[ix[i + 1] - 1]);
        if constexpr (Zero) y[ix[i + 1] - 1] = T{};
    }
    if (i < nz) {
        put1(&x[i], &y[ix[i] - 1]);
        if constexpr (Zero) y[ix[i] - 1] = T{};
    }
}

}  // namespace

template <class T> void gthr(const int* nz, const T* y, T* x, const int* indx) {
    gather<T, false>(nz, y, x, indx);
}
template <class T> void gthrz(const int* nz, T* y, T* x, const int* indx) {
    gather<T, true>(nz, y, x, indx);
}

ZVA_INSTANTIATE_TYPES(gthr)
ZVA_INSTANTIATE_TYPES(gthrz)

}  // namespace zva::ZVA_NS
