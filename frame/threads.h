// How many threads a call may use, and the processor topology behind it.
#pragma once

namespace zva {

// Threads the library may use now in the domain (1: BLAS); at least 1.
int thr_max_threads(int domain);
// 1 when dynamic adjustment is on, 0 when ZVA_DYNAMIC switched it off.
int thr_dynamic();

// Where the count of thr_max_threads came from, for zva-config.
enum thr_source : int {
    thr_from_runtime,        // omp_get_max_threads, no variable of ours
    thr_from_omp,            // omp_get_max_threads, OMP_NUM_THREADS set
    thr_from_num_threads,    // ZVA_NUM_THREADS
    thr_from_domain_all,     // ZVA_DOMAIN_NUM_THREADS, ZVA_ALL or ZVA_DOMAIN_ALL
    thr_from_domain,         // ZVA_DOMAIN_NUM_THREADS, the domain's own names
    thr_from_mpi_share,      // an equal share of the cores per MPI process
    thr_from_mpi_one,        // one thread per MPI process
    thr_from_nested,         // called inside a parallel region
    thr_from_forked_child,   // a child forked after regions ran
};
// The answer of thr_max_threads(domain) with its source, whether the
// physical cores capped it, and the settings read from the environment.
struct thr_report {
    int count;
    int source;
    int capped;
    int omp_num;       // OMP_NUM_THREADS, -1 when not set
    int mpi_per_node;  // Z_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE, -1
    int mpi_level;     // Z_MPI_THREAD_LEVEL, -1
};
void thr_report_of(int domain, thr_report* out);

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
