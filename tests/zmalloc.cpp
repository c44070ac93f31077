// An allocator module that refuses every request above 64 KiB, so that the
// engines meet a failed request for work memory.
#include <stdlib.h>

namespace {
void* small_malloc(size_t n) { return n > 65536 ? nullptr : malloc(n); }
void* small_calloc(size_t n, size_t s) { return n * s > 65536 ? nullptr : calloc(n, s); }
void* small_realloc(void* p, size_t n) { return n > 65536 ? nullptr : realloc(p, n); }
}  // namespace

extern "C" {
__attribute__((visibility("default"))) void* (*z_malloc_dll)(size_t) = small_malloc;
__attribute__((visibility("default"))) void* (*z_calloc_dll)(size_t, size_t) = small_calloc;
__attribute__((visibility("default"))) void* (*z_realloc_dll)(void*, size_t) = small_realloc;
__attribute__((visibility("default"))) void (*z_free_dll)(void*) = free;
}
