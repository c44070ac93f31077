// The single-thread blocked engine of branches 4 to 7: block sizes, buffer
// sizing and carving, the blocked driver with its strategies, and the serial
// entry. One recipe, instantiated per branch and type from a small traits
// struct (the rows of the branch, its plain multiply and scaling of C, and
// its strategy rule); the packing and the kernels come from the rows.
//
// Unnamed namespace: every branch gets its own copy, compiled with its own
// instruction set.
#pragma once
#include <stdint.h>

#include "frame/check.h"
#include "frame/cpu.h"
#include "frame/memory.h"
#include "gemm/engine.h"

namespace zva::gemm_blocked {
namespace {

inline bool is_one(float x) { return x == 1.0f; }
inline bool is_one(double x) { return x == 1.0; }
inline bool is_one(const c32& x) { return x.re == 1.0f && x.im == 0.0f; }
inline bool is_one(const c64& x) { return x.re == 1.0 && x.im == 0.0; }
inline bool is_zero(float x) { return x == 0.0f; }
inline bool is_zero(double x) { return x == 0.0; }
inline bool is_zero(const c32& x) { return x.re == 0.0f && x.im == 0.0f; }
inline bool is_zero(const c64& x) { return x.re == 0.0 && x.im == 0.0; }
template <class T> constexpr T one_of() {
    if constexpr (sizeof(T) == sizeof(R_<T>)) return T(1);
    else return T{1, 0};
}

inline int min_i(int a, int b) { return a < b ? a : b; }
inline int round_up(int x, int q) { return (x + q - 1) / q * q; }

// How a row chooses its block sizes. kb: below `kbase` the whole k (at
// least `kmin`), between kbase and 2*kbase half of it, else kbase. mb: the
// first value while the named cache level is at most `limit`, the second
// above it (or whenever no caches are known); level 0 means always first.
struct block_rule {
    int kbase, kmin;
    int mb_first, mb_second;
    int cache_level, cache_limit;
    int nb_cap;
    bool nb_round;
};

template <const block_rule& R>
void set_blocks(int m, int n, int k, gemm_context* ctx) {
    (void)m;
    if (ctx->kb == 0) {
        int kb;
        if (k < R.kbase) {
            kb = round_up(k, ctx->ku);
            if (kb < R.kmin) kb = R.kmin;
        } else if (k > R.kbase && k < 2 * R.kbase) {
            kb = round_up(k / 2, ctx->ku);
        } else {
            kb = R.kbase;
        }
        ctx->kb = kb;
    }
    if (ctx->mb == 0) {
        int mb = R.mb_first;
        if (R.cache_level) {
            int32_t t[5];
            cpu_cache_sizes(t);
            if (t[0] == 0 || t[R.cache_level] > R.cache_limit) mb = R.mb_second;
        }
        ctx->mb = mb;
    }
    if (ctx->nb == 0) {
        int nb = n > ctx->nr ? n : ctx->nr;
        if (nb > R.nb_cap) nb = R.nb_cap;
        if (R.nb_round) nb = round_up(nb, ctx->nr);
        ctx->nb = nb;
    }
}

template <class T>
int size_buffers(int which, int clamp, int m, int n, int k, gemm_context* ctx) {
    int mm, nn, kk;
    if (clamp == gemm_clamp_problem) {
        mm = min_i(ctx->mb, m), nn = min_i(ctx->nb, n), kk = min_i(ctx->kb, k);
    } else if (clamp == gemm_clamp_block) {
        mm = ctx->mb, nn = ctx->nb, kk = ctx->kb;
    } else {
        return 1;
    }
    if (which < gemm_buf_all || which > gemm_buf_stage) return 1;
    mm = round_up(mm, ctx->mr);
    nn = round_up(nn, ctx->nr);
    kk = round_up(kk, ctx->ku);
    const uint32_t e = sizeof(T);
    const bool a = which == gemm_buf_all || which == gemm_buf_a || which == gemm_buf_ab ||
                   which == gemm_buf_a_stage;
    const bool b = which == gemm_buf_all || which == gemm_buf_b || which == gemm_buf_ab ||
                   which == gemm_buf_b_stage;
    const bool s = which == gemm_buf_all || which == gemm_buf_b_stage ||
                   which == gemm_buf_a_stage || which == gemm_buf_stage;
    if (a) {
        ctx->a.size = (uint32_t)mm * kk * e + gemm_spare_bytes;
        ctx->a.stride = ctx->mr * kk;
        ctx->a.align_log2 = 12;
    }
    if (b) {
        ctx->b.size = (uint32_t)nn * kk * e + gemm_spare_bytes;
        ctx->b.stride = ctx->nr * kk;
        ctx->b.align_log2 = 12;
    }
    if (s) {
        ctx->stage_size = (uint32_t)kk * e * ctx->nr * ctx->stage_panels + gemm_spare_bytes;
        ctx->stage_align_log2 = 7;
    }
    return 0;
}

inline char* align_up(char* p, int log2) {
    const uintptr_t m = ((uintptr_t)1 << log2) - 1;
    return (char*)(((uintptr_t)p + m) & ~m);
}

// One block from the scratch manager for all the named buffers, carved in the
// order A, stage, B. A null block (no memory) is left to the caller to report.
inline int get_buffers(int which, void** out_block, gemm_context* ctx) {
    const bool a = which == gemm_buf_all || which == gemm_buf_a || which == gemm_buf_a_stage;
    const bool b = which == gemm_buf_all || which == gemm_buf_b || which == gemm_buf_b_stage;
    const bool s = which == gemm_buf_all || which == gemm_buf_b_stage ||
                   which == gemm_buf_a_stage || which == gemm_buf_stage;
    if (which < gemm_buf_all || which > gemm_buf_stage || which == gemm_buf_ab) {
        *out_block = nullptr;
        return 1;
    }
    uint32_t size = 0;
    if (a) size += (2u << ctx->a.align_log2) + ctx->a.size;
    if (s) size += (2u << ctx->stage_align_log2) + ctx->stage_size;
    if (b) size += (2u << ctx->b.align_log2) + ctx->b.size;
    char* block = (char*)scratch_alloc(size, 128);
    *out_block = block;
    if (!block) return 0;
    char* p = block;
    if (a) {
        p = align_up(p, ctx->a.align_log2);
        ctx->a.p = p;
        p += ctx->a.size;
    }
    if (s) {
        p = align_up(p, ctx->stage_align_log2);
        ctx->stage = p;
        p += ctx->stage_size;
    }
    if (b) {
        p = align_up(p, ctx->b.align_log2);
        ctx->b.p = p;
    }
    return 0;
}

// The traits of one type on one branch: its rows (the second one, where a
// branch has two, serves processors with SSE4.1), its plain multiply and
// scaling of C, and the B block size above which 128-bit rows pack B.
template <class T_, const gemm_kernel_record<T_>* Rows, int Count, sig_gemm_serial<T_>* Direct,
          sig_gemm_scale_c<T_>* Scale, uint32_t Above>
struct traits {
    using T = T_;
    static const gemm_kernel_record<T>* row(int* index) {
        *index = Count > 1 && cpu_has_sse41() ? 1 : 0;
        return &Rows[*index];
    }
    static constexpr sig_gemm_serial<T>* direct = Direct;
    static constexpr sig_gemm_scale_c<T>* scale_c = Scale;
    static constexpr uint32_t pack_both_above = Above;
};

// Traits E of one branch and type provide:
//   using T;  static const gemm_kernel_record<T>* row(int* index);
//   static sig_gemm_serial<T>* const direct;  static sig_gemm_scale_c<T>* const scale_c;
//   static constexpr uint32_t pack_both_above;  (0: always pack both)
template <class E>
void load(gemm_context* ctx) {
    using T = typename E::T;
    int index;
    const gemm_kernel_record<T>* r = E::row(&index);
    ctx->row = index;
    ctx->strategy_mask = r->strategy_mask;
    ctx->mr = r->mr, ctx->nr = r->nr, ctx->ku = r->ku;
    ctx->m_min = r->m_min, ctx->n_min = r->n_min, ctx->k_min = r->k_min;
    ctx->set_blocks = r->set_blocks;
    ctx->size_buffers = r->size_buffers;
    ctx->get_buffers = r->get_buffers;
    ctx->copy_a_n = gemm_fn_of(r->copy_a_n);
    ctx->copy_a_t = gemm_fn_of(r->copy_a_t);
    ctx->copy_a_c = gemm_fn_of(r->copy_a_c);
    ctx->copy_b_n = gemm_fn_of(r->copy_b_n);
    ctx->copy_b_t = gemm_fn_of(r->copy_b_t);
    ctx->copy_b_c = gemm_fn_of(r->copy_b_c);
    ctx->reserved2[0] = r->reserved[0];
    ctx->reserved2[1] = r->reserved[1];
    ctx->stage_panels = r->stage_panels;
    ctx->block_multiply = gemm_fn_of(r->block_multiply);
}

inline void clear(gemm_context* ctx) { *ctx = gemm_context{}; }

inline void store(gemm_context* ctx, int mb, int nb, int kb) {
    ctx->mb = mb, ctx->nb = nb, ctx->kb = kb;
}

// Branches 7 and 6 always pack both operands; 5 and 4 stream B while one B
// block stays small.
template <class E>
int strategy_rule(int n, int k, const gemm_context* ctx) {
    if (E::pack_both_above == 0) return gemm_pack_both;
    const uint32_t bytes = (uint32_t)min_i(n, ctx->nb) * min_i(k, ctx->kb) * sizeof(typename E::T);
    return bytes > E::pack_both_above ? gemm_pack_both : gemm_pack_a_stream_b;
}

// The copy routine for a letter: "N", "C" (conjugate) or any other (transpose).
inline gemm_fn pick_copy(char t, gemm_fn n, gemm_fn tr, gemm_fn c) {
    t &= ~0x20;
    return t == 'N' ? n : t == 'C' ? c : tr;
}

template <class E>
int driver(Ch transa, Ch transb, I pm, I pn, I pk, const typename E::T* alpha,
           const typename E::T* a, I plda, const typename E::T* b, I pldb,
           const typename E::T* beta, typename E::T* c, I pldc, int strategy, gemm_context* ctx) {
    using T = typename E::T;
    const int m = *pm, n = *pn, k = *pk;
    if (m <= 0 || n <= 0) return 0;
    const char ta = *transa, tb = *transb;
    const bool nota = (ta & ~0x20) == 'N', notb = (tb & ~0x20) == 'N';
    if (ctx->mb == 0 || ctx->nb == 0 || ctx->kb == 0) ctx->set_blocks(m, n, k, ctx);
    if (strategy == 0) strategy = strategy_rule<E>(n, k, ctx);
    // The given-block strategies pass no alpha (it is in the packed block)
    // and beta 1.
    if (beta && !is_one(*beta)) E::scale_c(pm, pn, beta, c, pldc);
    if (alpha && is_zero(*alpha)) return 0;
    if (!(strategy & ctx->strategy_mask) ||
        (strategy != gemm_pack_both && strategy != gemm_pack_a_stream_b &&
         strategy != gemm_given_a_pack_b && strategy != gemm_given_a_stream_b &&
         strategy != gemm_given_b_pack_a))
        return 1;

    static const T one = one_of<T>();
    const int lda = *plda, ldb = *pldb, ldc = *pldc;
    auto* copy_a = gemm_fn_as<sig_gemm_copy_a<T>>(
        pick_copy(ta, ctx->copy_a_n, ctx->copy_a_t, ctx->copy_a_c));
    auto* copy_b = gemm_fn_as<sig_gemm_copy_b<T>>(
        pick_copy(tb, ctx->copy_b_n, ctx->copy_b_t, ctx->copy_b_c));
    auto* block = gemm_fn_as<sig_gemm_block<T>>(ctx->block_multiply);
    const int mbs = ctx->mb, nbs = ctx->nb, kbs = ctx->kb, ku = ctx->ku;
    // Offsets of element (row, col) of op(A) and op(B) in the caller's arrays.
    auto a_at = [&](int i, int l) { return a + (nota ? i + (long)l * lda : l + (long)i * lda); };
    auto b_at = [&](int l, int j) { return b + (notb ? l + (long)j * ldb : j + (long)l * ldb); };
    void* blk = nullptr;

    if (strategy == gemm_pack_both || strategy == gemm_pack_a_stream_b) {
        const bool pack_b = strategy == gemm_pack_both;
        const bool small = pack_b ? (m <= ctx->m_min || n <= ctx->n_min || k <= ctx->k_min)
                                  : (m < ctx->m_min || n < ctx->n_min || k < ctx->k_min);
        if (!small) {
            const int which = pack_b ? gemm_buf_all : gemm_buf_a_stage;
            ctx->size_buffers(which, gemm_clamp_problem, m, n, k, ctx);
            ctx->get_buffers(which, &blk, ctx);
        }
        // Too small, or no memory: C is only scaled so far, so the plain
        // multiply still gives the whole product.
        if (small || err_no_memory(blk, "xgemm")) {
            E::direct(transa, transb, pm, pn, pk, alpha, a, plda, b, pldb, &one, c, pldc);
            return 0;
        }
        T* ap = (T*)ctx->a.p;
        T* bp = (T*)ctx->b.p;
        for (int j = 0; j < n; j += nbs) {
            const int nb = min_i(nbs, n - j);
            for (int l = 0; l < k; l += kbs) {
                const int kb = min_i(kbs, k - l);
                const int kr = round_up(kb, ku);
                if (pack_b) copy_b(&kb, &nb, b_at(l, j), pldb, bp, &ctx->b.stride, nullptr);
                for (int i = 0; i < m; i += mbs) {
                    const int mb = min_i(mbs, m - i);
                    copy_a(&mb, &kb, a_at(i, l), plda, ap, &ctx->a.stride, alpha);
                    T* cij = c + i + (long)j * ldc;
                    if (pack_b)
                        block(transa, transb, &mb, &nb, &kr, &one, ap, &ctx->a.stride, bp,
                              &ctx->b.stride, &one, cij, pldc, (T*)ctx->stage, 2);
                    else
                        block(transa, transb, &mb, &nb, &kb, &one, ap, &ctx->a.stride,
                              b_at(l, j), pldb, &one, cij, pldc, (T*)ctx->stage, 3);
                }
            }
        }
        scratch_free(blk);
        return 0;
    }

    // A or B arrives packed for one k block that the caller has cut.
    const int kb = min_i(k, kbs);
    const int kr = round_up(kb, ku);
    const int which = strategy == gemm_given_a_pack_b    ? gemm_buf_b_stage
                      : strategy == gemm_given_a_stream_b ? gemm_buf_stage
                                                          : gemm_buf_a_stage;
    ctx->size_buffers(which, gemm_clamp_problem, m, n, k, ctx);
    ctx->get_buffers(which, &blk, ctx);
    if (err_no_memory(blk, "xgemm")) return 1;
    T* ap = (T*)ctx->a.p;
    T* bp = (T*)ctx->b.p;
    if (strategy == gemm_given_b_pack_a) {
        for (int i = 0; i < m; i += mbs) {
            const int mb = min_i(mbs, m - i);
            copy_a(&mb, &kb, a_at(i, 0), plda, ap, &ctx->a.stride, alpha);
            block(transa, transb, &mb, pn, &kr, nullptr, ap, &ctx->a.stride, b, pldb, &one,
                  c + i, pldc, (T*)ctx->stage, 2);
        }
    } else {
        for (int j = 0; j < n; j += nbs) {
            const int nb = min_i(nbs, n - j);
            T* cj = c + (long)j * ldc;
            if (strategy == gemm_given_a_pack_b) {
                copy_b(&kb, &nb, b_at(0, j), pldb, bp, &ctx->b.stride, nullptr);
                block(transa, transb, pm, &nb, &kr, nullptr, a, plda, bp, &ctx->b.stride, &one,
                      cj, pldc, (T*)ctx->stage, 2);
            } else {
                block(transa, transb, pm, &nb, &kb, nullptr, a, plda, b_at(0, j), pldb, &one,
                      cj, pldc, (T*)ctx->stage, 3);
            }
        }
    }
    scratch_free(blk);
    return 0;
}

template <class E>
void serial(Ch transa, Ch transb, I pm, I pn, I pk, const typename E::T* alpha,
            const typename E::T* a, I lda, const typename E::T* b, I ldb,
            const typename E::T* beta, typename E::T* c, I ldc) {
    using T = typename E::T;
    if (*pm <= 0 || *pn <= 0) return;
    static const T one = one_of<T>();
    gemm_context ctx;
    clear(&ctx);
    load<E>(&ctx);
    // C is scaled first and once, whatever k is.
    if (!is_one(*beta)) E::scale_c(pm, pn, beta, c, ldc);
    if (is_zero(*alpha)) return;
    if (*pm < ctx.mr || *pn < ctx.nr || *pk < ctx.ku) {
        E::direct(transa, transb, pm, pn, pk, alpha, a, lda, b, ldb, &one, c, ldc);
        return;
    }
    ctx.set_blocks(*pm, *pn, *pk, &ctx);
    const int strategy = strategy_rule<E>(*pn, *pk, &ctx);
    driver<E>(transa, transb, pm, pn, pk, alpha, a, lda, b, ldb, &one, c, ldc, strategy, &ctx);
}

}  // namespace
}  // namespace zva::gemm_blocked

