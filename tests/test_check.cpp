// Argument checks of the 96 checked exports: each faulty parameter in turn,
// the exact report on standard output, and every operand left as it was.
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "zva.h"

namespace {

// Published parameter lists.  o:LETTERS an option (first letter valid),
// n a dimension, k a band width, lN a leading dimension whose bound is N
// with the other defaults, x an increment, s a scalar, a an array.
struct family { const char* routines; const char* params; };
const family families[] = {
    {"SGEMM DGEMM CGEMM ZGEMM", "o:NTC o:NTC n n n s a l3 a l3 s a l3"},
    {"SSYMM DSYMM CSYMM ZSYMM CHEMM ZHEMM", "o:LR o:UL n n s a l3 a l3 s a l3"},
    {"SSYRK DSYRK", "o:UL o:NTC n n s a l3 s a l3"},
    {"CSYRK ZSYRK", "o:UL o:NT n n s a l3 s a l3"},
    {"CHERK ZHERK", "o:UL o:NC n n s a l3 s a l3"},
    {"SSYR2K DSYR2K", "o:UL o:NTC n n s a l3 a l3 s a l3"},
    {"CSYR2K ZSYR2K", "o:UL o:NT n n s a l3 a l3 s a l3"},
    {"CHER2K ZHER2K", "o:UL o:NC n n s a l3 a l3 s a l3"},
    {"STRMM DTRMM CTRMM ZTRMM STRSM DTRSM CTRSM ZTRSM",
     "o:LR o:UL o:NTC o:UN n n s a l3 a l3"},
    {"SGEMV DGEMV CGEMV ZGEMV", "o:NTC n n s a l3 a x s a x"},
    {"SGBMV DGBMV CGBMV ZGBMV", "o:NTC n n k k s a l3 a x s a x"},
    {"SSYMV DSYMV CHEMV ZHEMV", "o:UL n s a l3 a x s a x"},
    {"SSBMV DSBMV CHBMV ZHBMV", "o:UL n k s a l2 a x s a x"},
    {"SSPMV DSPMV CHPMV ZHPMV", "o:UL n s a a x s a x"},
    {"STRMV DTRMV CTRMV ZTRMV STRSV DTRSV CTRSV ZTRSV", "o:UL o:NTC o:UN n a l3 a x"},
    {"STBMV DTBMV CTBMV ZTBMV STBSV DTBSV CTBSV ZTBSV", "o:UL o:NTC o:UN n k a l2 a x"},
    {"STPMV DTPMV CTPMV ZTPMV STPSV DTPSV CTPSV ZTPSV", "o:UL o:NTC o:UN n a a x"},
    {"SGER DGER CGERU ZGERU CGERC ZGERC", "n n s a x a x a l3"},
    {"SSYR DSYR CHER ZHER", "o:UL n s a x a l3"},
    {"SSYR2 DSYR2 CHER2 ZHER2", "o:UL n s a x a x a l3"},
    {"SSPR DSPR CHPR ZHPR", "o:UL n s a x a"},
    {"SSPR2 DSPR2 CHPR2 ZHPR2", "o:UL n s a x a x a"},
};

std::vector<std::string> split(const char* s) {
    std::vector<std::string> out;
    std::string cur;
    for (; *s; ++s) {
        if (*s == ' ') {
            if (!cur.empty()) out.push_back(cur);
            cur.clear();
        } else {
            cur += *s;
        }
    }
    if (!cur.empty()) out.push_back(cur);
    return out;
}

constexpr int buffer_bytes = 2048;
constexpr unsigned char sentinel = 0xA5;

// One call of a routine: its stack words built from the parameter list,
// with every operand a sentinel-filled buffer.
struct call {
    std::string routine;
    std::vector<std::string> params;
    std::vector<int> ints;
    std::vector<std::string> options;
    std::vector<std::vector<unsigned char>> buffers;

