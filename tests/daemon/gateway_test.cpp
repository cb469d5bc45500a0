// Default gateways and the priorities of uplinks: the lines that are run, the answers, and the log.
#include "route/gateway.h"

#include <cstring>

#include "route/priority_table.h"
#include "tests/support/conversation.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

constexpr u32 kSet = 0x10F;
constexpr u32 kDel = 0x116;
constexpr u32 kGet = 0x110;
constexpr u32 kPrioritySet = 0x11C;
constexpr u32 kPriorityGet = 0x11D;

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
    NotedTools tools;
    tools.Answer("ip -6 route show dev eth0 default", "default via fe80::1 proto ra metric 1024 expires 1797sec\n");
    tools.Answer("ip -6 route show dev longer default", "default via fe80::12 metric 1024\n");
    tools.Answer("ip -6 route del default dev gone", "RTNETLINK answers: No such process\n", 2);
    tools.Answer("ip -6 route del default dev bad", "RTNETLINK answers: Operation not permitted\n", 2);
    tools.Answer("ip -6 route del default dev gone table 9", "RTNETLINK answers: No such process\n", 2);
    tools.Answer("ip -4 route del default dev gone", "RTNETLINK answers: No such process\n", 2);
    tools.Answer("ip route add default via 192.168.1.9 dev eth0 metric 0", "RTNETLINK answers: File exists\n", 2);
    const Transcript rows[] = {
        {"IPv4", kSet, Set(Inet(1)), {"ip route add default via 192.168.1.1 dev eth0 metric 0"}, 0},
        {"IPv4, no name", kSet, Set(Inet(1), ""), {"ip route add default via 192.168.1.1 metric 0"}, 0},
        {"IPv4, a table of 0 is the main one",
         kSet,
         Set(Inet(1), "eth0", 0),
         {"ip route add default via 192.168.1.1 dev eth0 metric 0"},
         0},
        {"IPv4, a table",
         kSet,
         Set(Inet(1), "eth0", 100),
         {"ip route add default via 192.168.1.1 dev eth0 metric 0 table 100"},
         0},
        {"IPv4, a table, no name",
         kSet,
         Set(Inet(1), "", 100),
         {"ip route add default via 192.168.1.1 metric 0 table 100"},
         0},
        {"IPv4, there already", kSet, Set(Inet(9)), {"ip route add default via 192.168.1.9 dev eth0 metric 0"}, -1},
        {"the zero address deletes", kSet, Set(None(2)), {"ip -4 route del default dev eth0"}, 0},
        {"the zero address in a table is an address",
         kSet,
         Set(None(2), "eth0", 7),
         {"ip route add default via 0.0.0.0 dev eth0 metric 0 table 7"},
         0},
        {"IPv6 replaces",
         kSet,
         Set(Inet6(2)),
         {"ip -6 route show dev eth0 default", "ip -6 route replace default via fe80::2 dev eth0"},
         0},
        {"IPv6, learnt already", kSet, Set(Inet6(1)), {"ip -6 route show dev eth0 default"}, 0},
        {"IPv6 without a name", kSet, Set(Inet6(2), ""), {}, -1},
        {"IPv6, a table, no name", kSet, Set(Inet6(2), "", 5), {"ip -6 route add default via fe80::2 table 5"}, 0},
        {"IPv6, a table", kSet, Set(Inet6(2), "eth0", 5), {"ip -6 route add default via fe80::2 dev eth0 table 5"}, 0},
        {"the zero address deletes, IPv6", kSet, Set(None(10)), {"ip -6 route del default dev eth0"}, 0},
        {"an unknown family", kSet, Set(None(7)), {}, -1},
        {"an unknown family, a table", kSet, Set(None(7), "eth0", 5), {}, -1},
        {"IPv6, through a gateway of which this one's text is a part",
         kSet,
         Set(Inet6(1), "longer"),
         {"ip -6 route show dev longer default"},
         0},
        {"two words in the name", kSet, Set(Inet(1), "eth0 x"), {}, -1},
        {"an option", kSet, Set(Inet(1), "-V", 5), {}, -1},
        {"an option, IPv6", kSet, Set(Inet6(1), "-V"), {}, -1},
        {"delete an option", kDel, Of(2, "-V"), {}, -1},
        {"delete an option, IPv6", kDel, Of(10, "-V"), {}, -1},
        {"delete IPv4", kDel, Of(2), {"ip -4 route del default dev eth0"}, 0},
        {"delete IPv4, no name", kDel, Of(2, ""), {"ip -4 route del default"}, 0},
        {"delete IPv4, a table", kDel, Of(2, "", 100), {"ip -4 route del default table 100"}, 0},
        {"delete IPv6, no name", kDel, Of(10, ""), {"ip -6 route flush default"}, 0},
        {"delete IPv6, a table", kDel, Of(10, "", 100), {"ip -6 route flush default table 100"}, 0},
        {"an absent IPv4 route", kDel, Of(2, "gone"), {"ip -4 route del default dev gone"}, -1},
        {"an absent IPv6 route", kDel, Of(10, "gone"), {"ip -6 route del default dev gone"}, 0},
        {"an absent IPv6 route of a table", kDel, Of(10, "gone", 9), {"ip -6 route del default dev gone table 9"}, -1},
        {"another failure", kDel, Of(10, "bad"), {"ip -6 route del default dev bad"}, -1},
        {"delete an unknown family", kDel, Of(7), {}, 0},
        {"delete an unknown family, a table", kDel, Of(7, "eth0", 9), {}, 0},
    };
    for (const Transcript& row : rows)
        tools.Check(row);
}

