// The blocked engine of branch 5: the swap rows of D and S, the split rows
// of C and Z. The third-level cache decides how many rows of A a block
// holds; B is streamed while one B block stays small.
#include "gemm/blocked.h"
#include "gemm/kernels.h"

namespace zva::b5 {
namespace {

constexpr gemm_blocked::block_rule s_blocks{256, 128, 768, 1280, 3, 0x400000, 5000, true};
constexpr gemm_blocked::block_rule d_blocks{256, 128, 384, 640, 3, 0x400000, 5000, true};
constexpr gemm_blocked::block_rule c_blocks{128, 64, 320, 1536, 3, 0x400000, 5000, false};
constexpr gemm_blocked::block_rule z_blocks{128, 64, 160, 768, 3, 0x400000, 2000, false};

const gemm_kernel_record<float> s_rows[] = {
    ZVA_GEMM_ROW(4, 4, 4, 2, 4, 4, 4, 126, s_blocks, sgemm_size_buffers, sgemm_)};
const gemm_kernel_record<double> d_rows[] = {
    ZVA_GEMM_ROW(2, 4, 4, 1, 2, 4, 4, 126, d_blocks, dgemm_size_buffers, dgemm_)};
const gemm_kernel_record<c32> c_rows[] = {ZVA_GEMM_CROW(
    4, 2, 2, 8, 4, 8, 2, 126, c_blocks, dgemm_size_buffers, cgemm_, cgemm_block_multiply)};
const gemm_kernel_record<c64> z_rows[] = {ZVA_GEMM_CROW(
    2, 2, 2, 4, 2, 8, 2, 126, z_blocks, zgemm_size_buffers, zgemm_, zgemm_block_multiply)};

ZVA_GEMM_TRAITS(1, 0x600000)

}  // namespace

ZVA_GEMM_BRANCH_ENTRIES

}  // namespace zva::b5
