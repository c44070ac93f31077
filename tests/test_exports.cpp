// The library's surface: exactly the 174 decorated stdcall names, callee
// pops its words.
#include <elf.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>

#include <set>
#include <string>
#include <vector>

#include "zva.h"

namespace {

// The published families with their stack bytes.
const char* const families[] = {
    "SAXPY DAXPY CAXPY ZAXPY:24", "SCOPY DCOPY CCOPY ZCOPY:20",
    "SSWAP DSWAP CSWAP ZSWAP:20", "SDOT DDOT:20", "CDOTC ZDOTC CDOTU ZDOTU:24",
    "SDSDOT:24", "DSDOT:20", "SSCAL DSCAL CSCAL ZSCAL CSSCAL ZDSCAL:16",
    "SASUM DASUM SCASUM DZASUM:12", "SNRM2 DNRM2 SCNRM2 DZNRM2:12",
    "ISAMAX IDAMAX ICAMAX IZAMAX ISAMIN IDAMIN ICAMIN IZAMIN:12",
    "SROT DROT CSROT ZDROT:28", "SROTG DROTG CROTG ZROTG:16",
    "SROTM DROTM:24", "SROTMG DROTMG:20", "SAXPYI DAXPYI CAXPYI ZAXPYI:20",
    "SDOTI DDOTI:16", "CDOTCI ZDOTCI CDOTUI ZDOTUI:20",
    "SGTHR DGTHR CGTHR ZGTHR SGTHRZ DGTHRZ CGTHRZ ZGTHRZ SSCTR DSCTR CSCTR "
    "ZSCTR:16",
    "SROTI DROTI:24", "SGEMV DGEMV CGEMV ZGEMV:48",
    "SGBMV DGBMV CGBMV ZGBMV:56", "SSYMV DSYMV CHEMV ZHEMV:44",
    "SSBMV DSBMV CHBMV ZHBMV:48", "SSPMV DSPMV CHPMV ZHPMV:40",
    "STRMV DTRMV CTRMV ZTRMV STRSV DTRSV CTRSV ZTRSV:44",
    "STBMV DTBMV CTBMV ZTBMV STBSV DTBSV CTBSV ZTBSV:48",
    "STPMV DTPMV CTPMV ZTPMV STPSV DTPSV CTPSV ZTPSV:40",
    "SGER DGER CGERU ZGERU CGERC ZGERC:36", "SSYR DSYR CHER ZHER:32",
    "SSYR2 DSYR2 CHER2 ZHER2:40", "SSPR DSPR CHPR ZHPR:28",
    "SSPR2 DSPR2 CHPR2 ZHPR2:36", "SGEMM DGEMM CGEMM ZGEMM:60",
    "SSYMM DSYMM CSYMM ZSYMM CHEMM ZHEMM:56",
    "SSYRK DSYRK CSYRK ZSYRK CHERK ZHERK:48",
    "SSYR2K DSYR2K CSYR2K ZSYR2K CHER2K ZHER2K:56",
    "STRMM DTRMM CTRMM ZTRMM STRSM DTRSM CTRSM ZTRSM:60",
};

std::set<std::string> expected_names() {
    std::set<std::string> out;
    for (const char* f : families) {
        std::string s(f);
        std::string bytes = s.substr(s.find(':') + 1);
        s = s.substr(0, s.find(':'));
        size_t pos = 0;
        while (pos < s.size()) {
            size_t end = s.find(' ', pos);
            if (end == std::string::npos) end = s.size();
            out.insert("_" + s.substr(pos, end - pos) + "@" + bytes);
            pos = end + 1;
        }
    }
    return out;
}

// Defined symbols of the library's dynamic symbol table, read from the file.
std::set<std::string> defined_dynamic_symbols() {
    std::set<std::string> out;
    FILE* f = fopen(ZVA_LIB, "rb");
    EXPECT_TRUE(f);
    if (!f) return out;
    std::vector<unsigned char> img;
    unsigned char buf[65536];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) img.insert(img.end(), buf, buf + n);
    fclose(f);
    auto eh = (const Elf32_Ehdr*)img.data();
    auto sh = (const Elf32_Shdr*)(img.data() + eh->e_shoff);
    for (int i = 0; i < eh->e_shnum; ++i) {
        if (sh[i].sh_type != SHT_DYNSYM) continue;
        auto syms = (const Elf32_Sym*)(img.data() + sh[i].sh_offset);
        const char* strs = (const char*)img.data() + sh[sh[i].sh_link].sh_offset;
        for (size_t k = 1; k < sh[i].sh_size / sizeof(Elf32_Sym); ++k)
            if (syms[k].st_shndx != SHN_UNDEF)
                out.insert(strs + syms[k].st_name);
    }
    return out;
}

}  // namespace

TEST(Exports, ExactlyThe174DecoratedNames) {
    std::set<std::string> want = expected_names();
    ASSERT_EQ(want.size(), 174u);
    std::set<std::string> have = defined_dynamic_symbols();
    for (const std::string& s : want) EXPECT_TRUE(have.count(s)) << s << " missing";
    for (const std::string& s : have) EXPECT_TRUE(want.count(s)) << s << " should not be exported";
}

TEST(Exports, DlsymFindsEveryDecoratedName) {
    for (const std::string& s : expected_names())
        EXPECT_NE(dlsym(zva_lib(), s.c_str()), nullptr) << s;
    EXPECT_EQ(dlsym(zva_lib(), "DGEMM"), nullptr);
    EXPECT_EQ(dlsym(zva_lib(), "dgemm_"), nullptr);
}

TEST(Exports, CalleeRemovesItsWords) {
    double dx[3] = {1, 2, 3}, dy[3] = {1, 1, 1}, da = 2;
    float sx[3] = {1, 2, 3}, sy[3] = {1, 1, 1}, sa = 2;
    cdouble zx[3] = {{1, 1}, {2, 2}, {3, 3}}, zy[3] = {}, za = {1, 0};
    cfloat cx[3] = {{1, 1}, {2, 2}, {3, 3}}, cy[3] = {}, ca = {1, 0};
    int n = 3, one = 1;
    struct { const char* name; void* alpha; void* x; void* y; } cases[] = {
        {"_DAXPY@24", &da, dx, dy}, {"_SAXPY@24", &sa, sx, sy},
        {"_ZAXPY@24", &za, zx, zy}, {"_CAXPY@24", &ca, cx, cy}};
    for (auto& c : cases) {
        const uint32_t w[6] = {(uint32_t)&n, (uint32_t)c.alpha, (uint32_t)c.x,
                               (uint32_t)&one, (uint32_t)c.y, (uint32_t)&one};
        EXPECT_EQ(bytes_left_after_call(dlsym(zva_lib(), c.name), w, 6), 0) << c.name;
    }
    EXPECT_EQ(dy[2], 7.0);
    EXPECT_EQ(sy[2], 7.0f);
    EXPECT_EQ(zy[2].im, 3.0);
    EXPECT_EQ(cy[2].re, 3.0f);
}