// The operations on a gemm_context that all types share, for one branch.
#define ZVA_GEMM_CONTEXT_OPS                                                   \
    int gemm_ctx_avail() { return 1; }                                         \
    void gemm_ctx_clear(gemm_context* ctx) { gemm_blocked::clear(ctx); }       \
    void gemm_ctx_store(gemm_context* ctx, int mb, int nb, int kb) {           \
        gemm_blocked::store(ctx, mb, nb, kb);                                  \
    }

// The entries of one type for one branch, from its traits struct E.
#define ZVA_GEMM_TYPE_ENTRIES(p, E)                                            \
    void p##gemm_ctx_load(gemm_context* ctx) { gemm_blocked::load<E>(ctx); }   \
    int p##gemm_size_buffers(int which, int clamp, int m, int n, int k,        \
                             gemm_context* ctx) {                              \
        return gemm_blocked::size_buffers<E::T>(which, clamp, m, n, k, ctx);   \
    }                                                                          \
    int p##gemm_driver(Ch ta, Ch tb, I m, I n, I k, const E::T* alpha,         \
                       const E::T* a, I lda, const E::T* b, I ldb,             \
                       const E::T* beta, E::T* c, I ldc, int strategy,         \
                       gemm_context* ctx) {                                    \
        return gemm_blocked::driver<E>(ta, tb, m, n, k, alpha, a, lda, b, ldb, \
                                       beta, c, ldc, strategy, ctx);           \
    }                                                                          \
    void p##gemm_serial(Ch ta, Ch tb, I m, I n, I k, const E::T* alpha,        \
                        const E::T* a, I lda, const E::T* b, I ldb,            \
                        const E::T* beta, E::T* c, I ldc) {                    \
        gemm_blocked::serial<E>(ta, tb, m, n, k, alpha, a, lda, b, ldb, beta,  \
                                c, ldc);                                       \
    }

