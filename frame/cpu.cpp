#include "frame/cpu.h"

#include <cpuid.h>
#include <immintrin.h>
#include <stdlib.h>

#include "frame/cbwr.h"
#include "frame/lock.h"
#include "frame/msg.h"
#include "frame/platform.h"

#ifndef ZVA_PRIMARY_VENDOR
#define ZVA_PRIMARY_VENDOR "AuthenticAMD"
#endif

namespace zva {

namespace {

// ---- the hardware source --------------------------------------------------
// __get_cpuid_max flips EFLAGS bit 21 on 32-bit x86 to see whether CPUID
// exists at all.
bool hw_has_cpuid() { return __get_cpuid_max(0, nullptr) != 0; }

void hw_cpuid(uint32_t leaf, uint32_t sub, cpuid_regs* r) {
    __cpuid_count(leaf, sub, r->eax, r->ebx, r->ecx, r->edx);
}

// Executed only under OSXSAVE, so the instruction exists.
__attribute__((target("xsave"))) uint64_t hw_xgetbv(uint32_t xcr) {
    return _xgetbv(xcr);
}

const cpu_source hw_source = {hw_has_cpuid, hw_cpuid, hw_xgetbv};
const cpu_source* source = &hw_source;

cpuid_regs cpuid(uint32_t leaf, uint32_t sub = 0) {
    cpuid_regs r;
    source->cpuid(leaf, sub, &r);
    return r;
}

inline uint32_t bit(uint32_t reg, int b) { return (reg >> b) & 1u; }

// ---- cached decisions -----------------------------------------------------
int branch_cached = -1;
int branch_hw = -1;
int branch_forced = -911;
uint64_t cpu_features = 0;
int microarch_cached = -1;
int microarch_forced = 0;  // ZVA_DEBUG_CPU_MA chose microarch_cached
int32_t cpu_cache_table[5];
int cache_fill = 1;
int l2_class_cached = -1;

constexpr uint64_t f_sse2 = 0x40, f_sse3 = 0x80, f_ssse3 = 0x100,
                   f_sse41 = 0x200, f_sse42 = 0x400, f_avx = 0x10000,
                   f_branch7 = 0x9C2000;

// OSXSAVE in leaf 1 ECX, and XCR0 with the SSE and AVX state bits.
bool os_saves_ymm(uint32_t leaf1_ecx) {
    return bit(leaf1_ecx, 27) && (source->xgetbv(0) & 6) == 6;
}

int env_int(const char* name, int absent) {
    char buf[32] = {};
    if (plat_getenv(name, buf, sizeof buf) == 0) return absent;
    return atoi(buf);
}

void detect_branch_hw() {
    if (!source->has_cpuid()) {
        branch_hw = 2;
        return;
    }
    uint64_t f = cpu_feature_word();
    int b;
    if (cpu_is_primary_vendor() && (f & f_avx))
        b = (f & f_branch7) == f_branch7 ? 7 : 6;
    else if (f & f_sse42) b = 5;
    else if (f & f_ssse3) b = 4;
    else if (f & f_sse3) b = 3;
    else if (f & f_sse2) b = 2;
    else {
        msg_print(1210, 0);
        msg_print(1211, 0);
        plat_terminate(1);
    }
    branch_hw = b;
}

// Branch wanted by each fixed mode 3 to 10.
constexpr int mode_branch[11] = {0, 0, 0, 2, 2, 3, 4, 4, 5, 6, 7};

int decide_branch(int m) {
    if (branch_forced != -6) return branch_forced;
    bool primary = cpu_is_primary_vendor();
    if (m == 1) return branch_hw;
    if (m >= 3 && m <= 10) {
        int want = mode_branch[m];
        if (want <= branch_hw && (primary || m == 3)) return want;
    }
    return primary ? branch_hw : 2;
}

void fill_cache_table() {
    int m = cbwr_mode();
    if (m == 1) {
        lib_lock();
        if (cache_fill) {
            int32_t t[5] = {};
            int levels = 0;
            for (uint32_t sub = 0; levels < 4; ++sub) {
                cpuid_regs r = cpuid(4, sub);
                uint32_t type = r.eax & 31;
                if (r.ebx == 0 || r.ecx == 0 || type == 0) break;
                if (type == 2) continue;  // instruction cache
                uint32_t size = ((r.ebx & 0xFFF) + 1) *
                                (((r.ebx >> 12) & 0x3FF) + 1) *
                                ((r.ebx >> 22) + 1) * (r.ecx + 1);
                t[++levels] = (int32_t)size;
            }
            t[0] = levels;
            for (int i = 0; i < 5; ++i) cpu_cache_table[i] = t[i];
            cached_store(cache_fill, 0);
        }
        lib_unlock();
        return;
    }
    // Fixed tables: blocking decided from them is the same everywhere.
    bool three = m >= 8 || (m == 2 && cpu_branch() >= 5);
    const int32_t t3[5] = {3, 0x8000, 0x40000, 0x400000, 0};
    const int32_t t2[5] = {2, 0x8000, 0x40000, 0, 0};
    for (int i = 0; i < 5; ++i) cpu_cache_table[i] = three ? t3[i] : t2[i];
    cached_store(cache_fill, 0);
}

}  // namespace

void cpu_set_source(const cpu_source* src) { source = src ? src : &hw_source; }

void cpu_cpuid(uint32_t leaf, uint32_t sub, uint32_t* eax, uint32_t* ebx,
               uint32_t* ecx, uint32_t* edx) {
    cpuid_regs r = cpuid(leaf, sub);
    *eax = r.eax, *ebx = r.ebx, *ecx = r.ecx, *edx = r.edx;
}

int cpu_is_primary_vendor() {
    static_assert(sizeof(ZVA_PRIMARY_VENDOR) == 13, "vendor is 12 bytes");
    const char* v = ZVA_PRIMARY_VENDOR;
    auto word = [v](int i) {
        return (uint32_t)(uint8_t)v[i] | (uint32_t)(uint8_t)v[i + 1] << 8 |
               (uint32_t)(uint8_t)v[i + 2] << 16 |
               (uint32_t)(uint8_t)v[i + 3] << 24;
    };
    cpuid_regs r = cpuid(0);
    return r.ebx == word(0) && r.edx == word(4) && r.ecx == word(8);
}

uint64_t cpu_read_features() {
    cpuid_regs l1 = cpuid(1);
    uint32_t d = l1.edx, c = l1.ecx;
    uint64_t f = 1;
    f |= (uint64_t)bit(d, 0) << 1 | (uint64_t)bit(d, 15) << 2 |
         (uint64_t)bit(d, 23) << 3;
    if (bit(d, 24)) {  // FXSR: without it no SSE state can be saved
        f |= 0x10;
        f |= (uint64_t)bit(d, 25) << 5 | (uint64_t)bit(d, 26) << 6;
        f |= (uint64_t)bit(c, 0) << 7 | (uint64_t)bit(c, 9) << 8 |
             (uint64_t)bit(c, 19) << 9 | (uint64_t)bit(c, 20) << 10 |
             (uint64_t)bit(c, 23) << 11 | (uint64_t)bit(c, 22) << 12 |
             (uint64_t)bit(c, 1) << 13 | (uint64_t)bit(c, 25) << 14;
    }
    f |= (uint64_t)bit(c, 30) << 17;
    cpuid_regs l7 = cpuid(7, 0);
    cpuid_regs e1 = cpuid(0x80000001);
    f |= (uint64_t)(bit(l7.ebx, 3) & bit(l7.ebx, 8)) << 19;
    f |= (uint64_t)bit(e1.ecx, 5) << 20;
    f |= (uint64_t)bit(l7.ebx, 4) << 21 | (uint64_t)bit(l7.ebx, 11) << 22;
    if (os_saves_ymm(c)) {
        f |= (uint64_t)bit(c, 29) << 15 | (uint64_t)bit(c, 28) << 16 |
             (uint64_t)bit(c, 12) << 18 | (uint64_t)bit(l7.ebx, 5) << 23;
    }
    cached_store(cpu_features, f);
    return f;
}

uint64_t cpu_feature_word() {
    uint64_t f = cached_load(cpu_features);
    return f ? f : cpu_read_features();
}

int cpu_branch() {
    int b = cached_load(branch_cached);
    if (b >= 0) return b;
    lib_lock();
    if (branch_cached < 0) {
        int m = cbwr_mode_nolock();
        if (branch_forced == -911) {
            branch_forced = -6;
            int v = env_int("ZVA_DEBUG_CPU_TYPE", 0);
            if (v >= 2 && v <= 7) branch_forced = v;
        }
        // Detection runs under an override too, so that a processor below
        // the minimum always ends the process.
        if (branch_hw < 0) detect_branch_hw();
        cached_store(branch_cached, decide_branch(m));
    }
    b = branch_cached;
    lib_unlock();
    return b;
}

int cpu_microarch() {
    int m = cbwr_mode();
    if (m == 3) return ma_none;
    if ((m == 1 || m == 2) && !cpu_is_primary_vendor()) return ma_none;
    int c = cached_load(microarch_cached);
    if (c != -1) return c;
    int b = cpu_branch();
    int v = env_int("ZVA_DEBUG_CPU_MA", -1);
    cpuid_regs l1 = cpuid(1);
    if (b == 5) {
        // ZVA_DEBUG_CPU_MA may choose between the two codes of branch 5.
        if (v == ma_sse42 || v == ma_sse42_aes) c = v, microarch_forced = 1;
        else c = bit(l1.ecx, 25) && m == 1 ? ma_sse42_aes : ma_sse42;
    } else if (b == 6)
        c = ma_avx;
    else if (b == 4)
        c = (m == 1 || m == 2) ? ((cpu_feature_word() & f_sse41) ? ma_sse41 : ma_ssse3)
                               : (m >= 7 ? ma_sse41 : ma_ssse3);
    else
        c = ma_none;
    cached_store(microarch_cached, c);
    return c;
}

void cpu_cache_sizes(int32_t* out) {
    if (cached_load(cache_fill)) fill_cache_table();
    if (out)
        for (int i = 0; i < 5; ++i) out[i] = cpu_cache_table[i];
}

int cpu_cache_size(int level) {
    int32_t t[5];
    cpu_cache_sizes(t);
    if (level == 0) return t[t[0]];
    if (level >= 1 && level <= t[0]) return t[level];
    return -1;
}

int cpu_has_sse41() {
    int m = cbwr_mode();
    if (m == 1 || m == 2) return (cpu_feature_word() & f_sse41) ? 1 : 0;
    return m >= 7 ? 1 : 0;
}

int cpu_other_vendor_avx() {
    return cbwr_mode() == 1 && !cpu_is_primary_vendor() &&
           (cpu_feature_word() & f_avx);
}

int cpu_l2_class() {
    if (cbwr_mode() != 1) return 256;
    int c = cached_load(l2_class_cached);
    if (c != -1) return c;
    // Descriptor bytes of leaf 2; the last listed byte met decides.
    static const uint8_t bytes[] = {0x40, 0x41, 0x79, 0x42, 0x7A, 0x82, 0x43,
                                    0x7B, 0x44, 0x7C, 0x84, 0x45, 0x7D, 0x85,
                                    0x49};
    static const int8_t classes[] = {0, 1, 1, 2, 2, 2, 3, 3, 4, 4, 4, 5, 5, 5, 6};
    cpuid_regs r = cpuid(2);
    const uint32_t regs[4] = {r.eax, r.ebx, r.ecx, r.edx};
    for (int i = 0; i < 4; ++i) {
        if (regs[i] >> 31) continue;
        for (int j = (i == 0 ? 1 : 0); j < 4; ++j) {
            uint8_t d = (uint8_t)(regs[i] >> (8 * j));
            for (unsigned k = 0; k < sizeof bytes; ++k)
                if (bytes[k] == d) c = classes[k];
        }
    }
    if (c != -1) cached_store(l2_class_cached, c);
    return c;
}

void cpu_reasons_of(cpu_reasons* out) {
    out->branch_hw = cached_load(branch_hw);
    out->branch_forced = cached_load(branch_forced);
    out->microarch_forced = cached_load(microarch_forced);
    out->os_saves_ymm = os_saves_ymm(cpuid(1).ecx);
}

}  // namespace zva
