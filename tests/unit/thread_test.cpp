#include "core/thread.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "core/log.h"
#include "core/unique_fd.h"
#include "sysdbg/sysdbg.h"
#include "tests/support/files.h"

namespace {

struct Seen {
    char name[16] = {};
    sigset_t blocked{};
    int nice = 0;
    std::atomic<bool> isDone{false};
};

void Look(void* arg) {
    auto* seen = static_cast<Seen*>(arg);
    prctl(PR_GET_NAME, seen->name);
    pthread_sigmask(SIG_BLOCK, nullptr, &seen->blocked);
    seen->nice = getpriority(PRIO_PROCESS, 0);
    seen->isDone = true;
}

pthread_t Spawn(ThreadFunction fn, void* arg) {
    return ThreadSpawn("TesselSysNetlinkInitThread", fn, arg, kThreadStackBytes, kThreadPolicy, kThreadPriorityStep);
}

TEST(Thread, IsNamedBlocksSignalsAndIsNice) {
    const int before = getpriority(PRIO_PROCESS, 0);
    Seen seen;
    const pthread_t thread = Spawn(&Look, &seen);
    ASSERT_NE(thread, 0U);
    EXPECT_EQ(ThreadJoin(thread), nullptr);
    EXPECT_STREQ(seen.name, "TesselSysNetlin");
    std::string blocked;
    for (int signal = 1; signal < 32; ++signal)
        blocked += sigismember(&seen.blocked, signal) == 1 ? std::to_string(signal) + " " : "";
    EXPECT_EQ(blocked, "1 2 3 6 10 12 13 14 15 18 20 21 22 ");
    // A user without privilege cannot raise the priority; the thread runs all the same.
    EXPECT_TRUE(seen.nice == before - 5 || seen.nice == before) << seen.nice;
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), before) << "the other threads keep theirs";

    seen.isDone = false;
    EXPECT_NE(ThreadSpawnDeatched("detached", &Look, &seen, kThreadStackBytes, kThreadPolicy, kThreadPriorityStep), 0U);
    EXPECT_TRUE(tessel::test::Eventually([&] { return seen.isDone.load(); }));
}

// Under the sanitizers this also shows that nothing of a cancelled worker is left behind.
TEST(Thread, IsCancelledWhereItWaits) {
    struct Worker {
        std::atomic<bool> isWaiting{false};
        int pipeEnd = -1;
    } worker;
    const pthread_t thread = Spawn(
        [](void* arg) {
            auto* self = static_cast<Worker*>(arg);
            int ends[2];
            ASSERT_EQ(pipe(ends), 0);
            const tessel::UniqueFd readEnd(ends[0]);
            const tessel::UniqueFd writeEnd(ends[1]);
            self->pipeEnd = ends[0];
            self->isWaiting = true;
            char byte = 0;
            while (true) {
                TESSEL_ERR("waiting");
                (void)!read(readEnd.Get(), &byte, 1);
            }
        },
        &worker);
    ASSERT_TRUE(tessel::test::Eventually([&] { return worker.isWaiting.load(); }));
    EXPECT_EQ(ThreadCancel(thread), 0);
    EXPECT_EQ(ThreadJoin(thread), PTHREAD_CANCELED);
    EXPECT_EQ(fcntl(worker.pipeEnd, F_GETFD), -1) << "its descriptors were closed";
}

// What a thread runs into is reported: nothing of that is blocked there.
TEST(Thread, ThatCrashesLeavesAReport) {
    const struct {
        int signal;
        ThreadFunction crash;
    } rows[] = {
        {SIGILL, [](void*) { __builtin_trap(); }},
        {SIGTRAP, [](void*) { raise(SIGTRAP); }},
        {SIGSEGV, [](void*) { raise(SIGSEGV); }},
    };
    for (const auto& row : rows) {
        const std::string file = "/tmp/crash" + std::to_string(row.signal);
        const pid_t child = fork();
        if (child == 0) {
            (void)SysdbgInit(nullptr, file.c_str(), 0, kSysdbgNoDebugThread);
            ThreadJoin(Spawn(row.crash, nullptr));
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == row.signal) << row.signal << ": " << status;
        const std::string report = tessel::test::ReadFile(file + ".0");
        EXPECT_NE(report.find("Thread name:TesselSysNetlin\nSignal num: " + std::to_string(row.signal) + "\n"),
                  std::string::npos)
            << row.signal;
        EXPECT_NE(report.find("] Maps-------\n"), std::string::npos) << row.signal;
    }
}

TEST(Thread, ThatCannotBeMadeIsZero) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers do not live without memory";
#endif
    constexpr u32 kMoreThanThereIs = 0xfffff000;
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    const rlimit small{.rlim_cur = 1, .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_AS, &small);
    const pthread_t thread = ThreadSpawn("big", &Look, nullptr, kMoreThanThereIs, kThreadPolicy, kThreadPriorityStep);
    setrlimit(RLIMIT_AS, &limit);
    EXPECT_EQ(thread, 0U);
}

}  // namespace