    call(const std::string& r, const char* list) : routine(r), params(split(list)) {
        ints.resize(params.size());
        options.resize(params.size());
        buffers.resize(params.size());
        for (size_t i = 0; i < params.size(); ++i) {
            const std::string& p = params[i];
            if (p[0] == 'o') options[i] = p.substr(2, 1);
            if (p == "n") ints[i] = 3;
            if (p == "k") ints[i] = 1;
            if (p[0] == 'l') ints[i] = atoi(p.c_str() + 1);
            if (p == "x") ints[i] = 1;
            if (p == "s" || p == "a") buffers[i].assign(buffer_bytes, sentinel);
        }
    }
    // The value that makes parameter i faulty.
    void spoil(size_t i) {
        const std::string& p = params[i];
        if (p[0] == 'o') options[i] = "X";
        if (p == "n" || p == "k") ints[i] = -1;
        if (p[0] == 'l') ints[i] -= 1;
        if (p == "x") ints[i] = 0;
    }
    bool faultable(size_t i) const { return params[i] != "s" && params[i] != "a"; }
    std::string name() const {
        size_t words = params.size();
        for (auto& p : params) words += p[0] == 'o';
        return "_" + routine + "@" + std::to_string(4 * words);
    }
    // Character arguments come first, each followed by its hidden length.
    std::vector<uint32_t> words() const {
        std::vector<uint32_t> w;
        for (size_t i = 0; i < params.size(); ++i) {
            if (params[i][0] == 'o') {
                w.push_back((uint32_t)options[i].c_str());
                w.push_back((uint32_t)options[i].size());
            } else if (!buffers[i].empty()) {
                w.push_back((uint32_t)buffers[i].data());
            } else {
                w.push_back((uint32_t)&ints[i]);
            }
        }
        return w;
    }
    bool untouched() const {
        for (auto& b : buffers)
            for (unsigned char c : b)
                if (c != sentinel) return false;
        return true;
    }
};

// Runs the call with standard output captured; returns what it printed.
std::string run(const call& c, int* bytes_left = nullptr) {
    std::vector<uint32_t> w = c.words();
    void* fn = dlsym(zva_lib(), c.name().c_str());
    EXPECT_NE(fn, nullptr) << c.name();
    if (!fn) return "";
    fflush(stdout);
    FILE* tmp = tmpfile();
    int saved = dup(1);
    dup2(fileno(tmp), 1);
    int left = bytes_left_after_call(fn, w.data(), (int)w.size());
    fflush(stdout);
    dup2(saved, 1);
    close(saved);
    if (bytes_left) *bytes_left = left;
    std::string out;
    rewind(tmp);
    char buf[512];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, tmp)) > 0) out.append(buf, n);
    fclose(tmp);
    return out;
}

std::string report(const std::string& routine, int param) {
    char text[128];
    snprintf(text, sizeof text, "\nZVA ERROR: Parameter %d was incorrect on entry to %-6s.\n",
             param, routine.c_str());
    return text;
}

}  // namespace

TEST(Check, EveryFaultyParameterOfEveryRoutine) {
    int routines = 0, cases = 0;
    for (const family& f : families) {
        for (const std::string& r : split(f.routines)) {
            ++routines;
            call valid(r, f.params);
            for (size_t i = 0; i < valid.params.size(); ++i) {
                if (!valid.faultable(i)) continue;
                call c = valid;
                c.spoil(i);
                int left = -1;
                EXPECT_EQ(run(c, &left), report(r, (int)i + 1)) << r << " parameter " << i + 1;
                EXPECT_TRUE(c.untouched()) << r << " parameter " << i + 1;
                EXPECT_EQ(left, 0) << r;
                ++cases;
            }
        }
    }
    EXPECT_EQ(routines, 96);
    printf("%d checker cases\n", cases);
}

