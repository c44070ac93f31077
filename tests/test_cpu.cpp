// Processor detection and the branch decision on simulated processors.
// Every decision is cached for the life of the process, so each case runs
// in a child process with its own environment and CPUID source.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "frame/cpu.h"

namespace {

// Feature bits as CPUID reports them.
constexpr uint32_t EDX_BASE = 1u | 1u << 15 | 1u << 23;  // FPU CMOV MMX
constexpr uint32_t EDX_FXSR = 1u << 24, EDX_SSE = 1u << 25, EDX_SSE2 = 1u << 26;
constexpr uint32_t EDX_SSE2_CPU = EDX_BASE | EDX_FXSR | EDX_SSE | EDX_SSE2;
constexpr uint32_t SSE3 = 1u, PCLMUL = 1u << 1, SSSE3 = 1u << 9, FMA = 1u << 12,
                   SSE41 = 1u << 19, SSE42 = 1u << 20, MOVBE = 1u << 22,
                   POPCNT = 1u << 23, AES = 1u << 25, OSXSAVE = 1u << 27,
                   AVX = 1u << 28, F16C = 1u << 29, RDRAND = 1u << 30;
constexpr uint32_t L7_BMI1 = 1u << 3, L7_HLE = 1u << 4, L7_AVX2 = 1u << 5,
                   L7_BMI2 = 1u << 8, L7_RTM = 1u << 11;
constexpr uint32_t E1_LZCNT = 1u << 5;

constexpr uint32_t ECX_SSE42_CPU = SSE3 | SSSE3 | SSE41 | SSE42 | POPCNT;
constexpr uint32_t ECX_AVX_CPU = ECX_SSE42_CPU | PCLMUL | AES | OSXSAVE | AVX;
constexpr uint32_t ECX_AVX2_CPU = ECX_AVX_CPU | FMA | F16C | MOVBE;
constexpr uint32_t L7_AVX2_CPU = L7_BMI1 | L7_AVX2 | L7_BMI2;

struct sim {
    const char* vendor = "AuthenticAMD";
    uint32_t edx = EDX_SSE2_CPU, ecx = 0, l7 = 0, e1 = 0;
    uint64_t xcr0 = 7;  // x87, SSE and YMM state saved by the OS
    bool has_cpuid = true;
    zva::cpuid_regs leaf2 = {};
    zva::cpuid_regs leaf4[6] = {};
};

const sim* current;

void sim_cpuid(uint32_t leaf, uint32_t sub, zva::cpuid_regs* r) {
    *r = {};
    const sim& s = *current;
    switch (leaf) {
        case 0:
            r->eax = 13;
            memcpy(&r->ebx, s.vendor, 4);
            memcpy(&r->edx, s.vendor + 4, 4);
            memcpy(&r->ecx, s.vendor + 8, 4);
            break;
        case 1: r->ecx = s.ecx, r->edx = s.edx; break;
        case 2: *r = {s.leaf2.eax, s.leaf2.ebx, s.leaf2.ecx, s.leaf2.edx}; break;
        case 4:
            if (sub < 6) *r = {s.leaf4[sub].eax, s.leaf4[sub].ebx, s.leaf4[sub].ecx, 0};
            break;
        case 7: r->ebx = s.l7; break;
        case 0x80000001: r->ecx = s.e1; break;
    }
}
uint64_t sim_xgetbv(uint32_t) { return current->xcr0; }
bool sim_has_cpuid() { return current->has_cpuid; }
const zva::cpu_source sim_source = {sim_has_cpuid, sim_cpuid, sim_xgetbv};

struct answers {
    int branch, microarch, sse41, other_avx, l2_class, exit_code;
    uint64_t features;
    int32_t caches[5];
    int cache_size[6];  // levels 0 to 5
};

struct env { const char* cbwr = nullptr; const char* type = nullptr; const char* ma = nullptr; };

// Runs the queries in a child process; a child that ends the process (a
// processor below the minimum) reports its exit code and its output.
answers ask(const sim& s, env e = {}, std::string* out = nullptr) {
    int res[2], txt[2];
    EXPECT_EQ(pipe(res), 0);
    EXPECT_EQ(pipe(txt), 0);
    fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(txt[1], 1);
        unsetenv("ZVA_CBWR"), unsetenv("ZVA_DEBUG_CPU_TYPE"), unsetenv("ZVA_DEBUG_CPU_MA");
        if (e.cbwr) setenv("ZVA_CBWR", e.cbwr, 1);
        if (e.type) setenv("ZVA_DEBUG_CPU_TYPE", e.type, 1);
        if (e.ma) setenv("ZVA_DEBUG_CPU_MA", e.ma, 1);
        current = &s;
        zva::cpu_set_source(&sim_source);
        answers a = {};
        a.branch = zva::cpu_branch();
        a.microarch = zva::cpu_microarch();
        a.sse41 = zva::cpu_has_sse41();
        a.other_avx = zva::cpu_other_vendor_avx();
        a.l2_class = zva::cpu_l2_class();
        a.features = zva::cpu_feature_word();
        zva::cpu_cache_sizes(a.caches);
        for (int l = 0; l < 6; ++l) a.cache_size[l] = zva::cpu_cache_size(l);
        if (write(res[1], &a, sizeof a) != sizeof a) _exit(3);
        fflush(stdout);
        _exit(0);
    }
    close(res[1]);
    close(txt[1]);
    answers a = {};
    if (read(res[0], &a, sizeof a) != sizeof a) a.branch = -1;
    std::string text;
    char buf[256];
    ssize_t n;
    while ((n = read(txt[0], buf, sizeof buf)) > 0) text.append(buf, n);
    close(res[0]);
    close(txt[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    a.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (out) *out = text;
    return a;
}

sim amd(uint32_t ecx, uint32_t l7 = 0, uint32_t e1 = 0) {
    sim s;
    s.ecx = ecx, s.l7 = l7, s.e1 = e1;
    return s;
}
sim intel(uint32_t ecx, uint32_t l7 = 0, uint32_t e1 = 0) {
    sim s = amd(ecx, l7, e1);
    s.vendor = "GenuineIntel";
    return s;
}
const sim AMD_AVX2 = amd(ECX_AVX2_CPU, L7_AVX2_CPU, E1_LZCNT);
const sim AMD_AVX = amd(ECX_AVX_CPU);
const sim INTEL_AVX2 = intel(ECX_AVX2_CPU, L7_AVX2_CPU, E1_LZCNT);

struct branch_case {
    const char* what;
    sim cpu;
    env e;
    int branch, microarch, sse41;
};

sim without(sim s, uint32_t ecx, uint32_t l7 = 0, uint32_t e1 = 0) {
    s.ecx &= ~ecx, s.l7 &= ~l7, s.e1 &= ~e1;
    return s;
}
sim with_xcr0(sim s, uint64_t x) { s.xcr0 = x; return s; }

// The codes are also what ZVA_DEBUG_CPU_MA takes, so their values are fixed.
static_assert(zva::ma_none == 0 && zva::ma_ssse3 == 32 && zva::ma_sse41 == 33 &&
              zva::ma_sse42 == 64 && zva::ma_sse42_aes == 66 && zva::ma_avx == 128);

const branch_case branch_cases[] = {
    {"primary vendor, full AVX2 set", AMD_AVX2, {}, 7, zva::ma_none, 1},
    {"AVX2 without FMA", without(AMD_AVX2, FMA), {}, 6, zva::ma_avx, 1},
    {"AVX2 without LZCNT", without(AMD_AVX2, 0, 0, E1_LZCNT), {}, 6, zva::ma_avx, 1},
    {"AVX2 without BMI2", without(AMD_AVX2, 0, L7_BMI2), {}, 6, zva::ma_avx, 1},
    {"AVX2 without PCLMULQDQ", without(AMD_AVX2, PCLMUL), {}, 6, zva::ma_avx, 1},
    {"AVX2 without MOVBE still 7", without(AMD_AVX2, MOVBE), {}, 7, zva::ma_none, 1},
    {"OS does not save YMM", with_xcr0(AMD_AVX2, 3), {}, 5, zva::ma_sse42_aes, 1},
    {"no OSXSAVE", without(AMD_AVX2, OSXSAVE), {}, 5, zva::ma_sse42_aes, 1},
    {"SSE4.2 without AES", amd(ECX_SSE42_CPU), {}, 5, zva::ma_sse42, 1},
    {"SSE4.1 alone counts as SSSE3", amd(SSE3 | SSSE3 | SSE41), {}, 4, zva::ma_sse41, 1},
    {"SSSE3", amd(SSE3 | SSSE3), {}, 4, zva::ma_ssse3, 0},
    {"SSE3", amd(SSE3), {}, 3, zva::ma_none, 0},
    {"SSE2", amd(0), {}, 2, zva::ma_none, 0},
    {"other vendor with AVX2 stays at 5", INTEL_AVX2, {}, 5, zva::ma_none, 1},
    {"other vendor under AUTO", INTEL_AVX2, {"AUTO"}, 2, zva::ma_none, 1},
    {"other vendor, named level", INTEL_AVX2, {"SSE4_2"}, 2, zva::ma_none, 1},
    {"other vendor, COMPATIBLE", INTEL_AVX2, {"COMPATIBLE"}, 2, zva::ma_none, 0},
    {"override above the hardware", amd(0), {nullptr, "7"}, 7, zva::ma_none, 0},
    {"override read by atoi", AMD_AVX2, {nullptr, "4abc"}, 4, zva::ma_sse41, 1},
    {"override 1 ignored", AMD_AVX2, {nullptr, "1"}, 7, zva::ma_none, 1},
    {"override 8 ignored", AMD_AVX2, {nullptr, "8"}, 7, zva::ma_none, 1},
    {"override longer than its buffer ignored", AMD_AVX2,
     {nullptr, "4                                         "}, 7, zva::ma_none, 1},
    {"override wins over the mode", AMD_AVX2, {"SSE2", "6"}, 6, zva::ma_avx, 0},
    {"named level above the hardware", AMD_AVX, {"AVX2"}, 6, zva::ma_avx, 1},
    {"SSE4_1 on an AVX processor", AMD_AVX, {"SSE4_1"}, 4, zva::ma_sse41, 1},
    {"SSSE3 mode", AMD_AVX2, {"SSSE3"}, 4, zva::ma_ssse3, 0},
    {"SSE4_2 mode does not give 66", AMD_AVX2, {"SSE4_2"}, 5, zva::ma_sse42, 1},
    {"BRANCH= prefix", AMD_AVX2, {"BRANCH=AVX"}, 6, zva::ma_avx, 1},
    {"lower case is not a word", AMD_AVX2, {"avx"}, 7, zva::ma_none, 1},
    {"trailing blank is not a word", AMD_AVX2, {"AVX "}, 7, zva::ma_none, 1},
    {"COMPATIBLE", AMD_AVX2, {"COMPATIBLE"}, 2, zva::ma_none, 0},
    {"micro-architecture override 66 without AES",
     without(AMD_AVX2, AES), {nullptr, "5", "66"}, 5, zva::ma_sse42_aes, 1},
    {"micro-architecture override 128 ignored",
     without(AMD_AVX2, AES), {nullptr, "5", "128"}, 5, zva::ma_sse42, 1},
    {"micro-architecture override only on branch 5", AMD_AVX2,
     {nullptr, nullptr, "64"}, 7, zva::ma_none, 1},
};

}  // namespace

TEST(Cpu, BranchMicroarchitectureAndSse41) {
    for (const branch_case& c : branch_cases) {
        answers a = ask(c.cpu, c.e);
        EXPECT_EQ(a.branch, c.branch) << c.what;
        EXPECT_EQ(a.microarch, c.microarch) << c.what;
        EXPECT_EQ(a.sse41, c.sse41) << c.what;
    }
}

TEST(Cpu, NoCpuidMeansBranch2) {
    sim s = amd(0);
    s.has_cpuid = false;
    EXPECT_EQ(ask(s).branch, 2);
}

TEST(Cpu, FeatureWord) {
    answers a = ask(AMD_AVX2);
    EXPECT_EQ(a.features, 0x1 | 0x2 | 0x4 | 0x8 | 0x10 | 0x20 | 0x40 | 0x80 |
                              0x100 | 0x200 | 0x400 | 0x800 | 0x1000 | 0x2000 |
                              0x4000 | 0x8000 | 0x10000 | 0x40000 | 0x80000 |
                              0x100000 | 0x800000u);
    sim s = AMD_AVX2;
    s.ecx |= RDRAND, s.l7 |= L7_HLE | L7_RTM;
    s.edx &= ~EDX_FXSR;  // no FXSR: none of the SSE family counts
    EXPECT_EQ(ask(s).features, 0x1 | 0x2 | 0x4 | 0x8 | 0x8000 | 0x10000 |
                                   0x20000 | 0x40000 | 0x80000 | 0x100000 |
                                   0x200000 | 0x400000 | 0x800000u);
    // BMI1 without BMI2 is not enough for bit 19.
    EXPECT_EQ(ask(without(AMD_AVX2, 0, L7_BMI2)).features & 0x80000, 0u);
    EXPECT_EQ(ask(with_xcr0(AMD_AVX2, 3)).features & 0x858000, 0u);
}

TEST(Cpu, BelowSse2EndsTheProcess) {
    const char* want =
        "ZVA FATAL ERROR: This system does not meet the minimum requirements "
        "for use of the Zenva(R) Zvakor.\nThe system processor must support "
        "the Zenva(R) Streaming SIMD 2 Extensions (Zenva(R) SSE2) "
        "instructions.\n";
    sim s;
    s.edx = EDX_BASE | EDX_FXSR | EDX_SSE;
    for (env e : {env{}, env{nullptr, "7"}, env{"COMPATIBLE"}}) {
        std::string out;
        answers a = ask(s, e, &out);
        EXPECT_EQ(a.exit_code, 1);
        EXPECT_EQ(out, want);
    }
}

TEST(Cpu, OtherVendorAvx) {
    EXPECT_EQ(ask(INTEL_AVX2).other_avx, 1);
    EXPECT_EQ(ask(INTEL_AVX2, {"AUTO"}).other_avx, 0);
    EXPECT_EQ(ask(AMD_AVX2).other_avx, 0);
    EXPECT_EQ(ask(intel(ECX_SSE42_CPU)).other_avx, 0);
}

namespace {
// A leaf-4 record: type, ways, partitions, line size, sets.
zva::cpuid_regs cache(uint32_t type, uint32_t ways, uint32_t parts, uint32_t line,
                 uint32_t sets) {
    return {type | 0x20, (ways - 1) << 22 | (parts - 1) << 12 | (line - 1), sets - 1, 0};
}
}  // namespace

TEST(Cpu, CacheTable) {
    sim s = AMD_AVX2;
    s.leaf4[0] = cache(1, 8, 1, 64, 64);      // 32 KiB data
    s.leaf4[1] = cache(2, 8, 1, 64, 64);      // instruction: skipped
    s.leaf4[2] = cache(3, 8, 1, 64, 1024);    // 512 KiB unified
    s.leaf4[3] = cache(3, 16, 1, 64, 16384);  // 16 MiB
    answers a = ask(s);
    const int32_t measured[5] = {3, 32768, 524288, 16777216, 0};
    EXPECT_EQ(0, memcmp(a.caches, measured, sizeof measured));
    const int sizes[6] = {16777216, 32768, 524288, 16777216, -1, -1};
    EXPECT_EQ(0, memcmp(a.cache_size, sizes, sizeof sizes));

    // Under any mode the caches are never measured.
    const int32_t three[5] = {3, 0x8000, 0x40000, 0x400000, 0};
    const int32_t two[5] = {2, 0x8000, 0x40000, 0, 0};
    EXPECT_EQ(0, memcmp(ask(s, {"SSE4_2"}).caches, three, sizeof three));
    EXPECT_EQ(0, memcmp(ask(s, {"SSE4_1"}).caches, two, sizeof two));
    EXPECT_EQ(0, memcmp(ask(s, {"AUTO"}).caches, three, sizeof three));
    sim i = INTEL_AVX2;  // AUTO puts it on branch 2: two levels
    EXPECT_EQ(0, memcmp(ask(i, {"AUTO"}).caches, two, sizeof two));
    EXPECT_EQ(ask(s, {"COMPATIBLE"}).cache_size[0], 0x40000);

    // Leaf 4 stops after four levels.
    for (int k = 0; k < 6; ++k) s.leaf4[k] = cache(3, 2, 1, 64, 64 << k);
    EXPECT_EQ(ask(s).caches[0], 4);
}

TEST(Cpu, SecondLevelClass) {
    sim s = AMD_AVX2;
    // The low byte of EAX is a count, not a descriptor; a register with bit
    // 31 set holds none; the last listed byte met decides.
    s.leaf2 = {0x00004244u, 0x80000049u, 0x00400000u, 0x00007D00u};
    EXPECT_EQ(ask(s).l2_class, 5);
    s.leaf2 = {0x00000044u, 0, 0, 0x00000041u};
    EXPECT_EQ(ask(s).l2_class, 1);
    s.leaf2 = {0x00000040u, 0x0000FF00u, 0, 0};
    EXPECT_EQ(ask(s).l2_class, -1);
    s.leaf2 = {0x00004201u, 0, 0, 0};
    EXPECT_EQ(ask(s, {"AVX2"}).l2_class, 256);
    EXPECT_EQ(ask(s, {"AUTO"}).l2_class, 256);
    EXPECT_EQ(ask(s).l2_class, 2);
}
