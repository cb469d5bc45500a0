// Whole conversations: what a client sends, which tools the daemon runs, what comes back.
#include "tessel/command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tessel/address.h"
#include "tessel/log.h"
#include "tessel/mtu.h"
#include "tessel/service.h"
#include "tests/support/conversation.h"
#include "tests/support/daemon.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

using testing::HasSubstr;

std::string AddressesOf(u16 family, const char* interfaceName) {
    TNetIpaddrGetReq request{.wSinFamily = family, .achDevName = {}};
    strncpy(request.achDevName, interfaceName, sizeof(request.achDevName));
    return std::string(Bytes(request));
}

TEST(Commands, ReadAddressesThroughTheIpTool) {
    StandInTools tools({"ip"});
    tools.Answer("ip -4 addr show dev eth0", "    inet 10.1.2.3/8 brd 10.255.255.255 scope global eth0\n");
    tools.Answer("ip -6 addr show dev eth0", "    inet6 fe80::1/64 scope link tentative\n");
    tools.Answer("ip -4 addr show dev eth9", "Device \"eth9\" does not exist.\n", 1);
    const Daemon daemon;
    const Conversation rows[] = {
        {"both", 0x115, AddressesOf(11, "eth0"), {"ip -4 addr show dev eth0", "ip -6 addr show dev eth0"}, 0, 584},
        {"no interface: IPv6 is not asked", 0x115, AddressesOf(11, "eth9"), {"ip -4 addr show dev eth9"}, -1, 584},
        {"two words in the name", 0x115, AddressesOf(2, "eth0 up"), {}, -1, 584},
    };
    for (const Conversation& row : rows)
        Check(row, tools);
    const std::string both = *Request(0x115, AddressesOf(11, "eth0"));
    TNetIpaddrGetReply expected{};
    expected.tIfaceIp.dwNum = 2;
    expected.tIfaceIp.atIp[0] = {.dwScope = 4,
                                 .wSinFamily = 2,
                                 .wReserved = 0,
                                 .abyAddr = {10, 1, 2, 3},
                                 .dwPrefixLen = 8,
                                 .bTentative = 0,
                                 .bDynamic = 0};
    expected.tIfaceIp.atIp[1] = {.dwScope = 2,
                                 .wSinFamily = 10,
                                 .wReserved = 0,
                                 .abyAddr = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},
                                 .dwPrefixLen = 64,
                                 .bTentative = 1,
                                 .bDynamic = 0};
    EXPECT_EQ(both, Bytes(expected));
}

TEST(Commands, SetAndGetTheMtu) {
    const Daemon daemon;
    const auto set = [](const char* name, u32 mtu) {
        TNetMtuSetReq request{.achDevName = {}, .dwMtu = mtu};
        strncpy(request.achDevName, name, sizeof(request.achDevName));
        return RequestStatus(0x111, Bytes(request));
    };
    const auto get = [](const char* name) { return *Request(0x112, Name(name)); };
    EXPECT_EQ(set("eth0", 1400), 0);
    EXPECT_EQ(get("eth0"), Bytes(TNetMtuGetReply{.nResult = 0, .dwMtu = 1400}));
    EXPECT_EQ(set("eth0", 1), -1);
    EXPECT_EQ(set("eth9", 1400), -1);
    EXPECT_EQ(set("abcdefghijklmnop", 1400), -1);
    EXPECT_EQ(get("eth0"), Bytes(TNetMtuGetReply{.nResult = 0, .dwMtu = 1400}));
    EXPECT_EQ(get("eth9"), Bytes(TNetMtuGetReply{.nResult = -1, .dwMtu = 0}));
    EXPECT_EQ(get("abcdefghijklmnop"), Bytes(TNetMtuGetReply{.nResult = -1, .dwMtu = 0}));
}

TEST(Commands, SteerTheLog) {
    const Daemon daemon;
    const auto setLevel = [](i32 level) { return RequestStatus(0x702, Bytes(TNetLogLevelReq{.nLevel = level})); };
    const auto file = [](u32 code, const char* path) {
        LogFileCtl request{.eCmd = code, .achLibPath = {}, .achDaemonPath = {}};
        strncpy(request.achDaemonPath, path, sizeof(request.achDaemonPath));
        return RequestStatus(0x701, Bytes(request));
    };
    EXPECT_EQ(file(5, "/tmp/daemon.log"), 0);
    EXPECT_EQ(setLevel(4), 0);
    (void)Request(0x112, Name("eth0"));
    EXPECT_THAT(ReadFile("/tmp/daemon.log"), HasSubstr("[MtuGet]"));
    EXPECT_EQ(setLevel(-1), 0);
    (void)Request(0x999, "");
    EXPECT_THAT(ReadFile("/tmp/daemon.log"), testing::Not(HasSubstr("invalid type")));
    EXPECT_EQ(setLevel(2), 0);
    EXPECT_EQ(RequestStatus(0x702, "12"), -1) << "no level, nothing set";
    (void)Request(0x999, "");
    EXPECT_THAT(ReadFile("/tmp/daemon.log"), HasSubstr("invalid type: 999!\n"));
    EXPECT_EQ(file(6, ""), 0);
    EXPECT_EQ(file(1, "/tmp/never.log"), 0);
    for (const u32 wrong : {0U, 7U, 0xffffffffU})
        EXPECT_EQ(file(wrong, ""), -1);
    EXPECT_EQ(ReadFile("/tmp/never.log"), "");
}

}  // namespace
}  // namespace tessel::test
