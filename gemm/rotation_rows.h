// The rows of the rotation form, included into the namespaces of branches 6
// and 7: the same sizes and blocks, each branch with its own functions.
// The third-level cache decides how many rows of A a block holds.
namespace {

using gemm_blocked::block_rule;
constexpr block_rule s_blocks{.kbase = 256, .kmin = 128, .mb_first = 768, .mb_second = 1280,
                              .cache_level = 3, .cache_limit = 0x400000, .nb_cap = 5000,
                              .nb_round = true};
constexpr block_rule d_blocks{.kbase = 256, .kmin = 128, .mb_first = 384, .mb_second = 640,
                              .cache_level = 3, .cache_limit = 0x400000, .nb_cap = 5000,
                              .nb_round = true};
constexpr block_rule c_blocks{.kbase = 256, .kmin = 128, .mb_first = 320, .mb_second = 640,
                              .cache_level = 3, .cache_limit = 0x400000, .nb_cap = 5000,
                              .nb_round = true};
constexpr block_rule z_blocks{.kbase = 256, .kmin = 128, .mb_first = 160, .mb_second = 320,
                              .cache_level = 3, .cache_limit = 0x400000, .nb_cap = 2000,
                              .nb_round = true};

// The rotation kernels always want B packed: no row reads it in place.
constexpr int32_t row_strategies = gemm_allow_pack_both | gemm_allow_given_a_pack_b |
                                   gemm_allow_given_b_pack_a | gemm_allow_reserved;

const gemm_kernel_record<float> s_rows[] = {
    {.mr = 8, .nr = 4, .ku = 4, .stage_panels = 1, .m_min = 8, .n_min = 4, .k_min = 4,
     .strategy_mask = row_strategies,
     ZVA_GEMM_ROW_ROUTINES(s_blocks, sgemm_size_buffers, sgemm_)}};
const gemm_kernel_record<double> d_rows[] = {
    {.mr = 4, .nr = 4, .ku = 4, .stage_panels = 1, .m_min = 4, .n_min = 4, .k_min = 4,
     .strategy_mask = row_strategies,
     ZVA_GEMM_ROW_ROUTINES(d_blocks, dgemm_size_buffers, dgemm_)}};
// C has the element size of D and shares its buffer sizing.
const gemm_kernel_record<c32> c_rows[] = {
    {.mr = 4, .nr = 2, .ku = 4, .stage_panels = 1, .m_min = 4, .n_min = 2, .k_min = 4,
     .strategy_mask = row_strategies,
     ZVA_GEMM_CROW_ROUTINES(c_blocks, dgemm_size_buffers, cgemm_, cgemm_block_multiply)}};
const gemm_kernel_record<c64> z_rows[] = {
    {.mr = 2, .nr = 2, .ku = 4, .stage_panels = 1, .m_min = 2, .n_min = 2, .k_min = 4,
     .strategy_mask = row_strategies,
     ZVA_GEMM_CROW_ROUTINES(z_blocks, zgemm_size_buffers, zgemm_, zgemm_block_multiply)}};

// The rotation rows always pack both operands.
ZVA_GEMM_TRAITS(1, 0)

}  // namespace

ZVA_GEMM_BRANCH_ENTRIES
