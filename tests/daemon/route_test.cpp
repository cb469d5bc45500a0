// Static routes, tables and rules: the lines that are run and the answers.
#include "route/route.h"

#include <arpa/inet.h>

#include <cstring>

#include "route/route_list.h"
#include "tests/support/conversation.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

constexpr u32 kAdd = 0x10B;
constexpr u32 kDel = 0x10D;
constexpr u32 kGetAll = 0x113;
constexpr u32 kMetric = 0x114;
constexpr u32 kTableAdd = 0x120;
constexpr u32 kTableDel = 0x121;
constexpr u32 kRuleAdd = 0x123;
constexpr u32 kRuleDel = 0x124;

TNetGateway Address(const char* text) {
    TNetGateway address{};
    address.wSinFamily = strchr(text, ':') != nullptr ? 10 : 2;
    u8 bytes[16] = {};
    inet_pton(address.wSinFamily, text, bytes);
    memcpy(address.abyAddr, bytes, sizeof(bytes));
    return address;
}

TNetIpRouteParam Route(const char* destination, i32 prefixLength, const char* gateway, i32 metric,
                       const char* name = "") {
    TNetIpRouteParam route{};
    strncpy(route.achDevName, name, sizeof(route.achDevName));
    route.tDestIpNet = Address(destination);
    route.tGateway = Address(gateway);
    route.nPrefixLen = prefixLength;
    route.nMetric = metric;
    return route;
}

constexpr u32 kNoTable = 0xffffffff;  // the payload ends before the number

std::string In(const char* name, const TNetIpRouteParam& route, u32 table = kNoTable) {
    TNetRouteReq request{.achDevName = {}, .tRoute = route, .dwTable = table};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request).substr(0, table == kNoTable ? 80 : 84));
}

std::string Rule(const char* source, i32 pref) {
    TNetIpRule rule{};
    rule.tSrcIpNet = Address(source);
    rule.nPrefixLen = 24;
    rule.nPref = pref;
    rule.nTable = 100;
    rule.nFwmark = 7;
    return std::string(Bytes(rule));
}

template <typename Number>
std::string Of(Number number) {
    return std::string(Bytes(number));
}

TEST(Route, OneIsAddedAndDeleted) {
    NotedTools tools;
    tools.Answer("ip route add 10.9.0.0/16 via 192.168.1.254 metric 5", "RTNETLINK answers: File exists\n", 2);
    const TNetIpRouteParam inet = Route("10.1.0.0", 16, "192.168.1.254", 5, "ignored");
    const TNetIpRouteParam inet6 = Route("2001:db8::", 32, "fe80::1", 6);
    TNetIpRouteParam mixed = inet;
    mixed.tGateway = inet6.tGateway;
    TNetIpRouteParam unknown = inet;
    unknown.tDestIpNet.wSinFamily = unknown.tGateway.wSinFamily = 7;
    const Transcript rows[] = {
        {"IPv4", kAdd, In("eth0", inet), {"ip route add 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5"}, 0},
        {"no name", kAdd, In("", inet), {"ip route add 10.1.0.0/16 via 192.168.1.254 metric 5"}, 0},
        {"a table of 0", kAdd, In("", inet, 0), {"ip route add 10.1.0.0/16 via 192.168.1.254 metric 5"}, 0},
        {"a table",
         kAdd,
         In("eth0", inet, 100),
         {"ip route add 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5 table 100"},
         0},
        {"a table, no name",
         kAdd,
         In("", inet, 100),
         {"ip route add 10.1.0.0/16 via 192.168.1.254 metric 5 table 100"},
         0},
        {"IPv6", kAdd, In("eth0", inet6), {"ip -6 route add 2001:db8::/32 via fe80::1 dev eth0 metric 6"}, 0},
        {"IPv6, a table, no name",
         kAdd,
         In("", inet6, 9),
         {"ip -6 route add 2001:db8::/32 via fe80::1 metric 6 table 9"},
         0},
        {"there already",
         kAdd,
         In("", Route("10.9.0.0", 16, "192.168.1.254", 5)),
         {"ip route add 10.9.0.0/16 via 192.168.1.254 metric 5"},
         -1},
        {"deletion names no metric",
         kDel,
         In("eth0", inet),
         {"ip route del 10.1.0.0/16 via 192.168.1.254 dev eth0"},
         0},
        {"delete, no name", kDel, In("", inet), {"ip route del 10.1.0.0/16 via 192.168.1.254"}, 0},
        {"delete, a table",
         kDel,
         In("eth0", inet, 100),
         {"ip route del 10.1.0.0/16 via 192.168.1.254 dev eth0 table 100"},
         0},
        {"delete IPv6, a table, no name",
         kDel,
         In("", inet6, 9),
         {"ip -6 route del 2001:db8::/32 via fe80::1 table 9"},
         0},
        {"two families", kAdd, In("eth0", mixed), {}, -1},
        {"an unknown family", kDel, In("eth0", unknown, 100), {}, -1},
        {"two words in the name", kAdd, In("eth0 x", inet), {}, -1},
        {"an option", kAdd, In("-V", inet), {}, -1},
        {"delete an option", kDel, In("-V", inet6, 9), {}, -1},
        {"nothing but a name", kAdd, Name("eth0"), {}, -1},
    };
    for (const Transcript& row : rows)
        tools.Check(row);
}

