// Workers under every way to stop, and what they wait in.
#include "core/worker.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <functional>
#include <vector>

#include "core/exec.h"
#include "core/ipc.h"
#include "core/log.h"
#include "core/notify.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

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
class FullListener {
  public:
    explicit FullListener(const char* name) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        EXPECT_TRUE(FormSocketAddress(name, address_));
        unlink(address_.sun_path);
        EXPECT_EQ(bind(fd_.Get(), reinterpret_cast<const sockaddr*>(&address_), sizeof(address_)), 0);
        EXPECT_EQ(listen(fd_.Get(), 0), 0);
        while (true) {
            UniqueFd filler(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
            if (connect(filler.Get(), reinterpret_cast<const sockaddr*>(&address_), sizeof(address_)) != 0) break;
            fillers_.push_back(std::move(filler));
        }
    }

  private:
    UniqueFd fd_;
    sockaddr_un address_{};
    std::vector<UniqueFd> fillers_;
};

TEST(Worker, EndsWhereverItWaits) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const UniqueFd silentEnd(ends[0]);
    const UniqueFd otherEnd(ends[1]);
    const FullListener fullListener("ipc_full");
    const std::pair<const char*, std::function<void(Worker&)>> rows[] = {
        {"sleeping", [](Worker& self) { EXPECT_FALSE(self.Sleep(seconds(60))); }},
        {"waiting for a packet",
         [&](Worker& self) { EXPECT_EQ(self.WaitFor(silentEnd.Get(), POLLIN, seconds(60)), Wait::kStopped); }},
        {"running a silent tool that ignores SIGTERM",
         [](Worker&) {
             CommandLine line;
             ASSERT_TRUE(ComposeCommand(line, "perl perl -e $SIG{TERM}='IGNORE';system('sleep','4711')"));
             ToolOutput output;
             EXPECT_EQ(tessel::Run(line, output), -1);
         }},
        {"running the shell", [](Worker&) { EXPECT_EQ(RunShell("sleep 4711; true"), -1); }},
        {"notifying a listener that accepts nothing",
         [](Worker&) { EXPECT_EQ(Notify(NoticeSocket("ipc_%s", "full"), 1, u32{5}), 0); }},
        {"notifying nobody", [](Worker&) { EXPECT_EQ(Notify(NoticeSocket("ipc_nobody"), 1, u32{5}), 0); }},
    };
    TESSEL_ERR("opens the log");
    Session first{.body = [](Worker&) {}};
    Worker before;
    // A sanitizer starts its own thread with the first one.
    ASSERT_TRUE(Start(before, first) && before.AwaitEnd(seconds(10)));
    const auto descriptors = Descriptors();
    const auto threads = Threads();
    for (const auto& [description, body] : rows) {
        Session session{.body = body};
        Worker worker;
        ASSERT_TRUE(Start(worker, session)) << description;
        ASSERT_TRUE(Eventually([&] { return session.hasBegun.load(); }));
        EXPECT_FALSE(worker.AwaitEnd(milliseconds(200))) << description << ": it waits";
        const auto asked = steady_clock::now();
        worker.AskToEnd();
        worker.AskToEnd();
        EXPECT_TRUE(worker.AwaitEnd(seconds(10))) << description;
        EXPECT_LT(steady_clock::now() - asked, seconds(2)) << description;
        EXPECT_TRUE(session.hasEnded) << description;
    }
    EXPECT_TRUE(Eventually([] { return CountWith("/proc", "cmdline", "4711") == 0; }))
        << "tools are killed with what they started";
    EXPECT_EQ(Descriptors(), descriptors);
    EXPECT_TRUE(Eventually([&] { return Threads() <= threads; }));
}