// The functions of a row of gemm_kernel_record, as designated initialisers
// that follow its sizes and strategy_mask: the block rule, the buffer
// sizing, and the copy routines and block multiply of prefix f. Real rows
// take the transposing copies for the letter "C"; complex rows name their
// block multiply bm.
#define ZVA_GEMM_ROW_ROUTINES(rule, sizer, f)                                   \
    .set_blocks = gemm_blocked::set_blocks<rule>, .size_buffers = sizer,        \
    .get_buffers = gemm_blocked::get_buffers, .copy_a_n = f##copy_a_n,          \
    .copy_a_t = f##copy_a_t, .copy_a_c = f##copy_a_t, .copy_b_n = f##copy_b_n,  \
    .copy_b_t = f##copy_b_t, .copy_b_c = f##copy_b_t,                           \
    .block_multiply = f##block_multiply, .reserved = {0, 0}
#define ZVA_GEMM_CROW_ROUTINES(rule, sizer, f, bm)                              \
    .set_blocks = gemm_blocked::set_blocks<rule>, .size_buffers = sizer,        \
    .get_buffers = gemm_blocked::get_buffers, .copy_a_n = f##copy_a_n,          \
    .copy_a_t = f##copy_a_t, .copy_a_c = f##copy_a_c, .copy_b_n = f##copy_b_n,  \
    .copy_b_t = f##copy_b_t, .copy_b_c = f##copy_b_c, .block_multiply = bm,     \
    .reserved = {0, 0}
