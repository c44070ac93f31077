// How many threads a call may use, and the processor topology behind it.
#pragma once

namespace zva {

// Threads the library may use now in the domain (1: BLAS); at least 1.
int thr_max_threads(int domain);
// 1 when dynamic adjustment is on, 0 when ZVA_DYNAMIC switched it off.
int thr_dynamic();

// Physical cores counted once by pinning the calling thread to each
// processor in turn; -1 when not known.
void topo_detect();
extern int topo_done;
extern int topo_cores;
extern int topo_logical;
extern int topo_packages;
extern int topo_cores_per_package;
extern int topo_ht;

}  // namespace zva
