// The blocked engine of branch 4. Each type has two rows: the first for
// processors without SSE4.1 (k-pair rows of D and S, split rows of C and Z
// with the broadcast stage), the second, the rows of branch 5, for those
// with it. The second-level cache decides how many rows of A a block holds
// there; the first rows have fixed blocks.
#include "gemm/blocked.h"
#include "gemm/kernels.h"

namespace zva::b4 {
namespace {

using gemm_blocked::block_rule;
constexpr block_rule s_blocks_kp{256, 128, 1024, 1024, 0, 0, 5000, false};
constexpr block_rule s_blocks{256, 128, 896, 2000, 2, 0x300000, 5000, true};
constexpr block_rule d_blocks_kp{256, 128, 512, 512, 0, 0, 5000, false};
constexpr block_rule d_blocks{256, 128, 448, 960, 2, 0x300000, 5000, true};
constexpr block_rule c_blocks_bc{80, 64, 1424, 1424, 0, 0, 5000, false};
constexpr block_rule c_blocks{128, 64, 448, 1536, 2, 0x300000, 5000, false};
constexpr block_rule z_blocks_bc{80, 64, 744, 744, 0, 0, 5000, false};
constexpr block_rule z_blocks{128, 64, 256, 768, 2, 0x300000, 2000, false};

const gemm_kernel_record<float> s_rows[] = {
    ZVA_GEMM_ROW(4, 2, 2, 8, 4, 8, 2, 126, s_blocks_kp, sgemm_size_buffers, sgemm_kp_),
    ZVA_GEMM_ROW(4, 4, 4, 2, 4, 4, 4, 126, s_blocks, sgemm_size_buffers, sgemm_)};
const gemm_kernel_record<double> d_rows[] = {
    ZVA_GEMM_ROW(2, 2, 2, 4, 2, 8, 2, 126, d_blocks_kp, dgemm_size_buffers, dgemm_kp_),
    ZVA_GEMM_ROW(2, 4, 4, 1, 2, 4, 4, 126, d_blocks, dgemm_size_buffers, dgemm_)};
const gemm_kernel_record<c32> c_rows[] = {
    ZVA_GEMM_CROW(4, 2, 2, 16, 4, 8, 2, 126, c_blocks_bc, dgemm_size_buffers, cgemm_,
                  cgemm_bc_block_multiply),
    ZVA_GEMM_CROW(4, 2, 2, 8, 4, 8, 2, 126, c_blocks, dgemm_size_buffers, cgemm_,
                  cgemm_block_multiply)};
const gemm_kernel_record<c64> z_rows[] = {
    ZVA_GEMM_CROW(2, 2, 2, 8, 2, 8, 2, 126, z_blocks_bc, zgemm_size_buffers, zgemm_,
                  zgemm_bc_block_multiply),
    ZVA_GEMM_CROW(2, 2, 2, 4, 2, 8, 2, 126, z_blocks, zgemm_size_buffers, zgemm_,
                  zgemm_block_multiply)};

ZVA_GEMM_TRAITS(2, 0x400000)

}  // namespace

ZVA_GEMM_BRANCH_ENTRIES

}  // namespace zva::b4
