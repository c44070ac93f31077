// Where the optional modules come from: the message catalogue from the
// library's own folder, the allocator through the system's library search,
// and nothing ever from the working directory.  Each case loads the library
// afresh in a child process, since both modules are tried once per process.
#include <dlfcn.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "zva.h"

namespace {

typedef void(ZVA_STDCALL* dgemm_fn)(const char*, int, const char*, int, const int*, const int*,
                                    const int*, const double*, const double*, const int*,
                                    const double*, const int*, const double*, double*,
                                    const int*);
typedef void(ZVA_STDCALL* dgemv_fn)(const char*, int, const int*, const int*, const double*,
                                    const double*, const int*, const double*, const int*,
                                    const double*, double*, const int*);

std::string make_dir() {
    char dir[] = "/tmp/zva_modules_XXXXXX";
    EXPECT_TRUE(mkdtemp(dir));
    return dir;
}
void copy(const std::string& from, const std::string& to) {
    ASSERT_EQ(system(("mkdir -p \"$(dirname " + to + ")\" && cp " + from + " " + to).c_str()), 0);
}
bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// In a child whose working directory is cwd: loads the library at lib, makes
// two faulty calls and returns what they printed.  "no library" when it
// cannot be loaded.
std::string faulty_calls(const std::string& lib, const std::string& cwd) {
    int fd[2];
    EXPECT_EQ(pipe(fd), 0);
    fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(fd[1], 1);
        close(fd[0]);
        if (chdir(cwd.c_str()) != 0) _exit(99);
        void* h = dlopen(lib.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!h) {
            printf("no library");
            fflush(stdout);
            _exit(0);
        }
        const int bad = -1, two = 2;
        double one = 1, x[4] = {0};
        ((dgemm_fn)dlsym(h, "_DGEMM@60"))("N", 1, "N", 1, &bad, &two, &two, &one, x, &two, x,
                                          &two, &one, x, &two);
        ((dgemv_fn)dlsym(h, "_DGEMV@48"))("X", 1, &two, &two, &one, x, &two, x, &two, &one, x,
                                          &two);
        // Whether a module of the catalogue's name stayed loaded.
        FILE* maps = fopen("/proc/self/maps", "r");
        char line[4096];
        bool mapped = false;
        while (maps && fgets(line, sizeof line, maps)) mapped |= strstr(line, "zva_msg") != nullptr;
        if (maps) fclose(maps);
        if (mapped) printf("[catalogue loaded]\n");
        fflush(stdout);
        _exit(0);
    }
    close(fd[1]);
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd[0], buf, sizeof buf)) > 0) out.append(buf, n);
    close(fd[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << out;
    return out;
}

const char* const built_in =
    "\nZVA ERROR: Parameter 3 was incorrect on entry to DGEMM .\n"
    "\nZVA ERROR: Parameter 1 was incorrect on entry to DGEMV .\n";

}  // namespace

// A stranger's module under every name the library could try relative to
// the working directory is never loaded: no constructor runs, and the
// built-in texts are printed.
TEST(Modules, NothingIsLoadedFromTheWorkingDirectory) {
    const std::string dir = make_dir();
    for (const char* name : {"1033/zva_msg.so", "1033/zva_msg.dll", "zva_msg.so", "zva_msg.dll",
                             "libzmalloc.so", "libzmalloc.dll", "1033/libzmalloc.so"})
        copy(ZVA_PLANTED, dir + "/" + name);
    EXPECT_EQ(faulty_calls(ZVA_LIB, dir), built_in);
    EXPECT_FALSE(exists(dir + "/PLANTED"));
    system(("rm -rf " + dir).c_str());
}

// The catalogue beside the library is found and its texts are used; a
// module there without the lookup entry is closed again.
TEST(Modules, CatalogueBesideTheLibrary) {
    const std::string dir = make_dir(), cwd = make_dir();
    copy(ZVA_LIB, dir + "/libzva_m.so");
    copy(ZVA_CATALOGUE, dir + "/1033/zva_msg.so");
    EXPECT_EQ(faulty_calls(dir + "/libzva_m.so", cwd),
              "\nCatalogue: parameter 3 of DGEMM .\n"
              "\nCatalogue: parameter 1 of DGEMV .\n[catalogue loaded]\n");
    copy(ZVA_ZMALLOC, dir + "/1033/zva_msg.so");
    EXPECT_EQ(faulty_calls(dir + "/libzva_m.so", cwd), built_in);
    system(("rm -rf " + dir + " " + cwd).c_str());
}

// The allocator module is taken from the library search path (this case
// runs with LD_LIBRARY_PATH naming the folder of a module that leaves a
// mark); one in the working directory alone is not.
TEST(Modules, AllocatorFromTheSearchPathOnly) {
    const char* path = getenv("ZVA_TEST_SEARCH_DIR");
    if (!path) GTEST_SKIP() << "run through ctest, which sets the search path";
    const std::string cwd = make_dir();
    EXPECT_EQ(faulty_calls(ZVA_LIB, cwd), built_in);
    EXPECT_TRUE(exists(cwd + "/PLANTED"));  // its constructor ran: it was loaded
    system(("rm -rf " + cwd).c_str());
}
