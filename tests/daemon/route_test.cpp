// Static routes, tables and rules: the lines that are run, the answers, and the log.
#include "route/route.h"

#include "route/route_list.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

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

Call Add(const char* name, const TNetIpRouteParam& route, u32 table = kNoTable) {
    return {0x10B, Named(TNetRouteReq{.achDevName = {}, .tRoute = route, .dwTable = table}, name,
                         table == kNoTable ? 80 : 84)};
}

Call Del(const char* name, const TNetIpRouteParam& route, u32 table = kNoTable) {
    return {0x10D, Add(name, route, table).payload};
}

template <typename Record>
Call Of(u32 type, const Record& record) {
    return {type, std::string(Bytes(record))};
}

constexpr u32 kGetAll = 0x113;
constexpr u32 kMetric = 0x114;
constexpr u32 kTableAdd = 0x120;
constexpr u32 kTableDel = 0x121;
constexpr u32 kRuleAdd = 0x123;
constexpr u32 kRuleDel = 0x124;

Call Rule(u32 type, const char* source, i32 pref) {
    TNetIpRule rule{};
    rule.tSrcIpNet = Address(source);
    rule.nPrefixLen = 24;
    rule.nPref = pref;
    rule.nTable = 100;
    rule.nFwmark = 7;
    return Of(type, rule);
}

TEST(Route, OneIsAddedAndDeleted) {
    LoggedTools tools(4);
    tools.Fail({"ip route add 10.9.0.0/16 via 10.0.0.1 metric 5", "ip route del 10.9.0.0/16 via 10.0.0.1"});
    const TNetIpRouteParam inet = Route("10.1.0.0", 16, "10.0.0.1", 5, "ignored");
    const TNetIpRouteParam inet6 = Route("fd00::", 32, "fe80::1", 6);
    const TNetIpRouteParam refused = Route("10.9.0.0", 16, "10.0.0.1", 5);
    const TNetIpRouteParam mixed = Route("10.1.0.0", 16, "fe80::1", 5);
    tools.Check({
        {"no name, a table of 0", Add("", inet, 0), 0, "ip route add 10.1.0.0/16 via 10.0.0.1 metric 5"},
        {"a table", Add("eth0", inet, 100), 0, "ip route add 10.1.0.0/16 via 10.0.0.1 dev eth0 metric 5 table 100",
         "ApidOneRouteAdd: the pchIfaceName is eth0!; OneRouteAdd: OneRouteAdd achCmdBuf: $"},
        {"IPv6", Add("eth0", inet6), 0, "ip -6 route add fd00::/32 via fe80::1 dev eth0 metric 6"},
        {"there already", Add("", refused), -1, "ip route add 10.9.0.0/16 via 10.0.0.1 metric 5",
         "ApidOneRouteAdd: the pchIfaceName is NULL!; OneRouteAdd: OneRouteAdd achCmdBuf: $; #OneRouteAdd; "
         "ApidOneRouteAdd: OneRouteAdd error!"},
        {"deletion names no metric", Del("eth0", inet, 100), 0,
         "ip route del 10.1.0.0/16 via 10.0.0.1 dev eth0 table 100"},
        {"delete IPv6", Del("", inet6, 9), 0, "ip -6 route del fd00::/32 via fe80::1 table 9"},
        {"delete fails", Del("", refused), -1, "ip route del 10.9.0.0/16 via 10.0.0.1",
         "ApidOneRouteDel: the pchIfaceName is NULL!; OneRouteDel: OneRouteDel achCmdBuf: $; #OneRouteDel; "
         "ApidOneRouteDel: OneRouteDel error!"},
        {"two families", Add("eth0", mixed), -1, ""},
        {"delete, two families", Del("eth0", mixed), -1, "",
         "ApidOneRouteDel: the pchIfaceName is eth0!; OneRouteDel: the tDestIpNet wSinFamily 2 is invalid!; "
         "OneRouteDel achCmdBuf: ; ExecCmd: ; OneRouteDel: ExecCmd error!; ApidOneRouteDel: OneRouteDel error!"},
        {"an unknown family", Del("eth0", Route("none", 16, "none", 5), 100), -1, ""},
        {"an option", Add("-V", inet), -1, "",
         "ApidOneRouteAdd: the pchIfaceName is -V!; OneRouteAdd: the text [-V] is invalid!; ApidOneRouteAdd: "
         "OneRouteAdd error!"},
        {"delete an option", Del("-V", inet6, 9), -1, ""},
    });
}

