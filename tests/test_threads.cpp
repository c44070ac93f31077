// Thread policy, topology and the level-1 thread decision, on simulated
// processors.  Everything is read once per process, so each case runs in a
// child with its own environment.
#include <gtest/gtest.h>
#include <omp.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <initializer_list>
#include <utility>

#include "frame/cpu.h"
#include "frame/threads.h"
#include "level1/threading.h"

namespace {

// A processor whose APIC identifier follows the processor the thread runs
// on, with L logical processors and C cores per package.
struct topo_sim {
    const char* vendor;
    uint32_t logical, cores;
    uint32_t ecx;  // leaf 1 ECX: picks the branch
};
const topo_sim* sim;

void sim_cpuid(uint32_t leaf, uint32_t, zva::cpuid_regs* r) {
    *r = {};
    if (leaf == 0) {
        r->eax = 13;
        memcpy(&r->ebx, sim->vendor, 4);
        memcpy(&r->edx, sim->vendor + 4, 4);
        memcpy(&r->ecx, sim->vendor + 8, 4);
    } else if (leaf == 1) {
        int cpu = sched_getcpu();
        r->ebx = (uint32_t)(cpu < 0 ? 0 : cpu) << 24 | sim->logical << 16;
        r->ecx = sim->ecx;
        r->edx = 1u | 1u << 15 | 1u << 23 | 1u << 24 | 1u << 25 | 1u << 26 | 1u << 28;
    } else if (leaf == 4) {
        r->eax = (sim->cores - 1) << 26 | 0x21;
    }
}
uint64_t sim_xgetbv(uint32_t) { return 7; }
bool sim_has_cpuid() { return true; }
const zva::cpu_source sim_source = {sim_has_cpuid, sim_cpuid, sim_xgetbv};

constexpr uint32_t SSE42 = 1 | 1u << 9 | 1u << 19 | 1u << 20;  // code 64
constexpr uint32_t SSSE3 = 1 | 1u << 9;                         // code 32
const topo_sim two_cores = {"AuthenticAMD", 2, 2, SSE42};
const topo_sim one_core_two_threads = {"AuthenticAMD", 2, 1, SSE42};

using env = std::initializer_list<std::pair<const char*, const char*>>;
const char* const all_vars[] = {"ZVA_NUM_THREADS", "ZVA_DOMAIN_NUM_THREADS", "ZVA_DYNAMIC",
                                "OMP_NUM_THREADS", "Z_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE",
                                "Z_MPI_THREAD_LEVEL", "ZVA_CBWR", "ZVA_DEBUG_CPU_TYPE",
                                "ZVA_DEBUG_CPU_MA"};

// Runs f in a child with the variables set and the simulated processor;
// returns what f returned.
int in_child(const topo_sim& s, env vars, std::function<int()> f, bool restrict_affinity = false) {
    int fd[2];
    EXPECT_EQ(pipe(fd), 0);
    pid_t pid = fork();
    if (pid == 0) {
        for (const char* v : all_vars) unsetenv(v);
        for (auto& kv : vars) {
            setenv(kv.first, kv.second, 1);
            // The runtime read its own variable when this process started.
            if (!strcmp(kv.first, "OMP_NUM_THREADS")) omp_set_num_threads(atoi(kv.second));
        }
        if (restrict_affinity) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(0, &one);
            sched_setaffinity(0, sizeof one, &one);
        }
        sim = &s;
        zva::cpu_set_source(&sim_source);
        int r = f();
        if (write(fd[1], &r, sizeof r) != sizeof r) _exit(3);
        _exit(0);
    }
    close(fd[1]);
    int r = -999;
    if (read(fd[0], &r, sizeof r) != sizeof r) r = -998;
    close(fd[0]);
    waitpid(pid, nullptr, 0);
    return r;
}

int max_threads() { return zva::thr_max_threads(1); }

}  // namespace

