// Argument checks of the level 2 and level 3 routines, and the error
// reporter.  Every checker follows the reference BLAS: the same tests in the
// same order, the first fault reported by its parameter number.
#pragma once
#include <stdint.h>

#include "frame/dispatch.h"

namespace zva {

int lsame(const char* a, const char* b, int la, int lb);
void xerbla(const char* name, const int* info, int len);
// 0 if p is not null; otherwise reports the routine tag and returns 1.
int err_no_memory(const void* p, const char* tag);

// One test of a checker.  Parameters are numbered as published, from 1; the
// internal argument list keeps that order.
enum check_kind : uint8_t {
    chk_option,    // the first byte is one of `letters`, in either case
    chk_negative,  // the integer is below 0
    chk_zero,      // an increment equal to 0
    chk_ld,        // below the bound below
};
enum bound_kind : uint8_t {
    bnd_max1,      // max(1, param a)
    bnd_select,    // max(1, option `sel` is `letter` ? param a : param b)
    bnd_plus1,     // param a + 1
    bnd_sum1,      // param a + param b + 1
};
struct check_step {
    check_kind kind;
    uint8_t param;
    const char* letters = nullptr;
    bound_kind bound = bnd_max1;
    uint8_t a = 0, b = 0, sel = 0;
    char letter = 0;
};
struct check_family {
    const check_step* steps;
    int count;
};

// The parameter number of the first fault on the internal list, or 0; prints
// nothing (frame/check_find.cpp).
int check_find(const check_family& f, const uintptr_t* args);
// Runs the steps on the internal list; reports the first fault.
int check_run(const check_family& f, point_id routine, const uintptr_t* args);

template <class Sig, const check_family& F, point_id Id> struct checker;
template <class R, class... A, const check_family& F, point_id Id>
struct checker<R(A...), F, Id> {
    static int run(A... a) {
        const uintptr_t args[] = {(uintptr_t)a...};
        return check_run(F, Id, args);
    }
};

}  // namespace zva