TEST(Route, AMetricIsChangedInTwoSteps) {
    NotedTools tools;
    tools.Answer("ip route del 10.2.0.0/16 via 192.168.1.254", "RTNETLINK answers: No such process\n", 2);
    tools.Answer("ip route add 10.3.0.0/16 via 192.168.1.254 metric 5", "", 2);
    const auto of = [](const char* destination, const char* name) {
        return Of(Route(destination, 16, "192.168.1.254", 5, name));
    };
    const Transcript rows[] = {
        {"the record's own interface",
         kMetric,
         of("10.1.0.0", "eth0"),
         {"ip route del 10.1.0.0/16 via 192.168.1.254 dev eth0",
          "ip route add 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5"},
         0},
        {"an option", kMetric, of("10.1.0.0", "-V"), {}, -1},
        {"nothing to delete: nothing is added",
         kMetric,
         of("10.2.0.0", ""),
         {"ip route del 10.2.0.0/16 via 192.168.1.254"},
         -1},
        {"adding fails",
         kMetric,
         of("10.3.0.0", ""),
         {"ip route del 10.3.0.0/16 via 192.168.1.254", "ip route add 10.3.0.0/16 via 192.168.1.254 metric 5"},
         -1},
    };
    for (const Transcript& row : rows)
        tools.Check(row);
}

TEST(Rule, TablesAndRules) {
    NotedTools tools;
    tools.Answer("ip rule del table 8", "RTNETLINK answers: No such file or directory\n", 2);
    tools.Answer("ip rule add table 0", "RTNETLINK answers: Invalid argument\n", 2);
    tools.Answer("ip rule del pref 31", "RTNETLINK answers: No such file or directory\n", 2);
    const Transcript rows[] = {
        {"a table", kTableAdd, Of(u32{100}), {"ip rule add table 100"}, 0},
        {"delete a table", kTableDel, Of(u32{100}), {"ip rule del table 100"}, 0},
        {"delete one that is not there", kTableDel, Of(u32{8}), {"ip rule del table 8"}, -1},
        {"table 0 causes a warning and is tried", kTableAdd, Of(u32{0}), {"ip rule add table 0"}, -1},
        {"so is one of the kernel's", kTableAdd, Of(u32{254}), {"ip rule add table 254"}, 0},
        {"a rule", kRuleAdd, Rule("192.168.1.0", 0), {"ip rule add from 192.168.1.0/24 fwmark 7 table 100"}, 0},
        {"a rule with a preference",
         kRuleAdd,
         Rule("192.168.1.0", 30),
         {"ip rule add from 192.168.1.0/24 fwmark 7 pref 30 table 100"},
         0},
        {"delete by preference alone", kRuleDel, Rule("192.168.1.0", 30), {"ip rule del pref 30"}, 0},
        {"delete by its words",
         kRuleDel,
         Rule("192.168.1.0", 0),
         {"ip rule del from 192.168.1.0/24 fwmark 7 table 100"},
         0},
        {"delete fails", kRuleDel, Rule("192.168.1.0", 31), {"ip rule del pref 31"}, -1},
        {"IPv4 only", kRuleAdd, Rule("2001:db8::", 0), {}, -1},
        {"deleting too", kRuleDel, Rule("2001:db8::", 30), {}, -1},
    };
    for (const Transcript& row : rows)
        tools.Check(row);
}

