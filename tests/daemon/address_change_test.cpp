// Changing addresses and the MAC: which lines are run, in which order, and what happens when one of them fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tessel/address.h"
#include "tessel/mac.h"
#include "tests/support/conversation.h"
#include "tests/support/daemon.h"

namespace tessel::test {
namespace {

constexpr u32 kAdd = 0x101;
constexpr u32 kDel = 0x103;
constexpr u32 kFlush = 0x104;
constexpr u32 kSet = 0x105;

TNetIpAddr Inet(u8 lastByte, u32 scope = 0) {
    return {.dwScope = scope,
            .wSinFamily = 2,
            .wReserved = 0,
            .abyAddr = {10, 0, 0, lastByte},
            .dwPrefixLen = 8,
            .bTentative = 0,
            .bDynamic = 0};
}

TNetIpAddr Inet6(u8 lastByte, u32 scope = 0) {
    return {.dwScope = scope,
            .wSinFamily = 10,
            .wReserved = 0,
            .abyAddr = {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, lastByte},
            .dwPrefixLen = 64,
            .bTentative = 0,
            .bDynamic = 0};
}

std::string One(TNetIpAddr entry, const char* name = "eth0") {
    TNetIpaddrChangeReq request{.achDevName = {}, .tIp = entry};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request));
}

std::string Family(u16 family, const char* name = "eth0") {
    TNetIpaddrFlushReq request{.wSinFamily = family, .achDevName = {}};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request));
}

std::string Set(u16 family, const std::vector<TNetIpAddr>& entries, u32 count) {
    TNetIpaddrSetReq request{.wSinFamily = family, .achDevName = "eth0", .tIfaceIp = {}};
    request.tIfaceIp.dwNum = count;
    for (std::size_t i = 0; i < entries.size(); ++i)
        request.tIfaceIp.atIp[i] = entries[i];
    return std::string(Bytes(request));
}

std::string Set(u16 family, const std::vector<TNetIpAddr>& entries) {
    return Set(family, entries, static_cast<u32>(entries.size()));
}

TEST(AddressChange, OneAddressOrAFamily) {
    StandInTools tools({"ip"});
    tools.Answer("ip -4 addr add 10.0.0.9/8 dev eth0", "RTNETLINK answers: File exists\n", 2);
    tools.Answer("ip -6 addr flush scope global permanent dev old", "Error: argument \"permanent\" is wrong\n", 255);
    tools.Answer("ip -4 addr flush dev bad", "", 1);
    const Daemon daemon;
    TNetIpAddr wrongFamily = Inet(1);
    wrongFamily.wSinFamily = 7;
    const Conversation rows[] = {
        {"add IPv4: the scope is not told", kAdd, One(Inet(1, 2)), {"ip -4 addr add 10.0.0.1/8 dev eth0"}, 0, 4},
        {"add IPv6", kAdd, One(Inet6(1)), {"ip -6 addr add 2001:db8::1/64 dev eth0"}, 0, 4},
        {"a scope outside the table", kAdd, One(Inet(1, 77777)), {"ip -4 addr add 10.0.0.1/8 dev eth0"}, 0, 4},
        {"the tool fails", kAdd, One(Inet(9)), {"ip -4 addr add 10.0.0.9/8 dev eth0"}, -1, 4},
        {"an unknown family succeeds and does nothing", kAdd, One(wrongFamily), {}, 0, 4},
        {"delete IPv4", kDel, One(Inet(1)), {"ip -4 addr del 10.0.0.1/8 dev eth0"}, 0, 4},
        {"delete IPv6", kDel, One(Inet6(1)), {"ip -6 addr del 2001:db8::1/64 dev eth0"}, 0, 4},
        {"delete with an unknown family", kDel, One(wrongFamily), {}, 0, 4},
        {"two words in the name", kAdd, One(Inet(1), "eth0 x"), {}, -1, 4},
        {"flush IPv4", kFlush, Family(2), {"ip -4 addr flush dev eth0"}, 0, 4},
        {"flush IPv6", kFlush, Family(10), {"ip -6 addr flush scope global permanent dev eth0"}, 0, 4},
        {"flush IPv6 with an older tool",
         kFlush,
         Family(10, "old"),
         {"ip -6 addr flush scope global permanent dev old", "ip -6 addr flush scope global dev old"},
         0,
         4},
        {"flush both",
         kFlush,
         Family(11),
         {"ip -4 addr flush dev eth0", "ip -6 addr flush scope global permanent dev eth0"},
         0,
         4},
        {"IPv6 stays when IPv4 fails", kFlush, Family(11, "bad"), {"ip -4 addr flush dev bad"}, -1, 4},
        {"flush an unknown family", kFlush, Family(3), {}, -1, 4},
        {"flush without a name", kFlush, Family(2, ""), {}, -1, 4},
    };
    for (const Conversation& row : rows)
        Check(row, tools);
}

