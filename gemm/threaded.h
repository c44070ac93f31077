// The threaded multiply: decides whether threads pay, how many, and how the
// product is cut among them. k is never cut across threads, so no element
// of C has two writers.
#pragma once
#include "frame/dispatch.h"
#include "gemm/engine.h"

namespace zva {

// The points of the engine of one type.
template <class T> struct gemm_points;
#define ZVA_GEMM_POINTS(T, p, P)                                               \
    template <> struct gemm_points<T> {                                        \
        static constexpr auto serial = dp::P##GEMM;                            \
        static constexpr auto scale_c = dp::p##gemm_scale_c;                   \
        static constexpr auto avail = dp::p##ctx_avail;                        \
        static constexpr auto clear = dp::p##ctx_clear;                        \
        static constexpr auto load = dp::p##ctx_load;                          \
        static constexpr auto driver = dp::p##ctx_driver;                      \
        static constexpr auto size_buffers = dp::p##ctx_size_buffers;          \
        static constexpr auto store = dp::p##ctx_store;                        \
    };
ZVA_GEMM_POINTS(float, s, S)
ZVA_GEMM_POINTS(double, d, D)
ZVA_GEMM_POINTS(c32, c, C)
ZVA_GEMM_POINTS(c64, z, Z)
#undef ZVA_GEMM_POINTS

template <class T> struct gemm_work;
template <class T>
using gemm_tile_fn = void(Ch, Ch, I, I, I, const T*, const T*, I, const T*, I, const T*, T*, I,
                          gemm_context*, gemm_work<T>*);

template <class T> struct gemm_work {
    int nthr;
    int grid_m, grid_n;
    int mb, nb, kb;
    sig_gemm_serial<T>* serial;
    sig_ctx_driver<T>* driver;
    gemm_tile_fn<T>* tile;
    sig_gemm_copy_a<T>* copy_a;
    sig_gemm_copy_b<T>* copy_b;
    char* a_base;
    char* b_base;
    char nota, notb, ta, tb;
    int strategy;
    int n_a, n_b;
    int code;
    int use_driver;
};

// Thread code from the micro-architecture: which cut suits the branch.
enum gemm_thread_codes : int {
    gt_slices = 0,          // branches 7, 3, 2: slices with an engine each
    gt_ssse3 = 1,           // branch 4 without SSE4.1: slices, A packed, B read in place
    gt_sse41_big_l2 = 2,    // branch 4 with SSE4.1, second-level cache above 3 MiB
    gt_sse42 = 3,           // branch 5: lock-step forms with shared packed areas
    gt_sse41_small_l2 = 4,  // branch 4 with SSE4.1, smaller second-level cache
    gt_avx = 5,             // branch 6
    gt_other_avx = 8,       // branch 5 on an AVX processor of another vendor
};
int gemm_thread_code();

template <class T>
void gemm_threaded(Ch transa, Ch transb, I m, I n, I k, const T* alpha, const T* a, I lda,
                   const T* b, I ldb, const T* beta, T* c, I ldc, L, L);

}  // namespace zva