TEST(Topology, CountsCoresNotHardwareThreads) {
    if (omp_get_num_procs() < 2) GTEST_SKIP() << "needs two processors";
    EXPECT_EQ(in_child(two_cores, {}, [] { zva::thr_dynamic(); return zva::topo_cores; }), 2);
    EXPECT_EQ(in_child(one_core_two_threads, {}, [] {
        zva::thr_dynamic();
        return zva::topo_cores * 100 + zva::topo_logical * 10 + zva::topo_ht;
    }), 121);
    // Another vendor's hardware threads count as cores.
    topo_sim other = one_core_two_threads;
    other.vendor = "GenuineIntel";
    EXPECT_EQ(in_child(other, {}, [] { zva::thr_dynamic(); return zva::topo_cores; }), 2);
}

TEST(Topology, RestrictedProcessLearnsNothing) {
    if (omp_get_num_procs() < 2) GTEST_SKIP() << "needs two processors";
    EXPECT_EQ(in_child(two_cores, {}, [] { zva::thr_dynamic(); return zva::topo_cores; }, true), -1);
}

TEST(Topology, WalkRestoresTheThreadsMask) {
    EXPECT_EQ(in_child(two_cores, {}, [] {
        cpu_set_t before, after;
        sched_getaffinity(0, sizeof before, &before);
        zva::thr_dynamic();
        sched_getaffinity(0, sizeof after, &after);
        return CPU_EQUAL(&before, &after) ? 1 : 0;
    }), 1);
}

struct policy_case {
    const char* what;
    env vars;
    int want;
};

TEST(ThreadPolicy, EnvironmentAndPrecedence) {
    if (omp_get_num_procs() < 2) GTEST_SKIP() << "needs two processors";
    const policy_case cases[] = {
        {"the count is capped at the cores", {{"ZVA_NUM_THREADS", "8"}}, 2},
        {"no cap with dynamic off", {{"ZVA_NUM_THREADS", "8"}, {"ZVA_DYNAMIC", "FALSE"}}, 8},
        {"lower-case false", {{"ZVA_NUM_THREADS", "8"}, {"ZVA_DYNAMIC", "false"}}, 8},
        {"quoted false", {{"ZVA_NUM_THREADS", "8"}, {"ZVA_DYNAMIC", "\"false\""}}, 8},
        {"False leaves it on", {{"ZVA_NUM_THREADS", "8"}, {"ZVA_DYNAMIC", "False"}}, 2},
        {"0 leaves it on", {{"ZVA_NUM_THREADS", "8"}, {"ZVA_DYNAMIC", "0"}}, 2},
        {"non-digits give 1", {{"ZVA_NUM_THREADS", "4x"}, {"ZVA_DYNAMIC", "FALSE"}}, 1},
        {"0 falls through to OpenMP",
         {{"ZVA_NUM_THREADS", "0"}, {"OMP_NUM_THREADS", "5"}, {"ZVA_DYNAMIC", "FALSE"}}, 5},
        {"BLAS domain beats the general count",
         {{"ZVA_DOMAIN_NUM_THREADS", "ZVA_BLAS=3,ZVA_ALL=6"}, {"ZVA_DYNAMIC", "FALSE"}}, 3},
        {"blanks and quotes as separators",
         {{"ZVA_DOMAIN_NUM_THREADS", "\"ZVA_DOMAIN_BLAS 3; ZVA_DOMAIN_ALL 6\""},
          {"ZVA_DYNAMIC", "FALSE"}}, 3},
        {"general count from the domain list",
         {{"ZVA_DOMAIN_NUM_THREADS", "ZVA_FFT=2:ZVA_ALL=7"}, {"ZVA_DYNAMIC", "FALSE"}}, 7},
        {"ZVA_NUM_THREADS beats ZVA_ALL",
         {{"ZVA_NUM_THREADS", "4"}, {"ZVA_DOMAIN_NUM_THREADS", "ZVA_ALL=6"},
          {"ZVA_DYNAMIC", "FALSE"}}, 4},
        {"first pair of a row wins",
         {{"ZVA_DOMAIN_NUM_THREADS", "ZVA_BLAS=3 ZVA_DOMAIN_BLAS=5"}, {"ZVA_DYNAMIC", "FALSE"}}, 3},
        {"another domain leaves BLAS to OpenMP",
         {{"ZVA_DOMAIN_NUM_THREADS", "ZVA_FFT=2"}, {"OMP_NUM_THREADS", "6"}, {"ZVA_DYNAMIC", "FALSE"}}, 6},
        {"names are case-sensitive",
         {{"ZVA_DOMAIN_NUM_THREADS", "zva_blas=2"}, {"OMP_NUM_THREADS", "6"}, {"ZVA_DYNAMIC", "FALSE"}}, 6},
        {"MPI processes alone: one thread", {{"Z_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", "4"}}, 1},
        {"MPI thread level: a share of the cores",
         {{"Z_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", "1"}, {"Z_MPI_THREAD_LEVEL", "1"}}, 2},
        {"a share is at least one",
         {{"Z_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", "4"}, {"Z_MPI_THREAD_LEVEL", "2"}}, 1},
        {"OMP_NUM_THREADS sets the MPI rule aside",
         {{"Z_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", "4"}, {"OMP_NUM_THREADS", "2"}}, 2},
        {"a ZVA count sets the MPI rule aside",
         {{"Z_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", "4"}, {"ZVA_NUM_THREADS", "2"}}, 2},
    };
    for (const policy_case& c : cases)
        EXPECT_EQ(in_child(two_cores, c.vars, max_threads), c.want) << c.what;
}

