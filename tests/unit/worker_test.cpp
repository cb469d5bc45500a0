// Threads, workers under every way to stop, and what those wait in.
#include "core/worker.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include <functional>

#include "core/exec.h"
#include "core/ipc.h"
#include "core/log.h"
#include "core/log_control.h"
#include "core/notify.h"
#include "core/read_guard.h"
#include "core/thread.h"
#include "tests/support/proc.h"
#include "tests/support/socket_pair.h"

namespace tessel::test {
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
    // None of those by which a crash is reported: 4, 5, 7, 8 and 11.
    EXPECT_EQ(blocked, "1 2 3 6 10 12 13 14 15 18 20 21 22 ");
    // A user without privilege cannot raise the priority; the thread runs all the same.
    const bool mayRaise = setpriority(PRIO_PROCESS, 0, before - 1) == 0 && setpriority(PRIO_PROCESS, 0, before) == 0;
    EXPECT_EQ(seen.nice, mayRaise ? before - kThreadPriorityStep : before);
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), before) << "the other threads keep theirs";

    seen.isDone = false;
    EXPECT_NE(ThreadSpawnDeatched("detached", &Look, &seen, kThreadStackBytes, kThreadPolicy, kThreadPriorityStep), 0U);
    EXPECT_TRUE(Eventually([&] { return seen.isDone.load(); }));
}

// Under the sanitizers this also shows that nothing of it is left behind. Had it died within a log line, the lock of
// the log file would be held for ever.
TEST(Thread, IsCancelledWhereItWaitsAndNotInALogLine) {
    const LogFileCtl logFile{.eCmd = TESSEL_LOG_OPEN_DAEMON, .achLibPath = {}, .achDaemonPath = "/tmp/thread.log"};
    ASSERT_EQ(LogDaemonFileManage(&logFile), 0);
    int descriptor = -1;
    const pthread_t thread = Spawn(
        [](void* arg) {
            const UniqueFd held(dup(STDERR_FILENO));
            EXPECT_EQ(ThreadCancel(pthread_self()), 0);
            TESSEL_ERR("a line");
            TESSEL_PERROR("another");
            *static_cast<int*>(arg) = held.Get();
            pause();
        },
        &descriptor);
    EXPECT_EQ(ThreadJoin(thread), PTHREAD_CANCELED);
    ASSERT_NE(descriptor, -1) << "it has come as far as that";
    EXPECT_EQ(fcntl(descriptor, F_GETFD), -1) << "its descriptor was closed";
}

// A silent end beside one that takes its time; twice, for what the first read may leave.
void ExpectReadsEnd(ReadGuard& guard) {
    for (int round = 0; round < 2; ++round) {
        const auto start = std::chrono::steady_clock::now();
        char byte = 0;
        const SocketPair silent;
        EXPECT_EQ(guard.Receive(silent.near.Get(), &byte, 1), -1);
        EXPECT_EQ(errno, EAGAIN);
        const auto waited = std::chrono::steady_clock::now() - start;
        EXPECT_GE(waited, 1s);
        EXPECT_LT(waited, 5s);
        const SocketPair slow;
        std::thread writer([&] {
            std::this_thread::sleep_for(700ms);
            (void)!write(slow.far.Get(), "x", 1);
        });
        EXPECT_EQ(guard.Receive(slow.near.Get(), &byte, 1), 1);
        writer.join();
        (void)shutdown(slow.far.Get(), SHUT_WR);
        EXPECT_EQ(guard.Receive(slow.near.Get(), &byte, 1), 0) << "the other end is closed: no time passes";
    }
}

TEST(Thread, ThatCannotBeMadeIsZero) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers do not live without memory";
#endif
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    const rlimit small{.rlim_cur = 1, .rlim_max = limit.rlim_max};
    setrlimit(RLIMIT_AS, &small);
    const pthread_t thread = ThreadSpawn("big", &Look, nullptr, 0xfffff000, kThreadPolicy, kThreadPriorityStep);
    static ReadGuard guard(1s);
    setrlimit(RLIMIT_AS, &limit);
    EXPECT_EQ(thread, 0U);
#if !defined(__arm__)  // the emulator does not keep to the limit
    EXPECT_EQ(Threads(), 1);
#endif
    ExpectReadsEnd(guard);
}

TEST(ReadGuard, EndsWhatLastsTooLongAndNothingElse) {
    static ReadGuard guard(1s);
    ExpectReadsEnd(guard);
    std::this_thread::sleep_for(2500ms);  // its thread sleeps now
    ExpectReadsEnd(guard);
}

struct Session {
    std::function<void(Worker&)> body;
    std::atomic<bool> hasBegun{false};
    std::atomic<bool> hasEnded{false};
};

void RunSession(Worker& self, void* argument) {
    auto& session = *static_cast<Session*>(argument);
    session.hasBegun = true;
    session.body(self);
    session.hasEnded = true;
}

bool Start(Worker& worker, Session& session) {
    return worker.Start("worker", &RunSession, &session);
}

// A listener that has room for no further connection.
struct FullListener {
    FullListener() {
        socklen_t length = 0;
        EXPECT_EQ(MakeAddrServer(fd.Get(), "ipc_full", &address, &length), 0);
        do
            fillers.emplace_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
        while (connect(fillers.back().Get(), reinterpret_cast<const sockaddr*>(&address), length) == 0);
    }
    UniqueFd fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    sockaddr_un address{};
    std::vector<UniqueFd> fillers;
};

