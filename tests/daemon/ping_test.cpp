// Ping above a tool that is only noted: its lines, how its output is understood, and who has a slot.
#include "probe/ping.h"

#include "tests/support/listener.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

TNetPingStartReq Echoes(const char* target, i32 user = 7, u32 count = 1) {
    return {
        .tTarget = Address(target), .dwPacketSize = 9, .dwTimeout = 1, .dwTtl = 64, .dwCount = count, .nUserId = user};
}

class PingTool : public testing::Test {
  protected:
    PingTool() {
        if (g_ptDaePing == nullptr) DaemonPingInit();
    }
    ~PingTool() override {
        for (u32 user = 0; user < 20; ++user)
            EXPECT_EQ(tools.Status(0xC02, Number(user)), 0);
    }
    i32 Start(const TNetPingStartReq& request) {
        return tools.Status(0xC01, Bytes(request));
    }
    // A user's last session may be about to end.
    void ExpectStarted(const TNetPingStartReq& request) {
        EXPECT_TRUE(Eventually([&] { return Start(request) == 0; }));
    }
    static void ExpectNotice(Listener& listener, i64 type, const TNetPingResult& result) {
        EXPECT_EQ(listener.Next(), type);
        EXPECT_EQ(std::string(listener.event.payload, listener.event.payload + listener.event.size), Bytes(result));
    }
    void ExpectLogged(std::initializer_list<const char*> texts) {
        for (const std::string text : texts) {
            EXPECT_TRUE(Eventually([&] {
                return (lines += Joined(tools.TakeLines()) + "; ").find(text) != std::string::npos;
            })) << text
                << " in " << lines;
        }
    }
    LoggedTools tools{4};
    std::string lines;
};

TEST_F(PingTool, LinesAndNotices) {
    const std::tuple<const char*, const char*, u32, const char*, const char*, i64> rows[] = {
        // the system, the target, the size; the line, what the tool prints, and the notice that this makes
        {"Ubuntu 22", "fe80::1", 57, "ping6 -c 1 -s 57 -t 64 -w 1 fe80::1", "From fe80::2 Unreachable", 1},
        {"ubuntu", "10.0.0.2", ~0U, "ping -c 1 -s -1 -t 64 -W 1 10.0.0.2", "", 2},
        {"device", "fe80::2", 57, "ping -6 -c 1 -s 57 -t 64 -w 1 fe80::2", "ping: Network is unreachable", 3},
        {"device", "10.0.0.1", 55, "ping -c 1 -s 56 -t 64 -W 1 10.0.0.1", "64 bytes from x: ttl=63 time=1.25 ms\n --",
         0},
    };
    Listener listener("ipc_ping_7");
    for (const auto& [host, target, size, line, output, type] : rows) {
        WriteFile("/etc/issue", std::string("Welcome to\n") + host + "\n");
        tools.Answer(line, output, 1);
        TNetPingStartReq request = Echoes(target);
        request.dwPacketSize = size;
        ExpectStarted(request);
        ExpectNotice(listener, type, type == 0 ? TNetPingResult{7, 63, 1250, 0, 1} : TNetPingResult{7, 0, 0, 0, 1});
        EXPECT_THAT(tools.TakeRuns(), testing::ElementsAre(line));
    }
    ExpectLogged({"ApidPingStart: PingStart user 7 begin; ", "Ping4: pchCmd : ping -c 1 -s 56 -t 64 -W 1 10.0.0.1 ; ",
                  "Ping4: User Id 7 ping return : 0(0)", "Ping6: pchChildStdoutBuf : ping: Network is unreachable",
                  "Ping6: ping return:3(0)"});
}

TEST_F(PingTool, RepliesThatCannotBeReadAreLeftOut) {
    const std::pair<const char*, i64> rows[] = {{"ttl=1 time=0.029 ms", 29},
                                                {"ttl=1 time=99999 ms", 99999000},
                                                {"ttl=1 time=100000 ms", -1},
                                                {"ttl=1 time=-1 ms", -1},
                                                {"ttl=1 time=nan ms", -1},
                                                {"time=1 ms", -1},
                                                {"ttl=123456789012345678901 time=1 ms", -1}};
    for (const auto& [output, expected] : rows) {
        TNetPingResult result{};
        EXPECT_EQ(PingBufToMsg(output, &result) == 0 ? i64{result.dwTime} : -1, expected) << output;
    }
    std::size_t runs = 0;
    AnswerTools([&](const std::string&) {
        return ToolAnswer{std::array{"64 bytes from ttl=9 time=2 ms", "64 bytes from time=2 ms", ""}[runs++ % 3]};
    });
    Listener listener("ipc_ping_7");
    ASSERT_EQ(Start(Echoes("10.0.0.1", 7, 3)), 0);
    ExpectNotice(listener, 0, {7, 9, 2000, 0, 0});
    ExpectNotice(listener, 2, {7, 0, 0, 2, 1});
    ExpectLogged({"Ping4: 64 bytes from time=2 ms; Ping4: ping buf to msg error!"});
}

TEST_F(PingTool, TenUsersHaveASlotUntilTheirSessionEnds) {
    for (i32 user = 0; user < 10; ++user)
        EXPECT_EQ(Start(Echoes("nothing", user)), 0);
    EXPECT_EQ(Start(Echoes("nothing", 10)), -1);
    EXPECT_EQ(Start(Echoes("nothing", 3)), -1);
    EXPECT_EQ(tools.Status(0xC02, Number(3)) + tools.Status(0xC02, Number(3)), 0);
    ExpectLogged({"PingStart: the user num is reach the maxmium 10; ", "PingStart: the nUserID 3 now is pinging!; ",
                  "ApidPingStart: ping start error!; ", "PingThread: the wSinFamily 7 is invalid!; ",
                  "ApidPingStop: PingStop user 3 begin; ", "PingStop: nUserID is 3; ",
                  "PingStop: the nUserId 3 has been stopped!; "});
    // The one free slot: of sessions that end by themselves, and then of one that has no process to be had.
    for (i32 user = 10; user < 15; ++user)
        ExpectStarted(Echoes("10.0.0.1", user, 0));
    tools.Answer("ping -c 1 -s 56 -t 64 -W 1 10.0.0.1", "", -1);
    Listener listener("ipc_ping_15");
    ExpectStarted(Echoes("10.0.0.1", 15));
    EXPECT_EQ(listener.Next(300), -1);
    EXPECT_EQ(Start(Echoes("nothing", 16)), -1);
    EXPECT_EQ(PingStop(15), 0);
    EXPECT_EQ(Start(Echoes("nothing", 16)), 0);
}

}  // namespace
}  // namespace tessel::test