// The traits of the four types of a branch from their row tables.
#define ZVA_GEMM_TRAITS(rows_per_type, above)                                   \
    using s_engine = gemm_blocked::traits<float, s_rows, rows_per_type,        \
                                          gemm_direct<float>, gemm_scale_c<float>, above>;  \
    using d_engine = gemm_blocked::traits<double, d_rows, rows_per_type,        \
                                          gemm_direct<double>, gemm_scale_c<double>, above>;  \
    using c_engine = gemm_blocked::traits<c32, c_rows, rows_per_type,           \
                                          gemm_direct<c32>, gemm_scale_c<c32>, above>;  \
    using z_engine = gemm_blocked::traits<c64, z_rows, rows_per_type,           \
                                          gemm_direct<c64>, gemm_scale_c<c64>, above>;
// All entries of a branch.
#define ZVA_GEMM_BRANCH_ENTRIES                                                 \
    ZVA_GEMM_CONTEXT_OPS                                                        \
    ZVA_GEMM_TYPE_ENTRIES(s, s_engine)                                          \
    ZVA_GEMM_TYPE_ENTRIES(d, d_engine)                                          \
    ZVA_GEMM_TYPE_ENTRIES(c, c_engine)                                          \
    ZVA_GEMM_TYPE_ENTRIES(z, z_engine)