TEST(Gateway, Reading) {
    NotedTools tools;
    tools.Answer("ip -4 route show dev eth0 default",
                 "default via 192.168.1.1 metric 10 \ndefault via 192.168.1.2 metric 20 \n");
    tools.Answer("ip -4 route show dev bare default", "default via 192.168.1.1\n");
    tools.Answer("ip -4 route show dev bad default", "Cannot find device \"bad\"\n", 1);
    tools.Answer("ip -6 route show dev eth0 default", "default via fe80::1 proto ra metric 1024 expires 1797sec\n");
    tools.Answer("ip -6 route show default table 5", "default via fe80::2 dev eth0 expires 5sec\n");
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
        tools.Check({row.line, kGet, row.request, {row.line}, row.status});
        EXPECT_EQ(*tools.Request(kGet, row.request),
                  Bytes(TNetGatewayGetReply{.nResult = row.status, .tGateway = row.gateway}))
            << row.line;
        (void)tools.TakeRuns();
    }
    tools.Check({"an unknown family", kGet, Of(7), {}, 0});
    tools.Check({"an option", kGet, Of(2, "-V"), {}, -1});
}

// Priority routing as it is when the daemon starts.
void ForgetPriorities() {
    g_nRoutedetectE = 0;
    for (u32 i = 0; i < TESSEL_PRIORITIES_MAX; ++i)
        StorePriority(i, {});
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
    ForgetPriorities();
    NotedTools tools;
    tools.Answer("ip -4 route show dev eth0 default", "default via 192.168.1.1 \n");
    tools.Answer("ip -4 route show dev eth1 default", "default via 192.168.1.2 metric 7 \n");
    tools.Answer("ip -4 route show dev eth3 default", "default via 192.168.1.3 metric 30 \n");
    tools.Answer("ip -4 route del default dev eth1", "", 2);
    const std::vector<std::string> all = Shows({"eth0", "eth1", "eth2", "eth3"});
    const auto list = [](i32 eth0, i32 eth1) {
        return List({{"eth0", eth0}, {"eth1", eth1}, {"eth2", 25}, {"eth3", 30}});
    };
    const Transcript rows[] = {
        {"off: tables look the metric up, the main one does not; there is none yet",
         kSet,
         Set(Inet(1), "eth0", 100),
         {"ip route add default via 192.168.1.1 dev eth0 metric 0 table 100"},
         0},
        {"all deletions come before all additions, even when one fails", kPrioritySet, list(10, 20),
         Joined(all, {"ip -4 route del default dev eth0", "ip -4 route del default dev eth1",
                      "ip route add default via 192.168.1.1 dev eth0 metric 10",
                      "ip route add default via 192.168.1.2 dev eth1 metric 20"}),
         0},
        {"a gateway carries its interface's metric from now on",
         kSet,
         Set(Inet(9), "eth1"),
         {"ip route add default via 192.168.1.9 dev eth1 metric 20"},
         0},
        {"but not without a name", kSet, Set(Inet(9), ""), {"ip route add default via 192.168.1.9 metric 0"}, 0},
        {"in a table as well",
         kSet,
         Set(Inet(9), "eth1", 3),
         {"ip route add default via 192.168.1.9 dev eth1 metric 20 table 3"},
         0},
        {"a name that is not in the table",
         kSet,
         Set(Inet(9), "eth"),
         {"ip route add default via 192.168.1.9 dev eth metric 0"},
         0},
        {"unknown names are ignored, a shorter name changes the first that begins with it", kPrioritySet,
         List({{"ppp0", 5}, {"eth3", 30}, {"eth", 0}, {"eth1", 7}}), all, 0},
        {"right already", kPrioritySet, list(0, 7), all, 0},
    };
    for (const Transcript& row : rows)
        tools.Check(row);
    EXPECT_EQ(*tools.Request(kPriorityGet, ""), list(0, 7));
}

