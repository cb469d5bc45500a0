// Ping and router watch with tools that really run: what they do to their worker, how both end, and storms of clients.
#include <sys/stat.h>

#include <chrono>
#include <deque>
#include <thread>

#include "probe/ping.h"
#include "probe/router/router_watch.h"
#include "tests/support/listener.h"
#include "tests/support/logged.h"
#include "tests/support/ping.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

const TNetGateway kTarget = Address("10.0.0.1");

// Stand-ins, alone on PATH with the shell's own tools.
class ProbeProcesses : public testing::Test {
  protected:
    ProbeProcesses() {
        if (g_ptDaePing == nullptr) DaemonPingInit();
        if (g_ptDaeRouterNotifyInfo == nullptr) DaemonRouterNotifyInit();
        setenv("PATH", "/tmp/tools:/usr/bin:/bin", 1);
        mkdir("/tmp/tools", 0755);
    }
    static void Script(const char* name, const std::string& text) {
        const std::string path = std::string("/tmp/tools/") + name;
        WriteFile(path + ".new", "#!/bin/sh\n" + text + "\n");
        chmod((path + ".new").c_str(), 0755);
        ASSERT_EQ(rename((path + ".new").c_str(), path.c_str()), 0);
    }
    static i32 Start(i32 user, u32 count = 1) {
        return PingStart(&kTarget, 56, 0, 64, count, user);
    }
};

TEST_F(ProbeProcesses, WhateverTheToolDoesIsOneResult) {
    const std::string reply = "echo '64 bytes from 10.0.0.1: ttl=5 time=1.5 ms'";
    const std::tuple<const char*, std::string, i64, std::string> rows[] = {
        {"prints 300 kB", reply + "; head -c 300000 /dev/zero | tr '\\0' x", 0, EchoResult(7, 5, 1500, 0, 1)},
        {"prints every byte", "printf '\\377\\001%%s%%n'; " + reply, 0, EchoResult(7, 5, 1500, 0, 1)},
        {"complains", "echo 'Network is unreachable' >&2; exit 2", 3, EchoResult(7, 0, 0, 0, 1)},
        {"is silent", "", 2, EchoResult(7, 0, 0, 0, 1)},
        {"crashes", "echo PING; kill -SEGV $$", 1, EchoResult(7, 0, 0, 0, 1)},
        {"never ends", reply + "; exec sleep 4711", 0, EchoResult(7, 5, 1500, 0, 1)},
    };
    Listener listener("ipc_ping_7");
    for (const auto& [description, text, type, payload] : rows) {
        Script("ping", text);
        ASSERT_TRUE(Eventually([] { return Start(7) == 0; })) << description;
        EXPECT_EQ(listener.Next(60000), type) << description;
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(listener.event.payload), listener.event.size), payload)
            << description;
    }
    EXPECT_EQ(CountWith("/proc", "cmdline", "sleep 4711 "), 0);
}

// With time to spare: a listener is waited for 5 seconds, the tools never end.
TEST_F(ProbeProcesses, AStopEndsEveryPhaseAtOnce) {
    const std::tuple<const char*, std::string, u32> rows[] = {
        {"a silent tool", "trap '' TERM; sleep 4711", 1},
        {"a tool that prints for ever", "yes", 1},
        {"a notice that nobody takes", "", 1},
        {"one echo after the other", "", ~0U},
    };
    for (const auto& [description, text, count] : rows) {
        Script("ping", "echo >> /tmp/runs; " + text);
        // Nobody listens to 7. Of the others each has a listener, so that echoes follow each other.
        const i32 user = count == 1 ? 7 : 8;
        Listener listener("ipc_ping_8");
        ASSERT_EQ(Start(user, count), 0) << description;
        EXPECT_TRUE(Eventually([] { return !ReadFile("/tmp/runs").empty(); })) << description;
        std::this_thread::sleep_for(milliseconds(200));
        const auto before = steady_clock::now();
        EXPECT_EQ(PingStop(user), 0);
        EXPECT_LT(steady_clock::now() - before, seconds(3)) << description;
        EXPECT_EQ(CountWith("/proc", "cmdline", "sleep 4711 "), 0) << description;
        EXPECT_EQ(CountWith("/proc", "cmdline", "yes "), 0) << description;
        ASSERT_EQ(unlink("/tmp/runs"), 0);
    }
    Script("ip", "case \"$*\" in *link*) ;; *) exec sleep 4711 ;; esac");
    EXPECT_EQ(RouterAdvertiseStart("eth0", 1, 1), 0);
    EXPECT_TRUE(Eventually([] { return CountWith("/proc", "cmdline", "sleep 4711 ") == 1; }));
    EXPECT_EQ(RouterAdvertiseStop("eth0"), 0);
    EXPECT_EQ(CountWith("/proc", "cmdline", "sleep 4711 "), 0);
}

