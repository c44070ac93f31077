// The blocked engine of branch 4 in D: the k-pair row, and the swap row of
// branch 5 for processors with SSE4.1.
#include "gemm/blocked.h"
#include "gemm/kernels.h"

namespace zva::b4 {
namespace {

constexpr gemm_blocked::block_rule d_blocks_kpair{256, 128, 512, 512, 0, 0, 5000, false};
constexpr gemm_blocked::block_rule d_blocks_swap{256, 128, 448, 960, 2, 0x300000, 5000, true};
const gemm_kernel_record<double> d_rows[] = {
    {2, 2, 2, 4, 2, 8, 2, 126, gemm_blocked::set_blocks<d_blocks_kpair>, dgemm_size_buffers,
     gemm_blocked::get_buffers, dgemm_kp_copy_a_n, dgemm_kp_copy_a_t, dgemm_kp_copy_a_t,
     dgemm_kp_copy_b_n, dgemm_kp_copy_b_t, dgemm_kp_copy_b_t, dgemm_kp_block_multiply, {0, 0}},
    {2, 4, 4, 1, 2, 4, 4, 126, gemm_blocked::set_blocks<d_blocks_swap>, dgemm_size_buffers,
     gemm_blocked::get_buffers, dgemm_copy_a_n, dgemm_copy_a_t, dgemm_copy_a_t, dgemm_copy_b_n,
     dgemm_copy_b_t, dgemm_copy_b_t, dgemm_block_multiply, {0, 0}},
};

struct d_engine {
    using T = double;
    static const gemm_kernel_record<double>* row(int* index) {
        *index = cpu_has_sse41() ? 1 : 0;
        return &d_rows[*index];
    }
    static constexpr sig_gemm_serial<double>* direct = dgemm_direct;
    static constexpr sig_gemm_scale_c<double>* scale_c = dgemm_scale_c;
    static constexpr uint32_t pack_both_above = 0x400000;
};

}  // namespace

ZVA_GEMM_CONTEXT_OPS
ZVA_GEMM_TYPE_ENTRIES(d, d_engine)

}  // namespace zva::b4
