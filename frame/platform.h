// The platform layer: every service of the host system that the library
// uses.  The rest of the code sees only these calls, written after what the
// library asks of them (an environment read that fills a caller's buffer,
// named optional modules, the locale number of a thread, ending the process).
#pragma once
#include <cstdint>

namespace zva {

// Copies the value of an environment variable into buf (size bytes, the
// terminator included) and returns its length.  Returns 0 when the variable
// is absent, and the needed size without touching buf when it does not fit.
uint32_t plat_getenv(const char* name, char* buf, uint32_t size);

// Optional modules by their portable name ("libzmalloc.dll"; the host's own
// suffix replaces ".dll"), never from the working directory: a directory
// anyone can write to must not be able to plant code in the caller's
// process.  plat_load_module takes a bare name and asks the system's
// library search (LD_LIBRARY_PATH, the loader's cache, the system folders);
// plat_load_module_beside takes a path below the folder this library was
// loaded from.  Null when the module cannot be loaded.
void* plat_load_module(const char* name);
void* plat_load_module_beside(const char* relative);
// Notes the folder of this library; called once, while it is being loaded.
void plat_note_library_folder();
// The same for a program that is not the library (zva-config): notes the
// folder of the library file it found.  Empty when unknown.
void plat_note_library_file(const char* file);
const char* plat_library_folder();
void* plat_module_symbol(void* module, const char* name);
void plat_free_module(void* module);

// Locale number of the calling thread, as a Windows LCID (1033 = en-US).
unsigned long plat_thread_locale();

// Ends the process at once with the exit code; nothing else runs.
[[noreturn]] void plat_terminate(int code);

// A short pause inside a spin loop.
void plat_pause();

// Thread-local storage: a slot number valid for every thread, each thread
// seeing its own value (0 until it sets one).  plat_tls_invalid when no
// slot can be had.
constexpr uint32_t plat_tls_invalid = 0xFFFFFFFFu;
uint32_t plat_tls_alloc();
uintptr_t plat_tls_get(uint32_t slot);
void plat_tls_set(uint32_t slot, uintptr_t value);
// The operating system's identifier of the calling thread.
uint32_t plat_thread_id();

// Processor masks of the first 32 logical processors: the processors this
// process may run on, and those the system has.  False when unknown.
bool plat_affinity_masks(uint32_t* process_mask, uint32_t* system_mask);
// Pins the calling thread to the processors of mask; returns the previous
// mask, or 0 when the pin is refused.
uint32_t plat_set_thread_affinity(uint32_t mask);
// Gives up the rest of the time slice.
void plat_yield();

// Has fn run in the child process after every later fork().
void plat_on_fork_child(void (*fn)());

}  // namespace zva
