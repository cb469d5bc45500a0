// Default gateways and the priorities of uplinks: the lines that are run and the answers.
#include "tessel/gateway.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tessel/priority.h"
#include "tests/support/conversation.h"
#include "tests/support/daemon.h"

namespace tessel::test {
namespace {

constexpr u32 kSet = 0x10F;
constexpr u32 kDel = 0x116;
constexpr u32 kGet = 0x110;
constexpr u32 kPrioritySet = 0x11C;
constexpr u32 kPriorityGet = 0x11D;

constexpr std::size_t kStatusBytes = 4;
constexpr std::size_t kGatewayBytes = 24;

TNetGateway Inet(u8 lastByte) {
    return {.wSinFamily = 2, .wReserved = 0, .abyAddr = {192, 168, 1, lastByte}};
}

TNetGateway Inet6(u8 lastByte) {
    return {.wSinFamily = 10, .wReserved = 0, .abyAddr = {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, lastByte}};
}

TNetGateway None(u16 family) {
    return {.wSinFamily = family, .wReserved = 0, .abyAddr = {}};
}

constexpr u32 kNoTable = 0xffffffff;  // the payload ends before the number

std::string Set(const TNetGateway& gateway, const char* name = "eth0", u32 table = kNoTable) {
    TNetGatewaySetReq request{.achDevName = {}, .tGateway = gateway, .dwTable = table};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request).substr(0, table == kNoTable ? 36 : 40));
}

std::string Of(u16 family, const char* name = "eth0", u32 table = kNoTable) {
    TNetGatewayReq request{.wSinFamily = family, .achDevName = {}, .dwTable = table};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request).substr(0, table == kNoTable ? 18 : 22));
}

std::string List(const std::vector<std::pair<const char*, i32>>& entries, u32 count) {
    TNetPrioParamList list{};
    list.dwNum = count;
    std::size_t index = 0;
    for (const auto& [name, metric] : entries) {
        strncpy(list.atPrio[index].achDevName, name, sizeof(list.atPrio[index].achDevName));
        list.atPrio[index++].nPriority = metric;
    }
    return std::string(Bytes(list));
}

std::string List(const std::vector<std::pair<const char*, i32>>& entries) {
    return List(entries, static_cast<u32>(entries.size()));
}