TEST(ThreadPolicy, InsideTheCallersParallelRegion) {
    auto inside = [] {
        int r = 0;
#pragma omp parallel num_threads(2)
        {
#pragma omp master
            r = zva::thr_max_threads(1);
        }
        return r;
    };
    EXPECT_EQ(in_child(two_cores, {{"ZVA_NUM_THREADS", "2"}}, inside), 1);
    EXPECT_EQ(in_child(two_cores, {{"ZVA_NUM_THREADS", "3"}, {"ZVA_DYNAMIC", "FALSE"}}, inside), 3);
    EXPECT_EQ(in_child(two_cores, {}, [] { return zva::thr_dynamic(); }), 1);
    EXPECT_EQ(in_child(two_cores, {{"ZVA_DYNAMIC", " false "}}, [] { return zva::thr_dynamic(); }), 0);
}

namespace {
int threads_for(const zva::l1_limits& row, int n, int incx = 1, int incy = 1) {
    return zva::l1_threads(row, n, incx, incy);
}
}  // namespace

TEST(Level1Threads, Decision) {
    using namespace zva::l1_rows;
    auto daxpy_n = [](int n) { return [n] { return threads_for(daxpy, n); }; };
    // Code 64, dynamic on, two threads: the c2 limit.
    env two = {{"ZVA_NUM_THREADS", "2"}, {"ZVA_DEBUG_CPU_TYPE", "5"}};
    if (omp_get_num_procs() >= 2) {
        EXPECT_EQ(in_child(two_cores, two, daxpy_n(3999)), 1);
        EXPECT_EQ(in_child(two_cores, two, daxpy_n(4000)), 2);
    }
    EXPECT_EQ(in_child(two_cores, two, daxpy_n(2000)), 1);  // s0
    // Code 128 with the topology unknown (restricted process): no cap.
    env many = {{"ZVA_NUM_THREADS", "32"}, {"ZVA_DEBUG_CPU_TYPE", "6"}};
    EXPECT_EQ(in_child(two_cores, many, daxpy_n(30000), true), 16);
    env many_off = {{"ZVA_NUM_THREADS", "32"}, {"ZVA_DEBUG_CPU_TYPE", "6"}, {"ZVA_DYNAMIC", "FALSE"}};
    EXPECT_EQ(in_child(two_cores, many_off, daxpy_n(30000)), 32);
    EXPECT_EQ(in_child(two_cores, many, daxpy_n(14999), true), 4);  // c1 with t > 4
    // Code 0 never forks.
    env b7 = {{"ZVA_NUM_THREADS", "4"}, {"ZVA_DEBUG_CPU_TYPE", "7"}, {"ZVA_DYNAMIC", "FALSE"}};
    EXPECT_EQ(in_child(two_cores, b7, daxpy_n(1000000)), 1);
    // A zero increment never forks.
    EXPECT_EQ(in_child(two_cores, many_off, [] { return threads_for(daxpy, 100000, 0, 1); }), 1);
    EXPECT_EQ(in_child(two_cores, many_off, [] { return threads_for(daxpy, 100000, 1, 0); }), 1);
    // Code 32: s1 holds, then the cache rules (two fixed levels: 256 KiB).
    topo_sim ssse3 = {"AuthenticAMD", 2, 2, SSSE3};
    env four = {{"ZVA_NUM_THREADS", "4"}, {"ZVA_DYNAMIC", "TRUE"}, {"ZVA_CBWR", "SSSE3"}};
    EXPECT_EQ(in_child(ssse3, four, daxpy_n(2500), true), 1);
    EXPECT_EQ(in_child(ssse3, four, daxpy_n(2501), true), 4);
    env sixteen = {{"ZVA_NUM_THREADS", "16"}, {"ZVA_CBWR", "SSSE3"}};
    EXPECT_EQ(in_child(ssse3, sixteen, daxpy_n(16 * 6500 - 1), true), 15);  // a1
    env eight8 = {{"ZVA_NUM_THREADS", "8"}, {"ZVA_CBWR", "SSSE3"}};
    EXPECT_EQ(in_child(ssse3, eight8, daxpy_n(8 * 2500 - 1), true), 7);     // a2
    EXPECT_EQ(in_child(ssse3, eight8, daxpy_n(8 * 2500), true), 8);
    // The double-complex rule: two threads with dynamic on, none with off.
    env eight = {{"ZVA_NUM_THREADS", "8"}, {"ZVA_DEBUG_CPU_TYPE", "6"}};
    auto z = [] { return zva::l1_threads_z(2000, 30000, 1, 1); };
    EXPECT_EQ(in_child(two_cores, eight, z, true), 2);
    env eight_off = {{"ZVA_NUM_THREADS", "8"}, {"ZVA_DEBUG_CPU_TYPE", "6"}, {"ZVA_DYNAMIC", "FALSE"}};
    EXPECT_EQ(in_child(two_cores, eight_off, z), 1);
}