TEST_F(ProbeProcesses, OneDeadClientDelaysItselfAlone) {
    Script("ping", "echo 'from ttl=5 time=1 '");
    LoggedLines log(4);
    std::deque<Listener> listeners;
    for (i32 user = 1; user < 10; ++user)
        listeners.emplace_back(("ipc_ping_" + std::to_string(user)).c_str());
    EXPECT_EQ(Start(0, 1000), 0);
    EXPECT_TRUE(Eventually([&] { return Joined(log.Take()).find("pchChildStdoutBuf") != std::string::npos; }));
    for (i32 user = 1; user < 10; ++user)
        EXPECT_EQ(Start(user, 3), 0);
    for (Listener& listener : listeners) {
        for (u32 sequence = 0; sequence < 3; ++sequence) {
            TNetPingResult result{};
            ASSERT_EQ(listener.Next(30000), 0);
            ASSERT_EQ(tessel_event_ping(&listener.event, &result), TESSEL_OK);
            EXPECT_EQ(u32{result.dwSeq}, sequence);
        }
    }
    // Nobody has made the socket that its first notice goes to, and 5 seconds are waited for it.
    EXPECT_THAT(Joined(log.Take()), testing::Not(testing::HasSubstr("send and recv msg error")));
    EXPECT_EQ(PingStop(0), 0);
}

// Two threads start and stop what ends by itself meanwhile, more of it than there are slots.
TEST_F(ProbeProcesses, StormsLeaveNothingBehind) {
    Script("ping", "exit 0");
    Script("ip", "echo '    inet6 2001:db8::1/64 scope global dynamic '");
    g_routerCycle = milliseconds(1);
    const std::ptrdiff_t threads = Threads();
    const std::ptrdiff_t descriptors = Descriptors();
    const auto storm = [](unsigned seed) {
        for (int round = 0; round < 150; ++round) {
            const i32 user = rand_r(&seed) % 12;
            const std::string name = "dev" + std::to_string(rand_r(&seed) % 6);
            switch (rand_r(&seed) % 5) {
                case 0:
                    (void)Start(user, 0);
                    break;
                case 1:
                    (void)Start(user, static_cast<u32>(rand_r(&seed) % 3));
                    break;
                case 2:
                    (void)RouterAdvertiseStart(name.c_str(), user, user);
                    break;
                case 3:
                    (void)RouterAdvertiseStop(name.c_str());
                    break;
                default:
                    (void)PingStop(user);
                    break;
            }
        }
    };
    std::thread one(storm, 1);
    std::thread other(storm, 2);
    one.join();
    other.join();
    for (i32 user = 0; user < 12; ++user)
        (void)PingStop(user);
    for (const char* name : {"dev0", "dev1", "dev2", "dev3", "dev4", "dev5"})
        (void)RouterAdvertiseStop(name);
    EXPECT_TRUE(Eventually([&] { return Threads() == threads; }));
    for (i32 user = 20; user < 30; ++user)
        EXPECT_EQ(Start(user, ~0U), 0) << "every slot is free";
    for (i32 user = 20; user < 30; ++user)
        EXPECT_EQ(PingStop(user), 0);
    EXPECT_LE(Descriptors(), descriptors + 1) << "more than that for the ioctls";
}

}  // namespace
}  // namespace tessel::test
