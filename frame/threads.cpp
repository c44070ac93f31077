#include "frame/threads.h"

#include <omp.h>
#include <stdlib.h>
#include <string.h>

#include "frame/lock.h"
#include "frame/platform.h"

namespace zva {

namespace {

int thr_env_pending = 1;
int thr_all = -1;
int thr_all_from_list = 0;  // thr_all came from ZVA_DOMAIN_NUM_THREADS
int thr_domain[5] = {-1, -1, -1, -1, -1};  // by domain 1 to 4
int thr_dynamic_flag = -1;
int thr_omp_num = -1;
int thr_mpi_per_node = -1;
int thr_mpi_level = -1;

// A child forked after the process ran parallel regions inherits the OpenMP
// runtime's record of a thread team whose threads did not come along; the
// next region would wait for them for ever.  No runtime call can rebuild
// that team, so from the fork on the child runs every call on its own
// thread, and so do its own children.  The parent keeps its threads.
int thr_forked_child = 0;
void note_fork_child() { thr_forked_child = 1; }

// A value counts when it has 1 to 255 characters.
bool read_var(const char* name, char* buf) {
    memset(buf, 0, 256);
    uint32_t n = plat_getenv(name, buf, 256);
    return n >= 1 && n <= 255;
}

bool all_digits(const char* s) {
    for (; *s; ++s)
        if (*s < '0' || *s > '9') return false;
    return true;
}

void set_first(int& v, int value) {
    if (v < 0) v = value;
}

// The names of each row of ZVA_DOMAIN_NUM_THREADS; row 0 is the general one.
struct domain_name { const char* a; const char* b; int row; };
const domain_name domain_names[] = {
    {"ZVA_ALL", "ZVA_DOMAIN_ALL", 0},     {"ZVA_BLAS", "ZVA_DOMAIN_BLAS", 1},
    {"ZVA_FFT", "ZVA_DOMAIN_FFT", 2},     {"ZVA_ARRAYMATH", "ZVA_DOMAIN_ARRAYMATH", 3},
    {"ZVA_DIRECT", "ZVA_DOMAIN_DIRECT", 4},
};

int& row_value(int row) { return row == 0 ? thr_all : thr_domain[row]; }

bool is_any(char c, const char* set) { return c && strchr(set, c); }

void read_domains(const char* s) {
    for (;;) {
        while (is_any(*s, " ,;:\"'")) ++s;
        if (!*s) return;
        const char* name = s;
        while (*s && !is_any(*s, "=\"' ")) ++s;
        size_t name_len = s - name;
        if (name_len == 0) return;
        while (is_any(*s, " =")) ++s;
        const char* value = s;
        while (*s && !is_any(*s, " ,;:\"'")) ++s;
        char text[256];
        size_t value_len = s - value;
        memcpy(text, value, value_len);
        text[value_len] = 0;
        if (*s) ++s;
        int v = value_len == 0 || !all_digits(text) ? 1 : atoi(text);
        for (const domain_name& d : domain_names) {
            if ((strlen(d.a) == name_len && !strncmp(name, d.a, name_len)) ||
                (strlen(d.b) == name_len && !strncmp(name, d.b, name_len))) {
                if (v >= 1) set_first(row_value(d.row), v);
            }
        }
    }
}

void read_environment() {
    char buf[256];
    if (read_var("ZVA_NUM_THREADS", buf)) {
        int v = all_digits(buf) ? atoi(buf) : 1;
        if (v >= 1) set_first(thr_all, v);
    }
    bool all_set = thr_all > 0;
    if (read_var("ZVA_DOMAIN_NUM_THREADS", buf)) read_domains(buf);
    thr_all_from_list = !all_set && thr_all > 0;
    if (thr_dynamic_flag == -1) {
        if (!read_var("ZVA_DYNAMIC", buf)) {
            thr_dynamic_flag = 1;
        } else {
            const char* s = buf;
            while (is_any(*s, " \"'")) ++s;
            size_t len = 0;
            while (s[len] && !is_any(s[len], " \"'")) ++len;
            bool off = (len == 5 && (!strncmp(s, "FALSE", 5) || !strncmp(s, "false", 5)));
            thr_dynamic_flag = off ? 0 : 1;
        }
    }
    if (read_var("OMP_NUM_THREADS", buf)) {
        if (!all_digits(buf)) thr_omp_num = 1;
        else if (atoi(buf) > 0) thr_omp_num = atoi(buf);
    }
    if (read_var("Z_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE", buf) && all_digits(buf) &&
        atoi(buf) > 0)
        thr_mpi_per_node = atoi(buf);
    if (read_var("Z_MPI_THREAD_LEVEL", buf)) {
        thr_mpi_level = 0;
        if (all_digits(buf) && atoi(buf) >= 0 && atoi(buf) <= 3) thr_mpi_level = atoi(buf);
    }
}

void thr_init() {
    if (cached_load(thr_env_pending)) {
        lib_lock();
        if (thr_env_pending) {
            read_environment();
            // Before any region of ours can exist.
            plat_on_fork_child(note_fork_child);
            cached_store(thr_env_pending, 0);
        }
        lib_unlock();
    }
    // The walk allocates, and the allocator takes lib_lock: not under it.
    if (!cached_load(topo_done)) topo_detect();
}

// thr_max_threads with the reasons of its answer in *source and *capped.
int max_threads(int domain, int* source, int* capped) {
    thr_init();
    *capped = 0;
    if (thr_forked_child) return *source = thr_from_forked_child, 1;
    if (thr_dynamic_flag != 0 && omp_in_parallel()) return *source = thr_from_nested, 1;
    int n;
    bool explicit_count = true;
    if (domain >= 1 && domain <= 4 && thr_domain[domain] > 0)
        n = thr_domain[domain], *source = thr_from_domain;
    else if (thr_all > 0)
        n = thr_all, *source = thr_all_from_list ? thr_from_domain_all : thr_from_num_threads;
    else
        n = omp_get_max_threads(), explicit_count = false,
        *source = thr_omp_num > 0 ? thr_from_omp : thr_from_runtime;
    if (thr_dynamic_flag == 0) return n;
    int cores = cached_load(topo_cores);
    if (cores > 0 && n > cores) n = cores, *capped = 1;
    if (thr_mpi_per_node == -1 || explicit_count || thr_omp_num > 0) return n;
    *capped = 0;
    if (thr_mpi_level > 0) {
        // Without a core count the processors stand in for the cores: a
        // share of the machine is still what an MPI rank expects.
        int c = cores > 0 ? cores : omp_get_num_procs();
        int share = c / thr_mpi_per_node;
        *source = thr_from_mpi_share;
        return share > 1 ? share : 1;
    }
    *source = thr_from_mpi_one;
    return 1;
}

}  // namespace

int thr_max_threads(int domain) {
    int source, capped;
    return max_threads(domain, &source, &capped);
}

void thr_report_of(int domain, thr_report* out) {
    out->count = max_threads(domain, &out->source, &out->capped);
    out->omp_num = thr_omp_num;
    out->mpi_per_node = thr_mpi_per_node;
    out->mpi_level = thr_mpi_level;
}

int thr_dynamic() {
    thr_init();
    return thr_dynamic_flag;
}

}  // namespace zva