TEST(Priority, AMetricIsTheFirstOfTheListingAndOfAGateway) {
    NotedTools tools;
    TNetGatewayMetric record{};
    memcpy(record.achDevName, "eth0", 5);
    const struct {
        const char* output;
        i32 metric;
        TNetGateway gateway;
    } rows[] = {
        {"default via 192.168.1.1 metric 7 \ndefault via 192.168.1.2 metric 8 \n", 7, Inet(1)},
        {"default via 192.168.1.1 \ndefault via 192.168.1.2 metric 8 \n", 8, Inet(1)},
        {"default via 192.168.1.1 \n", 0, Inet(1)},
        {"blackhole default metric 9 \n", 0, None(2)},
        {"", 0, None(2)},
    };
    for (const auto& row : rows) {
        tools.Answer("ip -4 route show dev eth0 default", row.output);
        record.nMetric = 99;
        EXPECT_EQ(GetGateWayV4WithMetric(&record), 0) << row.output;
        EXPECT_EQ(record.nMetric, row.metric) << row.output;
        EXPECT_EQ(Bytes(record.tGateway), Bytes(row.gateway)) << row.output;
    }
}

TEST(Priority, ANameThatIsThereTwiceHasTheLastMetric) {
    ForgetPriorities();
    NotedTools tools;
    EXPECT_EQ(PriorityMetricGet("eth0"), -1);
    EXPECT_EQ(tools.Status(kPrioritySet, List({{"eth0", 1}, {"eth1", 2}, {"eth0", 3}})), 0);
    EXPECT_EQ(PriorityMetricGet("eth0"), 3);
    EXPECT_EQ(PriorityMetricGet("eth"), 0);
    (void)tools.TakeRuns();
    tools.Check(
        {"so has its gateway", kSet, Set(Inet(1)), {"ip route add default via 192.168.1.1 dev eth0 metric 3"}, 0});
}

TEST(Priority, SwitchedOffIsWithoutMetricInTheMainTableAlone) {
    ForgetPriorities();
    StorePriority(0, {.achDevName = "eth0", .nPriority = 10});
    NotedTools tools;
    tools.Check({"off", kSet, Set(Inet(1)), {"ip route add default via 192.168.1.1 dev eth0 metric 0"}, 0});
    tools.Check({"a table",
                 kSet,
                 Set(Inet(1), "eth0", 7),
                 {"ip route add default via 192.168.1.1 dev eth0 metric 10 table 7"},
                 0});
    g_nRoutedetectE = 1;
    tools.Check({"on", kSet, Set(Inet(1)), {"ip route add default via 192.168.1.1 dev eth0 metric 10"}, 0});
    tools.Check({"no name", kSet, Set(Inet(1), ""), {"ip route add default via 192.168.1.1 metric 0"}, 0});
}