TEST(Route, AMetricIsChangedInTwoSteps) {
    LoggedTools tools(2);
    tools.Fail({"ip route del 10.2.0.0/16 via 10.0.0.1", "ip route add 10.3.0.0/16 via 10.0.0.1 metric 5"});
    const auto change = [](const char* destination, const char* name) {
        return Of(kMetric, Route(destination, 16, "10.0.0.1", 5, name));
    };
    tools.Check({
        {"the record's own interface", change("10.1.0.0", "eth0"), 0,
         "ip route del 10.1.0.0/16 via 10.0.0.1 dev eth0; ip route add 10.1.0.0/16 via 10.0.0.1 dev eth0 metric 5"},
        {"an option", change("10.1.0.0", "-V"), -1, ""},
        {"nothing to delete: nothing is added", change("10.2.0.0", ""), -1, "ip route del 10.2.0.0/16 via 10.0.0.1",
         "#OneRouteDel; RouteMetricSet: OneRouteDel error!; ApidRouteMetricSet: RouteMetricSet error!"},
        {"adding fails", change("10.3.0.0", ""), -1,
         "ip route del 10.3.0.0/16 via 10.0.0.1; ip route add 10.3.0.0/16 via 10.0.0.1 metric 5",
         "#OneRouteAdd; RouteMetricSet: OneRouteAdd error!; ApidRouteMetricSet: RouteMetricSet error!"},
    });
    EXPECT_EQ(RouteMetricSet(nullptr), -1);
    EXPECT_EQ(AllRoutesGetV4(nullptr), -1);
    EXPECT_EQ(AllRoutesGetV6(nullptr), -1);
    EXPECT_EQ(tools.TakeLog(),
              "RouteMetricSet: ptNetIpRouteParam is NULL!; AllRoutesGetV4: ptAllRouteInfo is NULL!; AllRoutesGetV6: "
              "ptAllRouteInfo is NULL!");
}

TEST(Rule, TablesAndRules) {
    LoggedTools tools(4);
    tools.Fail({"ip rule add table 0", "ip rule del table 253", "ip rule del pref 31",
                "ip rule add from 10.5.1.0/24 fwmark 7 pref 31 table 100"});
    tools.Check({
        {"the last table", Of(kTableAdd, u32{252}), 0, "ip rule add table 252",
         "RouteTableAdd: RouteTableAdd achCmdBuf: $"},
        {"delete a table", Of(kTableDel, u32{100}), 0, "ip rule del table 100"},
        {"table 0 causes a warning and is tried", Of(kTableAdd, u32{0}), -1, "ip rule add table 0",
         "ApidRouteTableAdd: the table id 0 is invalid!; RouteTableAdd: RouteTableAdd achCmdBuf: $; #RouteTableAdd; "
         "ApidRouteTableAdd: OneRouteAdd error!"},
        {"so is one of the kernel's", Of(kTableDel, u32{253}), -1, "ip rule del table 253",
         "ApidRouteTableDel: the table id 253 is invalid!; RouteTableDel: RouteTableDel achCmdBuf: $; #RouteTableDel; "
         "ApidRouteTableDel: OneRouteAdd error!"},
        {"a rule", Rule(kRuleAdd, "10.5.1.0", 0), 0, "ip rule add from 10.5.1.0/24 fwmark 7 table 100"},
        {"with a preference, in vain", Rule(kRuleAdd, "10.5.1.0", 31), -1,
         "ip rule add from 10.5.1.0/24 fwmark 7 pref 31 table 100",
         "IpRuleAdd: IpRuleAdd achCmdBuf: $; #IpRuleAdd; ApidIpRuleAdd: IpRuleAdd error!"},
        {"delete by its words", Rule(kRuleDel, "10.5.1.0", 0), 0, "ip rule del from 10.5.1.0/24 fwmark 7 table 100"},
        {"by preference alone, in vain", Rule(kRuleDel, "10.5.1.0", 31), -1, "ip rule del pref 31",
         "IpRuleDel: IpRuleDel achCmdBuf: $; #IpRuleDel; ApidIpRuleDel: IpRuleDel error!"},
        {"IPv4 only", Rule(kRuleAdd, "fd00::", 0), -1, ""},
        {"deleting too", Rule(kRuleDel, "fd00::", 30), -1, "",
         "IpRuleDel: the tSrcIpNet wSinFamily 10 is invalid!; IpRuleDel achCmdBuf: ; ExecCmd: ; IpRuleDel: ExecCmd "
         "error!; ApidIpRuleDel: IpRuleDel error!"},
    });
}

