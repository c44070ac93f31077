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

// Optional modules by their portable name ("libzmalloc.dll"): the host's
// own suffix replaces ".dll".  Null when the module cannot be loaded.
void* plat_load_module(const char* name);
void* plat_module_symbol(void* module, const char* name);
void plat_free_module(void* module);

// Locale number of the calling thread, as a Windows LCID (1033 = en-US).
unsigned long plat_thread_locale();

// Ends the process at once with the exit code; nothing else runs.
[[noreturn]] void plat_terminate(int code);

// A short pause inside a spin loop.
void plat_pause();

}  // namespace zva