TEST(Priority, AListThatIsEmptyOrCutShortFixesNothing) {
    ForgetPriorities();
    NotedTools tools;
    const std::string two = List({{"eth0", 10}, {"eth1", 20}});
    const std::string full = List(std::vector<std::pair<const char*, i32>>(10, {"eth0", 1}), 11);
    constexpr std::size_t kTwoEntries = 4 + 2 * 20;
    for (std::size_t bytes = 0; bytes < kTwoEntries; ++bytes)
        EXPECT_EQ(tools.Status(kPrioritySet, two.substr(0, bytes)), 0) << bytes;
    EXPECT_EQ(tools.Status(kPrioritySet, full.substr(0, 203)), 0) << "ten count, and one byte is missing";
    EXPECT_EQ(tools.Status(kPrioritySet, List({})), 0);
    EXPECT_EQ(*tools.Request(kPriorityGet, ""), List({}));
    EXPECT_EQ(g_nRoutedetectE, 0);
    EXPECT_THAT(tools.TakeRuns(), testing::ElementsAre());

    tools.Check({"nothing is missing", kPrioritySet, two.substr(0, kTwoEntries), Shows({"eth0", "eth1"}), 0});
    EXPECT_EQ(*tools.Request(kPriorityGet, ""), two);
    const std::string other = List({{"eth0", 30}, {"eth1", 40}});
    tools.Check({"a later one that is cut", kPrioritySet, other.substr(0, kTwoEntries - 1), {}, 0});
    tools.Check({"a later one without entries", kPrioritySet, List({}), Shows({"eth0", "eth1"}), 0});
    EXPECT_EQ(*tools.Request(kPriorityGet, ""), two);
    tools.Check({"a count beyond the array is ten", kPrioritySet, full, Shows({"eth0", "eth1"}), 0});
}

TEST(Priority, HostileLists) {
    ForgetPriorities();
    NotedTools tools;
    EXPECT_EQ(*tools.Request(kPriorityGet, ""), List({}));
    // A count beyond the array, names without an end, of two words or an option, a gap that holds something.
    const auto entries = [](i32 first, i32 inTheGap) {
        return std::vector<std::pair<const char*, i32>>{{"sixteencharacter", first},
                                                        {"", inTheGap},
                                                        {"two words", 3},
                                                        {"-V", 4},
                                                        {"e", 5},
                                                        {"f", 6},
                                                        {"g", 7},
                                                        {"h", 8},
                                                        {"i", 9},
                                                        {"j", 10}};
    };
    std::string list = List(entries(1, 2), 0x80000000);
    list.replace(4 + 4 * 20 + 2, 5, "stale");  // behind the name "e"
    tools.Check({"first", kPrioritySet, list, Shows({"sixteencharacter", "e", "f", "g", "h", "i", "j"}), 0});
    EXPECT_EQ(*tools.Request(kPriorityGet, ""), List(entries(1, 0), 9)) << "gaps and what is behind a name are zero";
    EXPECT_EQ(tools.Status(kPrioritySet, List(entries(1, 2), 0xffffffff)), 0);
    EXPECT_EQ(*tools.Request(kPriorityGet, ""), List(entries(2, 0), 9)) << "every name begins with the empty one";
}