std::string Shown(int number) {
    return "10." + std::to_string(number) + ".0.0/16 via 10.0.0.1 dev eth0 metric 5 \n";
}

std::string Routes(i32 status, const std::vector<TNetIpRouteParam>& routes) {
    TNetRouteGetAllReply reply{.nResult = status, .tRoutes = {}};
    for (const TNetIpRouteParam& route : routes) {
        reply.tRoutes.atRoute[reply.tRoutes.dwNum] = route;
        reply.tRoutes.dwNum = reply.tRoutes.dwNum + 1;
    }
    return std::string(Bytes(reply));
}

TEST(Route, ListingKeepsWhatHasAGateway) {
    LoggedTools tools;
    const std::string ending(300, 'x');
    tools.Answer("ip -4 route show",
                 "default via 10.5.1.1 dev eth0 \n10.5.1.0/24 dev eth0 proto kernel scope link \n" + Shown(1) +
                     "10.99.0.1 via 10.0.0.1 dev eth1 \n10.100.0.0/16 via 10.0.0.1 dev eth0 " + ending +
                     " metric 9\n10.101.0.0/16 proto static metric 3 \n\tnexthop via 10.5.1.9 dev eth0 weight 1 "
                     "\n10.102.0.0/16 via 10.0.0.1 dev eth0");  // no newline
    tools.Answer("ip -6 route show",
                 "fe80::/64 dev eth0 proto kernel\nfd00::5 via fe80::1 dev eth0 metric 1024 pref medium\n");
    std::vector<TNetIpRouteParam> routes = {
        Route("10.1.0.0", 16, "10.0.0.1", 5, "eth0"), Route("10.99.0.1", 32, "10.0.0.1", 0, "eth1"),
        Route("10.100.0.0", 16, "10.0.0.1", 0, "eth0"),  // cut at 256 characters
        Route("0.0.0.0", 32, "10.5.1.9", 0, "eth0"),     // one of several next hops
    };
    tools.Check({{"IPv4", Of(kGetAll, u16{2}), Routes(0, routes), "ip -4 route show"}});
    routes.push_back(Route("fd00::5", 128, "fe80::1", 1024, "eth0"));
    tools.Check({
        {"both", Of(kGetAll, u16{11}), Routes(0, routes), "ip -4 route show; ip -6 route show"},
        {"an unknown family", Of(kGetAll, u16{7}), Routes(0, {}), "", "AllRoutesGet: the wSinFamily 7 is invalid!"},
    });

    std::string twelve;
    routes.clear();
    for (int i = 1; i <= 12; ++i) {
        twelve += Shown(i);
        if (i <= 10) routes.push_back(Route(("10." + std::to_string(i) + ".0.0").c_str(), 16, "10.0.0.1", 5, "eth0"));
    }
    tools.Answer("ip -4 route show", twelve);
    tools.Fail({"ip -6 route show"});
    tools.Check({{"ten at most, and what was read before a failure", Of(kGetAll, u16{11}), Routes(-1, routes),
                  "ip -4 route show; ip -6 route show"}});

    tools.Fail({"ip -4 route show"});
    tools.Answer("ip -6 route show",
                 "fd00::/64 via fe80::1 metric 1\nfd00:1::/64 via fe80::1 dev eth0 " + ending + "\n");
    // The second line is cut at 256 characters, and has no metric.
    const std::string log =
        "AllRoutesGetV6: AllRoutesGetV6 cmd : $; fd00::/64 via fe80::1 metric 1; the nLineLen is more than "
        "MAX_BUF_LEN, reset it!; " +
        ("fd00:1::/64 via fe80::1 dev eth0 " + ending).substr(0, 256);
    tools.Check({
        {"IPv6 is not read when IPv4 fails", Of(kGetAll, u16{11}), Routes(-1, {}), "ip -4 route show",
         "AllRoutesGetV4: AllRoutesGetV4 cmd : $; TesselExecCmdAndGetOutput: ip; No.; AllRoutesGetV4: "
         "ExecCmdAndGetOutput error!; AllRoutesGet: AllRoutesGetV4 error !; ApidAllRouteGet: AllRoutesGet error!"},
        {"words that are missing", Of(kGetAll, u16{10}), 0, "ip -6 route show", log.c_str()},
    });
}

}  // namespace
}  // namespace tessel::test