std::string Shown(int number) {
    return "10." + std::to_string(number) + ".0.0/16 via 192.168.1.254 dev eth0 metric 5 \n";
}

TEST(Route, ListingKeepsWhatHasAGateway) {
    NotedTools tools;
    std::string inet = "default via 192.168.1.1 dev eth0 \n192.168.1.0/24 dev eth0 proto kernel scope link \n";
    for (int i = 1; i <= 3; ++i)
        inet += Shown(i);
    inet += "10.99.0.1 via 192.168.1.254 dev eth1 \n";
    inet += "10.100.0.0/16 via 192.168.1.254 dev eth0 " + std::string(300, 'x') + " metric 9\n";
    inet += "10.101.0.0/16 proto static metric 3 \n\tnexthop via 192.168.1.9 dev eth0 weight 1 \n";
    tools.Answer("ip -4 route show", inet + "10.102.0.0/16 via 192.168.1.254 dev eth0");  // no newline
    tools.Answer("ip -6 route show",
                 "fe80::/64 dev eth0 proto kernel\n2001:db8::5 via fe80::1 dev eth0 metric 1024 pref medium\n");
    TNetRouteGetAllReply expected{};
    TNetIpRouteParam* const routes = expected.tRoutes.atRoute;
    routes[0] = Route("10.1.0.0", 16, "192.168.1.254", 5, "eth0");
    routes[1] = Route("10.2.0.0", 16, "192.168.1.254", 5, "eth0");
    routes[2] = Route("10.3.0.0", 16, "192.168.1.254", 5, "eth0");
    routes[3] = Route("10.99.0.1", 32, "192.168.1.254", 0, "eth1");
    routes[4] = Route("10.100.0.0", 16, "192.168.1.254", 0, "eth0");  // cut at 256 characters
    routes[5] = Route("0.0.0.0", 32, "192.168.1.9", 0, "eth0");       // one of several next hops
    expected.tRoutes.dwNum = 6;
    EXPECT_EQ(*tools.Request(kGetAll, Of(u16{2})), Bytes(expected));
    routes[6] = Route("2001:db8::5", 128, "fe80::1", 1024, "eth0");
    expected.tRoutes.dwNum = 7;
    EXPECT_EQ(*tools.Request(kGetAll, Of(u16{11})), Bytes(expected));
    EXPECT_THAT(tools.TakeRuns(), testing::ElementsAre("ip -4 route show", "ip -4 route show", "ip -6 route show"));
    EXPECT_EQ(*tools.Request(kGetAll, Of(u16{7})), Bytes(TNetRouteGetAllReply{}));

    inet.clear();
    for (int i = 1; i <= 12; ++i)
        inet += Shown(i);
    tools.Answer("ip -4 route show", inet);
    const auto full = *tools.Request(kGetAll, Of(u16{11}));
    for (int i = 0; i < 10; ++i)
        routes[i] = Route(("10." + std::to_string(i + 1) + ".0.0").c_str(), 16, "192.168.1.254", 5, "eth0");
    expected.tRoutes.dwNum = 10;
    EXPECT_EQ(full, Bytes(expected));

    tools.Answer("ip -6 route show", "", 1);
    tools.Answer("ip -4 route show", Shown(1));
    TNetRouteGetAllReply partial{.nResult = -1, .tRoutes = {}};
    partial.tRoutes.dwNum = 1;
    partial.tRoutes.atRoute[0] = routes[0];
    EXPECT_EQ(*tools.Request(kGetAll, Of(u16{11})), Bytes(partial)) << "as far as it was read";
    (void)tools.TakeRuns();
    tools.Answer("ip -4 route show", "", 1);
    tools.Check({"IPv6 is not read when IPv4 fails", kGetAll, Of(u16{11}), {"ip -4 route show"}, -1});
}

