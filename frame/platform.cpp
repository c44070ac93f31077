#include "frame/platform.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
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

uint32_t plat_tls_alloc() {
    pthread_key_t key;
    if (pthread_key_create(&key, nullptr) != 0) return plat_tls_invalid;
    return (uint32_t)key;
}

uintptr_t plat_tls_get(uint32_t slot) {
    return (uintptr_t)pthread_getspecific((pthread_key_t)slot);
}

void plat_tls_set(uint32_t slot, uintptr_t value) {
    pthread_setspecific((pthread_key_t)slot, (void*)value);
}

uint32_t plat_thread_id() { return (uint32_t)syscall(SYS_gettid); }

static uint32_t low_mask(const cpu_set_t& set) {
    uint32_t m = 0;
    for (int i = 0; i < 32; ++i)
        if (CPU_ISSET(i, &set)) m |= 1u << i;
    return m;
}

bool plat_affinity_masks(uint32_t* process_mask, uint32_t* system_mask) {
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) != 0) return false;
    *process_mask = low_mask(set);
    long n = sysconf(_SC_NPROCESSORS_CONF);
    if (n < 1) return false;
    *system_mask = n >= 32 ? 0xFFFFFFFFu : (1u << n) - 1;
    return true;
}

uint32_t plat_set_thread_affinity(uint32_t mask) {
    cpu_set_t old, set;
    if (sched_getaffinity(0, sizeof old, &old) != 0) return 0;
    CPU_ZERO(&set);
    for (int i = 0; i < 32; ++i)
        if (mask >> i & 1) CPU_SET(i, &set);
    if (sched_setaffinity(0, sizeof set, &set) != 0) return 0;
    return low_mask(old);
}

void plat_yield() { sched_yield(); }

}  // namespace zva
