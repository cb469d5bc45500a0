// Changing addresses and the MAC: which lines are run, in which order, what happens when one of them fails, and the
// log.
#include "addr/address_change.h"

#include <cstring>

#include "addr/mac.h"
#include "tessel/mac.h"
#include "tests/support/conversation.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

constexpr u32 kAdd = 0x101;
constexpr u32 kDel = 0x103;
constexpr u32 kFlush = 0x104;
constexpr u32 kSet = 0x105;
constexpr u32 kMacSet = 0x106;
constexpr u32 kMacGet = 0x107;

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

TNetIpAddr OfFamily7() {
    TNetIpAddr entry = Inet(1);
    entry.wSinFamily = 7;
    return entry;
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

std::string Set(u16 family, const std::vector<TNetIpAddr>& entries, u32 count, const char* name = "eth0") {
    TNetIpaddrSetReq request{.wSinFamily = family, .achDevName = {}, .tIfaceIp = {}};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    request.tIfaceIp.dwNum = count;
    for (std::size_t i = 0; i < entries.size(); ++i)
        request.tIfaceIp.atIp[i] = entries[i];
    return std::string(Bytes(request));
}

std::string Set(u16 family, const std::vector<TNetIpAddr>& entries, const char* name = "eth0") {
    return Set(family, entries, static_cast<u32>(entries.size()), name);
}

std::string Mac(const char* name) {
    TNetMacaddrSetReq request{.achDevName = {}, .abyMac = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request));
}

TEST(AddressChange, OneAddressOrAFamily) {
    NotedTools tools;
    tools.Answer("ip -4 addr add 10.0.0.9/8 dev eth0", "RTNETLINK answers: File exists\n", 2);
    tools.Answer("ip -6 addr flush scope global permanent dev old", "Error: argument \"permanent\" is wrong\n", 255);
    tools.Answer("ip -6 addr flush scope global permanent dev bad", "Error: argument \"permanent\" is wrong\n", 255);
    tools.Answer("ip -6 addr flush scope global dev bad", "", 1);
    tools.Answer("ip -4 addr flush dev bad", "", 1);
    const Transcript rows[] = {
        {"add IPv4: the scope is not named", kAdd, One(Inet(1, 2)), {"ip -4 addr add 10.0.0.1/8 dev eth0"}, 0},
        {"add IPv6", kAdd, One(Inet6(1)), {"ip -6 addr add 2001:db8::1/64 dev eth0"}, 0},
        {"a scope outside the table", kAdd, One(Inet(1, 77777)), {"ip -4 addr add 10.0.0.1/8 dev eth0"}, 0},
        {"the tool fails", kAdd, One(Inet(9)), {"ip -4 addr add 10.0.0.9/8 dev eth0"}, -1},
        {"an unknown family succeeds and does nothing", kAdd, One(OfFamily7()), {}, 0},
        {"delete IPv4", kDel, One(Inet(1)), {"ip -4 addr del 10.0.0.1/8 dev eth0"}, 0},
        {"delete IPv6", kDel, One(Inet6(1)), {"ip -6 addr del 2001:db8::1/64 dev eth0"}, 0},
        {"delete with an unknown family", kDel, One(OfFamily7()), {}, 0},
        {"flush IPv4", kFlush, Family(2), {"ip -4 addr flush dev eth0"}, 0},
        {"flush IPv6", kFlush, Family(10), {"ip -6 addr flush scope global permanent dev eth0"}, 0},
        {"flush IPv6 with an older tool",
         kFlush,
         Family(10, "old"),
         {"ip -6 addr flush scope global permanent dev old", "ip -6 addr flush scope global dev old"},
         0},
        {"the older tool fails as well",
         kFlush,
         Family(10, "bad"),
         {"ip -6 addr flush scope global permanent dev bad", "ip -6 addr flush scope global dev bad"},
         -1},
        {"flush both",
         kFlush,
         Family(11),
         {"ip -4 addr flush dev eth0", "ip -6 addr flush scope global permanent dev eth0"},
         0},
        {"IPv6 stays when IPv4 fails", kFlush, Family(11, "bad"), {"ip -4 addr flush dev bad"}, -1},
        {"flush an unknown family", kFlush, Family(3), {}, -1},
    };
    for (const Transcript& row : rows)
        tools.Check(row);
}

