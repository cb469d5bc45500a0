// Ping above a tool that is only noted: its lines, how its output is understood, and who has a slot.
#include "probe/ping.h"

#include <tuple>

#include "tests/support/listener.h"
#include "tests/support/logged.h"
#include "tests/support/ping.h"

namespace tessel::test {
namespace {

class PingTool : public testing::Test {
  protected:
    PingTool() {
        if (g_ptDaePing == nullptr) DaemonPingInit();
    }
    ~PingTool() override {
        for (i32 user = 0; user < 20; ++user)
            EXPECT_EQ(PingStop(user), 0);
    }
    i32 Start(const Ping& ping) {
        return tools.Status(kPingStart, ping.Request());
    }
    std::string Received(Listener& listener) {
        return {reinterpret_cast<const char*>(listener.event.payload), listener.event.size};
    }
    // Whether the log gets these lines, since the last call that they were taken.
    void ExpectLogged(std::initializer_list<const char*> texts) {
        for (const char* text : texts) {
            EXPECT_TRUE(Eventually([&] {
                for (const std::string& line : log.Take())
                    lines += line + "; ";
                return lines.find(text) != std::string::npos;
            })) << text
                << " in " << lines;
        }
    }
    NotedTools tools;
    LoggedLines log{4};
    std::string lines;
};

TEST_F(PingTool, LinesAndNotices) {
    const std::string reply = "PING\n64 bytes from 10.0.0.1: icmp_seq=1 ttl=63 time=1.25 ms\n\n--- time 0ms\n";
    const std::tuple<const char*, Ping, std::string, std::string, i64, std::string> rows[] = {
        {"a desktop",
         {.target = Address("10.0.0.1"), .packetSize = 10},
         "ping -c 1 -s 56 -t 64 -W 1 10.0.0.1",
         reply,
         0,
         EchoResult(7, 63, 1250, 0, 1)},
        {"Ubuntu 22",
         {.target = Address("fe80::1"), .packetSize = 57, .timeout = 3, .ttl = 5},
         "ping6 -c 1 -s 57 -t 5 -w 3 fe80::1",
         "From fe80::2 Destination unreachable: Address unreachable\n",
         1,
         EchoResult(7, 0, 0, 0, 1)},
        {"ubuntu",
         {.target = Address("1.2.3.4"), .packetSize = ~0U, .timeout = ~0U, .ttl = ~0U},
         "ping -c 1 -s -1 -t -1 -W -1 1.2.3.4",
         "",
         2,
         EchoResult(7, 0, 0, 0, 1)},
        {"a device",
         {.target = Address("2001:db8::1"), .packetSize = 1400},
         "ping -6 -c 1 -s 1400 -t 64 -w 1 2001:db8::1",
         "ping: connect: Network is unreachable\n",
         3,
         EchoResult(7, 0, 0, 0, 1)},
    };
    Listener listener("ipc_ping_7");
    for (const auto& [host, ping, line, output, type, payload] : rows) {
        WriteFile("/etc/issue", std::string("Welcome to\n") + host + "\n");
        tools.Answer(line, output, 1);
        // The user's last session may be about to end.
        ASSERT_TRUE(Eventually([&, &ping = ping] { return Start(ping) == 0; })) << host;
        EXPECT_EQ(listener.Next(), type) << host;
        EXPECT_EQ(Received(listener), payload) << host;
        EXPECT_THAT(tools.TakeRuns(), testing::ElementsAre(line));
    }
    ExpectLogged({"ApidPingStart: PingStart user 7 begin; ", "Ping4: pchCmd : ping -c 1 -s 56 -t 64 -W 1 10.0.0.1 ; ",
                  "Ping4: User Id 7 ping return : 0(0)", "Ping6: pchCmd : ping6 -c 1 -s 57 -t 5 -w 3 fe80::1 ; ",
                  "Ping6: pchChildStdoutBuf : ping: connect: Network is unreachable",
                  "Ping6: User Id 7 ping return:3(0)"});
}

TEST_F(PingTool, RepliesThatCannotBeReadAreLeftOut) {
    const std::pair<const char*, std::pair<i32, u32>> rows[] = {
        {"from ttl=1 time=0.029 ms", {0, 29}},
        {"from ttl=1 time=0", {0, 0}},
        {"from ttl=1 time=99999 ms", {0, 99999000}},
        {"from ttl=1 time=100000 ms", {-1, 0}},
        {"from ttl=1 time=-1 ms", {-1, 0}},
        {"from ttl=1 time=nan ms", {-1, 0}},
        {"from ttl=1 time=1e30 ms", {-1, 0}},
        {"from ttl=1 time<1 ms", {-1, 0}},
        {"from time=1 ms", {-1, 0}},
        {"from ttl=123456789012345678901 time=1 ms", {-1, 0}},
    };
    for (const auto& [output, expected] : rows) {
        TNetPingResult result{};
        EXPECT_EQ(PingBufToMsg(output, &result), expected.first) << output;
        EXPECT_EQ(u32{result.dwTime}, expected.second) << output;
    }
    int runs = 0;
    AnswerTools([&](const std::string&) {
        const char* const outputs[] = {"64 bytes from ttl=9 time=2 ms", "64 bytes from time=2 ms", ""};
        return ToolAnswer{outputs[runs++ % 3]};
    });
    Listener listener("ipc_ping_7");
    ASSERT_EQ(Start({.target = Address("10.0.0.1"), .count = 3}), 0);
    EXPECT_EQ(listener.Next(), 0);
    EXPECT_EQ(Received(listener), EchoResult(7, 9, 2000, 0, 0));
    EXPECT_EQ(listener.Next(), 2);
    EXPECT_EQ(Received(listener), EchoResult(7, 0, 0, 2, 1));
    ExpectLogged({"Ping4: 64 bytes from time=2 ms; Ping4: ping buf to msg error!"});
}

TEST_F(PingTool, TenUsersHaveASlotUntilTheirSessionEnds) {
    Ping lasting{.target = Address("nothing")};
    for (lasting.userId = 0; lasting.userId < 10; ++lasting.userId)
        EXPECT_EQ(Start(lasting), 0);
    EXPECT_EQ(Start(lasting), -1);
    lasting.userId = 3;
    EXPECT_EQ(Start(lasting), -1);
    EXPECT_EQ(tools.Status(kPingStop, Number(3)), 0);
    EXPECT_EQ(tools.Status(kPingStop, Number(3)), 0);
    ExpectLogged({"PingStart: the user num is reach the maxmium 10; ApidPingStart: ping start error!",
                  "PingStart: the nUserID 3 now is pinging!; ApidPingStart: ping start error!",
                  "PingThread: the wSinFamily 7 is invalid!",
                  "ApidPingStop: PingStop user 3 begin; PingStop: nUserID is 3; ApidPingStop: PingStop user 3 begin; "
                  "PingStop: nUserID is 3; PingStop: the nUserId 3 has been stopped!"});
    // The one free slot: of sessions that end by themselves, and then of one that has no process to be had.
    for (i32 user = 10; user < 15; ++user)
        EXPECT_TRUE(
            Eventually([&] { return Start({.target = Address("10.0.0.1"), .userId = user, .count = 0}) == 0; }));
    tools.Answer("ping -c 1 -s 56 -t 64 -W 1 10.0.0.1", "", -1);
    const Ping failing{.target = Address("10.0.0.1"), .userId = 15};
    EXPECT_TRUE(Eventually([&] { return Start(failing) == 0; }));
    EXPECT_TRUE(Eventually([&] { return tools.TakeRuns().size() == 1; }));
    EXPECT_EQ(Start(failing), -1);
    lasting.userId = 16;
    EXPECT_EQ(Start(lasting), -1);
    EXPECT_EQ(PingStop(15), 0);
    EXPECT_EQ(Start(lasting), 0);
}

}  // namespace
}  // namespace tessel::test