TEST(Level1Threads, Split) {
    zva::l1_slice s0 = zva::l1_split(2501, 3, 0), s1 = zva::l1_split(2501, 3, 1),
                  s2 = zva::l1_split(2501, 3, 2);
    EXPECT_EQ(s0.start, 0);
    EXPECT_EQ(s0.count, 832);
    EXPECT_EQ(s1.start, 832);
    EXPECT_EQ(s1.count, 832);
    EXPECT_EQ(s2.start, 1664);
    EXPECT_EQ(s2.count, 837);
    // Fewer than eight elements a thread: the last one does everything.
    EXPECT_EQ(zva::l1_split(15, 2, 0).count, 0);
    EXPECT_EQ(zva::l1_split(15, 2, 1).count, 15);
    // A slice of a reversed vector starts where its elements lie.
    for (int inc : {1, 2, -1, -3}) {
        int n = 2501;
        for (int k = 0; k < 3; ++k) {
            zva::l1_slice s = zva::l1_split(n, 3, k);
            long long base = zva::l1_offset(n, inc, s);
            long long whole = inc >= 0 ? 0 : (long long)(1 - n) * inc;
            long long sub = inc >= 0 ? 0 : (long long)(1 - s.count) * inc;
            // Logical element j of the slice is element start + j of the whole.
            EXPECT_EQ(base + sub, whole + (long long)s.start * inc) << inc << " " << k;
        }
    }
}
