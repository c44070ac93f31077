// The blocked engine of branch 5: the swap rows of D and S, the split rows
// of C and Z. The third-level cache decides how many rows of A a block
// holds; B is streamed while one B block stays small.
#include "gemm/blocked.h"
#include "gemm/kernels.h"

namespace zva::b5 {
namespace {

using gemm_blocked::block_rule;
constexpr block_rule s_blocks{.kbase = 256, .kmin = 128, .mb_first = 768, .mb_second = 1280,
                              .cache_level = 3, .cache_limit = 0x400000, .nb_cap = 5000,
                              .nb_round = true};
constexpr block_rule d_blocks{.kbase = 256, .kmin = 128, .mb_first = 384, .mb_second = 640,
                              .cache_level = 3, .cache_limit = 0x400000, .nb_cap = 5000,
                              .nb_round = true};
constexpr block_rule c_blocks{.kbase = 128, .kmin = 64, .mb_first = 320, .mb_second = 1536,
                              .cache_level = 3, .cache_limit = 0x400000, .nb_cap = 5000,
                              .nb_round = false};
constexpr block_rule z_blocks{.kbase = 128, .kmin = 64, .mb_first = 160, .mb_second = 768,
                              .cache_level = 3, .cache_limit = 0x400000, .nb_cap = 2000,
                              .nb_round = false};

// Every row may read B in place as well as pack it.
constexpr int32_t row_strategies = gemm_allow_pack_both | gemm_allow_pack_a_stream_b |
                                   gemm_allow_given_a_pack_b | gemm_allow_given_a_stream_b |
                                   gemm_allow_given_b_pack_a | gemm_allow_reserved;

const gemm_kernel_record<float> s_rows[] = {
    {.mr = 4, .nr = 4, .ku = 4, .stage_panels = 2, .m_min = 4, .n_min = 4, .k_min = 4,
     .strategy_mask = row_strategies,
     ZVA_GEMM_ROW_ROUTINES(s_blocks, sgemm_size_buffers, sgemm_)}};
const gemm_kernel_record<double> d_rows[] = {
    {.mr = 2, .nr = 4, .ku = 4, .stage_panels = 1, .m_min = 2, .n_min = 4, .k_min = 4,
     .strategy_mask = row_strategies,
     ZVA_GEMM_ROW_ROUTINES(d_blocks, dgemm_size_buffers, dgemm_)}};
const gemm_kernel_record<c32> c_rows[] = {
    {.mr = 4, .nr = 2, .ku = 2, .stage_panels = 8, .m_min = 4, .n_min = 8, .k_min = 2,
     .strategy_mask = row_strategies,
     ZVA_GEMM_CROW_ROUTINES(c_blocks, dgemm_size_buffers, cgemm_, cgemm_block_multiply)}};
const gemm_kernel_record<c64> z_rows[] = {
    {.mr = 2, .nr = 2, .ku = 2, .stage_panels = 4, .m_min = 2, .n_min = 8, .k_min = 2,
     .strategy_mask = row_strategies,
     ZVA_GEMM_CROW_ROUTINES(z_blocks, zgemm_size_buffers, zgemm_, zgemm_block_multiply)}};

// Bytes of one B block above which B is packed rather than read in place.
constexpr uint32_t pack_both_above = 0x600000;
ZVA_GEMM_TRAITS(1, pack_both_above)

}  // namespace

ZVA_GEMM_BRANCH_ENTRIES

}  // namespace zva::b5
