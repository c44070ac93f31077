#include "frame/platform.h"

#include <dlfcn.h>
#include <limits.h>
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

namespace {

constexpr size_t path_size = 4096;
char library_folder[path_size];  // with its final '/', or empty: unknown

// name with ".dll" replaced by ".so", after prefix; false if it does not fit.
bool host_name(char* out, const char* prefix, const char* name) {
    const size_t lp = strlen(prefix), ln = strlen(name);
    if (lp + ln + 4 > path_size) return false;
    memcpy(out, prefix, lp);
    memcpy(out + lp, name, ln + 1);
    char* end = out + lp + ln;
    if (ln >= 4 && strcmp(end - 4, ".dll") == 0) strcpy(end - 4, ".so");
    return true;
}

}  // namespace

// The folder is taken while the library is being loaded: the loader may
// know it by a relative name, which only the working directory of that
// moment resolves.
void plat_note_library_folder() {
    Dl_info info;
    library_folder[0] = 0;
    if (!dladdr((void*)&plat_note_library_folder, &info) || !info.dli_fname) return;
    plat_note_library_file(info.dli_fname);
}

const char* plat_library_folder() { return library_folder; }

void plat_note_library_file(const char* file) {
    char real[PATH_MAX];
    library_folder[0] = 0;
    if (!realpath(file, real)) return;
    char* slash = strrchr(real, '/');
    if (!slash || (size_t)(slash - real) + 2 > path_size) return;
    memcpy(library_folder, real, slash - real + 1);
    library_folder[slash - real + 1] = 0;
}

void* plat_load_module(const char* name) {
    char path[path_size];
    // A name with a slash would be a path, resolved from the working
    // directory if relative: only the bare name goes to the search.
    if (strchr(name, '/') || !host_name(path, "", name)) return nullptr;
    return dlopen(path, RTLD_NOW | RTLD_LOCAL);
}

void* plat_load_module_beside(const char* relative) {
    char path[path_size];
    if (!library_folder[0] || !host_name(path, library_folder, relative)) return nullptr;
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

namespace {

// Every scratch request asks for the thread's id: a system call each time
// would cost more than the bookkeeping it serves. A forked child starts
// with its parent's copy, hence the reset.
__attribute__((tls_model("initial-exec"))) thread_local uint32_t own_thread_id;
pthread_once_t fork_hook = PTHREAD_ONCE_INIT;

void forget_thread_id() { own_thread_id = 0; }
void install_fork_hook() { pthread_atfork(nullptr, nullptr, forget_thread_id); }

}  // namespace

uint32_t plat_thread_id() {
    if (own_thread_id == 0) {
        pthread_once(&fork_hook, install_fork_hook);
        own_thread_id = (uint32_t)syscall(SYS_gettid);
    }
    return own_thread_id;
}

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

void plat_on_fork_child(void (*fn)()) { pthread_atfork(nullptr, nullptr, fn); }

}  // namespace zva