TEST(Worker, EndsWhereverItWaits) {
    const UniqueFd silent(eventfd(0, EFD_CLOEXEC));
    const FullListener fullListener;
    const std::pair<const char*, std::function<void(Worker&)>> rows[] = {
        {"sleeping", [](Worker& self) { EXPECT_FALSE(self.Sleep(60s)); }},
        {"waiting for a packet",
         [&](Worker& self) { EXPECT_EQ(self.WaitFor(silent.Get(), POLLIN, 60s), Wait::kStopped); }},
        {"running a silent tool that ignores SIGTERM",
         [](Worker&) {
             char line[] = "perl perl -e $SIG{TERM}='IGNORE';system('sleep','4711')";
             EXPECT_EQ(ExecCmd(line, sizeof(line), 0), -1);
         }},
        {"running the shell", [](Worker&) { EXPECT_EQ(RunShell("sleep 4711; true"), -1); }},
        {"notifying a listener that accepts nothing",
         [](Worker&) { EXPECT_EQ(Notify(NoticeSocket("ipc_%s", "full"), 1, u32{5}), 0); }},
        {"notifying nobody", [](Worker&) { EXPECT_EQ(Notify(NoticeSocket("ipc_nobody"), 1, u32{5}), 0); }},
    };
    TESSEL_ERR("opens the log");
    std::thread([] {}).join();  // with the first one come a sanitizer's own
    const auto descriptors = Descriptors();
    const auto threads = Threads();
    for (const auto& [description, body] : rows) {
        Session session{.body = body};
        Worker worker;
        ASSERT_TRUE(Start(worker, session)) << description;
        ASSERT_TRUE(Eventually([&] { return session.hasBegun.load(); }));
        EXPECT_FALSE(worker.AwaitEnd(200ms)) << description << ": it waits";
        worker.AskToEnd();
        worker.AskToEnd();
        EXPECT_TRUE(worker.AwaitEnd(2s)) << description;
        EXPECT_TRUE(session.hasEnded) << description;
    }
    EXPECT_TRUE(Eventually([] { return CountWith("/proc", "cmdline", "4711") == 0; }))
        << "tools are killed with what they started";
    EXPECT_EQ(Descriptors(), descriptors);
    EXPECT_TRUE(Eventually([&] { return Threads() <= threads; }));
}

TEST(Notice, IsNotWaitedForWithoutEnd) {
    const FullListener fullListener;
    const auto waited =
        TimeOf([] { EXPECT_EQ(IpcCallbackSendAndRecv("ipc_full", 1, nullptr, 0, nullptr, 0), TESSEL_IPC_ERROR); });
    EXPECT_TRUE(waited >= 7900ms && waited < 10s);
}

TEST(Worker, IsStartedAgainAndJoinedOnce) {
    Session session{.body = [](Worker& self) { EXPECT_TRUE(self.IsWanted() && self.Sleep(1ms)); }};
    Worker worker;
    const auto descriptors = Descriptors();
    worker.AskToEnd();  // of no effect on what comes
    EXPECT_TRUE(worker.AwaitEnd(0ms)) << "nothing was started";
    for (int round = 0; round < 50; ++round) {
        session.hasEnded = false;
        ASSERT_TRUE(Start(worker, session));
        ASSERT_TRUE(Eventually([&] { return Descriptors() == descriptors; })) << "given back before it is joined";
        EXPECT_TRUE(session.hasEnded && !worker.IsRunning());
        EXPECT_TRUE(round % 2 == 0 || worker.AwaitEnd(1s));
    }
    session.body = [](Worker& self) { (void)self.Sleep(60s); };
    ASSERT_TRUE(Start(worker, session));
    EXPECT_FALSE(Start(worker, session) || worker.AwaitEnd(1ms)) << "it runs";
    EXPECT_EQ(Descriptors(), descriptors + 1) << "that of the stop alone";
    worker.AskToEnd();
    ASSERT_TRUE(worker.AwaitEnd(5s));
    ASSERT_TRUE(Start(worker, session)) << "at once";
    // Left to the destructor.
}

// For the thread sanitizer: asked by others while it ends by itself and is started again.
TEST(Worker, IsAskedByAnybodyAtAnyTime) {
    Session session{.body = [](Worker& self) { (void)self.Sleep(1ms); }};
    Worker worker;
    const std::jthread other([&](const std::stop_token& isOver) {
        while (!isOver.stop_requested())
            worker.AskToEnd();
    });
    for (int round = 0; round < 200; ++round) {
        ASSERT_TRUE(Start(worker, session));
        ASSERT_TRUE(worker.AwaitEnd(10s));
    }
}

TEST(Worker, SleepsItsWholeTimeDespiteSignals) {
    signal(SIGURG, [](int) {});  // which workers do not block
    std::atomic<pthread_t> thread{0};
    Session session{.body = [&](Worker& self) {
        thread = pthread_self();
        const auto slept = TimeOf([&] { EXPECT_TRUE(self.Sleep(300ms)); });
        EXPECT_GE(slept, 300ms);
        EXPECT_LT(slept, 3s) << "not its whole time again after each signal";
    }};
    Worker worker;
    ASSERT_TRUE(Start(worker, session));
    ASSERT_TRUE(Eventually([&] { return thread != 0; }));
    while (!session.hasEnded) {
        pthread_kill(thread, SIGURG);  // also when it has just ended: it is not joined yet
        usleep(10'000);
    }
}

}  // namespace
}  // namespace tessel::test
