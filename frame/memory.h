// The allocator chosen when the library is loaded.
#pragma once
#include <stddef.h>
#include <stdint.h>

namespace zva {

struct alloc_funcs {
    void* (*malloc)(size_t);
    void* (*calloc)(size_t, size_t);
    void* (*realloc)(void*, size_t);
    void (*free)(void*);
};

// Either all four entries of the optional allocator module, or all four of
// the C runtime; never a mix.
extern alloc_funcs alloc_table;

void attach_allocator();
// 1 when the optional allocator module was adopted, 0 for the C runtime.
int alloc_from_module();

}  // namespace zva

namespace zva {

// Aligned work memory.  Each thread keeps up to five blocks that later
// requests reuse without calling the allocator.  alignment: a power of two
// of at least 64 is kept, anything else means 64.  Null when no memory.
void* scratch_alloc(uint32_t size, int32_t alignment);
void scratch_free(void* p);
// The same without the per-thread cache.
void* scratch_alloc_direct(uint32_t size, int32_t alignment);
void scratch_free_direct(void* p);
// 1 when ZVA_DISABLE_FAST_MM or ZVA_MM_DISABLE switched the cache off.
int scratch_disabled();

}  // namespace zva
