// The threaded multiply. Small products are cut into row or column slices
// that each run the serial engine; large ones are partitioned by the thread
// code of the processor, either into slices with a private engine each or
// into lock-step forms whose threads share one packed operand area.
#include "gemm/threaded.h"

#include <omp.h>

#include "frame/check.h"
#include "frame/cpu.h"
#include "frame/memory.h"
#include "frame/scalar.h"
#include "frame/threads.h"

namespace zva {
namespace {

template <class T> constexpr T one_of() {
    if constexpr (sizeof(T) == sizeof(R_<T>)) return T(1);
    else return T{1, 0};
}
template <class T> const T one_v = one_of<T>();
template <class T> const T zero_v = T{};

inline int min_i(int a, int b) { return a < b ? a : b; }
inline int max_i(int a, int b) { return a > b ? a : b; }

// Thread i's slice of a range cut by `per`: it starts at min(total - 1,
// i*per); the last thread takes what is left, never less than nothing.
struct slice {
    int start, count;
};
inline slice cut(int total, int per, int i, int threads) {
    slice s;
    s.start = min_i(total - 1, i * per);
    s.count = i == threads - 1 ? max_i(total - i * per, 0) : per;
    return s;
}

// Step 1: products too thin for threads, before any thread count is asked.
bool too_thin(int m, int n, int k) {
    if (k <= 4 && n < 16) return true;
    if (m <= 16) {
        if (n > 16) return false;
        if (k <= 16) return true;
        return n <= 4;
    }
    if (m > 32) return false;
    return n <= 4;
}

// Step 3: whether threads pay for their start-up at this size. The rules
// differ by type: the cost of a product against that of starting a team.
template <class T>
bool threads_pay(int m, int n, int k, int t) {
    constexpr bool single = sizeof(T) == 4, cplx = sizeof(T) != sizeof(R_<T>);
    if (m <= 100 && n <= 100 && k <= 100) {
        int mc, nc;
        if (m > t * n) mc = m / t, nc = n;
        else mc = m, nc = n / t;
        const int p = mc * nc;
        double r;
        if constexpr (cplx) {
            if (t <= 2) return true;
            // Z counts its products twice, as its work per element is.
            const double w = sizeof(T) == 16 ? 2 : 1, x = sizeof(T) == 16 ? 2 : 4;
            r = w * k * (x * m * n + m + n) / ((double)t * 1000 + w * k * (x * mc * nc + mc + nc));
            return r > 1.4;
        } else if constexpr (single) {
            r = (double)(k * (m * n + m + n) / 2) / (t * 1000 + k * (p + mc + nc) / 2);
        } else {
            r = (double)k * ((double)m * n + m + n) /
                ((double)t * 1000 + (double)k * ((double)p + mc + nc));
        }
        bool go = r > 1.4;
        if (k < 24 && p < 320) go = false;
        if (t >= 16) {
            if (nc == 0 || m > t * n) go = false;
            if (p < 128) return false;
        }
        return go;
    }
    if (t <= 12) return true;
    const int mq = m / t, nq = n / t;
    const long long kl = k;
    if constexpr (cplx) {
        if (m > n) {
            if (mq <= 0 && nq == 0) return false;
            if (mq == 1 && n <= 3) return false;
            if (nq > 0 && mq >= 3 && mq <= 8 && mq * nq * kl < 256) return false;
            if (k < 24 && nq > 0 && mq * nq < 320) return false;
        } else {
            if (mq <= 0 && nq == 0) return false;
            if (mq <= 3 && nq >= 8 && n <= 3000 && m * kl * (nq / 8) <= 1024) return false;
        }
    } else if constexpr (single) {
        if (m > n) {
            if (mq <= 8) {
                if (nq == 0) return false;
                if (mq == 1 && nq <= 16) return false;
                if (kl * mq * nq < 1230) return false;
            }
            if (nq <= 1 && kl * n * mq < 15000) return false;
        } else {
            if (mq <= 0 && nq == 0) return false;
            if (nq < 4 && kl * m < 1030) return false;
            if (nq >= 4 && nq <= 15 && kl * mq < 300) return false;
            if (mq <= 3 && nq >= 8 && n <= 7000 && kl * m < 170 && m != 2 && k != 2) return false;
        }
    } else {
        if (m > n) {
            if (mq < 4 && nq == 0) return false;
            if (mq == 1 && nq <= 16) return false;
            if (mq <= 8 && kl * mq * nq < 1230) return false;
            if (nq <= 1 && kl * n * mq < 15000) return false;
        } else {
            if (mq <= 0 && nq == 0) return false;
            if (nq < 4 && kl * m < 580) return false;
            if (nq >= 4 && nq <= 8 && kl * mq < 300) return false;
            if (mq <= 3 && nq >= 8 && n < 3000 && kl * m < 128) return false;
        }
    }
    return true;
}

// Codes whose engines want C scaled once before the region.
bool scales_first(int code) { return code != gt_slices && code != gt_ssse3; }

// C := beta*C by a team, in row or column slices.
template <class T> void scale_region(int m, int n, const T* beta, T* c, int ldc, int t) {
#pragma omp parallel num_threads(t)
    {
        const int team = omp_get_num_threads(), i = omp_get_thread_num();
        if (m > n * team) {
            slice s = cut(m, m / team, i, team);
            gemm_points<T>::scale_c(&s.count, &n, beta, c + s.start, &ldc);
        } else {
            slice s = cut(n, n / team, i, team);
            gemm_points<T>::scale_c(&m, &s.count, beta, c + (long)s.start * ldc, &ldc);
        }
    }
}

// ---- tile routines: called by every thread of the main region ----------

template <class T>
void tile_rows(Ch ta, Ch tb, I pm, I pn, I pk, const T* alpha, const T* a, I lda, const T* b,
               I ldb, const T* beta, T* c, I ldc, gemm_context* ctx, gemm_work<T>* w) {
    const int m = *pm, nthr = w->nthr;
#pragma omp for schedule(static)
    for (int i = 0; i < nthr; ++i) {
        slice s = cut(m, m / nthr, i, nthr);
        const T* ai = a + (w->nota ? (long)s.start : (long)s.start * *lda);
        T* ci = c + s.start;
        if (w->use_driver)
            w->driver(ta, tb, &s.count, pn, pk, alpha, ai, lda, b, ldb, beta, ci, ldc,
                      w->strategy, ctx);
        else
            w->serial(ta, tb, &s.count, pn, pk, alpha, ai, lda, b, ldb, beta, ci, ldc);
    }
}

template <class T>
void tile_cols(Ch ta, Ch tb, I pm, I pn, I pk, const T* alpha, const T* a, I lda, const T* b,
               I ldb, const T* beta, T* c, I ldc, gemm_context* ctx, gemm_work<T>* w) {
    const int n = *pn, nthr = w->nthr;
#pragma omp for schedule(static)
    for (int i = 0; i < nthr; ++i) {
        slice s = cut(n, n / nthr, i, nthr);
        const T* bi = b + (w->notb ? (long)s.start * *ldb : (long)s.start);
        T* ci = c + (long)s.start * *ldc;
        if (w->use_driver)
            w->driver(ta, tb, pm, &s.count, pk, alpha, a, lda, bi, ldb, beta, ci, ldc,
                      w->strategy, ctx);
        else
            w->serial(ta, tb, pm, &s.count, pk, alpha, a, lda, bi, ldb, beta, ci, ldc);
    }
}

// The threads pack their rows of one k block of A side by side, then each
// multiplies its packed rows against the same part of B.
template <class T>
void tile_share_a(Ch ta, Ch tb, I pm, I pn, I pk, const T* alpha, const T* a, I plda,
                  const T* b, I pldb, const T*, T* c, I pldc, gemm_context* ctx,
                  gemm_work<T>* w) {
    const int m = *pm, k = *pk, lda = *plda, ldb = *pldb;
    const int nthr = w->nthr, mr = ctx->mr, mbs = ctx->mb, kbs = ctx->kb;
    const int chunk = (m / w->grid_m) / mr * mr;
    const int last = max_i(m - (nthr / w->grid_n - 1) * chunk, chunk);
    const uint32_t a_size = ctx->a.size & ~7u;
    for (int l = 0; l < k; l += kbs) {
        int kb = min_i(kbs, k - l);
        for (int seg = 0; seg < last; seg += mbs) {
#pragma omp for schedule(static)
            for (int i = 0; i < nthr; ++i) {
                const int mine = i == nthr - 1 ? last : chunk;
                int rows = min_i(mbs, mine - seg);
                if (rows <= 0) continue;
                const int r0 = i * chunk + seg;
                const T* src = a + (w->nota ? r0 + (long)l * lda : l + (long)r0 * lda);
                T* dst = (T*)(w->a_base + (long)(i / w->grid_n) * a_size);
                w->copy_a(&rows, &kb, src, plda, dst, &ctx->a.stride, alpha);
            }
#pragma omp for schedule(static)
            for (int i = 0; i < nthr; ++i) {
                const int mine = i == nthr - 1 ? last : chunk;
                int rows = min_i(mbs, mine - seg);
                if (rows <= 0) continue;
                const int r0 = i * chunk + seg;
                const T* packed = (const T*)(w->a_base + (long)(i / w->grid_n) * a_size);
                const T* bl = b + (w->notb ? (long)l : (long)l * ldb);
                w->driver(ta, tb, &rows, pn, &kb, nullptr, packed, &ctx->a.stride, bl, pldb,
                          &one_v<T>, c + r0, pldc, w->strategy, ctx);
            }
        }
    }
}

// The mirror on columns: the threads pack their columns of B, then each
// multiplies all of A against its packed columns.
template <class T>
void tile_share_b(Ch ta, Ch tb, I pm, I pn, I pk, const T* alpha, const T* a, I plda,
                  const T* b, I pldb, const T*, T* c, I pldc, gemm_context* ctx,
                  gemm_work<T>* w) {
    const int n = *pn, k = *pk, lda = *plda, ldb = *pldb, ldc = *pldc;
    const int nthr = w->nthr, nr = ctx->nr, nbs = ctx->nb, kbs = ctx->kb;
    const int chunk = (n / w->grid_n) / nr * nr;
    const int last = max_i(n - (nthr / w->grid_m - 1) * chunk, chunk);
    const uint32_t b_size = ctx->b.size & ~7u;
    for (int seg = 0; seg < last; seg += nbs) {
        for (int l = 0; l < k; l += kbs) {
            int kb = min_i(kbs, k - l);
#pragma omp for schedule(static)
            for (int i = 0; i < nthr; ++i) {
                const int mine = i == nthr - 1 ? last : chunk;
                int cols = min_i(nbs, mine - seg);
                if (cols <= 0) continue;
                const int c0 = i * chunk + seg;
                const T* src = b + (w->notb ? l + (long)c0 * ldb : c0 + (long)l * ldb);
                T* dst = (T*)(w->b_base + (long)(i / w->grid_m) * b_size);
                w->copy_b(&kb, &cols, src, pldb, dst, &ctx->b.stride, &zero_v<T>);
            }
#pragma omp for schedule(static)
            for (int i = 0; i < nthr; ++i) {
                const int mine = i == nthr - 1 ? last : chunk;
                int cols = min_i(nbs, mine - seg);
                if (cols <= 0) continue;
                const int c0 = i * chunk + seg;
                const T* packed = (const T*)(w->b_base + (long)(i / w->grid_m) * b_size);
                const T* al = a + (w->nota ? (long)l * lda : (long)l);
                w->driver(ta, tb, pm, &cols, &kb, alpha, al, plda, packed, &ctx->b.stride,
                          &one_v<T>, c + (long)c0 * ldc, pldc, gemm_given_b_pack_a, ctx);
            }
        }
    }
}

// Cuts of the lock-step forms, by thread code; the element size enters the
// bytes of one A slice. S has no shared B and shares A more readily; the
// complex types only cut rows or columns and leave the strategy to the
// engine of each thread.
template <class T>
void gemm_partition(int m, int n, int k, gemm_context* ctx, gemm_work<T>* w) {
    constexpr bool single = sizeof(T) == 4, cplx = sizeof(T) != sizeof(R_<T>);
    const int code = w->code;
    const long long e = sizeof(T);
    if (cplx || !w->use_driver || code == gt_slices || code == gt_other_avx || code == gt_ssse3) {
        w->tile = m > n ? tile_rows<T> : tile_cols<T>;
        if (!cplx && w->use_driver && code == gt_ssse3) w->strategy = gemm_pack_a_stream_b;
    } else if (code == gt_sse42 || code == gt_avx) {
        const int S = code == gt_sse42 ? gemm_pack_a_stream_b : gemm_pack_both;
        const int Lk = code == gt_sse42 ? gemm_given_a_stream_b : gemm_given_a_pack_b;
        const int T_ = w->nthr & ~1;
        w->nthr = T_;
        const bool cols = single ? m < n || (m == n && n == k && k < 800) || (m == n && k < 100) ||
                                       (T_ > 8 && m < 100 && n < 100)
                                 : m < n || (m == n && n == k && k < 500) ||
                                       (T_ > 8 && m < 100 && n < 100);
        if (m > n && (m / T_ >= 4 || n / T_ <= 0)) {
            w->grid_m = T_, w->grid_n = 1;
            const long long limit = T_ <= 8 ? 0x20000 : 0x80000 / ((T_ / 2) & ~3);
            const long long size = (long long)min_i(m / T_, w->mb) * min_i(k, w->kb) * e;
            if (size > limit) {
                w->strategy = S, w->tile = tile_rows<T>;
            } else {
                w->n_a = T_, w->strategy = Lk, w->tile = tile_share_a<T>;
            }
        } else if (cols) {
            w->grid_m = 1, w->grid_n = T_, w->strategy = S, w->tile = tile_cols<T>;
        } else if (!single && m == n && k < 80) {
            w->grid_m = 1, w->grid_n = T_, w->n_b = T_;
            w->strategy = gemm_given_b_pack_a, w->tile = tile_share_b<T>;
        } else {
            w->grid_m = T_, w->grid_n = 1, w->n_a = T_, w->strategy = Lk;
            w->tile = tile_share_a<T>;
        }
    } else if (code == gt_sse41_big_l2 || code == gt_sse41_small_l2) {
        const int M = single ? (code == gt_sse41_small_l2 ? 896 : 1024)
                            : (code == gt_sse41_small_l2 ? 448 : 512);
        const int T_ = w->nthr & ~1;
        w->nthr = T_;
        if (m > n) {
            const long long size = (long long)min_i(m / T_, w->mb) * min_i(k, w->kb) * e;
            if ((m <= 100 && n <= 100 && !(n == 3 && (k >= 8000 || m / T_ >= 4))) ||
                size > 0x180000) {
                w->strategy = gemm_pack_a_stream_b, w->tile = tile_rows<T>;
            } else {
                w->mb = M, w->grid_m = T_, w->grid_n = 1;
                w->strategy = gemm_given_a_stream_b, w->n_a = T_, w->tile = tile_share_a<T>;
            }
        } else if (single ? (m == n && n == k && k < 800) || k < 100 || m < n
                          : m < n || (m == n && n == k && k < 500) ||
                                (m < 100 && n <= 100 && !(n / T_ == 3 && k >= 12000))) {
            w->strategy = gemm_pack_a_stream_b, w->tile = tile_cols<T>;
        } else if (!single && m == n && k < 80) {
            w->mb = M, w->grid_m = 1, w->grid_n = T_, w->n_b = T_;
            w->strategy = gemm_given_b_pack_a, w->tile = tile_share_b<T>;
        } else {
            w->mb = M, w->grid_m = T_, w->grid_n = 1, w->n_a = T_;
            w->strategy = gemm_given_a_stream_b, w->tile = tile_share_a<T>;
        }
    }
    if (w->use_driver) gemm_points<T>::store(ctx, w->mb, w->nb, w->kb);
}

}  // namespace

int gemm_thread_code() {
    switch (cpu_microarch()) {
    case ma_sse41: return cpu_cache_size(2) > 0x300000 ? gt_sse41_big_l2 : gt_sse41_small_l2;
    case ma_ssse3: return gt_ssse3;
    case ma_sse42:
    case ma_sse42_aes: return gt_sse42;
    case ma_avx: return gt_avx;
    case ma_none: return cpu_other_vendor_avx() ? gt_other_avx : gt_slices;
    default: return gt_slices;
    }
}

template <class T>
void gemm_threaded(Ch transa, Ch transb, I pm, I pn, I pk, const T* alpha, const T* a, I lda,
                   const T* b, I ldb, const T* beta, T* c, I ldc, L, L) {
    using P = gemm_points<T>;
    const int m = *pm, n = *pn, k = *pk;
    if (m <= 0 || n <= 0) return;
    auto serial = [&] { P::serial(transa, transb, pm, pn, pk, alpha, a, lda, b, ldb, beta, c, ldc); };
    if (too_thin(m, n, k)) return serial();

    int t = thr_max_threads(1);
    if (t > 4 && thr_dynamic() == 1 && (double)m * n * k < 1e8 && cpu_microarch() == ma_sse41 &&
        cpu_cache_size(2) > 0x300000)
        t = 4;
    if (t <= 1 || !threads_pay<T>(m, n, k, t)) return serial();

    if (m <= 100 && n <= 100 && k <= 100) {
        // Small products: plain slices of the serial engine.
#pragma omp parallel num_threads(t)
        {
            const int team = omp_get_num_threads(), i = omp_get_thread_num();
            if (team == 1) {
                P::serial(transa, transb, pm, pn, pk, alpha, a, lda, b, ldb, beta, c, ldc);
            } else if (m > team * n) {
                slice s = cut(m, m / team, i, team);
                const T* ai = a + ((*transa & ~0x20) == 'N' ? (long)s.start : (long)s.start * *lda);
                P::serial(transa, transb, &s.count, pn, pk, alpha, ai, lda, b, ldb, beta,
                          c + s.start, ldc);
            } else {
                slice s = cut(n, n / team, i, team);
                const T* bi = b + ((*transb & ~0x20) == 'N' ? (long)s.start * *ldb : (long)s.start);
                T* ci = c + (long)s.start * *ldc;
                if (sizeof(T) != sizeof(R_<T>)) {
                    // The complex engines take the caller's beta with them.
                    P::serial(transa, transb, pm, &s.count, pk, alpha, a, lda, bi, ldb, beta,
                              ci, ldc);
                } else {
                    // Each thread scales exactly the columns it multiplies.
                    if (!is_one(*beta)) P::scale_c(pm, &s.count, beta, ci, ldc);
                    if (!is_zero(*alpha))
                        P::serial(transa, transb, pm, &s.count, pk, alpha, a, lda, bi, ldb,
                                  &one_v<T>, ci, ldc);
                }
            }
        }
        return;
    }

    const int code = gemm_thread_code();
    const T* beta_now = beta;
    if (scales_first(code)) {
        if (!is_one(*beta)) scale_region<T>(m, n, beta, c, *ldc, t);
        if (is_zero(*alpha)) return;
        beta_now = &one_v<T>;
    } else if (is_zero(*alpha)) {
        if (!is_one(*beta)) scale_region<T>(m, n, beta, c, *ldc, t);
        return;
    }

    gemm_work<T> work{};
    const char ta = *transa & ~0x20, tb = *transb & ~0x20;
    work.nota = ta == 'N', work.notb = tb == 'N';
    work.ta = ta, work.tb = tb;
    work.code = code;
    work.use_driver = P::avail();
    gemm_context ctx0{};
    if (work.use_driver) {
        P::clear(&ctx0);
        P::load(&ctx0);
        auto pick_a = ta == 'N' ? ctx0.copy_a_n : ta == 'C' ? ctx0.copy_a_c : ctx0.copy_a_t;
        auto pick_b = tb == 'N' ? ctx0.copy_b_n : tb == 'C' ? ctx0.copy_b_c : ctx0.copy_b_t;
        work.copy_a = gemm_fn_as<sig_gemm_copy_a<T>>(pick_a);
        work.copy_b = gemm_fn_as<sig_gemm_copy_b<T>>(pick_b);
        ctx0.set_blocks(m, n, k, &ctx0);
        work.mb = ctx0.mb, work.nb = ctx0.nb, work.kb = ctx0.kb;
        work.driver = P::driver;
    } else {
        P::clear(&ctx0);
        work.serial = P::serial;
    }

    char* area_a = nullptr;
    char* area_b = nullptr;
    bool failed = false;
#pragma omp parallel num_threads(t)
    {
        gemm_work<T> w = work;
        gemm_context ctx = ctx0;
        const int team = omp_get_num_threads();
        if (team == 1) {
            P::serial(transa, transb, pm, pn, pk, alpha, a, lda, b, ldb, beta_now, c, ldc);
        } else {
            w.nthr = team;
            gemm_partition<T>(m, n, k, &ctx, &w);
            if (w.use_driver) {
                P::size_buffers(gemm_buf_b, gemm_clamp_problem, m, n, k, &ctx);
                P::size_buffers(gemm_buf_a, gemm_clamp_problem, m, n, k, &ctx);
            }
            if (w.n_a > 0 || w.n_b > 0) {
#pragma omp single
                {
                    if (w.n_a > 0) {
                        area_a = (char*)scratch_alloc(
                            w.n_a * (ctx.a.size + (2u << ctx.a.align_log2)), 128);
                        if (err_no_memory(area_a, "gemm")) failed = true;
                    }
                    if (!failed && w.n_b > 0) {
                        area_b = (char*)scratch_alloc(
                            w.n_b * (ctx.b.size + (2u << ctx.b.align_log2)), 128);
                        if (err_no_memory(area_b, "gemm")) failed = true;
                    }
                }
#pragma omp barrier
                if (!failed) {
                    auto up = [](char* p, int log2) {
                        const uintptr_t q = ((uintptr_t)1 << log2) - 1;
                        return (char*)(((uintptr_t)p + q) & ~q);
                    };
                    if (area_a) w.a_base = up(area_a, ctx.a.align_log2);
                    if (area_b) w.b_base = up(area_b, ctx.b.align_log2);
                    w.tile(transa, transb, pm, pn, pk, alpha, a, lda, b, ldb, beta_now, c, ldc,
                           &ctx, &w);
                } else {
                    // No shared area: slices with the serial engine each.
#pragma omp single
                    {
                        if (area_a) scratch_free(area_a);
                        if (area_b) scratch_free(area_b);
                        area_a = area_b = nullptr;
                    }
                    w.strategy = 0, w.n_a = 0, w.n_b = 0, w.use_driver = 0;
                    w.serial = P::serial;
                    w.nthr = team;
                    if (m > n)
                        tile_rows<T>(transa, transb, pm, pn, pk, alpha, a, lda, b, ldb, beta_now,
                                     c, ldc, &ctx, &w);
                    else
                        tile_cols<T>(transa, transb, pm, pn, pk, alpha, a, lda, b, ldb, beta_now,
                                     c, ldc, &ctx, &w);
                }
            } else {
                w.tile(transa, transb, pm, pn, pk, alpha, a, lda, b, ldb, beta_now, c, ldc, &ctx,
                       &w);
            }
        }
    }
    if (area_a) scratch_free(area_a);
    if (area_b) scratch_free(area_b);
}

#define ZVA_GEMM_THREADED(T)                                                   \
    template void gemm_threaded<T>(Ch, Ch, I, I, I, const T*, const T*, I, const T*, I,   \
                                   const T*, T*, I, L, L);
ZVA_GEMM_THREADED(float)
ZVA_GEMM_THREADED(double)
ZVA_GEMM_THREADED(c32)
ZVA_GEMM_THREADED(c64)

}  // namespace zva
