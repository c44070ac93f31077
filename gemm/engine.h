// The blocked multiply engine: the static rows that describe a branch's
// kernels, and the working record that one call fills from a row.
#pragma once
#include <stdint.h>

#include "frame/signatures.h"

namespace zva {

// Packing routines. a (b) points at the block's first element as the caller
// stores it; buf receives panels of mr rows (nr columns) at multiples of
// *stride elements. alpha is folded into A; copy_b ignores its last word.
template <class T> using sig_gemm_copy_a = void(I m, I k, const T* a, I lda, T* buf, I stride,
                                                const T* alpha);
template <class T> using sig_gemm_copy_b = void(I k, I n, const T* b, I ldb, T* buf, I stride,
                                                const T* ignored);
// One packed block into C. a is packed with lda the address of its panel
// stride; b is packed likewise (mode 2) or the caller's B with its ldb
// (mode 3). alpha is already in A and beta already applied to C.
template <class T> using sig_gemm_block = void(Ch transa, Ch transb, I m, I n, I k,
                                               const T* alpha, const T* a, I lda, const T* b,
                                               I ldb, const T* beta, T* c, I ldc, T* stage,
                                               int mode);

using sig_gemm_set_blocks = void(int m, int n, int k, gemm_context* ctx);
using sig_gemm_get_buffers = int(int which, void** out_block, gemm_context* ctx);

// Functions of a row are kept untyped in the context (one layout serves all
// four types); gemm_fn_as<T> gives them back their type.
using gemm_fn = void (*)();

// Strategies of gemm_driver.
enum : int {
    gemm_pack_both = 2,
    gemm_pack_a_stream_b = 4,
    gemm_given_a_pack_b = 8,
    gemm_given_a_stream_b = 16,
    gemm_given_b_pack_a = 32,
};
// Bits of a row's strategy_mask. gemm_driver runs a strategy only when the
// row carries its bit, which is the strategy's own code. The given-block
// strategies serve the threaded driver, whose threads share packed operands.
enum : int32_t {
    gemm_allow_pack_both = gemm_pack_both,               // pack A and B here
    gemm_allow_pack_a_stream_b = gemm_pack_a_stream_b,   // pack A, read B in place
    gemm_allow_given_a_pack_b = gemm_given_a_pack_b,     // take packed A, pack B
    gemm_allow_given_a_stream_b = gemm_given_a_stream_b, // take packed A, read B in place
    gemm_allow_given_b_pack_a = gemm_given_b_pack_a,     // take packed B, pack A
    // Set in every row, but no strategy has this code and nothing asks
    // for it: it lets the driver do nothing more.
    gemm_allow_reserved = 64,
};
// Buffers named by size_buffers and get_buffers, and the two clamps.
enum : int {
    gemm_buf_all = 100,
    gemm_buf_a = 101,
    gemm_buf_b = 102,
    gemm_buf_ab = 103,
    gemm_buf_b_stage = 104,
    gemm_buf_a_stage = 105,
    gemm_buf_stage = 106,
    gemm_clamp_problem = 107,
    gemm_clamp_block = 108,
};
// Packed panels are followed by this many spare bytes: the kernels' last
// loads run past the end of a panel.
inline constexpr int gemm_spare_bytes = 512;

template <class T> struct gemm_kernel_record {
    int32_t mr, nr, ku, stage_panels;
    int32_t m_min, n_min, k_min;
    int32_t strategy_mask;
    sig_gemm_set_blocks* set_blocks;
    sig_ctx_size* size_buffers;
    sig_gemm_get_buffers* get_buffers;
    sig_gemm_copy_a<T>*copy_a_n, *copy_a_t, *copy_a_c;
    sig_gemm_copy_b<T>*copy_b_n, *copy_b_t, *copy_b_c;
    sig_gemm_block<T>* block_multiply;
    int32_t reserved[2];
};

struct gemm_buffer {
    void* p;
    int32_t stride;     // panel stride, in elements
    uint32_t size;      // bytes
    int32_t align_log2;
};

struct gemm_context {
    int32_t reserved0;
    int32_t row;
    int32_t strategy_mask;
    int32_t reserved1;
    int32_t mb, nb, kb;
    int32_t mr, nr, ku;
    int32_t m_min, n_min, k_min;
    gemm_buffer a, b;
    sig_gemm_set_blocks* set_blocks;
    sig_ctx_size* size_buffers;
    sig_gemm_get_buffers* get_buffers;
    gemm_fn copy_a_n, copy_a_t, copy_a_c;
    gemm_fn copy_b_n, copy_b_t, copy_b_c;
    int32_t reserved2[2];
    int32_t stage_panels;
    gemm_fn block_multiply;
    void* stage;
    uint32_t stage_size;
    int32_t stage_align_log2;
};

template <class F> inline F* gemm_fn_as(gemm_fn f) { return reinterpret_cast<F*>(f); }
template <class F> inline gemm_fn gemm_fn_of(F* f) { return reinterpret_cast<gemm_fn>(f); }

}  // namespace zva
