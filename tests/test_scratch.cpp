// Scratch memory: reuse of the per-thread blocks, the uncached path and its
// header, the switches, blocks released on other threads, allocator
// failures, and many threads at once.  The manager's state lasts for the
// whole process, so every case runs in a child process of its own, on an
// allocator of the tests' own that counts, guards and can fail.
#include <gtest/gtest.h>
#include <limits.h>
#include <omp.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "frame/memory.h"

namespace {

// ---------------------------------------------------------------------------
// Failures found in the child, sent to the parent as text.

std::mutex fail_mu;
std::string failures;

void fail(int line, const std::string& what) {
    std::lock_guard<std::mutex> g(fail_mu);
    failures += "line " + std::to_string(line) + ": " + what + "\n";
}

template <class T> long long num(T v) {
    if constexpr (std::is_pointer_v<T>) return (long long)(uintptr_t)v;
    else return (long long)v;
}

#define CHECK(c) \
    do { if (!(c)) fail(__LINE__, #c); } while (0)
#define CHECK_EQ(a, b)                                                              \
    do {                                                                            \
        long long a_ = num(a), b_ = num(b);                                         \
        if (a_ != b_)                                                               \
            fail(__LINE__, std::string(#a " == " #b ": ") + std::to_string(a_) +    \
                               " != " + std::to_string(b_));                        \
    } while (0)

// ---------------------------------------------------------------------------
// The tests' allocator.  Its blocks start 8 bytes past a multiple of 128
// (or on one, or 4 bytes short of one, by the skew), so that every
// alignment has work to do; guard bytes after the end catch writes beyond
// it; a private header below the block catches a release of an address it
// never gave out.

struct tally_header {
    uint32_t magic;
    void* base;
    uint32_t size;
    uint32_t pad;
};
static_assert(sizeof(tally_header) == 16);
constexpr uint32_t live_magic = 0x5C4A7C11, dead_magic = 0xDEADF4EE;
constexpr uint32_t guard_len = 16;
constexpr unsigned char guard_byte = 0xA5;

struct call { void* p; uint32_t size; };

std::mutex tally_mu;
std::vector<call> malloc_log, free_log;
std::set<tally_header*> live;
std::atomic<int> bad{0};
std::atomic<int> fail_next{-1};     // mallocs to let through before one fails
std::atomic<uint32_t> fail_size{0};  // every malloc of this size fails
std::atomic<uint32_t> skew{8};

// Stress requests are multiples of 64 bytes of at least 64 with alignment
// 64 or 128: a cached block is then a multiple of 64, an uncached one 8
// more, and anything under 128 bytes is a thread's record.
enum kind { k_record, k_cached, k_uncached };
std::atomic<int> live_kind[3];
kind kind_of(uint32_t n) { return n < 128 ? k_record : n % 64 == 8 ? k_uncached : k_cached; }

void* t_malloc(size_t n) {
    if (fail_size.load() != 0 && n == fail_size.load()) return nullptr;
    if (fail_next.load() >= 0 && fail_next.fetch_sub(1) == 0) return nullptr;
    uint32_t s = skew.load();
    char* base = (char*)malloc(n + sizeof(tally_header) + 128 + s + guard_len);
    if (!base) return nullptr;
    uintptr_t r = (((uintptr_t)base + sizeof(tally_header) + 127) & ~(uintptr_t)127) + s;
    tally_header* h = (tally_header*)r - 1;
    *h = {live_magic, base, (uint32_t)n, 0};
    memset((char*)r + n, guard_byte, guard_len);
    memset((void*)r, 0xCD, n);  // no zeroed memory for free
    live_kind[kind_of(n)]++;
    std::lock_guard<std::mutex> g(tally_mu);
    malloc_log.push_back({(void*)r, (uint32_t)n});
    live.insert(h);
    return (void*)r;
}

bool guard_intact(const tally_header* h) {
    const unsigned char* g = (const unsigned char*)(h + 1) + h->size;
    for (uint32_t i = 0; i < guard_len; ++i)
        if (g[i] != guard_byte) return false;
    return true;
}

void t_free(void* p) {
    if (!p) return;
    tally_header* h = (tally_header*)p - 1;
    if (h->magic != live_magic) {
        bad++;
        fail(__LINE__, "release of an address the allocator did not give out, or twice");
        return;
    }
    if (!guard_intact(h)) fail(__LINE__, "write past the end of a block");
    h->magic = dead_magic;
    live_kind[kind_of(h->size)]--;
    {
        std::lock_guard<std::mutex> g(tally_mu);
        free_log.push_back({p, h->size});
        live.erase(h);
    }
    free(h->base);
}

void* t_calloc(size_t, size_t) {
    fail(__LINE__, "calloc is not used by the scratch manager");
    return nullptr;
}
void* t_realloc(void*, size_t) {
    fail(__LINE__, "realloc is not used by the scratch manager");
    return nullptr;
}

void clear_logs() {
    std::lock_guard<std::mutex> g(tally_mu);
    malloc_log.clear();
    free_log.clear();
}
std::vector<call> mallocs() {
    std::lock_guard<std::mutex> g(tally_mu);
    return malloc_log;
}
std::vector<call> frees() {
    std::lock_guard<std::mutex> g(tally_mu);
    return free_log;
}

// ---------------------------------------------------------------------------
// Child processes.

struct env_var { const char* name; const char* value; };

void in_child(const std::function<void()>& body, std::vector<env_var> env = {}) {
    int fd[2];
    ASSERT_EQ(pipe(fd), 0);
    fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        close(fd[0]);
        unsetenv("ZVA_DISABLE_FAST_MM");
        unsetenv("ZVA_MM_DISABLE");
        for (const env_var& e : env) setenv(e.name, e.value, 1);
        zva::alloc_table = {t_malloc, t_calloc, t_realloc, t_free};
        body();
        {
            std::lock_guard<std::mutex> g(tally_mu);
            for (tally_header* h : live)
                if (!guard_intact(h)) fail(__LINE__, "write past the end of a cached block");
        }
        std::string text = failures;
        if (write(fd[1], text.data(), text.size()) != (ssize_t)text.size()) _exit(3);
        _exit(0);
    }
    close(fd[1]);
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd[0], buf, sizeof buf)) > 0) text.append(buf, n);
    close(fd[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "child ended with status " << status << "\n" << text;
    EXPECT_EQ(text, "");
}

template <class F> void on_new_thread(F f) {
    std::thread t(f);
    t.join();
}

bool aligned(const void* p, uint32_t a) { return (uintptr_t)p % a == 0; }

// p lies, with its size, inside the allocator's block b of n bytes.
bool inside(const void* p, uint32_t size, const call& b) {
    return (uintptr_t)p >= (uintptr_t)b.p && (uintptr_t)p + size <= (uintptr_t)b.p + b.size;
}

// An uncached block: the header below it names the allocation it lies in.
void check_uncached(int line, void* p, uint32_t size, uint32_t a, const call& got) {
    if (!p) return fail(line, "uncached request returned null");
    const uint32_t* h = (const uint32_t*)p;
    if (!aligned(p, a)) fail(line, "uncached block misaligned");
    if (got.size != size + a + 8) fail(line, "uncached allocation of " + std::to_string(got.size));
    if (h[-2] != (uint32_t)(uintptr_t)got.p) fail(line, "header does not hold the raw pointer");
    if (h[-1] != got.size) fail(line, "header does not hold the total");
    if ((uintptr_t)p - 8 < (uintptr_t)got.p || !inside(p, size, got))
        fail(line, "uncached block or its header outside the allocation");
}

// ---------------------------------------------------------------------------

TEST(ScratchReuse, ReleasedBlockComesBackWithoutTheAllocator) {
    in_child([] {
        void* p = zva::scratch_alloc(0x24000, 64);
        CHECK(p && aligned(p, 64));
        memset(p, 1, 0x24000);
        // The thread's record and the block.
        CHECK_EQ(mallocs().size(), 2u);
        for (int i = 0; i < 10; ++i) {
            zva::scratch_free(p);
            void* q = zva::scratch_alloc(0x24000, i % 2 ? 0 : 64);  // 0 means 64 too
            CHECK_EQ(q, p);
        }
        zva::scratch_free(p);
        CHECK_EQ(mallocs().size(), 2u);
        CHECK_EQ(frees().size(), 0u);
    });
}

TEST(ScratchReuse, LargestCachedRequestAndOneByteMore) {
    in_child([] {
        const uint32_t limit = 0x2800000;
        void* p = zva::scratch_alloc(limit, 64);
        CHECK(p && aligned(p, 64));
        CHECK_EQ(mallocs().back().size, limit + 64);
        memset(p, 2, limit);
        zva::scratch_free(p);
        CHECK_EQ(frees().size(), 0u);
        CHECK_EQ(zva::scratch_alloc(limit, 64), p);
        zva::scratch_free(p);

        clear_logs();
        void* q = zva::scratch_alloc(limit + 1, 64);
        CHECK_EQ(mallocs().size(), 1u);
        check_uncached(__LINE__, q, limit + 1, 64, mallocs().back());
        memset(q, 3, limit + 1);
        void* raw = mallocs().back().p;
        zva::scratch_free(q);
        CHECK_EQ(frees().size(), 1u);
        CHECK_EQ(frees().back().p, raw);
    });
}

TEST(ScratchReuse, SixthConcurrentBlockGoesBackToTheAllocator) {
    in_child([] {
        void* held[5];
        for (int i = 0; i < 5; ++i) {
            held[i] = zva::scratch_alloc(1000 * (i + 1), 64);
            CHECK(held[i]);
        }
        clear_logs();
        void* sixth = zva::scratch_alloc(6000, 64);
        CHECK_EQ(mallocs().size(), 1u);
        check_uncached(__LINE__, sixth, 6000, 64, mallocs().back());
        memset(sixth, 4, 6000);
        zva::scratch_free(sixth);
        CHECK_EQ(frees().size(), 1u);
        CHECK_EQ(frees().back().p, mallocs().back().p);

        for (void* p : held) zva::scratch_free(p);
        CHECK_EQ(frees().size(), 1u);
        for (int i = 0; i < 5; ++i) CHECK_EQ(zva::scratch_alloc(1000 * (i + 1), 64), held[i]);
        CHECK_EQ(mallocs().size(), 1u);
        for (void* p : held) zva::scratch_free(p);
    });
}

TEST(ScratchReuse, FullCacheReplacesTheFirstTooSmallSlotOnly) {
    in_child([] {
        // Not in size order, so that "first" and "smallest" differ.
        const uint32_t sizes[5] = {3000, 1000, 5000, 2000, 4000};
        void* held[5];
        void* raw[5];
        for (int i = 0; i < 5; ++i) {
            held[i] = zva::scratch_alloc(sizes[i], 64);
            raw[i] = mallocs().back().p;
        }
        for (void* p : held) zva::scratch_free(p);
        clear_logs();

        void* big = zva::scratch_alloc(8000, 64);
        CHECK(big && aligned(big, 64));
        CHECK_EQ(frees().size(), 1u);
        if (!frees().empty()) CHECK_EQ(frees()[0].p, raw[0]);
        CHECK_EQ(mallocs().size(), 1u);
        if (!mallocs().empty()) {
            CHECK_EQ(mallocs()[0].size, 8064u);
            CHECK(inside(big, 8000, mallocs()[0]));
        }
        memset(big, 5, 8000);
        zva::scratch_free(big);

        for (int i = 1; i < 5; ++i) CHECK_EQ(zva::scratch_alloc(sizes[i], 64), held[i]);
        CHECK_EQ(zva::scratch_alloc(8000, 64), big);
        CHECK_EQ(mallocs().size(), 1u);
        CHECK_EQ(frees().size(), 1u);
    });
}

TEST(ScratchReuse, ExactHitThenSmallestLargerSlot) {
    in_child([] {
        const uint32_t sizes[5] = {8000, 3000, 5000, 3000, 20000};
        void* p[5];
        call raw[5];
        for (int i = 0; i < 5; ++i) {
            p[i] = zva::scratch_alloc(sizes[i], 64);
            raw[i] = mallocs().back();
        }
        for (void* q : p) zva::scratch_free(q);
        clear_logs();

        // Smallest block above the need; of two equal ones the earlier.
        void* a = zva::scratch_alloc(2000, 64);
        CHECK_EQ(a, p[1]);
        // Exact fit, the one in use skipped.
        void* b = zva::scratch_alloc(3000, 64);
        CHECK_EQ(b, p[3]);
        zva::scratch_free(a);
        zva::scratch_free(b);
        // The slot kept its size after the smaller request: two exact fits,
        // the first taken.
        CHECK_EQ(zva::scratch_alloc(3000, 64), p[1]);
        zva::scratch_free(p[1]);
        // An exact fit wins over every larger block.
        CHECK_EQ(zva::scratch_alloc(5000, 64), p[2]);
        // A larger alignment in a block got for a smaller one.
        void* e = zva::scratch_alloc(7900, 128);
        CHECK(aligned(e, 128));
        CHECK(inside(e, 7900, raw[0]));
        memset(e, 6, 7900);
        CHECK_EQ(mallocs().size(), 0u);
        CHECK_EQ(frees().size(), 0u);
    });
}

TEST(ScratchAlignment, RuleOnTheCachedAndTheUncachedPath) {
    in_child([] {
        const struct { int32_t asked; uint32_t got; } cases[] = {
            {0, 64},   {32, 64},       {96, 64},  {63, 64},   {65, 64},     {-128, 64},
            {INT_MIN, 64}, {64, 64},   {128, 128}, {256, 256}, {4096, 4096},
        };
        for (uint32_t s : {8u, 0u, 124u}) {
            skew = s;
            for (const auto& c : cases) {
                // A new thread starts with no blocks, so its first request
                // shows the size it asks of the allocator.
                on_new_thread([&] {
                    clear_logs();
                    void* p = zva::scratch_alloc(1000, c.asked);
                    std::vector<call> m = mallocs();
                    CHECK_EQ(m.size(), 2u);
                    if (m.size() != 2) return;
                    if (!aligned(p, c.got)) fail(__LINE__, "alignment " + std::to_string(c.asked));
                    CHECK_EQ(m[1].size, 1000 + c.got);
                    CHECK(inside(p, 1000, m[1]));
                    memset(p, 7, 1000);
                    zva::scratch_free(p);
                });
                clear_logs();
                void* d = zva::scratch_alloc_direct(1000, c.asked);
                CHECK_EQ(mallocs().size(), 1u);
                if (mallocs().size() == 1) check_uncached(__LINE__, d, 1000, c.got, mallocs()[0]);
                memset(d, 8, 1000);
                zva::scratch_free_direct(d);
                CHECK_EQ(frees().size(), 1u);
            }
        }
    });
}

TEST(ScratchEdges, ZeroSizeAndNullPointer) {
    in_child([] {
        CHECK(zva::scratch_alloc(0, 64) == nullptr);
        CHECK(zva::scratch_alloc(0, 128) == nullptr);
        CHECK(zva::scratch_alloc_direct(0, 64) == nullptr);
        zva::scratch_free(nullptr);
        zva::scratch_free_direct(nullptr);
        CHECK_EQ(mallocs().size(), 0u);
        CHECK_EQ(frees().size(), 0u);
        void* p = zva::scratch_alloc(100, 0);
        CHECK(p);
        zva::scratch_free(p);
        zva::scratch_free(nullptr);
        CHECK_EQ(zva::scratch_alloc(100, 0), p);
        CHECK_EQ(frees().size(), 0u);
    });
}

// ---------------------------------------------------------------------------

struct switch_case {
    const char* what;
    std::vector<env_var> env;
    bool disabled;
};

// Two rounds of request and release of one size: the second returns the
// first block when the fast path is on; every block goes to the allocator
// and back when it is off.
void probe(bool disabled) {
    clear_logs();
    void* p = zva::scratch_alloc(5000, 64);
    zva::scratch_free(p);
    void* q = zva::scratch_alloc(5000, 64);
    zva::scratch_free(q);
    std::vector<call> m = mallocs(), f = frees();
    if (disabled) {
        CHECK_EQ(m.size(), 2u);
        CHECK_EQ(f.size(), 2u);
        for (const call& c : m) CHECK_EQ(c.size, 5000u + 64 + 8);
    } else {
        CHECK_EQ(q, p);
        CHECK_EQ(f.size(), 0u);
        for (const call& c : m) CHECK(c.size != 5000u + 64 + 8);
    }
}

TEST(ScratchSwitches, ExistenceOfEitherVariableSwitchesTheCacheOff) {
    const switch_case cases[] = {
        {"neither set", {}, false},
        {"value 0 counts", {{"ZVA_DISABLE_FAST_MM", "0"}}, true},
        {"value 1", {{"ZVA_DISABLE_FAST_MM", "1"}}, true},
        {"second name", {{"ZVA_MM_DISABLE", "0"}}, true},
        {"empty value", {{"ZVA_DISABLE_FAST_MM", ""}}, false},
        {"empty first, second set", {{"ZVA_DISABLE_FAST_MM", ""}, {"ZVA_MM_DISABLE", "x"}}, true},
        {"sixteen characters", {{"ZVA_DISABLE_FAST_MM", "0123456789abcdef"}}, true},
        {"too long for the buffer", {{"ZVA_DISABLE_FAST_MM", "0123456789abcdefghijkl"}}, true},
    };
    for (const switch_case& c : cases) {
        SCOPED_TRACE(c.what);
        bool disabled = c.disabled;
        in_child([disabled] {
            probe(disabled);
            // Read once: later changes do not count.
            if (disabled) unsetenv("ZVA_DISABLE_FAST_MM"), unsetenv("ZVA_MM_DISABLE");
            else setenv("ZVA_DISABLE_FAST_MM", "1", 1);
            probe(disabled);
            on_new_thread([disabled] { probe(disabled); });
        }, c.env);
    }
}

// ---------------------------------------------------------------------------

// Hands a value from one thread to another.
struct mailbox_1 {
    std::atomic<void*> p{nullptr};
    void put(void* v) { p = v; }
    void* take() {
        void* v;
        while (!(v = p.exchange(nullptr))) std::this_thread::yield();
        return v;
    }
};

TEST(ScratchThreads, BlockReleasedOnAnotherThreadReturnsToItsOwner) {
    in_child([] {
        // Released by a thread that never used the manager.
        void* p = zva::scratch_alloc(0x40000, 128);
        memset(p, 9, 0x40000);
        clear_logs();
        on_new_thread([p] { zva::scratch_free(p); });
        CHECK_EQ(mallocs().size(), 0u);  // releasing takes no record
        CHECK_EQ(frees().size(), 0u);
        CHECK_EQ(zva::scratch_alloc(0x40000, 128), p);
        CHECK_EQ(mallocs().size(), 0u);

        // Released by a thread with blocks of its own.
        on_new_thread([p] {
            void* own = zva::scratch_alloc(0x40000, 128);
            CHECK(own && own != p);
            zva::scratch_free(p);
            zva::scratch_free(own);
            CHECK_EQ(zva::scratch_alloc(0x40000, 128), own);
            zva::scratch_free(own);
        });
        CHECK_EQ(zva::scratch_alloc(0x40000, 128), p);
        zva::scratch_free(p);

        // The reverse: a helper's block released by the master while the
        // helper lives on; the helper gets it back.
        mailbox_1 to_main, to_helper;
        std::thread helper([&] {
            void* h = zva::scratch_alloc(0x24000, 64);
            to_main.put(h);
            to_helper.take();
            clear_logs();
            CHECK_EQ(zva::scratch_alloc(0x24000, 64), h);
            CHECK_EQ(mallocs().size(), 0u);
            zva::scratch_free(h);
        });
        void* h = to_main.take();
        zva::scratch_free(h);
        to_helper.put(h);
        helper.join();

        // A block of a thread that has ended stays with that thread's record.
        void* orphan = nullptr;
        on_new_thread([&] { orphan = zva::scratch_alloc(3000, 64); });
        clear_logs();
        zva::scratch_free(orphan);
        CHECK_EQ(frees().size(), 0u);
        CHECK_EQ(mallocs().size(), 0u);
    });
}

TEST(ScratchThreads, ThreadWithoutARecordStillGetsMemory) {
    in_child([] {
        fail_next = 0;  // the record
        void* p = zva::scratch_alloc(3000, 64);
        CHECK_EQ(mallocs().size(), 1u);
        if (mallocs().size() == 1) check_uncached(__LINE__, p, 3000, 64, mallocs()[0]);
        zva::scratch_free(p);
        CHECK_EQ(frees().size(), 1u);
        // A later request tries again and gets the cache.
        clear_logs();
        void* q = zva::scratch_alloc(3000, 64);
        zva::scratch_free(q);
        CHECK_EQ(zva::scratch_alloc(3000, 64), q);
        CHECK_EQ(mallocs().size(), 2u);
        CHECK_EQ(frees().size(), 0u);
    });
}

TEST(ScratchThreads, RegistryHoldsAtMost1024Threads) {
    in_child([] {
        void* mine = zva::scratch_alloc(64, 64);
        zva::scratch_free(mine);
        for (int i = 1; i < 1024; ++i)
            on_new_thread([] { zva::scratch_free(zva::scratch_alloc(64, 64)); });
        on_new_thread([] {
            clear_logs();
            void* p = zva::scratch_alloc(64, 64);
            CHECK_EQ(mallocs().size(), 1u);
            if (mallocs().size() == 1) check_uncached(__LINE__, p, 64, 64, mallocs()[0]);
            zva::scratch_free(p);
            CHECK_EQ(frees().size(), 1u);
        });
        // Registered threads keep their cache.
        clear_logs();
        CHECK_EQ(zva::scratch_alloc(64, 64), mine);
        CHECK_EQ(mallocs().size(), 0u);
    });
}

TEST(ScratchThreads, WithoutThreadLocalStorageBlocksAreStillReused) {
    in_child([] {
        pthread_key_t k;
        int taken = 0;
        while (pthread_key_create(&k, nullptr) == 0) ++taken;
        CHECK(taken > 0);
        void* p = zva::scratch_alloc(2000, 64);
        for (int i = 0; i < 20; ++i) {
            zva::scratch_free(p);
            CHECK_EQ(zva::scratch_alloc(2000, 64), p);
        }
        on_new_thread([p] {
            zva::scratch_free(p);  // found in the other thread's record
            void* q = zva::scratch_alloc(2000, 64);
            zva::scratch_free(q);
            CHECK_EQ(zva::scratch_alloc(2000, 64), q);
        });
        CHECK_EQ(zva::scratch_alloc(2000, 64), p);
        CHECK_EQ(mallocs().size(), 4u);  // a record and a block for each thread
        CHECK_EQ(frees().size(), 0u);
    });
}

// ---------------------------------------------------------------------------

TEST(ScratchFailures, FailedNewSlotReturnsNullAndStaysTaken) {
    in_child([] {
        fail_size = 2000 + 64;
        CHECK(zva::scratch_alloc(2000, 64) == nullptr);
        fail_size = 0;
        void* held[4];
        held[0] = zva::scratch_alloc(2000, 64);
        CHECK(held[0]);
        for (int i = 1; i < 4; ++i) held[i] = zva::scratch_alloc(2000 + 1000 * i, 64);
        // Four blocks held and the failed slot: the cache is full.
        clear_logs();
        void* over = zva::scratch_alloc(100, 64);
        CHECK_EQ(mallocs().size(), 1u);
        if (mallocs().size() == 1) check_uncached(__LINE__, over, 100, 64, mallocs()[0]);
        zva::scratch_free(over);
        for (void* p : held) zva::scratch_free(p);
        CHECK_EQ(zva::scratch_alloc(2000, 64), held[0]);
        CHECK_EQ(mallocs().size(), 1u);
    });
}

TEST(ScratchFailures, FailedReplacementReturnsNullAndLaterCallsWork) {
    in_child([] {
        void* held[5];
        void* raw[5];
        for (int i = 0; i < 5; ++i) {
            held[i] = zva::scratch_alloc(1000 * (i + 1), 64);
            raw[i] = mallocs().back().p;
        }
        for (void* p : held) zva::scratch_free(p);
        clear_logs();
        fail_size = 9000 + 64;
        CHECK(zva::scratch_alloc(9000, 64) == nullptr);
        // The old block went back before the new one was asked for.
        CHECK_EQ(frees().size(), 1u);
        if (frees().size() == 1) CHECK_EQ(frees()[0].p, raw[0]);
        fail_size = 0;
        // The failed slot is out of the game: the next replacement takes
        // the following one.
        void* big = zva::scratch_alloc(9000, 64);
        CHECK(big);
        CHECK_EQ(frees().size(), 2u);
        if (frees().size() == 2) CHECK_EQ(frees()[1].p, raw[1]);
        for (int i = 2; i < 5; ++i) CHECK_EQ(zva::scratch_alloc(1000 * (i + 1), 64), held[i]);
        clear_logs();
        void* over = zva::scratch_alloc(100, 64);
        CHECK_EQ(mallocs().size(), 1u);
        if (mallocs().size() == 1) check_uncached(__LINE__, over, 100, 64, mallocs()[0]);
        zva::scratch_free(over);
        zva::scratch_free(big);
        CHECK_EQ(zva::scratch_alloc(9000, 64), big);
    });
}

TEST(ScratchFailures, FailedUncachedRequestReturnsNullAndLaterCallsWork) {
    in_child([] {
        fail_next = 0;
        CHECK(zva::scratch_alloc_direct(1000, 64) == nullptr);
        void* d = zva::scratch_alloc_direct(1000, 64);
        CHECK(d);
        zva::scratch_free_direct(d);

        fail_size = 0x2800001 + 64 + 8;
        CHECK(zva::scratch_alloc(0x2800001, 64) == nullptr);
        fail_size = 0;
        void* big = zva::scratch_alloc(0x2800001, 64);
        CHECK(big);
        zva::scratch_free(big);

        // Sizes whose total does not fit in 32 bits must not wrap round to
        // a small block.
        clear_logs();
        CHECK(zva::scratch_alloc(0xFFFFFFFFu, 64) == nullptr);
        CHECK(zva::scratch_alloc(0xFFFFFFC0u, 128) == nullptr);
        CHECK(zva::scratch_alloc_direct(0xFFFFFFF9u, 0) == nullptr);
        for (const call& c : mallocs()) CHECK(c.size > 0x80000000u);
    });
}

// ---------------------------------------------------------------------------
// Many threads at once.  Every block handed out is claimed in a shared map
// from its return until just before its release, so that a block given to
// two holders at once shows as an overlap; each holder fills its block with
// its own pattern and checks it before the release.  Some blocks are
// released by another thread than the one that got them.

struct held_block {
    uint32_t* p;
    uint32_t words;
    uint32_t tag;
};

std::mutex claims_mu;
std::map<uintptr_t, uintptr_t> claims;  // start -> end
std::mutex mail_mu;
std::vector<held_block> mail;
std::mutex tids_mu;
std::set<long> tids;

bool claim(const void* p, uint32_t bytes) {
    uintptr_t s = (uintptr_t)p, e = s + bytes;
    std::lock_guard<std::mutex> g(claims_mu);
    auto next = claims.lower_bound(s);
    if (next != claims.end() && next->first < e) return false;
    if (next != claims.begin() && std::prev(next)->second > s) return false;
    claims[s] = e;
    return true;
}

void unclaim(const void* p) {
    std::lock_guard<std::mutex> g(claims_mu);
    claims.erase((uintptr_t)p);
}

void fill(const held_block& b) {
    for (uint32_t i = 0; i < b.words; ++i) b.p[i] = b.tag + i * 0x9E3779B1u;
}

bool intact(const held_block& b) {
    for (uint32_t i = 0; i < b.words; ++i)
        if (b.p[i] != b.tag + i * 0x9E3779B1u) return false;
    return true;
}

void release(const held_block& b) {
    if (!intact(b)) fail(__LINE__, "a held block was written by someone else");
    unclaim(b.p);
    zva::scratch_free(b.p);
}

void worker(uint32_t seed, int rounds) {
    {
        std::lock_guard<std::mutex> g(tids_mu);
        tids.insert(syscall(SYS_gettid));
    }
    std::minstd_rand rng(seed);
    held_block mine[7];
    int n = 0;
    uint32_t count = 0;
    for (int r = 0; r < rounds; ++r) {
        uint32_t act = rng() % 8;
        if (act < 4 && n < 7) {
            // Up to seven held at once, so the uncached path runs as well.
            uint32_t size = rng() % 64 == 0 ? 0x24000 : 64 * (1 + rng() % 128);
            static const int32_t aligns[4] = {0, 64, 96, 128};
            int32_t asked = aligns[rng() % 4];
            void* p = zva::scratch_alloc(size, asked);
            if (!p) {
                fail(__LINE__, "scratch_alloc returned null");
                continue;
            }
            if (!aligned(p, asked == 128 ? 128 : 64)) fail(__LINE__, "misaligned block");
            if (!claim(p, size)) fail(__LINE__, "block handed to two holders at once");
            held_block b = {(uint32_t*)p, size / 4, (seed << 12) ^ ++count * 0x01000193u};
            fill(b);
            mine[n++] = b;
        } else if (act < 7 && n > 0) {
            int i = rng() % n;
            held_block b = mine[i];
            mine[i] = mine[--n];
            if (rng() % 4 == 0) {
                std::lock_guard<std::mutex> g(mail_mu);
                mail.push_back(b);
            } else {
                release(b);
            }
        } else {
            held_block b;
            {
                std::lock_guard<std::mutex> g(mail_mu);
                if (mail.empty()) continue;
                b = mail.back();
                mail.pop_back();
            }
            release(b);
        }
        if (r % 16 == 0) std::this_thread::yield();
    }
    while (n > 0) release(mine[--n]);
}

TEST(ScratchStress, ThreadsComingAndGoingBesideOpenMpTeams) {
    in_child([] {
        std::atomic<bool> teams_done{false};
        int waves = 0;
        // Short-lived threads, three at a time, while the teams run.
        std::thread spawner([&] {
            for (uint32_t w = 0; !teams_done && w < 80; ++w, ++waves) {
                std::thread a(worker, 1000 + 3 * w, 200), b(worker, 1001 + 3 * w, 200),
                    c(worker, 1002 + 3 * w, 200);
                a.join();
                b.join();
                c.join();
            }
        });
        const int teams[] = {4, 2, 8, 3, 1, 6, 8, 5};
        uint32_t team_no = 0;
        for (int t : teams) {
            ++team_no;
#pragma omp parallel num_threads(t)
            worker(team_no * 64 + omp_get_thread_num(), 2000);
        }
        teams_done = true;
        spawner.join();
        for (const held_block& b : mail) release(b);
        mail.clear();

        CHECK(waves > 0);
        CHECK(claims.empty());
        // Nothing beyond five cached blocks and one record per thread stays
        // with the allocator; every uncached block has gone back.
        long threads = (long)tids.size();
        CHECK_EQ(live_kind[k_uncached].load(), 0);
        CHECK(live_kind[k_cached].load() <= 5 * threads);
        CHECK(live_kind[k_record].load() <= threads);
        CHECK(bad.load() == 0);
    });
}

}  // namespace
