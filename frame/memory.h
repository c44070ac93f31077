// The allocator chosen when the library is loaded.
#pragma once
#include <stddef.h>

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

}  // namespace zva
