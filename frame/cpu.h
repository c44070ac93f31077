// Processor detection and the branch decision.
#pragma once
#include <cstdint>

namespace zva {

// One CPUID/XGETBV source for the whole library; tests replace it to
// simulate processors this machine is not.
struct cpuid_regs { uint32_t eax, ebx, ecx, edx; };
struct cpu_source {
    bool (*has_cpuid)();
    void (*cpuid)(uint32_t leaf, uint32_t subleaf, cpuid_regs* out);
    uint64_t (*xgetbv)(uint32_t xcr);
};

void cpu_cpuid(uint32_t leaf, uint32_t subleaf, uint32_t* eax, uint32_t* ebx,
               uint32_t* ecx, uint32_t* edx);
int cpu_is_primary_vendor();
uint64_t cpu_read_features();
uint64_t cpu_feature_word();
int cpu_branch();

// Micro-architecture codes of cpu_microarch: which tuning of its branch the
// processor gets. The threaded drivers gate their parallel paths on them.
enum microarch : int {
    ma_none = 0,        // no tuning (branches 2, 3, 7, other vendors): one thread
    ma_ssse3 = 32,      // branch 4 without SSE4.1
    ma_sse41 = 33,      // branch 4 with SSE4.1
    ma_sse42 = 64,      // branch 5 without AES, or with ZVA_CBWR set
    ma_sse42_aes = 66,  // branch 5 with AES and ZVA_CBWR unset
    ma_avx = 128,       // branch 6
};
int cpu_microarch();
void cpu_cache_sizes(int32_t* out);
int cpu_cache_size(int level);
int cpu_has_sse41();
int cpu_other_vendor_avx();
int cpu_l2_class();

// What the decisions above rested on, for zva-config: the best branch of the
// processor (-1 until cpu_branch has run), the ZVA_DEBUG_CPU_TYPE override
// (2 to 7, or -6 for none), whether ZVA_DEBUG_CPU_MA chose the code of
// cpu_microarch, and whether the operating system saves the YMM state.
struct cpu_reasons {
    int branch_hw;
    int branch_forced;
    int microarch_forced;
    int os_saves_ymm;
};
void cpu_reasons_of(cpu_reasons* out);

}  // namespace zva

namespace zva {
// Replaces the CPUID/XGETBV source (tests only; call before any query).
void cpu_set_source(const cpu_source* src);
}  // namespace zva
