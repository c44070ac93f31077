#include "frame/dispatch.h"

#include <stdio.h>
#include <stdlib.h>

#include "frame/msg.h"
#include "frame/platform.h"

namespace zva {

const char* const point_names[point_count] = {
#define ZVA_PNAME(N, ...) #N,
    ZVA_ROUTINES(ZVA_PNAME) ZVA_INNER_POINTS(ZVA_PNAME)
#undef ZVA_PNAME
};

void kernel_empty(...) {}
int kernel_false(...) { return 0; }
int kernel_true(...) { return 1; }

void dispatch_bad_branch() {
    msg_print(1213, 1, cpu_branch());
    plat_terminate(1);
}

}  // namespace zva
