// The blocked engine of branch 7 in D: the row of the rotation form.
#include "gemm/blocked.h"
#include "gemm/kernels.h"

namespace zva::b7 {
namespace {

// The third-level cache decides how many rows of A a block holds.
constexpr gemm_blocked::block_rule d_blocks{256, 128, 384, 640, 3, 0x400000, 5000, true};
const gemm_kernel_record<double> d_rows[] = {
    {4, 4, 4, 1, 4, 4, 4, 106, gemm_blocked::set_blocks<d_blocks>, dgemm_size_buffers,
     gemm_blocked::get_buffers, dgemm_copy_a_n, dgemm_copy_a_t, dgemm_copy_a_t, dgemm_copy_b_n,
     dgemm_copy_b_t, dgemm_copy_b_t, dgemm_block_multiply, {0, 0}},
};

struct d_engine {
    using T = double;
    static const gemm_kernel_record<double>* row(int* index) {
        *index = 0;
        return &d_rows[0];
    }
    static constexpr sig_gemm_serial<double>* direct = dgemm_direct;
    static constexpr sig_gemm_scale_c<double>* scale_c = dgemm_scale_c;
    static constexpr uint32_t pack_both_above = 0;
};

}  // namespace

ZVA_GEMM_CONTEXT_OPS
ZVA_GEMM_TYPE_ENTRIES(d, d_engine)

}  // namespace zva::b7