TEST(Route, IsLogged) {
    NotedTools tools;
    for (const char* line :
         {"ip route add 10.9.0.0/16 via 192.168.1.254 metric 5", "ip -4 route show",
          "ip route del 10.9.0.0/16 via 192.168.1.254", "ip route add 10.3.0.0/16 via 192.168.1.254 metric 5",
          "ip rule add table 0", "ip rule del table 253", "ip rule del pref 31",
          "ip rule add from 192.168.1.0/24 fwmark 7 pref 31 table 100"}) {
        tools.Answer(line, "No.", 2);
    }
    tools.Answer("ip -6 route show", "2001:db8::/64 via fe80::1 metric 1\n2001:db8:1::/64 via fe80::1 dev eth0 " +
                                         std::string(300, 'x') + "\n");
    const TNetIpRouteParam inet = Route("10.1.0.0", 16, "192.168.1.254", 5);
    const TNetIpRouteParam refused = Route("10.9.0.0", 16, "192.168.1.254", 5);
    TNetIpRouteParam mixed = inet;
    mixed.tGateway = Address("fe80::1");
    const LoggedRequest rows[] = {
        {"a table",
         kAdd,
         In("eth0", inet, 100),
         {"ApidOneRouteAdd: the pchIfaceName is eth0!",
          "OneRouteAdd: OneRouteAdd achCmdBuf: ip ip route add 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5 table "
          "100"}},
        {"add fails",
         kAdd,
         In("", refused),
         {"ApidOneRouteAdd: the pchIfaceName is NULL!",
          "OneRouteAdd: OneRouteAdd achCmdBuf: ip ip route add 10.9.0.0/16 via 192.168.1.254 metric 5", "ExecCmd: ip",
          "ExecCmd: No.", "OneRouteAdd: ExecCmd error!", "ApidOneRouteAdd: OneRouteAdd error!"}},
        {"an option",
         kAdd,
         In("-V", inet),
         {"ApidOneRouteAdd: the pchIfaceName is -V!", "OneRouteAdd: the text [-V] is invalid!",
          "ApidOneRouteAdd: OneRouteAdd error!"}},
        {"two families",
         kDel,
         In("eth0", mixed),
         {"ApidOneRouteDel: the pchIfaceName is eth0!", "OneRouteDel: the tDestIpNet wSinFamily 2 is invalid!",
          "OneRouteDel: OneRouteDel achCmdBuf: ", "ExecCmd: ", "OneRouteDel: ExecCmd error!",
          "ApidOneRouteDel: OneRouteDel error!"}},
        {"delete fails",
         kDel,
         In("", refused),
         {"ApidOneRouteDel: the pchIfaceName is NULL!",
          "OneRouteDel: OneRouteDel achCmdBuf: ip ip route del 10.9.0.0/16 via 192.168.1.254", "ExecCmd: ip",
          "ExecCmd: No.", "OneRouteDel: ExecCmd error!", "ApidOneRouteDel: OneRouteDel error!"}},
        {"a metric",
         kMetric,
         Of(inet),
         {"OneRouteDel: OneRouteDel achCmdBuf: ip ip route del 10.1.0.0/16 via 192.168.1.254",
          "OneRouteAdd: OneRouteAdd achCmdBuf: ip ip route add 10.1.0.0/16 via 192.168.1.254 metric 5"}},
        {"a metric, delete fails",
         kMetric,
         Of(refused),
         {"OneRouteDel: OneRouteDel achCmdBuf: ip ip route del 10.9.0.0/16 via 192.168.1.254", "ExecCmd: ip",
          "ExecCmd: No.", "OneRouteDel: ExecCmd error!", "RouteMetricSet: OneRouteDel error!",
          "ApidRouteMetricSet: RouteMetricSet error!"}},
        {"a metric, add fails",
         kMetric,
         Of(Route("10.3.0.0", 16, "192.168.1.254", 5)),
         {"OneRouteDel: OneRouteDel achCmdBuf: ip ip route del 10.3.0.0/16 via 192.168.1.254",
          "OneRouteAdd: OneRouteAdd achCmdBuf: ip ip route add 10.3.0.0/16 via 192.168.1.254 metric 5", "ExecCmd: ip",
          "ExecCmd: No.", "OneRouteAdd: ExecCmd error!", "RouteMetricSet: OneRouteAdd error!",
          "ApidRouteMetricSet: RouteMetricSet error!"}},
        {"list both",
         kGetAll,
         Of(u16{11}),
         {"AllRoutesGetV4: AllRoutesGetV4 cmd : ip ip -4 route show", "TesselExecCmdAndGetOutput: ip",
          "TesselExecCmdAndGetOutput: No.", "AllRoutesGetV4: ExecCmdAndGetOutput error!",
          "AllRoutesGet: AllRoutesGetV4 error !", "ApidAllRouteGet: AllRoutesGet error!"}},
        {"list IPv6",
         kGetAll,
         Of(u16{10}),
         {"AllRoutesGetV6: AllRoutesGetV6 cmd : ip ip -6 route show",
          "AllRoutesGetV6: 2001:db8::/64 via fe80::1 metric 1",
          "AllRoutesGetV6: the nLineLen is more than MAX_BUF_LEN, reset it!",
          "AllRoutesGetV6: 2001:db8:1::/64 via fe80::1 dev eth0 "
          "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
          "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
          "xxx"}},
        {"list an unknown family", kGetAll, Of(u16{7}), {"AllRoutesGet: the wSinFamily 7 is invalid!"}},
        {"table 0",
         kTableAdd,
         Of(u32{0}),
         {"ApidRouteTableAdd: the table id 0 is invalid!",
          "RouteTableAdd: RouteTableAdd achCmdBuf: ip ip rule add table 0", "ExecCmd: ip", "ExecCmd: No.",
          "RouteTableAdd: ExecCmd error!", "ApidRouteTableAdd: OneRouteAdd error!"}},
        {"the last table",
         kTableAdd,
         Of(u32{252}),
         {"RouteTableAdd: RouteTableAdd achCmdBuf: ip ip rule add table 252"}},
        {"one of the kernel's",
         kTableDel,
         Of(u32{253}),
         {"ApidRouteTableDel: the table id 253 is invalid!",
          "RouteTableDel: RouteTableDel achCmdBuf: ip ip rule del table 253", "ExecCmd: ip", "ExecCmd: No.",
          "RouteTableDel: ExecCmd error!", "ApidRouteTableDel: OneRouteAdd error!"}},
        {"add a rule",
         kRuleAdd,
         Rule("192.168.1.0", 31),
         {"IpRuleAdd: IpRuleAdd achCmdBuf: ip ip rule add from 192.168.1.0/24 fwmark 7 pref 31 table 100",
          "ExecCmd: ip", "ExecCmd: No.", "IpRuleAdd: ExecCmd error!", "ApidIpRuleAdd: IpRuleAdd error!"}},
        {"delete a rule",
         kRuleDel,
         Rule("192.168.1.0", 31),
         {"IpRuleDel: IpRuleDel achCmdBuf: ip ip rule del pref 31", "ExecCmd: ip", "ExecCmd: No.",
          "IpRuleDel: ExecCmd error!", "ApidIpRuleDel: IpRuleDel error!"}},
        {"not IPv4",
         kRuleDel,
         Rule("2001:db8::", 31),
         {"IpRuleDel: the tSrcIpNet wSinFamily 10 is invalid!", "IpRuleDel: IpRuleDel achCmdBuf: ", "ExecCmd: ",
          "IpRuleDel: ExecCmd error!", "ApidIpRuleDel: IpRuleDel error!"}},
    };
    LoggedLines log(5);
    for (const LoggedRequest& row : rows)
        CheckLog(row, tools, log);
    EXPECT_EQ(RouteMetricSet(nullptr), -1);
    EXPECT_EQ(AllRoutesGetV4(nullptr), -1);
    EXPECT_EQ(AllRoutesGetV6(nullptr), -1);
    EXPECT_THAT(TakeLines(log), testing::ElementsAre("RouteMetricSet: ptNetIpRouteParam is NULL!",
                                                     "AllRoutesGetV4: ptAllRouteInfo is NULL!",
                                                     "AllRoutesGetV6: ptAllRouteInfo is NULL!"));
}

}  // namespace
}  // namespace tessel::test
