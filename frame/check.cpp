#include "frame/check.h"

#include <string.h>

#include "frame/msg.h"

namespace zva {

namespace {

inline int upper(unsigned char c) { return c >= 'a' && c <= 'z' ? c - 32 : c; }

int arg_int(const uintptr_t* args, int param) { return *(const int*)args[param - 1]; }
const char* arg_text(const uintptr_t* args, int param) { return (const char*)args[param - 1]; }

bool one_of(const char* option, const char* letters) {
    for (; *letters; ++letters)
        if (lsame(option, letters, 1, 1)) return true;
    return false;
}

int bound(const check_step& s, const uintptr_t* args) {
    auto max1 = [](int v) { return v > 1 ? v : 1; };
    switch (s.bound) {
        case bnd_max1: return max1(arg_int(args, s.a));
        case bnd_select:
            return max1(lsame(arg_text(args, s.sel), &s.letter, 1, 1)
                            ? arg_int(args, s.a) : arg_int(args, s.b));
        case bnd_plus1: return arg_int(args, s.a) + 1;
        case bnd_sum1: return arg_int(args, s.a) + arg_int(args, s.b) + 1;
    }
    return 1;
}

bool fails(const check_step& s, const uintptr_t* args) {
    switch (s.kind) {
        case chk_option: return !one_of(arg_text(args, s.param), s.letters);
        case chk_negative: return arg_int(args, s.param) < 0;
        case chk_zero: return arg_int(args, s.param) == 0;
        case chk_ld: return arg_int(args, s.param) < bound(s, args);
    }
    return false;
}

// The public reporter's argument order (name, length, info); the library
// exports none, so the chain ends here.
void report(const char* name, int len, const int* info) {
    char text[21];
    int n = len < 20 ? len : 20;
    if (n < 0) n = 0;
    memcpy(text, name, n);
    text[n] = 0;
    msg_print(0, 0);
    switch (*info) {
        case 1000: msg_print(8, 1, text); break;
        case 1001: msg_print(9, 1, text); break;
        case 1212: msg_print(1212, 1, text); break;
        case 1089: msg_print(1089, 1, text); break;
        default:
            if (*info > 0) msg_print(6, 2, *info, text);
            else msg_print(7, 2, -*info, text);
    }
}

}  // namespace

int lsame(const char* a, const char* b, int, int) {
    return upper((unsigned char)*a) == upper((unsigned char)*b);
}

void xerbla(const char* name, const int* info, int len) { report(name, len, info); }

int err_no_memory(const void* p, const char* tag) {
    if (p) return 0;
    char text[21];
    strncpy(text, tag, 20);
    text[20] = 0;
    msg_print(0, 0);
    msg_print(1089, 1, text);
    return 1;
}

int check_run(const check_family& f, point_id routine, const uintptr_t* args) {
    for (int i = 0; i < f.count; ++i) {
        if (!fails(f.steps[i], args)) continue;
        // Routine names are six characters, blank padded: "CHER  ".
        char name[7] = "      ";
        const char* r = point_names[routine];
        memcpy(name, r, strlen(r) < 6 ? strlen(r) : 6);
        int info = f.steps[i].param;
        xerbla(name, &info, 6);
        return 1;
    }
    return 0;
}

}  // namespace zva
