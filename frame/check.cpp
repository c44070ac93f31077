#include "frame/check.h"

#include <string.h>

#include "frame/msg.h"

namespace zva {

namespace {

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
    int info = check_find(f, args);
    if (!info) return 0;
    // Routine names are six characters, blank padded: "CHER  ".
    char name[7] = "      ";
    const char* r = point_names[routine];
    memcpy(name, r, strlen(r) < 6 ? strlen(r) : 6);
    xerbla(name, &info, 6);
    return 1;
}

}  // namespace zva