TEST(AddressChange, SettingReplacesAndRestores) {
    StandInTools tools({"ip"});
    tools.Answer("ip -4 addr show dev eth0",
                 "    inet 10.0.0.100/8 scope global eth0\n    inet 10.0.0.101/8 scope global eth0\n");
    tools.Answer("ip -6 addr show dev eth0",
                 "    inet6 2001:db8::64/64 scope global\n    inet6 2001:db8::65/64 scope global dynamic\n    inet6 "
                 "fe80::1/64 scope link\n");
    tools.Answer("ip -4 addr add 10.0.0.9/8 dev eth0", "", 2);
    tools.Answer("ip -6 addr add 2001:db8::9/64 dev eth0", "", 2);
    const Daemon daemon;
    const Conversation rows[] = {
        {"IPv4",
         kSet,
         Set(2, {Inet(1), Inet(2)}),
         {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0", "ip -4 addr add 10.0.0.1/8 dev eth0",
          "ip -4 addr add 10.0.0.2/8 dev eth0"},
         0,
         4},
        {"an empty list", kSet, Set(2, {}), {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0"}, 0, 4},
        {"the second of three fails: the old ones come back",
         kSet,
         Set(2, {Inet(1), Inet(9), Inet(2)}),
         {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0", "ip -4 addr add 10.0.0.1/8 dev eth0",
          "ip -4 addr add 10.0.0.9/8 dev eth0", "ip -4 addr add 10.0.0.100/8 dev eth0",
          "ip -4 addr add 10.0.0.101/8 dev eth0"},
         -1,
         4},
        {"an IPv6 entry in an IPv4 list fails",
         kSet,
         Set(2, {Inet6(1)}),
         {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0", "ip -4 addr add 10.0.0.100/8 dev eth0",
          "ip -4 addr add 10.0.0.101/8 dev eth0"},
         -1,
         4},
        {"IPv6: link-local and learnt ones stay and are not added",
         kSet,
         Set(10, {Inet6(1), Inet6(2, 2)}),
         {"ip -6 addr show dev eth0", "ip -6 addr del 2001:db8::64/64 dev eth0",
          "ip -6 addr add 2001:db8::1/64 dev eth0"},
         0,
         4},
        {"IPv6 fails: what was deleted comes back",
         kSet,
         Set(10, {Inet6(9)}),
         {"ip -6 addr show dev eth0", "ip -6 addr del 2001:db8::64/64 dev eth0",
          "ip -6 addr add 2001:db8::9/64 dev eth0", "ip -6 addr add 2001:db8::64/64 dev eth0"},
         -1,
         4},
        {"both: each to its family, IPv4 first",
         kSet,
         Set(11, {Inet6(1), Inet(1)}),
         {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0", "ip -4 addr add 10.0.0.1/8 dev eth0",
          "ip -6 addr show dev eth0", "ip -6 addr del 2001:db8::64/64 dev eth0",
          "ip -6 addr add 2001:db8::1/64 dev eth0"},
         0,
         4},
        {"an unknown family", kSet, Set(3, {Inet(1)}), {}, -1, 4},
    };
    for (const Conversation& row : rows)
        Check(row, tools);

    // A count beyond the list: sixteen entries are taken, nothing behind them.
    EXPECT_EQ(RequestStatus(kSet, Set(2, std::vector<TNetIpAddr>(16, Inet(1)), 0xffffffff)), 0);
    EXPECT_EQ(tools.TakeRuns().size(), 18U);

    tools.Answer("ip -4 addr show dev eth0", "", 1);
    tools.Answer("ip -4 addr flush dev eth0", "", 1);
    Check({"a failed read does not stop it, a failed flush does",
           kSet,
           Set(2, {Inet(1)}),
           {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0"},
           -1,
           4},
          tools);
}

TEST(MacChange, IsSetAndRead) {
    StandInTools tools({"ip", "ifconfig"});
    tools.Answer("ip link show dev eth0", "2: eth0: <UP>\n    link/ether 02:0a:00:Ff:10:5 brd ff:ff:ff:ff:ff:ff\n");
    tools.Answer("ip link show dev first22", "    link/ether 22:00:00:00:00:01 brd ff:ff:ff:ff:ff:ff\n");
    tools.Answer("ip link show dev short", "    link/ether 02:00:00:00:01 brd ff:ff:ff:ff:ff:ff\n");
    tools.Answer("ip link show dev lo", "    link/loopback 00:00:00:00:00:00 brd 00:00:00:00:00:00\n");
    tools.Answer("ifconfig busy hw ether 0:11:22:33:44:55", "SIOCSIFHWADDR: Device or resource busy\n", 1);
    const Daemon daemon;
    const auto set = [](const char* name) {
        TNetMacaddrSetReq request{.achDevName = {}, .abyMac = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}};
        strncpy(request.achDevName, name, sizeof(request.achDevName));
        return std::string(Bytes(request));
    };
    const Conversation rows[] = {
        {"set", 0x106, set("eth0"), {"ifconfig eth0 hw ether 0:11:22:33:44:55"}, 0, 4},
        {"set fails", 0x106, set("busy"), {"ifconfig busy hw ether 0:11:22:33:44:55"}, -1, 4},
        {"set without a name", 0x106, set(""), {}, -1, 4},
        {"get", 0x107, Name("eth0"), {"ip link show dev eth0"}, 0, 12},
        {"a first byte of 0x22 cannot be read", 0x107, Name("first22"), {"ip link show dev first22"}, -1, 12},
        {"five groups", 0x107, Name("short"), {"ip link show dev short"}, -1, 12},
        {"no Ethernet", 0x107, Name("lo"), {"ip link show dev lo"}, -1, 12},
    };
    for (const Conversation& row : rows)
        Check(row, tools);
    EXPECT_EQ(
        *Request(0x107, Name("eth0")),
        Bytes(TNetMacaddrGetReply{.nResult = 0, .abyMac = {0x02, 0x0a, 0x00, 0xff, 0x10, 0x05}, .abyUnused = {}}));
    EXPECT_EQ(*Request(0x107, Name("short")), Bytes(TNetMacaddrGetReply{.nResult = -1, .abyMac = {}, .abyUnused = {}}));
}

}  // namespace
}  // namespace tessel::test
