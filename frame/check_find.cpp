// The tests of a checker, without the report: the checkers run them, and so
// does the Fortran and C interface library, which must name the same
// parameter to the program's own XERBLA that the library reported.  Nothing
// here prints, so that library can compile this file on its own.
#include "frame/check.h"

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

}  // namespace

int lsame(const char* a, const char* b, int, int) {
    return upper((unsigned char)*a) == upper((unsigned char)*b);
}

int check_find(const check_family& f, const uintptr_t* args) {
    for (int i = 0; i < f.count; ++i)
        if (fails(f.steps[i], args)) return f.steps[i].param;
    return 0;
}

}  // namespace zva