TEST(Gateway, IsLogged) {
    NotedTools tools;
    tools.Answer("ip -4 route show dev eth0 default", "default via 192.168.1.1 metric 10");
    tools.Answer("ip -6 route show dev eth0 default", "default via fe80::1 proto ra expires 9sec");
    for (const char* line :
         {"ip route add default via 192.168.1.9 dev eth0 metric 0", "ip -6 route replace default via fe80::2 dev eth0",
          "ip -6 route del default dev gone", "ip -4 route del default dev gone", "ip -4 route show dev gone default",
          "ip -6 route show dev gone default", "ip -6 route del default dev gone table 9"}) {
        tools.Answer(line, "RTNETLINK answers: No such process", 2);
    }
    const LoggedRequest rows[] = {
        {"without a name",
         kSet,
         Set(Inet(1), ""),
         {"ApidGatewaySet: the achDevName is empty!",
          "GatewaySetV4: GatewaySetV4 achCmdBuf: ip ip route add default via 192.168.1.1 metric 0"}},
        {"there already",
         kSet,
         Set(Inet(9)),
         {"ApidGatewaySet: the achDevName is eth0!",
          "GatewaySetV4: GatewaySetV4 achCmdBuf: ip ip route add default via 192.168.1.9 dev eth0 metric 0",
          "ExecCmd: ip", "ExecCmd: RTNETLINK answers: No such process", "GatewaySetV4: ExecCmd error!",
          "ApidGatewaySet: GatewaySet error!"}},
        {"an option",
         kSet,
         Set(Inet(1), "-V"),
         {"ApidGatewaySet: the achDevName is -V!", "GatewaySetV4: the text [-V] is invalid!",
          "ApidGatewaySet: GatewaySet error!"}},
        {"the zero address",
         kSet,
         Set(None(2)),
         {"ApidGatewaySet: the achDevName is eth0!", "GatewaySet: remove the ipv4 gateway!",
          "DelGateWayV4: GatewaySetV4 achCmdBuf: ip ip -4 route del default dev eth0"}},
        {"the zero address, an absent route",
         kSet,
         Set(None(10), "gone"),
         {"ApidGatewaySet: the achDevName is gone!", "GatewaySet: remove the ipv6 gateway!",
          "DelGateWayV6: GatewaySetV6 achCmdBuf: ip ip -6 route del default dev gone", "TesselExecCmdAndGetOutput: ip",
          "TesselExecCmdAndGetOutput: RTNETLINK answers: No such process", "DelGateWayV6: ExecCmd error!"}},
        {"an unknown family",
         kSet,
         Set(None(7)),
         {"ApidGatewaySet: the achDevName is eth0!", "GatewaySet: GatewaySet wSinFamily 7 is invalid!",
          "ApidGatewaySet: GatewaySet error!"}},
        {"IPv6, learnt already",
         kSet,
         Set(Inet6(1)),
         {"ApidGatewaySet: the achDevName is eth0!", "GatewaySetV6: pchIfaceName : eth0",
          "CheckGateWay: GetGateWayV6 cmd : ip ip -6 route show dev eth0 default",
          "CheckGateWay: found gateway fe80::1", "GatewaySetV6: gateway fe80::1 maybe has been configed by ra"}},
        {"IPv6 fails",
         kSet,
         Set(Inet6(2)),
         {"ApidGatewaySet: the achDevName is eth0!", "GatewaySetV6: pchIfaceName : eth0",
          "CheckGateWay: GetGateWayV6 cmd : ip ip -6 route show dev eth0 default",
          "GatewaySetV6: GatewaySetV6 achCmdBuf: ip ip -6 route replace default via fe80::2 dev eth0", "ExecCmd: ip",
          "ExecCmd: RTNETLINK answers: No such process", "GatewaySetV6: ExecCmd error!",
          "ApidGatewaySet: GatewaySet error!"}},
        {"IPv6 without a name",
         kSet,
         Set(Inet6(2), ""),
         {"ApidGatewaySet: the achDevName is empty!", "GatewaySetV6:  pchIfaceName is null!",
          "ApidGatewaySet: GatewaySet error!"}},
        {"IPv6, unreadable",
         kSet,
         Set(Inet6(2), "gone"),
         {"ApidGatewaySet: the achDevName is gone!", "GatewaySetV6: pchIfaceName : gone",
          "CheckGateWay: GetGateWayV6 cmd : ip ip -6 route show dev gone default", "TesselExecCmdAndGetOutput: ip",
          "TesselExecCmdAndGetOutput: RTNETLINK answers: No such process", "CheckGateWay: ExecCmdAndGetOutput error!",
          "GatewaySetV6: GatewaySetV6 achCmdBuf: ip ip -6 route replace default via fe80::2 dev gone"}},
        {"IPv6, a table",
         kSet,
         Set(Inet6(2), "eth1", 5),
         {"ApidGatewaySet: the achDevName is eth1!",
          "GatewaySetV6: GatewaySetV6 achCmdBuf: ip ip -6 route add default via fe80::2 dev eth1 table 5"}},
        {"delete fails",
         kDel,
         Of(2, "gone"),
         {"ApidGatewayDel: the achDevName is gone!",
          "DelGateWayV4: GatewaySetV4 achCmdBuf: ip ip -4 route del default dev gone", "ExecCmd: ip",
          "ExecCmd: RTNETLINK answers: No such process", "DelGateWayV4: ExecCmd error!",
          "ApidGatewayDel: GatewaySet error!"}},
        {"delete IPv6",
         kDel,
         Of(10, ""),
         {"ApidGatewayDel: the achDevName is empty!",
          "DelGateWayV6: GatewaySetV6 achCmdBuf: ip ip -6 route flush default"}},
        {"delete IPv6 fails",
         kDel,
         Of(10, "gone", 9),
         {"ApidGatewayDel: the achDevName is gone!",
          "DelGateWayV6: GatewaySetV6 achCmdBuf: ip ip -6 route del default dev gone table 9", "ExecCmd: ip",
          "ExecCmd: RTNETLINK answers: No such process", "DelGateWayV6: ExecCmd error!",
          "ApidGatewayDel: GatewaySet error!"}},
        {"delete an unknown family",
         kDel,
         Of(7),
         {"ApidGatewayDel: the achDevName is eth0!", "GatewayDel: the wSinFamily 7 is not supportted!"}},
        {"get",
         kGet,
         Of(2),
         {"ApidGatewayGet: the achDevName is eth0!",
          "GetGateWayV4: GetGateWayV4 cmd : ip ip -4 route show dev eth0 default"}},
        {"get fails",
         kGet,
         Of(2, "gone"),
         {"ApidGatewayGet: the achDevName is gone!",
          "GetGateWayV4: GetGateWayV4 cmd : ip ip -4 route show dev gone default", "TesselExecCmdAndGetOutput: ip",
          "TesselExecCmdAndGetOutput: RTNETLINK answers: No such process", "GetGateWayV4: ExecCmdAndGetOutput error!",
          "ApidGatewayGet: GatewayGet error!"}},
        {"get a learnt one",
         kGet,
         Of(10),
         {"ApidGatewayGet: the achDevName is eth0!",
          "GetGateWayV6Ex: GetGateWayV6 cmd : ip ip -6 route show dev eth0 default",
          "ApidGatewayGet: GatewayGet error!"}},
        {"get from a table",
         kGet,
         Of(10, "", 5),
         {"ApidGatewayGet: the achDevName is empty!",
          "GetGateWayV6: GetGateWayV6 cmd : ip ip -6 route show default table 5"}},
        {"get an unknown family",
         kGet,
         Of(7),
         {"ApidGatewayGet: the achDevName is eth0!", "GatewayGet: wSinFamily 7 is not suypportted!", "!"}},
    };
    LoggedLines log(5);
    for (const LoggedRequest& row : rows)
        CheckLog(row, tools, log);
    EXPECT_EQ(GetGateWayV4("eth0", nullptr), -1);
    EXPECT_EQ(CheckGateWay(nullptr, "fe80::1"), -1);
    EXPECT_THAT(TakeLines(log), testing::ElementsAre("GetGateWayV4: pchIfaceName or ptNetIfaceIp is NULL!",
                                                     "CheckGateWay: pchGateWay NULL!"));
}

