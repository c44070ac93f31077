#include "frame/cbwr.h"

#include <string.h>

#include "frame/lock.h"
#include "frame/platform.h"

namespace zva {

namespace {

int cbwr_word = 0;
int cbwr_read = -1;

struct cbwr_name { const char* text; int mode; };
const cbwr_name cbwr_names[] = {
    {"AUTO", 2},   {"COMPATIBLE", 3}, {"SSE2", 4},   {"SSE3", 5},  {"SSSE3", 6},
    {"SSE4_1", 7}, {"SSE4_2", 8},     {"AVX", 9},    {"AVX2", 10},
};

void cbwr_read_env() {
    char buf[128] = {};
    if (plat_getenv("ZVA_CBWR", buf, sizeof buf) != 0) {
        const char* text = buf;
        if (strncmp(text, "BRANCH=", 7) == 0) text += 7;
        int mode = 2;  // any text that is not a known word
        for (const cbwr_name& n : cbwr_names)
            if (strcmp(text, n.text) == 0) mode = n.mode;
        cached_store(cbwr_word, mode);
    }
    cached_store(cbwr_read, 1);
}

int cbwr_value() {
    int w = cached_load(cbwr_word);
    return w == 0 ? 1 : (w & 63);
}

}  // namespace

int cbwr_mode_nolock() {
    if (cached_load(cbwr_word) == 0 && cached_load(cbwr_read) == -1)
        cbwr_read_env();
    return cbwr_value();
}

int cbwr_mode() {
    if (cached_load(cbwr_word) == 0 && cached_load(cbwr_read) == -1) {
        lib_lock();
        if (cbwr_word == 0 && cbwr_read == -1) cbwr_read_env();
        lib_unlock();
    }
    return cbwr_value();
}

}  // namespace zva
