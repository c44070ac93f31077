// A module a stranger might plant in a working directory: loading it at all
// leaves the file PLANTED there, and it offers every entry point the library
// looks for in its optional modules.
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace {
__attribute__((constructor)) void planted() {
    const int fd = open("PLANTED", O_WRONLY | O_CREAT | O_APPEND, 0644);
    if (fd >= 0) close(fd);
}
}  // namespace

extern "C" {
__attribute__((visibility("default"))) unsigned zva_msg_lookup(unsigned, unsigned, char* out,
                                                              unsigned size) {
    const char text[] = "Planted text.\r\n";
    if (size < sizeof text) return 0;
    memcpy(out, text, sizeof text);
    return sizeof text - 1;
}
__attribute__((visibility("default"))) void* (*z_malloc_dll)(size_t) = malloc;
__attribute__((visibility("default"))) void* (*z_calloc_dll)(size_t, size_t) = calloc;
__attribute__((visibility("default"))) void* (*z_realloc_dll)(void*, size_t) = realloc;
__attribute__((visibility("default"))) void (*z_free_dll)(void*) = free;
}
