#include <omp.h>

#include "frame/cpu.h"
#include "frame/lock.h"
#include "frame/memory.h"
#include "frame/platform.h"
#include "frame/threads.h"

namespace zva {

int topo_done = 0;
int topo_cores = -1;
int topo_logical = 1;
int topo_packages = -1;
int topo_cores_per_package = -1;
int topo_ht = -1;

namespace {

// Bits needed for v - 1.
int ceiling_log(uint32_t v) {
    int bits = 0;
    while (v > 1 && (1u << bits) < v) ++bits;
    return bits;
}

// Logical processors per package L and cores per package C of the
// processor the thread runs on now; hardware threads count only on the
// primary vendor.
void per_package(uint32_t* logical, uint32_t* cores) {
    uint32_t max_leaf, b, c, d, a1, b1, c1, d1;
    cpu_cpuid(0, 0, &max_leaf, &b, &c, &d);
    *logical = 1, *cores = 1;
    if (max_leaf < 1) return;
    cpu_cpuid(1, 0, &a1, &b1, &c1, &d1);
    bool htt = cpu_is_primary_vendor() && (d1 >> 28 & 1);
    if (!htt) return;
    *logical = b1 >> 16 & 0xFF;
    if (max_leaf >= 4) {
        uint32_t a4, b4, c4, d4;
        cpu_cpuid(4, 0, &a4, &b4, &c4, &d4);
        *cores = (a4 >> 26) + 1;
    }
}

}  // namespace

void topo_detect() {
    if (cached_load(topo_done)) return;
    uint32_t process_mask, system_mask;
    if (!plat_affinity_masks(&process_mask, &system_mask)) return;
    // A process held to some processors does not learn the topology.
    if (process_mask != system_mask) return;
    int n = omp_get_num_procs();
    if (n > 8192) n = 8192;
    uint32_t L, C;
    per_package(&L, &C);
    uint32_t T = C ? L / C : 1;
    uint8_t* package = (uint8_t*)scratch_alloc_direct(n, 0);
    uint8_t* core = (uint8_t*)scratch_alloc_direct(n, 0);
    uint8_t* keys = (uint8_t*)scratch_alloc_direct(n, 0);
    if (!package || !core || !keys) {
        scratch_free_direct(package);
        scratch_free_direct(core);
        scratch_free_direct(keys);
        return;
    }
    uint8_t packages[4096];
    int npackages = 0, logical = 0;
    uint32_t previous = 0;
    bool pinned = false;
    for (int bit = 0; bit < 32 && bit < n; ++bit) {
        uint32_t m = 1u << bit;
        if (m > system_mask) break;
        uint32_t old = plat_set_thread_affinity(m);
        if (old == 0) continue;
        if (!pinned) previous = old, pinned = true;
        plat_yield();
        uint32_t a, b, c, d;
        cpu_cpuid(1, 0, &a, &b, &c, &d);
        uint32_t apic = b >> 24;
        int s = ceiling_log(T), cl = ceiling_log(C), p = ceiling_log(L);
        core[logical] = (uint8_t)(apic & ((0xFFu << s) ^ (0xFFu << (s + cl))));
        package[logical] = (uint8_t)(apic & (0xFFu << p));
        bool known = false;
        for (int k = 0; k < npackages; ++k) known = known || packages[k] == package[logical];
        if (!known && npackages < 4096) packages[npackages++] = package[logical];
        ++logical;
    }
    if (pinned) {
        plat_set_thread_affinity(previous);
        plat_yield();
    }
    int cores = 0;
    for (int i = 0; i < logical; ++i) {
        uint8_t key = package[i] | core[i];
        bool seen = false;
        for (int k = 0; k < cores; ++k) seen = seen || keys[k] == key;
        if (!seen) keys[cores++] = key;
    }
    scratch_free_direct(package);
    scratch_free_direct(core);
    scratch_free_direct(keys);
    if (cores == 0) return;  // no processor accepted the pin
    lib_lock();
    if (!topo_done) {
        topo_logical = logical;
        topo_cores = cores;
        topo_packages = npackages ? npackages : cores;
        topo_cores_per_package = cores / topo_packages;
        topo_ht = cores != logical;
        cached_store(topo_done, 1);
    }
    lib_unlock();
}

}  // namespace zva
