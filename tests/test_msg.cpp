// The message formatter: the overflow path, reports from several threads at
// once, and the catalogue looked up under the thread's locale.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "frame/msg.h"

namespace {

// Runs body in a child with standard output captured.
template <class F> std::string in_child(F body, int* status, const char* dir = nullptr) {
    int fd[2];
    EXPECT_EQ(pipe(fd), 0);
    fflush(stdout);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(fd[1], 1);
        close(fd[0]);
        if (dir && chdir(dir) != 0) _exit(99);
        body();
        fflush(stdout);
        _exit(0);
    }
    close(fd[1]);
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd[0], buf, sizeof buf)) > 0) out.append(buf, n);
    close(fd[0]);
    waitpid(pid, status, 0);
    return out;
}

}  // namespace

TEST(Msg, OverflowEndsTheProcessWithStatus8) {
    int status = 0;
    std::string out = in_child([] {
        static char name[600];
        memset(name, 'A', sizeof name - 1);
        zva::msg_print(6, 2, 3, name);
    }, &status);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 8);
    // The formatted text is 49 characters of the message, 599 of the name
    // and the full stop.
    EXPECT_EQ(out, "\nZVA INTERNAL ERROR: message buffer overflow.\n"
                   "       Message N 6   Lenght: 648   Buffer size: 512\n");
}

TEST(Msg, FitsUpToTheBuffer) {
    int status = 0;
    std::string out = in_child([] {
        static char name[600];
        memset(name, 'B', 461);  // 50 + 461 = 511 characters
        zva::msg_print(6, 2, 7, name);
    }, &status);
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(out.size(), 512u);
}

namespace {
void* report_many(void* arg) {
    static const char* names[] = {"DGEMM ", "CHER  ", "DSYR2K", "ZTRSM "};
    for (int i = 0; i < 200; ++i) zva::msg_print(6, 2, (int)(intptr_t)arg, names[i % 4]);
    return nullptr;
}
}  // namespace

TEST(Msg, ConcurrentReportsKeepTheirText) {
    int status = 0;
    std::string out = in_child([] {
        pthread_t t[6];
        for (intptr_t i = 0; i < 6; ++i) pthread_create(&t[i], nullptr, report_many, (void*)(i + 1));
        for (auto& th : t) pthread_join(th, nullptr);
    }, &status);
    int lines = 0;
    size_t pos = 0;
    while (pos < out.size()) {
        size_t end = out.find('\n', pos);
        ASSERT_NE(end, std::string::npos);
        std::string line = out.substr(pos, end - pos);
        pos = end + 1;
        int param;
        char name[16];
        ASSERT_EQ(sscanf(line.c_str(), "ZVA ERROR: Parameter %d was incorrect on entry to %6c.", &param, name), 2)
            << line;
        name[6] = 0;
        EXPECT_TRUE(param >= 1 && param <= 6);
        EXPECT_TRUE(!strcmp(name, "DGEMM ") || !strcmp(name, "CHER  ") ||
                    !strcmp(name, "DSYR2K") || !strcmp(name, "ZTRSM "))
            << line;
        ++lines;
    }
    EXPECT_EQ(lines, 1200);
}

TEST(Msg, MessageZeroIsALineFeed) {
    int status = 0;
    EXPECT_EQ(in_child([] { zva::msg_print(0, 0); }, &status), "\n");
}

// The catalogue is looked up once, at the first message, under the locale
// number of the reporting thread: "1033/zva_msg.dll" in the folder of the
// library.  Its texts replace the table's when they end in CR LF.  The
// formatter is loaded here as a module of its own from a folder that has the
// catalogue beside it.
TEST(Msg, CatalogueTextsReplaceTheTable) {
    char dir[] = "/tmp/zva_msg_XXXXXX";
    ASSERT_TRUE(mkdtemp(dir));
    std::string sub = std::string(dir) + "/1033";
    ASSERT_EQ(mkdir(sub.c_str(), 0755), 0);
    std::string cmd = "cp " ZVA_CATALOGUE " " + sub + "/zva_msg.so && cp " ZVA_MSG_PROBE " " + dir;
    ASSERT_EQ(system(cmd.c_str()), 0);
    static std::string probe;
    probe = std::string(dir) + strrchr(ZVA_MSG_PROBE, '/');
    auto run_probe = [] {
        void* h = dlopen(probe.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!h) _exit(98);
        ((void (*)())dlsym(h, "msg_probe"))();
    };
    int status = 0;
    std::string out = in_child(run_probe, &status, "/");
    EXPECT_EQ(out, "Catalogue: parameter 4 of DGEMM .\n"
                   "ZVA ERROR: Incompatible optional parameters on entry to DGEMM .\n"
                   "ZVA INTERNAL ERROR: Condition 3 detected in function DGEMM .\n");
    // Without the catalogue the table speaks.
    probe = ZVA_MSG_PROBE;
    out = in_child(run_probe, &status, dir);
    EXPECT_EQ(out, "ZVA ERROR: Parameter 4 was incorrect on entry to DGEMM .\n"
                   "ZVA ERROR: Incompatible optional parameters on entry to DGEMM .\n"
                   "ZVA INTERNAL ERROR: Condition 3 detected in function DGEMM .\n");
    system(("rm -rf " + std::string(dir)).c_str());
}