TEST(Gateway, SettingAndDeleting) {
    StandInTools tools({"ip"});
    tools.Answer("ip -6 route show dev eth0 default", "default via fe80::1 proto ra metric 1024 expires 1797sec\n");
    tools.Answer("ip -6 route del default dev gone", "RTNETLINK answers: No such process\n", 2);
    tools.Answer("ip -6 route del default dev bad", "RTNETLINK answers: Operation not permitted\n", 2);
    tools.Answer("ip -6 route del default dev gone table 9", "RTNETLINK answers: No such process\n", 2);
    tools.Answer("ip -4 route del default dev gone", "RTNETLINK answers: No such process\n", 2);
    tools.Answer("ip route add default via 192.168.1.9 dev eth0 metric 0", "RTNETLINK answers: File exists\n", 2);
    const Daemon daemon;
    const Conversation rows[] = {
        {"IPv4", kSet, Set(Inet(1)), {"ip route add default via 192.168.1.1 dev eth0 metric 0"}, 0, kStatusBytes},
        {"IPv4, no name", kSet, Set(Inet(1), ""), {"ip route add default via 192.168.1.1 metric 0"}, 0, kStatusBytes},
        {"IPv4, a table of 0 is the main one",
         kSet,
         Set(Inet(1), "eth0", 0),
         {"ip route add default via 192.168.1.1 dev eth0 metric 0"},
         0,
         kStatusBytes},
        {"IPv4, a table",
         kSet,
         Set(Inet(1), "eth0", 100),
         {"ip route add default via 192.168.1.1 dev eth0 metric 0 table 100"},
         0,
         kStatusBytes},
        {"IPv4, a table, no name",
         kSet,
         Set(Inet(1), "", 100),
         {"ip route add default via 192.168.1.1 metric 0 table 100"},
         0,
         kStatusBytes},
        {"IPv4, there already",
         kSet,
         Set(Inet(9)),
         {"ip route add default via 192.168.1.9 dev eth0 metric 0"},
         -1,
         kStatusBytes},
        {"the zero address deletes", kSet, Set(None(2)), {"ip -4 route del default dev eth0"}, 0, kStatusBytes},
        {"the zero address in a table is an address",
         kSet,
         Set(None(2), "eth0", 7),
         {"ip route add default via 0.0.0.0 dev eth0 metric 0 table 7"},
         0,
         kStatusBytes},
        {"IPv6 replaces",
         kSet,
         Set(Inet6(2)),
         {"ip -6 route show dev eth0 default", "ip -6 route replace default via fe80::2 dev eth0"},
         0,
         kStatusBytes},
        {"IPv6, learnt already", kSet, Set(Inet6(1)), {"ip -6 route show dev eth0 default"}, 0, kStatusBytes},
        {"IPv6 without a name", kSet, Set(Inet6(2), ""), {}, -1, kStatusBytes},
        {"IPv6, a table, no name",
         kSet,
         Set(Inet6(2), "", 5),
         {"ip -6 route add default via fe80::2 table 5"},
         0,
         kStatusBytes},
        {"IPv6, a table",
         kSet,
         Set(Inet6(2), "eth0", 5),
         {"ip -6 route add default via fe80::2 dev eth0 table 5"},
         0,
         kStatusBytes},
        {"the zero address deletes, IPv6", kSet, Set(None(10)), {"ip -6 route del default dev eth0"}, 0, kStatusBytes},
        {"an unknown family", kSet, Set(None(7)), {}, -1, kStatusBytes},
        {"an unknown family, a table", kSet, Set(None(7), "eth0", 5), {}, -1, kStatusBytes},
        {"two words in the name", kSet, Set(Inet(1), "eth0 x"), {}, -1, kStatusBytes},
        {"delete IPv4", kDel, Of(2), {"ip -4 route del default dev eth0"}, 0, kStatusBytes},
        {"delete IPv4, no name", kDel, Of(2, ""), {"ip -4 route del default"}, 0, kStatusBytes},
        {"delete IPv4, a table", kDel, Of(2, "", 100), {"ip -4 route del default table 100"}, 0, kStatusBytes},
        {"delete IPv6, no name", kDel, Of(10, ""), {"ip -6 route flush default"}, 0, kStatusBytes},
        {"delete IPv6, a table", kDel, Of(10, "", 100), {"ip -6 route flush default table 100"}, 0, kStatusBytes},
        {"an absent IPv4 route", kDel, Of(2, "gone"), {"ip -4 route del default dev gone"}, -1, kStatusBytes},
        {"an absent IPv6 route", kDel, Of(10, "gone"), {"ip -6 route del default dev gone"}, 0, kStatusBytes},
        {"an absent IPv6 route of a table",
         kDel,
         Of(10, "gone", 9),
         {"ip -6 route del default dev gone table 9"},
         -1,
         kStatusBytes},
        {"another failure", kDel, Of(10, "bad"), {"ip -6 route del default dev bad"}, -1, kStatusBytes},
        {"delete an unknown family", kDel, Of(7), {}, 0, kStatusBytes},
        {"delete an unknown family, a table", kDel, Of(7, "eth0", 9), {}, 0, kStatusBytes},
    };
    for (const Conversation& row : rows)
        Check(row, tools);
}

TEST(Gateway, Reading) {
    StandInTools tools({"ip"});
    tools.Answer("ip -4 route show dev eth0 default",
                 "default via 192.168.1.1 metric 10 \ndefault via 192.168.1.2 metric 20 \n");
    tools.Answer("ip -4 route show dev bare default", "default via 192.168.1.1\n");
    tools.Answer("ip -4 route show dev bad default", "Cannot find device \"bad\"\n", 1);
    tools.Answer("ip -6 route show dev eth0 default", "default via fe80::1 proto ra metric 1024 expires 1797sec\n");
    tools.Answer("ip -6 route show default table 5", "default via fe80::2 dev eth0 expires 5sec\n");
    const Daemon daemon;
    const struct {
        std::string request;
        const char* line;
        i32 status;
        TNetGateway gateway;
    } rows[] = {
        {Of(2), "ip -4 route show dev eth0 default", 0, Inet(1)},
        {Of(2, "bare"), "ip -4 route show dev bare default", 0, Inet(1)},
        {Of(2, ""), "ip -4 route show default", 0, None(2)},
        {Of(2, "bad"), "ip -4 route show dev bad default", -1, None(0)},
        {Of(2, "eth0", 5), "ip -4 route show dev eth0 default table 5", 0, None(2)},
        {Of(10), "ip -6 route show dev eth0 default", 11111, Inet6(1)},
        {Of(10, "", 5), "ip -6 route show default table 5", 0, Inet6(2)},
        {Of(10, "eth1"), "ip -6 route show dev eth1 default", 0, None(10)},
    };
    for (const auto& row : rows) {
        Check({row.line, kGet, row.request, {row.line}, row.status, kGatewayBytes}, tools);
        EXPECT_EQ(*Request(kGet, row.request),
                  Bytes(TNetGatewayGetReply{.nResult = row.status, .tGateway = row.gateway}))
            << row.line;
        (void)tools.TakeRuns();
    }
    Check({"an unknown family", kGet, Of(7), {}, 0, kGatewayBytes}, tools);
}

