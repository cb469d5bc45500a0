// Ping and router watch with tools that really run: what they do to their worker, and storms of clients.
#include <barrier>

#include "probe/ping.h"
#include "probe/router/router_watch.h"
#include "tests/support/listener.h"
#include "tests/support/logged.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

class ProbeProcesses : public testing::Test {
  protected:
    ProbeProcesses() {
        if (g_ptDaePing == nullptr) DaemonPingInit();
        if (g_ptDaeRouterNotifyInfo == nullptr) DaemonRouterNotifyInit();
    }
    ~ProbeProcesses() override {
        StopAll();
    }
    static void StopAll() {
        for (i32 user = 0; user < 30; ++user)
            (void)PingStop(user);
        for (const char* name : {"dev0", "dev1", "dev2", "dev3", "dev4", "dev5"})
            (void)RouterAdvertiseStop(name);
    }
    void Script(const std::string& name, const std::string& text) {
        WriteProgram(tools_ + "/new", "#!/bin/sh\n" + text + "\n");
        std::filesystem::rename(tools_ + "/new", tools_ + "/" + name);
    }
    static i32 Start(i32 user, u32 count = 1) {
        static const TNetGateway target = Address("10.0.0.1");
        return PingStart(&target, 56, 0, 64, count, user);
    }

    const std::string tools_ = MakeProgramFolder();
};

TEST_F(ProbeProcesses, WhateverTheToolDoesIsOneResult) {
    const std::string reply = "echo '64 bytes from 10.0.0.1: ttl=5 time=1.5 ms'; ";
    const std::pair<std::string, i64> rows[] = {
        {reply + "head -c 300000 /dev/zero | tr '\\0' x", 0},
        {"printf '\\377\\001%%s%%n'; " + reply, 0},
        {"echo 'Network is unreachable' >&2; exit 2", 3},
        {"", 2},
        {"echo PING; kill -SEGV $$", 1},
        {reply + "exec sleep 4711", 0},  // killed after its timeout and 10 seconds
    };
    Listener listener("ipc_ping_7");
    for (const auto& [text, type] : rows) {
        Script("ping", text);
        ASSERT_TRUE(Eventually([] { return Start(7) == 0; })) << text;
        EXPECT_EQ(listener.Next(40000), type) << text;
        TNetPingResult result{};
        ASSERT_EQ(tessel_event_ping(&listener.event, &result), TESSEL_OK);
        EXPECT_EQ(u32{result.dwTime}, type == 0 ? 1500U : 0U) << text;
    }
    // What a tool started is killed with it, and dies when it is its turn on the processor: it is nobody's to wait for.
    EXPECT_TRUE(Eventually([] { return CountWith("/proc", "cmdline", "sleep 4711 ") == 0; }));
}

// Two threads start and stop what ends by itself meanwhile, more of it than there are slots.
TEST_F(ProbeProcesses, StormsLeaveNothingBehind) {
    Script("ping", "exit 0");
    Script("ip", "echo '    inet6 2001:db8::1/64 scope global dynamic '");
    g_routerCycle = 1ms;
    std::thread([] {}).join();  // with the first one come a sanitizer's own
    const std::ptrdiff_t threads = Threads();
    const std::ptrdiff_t descriptors = Descriptors();
    std::barrier bothDone(2);  // with the rounds that may be refused: they take the other thread's user, and every slot
    const auto storm = [&](unsigned seed) {
        const auto own = static_cast<i32>(seed);
        for (int round = 0; round < 2000; ++round) {  // a stop while the worker frees the slot that both threads take
            EXPECT_EQ(Start(own, 0), 0);
            EXPECT_EQ(PingStop(own), 0);
        }
        bothDone.arrive_and_wait();
        for (int round = 0; round < 200; ++round) {
            const i32 user = rand_r(&seed) % 12;
            const std::string name = "dev" + std::to_string(user % 6);
            const int what = rand_r(&seed) % 5;
            if (what < 2) (void)Start(user, static_cast<u32>(what * user));
            if (what == 2) (void)PingStop(user);
            if (what == 3) (void)RouterAdvertiseStart(name.c_str(), user, user);
            if (what == 4) (void)RouterAdvertiseStop(name.c_str());
        }
    };
    std::thread one(storm, 1);
    storm(2);
    one.join();
    StopAll();
    for (i32 user = 20; user < 30; ++user)
        EXPECT_EQ(Start(user, ~0U), 0) << "every slot is free";
    StopAll();
    // One that was joined is shown for a moment more: that may have counted before, too.
    EXPECT_TRUE(Eventually([&] { return Threads() <= threads; }));
    EXPECT_LE(Descriptors(), descriptors + 1) << "more than that for the ioctls";
}

}  // namespace
}  // namespace tessel::test
