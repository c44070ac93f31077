#include "frame/msg.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "frame/lock.h"
#include "frame/platform.h"

namespace zva {

namespace {

struct msg_row { int num; const char* text; };

// Only the rows this library reaches; other numbers print an empty text.
const msg_row msg_table[] = {
    {0, ""},
    {6, "ZVA ERROR: Parameter %d was incorrect on entry to %s."},
    {7, "ZVA INTERNAL ERROR: Condition %d detected in function %s."},
    {8, "ZVA INTERNAL ERROR: Not enough work memory in function %s."},
    {9, "ZVA ERROR: Incompatible optional parameters on entry to %s."},
    {1089, "ZVA INTERNAL ERROR: Not enough work memory in function %s"},
    {1210, "ZVA FATAL ERROR: This system does not meet the minimum "
           "requirements for use of the Zenva(R) Zvakor."},
    {1211, "The system processor must support the Zenva(R) Streaming SIMD 2 "
           "Extensions (Zenva(R) SSE2) instructions."},
    {1212, "ZVA INTERNAL ERROR: Problem with reading from card %s."},
    {1213, "ZVA ERROR: CPU %d is not supported."},
};

const char* table_text(int num) {
    for (const msg_row& r : msg_table)
        if (r.num == num) return r.text;
    return "";
}

int first_message = 1;
int no_catalogue = 1;
void* catalogue = nullptr;

constexpr int out_size = 512;
constexpr int catalogue_size = 1024;

// The catalogue is tried once, by the first thread that reports anything.
// No lock: the fatal processor messages are printed with lib_lock held.
void open_catalogue() {
    if (!__atomic_exchange_n(&first_message, 0, __ATOMIC_ACQ_REL)) return;
    // Beside the library, never below the working directory.
    char path[64];
    sprintf(path, "%lu/%s", plat_thread_locale(), "zva_msg.dll");
    void* h = plat_load_module_beside(path);
    if (!h) return;
    // A module without the lookup is no catalogue: closed again.
    if (!plat_module_symbol(h, "zva_msg_lookup")) {
        plat_free_module(h);
        return;
    }
    catalogue = h;
    cached_store(no_catalogue, 0);
}

// A catalogue module offers
//   unsigned zva_msg_lookup(unsigned id, unsigned lang, char* out, unsigned size)
// which copies the text for the message identifier (0x80000000 plus the
// number) into out and returns its length, 0 when it has none.  Texts end
// in CR LF like the records of a message resource.
typedef unsigned (*catalogue_lookup)(unsigned, unsigned, char*, unsigned);

bool catalogue_text(int num, char* text) {
    if (cached_load(no_catalogue)) return false;
    auto look = (catalogue_lookup)plat_module_symbol(catalogue, "zva_msg_lookup");
    if (!look) return false;
    char raw[catalogue_size];
    unsigned n = look(0x80000000u + (unsigned)num, 0x409, raw, sizeof raw);
    if (n < 2 || n >= sizeof raw || raw[n - 2] != '\r' || raw[n - 1] != '\n')
        return false;
    memcpy(text, raw, n - 2);
    text[n - 2] = 0;
    return true;
}

[[noreturn]] void overflow(int num, int len) {
    printf("\nZVA INTERNAL ERROR: message buffer overflow.");
    fflush(NULL);
    printf("\n       Message N %d   Lenght: %d   Buffer size: %d\n", num,
           len - 1, out_size);
    fflush(NULL);
    exit(8);
}

}  // namespace

void msg_print(int num, int argc, ...) {
    if (num == 0) {
        printf("\n");
        return;
    }
    open_catalogue();
    // Buffers per call, so that threads reporting at once keep their texts.
    char cat[catalogue_size];
    const char* text = catalogue_text(num, cat) ? cat : table_text(num);
    char out[out_size];
    int len;
    if (argc > 0) {
        va_list ap;
        va_start(ap, argc);
        len = vsnprintf(out, sizeof out, text, ap);
        va_end(ap);
        text = out;
    } else {
        len = (int)strlen(text);
    }
    if (len >= out_size) overflow(num, len);
    printf("%s\n", text);
    fflush(NULL);
}

int msg_catalogue_found() {
    open_catalogue();
    return !cached_load(no_catalogue);
}

}  // namespace zva