// With every parameter faulty, the first in the published order is named.
TEST(Check, FirstFaultWins) {
    for (const family& f : families) {
        for (const std::string& r : split(f.routines)) {
            call c(r, f.params);
            size_t first = c.params.size();
            for (size_t i = c.params.size(); i-- > 0;)
                if (c.faultable(i)) c.spoil(i), first = i;
            EXPECT_EQ(run(c), report(r, (int)first + 1)) << r;
        }
    }
    // A bad TRANSA and a negative M: parameter 1 only.
    call c("DGEMM", families[0].params);
    c.spoil(0);
    c.spoil(2);
    EXPECT_EQ(run(c), report("DGEMM", 1));
}

namespace {
call gemm(const char* ta, const char* tb, int m, int n, int k, int lda, int ldb, int ldc) {
    call c("DGEMM", families[0].params);
    c.options[0] = ta, c.options[1] = tb;
    c.ints[2] = m, c.ints[3] = n, c.ints[4] = k, c.ints[7] = lda, c.ints[9] = ldb;
    c.ints[12] = ldc;
    return c;
}
}  // namespace

TEST(Check, Bounds) {
    // The bound is max(1, rows): M = 0 with LDA = 0 still fails.
    EXPECT_EQ(run(gemm("N", "N", 0, 3, 3, 0, 3, 1)), report("DGEMM", 8));
    // Rows of A follow TRANSA: with "T" they are K.
    EXPECT_EQ(run(gemm("T", "N", 5, 3, 2, 2, 2, 4)), report("DGEMM", 13));
    EXPECT_EQ(run(gemm("T", "N", 5, 3, 2, 1, 2, 5)), report("DGEMM", 8));
    EXPECT_EQ(run(gemm("N", "C", 5, 3, 2, 5, 2, 5)), report("DGEMM", 10));

    // GBMV: LDA = KL + KU is rejected, KL + KU + 1 passes on to INCX.
    call g("DGBMV", families[10].params);
    g.ints[3] = 2, g.ints[4] = 3, g.ints[7] = 5;
    EXPECT_EQ(run(g), report("DGBMV", 8));
    g.ints[7] = 6, g.ints[9] = 0;
    EXPECT_EQ(run(g), report("DGBMV", 10));
    // A negative KL is reported ahead of the leading dimension.
    g.ints[3] = -1, g.ints[7] = 0;
    EXPECT_EQ(run(g), report("DGBMV", 4));
}

TEST(Check, Letters) {
    // Lower case and whole words count by their first letter; the hidden
    // length is carried along only.
    call c = gemm("transpose", "n", 3, 3, 3, 3, 3, 3);
    c.ints[12] = 0;
    EXPECT_EQ(run(c), report("DGEMM", 13));
    c.options[0] = "No tranpose";
    EXPECT_EQ(run(c), report("DGEMM", 13));
    c.options[0] = "c";
    EXPECT_EQ(run(c), report("DGEMM", 13));

    auto syrk = [](const char* r, int fam, const char* trans) {
        call c(r, families[fam].params);
        c.options[1] = trans;
        c.ints[9] = 0;  // LDC, the last check
        return run(c);
    };
    EXPECT_EQ(syrk("CSYRK", 3, "C"), report("CSYRK", 2));
    EXPECT_EQ(syrk("CSYRK", 3, "t"), report("CSYRK", 10));
    EXPECT_EQ(syrk("CHERK", 4, "T"), report("CHERK", 2));
    EXPECT_EQ(syrk("CHERK", 4, "c"), report("CHERK", 10));
    EXPECT_EQ(syrk("DSYRK", 2, "C"), report("DSYRK", 10));

    for (const char* ok : {"l", "u"}) {
        call t("DTRSM", families[8].params);
        t.options[1] = ok, t.options[0] = "r", t.options[3] = "n", t.ints[10] = 0;
        EXPECT_EQ(run(t), report("DTRSM", 11));
    }
}

TEST(Check, ShortNamesArePadded) {
    call c("CHER", families[18].params);
    c.spoil(0);
    EXPECT_EQ(run(c), "\nZVA ERROR: Parameter 1 was incorrect on entry to CHER  .\n");
}
