// The rows of the rotation form, included into the namespaces of branches 6
// and 7: the same sizes and blocks, each branch with its own functions.
// The third-level cache decides how many rows of A a block holds.
namespace {

constexpr gemm_blocked::block_rule s_blocks{256, 128, 768, 1280, 3, 0x400000, 5000, true};
constexpr gemm_blocked::block_rule d_blocks{256, 128, 384, 640, 3, 0x400000, 5000, true};
constexpr gemm_blocked::block_rule c_blocks{256, 128, 320, 640, 3, 0x400000, 5000, true};
constexpr gemm_blocked::block_rule z_blocks{256, 128, 160, 320, 3, 0x400000, 2000, true};

const gemm_kernel_record<float> s_rows[] = {
    ZVA_GEMM_ROW(8, 4, 4, 1, 8, 4, 4, 106, s_blocks, sgemm_size_buffers, sgemm_)};
const gemm_kernel_record<double> d_rows[] = {
    ZVA_GEMM_ROW(4, 4, 4, 1, 4, 4, 4, 106, d_blocks, dgemm_size_buffers, dgemm_)};
// C has the element size of D and shares its buffer sizing.
const gemm_kernel_record<c32> c_rows[] = {ZVA_GEMM_CROW(
    4, 2, 4, 1, 4, 2, 4, 106, c_blocks, dgemm_size_buffers, cgemm_, cgemm_block_multiply)};
const gemm_kernel_record<c64> z_rows[] = {ZVA_GEMM_CROW(
    2, 2, 4, 1, 2, 2, 4, 106, z_blocks, zgemm_size_buffers, zgemm_, zgemm_block_multiply)};

// The rotation rows always pack both operands.
ZVA_GEMM_TRAITS(1, 0)

}  // namespace

ZVA_GEMM_BRANCH_ENTRIES
