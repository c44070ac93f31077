// The reference CBLAS chain for faults that zva finds, with the library's
// own xerbla_: it goes on to the program's cblas_xerbla with the C routine's
// name, the number shifted by the layout argument, and the row-major flag
// set, from which a reporter maps row-major numbers back.
#include <gtest/gtest.h>

#include <string>

#include "blas/cblas.h"

extern "C" int RowMajorStrg;
namespace {
std::string name;
int info = 0, row = -1, calls = 0;
}  // namespace
extern "C" __attribute__((visibility("default"))) void cblas_xerbla(CBLAS_INT p, const char* rout, const char*, ...) {
    name = rout;
    info = p;
    row = RowMajorStrg;
    ++calls;
}

namespace {
TEST(Errors, ZvaFaultsReachCblasXerbla) {
    double a[4] = {}, b[4] = {}, c[4] = {};
    cblas_dgemm(CblasColMajor, CblasNoTrans, CblasNoTrans, -1, 2, 2, 1, a, 2, b, 2, 0, c, 2);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(name, "cblas_dgemm");
    EXPECT_EQ(info, 4);  // M
    EXPECT_EQ(row, 0);
    // Row-major: DGEMM sees M as its N (3 + 1 + 1); the reporter swaps back.
    cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, -1, 2, 2, 1, a, 2, b, 2, 0, c, 2);
    EXPECT_EQ(info, 5);
    EXPECT_EQ(row, 1);
    // LDA too small for row-major A (M x K = 2 x 2 needs lda >= 2): DGEMM's LDB.
    cblas_dgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, 2, 2, 2, 1, a, 1, b, 2, 0, c, 2);
    EXPECT_EQ(info, 11);
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(RowMajorStrg, 0);
}
}  // namespace
