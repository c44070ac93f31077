// SYRK, HERK, SYR2K and HER2K: a team cuts the triangle into diagonal
// strips, one per thread, each done by the serial kernel; then the calling
// thread hands the rectangles between the strips, one after another, to the
// threaded multiply, which may fork on its own. Every element of the
// triangle has one owner (its strip or its rectangle), so beta is applied
// once and no two threads write the same element.
#include <omp.h>
#include <stddef.h>

#include "frame/cpu.h"
#include "frame/scalar.h"
#include "frame/threads.h"
#include "gemm/threaded.h"
#include "level3/drivers.h"

namespace zva {
namespace {

template <class T> constexpr bool is_cplx = sizeof(T) != sizeof(R_<T>);
template <class T> constexpr T unit(R_<T> x) {
    if constexpr (is_cplx<T>) return T{x, 0};
    else return x;
}
template <class T> const T one_v = unit<T>(1);

// The serial kernels: SYRK or HERK (real alpha), SYR2K or HER2K (real beta).
template <class T, class A> constexpr auto syrk_point = [] {
    if constexpr (__is_same(T, A)) return by_type<T, dp::SSYRK, dp::DSYRK, dp::CSYRK, dp::ZSYRK>;
    else return by_type<T, dp::SSYRK, dp::DSYRK, dp::CHERK, dp::ZHERK>;
}();
template <class T, class B> constexpr auto syr2k_point = [] {
    if constexpr (__is_same(T, B))
        return by_type<T, dp::SSYR2K, dp::DSYR2K, dp::CSYR2K, dp::ZSYR2K>;
    else
        return by_type<T, dp::SSYR2K, dp::DSYR2K, dp::CHER2K, dp::ZHER2K>;
}();

// Below these orders the serial kernel does the whole triangle.
constexpr int strips_from = 17;       // n <= 16 stays serial
constexpr int thin_below = 70;        // ... as does n < 70 with n*k < 256 (SYRK)
constexpr long long thin_work = 256;

// The letters and orientation of one call.
struct shape {
    bool upper, notrans;
    char ta, tb;  // letters of the rectangles' products
};
shape shape_of(Ch uplo, Ch trans, bool herm) {
    shape s;
    s.upper = (*uplo & ~0x20) == 'U';
    s.notrans = (*trans & ~0x20) == 'N';
    const char t = herm ? 'C' : 'T';
    s.ta = s.notrans ? 'N' : t;
    s.tb = s.notrans ? t : 'N';
    return s;
}
// Row r of op(X): row r of X ("N") or its column r.
template <class T> const T* at(const shape& s, const T* x, int ld, int r) {
    return s.notrans ? x + r : x + (ptrdiff_t)r * ld;
}

// DSYRK's thread count: fewer threads where the strips would be short or
// the work per strip small, by the processor's tuning (none for code 0).
struct shrink_row {
    int keep_per;        // per at or above this keeps t
    long long two_kp;    // per < 32 and k*per below this: two threads
    int per_limit;
    long long four_below, four_above;  // k*per below these: four threads
};
int dsyrk_threads(int t, int n, int k, bool notrans) {
    const int ma = cpu_microarch();
    if (ma == ma_sse41 && t > 4 && thr_dynamic() == 1 && 2e8 > (double)n * n * k &&
        cpu_cache_size(2) > 0x300000)
        t = 4;
    if (thr_dynamic() != 1 || ma == ma_none) return t;
    int per = n / t;
    if (notrans && per < 8) {
        t = n / 8 > 1 ? n / 8 : 1;
        per = n / t;
    }
    const long long kp = (long long)k * per;
    const shrink_row r = ma == ma_ssse3  ? shrink_row{64, 1024, 32, 2000, 1200}
                         : ma == ma_sse41 ? shrink_row{128, 1024, 32, 3200, 2560}
                                          : shrink_row{64, 400, 16, 1900, 960};
    if (per >= r.keep_per || t < 4) return t;
    if (per < 32 && kp < r.two_kp) return 2;
    if (t < 8) return t;
    if (kp < (per < r.per_limit ? r.four_below : r.four_above)) t = 4;
    return t;
}

// Thread i of the team takes the diagonal strip of per = n/T from
// min(n - 1, i*per); the last takes what is left. strip(off, size) runs on
// each; the team size comes back.
template <class Strip> int strips(int t, int n, Strip strip) {
    int team_size = 1;
#pragma omp parallel num_threads(t)
    {
        const int team = omp_get_num_threads(), i = omp_get_thread_num();
        if (i == 0) team_size = team;
        const int per = n / team;
        const int off = n - 1 < i * per ? n - 1 : i * per;
        const int size = i < team - 1 ? per : (n - i * per > 0 ? n - i * per : 0);
        strip(off, size);
    }
    return team_size;
}

// The team - 1 rectangles off the strips, each C += alpha*X*op(Y)' (beta on
// the first product), and for the 2k updates + alpha2*Y*op(X)'. For "U" a
// rectangle takes strip i's rows and the columns right of it; for "L" the
// rows below strip i and its columns.
template <class T>
void rectangles(const shape& s, int team, int n, I k, const T* alpha, const T* x, I ldx,
                const T* y, I ldy, const T* beta, const T* alpha2, T* c, int ldc) {
    const int per = n / team;
    for (int i = 0; i < team - 1; ++i) {
        const int own = i * per, rest = own + per;
        int rem = n - rest, width = per;
        const int r0 = s.upper ? own : rest, c0 = s.upper ? rest : own;
        I m = s.upper ? &width : &rem;
        I nn = s.upper ? &rem : &width;
        T* block = c + r0 + (ptrdiff_t)c0 * ldc;
        gemm_threaded<T>(&s.ta, &s.tb, m, nn, k, alpha, at(s, x, *ldx, r0), ldx,
                         at(s, y, *ldy, c0), ldy, beta, block, &ldc, 1, 1);
        if (alpha2)
            gemm_threaded<T>(&s.ta, &s.tb, m, nn, k, alpha2, at(s, y, *ldy, r0), ldy,
                             at(s, x, *ldx, c0), ldx, &one_v<T>, block, &ldc, 1, 1);
    }
}

}  // namespace

template <class T, class A>
void syrk_driver(Ch uplo, Ch trans, I pn, I pk, const A* alpha, const T* a, I lda,
                 const A* beta, T* c, I ldc, L, L) {
    constexpr bool herm = sizeof(A) != sizeof(T);
    constexpr auto kernel = syrk_point<T, A>;
    const int n = *pn, k = *pk;
    if (n <= 0) return;
    const bool nothing = k <= 0 || is_zero(*alpha);
    if (nothing && is_one(*beta)) return;
    const shape s = shape_of(uplo, trans, herm);
    const A* beta_now = beta;
    bool serial = n < strips_from;
    if constexpr (herm) {
        // HERK scales on the calling thread (the kernel does, given no k),
        // so that the diagonal's imaginary parts are 0 whatever follows.
        static const int no_k = 0;
        if (!is_one(*beta)) kernel(uplo, trans, pn, &no_k, alpha, a, lda, beta, c, ldc, 1, 1);
        if (nothing) return;
        beta_now = &one_v<A>;
    } else {
        serial = serial || (n < thin_below && (long long)n * k < thin_work);
    }
    int t = serial ? 1 : thr_max_threads(1);
    if (t <= 1) return kernel(uplo, trans, pn, pk, alpha, a, lda, beta_now, c, ldc, 1, 1);
    if constexpr (__is_same(T, double)) t = dsyrk_threads(t, n, k, s.notrans);
    const int team = strips(t, n, [&](int off, int size) {
        kernel(uplo, trans, &size, pk, alpha, at(s, a, *lda, off), lda, beta_now,
               c + off + (ptrdiff_t)off * *ldc, ldc, 1, 1);
    });
    if (team <= 1) return;
    if constexpr (herm) {
        const T al = unit<T>(*alpha);
        rectangles<T>(s, team, n, pk, &al, a, lda, a, lda, &one_v<T>, nullptr, c, *ldc);
    } else {
        rectangles<T>(s, team, n, pk, alpha, a, lda, a, lda, beta, nullptr, c, *ldc);
    }
}

template <class T, class B>
void syr2k_driver(Ch uplo, Ch trans, I pn, I pk, const T* alpha, const T* a, I lda, const T* b,
                  I ldb, const B* beta, T* c, I ldc, L, L) {
    constexpr bool herm = sizeof(B) != sizeof(T);
    constexpr auto kernel = syr2k_point<T, B>;
    const int n = *pn, k = *pk;
    if (n <= 0) return;
    const bool nothing = k <= 0 || is_zero(*alpha);
    if (nothing && is_one(*beta)) return;
    const B* beta_now = beta;
    if constexpr (herm) {
        static const int no_k = 0;
        if (!is_one(*beta))
            kernel(uplo, trans, pn, &no_k, alpha, a, lda, b, ldb, beta, c, ldc, 1, 1);
        if (nothing) return;
        beta_now = &one_v<B>;
    }
    // Only scaling left (SYR2K): the kernel does it.
    if (nothing) return kernel(uplo, trans, pn, pk, alpha, a, lda, b, ldb, beta, c, ldc, 1, 1);
    const int t = n < strips_from ? 1 : thr_max_threads(1);
    if (t <= 1) return kernel(uplo, trans, pn, pk, alpha, a, lda, b, ldb, beta_now, c, ldc, 1, 1);
    const shape s = shape_of(uplo, trans, herm);
    const int team = strips(t, n, [&](int off, int size) {
        kernel(uplo, trans, &size, pk, alpha, at(s, a, *lda, off), lda, at(s, b, *ldb, off), ldb,
               beta_now, c + off + (ptrdiff_t)off * *ldc, ldc, 1, 1);
    });
    if (team <= 1) return;
    T alpha2 = *alpha;
    if constexpr (herm) alpha2.im = -alpha2.im;
    T beta_t;
    if constexpr (herm) beta_t = one_v<T>;
    else beta_t = *beta;
    rectangles<T>(s, team, n, pk, alpha, a, lda, b, ldb, &beta_t, &alpha2, c, *ldc);
}

template decltype(syrk_driver<float, float>) syrk_driver<float, float>;
template decltype(syrk_driver<double, double>) syrk_driver<double, double>;
template decltype(syrk_driver<c32, c32>) syrk_driver<c32, c32>;
template decltype(syrk_driver<c64, c64>) syrk_driver<c64, c64>;
template decltype(syrk_driver<c32, float>) syrk_driver<c32, float>;
template decltype(syrk_driver<c64, double>) syrk_driver<c64, double>;

template decltype(syr2k_driver<float, float>) syr2k_driver<float, float>;
template decltype(syr2k_driver<double, double>) syr2k_driver<double, double>;
template decltype(syr2k_driver<c32, c32>) syr2k_driver<c32, c32>;
template decltype(syr2k_driver<c64, c64>) syr2k_driver<c64, c64>;
template decltype(syr2k_driver<c32, float>) syr2k_driver<c32, float>;
template decltype(syr2k_driver<c64, double>) syr2k_driver<c64, double>;

}  // namespace zva
