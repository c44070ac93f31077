// Scratch memory: every thread keeps up to five blocks that later requests
// reuse without calling the allocator.  Requests the cache cannot serve get
// a plain block with a two-word header below the address handed out.
#include <stdint.h>

#include "frame/lock.h"
#include "frame/memory.h"
#include "frame/platform.h"

namespace zva {

namespace {

constexpr int scratch_slots = 5;
constexpr int32_t scratch_max_threads = 1024;
constexpr uint32_t scratch_max_cached = 0x2800000;  // 40 MiB
constexpr uint32_t scratch_min_align = 64;

// Written by its own thread only, except in_use: any thread that holds a
// block may clear its flag.  raw, user and slots_used are also read by the
// cross-thread search of scratch_free, hence the atomic accesses below.
struct scratch_record {
    void* raw[scratch_slots];
    void* user[scratch_slots];
    uint32_t requested[scratch_slots];
    uint32_t capacity[scratch_slots];
    int32_t in_use[scratch_slots];
    int32_t slots_used;  // only grows
};

// Entries 1 to scratch_threads are filled; 0 in a TLS value means none.
int32_t scratch_threads = 0;
uint32_t thread_id[scratch_max_threads + 1];
scratch_record* record[scratch_max_threads + 1];

int32_t mm_env_read = -1;
int32_t mm_disabled = -1;
int32_t mm_tls_slot = -1;

template <class T> T relaxed_load(const T& v) { return __atomic_load_n(&v, __ATOMIC_RELAXED); }
template <class T> void relaxed_store(T& v, T x) { __atomic_store_n(&v, x, __ATOMIC_RELAXED); }

void mm_read_switches() {
    if (cached_load(mm_env_read) != -1) return;
    lib_lock();
    if (mm_env_read == -1) {
        // Any non-empty value switches the fast path off, "0" included.
        char buf[17];
        int off = plat_getenv("ZVA_DISABLE_FAST_MM", buf, sizeof buf) != 0 ||
                  plat_getenv("ZVA_MM_DISABLE", buf, sizeof buf) != 0;
        cached_store(mm_disabled, (int32_t)off);
        cached_store(mm_env_read, (int32_t)1);
    }
    lib_unlock();
}

uint32_t mm_alignment(int32_t alignment) {
    if (alignment >= (int32_t)scratch_min_align && (alignment & (alignment - 1)) == 0)
        return (uint32_t)alignment;
    return scratch_min_align;
}

void* align_up(void* p, uint32_t a) {
    return (void*)(((uintptr_t)p + a - 1) & ~(uintptr_t)(a - 1));
}

scratch_record* registry_search(uint32_t me, int32_t slot) {
    for (int32_t i = cached_load(scratch_threads); i >= 1; --i) {
        if (thread_id[i] == me) {
            if (slot != -1) plat_tls_set((uint32_t)slot, (uintptr_t)i);
            return record[i];
        }
    }
    return nullptr;
}

scratch_record* registry_add(uint32_t me, int32_t slot) {
    lib_lock();
    int32_t n = scratch_threads;
    if (n >= scratch_max_threads) {
        lib_unlock();
        return nullptr;
    }
    scratch_record* r = (scratch_record*)alloc_table.malloc(sizeof(scratch_record));
    if (!r) {
        lib_unlock();
        return nullptr;
    }
    // Cleared before it is published: the cross-thread search of another
    // thread's scratch_free may walk it as soon as the count covers it.
    *r = scratch_record{};
    thread_id[n + 1] = me;
    record[n + 1] = r;
    cached_store(scratch_threads, n + 1);
    if (slot != -1) plat_tls_set((uint32_t)slot, (uintptr_t)(n + 1));
    lib_unlock();
    return r;
}

// The calling thread's record; a new one only when may_add.
scratch_record* find_record(bool may_add) {
    int32_t slot = cached_load(mm_tls_slot);
    if (slot == -1) {
        // Unlocked: a thread that loses the race only searches once more.
        slot = (int32_t)plat_tls_alloc();
        if (slot != -1) cached_store(mm_tls_slot, slot);
    }
    uint32_t me = plat_thread_id();
    if (slot != -1) {
        uintptr_t v = plat_tls_get((uint32_t)slot);
        if (v != 0) {
            if (v <= (uintptr_t)cached_load(scratch_threads) && thread_id[v] == me)
                return record[v];
            // An index this thread did not set (a forked child inherits its
            // parent's): start afresh.
            plat_tls_set((uint32_t)slot, 0);
            return may_add ? registry_add(me, slot) : nullptr;
        }
    }
    // Without a TLS slot the registry is still searched, or every call
    // would take a new record.
    scratch_record* r = registry_search(me, slot);
    if (r || !may_add) return r;
    return registry_add(me, slot);
}

void* uncached_alloc(uint32_t size, uint32_t a) {
    if (size > UINT32_MAX - a - 8) return nullptr;  // wider than the address space
    uint32_t total = size + a + 8;
    void* raw = alloc_table.malloc(total);
    if (!raw) return nullptr;
    uintptr_t u = ((uintptr_t)raw + a + 8) & ~(uintptr_t)(a - 1);
    uint32_t* header = (uint32_t*)u - 2;
    header[0] = (uint32_t)(uintptr_t)raw;
    header[1] = total;
    return (void*)u;
}

void uncached_free(void* p) {
    if (!p) return;
    void* raw = (void*)(uintptr_t)((uint32_t*)p)[-2];
    if (raw) alloc_table.free(raw);
}

// A null raw (failed allocation) gives a null user: the slot then stays in
// use for good, since nobody can release null.
void* take_slot(scratch_record* r, int i, void* raw, uint32_t size, uint32_t a) {
    r->requested[i] = size;
    __atomic_store_n(&r->in_use[i], 1, __ATOMIC_RELAXED);
    void* u = align_up(raw, a);
    relaxed_store(r->user[i], u);
    return u;
}

}  // namespace

void* scratch_alloc(uint32_t size, int32_t alignment) {
    if (size == 0) return nullptr;
    mm_read_switches();
    uint32_t a = mm_alignment(alignment);
    if (cached_load(mm_disabled) == 1 || size > scratch_max_cached)
        return uncached_alloc(size, a);
    scratch_record* r = find_record(true);
    if (!r) return uncached_alloc(size, a);

    uint32_t total = size + a;
    int32_t used = r->slots_used;
    if (used > 0) {
        int exact = -1, best = -1, small = -1;
        for (int i = 0; i < used; ++i) {
            // Acquire: a block another thread released carries its writes.
            if (__atomic_load_n(&r->in_use[i], __ATOMIC_ACQUIRE) != 0) continue;
            uint32_t cap = r->capacity[i];
            if (cap == total) {
                exact = i;
                break;
            }
            if (cap > total) {
                if (best < 0 || cap < r->capacity[best]) best = i;
            } else if (small < 0) {
                small = i;
            }
        }
        if (exact >= 0) return take_slot(r, exact, r->raw[exact], size, a);
        if (best >= 0) return take_slot(r, best, r->raw[best], size, a);
        if (used >= scratch_slots) {
            if (small < 0) return uncached_alloc(size, a);  // all five in use
            void* old = r->raw[small];
            // Hidden from the cross-thread search before the old block goes.
            relaxed_store(r->raw[small], (void*)nullptr);
            if (old) alloc_table.free(old);
            void* p = alloc_table.malloc(total);
            r->capacity[small] = total;
            void* u = take_slot(r, small, p, size, a);
            __atomic_store_n(&r->raw[small], p, __ATOMIC_RELEASE);
            return u;
        }
    }

    int i = used;
    void* p = alloc_table.malloc(total);
    relaxed_store(r->raw[i], p);
    r->capacity[i] = total;
    void* u = take_slot(r, i, p, size, a);
    // Published last, so the cross-thread search never sees a half-filled slot.
    __atomic_store_n(&r->slots_used, used + 1, __ATOMIC_RELEASE);
    return u;
}

void scratch_free(void* p) {
    if (!p) return;
    mm_read_switches();
    if (cached_load(mm_disabled) == 1) {
        uncached_free(p);
        return;
    }
    if (scratch_record* r = find_record(false)) {
        for (int i = 0; i < r->slots_used; ++i) {
            if (r->user[i] == p) {
                __atomic_store_n(&r->in_use[i], 0, __ATOMIC_RELEASE);
                return;
            }
        }
    }
    // A block of another thread: a helper of a parallel region releasing
    // the master's, or the reverse.
    lib_lock();
    for (int32_t t = scratch_threads; t >= 1; --t) {
        scratch_record* o = record[t];
        int32_t used = __atomic_load_n(&o->slots_used, __ATOMIC_ACQUIRE);
        for (int i = 0; i < used; ++i) {
            if (__atomic_load_n(&o->raw[i], __ATOMIC_ACQUIRE) != nullptr &&
                relaxed_load(o->user[i]) == p) {
                __atomic_store_n(&o->in_use[i], 0, __ATOMIC_RELEASE);
                lib_unlock();
                return;
            }
        }
    }
    lib_unlock();
    uncached_free(p);
}

void* scratch_alloc_direct(uint32_t size, int32_t alignment) {
    if (size == 0) return nullptr;
    mm_read_switches();
    return uncached_alloc(size, mm_alignment(alignment));
}

void scratch_free_direct(void* p) {
    if (!p) return;
    mm_read_switches();
    uncached_free(p);
}

int scratch_disabled() {
    mm_read_switches();
    return cached_load(mm_disabled);
}

}  // namespace zva
