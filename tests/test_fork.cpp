// A process that forks after threaded calls: the child's calls give the
// right results and finish, on the child's first call and in a child of the
// child, while the parent goes on with its threads.  A child that does not
// finish within the limit is killed and the case fails, so a hang cannot
// stall the suite.
#include <omp.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <vector>

#include "zva.h"

namespace {

typedef void(ZVA_STDCALL* gemm_d)(const char*, int, const char*, int, const int*, const int*,
                                  const int*, const double*, const double*, const int*,
                                  const double*, const int*, const double*, double*, const int*);
typedef void(ZVA_STDCALL* gemm_z)(const char*, int, const char*, int, const int*, const int*,
                                  const int*, const cdouble*, const cdouble*, const int*,
                                  const cdouble*, const int*, const cdouble*, cdouble*,
                                  const int*);
typedef void(ZVA_STDCALL* axpy_d)(const int*, const double*, const double*, const int*,
                                  double*, const int*);

// Products big enough for a team on every branch, small enough to check.
constexpr int gemm_n = 160, axpy_n = 200000;
constexpr int limit_seconds = 120;  // generous: the emulator is slow

lcg rng{4242};

// Runs threaded DGEMM, ZGEMM and DAXPY once and checks them against naive
// sums on a sample of elements; false at the first wrong element.
bool calls_are_right() {
    const int n = gemm_n, one = 1;
    std::vector<double> a(n * n), b(n * n), c(n * n, 0.0);
    std::vector<cdouble> za(n * n), zb(n * n), zc(n * n, cdouble{0, 0});
    for (int i = 0; i < n * n; ++i) {
        a[i] = rng.next(), b[i] = rng.next();
        za[i] = rng.value<cdouble>(), zb[i] = rng.value<cdouble>();
    }
    const double alpha = 1.5, beta = 0;
    zva_export<gemm_d>("DGEMM")("N", 1, "N", 1, &n, &n, &n, &alpha, a.data(), &n, b.data(), &n,
                                &beta, c.data(), &n);
    const cdouble zalpha{0.5, -1}, zbeta{0, 0};
    zva_export<gemm_z>("ZGEMM")("N", 1, "N", 1, &n, &n, &n, &zalpha, za.data(), &n, zb.data(),
                                &n, &zbeta, zc.data(), &n);
    for (int s = 0; s < 64; ++s) {
        const int i = (s * 37) % n, j = (s * 53) % n;
        long double d = 0;
        lc z = {0, 0};
        for (int l = 0; l < n; ++l) {
            d += (long double)a[i + l * n] * b[l + j * n];
            z = add(z, mul(to_lc(za[i + l * n]), to_lc(zb[l + j * n])));
        }
        const lc zwant = mul(to_lc(zalpha), z);
        if (fabsl(c[i + j * n] - alpha * d) > 1e-12L * n) return false;
        if (mag(add(to_lc(zc[i + j * n]), lc{-zwant.re, -zwant.im})) > 1e-12L * n) return false;
    }
    std::vector<double> x(axpy_n), y(axpy_n), y0;
    for (int i = 0; i < axpy_n; ++i) x[i] = rng.next(), y[i] = rng.next();
    y0 = y;
    zva_export<axpy_d>("DAXPY")(&axpy_n, &alpha, x.data(), &one, y.data(), &one);
    for (int i = 0; i < axpy_n; i += 997)
        if (fabs(y[i] - (y0[i] + alpha * x[i])) > 1e-15 * (fabs(y0[i]) + fabs(alpha * x[i])))
            return false;
    return true;
}

// Forks; the child runs body and exits 0 if it returns true.  Waits at most
// limit_seconds for it, then kills it.  Returns "ok", "wrong", "killed".
template <class F> const char* in_child(F body) {
    fflush(stdout);
    const pid_t pid = fork();
    if (pid == 0) {
        // A group of its own, so that a kill takes its children along: a
        // stray grandchild would keep the test's output open.
        setpgid(0, 0);
        _exit(body() ? 0 : 1);
    }
    const time_t end = time(nullptr) + limit_seconds;
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (time(nullptr) > end) {
            kill(-pid, SIGKILL);
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return "killed";
        }
        usleep(10000);
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "ok" : "wrong";
}

// CPU time of the other threads of the process while f runs, as a share
// of the calling thread's own.
template <class F> double helper_share(F f) {
    rusage all0, me0, all1, me1;
    getrusage(RUSAGE_SELF, &all0);
    getrusage(RUSAGE_THREAD, &me0);
    f();
    getrusage(RUSAGE_SELF, &all1);
    getrusage(RUSAGE_THREAD, &me1);
    auto us = [](const rusage& r) { return r.ru_utime.tv_sec * 1e6 + r.ru_utime.tv_usec; };
    const double mine = us(me1) - us(me0), others = (us(all1) - us(all0)) - mine;
    return mine > 0 ? others / mine : 0;
}

}  // namespace

// Run with ZVA_DYNAMIC=FALSE, so that the parent's calls fork teams.
TEST(ForkThreads, ChildAfterThreadedCalls) {
    omp_set_num_threads(2);
    ASSERT_TRUE(calls_are_right());
    EXPECT_STREQ(in_child(calls_are_right), "ok");
    // A child of a child.
    EXPECT_STREQ(in_child([] { return strcmp(in_child(calls_are_right), "ok") == 0; }), "ok");
    // The parent keeps its team: the other thread does part of a large
    // product. A lost team gives a share of 0; on a crowded machine the
    // helper may be descheduled for a while, so the bound is low.
    const int n = 700;
    std::vector<double> a(n * n, 0.5), c(n * n);
    const double one = 1, zero = 0;
    const double share = helper_share([&] {
        zva_export<gemm_d>("DGEMM")("N", 1, "N", 1, &n, &n, &n, &one, a.data(), &n, a.data(), &n,
                                    &zero, c.data(), &n);
    });
    EXPECT_GT(share, 0.1);
}

// The same from inside the program's own parallel region: the child is
// forked by one thread of the program's team.
TEST(ForkThreads, ChildForkedInsideTheProgramsRegion) {
    omp_set_num_threads(2);
    ASSERT_TRUE(calls_are_right());
    const char* result = "not run";
#pragma omp parallel num_threads(2)
    {
#pragma omp master
        result = in_child(calls_are_right);
    }
    EXPECT_STREQ(result, "ok");
}