TEST(Priority, IsLogged) {
    ForgetPriorities();
    NotedTools tools;
    tools.Answer("ip -4 route show dev eth0 default", "default via 192.168.1.1 metric 7");
    tools.Answer("ip -4 route del default dev eth0", "No.", 2);
    const LoggedRequest rows[] = {
        {"empty", kPrioritySet, List({}), {"ApidPrioritySet: the list is empty!"}},
        {"cut short", kPrioritySet, List({{"eth0", 10}}).substr(0, 23), {"ApidPrioritySet: the size is error:size=23"}},
        {"first",
         kPrioritySet,
         List({{"eth0", 10}}),
         {"ApidPrioritySet: interface eth0, priority 10", "ActivePriority: active the priority rule",
          "ActivePriority: interface eth0 exist gateway , old metric 7, new metric 10",
          "DelGateWayV4: GatewaySetV4 achCmdBuf: ip ip -4 route del default dev eth0", "ExecCmd: ip", "ExecCmd: No.",
          "DelGateWayV4: ExecCmd error!", "ActivePriority: del original eth0 gateway",
          "GatewaySetV4: GatewaySetV4 achCmdBuf: ip ip route add default via 192.168.1.1 dev eth0 metric 10",
          "ActivePriority: add eth0 gateway with new metric 10"}},
        {"later",
         kPrioritySet,
         List({{"ppp0", 1}, {"eth", 7}}),
         {"ApidPrioritySet: ppp0 not found", "ApidPrioritySet: interface eth0 priority has been changed, from 10 to 7",
          "ActivePriority: active the priority rule"}},
        {"get", kPriorityGet, "", {"ApidPriorityGet: interface eth0, priority 7"}},
    };
    LoggedLines log(4);
    for (const LoggedRequest& row : rows)
        CheckLog(row, tools, log);
}

}  // namespace
}  // namespace tessel::test