std::vector<std::string> Shows(const std::vector<std::string>& names) {
    std::vector<std::string> lines;
    for (const std::string& name : names)
        lines.push_back("ip -4 route show dev " + name + " default");
    return lines;
}

std::vector<std::string> Joined(std::vector<std::string> lines, const std::vector<std::string>& more) {
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

TEST(Priority, TheFirstListFixesTheInterfaces) {
    StandInTools tools({"ip"});
    tools.Answer("ip -4 route show dev eth0 default", "default via 192.168.1.1 \n");
    tools.Answer("ip -4 route show dev eth1 default", "default via 192.168.1.2 metric 7 \n");
    tools.Answer("ip -4 route show dev eth3 default", "default via 192.168.1.3 metric 30 \n");
    tools.Answer("ip -4 route del default dev eth1", "", 2);
    const Daemon daemon;
    const std::vector<std::string> all = Shows({"eth0", "eth1", "eth2", "eth3"});
    const auto list = [](i32 eth0, i32 eth1) {
        return List({{"eth0", eth0}, {"eth1", eth1}, {"eth2", 25}, {"eth3", 30}});
    };
    const Conversation rows[] = {
        {"off: tables look the metric up, the main one does not; there is none yet",
         kSet,
         Set(Inet(1), "eth0", 100),
         {"ip route add default via 192.168.1.1 dev eth0 metric 0 table 100"},
         0,
         kStatusBytes},
        {"all deletions come before all additions, and failures change nothing of that", kPrioritySet, list(10, 20),
         Joined(all, {"ip -4 route del default dev eth0", "ip -4 route del default dev eth1",
                      "ip route add default via 192.168.1.1 dev eth0 metric 10",
                      "ip route add default via 192.168.1.2 dev eth1 metric 20"}),
         0, kStatusBytes},
        {"a gateway carries its interface's metric from now on",
         kSet,
         Set(Inet(9), "eth1"),
         {"ip route add default via 192.168.1.9 dev eth1 metric 20"},
         0,
         kStatusBytes},
        {"but not without a name", kSet, Set(Inet(9), ""), {"ip route add default via 192.168.1.9 metric 0"}, 0, 4},
        {"in a table as well",
         kSet,
         Set(Inet(9), "eth1", 3),
         {"ip route add default via 192.168.1.9 dev eth1 metric 20 table 3"},
         0,
         kStatusBytes},
        {"a name that is not in the table",
         kSet,
         Set(Inet(9), "eth"),
         {"ip route add default via 192.168.1.9 dev eth metric 0"},
         0,
         kStatusBytes},
        {"others are not taken, a shorter name changes the first that begins with it", kPrioritySet,
         List({{"ppp0", 5}, {"eth3", 30}, {"eth", 0}, {"eth1", 7}}), all, 0, kStatusBytes},
        {"right already", kPrioritySet, list(0, 7), all, 0, kStatusBytes},
    };
    for (const Conversation& row : rows)
        Check(row, tools);
    EXPECT_EQ(*Request(kPriorityGet, ""), list(0, 7));
}

TEST(Priority, HostileLists) {
    StandInTools tools({"ip"});
    const Daemon daemon;
    EXPECT_EQ(*Request(kPriorityGet, ""), List({}));
    // A count beyond the array, names without an end or of two words, a gap.
    const std::vector<std::pair<const char*, i32>> entries = {{"sixteencharacter", 1},
                                                              {"", 2},
                                                              {"two words", 3},
                                                              {"d", 4},
                                                              {"e", 5},
                                                              {"f", 6},
                                                              {"g", 7},
                                                              {"h", 8},
                                                              {"i", 9},
                                                              {"j", 10}};
    EXPECT_EQ(RequestStatus(kPrioritySet, List(entries, 0x80000000)), 0);
    EXPECT_THAT(tools.TakeRuns(),
                testing::ElementsAreArray(Shows({"sixteencharacter", "d", "e", "f", "g", "h", "i", "j"})));
    EXPECT_EQ(*Request(kPriorityGet, ""), List(entries, 9));
    EXPECT_EQ(RequestStatus(kPrioritySet, List(entries, 0xffffffff)), 0);
    EXPECT_EQ(RequestStatus(kPrioritySet, "\x05"), 0) << "five empty entries, of which each begins every name";
}

}  // namespace
}  // namespace tessel::test