TEST(Notice, IsNotWaitedForWithoutEnd) {
    const FullListener fullListener("ipc_full");
    const auto begin = steady_clock::now();
    EXPECT_EQ(IpcCallbackSendAndRecv("ipc_full", 1, nullptr, 0, nullptr, 0), TESSEL_IPC_ERROR);
    const auto waited = steady_clock::now() - begin;
    EXPECT_GE(waited, milliseconds(7900));
    EXPECT_LT(waited, seconds(10));
}

TEST(Worker, IsStartedAgainAndJoinedOnce) {
    Session session{.body = [](Worker& self) { EXPECT_TRUE(self.IsWanted()); }};
    Worker worker;
    worker.AskToEnd();  // of no effect on what comes
    EXPECT_TRUE(worker.AwaitEnd(milliseconds(0))) << "nothing was started";
    for (int round = 0; round < 50; ++round) {
        session.hasEnded = false;
        ASSERT_TRUE(Start(worker, session));
        ASSERT_TRUE(Eventually([&] { return session.hasEnded.load() && !worker.IsRunning(); }));
        EXPECT_TRUE(round % 2 == 0 || worker.AwaitEnd(seconds(1)));
    }
    session.body = [](Worker& self) { (void)self.Sleep(seconds(60)); };
    ASSERT_TRUE(Start(worker, session));
    EXPECT_FALSE(Start(worker, session)) << "it runs";
    worker.AskToEnd();
    ASSERT_TRUE(worker.AwaitEnd(seconds(5)));
    ASSERT_TRUE(Start(worker, session)) << "at once";
    // Left to the destructor.
}

TEST(Worker, GivesItsDescriptorsBackBeforeItIsJoined) {
    std::atomic<bool> isDone{false};
    Session session{.body = [&](Worker& self) {
        while (!isDone)
            EXPECT_TRUE(self.Sleep(milliseconds(1)));
    }};
    Worker worker;
    const auto before = Descriptors();
    ASSERT_TRUE(Start(worker, session));
    EXPECT_FALSE(worker.AwaitEnd(milliseconds(1)));
    isDone = true;
    EXPECT_TRUE(Eventually([&] { return Descriptors() == before; }));
}

// For the thread sanitizer: asked by others while it ends by itself and is started again.
TEST(Worker, IsAskedByAnybodyAtAnyTime) {
    Session session{.body = [](Worker& self) { (void)self.Sleep(milliseconds(1)); }};
    Worker worker;
    std::atomic<bool> isOver{false};
    Session asking{.body = [&](Worker&) {
        while (!isOver)
            worker.AskToEnd();
    }};
    Worker other;
    ASSERT_TRUE(Start(other, asking));
    for (int round = 0; round < 200; ++round) {
        ASSERT_TRUE(Start(worker, session));
        ASSERT_TRUE(worker.AwaitEnd(seconds(10)));
    }
    isOver = true;
    EXPECT_TRUE(other.AwaitEnd(seconds(10)));
}

TEST(Worker, SleepsItsWholeTimeDespiteSignals) {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR2, &action, nullptr);
    std::atomic<pthread_t> thread{0};
    std::atomic<bool> isDone{false};
    Session session{.body = [&](Worker& self) {
        sigset_t one;
        sigemptyset(&one);
        sigaddset(&one, SIGUSR2);
        pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
        thread = pthread_self();
        const auto begin = steady_clock::now();
        EXPECT_TRUE(self.Sleep(milliseconds(300)));
        const auto slept = steady_clock::now() - begin;
        EXPECT_GE(slept, milliseconds(300));
        EXPECT_LT(slept, seconds(3)) << "not its whole time again after each signal";
        isDone = true;
        (void)self.Sleep(seconds(60));
    }};
    Worker worker;
    ASSERT_TRUE(Start(worker, session));
    ASSERT_TRUE(Eventually([&] { return thread != 0; }));
    while (!isDone) {
        pthread_kill(thread, SIGUSR2);
        usleep(10'000);
    }
    worker.AskToEnd();
}

}  // namespace
}  // namespace tessel::test
