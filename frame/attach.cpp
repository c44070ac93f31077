#include <stdlib.h>

#include "frame/memory.h"
#include "frame/platform.h"

namespace zva {

alloc_funcs alloc_table = {malloc, calloc, realloc, free};

namespace {
// The entries may be the C runtime's own functions, so only a flag tells.
int alloc_module_adopted = 0;
}  // namespace

// The module exports four variables that each hold a function pointer.  It
// is looked for by its bare name through the system's library search
// (LD_LIBRARY_PATH included), the way a program finds any library it is
// given; never in the working directory.
void attach_allocator() {
    alloc_table = {malloc, calloc, realloc, free};
    alloc_module_adopted = 0;
    void* module = plat_load_module("libzmalloc.dll");
    if (!module) return;
    void* const* vars[4] = {
        (void* const*)plat_module_symbol(module, "z_malloc_dll"),
        (void* const*)plat_module_symbol(module, "z_calloc_dll"),
        (void* const*)plat_module_symbol(module, "z_realloc_dll"),
        (void* const*)plat_module_symbol(module, "z_free_dll")};
    for (void* const* v : vars) {
        if (!v || !*v) {
            plat_free_module(module);
            return;
        }
    }
    // Adopted: the module stays loaded for as long as the library is.
    alloc_table.malloc = (void* (*)(size_t)) * vars[0];
    alloc_table.calloc = (void* (*)(size_t, size_t)) * vars[1];
    alloc_table.realloc = (void* (*)(void*, size_t)) * vars[2];
    alloc_table.free = (void (*)(void*)) * vars[3];
    alloc_module_adopted = 1;
}

int alloc_from_module() { return alloc_module_adopted; }

namespace {
// The load-time step: choosing the allocator is all the library does before
// its first call, besides noting where it was loaded from (the message
// catalogue is looked for there).
__attribute__((constructor)) void library_attach() {
    plat_note_library_folder();
    attach_allocator();
}
}  // namespace

}  // namespace zva
