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

using testing::ElementsAre;
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
    tools.Answer("ip -4 addr show dev half", "    inet 10.1.2.3/8 scope global eth0\n    inet 10.1.2.4 scope\n");
    const Daemon daemon;
    const Conversation rows[] = {
        {"IPv4", 0x115, AddressesOf(2, "eth0"), {"ip -4 addr show dev eth0"}, 0, 584},
        {"IPv6", 0x115, AddressesOf(10, "eth0"), {"ip -6 addr show dev eth0"}, 0, 584},
        {"both", 0x115, AddressesOf(11, "eth0"), {"ip -4 addr show dev eth0", "ip -6 addr show dev eth0"}, 0, 584},
        {"no addresses", 0x115, AddressesOf(2, "eth1"), {"ip -4 addr show dev eth1"}, 0, 584},
        {"no interface: IPv6 is not asked", 0x115, AddressesOf(11, "eth9"), {"ip -4 addr show dev eth9"}, -1, 584},
        {"unreadable", 0x115, AddressesOf(2, "half"), {"ip -4 addr show dev half"}, -1, 584},
        {"unknown family", 0x115, AddressesOf(3, "eth0"), {}, -1, 584},
        {"two words in the name", 0x115, AddressesOf(2, "eth0 up"), {}, -1, 584},
        {"no name", 0x115, AddressesOf(2, ""), {}, -1, 584},
        {"a name without end",
         0x115,
         AddressesOf(2, "abcdefghijklmnop"),
         {"ip -4 addr show dev abcdefghijklmnop"},
         0,
         584},
        {"a request cut short reads as zero", 0x115, AddressesOf(2, "eth0").substr(0, 2), {}, -1, 584},
    };
    for (const Conversation& row : rows)
        Check(row, tools);

    TNetIpaddrGetReply expected{};
    const std::string both = *Request(0x115, AddressesOf(11, "eth0"));
    const TNetIpAddr first = {.dwScope = 4,
                              .wSinFamily = 2,
                              .wReserved = 0,
                              .abyAddr = {10, 1, 2, 3},
                              .dwPrefixLen = 8,
                              .bTentative = 0,
                              .bDynamic = 0};
    expected.tIfaceIp.dwNum = 2;
    expected.tIfaceIp.atIp[0] = first;
    expected.tIfaceIp.atIp[1] = {.dwScope = 2,
                                 .wSinFamily = 10,
                                 .wReserved = 0,
                                 .abyAddr = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},
                                 .dwPrefixLen = 64,
                                 .bTentative = 1,
                                 .bDynamic = 0};
    EXPECT_EQ(both, Bytes(expected));

    expected = {};
    expected.nResult = -1;
    expected.tIfaceIp.dwNum = 1;
    expected.tIfaceIp.atIp[0] = first;
    EXPECT_EQ(*Request(0x115, AddressesOf(2, "half")), Bytes(expected)) << "what was read before the failure stays";
}

TEST(Commands, ShowAnInterfaceAsText) {
    StandInTools tools({"ip"});
    tools.Answer("ip addr show dev eth0",
                 "2: eth0: <UP> mtu 1400 qdisc\n    link/ether 00:11:22:33:44:55 brd\n    inet6 fe80::1/64 scope "
                 "link\n    inet 10.1.2.3/8 scope global eth0\n");
    tools.Answer(
        "ip addr show dev lo",
        "1: lo: <UP> mtu 65536 qdisc\n    link/loopback 00:00:00:00:00:00 brd\n    inet 127.0.0.1/8 scope host lo\n");
    tools.Answer("ip addr show dev bad", "Device \"bad\" does not exist.\n", 1);
    const Daemon daemon;
    const Conversation rows[] = {
        {"an Ethernet interface", 0x11B, Name("eth0"), {"ip addr show dev eth0"}, 0, 928},
        {"no Ethernet address", 0x11B, Name("lo"), {"ip addr show dev lo"}, -1, 928},
        {"no interface", 0x11B, Name("bad"), {"ip addr show dev bad"}, -1, 928},
        {"a tool that says nothing", 0x11B, Name("eth5"), {"ip addr show dev eth5"}, -1, 928},
        {"no name", 0x11B, Name(""), {}, -1, 928},
    };
    for (const Conversation& row : rows)
        Check(row, tools);
    TNetIpaddrShowReply reply;
    memcpy(&reply, Request(0x11B, Name("eth0"))->data(), sizeof(reply));
    EXPECT_EQ(reply.tInfo.mtu, 1400);
    EXPECT_STREQ(reply.tInfo.mac, "00:11:22:33:44:55");
    ASSERT_EQ(reply.tInfo.num, 2U);
    EXPECT_STREQ(reply.tInfo.addr[0].addr, "10.1.2.3") << "IPv4 first";
    tools.TakeRuns();
    for (const std::string& wrong : {Name("eth0").substr(1), Name("eth0") + "x"})
        EXPECT_FALSE(Request(0x11B, wrong).has_value());
    EXPECT_THAT(tools.TakeRuns(), ElementsAre());
}

TEST(Commands, StopServicesByTheNamesOfThisSystem) {
    StandInTools tools({"killall"});
    tools.Answer("killall -9 nobody", "nobody: no process found\n", 1);
    const Daemon daemon;
    const auto stop = [&](const char* description, const char* service, std::vector<std::string> runs, i32 status) {
        Check({description, 0x126, Name(service), std::move(runs), status, 4}, tools);
    };
    WriteFile("/etc/issue", "Device\n");
    stop("device", "ssh", {"killall -9 dropbear"}, 0);
    stop("device", "telnetd", {"killall -9 telnetd"}, 0);
    stop("device", "ftpd", {"killall -9 ftpd"}, 0);
    WriteFile("/etc/issue", "Ubuntu\n");
    stop("desktop", "ssh", {"killall -9 sshd"}, 0);
    stop("desktop", "telnetd", {"killall -9 in.telnetd"}, 0);
    stop("desktop", "ftpd", {"killall -9 vsftpd"}, 0);
    stop("any other", "crond", {"killall -9 crond"}, 0);
    stop("not running", "nobody", {"killall -9 nobody"}, -1);
    for (const char* refused : {"", "two words", "-V", "/proc/1/exe", "tessel_daemon"})
        stop("refused", refused, {}, -1);
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
