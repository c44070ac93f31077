// zva-config: what zva decides on this processor and in this environment,
// and why.  It is linked with the library's own processor, thread, scratch
// and message objects and asks them, so that its answers are the library's
// (same processor, same environment, same search for the modules).
//
//   zva-config          aligned "name: value (why)" lines
//   zva-config --json   one JSON object {name: {"value": v, "why": text}}
#include <dlfcn.h>
#include <link.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "frame/cbwr.h"
#include "frame/cpu.h"
#include "frame/memory.h"
#include "frame/msg.h"
#include "frame/platform.h"
#include "frame/threads.h"

using namespace zva;

namespace {

constexpr int blas_domain = 1;
constexpr int max_rows = 40;
constexpr int text_size = 512;

// One line of the report; a number is printed bare in JSON.
struct row {
    const char* name;
    char value[text_size];
    char why[text_size];
    bool number;
};
row rows[max_rows];
int row_count = 0;

void vformat(char* out, const char* fmt, va_list ap) { vsnprintf(out, text_size, fmt, ap); }

row& add(const char* name, bool number, const char* value_fmt, ...) {
    row& r = rows[row_count++];
    r.name = name;
    r.number = number;
    r.why[0] = 0;
    va_list ap;
    va_start(ap, value_fmt);
    vformat(r.value, value_fmt, ap);
    va_end(ap);
    return r;
}

void why(row& r, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vformat(r.why, fmt, ap);
    va_end(ap);
}

const char* env(const char* name) { return getenv(name); }

// ---- processor ------------------------------------------------------------

struct feature_name { uint64_t mask; const char* name; };
const feature_name feature_names[] = {
    {0x40, "SSE2"},      {0x80, "SSE3"},     {0x100, "SSSE3"},  {0x200, "SSE4.1"},
    {0x400, "SSE4.2"},   {0x800, "POPCNT"},  {0x1000, "MOVBE"}, {0x2000, "PCLMULQDQ"},
    {0x4000, "AES"},     {0x8000, "F16C"},   {0x10000, "AVX"},  {0x40000, "FMA"},
    {0x80000, "BMI1+BMI2"}, {0x100000, "LZCNT"}, {0x800000, "AVX2"},
};

// The names of enum microarch in frame/cpu.h.
const char* microarch_name(int code) {
    switch (code) {
    case ma_none: return "ma_none";
    case ma_ssse3: return "ma_ssse3";
    case ma_sse41: return "ma_sse41";
    case ma_sse42: return "ma_sse42";
    case ma_sse42_aes: return "ma_sse42_aes";
    case ma_avx: return "ma_avx";
    }
    return "?";
}

const char* const branch_names[8] = {"", "", "SSE2", "SSE3", "SSSE3", "SSE4.x", "AVX",
                                     "AVX2+FMA"};
const char* const mode_names[11] = {"",     "unset", "AUTO",   "COMPATIBLE", "SSE2", "SSE3",
                                    "SSSE3", "SSE4_1", "SSE4_2", "AVX",        "AVX2"};

void report_processor() {
    uint32_t a, b, c, d;
    cpu_cpuid(0, 0, &a, &b, &c, &d);
    char vendor[13];
    memcpy(vendor, &b, 4), memcpy(vendor + 4, &d, 4), memcpy(vendor + 8, &c, 4);
    vendor[12] = 0;
    bool primary = cpu_is_primary_vendor();
    why(add("vendor", false, "%s", vendor),
        primary ? "gets branches 6 and 7 when it has AVX"
                : "not the primary vendor: at most branch 5, no tuning codes");

    uint64_t f = cpu_feature_word();
    char list[text_size] = "";
    for (const feature_name& n : feature_names)
        if (f & n.mask) strcat(strcat(list, list[0] ? " " : ""), n.name);
    why(add("features", false, "%s", list), "feature word 0x%llx", (unsigned long long)f);

    cpu_reasons r;
    cpu_branch();
    cpu_reasons_of(&r);
    cpu_cpuid(1, 0, &a, &b, &c, &d);
    bool cpuid_avx = (c >> 28) & 1;
    why(add("os_avx_state", false, "%s", r.os_saves_ymm ? "yes" : "no"),
        r.os_saves_ymm ? "OSXSAVE set and XCR0 saves SSE and AVX state"
        : cpuid_avx    ? "the processor has AVX but the system does not save YMM: "
                         "AVX, FMA, F16C and AVX2 count as absent"
                       : "no AVX state to save");
}

void report_branch(int mode) {
    cpu_reasons r;
    int b = cpu_branch();
    int ma = cpu_microarch();
    cpu_reasons_of(&r);
    bool primary = cpu_is_primary_vendor();
    row& br = add("branch", true, "%d", b);
    if (r.branch_forced >= 2)
        why(br, "%s; forced by ZVA_DEBUG_CPU_TYPE=%s, the processor's best is %d",
            branch_names[b], env("ZVA_DEBUG_CPU_TYPE"), r.branch_hw);
    else if (mode == 1)
        why(br, "%s; the processor's best", branch_names[b]);
    else if (b < r.branch_hw && !primary)
        why(br, "%s; ZVA_CBWR=%s on another vendor's processor gives branch 2",
            branch_names[b], mode_names[mode]);
    else
        why(br, "%s; chosen by ZVA_CBWR=%s, the processor's best is %d", branch_names[b],
            mode_names[mode], r.branch_hw);

    row& mr = add("microarch", true, "%d", ma);
    if (r.microarch_forced)
        why(mr, "%s; chosen by ZVA_DEBUG_CPU_MA=%s", microarch_name(ma),
            env("ZVA_DEBUG_CPU_MA"));
    else if (mode == 3)
        why(mr, "%s; ZVA_CBWR=COMPATIBLE", microarch_name(ma));
    else if ((mode == 1 || mode == 2) && !primary)
        why(mr, "%s; another vendor's processor", microarch_name(ma));
    else
        why(mr, "%s; from branch %d%s", microarch_name(ma), b,
            mode == 1 ? " and the processor" : " and ZVA_CBWR");
    if (env("ZVA_DEBUG_CPU_MA") && !r.microarch_forced)
        strcat(mr.why, "; ZVA_DEBUG_CPU_MA ignored: it chooses 64 or 66 on branch 5 only");

    why(add("sse41_tuning", true, "%d", cpu_has_sse41()),
        mode <= 2 ? "the processor's SSE4.1 bit" : "fixed by ZVA_CBWR");
    why(add("other_vendor_avx", true, "%d", cpu_other_vendor_avx()),
        "1 only with ZVA_CBWR unset on another vendor's AVX processor");
}

void report_caches(int mode) {
    int32_t t[5];
    cpu_cache_sizes(t);
    char list[text_size] = "";
    for (int i = 1; i <= t[0] && i < 5; ++i)
        snprintf(list + strlen(list), sizeof list - strlen(list), "%sL%d %d KiB",
                 i > 1 ? ", " : "", i, t[i] / 1024);
    why(add("caches", false, "%s", t[0] ? list : "none"),
        mode != 1 ? "fixed by ZVA_CBWR, the same on every processor"
        : t[0]    ? "measured: CPUID leaf 4, data and unified caches"
                  : "measured: CPUID leaf 4 lists no cache here");
    int l2 = cpu_l2_class();
    why(add("l2_class", true, "%d", l2),
        mode == 1 ? "CPUID leaf 2 descriptors; -1: none listed" : "fixed by ZVA_CBWR");
}

// ---- threads --------------------------------------------------------------

void report_threads() {
    thr_report t;
    thr_report_of(blas_domain, &t);
    row& cores = add("physical_cores", true, "%d", topo_cores);
    if (topo_cores > 0)
        why(cores, "%d logical processors, %d package(s), hardware threads %s", topo_logical,
            topo_packages, topo_ht ? "shared" : "not shared");
    else
        why(cores, "not known: the process may not run on every processor, no cap");

    row& th = add("threads", true, "%d", t.count);
    switch (t.source) {
    case thr_from_num_threads: why(th, "ZVA_NUM_THREADS=%s", env("ZVA_NUM_THREADS")); break;
    case thr_from_domain_all:
    case thr_from_domain:
        why(th, "ZVA_DOMAIN_NUM_THREADS=%s", env("ZVA_DOMAIN_NUM_THREADS"));
        break;
    case thr_from_omp: why(th, "OMP_NUM_THREADS=%s", env("OMP_NUM_THREADS")); break;
    case thr_from_mpi_share:
        why(th, "Z_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE=%d with Z_MPI_THREAD_LEVEL=%d: "
                "a share of the cores", t.mpi_per_node, t.mpi_level);
        break;
    case thr_from_mpi_one:
        why(th, "Z_MPI_NUMBER_OF_MPI_PROCESSES_PER_NODE=%d and no thread count: one per "
                "process", t.mpi_per_node);
        break;
    case thr_from_nested: why(th, "called inside a parallel region"); break;
    case thr_from_forked_child: why(th, "a child forked after parallel regions"); break;
    default: why(th, "the OpenMP runtime's default"); break;
    }
    if (t.capped) strcat(th.why, ", capped at the physical cores");

    const char* dyn = env("ZVA_DYNAMIC");
    row& dr = add("dynamic", false, "%s", thr_dynamic() ? "on" : "off");
    if (dyn)
        why(dr, "ZVA_DYNAMIC=%s%s", dyn,
            thr_dynamic() ? "; only FALSE or false switches it off" : "");
    else
        why(dr, "default");
}

// ---- reproducibility, memory, modules ------------------------------------

void report_mode(int mode) {
    const char* v = env("ZVA_CBWR");
    row& r = add("cbwr_mode", true, "%d", mode);
    if (mode == 1) why(r, "unset: the processor decides");
    else if (mode == 2 && v && strcmp(v, "AUTO") && strcmp(v, "BRANCH=AUTO"))
        why(r, "AUTO; ZVA_CBWR=%s is not a known word", v);
    else why(r, "%s; ZVA_CBWR=%s", mode_names[mode], v ? v : "");

    int off = scratch_disabled();
    const char* var = env("ZVA_DISABLE_FAST_MM") && *env("ZVA_DISABLE_FAST_MM")
                          ? "ZVA_DISABLE_FAST_MM" : "ZVA_MM_DISABLE";
    row& s = add("scratch_cache", false, "%s", off ? "off" : "on");
    if (off) why(s, "%s is set; any value counts", var);
    else why(s, "five blocks per thread reused; ZVA_DISABLE_FAST_MM, ZVA_MM_DISABLE unset");
}

void report_modules(const char* lib_path) {
    why(add("allocator", false, "%s", alloc_from_module() ? "libzmalloc.so" : "C runtime"),
        alloc_from_module()
            ? "libzmalloc.so found by its bare name through the library search"
            : "no libzmalloc.so with z_malloc_dll .. z_free_dll by its bare name in "
              "LD_LIBRARY_PATH, the loader's cache, the system folders");
    why(add("library", false, "%s", lib_path ? lib_path : "not found"),
        "libzva_m.so by its bare name through the library search");
    const char* folder = plat_library_folder();
    char where[text_size];
    snprintf(where, sizeof where, "%s%lu/zva_msg.so", lib_path ? folder : "<library folder>/",
             plat_thread_locale());
    int found = lib_path ? msg_catalogue_found() : 0;
    why(add("catalogue", false, "%s", found ? "found" : "built-in texts"),
        found ? "%s, with zva_msg_lookup" : "no %s with zva_msg_lookup", where);
}

// Finds libzva_m.so the way a program that links it would, and notes its
// folder: the catalogue is looked for beside it, not beside this program.
const char* find_library() {
    static char path[text_size];
    void* h = dlopen("libzva_m.so", RTLD_LAZY | RTLD_LOCAL);
    if (!h) return nullptr;
    link_map* map = nullptr;
    if (dlinfo(h, RTLD_DI_LINKMAP, &map) != 0 || !map || !map->l_name) return nullptr;
    if (!realpath(map->l_name, path)) return nullptr;
    plat_note_library_file(path);
    return plat_library_folder()[0] ? path : nullptr;
}

// ---- output ---------------------------------------------------------------

void print_lines() {
    size_t width = 0;
    for (int i = 0; i < row_count; ++i)
        if (strlen(rows[i].name) > width) width = strlen(rows[i].name);
    for (int i = 0; i < row_count; ++i)
        printf("%s:%*s %s%s%s%s\n", rows[i].name, (int)(width - strlen(rows[i].name)), "",
               rows[i].value, rows[i].why[0] ? " (" : "", rows[i].why,
               rows[i].why[0] ? ")" : "");
}

void json_string(const char* s) {
    putchar('"');
    for (; *s; ++s) {
        unsigned char c = (unsigned char)*s;
        if (c == '"' || c == '\\') printf("\\%c", c);
        else if (c < 0x20) printf("\\u%04x", c);
        else putchar(c);
    }
    putchar('"');
}

void print_json() {
    printf("{\n");
    for (int i = 0; i < row_count; ++i) {
        printf("  ");
        json_string(rows[i].name);
        printf(": {\"value\": ");
        if (rows[i].number) printf("%s", rows[i].value);
        else json_string(rows[i].value);
        printf(", \"why\": ");
        json_string(rows[i].why);
        printf("}%s\n", i + 1 < row_count ? "," : "");
    }
    printf("}\n");
}

}  // namespace

int main(int argc, char** argv) {
    bool json = false;
    for (int i = 1; i < argc; ++i) {
        if (!strcmp(argv[i], "--json")) json = true;
        else {
            fprintf(stderr, "usage: %s [--json]\n", argv[0]);
            return 2;
        }
    }
    const char* lib = find_library();
    int mode = cbwr_mode();
    report_processor();
    report_branch(mode);
    report_caches(mode);
    report_threads();
    report_mode(mode);
    report_modules(lib);
    if (json) print_json();
    else print_lines();
    return 0;
}
