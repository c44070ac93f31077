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

// A routine that is not built yet must never return as if it had worked.
void dispatch_unbuilt(int point, int branch) {
    fprintf(stderr, "zva: %s has no kernel on branch %d yet\n",
            point_names[point], branch);
    fflush(stderr);
    abort();
}

void route_unbuilt(const char* routine, const char* what) {
    fprintf(stderr, "zva: the %s of %s is not built yet\n", what, routine);
    fflush(stderr);
    abort();
}

}  // namespace zva