// None, two words, or what a tool takes for an option: "ifconfig -V" succeeds without setting anything.
TEST(AddressChange, RefusesNamesThatAreNoWord) {
    NotedTools tools;
    for (const char* name : {"", "eth0 x", "-V"}) {
        tools.Check({"add", kAdd, One(Inet(1), name), {}, -1});
        tools.Check({"delete", kDel, One(Inet6(1), name), {}, -1});
        for (const u16 family : std::initializer_list<u16>{2, 10, 11}) {
            tools.Check({"flush", kFlush, Family(family, name), {}, -1});
            tools.Check({"set", kSet, Set(family, {family == 10 ? Inet6(1) : Inet(1)}, name), {}, -1});
        }
        tools.Check({"set the MAC", kMacSet, Mac(name), {}, -1});
        tools.Check({"get the MAC", kMacGet, Name(name), {}, -1});
    }
}

TEST(AddressChange, SettingReplacesAndRestores) {
    NotedTools tools;
    tools.Answer("ip -4 addr show dev eth0",
                 "    inet 10.0.0.100/8 scope global eth0\n    inet 10.0.0.101/8 scope global eth0\n");
    tools.Answer("ip -6 addr show dev eth0",
                 "    inet6 2001:db8::64/64 scope global\n    inet6 2001:db8::65/64 scope global dynamic\n    inet6 "
                 "fe80::1/64 scope link\n    inet6 2001:db8::66/64 scope global\n");
    tools.Answer("ip -4 addr add 10.0.0.9/8 dev eth0", "", 2);
    tools.Answer("ip -6 addr add 2001:db8::9/64 dev eth0", "", 2);
    const Transcript rows[] = {
        {"IPv4",
         kSet,
         Set(2, {Inet(1), Inet(2)}),
         {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0", "ip -4 addr add 10.0.0.1/8 dev eth0",
          "ip -4 addr add 10.0.0.2/8 dev eth0"},
         0},
        {"an empty list", kSet, Set(2, {}), {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0"}, 0},
        {"the second of three fails: the old ones come back",
         kSet,
         Set(2, {Inet(1), Inet(9), Inet(2)}),
         {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0", "ip -4 addr add 10.0.0.1/8 dev eth0",
          "ip -4 addr add 10.0.0.9/8 dev eth0", "ip -4 addr add 10.0.0.100/8 dev eth0",
          "ip -4 addr add 10.0.0.101/8 dev eth0"},
         -1},
        {"an IPv6 entry in an IPv4 list fails",
         kSet,
         Set(2, {Inet6(1)}),
         {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0", "ip -4 addr add 10.0.0.100/8 dev eth0",
          "ip -4 addr add 10.0.0.101/8 dev eth0"},
         -1},
        {"IPv6: link-local and learnt ones stay, link-local ones are not added",
         kSet,
         Set(10, {Inet6(1), Inet6(2, 2)}),
         {"ip -6 addr show dev eth0", "ip -6 addr del 2001:db8::64/64 dev eth0",
          "ip -6 addr del 2001:db8::66/64 dev eth0", "ip -6 addr add 2001:db8::1/64 dev eth0"},
         0},
        {"IPv6 fails: what was deleted comes back",
         kSet,
         Set(10, {Inet6(9)}),
         {"ip -6 addr show dev eth0", "ip -6 addr del 2001:db8::64/64 dev eth0",
          "ip -6 addr del 2001:db8::66/64 dev eth0", "ip -6 addr add 2001:db8::9/64 dev eth0",
          "ip -6 addr add 2001:db8::64/64 dev eth0", "ip -6 addr add 2001:db8::66/64 dev eth0"},
         -1},
        {"both: each to its family, IPv4 first",
         kSet,
         Set(11, {Inet6(1), OfFamily7(), Inet(1)}),
         {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0", "ip -4 addr add 10.0.0.1/8 dev eth0",
          "ip -6 addr show dev eth0", "ip -6 addr del 2001:db8::64/64 dev eth0",
          "ip -6 addr del 2001:db8::66/64 dev eth0", "ip -6 addr add 2001:db8::1/64 dev eth0"},
         0},
        {"both, and IPv4 fails: nothing of IPv6",
         kSet,
         Set(11, {Inet6(1), Inet(9)}),
         {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0", "ip -4 addr add 10.0.0.9/8 dev eth0",
          "ip -4 addr add 10.0.0.100/8 dev eth0", "ip -4 addr add 10.0.0.101/8 dev eth0"},
         -1},
        {"an unknown family", kSet, Set(3, {Inet(1)}), {}, -1},
    };
    for (const Transcript& row : rows)
        tools.Check(row);

    // A count beyond the list: sixteen entries are taken, nothing behind them.
    EXPECT_EQ(tools.Status(kSet, Set(2, std::vector<TNetIpAddr>(16, Inet(1)), 0xffffffff)), 0);
    EXPECT_EQ(tools.TakeRuns().size(), 18U);

    tools.Answer("ip -4 addr add 10.0.0.100/8 dev eth0", "", 2);
    tools.Check({"one that does not come back keeps no other from it",
                 kSet,
                 Set(2, {Inet(9)}),
                 {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0", "ip -4 addr add 10.0.0.9/8 dev eth0",
                  "ip -4 addr add 10.0.0.100/8 dev eth0", "ip -4 addr add 10.0.0.101/8 dev eth0"},
                 -1});
    tools.Answer("ip -6 addr add 2001:db8::64/64 dev eth0", "", 2);
    tools.Answer("ip -6 addr del 2001:db8::64/64 dev eth0", "", 2);
    tools.Check({"nor does an IPv6 one, nor one that cannot be deleted",
                 kSet,
                 Set(10, {Inet6(9)}),
                 {"ip -6 addr show dev eth0", "ip -6 addr del 2001:db8::64/64 dev eth0",
                  "ip -6 addr del 2001:db8::66/64 dev eth0", "ip -6 addr add 2001:db8::9/64 dev eth0",
                  "ip -6 addr add 2001:db8::64/64 dev eth0", "ip -6 addr add 2001:db8::66/64 dev eth0"},
                 -1});

    tools.Answer("ip -6 addr show dev eth0", "", 1);
    tools.Check({"a failed read does not stop it",
                 kSet,
                 Set(10, {Inet6(1)}),
                 {"ip -6 addr show dev eth0", "ip -6 addr add 2001:db8::1/64 dev eth0"},
                 0});
    tools.Answer("ip -4 addr show dev eth0", "", 1);
    tools.Answer("ip -4 addr flush dev eth0", "", 1);
    tools.Check({"a failed flush does",
                 kSet,
                 Set(11, {Inet(1), Inet6(1)}),
                 {"ip -4 addr show dev eth0", "ip -4 addr flush dev eth0"},
                 -1});
}

TEST(AddressChange, AListThatWasCutShortChangesNothing) {
    NotedTools tools;
    const std::string two = Set(2, {Inet(1), Inet(2)});
    const std::string full = Set(2, std::vector<TNetIpAddr>(16, Inet(1)), 17);
    constexpr std::size_t kTwoEntries = 22 + 2 * 36;
    for (std::size_t bytes = 0; bytes < kTwoEntries; ++bytes)
        EXPECT_EQ(tools.Status(kSet, two.substr(0, bytes)), -1) << bytes;
    EXPECT_EQ(tools.Status(kSet, full.substr(0, 597)), -1) << "sixteen count, and one byte is missing";
    EXPECT_EQ(tools.Status(kSet, Set(11, {}).substr(0, 21)), -1) << "not even a number";
    EXPECT_THAT(tools.TakeRuns(), testing::ElementsAre());
    EXPECT_EQ(tools.Status(kSet, two.substr(0, kTwoEntries)), 0) << "nothing is missing";
    EXPECT_EQ(tools.TakeRuns().size(), 4U);
    EXPECT_EQ(tools.Status(kSet, full), 0);
    EXPECT_EQ(tools.TakeRuns().size(), 18U);
    EXPECT_EQ(tools.Status(kSet, Set(2, {}).substr(0, 22)), 0) << "an empty list is a list";
    EXPECT_EQ(tools.TakeRuns().size(), 2U);
}

TEST(MacChange, IsSetAndRead) {
    NotedTools tools;
    tools.Answer("ip link show dev eth0", "2: eth0: <UP>\n    link/ether 02:0a:00:Ff:10:5 brd ff:ff:ff:ff:ff:ff\n");
    tools.Answer("ip link show dev first22", "    link/ether 22:00:00:00:00:01 brd ff:ff:ff:ff:ff:ff\n");
    tools.Answer("ip link show dev later22", "    link/ether 02:22:00:00:00:01 brd ff:ff:ff:ff:ff:ff\n");
    tools.Answer("ip link show dev short", "    link/ether 02:00:00:00:01 brd ff:ff:ff:ff:ff:ff\n");
    tools.Answer("ip link show dev lo", "    link/loopback 00:00:00:00:00:00 brd 00:00:00:00:00:00\n");
    tools.Answer("ip link show dev eth9", "Device \"eth9\" does not exist.\n", 1);
    tools.Answer("ifconfig busy hw ether 0:11:22:33:44:55", "SIOCSIFHWADDR: Device or resource busy\n", 1);
    const Transcript rows[] = {
        {"set", kMacSet, Mac("eth0"), {"ifconfig eth0 hw ether 0:11:22:33:44:55"}, 0},
        {"set fails", kMacSet, Mac("busy"), {"ifconfig busy hw ether 0:11:22:33:44:55"}, -1},
        {"get", kMacGet, Name("eth0"), {"ip link show dev eth0"}, 0},
        {"a first byte of 0x22 cannot be read", kMacGet, Name("first22"), {"ip link show dev first22"}, -1},
        {"a later one can", kMacGet, Name("later22"), {"ip link show dev later22"}, 0},
        {"five groups", kMacGet, Name("short"), {"ip link show dev short"}, -1},
        {"no Ethernet", kMacGet, Name("lo"), {"ip link show dev lo"}, -1},
        {"no interface", kMacGet, Name("eth9"), {"ip link show dev eth9"}, -1},
    };
    for (const Transcript& row : rows)
        tools.Check(row);
    EXPECT_EQ(
        *tools.Request(kMacGet, Name("eth0")),
        Bytes(TNetMacaddrGetReply{.nResult = 0, .abyMac = {0x02, 0x0a, 0x00, 0xff, 0x10, 0x05}, .abyUnused = {}}));
    EXPECT_EQ(*tools.Request(kMacGet, Name("short")),
              Bytes(TNetMacaddrGetReply{.nResult = -1, .abyMac = {}, .abyUnused = {}}));
}

TEST(AddressChange, IsLogged) {
    NotedTools tools;
    tools.Answer("ip -4 addr show dev eth0", "inet 10.0.0.100/8 scope global eth0\n");
    tools.Answer(
        "ip -6 addr show dev eth0",
        "inet6 2001:db8::64/64 scope global \ninet6 fe80::1/64 scope link \ninet6 2001:db8::65/64 scope global "
        "dynamic \n");
    for (const char* line : {"ip -4 addr add 10.0.0.9/8 dev eth0", "ip -6 addr del 2001:db8::9/64 dev eth0",
                             "ip -6 addr del 2001:db8::64/64 dev eth0", "ip -6 addr add 2001:db8::9/64 dev eth0",
                             "ip -4 addr show dev bad", "ip -6 addr show dev bad", "ip -4 addr flush dev bad",
                             "ip -6 addr flush scope global permanent dev old", "ip -6 addr flush scope global dev old",
                             "ifconfig busy hw ether 0:11:22:33:44:55", "ip link show dev eth9"}) {
        tools.Answer(line, "No.", 2);
    }
    tools.Answer("ip link show dev eth0", "link/ether 02:0a:00:Ff:10:5 brd");
    tools.Answer("ip link show dev first22", "link/ether 22:0:0:0:0:1 brd");
    tools.Answer("ip link show dev lo", "link/loopback 0");
    const LoggedRequest rows[] = {
        {"add",
         kAdd,
         One(Inet(1)),
         {"IpaddrAddV4: pchIfaceName : eth0",
          "IpaddrAddV4: IpaddrAddV4 achCmdBuf: ip ip -4 addr add 10.0.0.1/8 dev eth0"}},
        {"add fails",
         kAdd,
         One(Inet(9)),
         {"IpaddrAddV4: pchIfaceName : eth0",
          "IpaddrAddV4: IpaddrAddV4 achCmdBuf: ip ip -4 addr add 10.0.0.9/8 dev eth0", "ExecCmd: ip", "ExecCmd: No.",
          "IpaddrAddV4: ExecCmd error!", "ApidIpaddrAdd: IpaddrAdd error!"}},
        {"add, an unknown family", kAdd, One(OfFamily7()), {"IpaddrAdd: the wSinFamily 7 is invalid!"}},
        {"delete fails",
         kDel,
         One(Inet6(9)),
         {"IpaddrDelV6: pchIfaceName : eth0",
          "IpaddrDelV6: IpaddrDelV6 achCmdBuf: ip ip -6 addr del 2001:db8::9/64 dev eth0", "ExecCmd: ip",
          "ExecCmd: No.", "IpaddrDelV6: ExecCmd error!", "ApidIpaddrDel: IpaddrDel error!"}},
        {"delete, an unknown family", kDel, One(OfFamily7()), {"IpaddrDel: the wSinFamily 7 is invalid!"}},
        {"flush",
         kFlush,
         Family(2),
         {"IpaddrFlushV4: IpaddrFlushV4 achCmdBuf: ip ip -4 addr flush dev eth0",
          "ApidIpaddrFlush: IpaddrFlush nErrid : 0"}},
        {"flush fails twice",
         kFlush,
         Family(10, "old"),
         {"IpaddrFlushV6: IpaddrFlushV6 achCmdBuf: ip ip -6 addr flush scope global permanent dev old ", "ExecCmd: ip",
          "ExecCmd: No.", "IpaddrFlushV6: ExecCmd error!",
          "IpaddrFlushV6: IpaddrFlushV6 achCmdBuf: ip ip -6 addr flush scope global dev old ", "ExecCmd: ip",
          "ExecCmd: No.", "IpaddrFlushV6: ExecCmd error!", "ApidIpaddrFlush: IpaddrFlush error!",
          "ApidIpaddrFlush: IpaddrFlush nErrid : -1"}},
        {"flush both fails",
         kFlush,
         Family(11, "bad"),
         {"IpaddrFlushV4: IpaddrFlushV4 achCmdBuf: ip ip -4 addr flush dev bad", "ExecCmd: ip", "ExecCmd: No.",
          "IpaddrFlushV4: ExecCmd error!", "IpaddrFlush: IpaddrFlushV4 error, nRet = -1!",
          "ApidIpaddrFlush: IpaddrFlush error!", "ApidIpaddrFlush: IpaddrFlush nErrid : -1"}},
        {"flush without a name",
         kFlush,
         Family(2, ""),
         {"IpaddrFlushV4: the pchIfaceName is invalid!", "ApidIpaddrFlush: IpaddrFlush error!",
          "ApidIpaddrFlush: IpaddrFlush nErrid : -1"}},
        {"flush an option",
         kFlush,
         Family(10, "-V"),
         {"IpaddrFlushV6: the text [-V] is invalid!", "ApidIpaddrFlush: IpaddrFlush error!",
          "ApidIpaddrFlush: IpaddrFlush nErrid : -1"}},
        {"flush an unknown family",
         kFlush,
         Family(3),
         {"IpaddrFlush: IpaddrFlush wSinFamily 3 is invalid!", "ApidIpaddrFlush: IpaddrFlush error!",
          "ApidIpaddrFlush: IpaddrFlush nErrid : -1"}},
        {"set another family",
         kSet,
         Set(2, {Inet6(1)}),
         {"IpaddrSet: pchIfaceName : eth0, wSinFamily : 2",
          "GetIpaddrV4: GetIpaddrV4 cmd : ip ip -4 addr show dev eth0",
          "GetIpaddrV4: inet 10.0.0.100/8 scope global eth0", "",
          "IpaddrFlushV4: IpaddrFlushV4 achCmdBuf: ip ip -4 addr flush dev eth0", "IpaddrAddV4: pchIfaceName : eth0",
          "IpaddrAddV4: the ip sinfamiy is 10", "IpaddrV4Set: IpaddrAddV4 error : -1!",
          "IpaddrAddV4: pchIfaceName : eth0",
          "IpaddrAddV4: IpaddrAddV4 achCmdBuf: ip ip -4 addr add 10.0.0.100/8 dev eth0",
          "IpaddrSet: the IpaddrSet nRet : -1", "ApidIpaddrSet: IpaddrSet error!"}},
        {"set fails",
         kSet,
         Set(2, {Inet6(1)}, "bad"),
         {"IpaddrSet: pchIfaceName : bad, wSinFamily : 2", "GetIpaddrV4: GetIpaddrV4 cmd : ip ip -4 addr show dev bad",
          "TesselExecCmdAndGetOutput: ip", "TesselExecCmdAndGetOutput: No.",
          "GetIpaddrV4: ExecCmdAndGetOutput error, nRet = -1!", "IpaddrV4Set: IpaddrGet error : -1!",
          "IpaddrFlushV4: IpaddrFlushV4 achCmdBuf: ip ip -4 addr flush dev bad", "ExecCmd: ip", "ExecCmd: No.",
          "IpaddrFlushV4: ExecCmd error!", "IpaddrV4Set: IpaddrFlush error : -1!", "IpaddrSet: the IpaddrSet nRet : -1",
          "ApidIpaddrSet: IpaddrSet error!"}},
        {"set IPv6 fails everywhere",
         kSet,
         Set(10, {Inet6(9)}),
         {"IpaddrSet: pchIfaceName : eth0, wSinFamily : 10",
          "GetIpaddrV6: GetIpaddrV6 cmd : ip ip -6 addr show dev eth0",
          "GetIpaddrV6: read buf inet6 2001:db8::64/64 scope global ",
          "inet6 fe80::1/64 scope link ",
          "inet6 2001:db8::65/64 scope global dynamic ",
          "",
          "GetIpaddrV6: achScopeType = scope global ",
          "inet6 fe80::1/64 scope link ",
          "inet",
          "GetIpaddrV6: achScopeType = scope link ",
          "inet6 2001:db8::65/64 scope global ",
          "GetIpaddrV6: achScopeType = scope global dynamic ",
          "",
          "GetIpaddrV6: it's ra address, ip 2001:db8::65 ",
          "IpaddrDelV6: pchIfaceName : eth0",
          "IpaddrDelV6: IpaddrDelV6 achCmdBuf: ip ip -6 addr del 2001:db8::64/64 dev eth0",
          "ExecCmd: ip",
          "ExecCmd: No.",
          "IpaddrDelV6: ExecCmd error!",
          "IpaddrV6Set: IpaddrDelV6 del ipv6 error : -1! nIndex = 0",
          "IpaddrV6Set: ****skip link addr****",
          "IpaddrV6Set: ****skip ra addr****",
          "IpaddrAddV6: pchIfaceName : eth0",
          "IpaddrAddV6: IpaddrAddV6 achCmdBuf: ip ip -6 addr add 2001:db8::9/64 dev eth0",
          "ExecCmd: ip",
          "ExecCmd: No.",
          "IpaddrAddV6: ExecCmd error!",
          "IpaddrV6Set: IpaddrAddV6 error : -1!",
          "IpaddrAddV6: pchIfaceName : eth0",
          "IpaddrAddV6: IpaddrAddV6 achCmdBuf: ip ip -6 addr add 2001:db8::64/64 dev eth0",
          "IpaddrV6Set: ****skip link addr****",
          "IpaddrV6Set: ****skip ra addr****",
          "IpaddrSet: the IpaddrSet nRet : -1",
          "ApidIpaddrSet: IpaddrSet error!"}},
        {"set IPv6 after a failed read",
         kSet,
         Set(10, {}, "bad"),
         {"IpaddrSet: pchIfaceName : bad, wSinFamily : 10", "GetIpaddrV6: GetIpaddrV6 cmd : ip ip -6 addr show dev bad",
          "TesselExecCmdAndGetOutput: ip", "TesselExecCmdAndGetOutput: No.", "GetIpaddrV6: ExecCmdAndGetOutput error!",
          "IpaddrV6Set: IpaddrGet BackIpV4 error : -1!", "IpaddrSet: the IpaddrSet nRet : 0"}},
        {"set an unknown family",
         kSet,
         Set(3, {}),
         {"IpaddrSet: pchIfaceName : eth0, wSinFamily : 3", "IpaddrSet: the wSinFamily 3 is invalid!",
          "IpaddrSet: the IpaddrSet nRet : -1", "ApidIpaddrSet: IpaddrSet error!"}},
        {"set half a list", kSet, Set(2, {Inet(1)}).substr(0, 57), {"ApidIpaddrSet: the size is error:size=57"}},
        {"set the MAC",
         kMacSet,
         Mac("eth0"),
         {"MacaddrSet: pchIfaceName : eth0",
          "MacaddrSet: MacaddrSet achCmdBuf: ifconfig ifconfig eth0 hw ether 0:11:22:33:44:55"}},
        {"set the MAC fails",
         kMacSet,
         Mac("busy"),
         {"MacaddrSet: pchIfaceName : busy",
          "MacaddrSet: MacaddrSet achCmdBuf: ifconfig ifconfig busy hw ether 0:11:22:33:44:55", "ExecCmd: ifconfig",
          "ExecCmd: No.", "MacaddrSet: ExecCmd error!", "ApidMacaddrSet: MacaddrSet error!"}},
        {"get the MAC",
         kMacGet,
         Name("eth0"),
         {"MacaddrGet: MacaddrGet cmd : ip ip link show dev eth0", "MacaddrGet: mac : 02:0a:00:Ff:10:5",
          "MacaddrGet: pchMac : 2", "MacaddrGet: pchMac : a", "MacaddrGet: pchMac : 0", "MacaddrGet: pchMac : ff",
          "MacaddrGet: pchMac : 10", "MacaddrGet: pchMac : 5"}},
        {"no interface",
         kMacGet,
         Name("eth9"),
         {"MacaddrGet: MacaddrGet cmd : ip ip link show dev eth9", "TesselExecCmdAndGetOutput: ip",
          "TesselExecCmdAndGetOutput: No.", "MacaddrGet: ExecCmdAndGetOutput error!",
          "ApidMacaddrGet: MacaddrSet error!"}},
        {"0x22",
         kMacGet,
         Name("first22"),
         {"MacaddrGet: MacaddrGet cmd : ip ip link show dev first22", "MacaddrGet: mac : 22:0:0:0:0:1",
          "MacaddrGet: pchMac : 22", "MacaddrGet: strtol error", "ApidMacaddrGet: MacaddrSet error!"}},
        {"no Ethernet",
         kMacGet,
         Name("lo"),
         {"MacaddrGet: MacaddrGet cmd : ip ip link show dev lo", "MacaddrGet: FindStrMatchHead error!",
          "MacaddrGet: FindStrMatchHead : link/loopback 0", "ApidMacaddrGet: MacaddrSet error!"}},
    };
    LoggedLines log(5);
    for (const LoggedRequest& row : rows)
        CheckLog(row, tools, log);
}

}  // namespace
}  // namespace tessel::test
