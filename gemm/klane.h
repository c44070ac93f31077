// The S and C engines of branches 3 and 2: fixed blocks, no record, and C
// staged. Both branches run these kernels instruction for instruction.
//
// The sums do not go to C in place but to a staged copy of a block of it
// (512 rows by nb columns), laid out in groups of rows (16 in S, 8 in C)
// whose elements sit next to each other for each column, so that kernels
// read and write aligned vectors whatever ldc is. C is read once and
// written once per block, whatever k is: the nest is columns, rows, k.
//
// k-lane kernels: A in sets of 4 rows (S) or 2 rows (C), 4 steps of k per
// vector; lane l of an accumulator sums the steps with k = l mod 4, and the
// lanes are joined as (lane 0 + lane 2) + (lane 1 + lane 3) before the sum
// goes into the staged C. In C all products ar*br of a kernel call come
// first, then all ai*bi are taken off. Chunks of 64 steps run upward; of
// what is left of k, the multiple of 16 goes through the kernels of 48, 32
// or 16 steps and the rest, with the rows beyond the kernels, through a
// plain loop.
#pragma once
#include <emmintrin.h>
#include <stdint.h>

#include "frame/cpu.h"
#include "gemm/bstage.h"

namespace zva::gemm_klane {
namespace {

using namespace gemm_bstage;

constexpr int kq = 64;          // steps of k per chunk
constexpr int row_block = 512;  // rows of a staged block

// S: groups of 16 rows, sets of 4; C: groups of 8 rows, sets of 2, each
// row taking a real and an imaginary vector. Either way a set fills 16
// reals per 4 steps and a column of a group 16 reals of the staged C.
template <class T> struct shape;
template <> struct shape<float> {
    static constexpr int group = 16, set = 4, cw = 1, b_col = 64;
    static constexpr char tag[] = "xsgemm";
};
template <> struct shape<c32> {
    static constexpr int group = 8, set = 2, cw = 2, b_col = 128;
    static constexpr char tag[] = "xcgemm";
};

inline float re_of(float x) { return x; }
inline float im_of(float) { return 0; }
inline float re_of(const c32& x) { return x.re; }
inline float im_of(const c32& x) { return x.im; }

// x*y, and x*y in the order of a complex multiply.
inline void mul(float ar, float ai, float br, float bi, float* r, float* i, bool cplx) {
    *r = cplx ? ar * br - ai * bi : ar * br;
    *i = cplx ? ar * bi + ai * br : 0;
}

// Join the lanes of four accumulators: (l0 + l2) + (l1 + l3) each, as one
// vector of four sums.
inline __m128 join(__m128 a0, __m128 a1, __m128 a2, __m128 a3) {
    _MM_TRANSPOSE4_PS(a0, a1, a2, a3);
    return _mm_add_ps(_mm_add_ps(a0, a2), _mm_add_ps(a1, a3));
}

// Sets `Sets` of A against `cols` columns of B over KC steps, into the
// staged C (16 reals per column of a group, 4 per set).
template <int Sets, int KC>
void kernel_s(int cols, const float* a, const float* b, float* sc) {
    for (int j = 0; j < cols; ++j) {
        const float* bj = b + (long)j * 64;
        for (int s = 0; s < Sets; ++s) {
            const float* as = a + s * 4 * KC;
            __m128 acc0 = _mm_setzero_ps(), acc1 = _mm_setzero_ps();
            __m128 acc2 = _mm_setzero_ps(), acc3 = _mm_setzero_ps();
#pragma GCC unroll 16
            for (int q = 0; q < KC / 4; ++q) {
                const __m128 x = _mm_load_ps(bj + 4 * q);
                acc0 = _mm_add_ps(acc0, _mm_mul_ps(_mm_load_ps(as + 16 * q), x));
                acc1 = _mm_add_ps(acc1, _mm_mul_ps(_mm_load_ps(as + 16 * q + 4), x));
                acc2 = _mm_add_ps(acc2, _mm_mul_ps(_mm_load_ps(as + 16 * q + 8), x));
                acc3 = _mm_add_ps(acc3, _mm_mul_ps(_mm_load_ps(as + 16 * q + 12), x));
            }
            float* c = sc + (long)j * 16 + 4 * s;
            _mm_store_ps(c, _mm_add_ps(_mm_load_ps(c), join(acc0, acc1, acc2, acc3)));
        }
    }
}

template <int Sets, int KC>
void kernel_c(int cols, const float* a, const float* b, float* sc) {
    for (int j = 0; j < cols; ++j) {
        const float* bj = b + (long)j * 128;
        for (int s = 0; s < Sets; ++s) {
            const float* as = a + s * 4 * KC;
            __m128 re0 = _mm_setzero_ps(), im0 = _mm_setzero_ps();
            __m128 re1 = _mm_setzero_ps(), im1 = _mm_setzero_ps();
#pragma GCC unroll 16
            for (int q = 0; q < KC / 4; ++q) {
                const __m128 br = _mm_load_ps(bj + 8 * q);
                re0 = _mm_add_ps(re0, _mm_mul_ps(_mm_load_ps(as + 16 * q), br));
                im0 = _mm_add_ps(im0, _mm_mul_ps(_mm_load_ps(as + 16 * q + 4), br));
                re1 = _mm_add_ps(re1, _mm_mul_ps(_mm_load_ps(as + 16 * q + 8), br));
                im1 = _mm_add_ps(im1, _mm_mul_ps(_mm_load_ps(as + 16 * q + 12), br));
            }
#pragma GCC unroll 16
            for (int q = 0; q < KC / 4; ++q) {
                const __m128 bi = _mm_load_ps(bj + 8 * q + 4);
                im0 = _mm_add_ps(im0, _mm_mul_ps(_mm_load_ps(as + 16 * q), bi));
                re0 = _mm_sub_ps(re0, _mm_mul_ps(_mm_load_ps(as + 16 * q + 4), bi));
                im1 = _mm_add_ps(im1, _mm_mul_ps(_mm_load_ps(as + 16 * q + 8), bi));
                re1 = _mm_sub_ps(re1, _mm_mul_ps(_mm_load_ps(as + 16 * q + 12), bi));
            }
            float* c = sc + (long)j * 16 + 4 * s;
            _mm_store_ps(c, _mm_add_ps(_mm_load_ps(c), join(re0, im0, re1, im1)));
        }
    }
}

template <class T, int Sets, int KC> void kernel(int cols, const float* a, const float* b, float* sc) {
    if constexpr (shape<T>::cw == 1) kernel_s<Sets, KC>(cols, a, b, sc);
    else kernel_c<Sets, KC>(cols, a, b, sc);
}

// The call as the engine sees it.
template <class T> struct call {
    bool nota, notb, conja, conjb;
    const T* a;
    int lda;
    const T* b;
    int ldb;
    T alpha;
    T A(int i, int l) const {
        T x = a[nota ? i + (long)l * lda : l + (long)i * lda];
        if constexpr (shape<T>::cw == 2) if (conja) x.im = -x.im;
        return x;
    }
    T B(int l, int j) const {
        T x = b[notb ? l + (long)j * ldb : j + (long)l * ldb];
        if constexpr (shape<T>::cw == 2) if (conjb) x.im = -x.im;
        return x;
    }
    // alpha*A(i, l), rounded as the packed A holds it.
    void scaled_a(int i, int l, float* r, float* im) const {
        const T x = A(i, l);
        mul(re_of(alpha), im_of(alpha), re_of(x), im_of(x), r, im, shape<T>::cw == 2);
    }
};

// A of `sets` sets of rows i0.. over steps l0 .. l0+kc-1 (kc a multiple of 4).
template <class T>
void pack_a(const call<T>& cl, int i0, int sets, int l0, int kc, float* dst) {
    constexpr int per = shape<T>::set, cw = shape<T>::cw;
    for (int s = 0; s < sets; ++s)
        for (int r = 0; r < per; ++r)
            for (int l = 0; l < kc; ++l) {
                float* d = dst + s * 4 * kc + (l / 4) * 16 + r * 4 * cw + l % 4;
                float re, im;
                cl.scaled_a(i0 + s * per + r, l0 + l, &re, &im);
                d[0] = re;
                if (cw == 2) d[4] = im;
            }
}

// B over steps l0 .. l0+kc-1, columns j0 .. j0+cols-1, a column every
// 64 elements.
template <class T>
void pack_b(const call<T>& cl, int j0, int cols, int l0, int kc, float* dst) {
    constexpr int cw = shape<T>::cw;
    for (int j = 0; j < cols; ++j)
        for (int l = 0; l < kc; ++l) {
            const T x = cl.B(l0 + l, j0 + j);
            float* d = dst + (long)j * shape<T>::b_col;
            if (cw == 1) {
                d[l] = re_of(x);
            } else {
                d[(l / 4) * 8 + l % 4] = re_of(x);
                d[(l / 4) * 8 + 4 + l % 4] = im_of(x);
            }
        }
}

// Staged element (i, j) of a block: group i / group, then column, then row.
template <class T> inline float* staged(float* sc, int nb, int i, int j) {
    constexpr int g = shape<T>::group, cw = shape<T>::cw;
    return sc + (long)(i / g) * 16 * nb + (long)j * 16 + (i % g) * cw;
}

// Rows [r0, r1) of the block over steps l0 .. l1-1, by a plain loop that
// adds each element's sum to the staged C.
template <class T>
void plain_rows(const call<T>& cl, int i0, int j0, int cols, int r0, int r1, int l0, int l1,
                float* sc, int nb) {
    constexpr bool cplx = shape<T>::cw == 2;
    for (int j = 0; j < cols; ++j)
        for (int r = r0; r < r1; ++r) {
            float sr = 0, si = 0;
            for (int l = l0; l < l1; ++l) {
                float xr, xi, pr, pi;
                cl.scaled_a(i0 + r, l, &xr, &xi);
                const T y = cl.B(l, j0 + j);
                mul(xr, xi, re_of(y), im_of(y), &pr, &pi, cplx);
                sr += pr, si += pi;
            }
            float* d = staged<T>(sc, nb, r, j);
            d[0] += sr;
            if (cplx) d[1] += si;
        }
}

template <class T> inline bool direct_wanted(char ta, char tb, int m, int n, int k) {
    const double mm = m, nn = n, kk = k;
    const double ratio_num = (mm + kk) * nn + mm * kk;
    if constexpr (shape<T>::cw == 1) {
        if (m < 8 || n < 8 || k < 8) return true;
        const bool na = ta == 'N' || ta == 'n', nbl = tb == 'N' || tb == 'n';
        const int L = !na && !nbl ? 80 : 150;
        const double R = na ? (nbl ? 0.06 : 0.045) : (nbl ? 0.07 : 0.075);
        return m + n + k < L && ratio_num / (2 * mm * nn * (kk + 1)) >= R;
    } else {
        if (m < 4 || n < 4 || k < 4) return true;
        return m + n + k < 50 && ratio_num / ((8 * kk + 14) * nn * mm) >= 0.08;
    }
}

template <class T>
void engine(Ch ta, Ch tb, I pm, I pn, I pk, const T* alpha, const T* a, I plda, const T* b,
            I pldb, const T* beta, T* c, I pldc, sig_gemm_serial<T>* direct,
            sig_gemm_scale_c<T>* scale_c) {
    using S = shape<T>;
    constexpr int G = S::group, cw = S::cw;
    const plain<T> p{direct, scale_c};
    if (alpha_zero(p, pm, pn, alpha, beta, c, pldc)) return;
    const int m = *pm, n = *pn, k = *pk, ldc = *pldc;
    if (direct_wanted<T>(*ta, *tb, m, n, k)) {
        direct(ta, tb, pm, pn, pk, alpha, a, plda, b, pldb, beta, c, pldc);
        return;
    }
    const bool big = cpu_l2_class() == 3;
    const int nbs = cw == 1 ? (big ? 480 : 240) : (big ? 384 : 192);
    const uint32_t bytes = cw == 1 ? (uint32_t)nbs * 2304 + 16512 : big ? 1785984 : 901248;
    char* blk = (char*)scratch_alloc(bytes, 128);
    if (err_no_memory(blk, S::tag)) {
        direct(ta, tb, pm, pn, pk, alpha, a, plda, b, pldb, beta, c, pldc);
        return;
    }
    float* pa = (float*)(((uintptr_t)blk & ~(uintptr_t)63) + 64);
    float* pb = pa + 16384 / 4;
    float* sc = pb + 64 * nbs * cw;
    const char la = *ta & ~0x20, lb = *tb & ~0x20;
    const call<T> cl{la == 'N', lb == 'N', la == 'C', lb == 'C', a, *plda, b, *pldb, *alpha};
    const bool beta0 = is_zero(*beta), beta1 = is_one(*beta);
    const int k64 = k - k % kq, k16 = k % kq - k % 16;

    for (int j0 = 0; j0 < n; j0 += nbs) {
        const int cols = n - j0 < nbs ? n - j0 : nbs;
        for (int i0 = 0; i0 < m; i0 += row_block) {
            const int rows = m - i0 < row_block ? m - i0 : row_block;
            const int whole = rows - rows % G, half = rows % G >= G / 2 ? G / 2 : 0;
            // 1. Stage C.
            for (int j = 0; j < cols; ++j)
                for (int r = 0; r < rows; ++r) {
                    const T x = c[i0 + r + (long)(j0 + j) * ldc];
                    float* d = staged<T>(sc, nbs, r, j);
                    float vr = 0, vi = 0;
                    if (beta1) vr = re_of(x), vi = im_of(x);
                    else if (!beta0) mul(re_of(*beta), im_of(*beta), re_of(x), im_of(x), &vr, &vi, cw == 2);
                    d[0] = vr;
                    if (cw == 2) d[1] = vi;
                }
            // 2. Chunks of 64 steps.
            for (int l0 = 0; l0 < k64; l0 += kq) {
                pack_b(cl, j0, cols, l0, kq, pb);
                for (int g = 0; g < whole; g += G) {
                    pack_a(cl, i0 + g, 4, l0, kq, pa);
                    kernel<T, 4, kq>(cols, pa, pb, staged<T>(sc, nbs, g, 0));
                }
                if (half) {
                    pack_a(cl, i0 + whole, 2, l0, kq, pa);
                    kernel<T, 2, kq>(cols, pa, pb, staged<T>(sc, nbs, whole, 0));
                }
                plain_rows(cl, i0, j0, cols, whole + half, rows, l0, l0 + kq, sc, nbs);
            }
            // 3. What is left of k.
            if (k16) {
                pack_b(cl, j0, cols, k64, k16, pb);
                for (int g = 0; g < whole; g += G) {
                    pack_a(cl, i0 + g, 4, k64, k16, pa);
                    float* d = staged<T>(sc, nbs, g, 0);
                    if (k16 == 48) kernel<T, 4, 48>(cols, pa, pb, d);
                    else if (k16 == 32) kernel<T, 4, 32>(cols, pa, pb, d);
                    else kernel<T, 4, 16>(cols, pa, pb, d);
                }
            }
            if (k > k64) {
                plain_rows(cl, i0, j0, cols, 0, whole, k64 + k16, k, sc, nbs);
                plain_rows(cl, i0, j0, cols, whole, rows, k64, k, sc, nbs);
            }
            // 4. Back to C.
            for (int j = 0; j < cols; ++j)
                for (int r = 0; r < rows; ++r) {
                    const float* d = staged<T>(sc, nbs, r, j);
                    T& x = c[i0 + r + (long)(j0 + j) * ldc];
                    if constexpr (cw == 1) x = d[0];
                    else x = T{d[0], d[1]};
                }
        }
    }
    scratch_free(blk);
}

}  // namespace
}  // namespace zva::gemm_klane
