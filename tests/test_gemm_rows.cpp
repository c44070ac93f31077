// The rows of the blocked engines of branches 4 to 7, reached through their
// context loaders: block sizes, buffer sizing and carving, the packed
// layouts, and the main kernels of branches 6 and 7 agreeing bit for bit.
#include <gtest/gtest.h>
#include <math.h>
#include <string.h>

#include <vector>

#include "frame/memory.h"
#include "gemm/kernels.h"

namespace {

using namespace zva;

using loader = void (*)(gemm_context*);
struct branch_row {
    int branch;
    loader load;
};
const branch_row rows[] = {{4, b4::dgemm_ctx_load},
                           {5, b5::dgemm_ctx_load},
                           {6, b6::dgemm_ctx_load},
                           {7, b7::dgemm_ctx_load}};

gemm_context loaded(loader load) {
    gemm_context ctx;
    memset(&ctx, 0x5a, sizeof ctx);
    b7::gemm_ctx_clear(&ctx);
    load(&ctx);
    return ctx;
}

// The k-pair row keeps two steps of k together per row and column.
bool kpair(const gemm_context& c) { return c.ku == 2 && c.nr == 2; }

// Offset of element (row or column r, step l) within a packed block.
size_t packed_at(const gemm_context& c, int width, int stride, int r, int l) {
    const size_t panel = (size_t)(r / width) * stride;
    if (!kpair(c)) return panel + (size_t)l * width + r % width;
    return panel + (size_t)(l / 2) * 2 * width + (r % width) * 2 + l % 2;
}

TEST(GemmRows, BlockSizes) {
    for (const branch_row& br : rows) {
        gemm_context c = loaded(br.load);
        // Whole k below 256 (at least 128), half of it up to 512, else 256;
        // rounded up to the row's ku.
        const int q = c.ku;
        struct { int k, kb; } cases[] = {{1, 128},
                                         {130, (130 + q - 1) / q * q},
                                         {256, 256},
                                         {300, (150 + q - 1) / q * q},
                                         {511, 256},
                                         {600, 256}};
        for (auto& t : cases) {
            gemm_context x = c;
            x.set_blocks(100, 3, t.k, &x);
            EXPECT_EQ(x.kb, t.kb) << "branch " << br.branch << " k=" << t.k;
            EXPECT_GE(x.nb, x.nr);
            EXPECT_GT(x.mb, 0);
            EXPECT_EQ(x.mb % x.mr, 0);
        }
        // A field that is already set stays.
        gemm_context y = c;
        y.kb = 40, y.mb = 12;
        y.set_blocks(1000, 9000, 1000, &y);
        EXPECT_EQ(y.kb, 40);
        EXPECT_EQ(y.mb, 12);
        EXPECT_EQ(y.nb, 5000);
    }
}

TEST(GemmRows, BuffersAreSizedAndCarvedInOrder) {
    for (const branch_row& br : rows) {
        gemm_context c = loaded(br.load);
        c.set_blocks(70, 50, 300, &c);
        EXPECT_EQ(c.size_buffers(99, gemm_clamp_problem, 70, 50, 300, &c), 1);
        EXPECT_EQ(c.size_buffers(gemm_buf_all, 109, 70, 50, 300, &c), 1);
        ASSERT_EQ(c.size_buffers(gemm_buf_all, gemm_clamp_problem, 70, 50, 300, &c), 0);
        const int kk = (c.kb + c.ku - 1) / c.ku * c.ku;
        const int mm = (70 + c.mr - 1) / c.mr * c.mr, nn = (50 + c.nr - 1) / c.nr * c.nr;
        EXPECT_EQ(c.a.size, (uint32_t)mm * kk * 8 + 512);
        EXPECT_EQ(c.b.size, (uint32_t)nn * kk * 8 + 512);
        EXPECT_EQ(c.a.stride, c.mr * kk);
        EXPECT_EQ(c.b.stride, c.nr * kk);
        EXPECT_EQ(c.stage_size, (uint32_t)kk * 8 * c.nr * c.stage_panels + 512);
        void* blk = (void*)1;
        EXPECT_EQ(c.get_buffers(gemm_buf_ab, &blk, &c), 1);
        EXPECT_EQ(blk, nullptr);
        ASSERT_EQ(c.get_buffers(gemm_buf_all, &blk, &c), 0);
        ASSERT_NE(blk, nullptr);
        const uintptr_t a = (uintptr_t)c.a.p, s = (uintptr_t)c.stage, b = (uintptr_t)c.b.p;
        EXPECT_EQ(a % 4096, 0u);
        EXPECT_EQ(s % 128, 0u);
        EXPECT_EQ(b % 4096, 0u);
        EXPECT_LE((uintptr_t)blk, a);
        EXPECT_LE(a + c.a.size, s);
        EXPECT_LE(s + c.stage_size, b);
        // Every byte of the three buffers can be written.
        memset(c.a.p, 1, c.a.size);
        memset(c.stage, 2, c.stage_size);
        memset(c.b.p, 3, c.b.size);
        scratch_free(blk);
    }
}

double* align(double* p) { return (double*)(((uintptr_t)p + 4095) & ~(uintptr_t)4095); }

// Packs op(A) of m x k and op(B) of k x n with the row's routines into
// NaN-filled buffers and checks every slot.
void check_packing(const gemm_context& c, int branch, int m, int n, int k, double alpha) {
    const int kk = (k + c.ku - 1) / c.ku * c.ku;
    const int sa = c.mr * kk, sb = c.nr * kk;
    const int pa = (m + c.mr - 1) / c.mr, pb = (n + c.nr - 1) / c.nr;
    for (int t = 0; t < 2; ++t) {
        const int lda = t ? k + 1 : m + 2, ldb = t ? n + 3 : k + 1;
        std::vector<double> a((size_t)lda * (t ? m : k)), b((size_t)ldb * (t ? k : n));
        for (size_t i = 0; i < a.size(); ++i) a[i] = i % 7 == 3 ? 0.0 : sin(i + 1.0);
        for (size_t i = 0; i < b.size(); ++i) b[i] = cos(i + 0.5);
        // Packed buffers are page-aligned, as the engine carves them.
        std::vector<double> pa_raw((size_t)pa * sa + 640, NAN), pb_raw((size_t)pb * sb + 640, NAN);
        double* pa_buf = align(pa_raw.data());
        double* pb_buf = align(pb_raw.data());
        auto* ca = gemm_fn_as<sig_gemm_copy_a<double>>(t ? c.copy_a_t : c.copy_a_n);
        auto* cb = gemm_fn_as<sig_gemm_copy_b<double>>(t ? c.copy_b_t : c.copy_b_n);
        ca(&m, &k, a.data(), &lda, pa_buf, &sa, &alpha);
        cb(&k, &n, b.data(), &ldb, pb_buf, &sb, nullptr);
        for (int i = 0; i < pa * c.mr; ++i)
            for (int l = 0; l < kk; ++l) {
                const double got = pa_buf[packed_at(c, c.mr, sa, i, l)];
                if (l >= k) {
                    ASSERT_EQ(got, 0.0) << "A padding, branch " << branch;
                } else if (i < m) {
                    const double src = t ? a[l + (size_t)i * lda] : a[i + (size_t)l * lda];
                    const double want = alpha * src;
                    ASSERT_EQ(memcmp(&got, &want, 8), 0)
                        << "A branch " << branch << " t=" << t << " i=" << i << " l=" << l;
                } else {
                    ASSERT_TRUE(isnan(got)) << "slot of a missing row was written";
                }
            }
        for (int j = 0; j < pb * c.nr; ++j)
            for (int l = 0; l < kk; ++l) {
                // An odd last column of the k-pair row is stored alone.
                size_t at = packed_at(c, c.nr, sb, j, l);
                if (kpair(c) && n % 2 && j == n - 1) at = (size_t)(j / 2) * sb + l;
                if (kpair(c) && n % 2 && j == n) continue;
                const double got = pb_buf[at];
                const double want = l < k && j < n
                                        ? (t ? b[j + (size_t)l * ldb] : b[l + (size_t)j * ldb])
                                        : 0.0;
                ASSERT_EQ(memcmp(&got, &want, 8), 0)
                    << "B branch " << branch << " t=" << t << " j=" << j << " l=" << l;
            }
    }
}

TEST(GemmRows, PackedLayouts) {
    for (const branch_row& br : rows) {
        gemm_context c = loaded(br.load);
        for (int m : {1, 2, 3, 5, 8, 13})
            for (int k : {1, 2, 3, 4, 5, 9})
                for (double alpha : {1.0, -1.0, 0.3}) {
                    const int n = m + 1;
                    check_packing(c, br.branch, m, n, k, alpha);
                }
    }
}

// Main-kernel rows: one running sum in increasing k, added to C once.
TEST(GemmRows, RotationKernelsOfBranches6And7Agree) {
    gemm_context c6 = loaded(b6::dgemm_ctx_load), c7 = loaded(b7::dgemm_ctx_load);
    for (int k : {4, 8, 12, 36, 256})
        for (int n : {4, 5, 7, 8, 12}) {
            const int m = 12;
            std::vector<double> a((size_t)m * k), b((size_t)k * n);
            for (size_t i = 0; i < a.size(); ++i) a[i] = sin(3.0 * i + k);
            for (size_t i = 0; i < b.size(); ++i) b[i] = cos(1.7 * i - n);
            const int sa = 4 * k, sb = 4 * k, ldc = m + 1;
            const int pb = (n + 3) / 4;
            double* pa = (double*)scratch_alloc((m * k) * 8 + 512, 4096);
            double* pbuf = (double*)scratch_alloc((pb * 4 * k) * 8 + 512, 4096);
            double* stage = (double*)scratch_alloc(4 * k * 8 + 512, 128);
            const double one = 1.0;
            b7::dgemm_copy_a_n(&m, &k, a.data(), &m, pa, &sa, &one);
            b7::dgemm_copy_b_n(&k, &n, b.data(), &k, pbuf, &sb, nullptr);
            std::vector<double> c6v((size_t)ldc * n), c7v;
            for (size_t i = 0; i < c6v.size(); ++i) c6v[i] = 0.25 * i;
            c7v = c6v;
            auto* f6 = gemm_fn_as<sig_gemm_block<double>>(c6.block_multiply);
            auto* f7 = gemm_fn_as<sig_gemm_block<double>>(c7.block_multiply);
            f6("N", "N", &m, &n, &k, &one, pa, &sa, pbuf, &sb, &one, c6v.data(), &ldc, stage, 2);
            f7("N", "N", &m, &n, &k, &one, pa, &sa, pbuf, &sb, &one, c7v.data(), &ldc, stage, 2);
            ASSERT_EQ(memcmp(c6v.data(), c7v.data(), c6v.size() * 8), 0) << "k=" << k << " n=" << n;
            for (int j = 0; j < n; ++j)
                for (int i = 0; i < m; ++i) {
                    double s = 0;
                    for (int l = 0; l < k; ++l) s += a[i + (size_t)l * m] * b[l + (size_t)j * k];
                    const double want = 0.25 * (i + (size_t)j * ldc) + s;
                    ASSERT_EQ(memcmp(&c7v[i + (size_t)j * ldc], &want, 8), 0) << i << "," << j;
                }
            scratch_free(pa);
            scratch_free(pbuf);
            scratch_free(stage);
        }
}

}  // namespace
