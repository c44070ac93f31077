#include "frame/platform.h"

#include <dlfcn.h>
#include <emmintrin.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

namespace zva {

uint32_t plat_getenv(const char* name, char* buf, uint32_t size) {
    const char* v = getenv(name);
    if (!v) return 0;
    uint32_t len = (uint32_t)strlen(v);
    if (len + 1 > size) return len + 1;
    memcpy(buf, v, len + 1);
    return len;
}

void* plat_load_module(const char* name) {
    char path[512];
    size_t len = strlen(name);
    if (len + 4 > sizeof path) return nullptr;
    memcpy(path, name, len + 1);
    if (len >= 4 && strcmp(path + len - 4, ".dll") == 0)
        strcpy(path + len - 4, ".so");
    return dlopen(path, RTLD_NOW | RTLD_LOCAL);
}

void* plat_module_symbol(void* module, const char* name) {
    return dlsym(module, name);
}

void plat_free_module(void* module) { dlclose(module); }

// Linux threads carry no locale number; the message catalogue is looked up
// under US English, the language of the built-in texts.
unsigned long plat_thread_locale() { return 1033; }

void plat_terminate(int code) { _exit(code); }

void plat_pause() { _mm_pause(); }

}  // namespace zva
