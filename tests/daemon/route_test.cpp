// Default gateways, the priorities of uplinks, static routes, tables and rules: what is run, answered and logged.
#include "tessel/route.h"

#include "route/gateway.h"
#include "route/priority_table.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

constexpr u32 kNoTable = 0xffffffff;  // the payload ends before the number

Call Set(const char* address, const char* name = "eth0", u32 table = kNoTable) {
    const TNetGatewaySetReq request{.achDevName = {}, .tGateway = Address(address), .dwTable = table};
    return {0x10F, Named(request, name, table == kNoTable ? 36 : 40), "ApidGatewaySet: GatewaySet error!"};
}

std::string Of(u16 family, const char* name, u32 table) {
    return Named(TNetGatewayReq{.wSinFamily = family, .achDevName = {}, .dwTable = table}, name,
                 table == kNoTable ? 18 : 22);
}

Call Del(u16 family, const char* name = "eth0", u32 table = kNoTable) {
    return {0x116, Of(family, name, table), "ApidGatewayDel: GatewaySet error!"};
}

Call Get(u16 family, const char* name = "eth0", u32 table = kNoTable) {
    return {0x110, Of(family, name, table), "ApidGatewayGet: GatewayGet error!"};
}

std::string Gateway(i32 status, const TNetGateway& gateway) {
    return std::string(Bytes(TNetGatewayGetReply{.nResult = status, .tGateway = gateway}));
}

using Metrics = std::vector<std::pair<const char*, i32>>;

// With another count than that of the entries, if there is one.
std::string List(const Metrics& entries, std::optional<u32> count = {}) {
    TNetPrioParamList list{};
    list.dwNum = count.value_or(static_cast<u32>(entries.size()));
    std::size_t index = 0;
    for (const auto& [name, metric] : entries) {
        strncpy(list.atPrio[index].achDevName, name, sizeof(list.atPrio[index].achDevName));
        list.atPrio[index++].nPriority = metric;
    }
    return std::string(Bytes(list));
}

Call Prioritize(const std::string& list) {
    return {0x11C, list};
}

const Call kPriorities = {0x11D, ""};

TEST(Gateway, IsSetDeletedAndRead) {
    LoggedTools tools;
    tools.Answer("ip -6 route show dev eth0 default", "default via fe80::1 proto ra metric 1024 expires 1797sec\n");
    tools.Answer("ip -6 route show dev longer default", "default via fe80::12 metric 1024\n");
    tools.Answer("ip -4 route show dev eth0 default",
                 "default via 10.0.0.1 metric 10 \ndefault via 10.0.0.2 metric 20 \n");
    tools.Answer("ip -6 route show default table 5", "default via fe80::2 dev eth0 expires 5sec\n");
    tools.Answer("ip -6 route show dev link default", "default metric 1024 expires 299sec\n");
    tools.Fail({"ip -4 route show dev bad default"});
    tools.Check({
        {"no name", Set("10.0.0.1", ""), 0, "ip route add default via 10.0.0.1 metric 0",
         "ApidGatewaySet: the achDevName is empty!; GatewaySetV4: GatewaySetV4 achCmdBuf: $"},
        {"table 0: the main one", Set("10.0.0.1", "eth0", 0), 0, "ip route add default via 10.0.0.1 dev eth0 metric 0"},
        {"a table", Set("10.0.0.1", "eth0", 100), 0, "ip route add default via 10.0.0.1 dev eth0 metric 0 table 100"},
        {"the zero address deletes", Set("0.0.0.0"), 0, "ip -4 route del default dev eth0",
         "ApidGatewaySet: the achDevName is eth0!; GatewaySet: remove the ipv4 gateway!; DelGateWayV4: GatewaySetV4 "
         "achCmdBuf: $"},
        {"an address in a table", Set("0.0.0.0", "eth0", 7), 0,
         "ip route add default via 0.0.0.0 dev eth0 metric 0 table 7"},
        {"IPv6 replaces", Set("fe80::2"), 0,
         "ip -6 route show dev eth0 default; ip -6 route replace default via fe80::2 dev eth0"},
        {"IPv6, learnt already", Set("fe80::1"), 0, "ip -6 route show dev eth0 default",
         "ApidGatewaySet: the achDevName is eth0!; GatewaySetV6: pchIfaceName : eth0; CheckGateWay: GetGateWayV6 cmd : "
         "$; found gateway fe80::1; GatewaySetV6: gateway fe80::1 maybe has been configed by ra"},
        {"IPv6, part of another text", Set("fe80::1", "longer"), 0, "ip -6 route show dev longer default"},
        {"IPv6, a table", Set("fe80::2", "eth0", 5), 0, "ip -6 route add default via fe80::2 dev eth0 table 5",
         "ApidGatewaySet: the achDevName is eth0!; GatewaySetV6ToTable: GatewaySetV6 achCmdBuf: $"},
        {"the zero address deletes, IPv6", Set("::"), 0, "ip -6 route del default dev eth0",
         "ApidGatewaySet: the achDevName is eth0!; GatewaySet: remove the ipv6 gateway!; DelGateWayV6: GatewaySetV6 "
         "achCmdBuf: $"},
        {"delete IPv6, no name", Del(10, ""), 0, "ip -6 route flush default",
         "ApidGatewayDel: the achDevName is empty!; DelGateWayV6: GatewaySetV6 achCmdBuf: $"},
        {"delete IPv6, a table", Del(10, "", 100), 0, "ip -6 route flush default table 100"},
        {"read the first", Get(2), Gateway(0, Address("10.0.0.1")), "ip -4 route show dev eth0 default"},
        {"read none", Get(2, "", 5), Gateway(0, Address("0.0.0.0")), "ip -4 route show default table 5"},
        {"reading fails", Get(2, "bad"), Gateway(-1, {}), "ip -4 route show dev bad default",
         "ApidGatewayGet: the achDevName is bad!; GetGateWayV4: GetGateWayV4 cmd : $; TesselExecCmdAndGetOutput: ip; "
         "No.; GetGateWayV4: ExecCmdAndGetOutput error!"},
        {"read one that was learnt", Get(10), Gateway(11111, Address("fe80::1")), "ip -6 route show dev eth0 default",
         "ApidGatewayGet: the achDevName is eth0!; GetGateWayV6Ex: GetGateWayV6 cmd : $"},
        {"no gateway but a lifetime", Get(10, "link"), Gateway(0, Address("::")), "ip -6 route show dev link default"},
        {"not so in a table", Get(10, "", 5), Gateway(0, Address("fe80::2")), "ip -6 route show default table 5",
         "ApidGatewayGet: the achDevName is empty!; GetGateWayV6FromTable: GetGateWayV6 cmd : $"},
        {"read none, IPv6", Get(10, "eth1"), Gateway(0, Address("::")), "ip -6 route show dev eth1 default"},
        {"read an unknown family", Get(7), 0, "",
         "ApidGatewayGet: the achDevName is eth0!; GatewayGet: wSinFamily 7 is not suypportted!; !"},
        {"read an option", Get(2, "-V"), -1, ""},
    });
    TesselDebugLevelSet(2);
    tools.Answer("ip -6 route show dev eth0 default", "");
    for (const char* place :
         {"-6 route del default dev gone", "-6 route del default dev gone table 9", "-4 route del default dev gone"})
        tools.Answer(std::string("ip ") + place, "No such process", 2);
    tools.Fail({"ip -6 route del default dev bad", "ip route add default via 10.0.0.9 dev eth0 metric 0",
                "ip -6 route replace default via fe80::3 dev eth0", "ip -6 route show dev gone default"});
    tools.Check({
        {"there already", Set("10.0.0.9"), -1, "ip route add default via 10.0.0.9 dev eth0 metric 0", "#GatewaySetV4"},
        {"IPv6 fails", Set("fe80::3"), -1,
         "ip -6 route show dev eth0 default; ip -6 route replace default via fe80::3 dev eth0",
         "CheckGateWay: FindStrMatchHead error!; FindStrMatchHead outbuf : !; #GatewaySetV6"},
        {"IPv6, unreadable", Set("fe80::2", "gone"), 0,
         "ip -6 route show dev gone default; ip -6 route replace default via fe80::2 dev gone",
         "CheckGateWay: ExecCmdAndGetOutput error!"},
        {"IPv6, no name", Set("fe80::2", ""), -1, "", "GatewaySetV6:  pchIfaceName is null!"},
        {"an absent route is no error to the zero address", Set("::", "gone"), 0, "ip -6 route del default dev gone",
         "DelGateWayV6: ExecCmd error!"},
        {"an unknown family", Set("none"), -1, "", "GatewaySet: GatewaySet wSinFamily 7 is invalid!"},
        {"an option", Set("10.0.0.1", "-V"), -1, "", "GatewaySetV4: the text [-V] is invalid!"},
        {"an absent route", Del(2, "gone"), -1, "ip -4 route del default dev gone",
         "ExecCmd: ip; No such process; DelGateWayV4: ExecCmd error!"},
        {"an absent IPv6 route", Del(10, "gone"), 0, "ip -6 route del default dev gone"},
        {"an absent IPv6 route of a table", Del(10, "gone", 9), -1, "ip -6 route del default dev gone table 9"},
        {"another failure", Del(10, "bad"), -1, "ip -6 route del default dev bad"},
        {"delete an unknown family", Del(7), 0, "", "GatewayDel: the wSinFamily 7 is not supportted!"},
    });
}

// Priority routing as it is when the daemon starts.
class Priority : public testing::Test {
  protected:
    Priority() {
        g_nRoutedetectE = 0;
        for (u32 i = 0; i < TESSEL_PRIORITIES_MAX; ++i)
            StorePriority(i, {});
    }
    LoggedTools tools{4};
};

std::string Shows(std::vector<std::string> names) {
    for (std::string& name : names)
        name = "ip -4 route show dev " + name + " default";
    return Joined(names);
}

TEST_F(Priority, TheFirstListFixesTheInterfaces) {
    // A metric is the first of the listing, and that of a gateway.
    tools.Answer("ip -4 route show dev eth0 default", "default via 10.0.0.1 \ndefault via 10.0.0.4 metric 8 \n");
    tools.Answer("ip -4 route show dev eth1 default",
                 "default via 10.0.0.2 metric 7 \ndefault via 10.0.0.5 metric 8 \n");
    tools.Answer("ip -4 route show dev eth2 default", "blackhole default metric 9 \n");
    tools.Answer("ip -4 route show dev eth3 default", "default via 10.0.0.3 \n");
    tools.Fail({"ip -4 route del default dev eth1"});
    const std::string all = Shows({"eth0", "eth1", "eth2", "eth3"});
    const auto list = [](i32 eth0, i32 eth1) {
        return List({{"eth0", eth0}, {"eth1", eth1}, {"eth2", 25}, {"eth3", 0}});
    };
    tools.Check({
        {"all deletions come before all additions, even when one fails", Prioritize(list(10, 20)), 0,
         all + "; ip -4 route del default dev eth0; ip -4 route del default dev eth1; ip route add default via "
               "10.0.0.1 dev eth0 metric 10; ip route add default via 10.0.0.2 dev eth1 metric 20"},
        {"a gateway carries its interface's metric from now on", Set("10.0.0.9", "eth1"), 0,
         "ip route add default via 10.0.0.9 dev eth1 metric 20"},
        {"but not without a name", Set("10.0.0.9", ""), 0, "ip route add default via 10.0.0.9 metric 0"},
        {"in a table as well", Set("10.0.0.9", "eth1", 3), 0,
         "ip route add default via 10.0.0.9 dev eth1 metric 20 table 3"},
        {"a name that is not in the table", Set("10.0.0.9", "eth"), 0,
         "ip route add default via 10.0.0.9 dev eth metric 0"},
        {"unknown names are ignored, a shorter name changes the first that begins with it",
         Prioritize(List({{"ppp0", 5}, {"eth3", 0}, {"eth", 8}, {"eth1", 7}})), 0, all},
        {"right already", Prioritize(list(8, 7)), 0, all},
        {"read", kPriorities, list(8, 7), ""},
    });
    g_nRoutedetectE = 0;
    tools.Check({
        {"switched off: without metric", Set("10.0.0.1", "eth1"), 0,
         "ip route add default via 10.0.0.1 dev eth1 metric 0"},
        {"but in tables", Set("10.0.0.1", "eth1", 3), 0, "ip route add default via 10.0.0.1 dev eth1 metric 7 table 3"},
    });
    TNetGatewayMetric none{.achDevName = "eth2", .nMetric = 99, .tGateway = {}};
    EXPECT_TRUE(GetGateWayV4WithMetric(&none) == 0 && none.nMetric == 0);
}

TEST_F(Priority, ANameThatIsThereTwiceHasTheLastMetric) {
    EXPECT_EQ(PriorityMetricGet("eth0"), -1);
    tools.Answer("ip -4 route show dev eth1 default", "default via 10.0.0.1 metric 7");
    tools.Fail({"ip -4 route del default dev eth1"});
    tools.Check({
        {"twice", Prioritize(List({{"eth0", 1}, {"eth1", 2}, {"eth0", 3}})), 0,
         Shows({"eth0", "eth1", "eth0"}) +
             "; ip -4 route del default dev eth1; ip route add default via 10.0.0.1 dev eth1 metric 2",
         "ApidPrioritySet: interface eth0, priority 1; interface eth1, priority 2; interface eth0, priority 3; "
         "ActivePriority: active the priority rule; interface eth1 exist gateway , old metric 7, new metric 2; "
         "DelGateWayV4: GatewaySetV4 achCmdBuf: ip ip -4 route del default dev eth1; ExecCmd: ip; No.; DelGateWayV4: "
         "ExecCmd error!; ActivePriority: del original eth1 gateway; GatewaySetV4: GatewaySetV4 achCmdBuf: ip ip route "
         "add default via 10.0.0.1 dev eth1 metric 2; ActivePriority: add eth1 gateway with new metric 2"},
        {"so has its gateway", Set("10.0.0.1"), 0, "ip route add default via 10.0.0.1 dev eth0 metric 3"},
        {"later", Prioritize(List({{"ppp0", 1}, {"eth1", 7}})), 0, Shows({"eth0", "eth1", "eth0"}),
         "ApidPrioritySet: ppp0 not found; interface eth1 priority has been changed, from 2 to 7; ActivePriority: "
         "active the priority rule"},
        {"read", kPriorities, List({{"eth0", 1}, {"eth1", 7}, {"eth0", 3}}), "",
         "ApidPriorityGet: interface eth0, priority 1; interface eth1, priority 7; interface eth0, priority 3"},
    });
    EXPECT_EQ(PriorityMetricGet("eth"), 0);
}

TEST_F(Priority, AListThatIsEmptyOrCutShortFixesNothing) {
    const std::string two = List({{"eth0", 10}, {"eth1", 20}});
    const std::string other = List({{"eth0", 30}, {"eth1", 40}});
    const std::string full = List(Metrics(10, {"eth0", 1}), 11);
    constexpr std::size_t kTwoEntries = 4 + 2 * 20;
    for (std::size_t bytes = 0; bytes < kTwoEntries; ++bytes)
        tools.Check({{"cut", Prioritize(two.substr(0, bytes)), 0, ""}});
    tools.Check({
        {"ten count, and one byte is missing", Prioritize(full.substr(0, 203)), 0, "",
         "ApidPrioritySet: the size is error:size=203"},
        {"empty", Prioritize(List({})), 0, "", "ApidPrioritySet: the list is empty!"},
        {"there is none", kPriorities, List({}), ""},
    });
    EXPECT_EQ(g_nRoutedetectE, 0);
    tools.Check({
        {"nothing is missing", Prioritize(two.substr(0, kTwoEntries)), 0, Shows({"eth0", "eth1"})},
        {"a later one that is cut", Prioritize(other.substr(0, kTwoEntries - 1)), 0, ""},
        {"a later one without entries", Prioritize(List({})), 0, Shows({"eth0", "eth1"})},
        {"both stayed", kPriorities, two, ""},
        {"a count beyond the array is ten", Prioritize(full), 0, Shows({"eth0", "eth1"})},
    });
}

TEST_F(Priority, HostileLists) {
    // A count beyond the array, names without an end, of two words or an option, a gap that holds something.
    const auto entries = [](i32 first, i32 inTheGap) {
        Metrics list = {{"sixteencharacter", first}, {"", inTheGap}, {"two words", 3}, {"-V", 4}, {"e", 5}};
        list.insert(list.end(), {{"f", 6}, {"g", 7}, {"h", 8}, {"i", 9}, {"j", 10}});
        return list;
    };
    std::string list = List(entries(1, 2), 0x80000000);
    list.replace(4 + 4 * 20 + 2, 5, "stale");  // behind the name "e"
    const std::string shown = Shows({"sixteencharacter", "e", "f", "g", "h", "i", "j"});
    tools.Check({
        {"first", Prioritize(list), 0, shown},
        {"gaps and what is behind a name are zero", kPriorities, List(entries(1, 0), 9), ""},
        {"later", Prioritize(List(entries(1, 2), 0xffffffff)), 0, shown},
        {"every name begins with the empty one", kPriorities, List(entries(2, 0), 9), ""},
    });
}

TNetIpRouteParam Route(const char* destination, i32 prefixLength, const char* gateway, i32 metric,
                       const char* name = "") {
    TNetIpRouteParam route{{}, Address(destination), Address(gateway), prefixLength, metric};
    strncpy(route.achDevName, name, sizeof(route.achDevName));
    return route;
}

Call Add(const char* name, const TNetIpRouteParam& route, u32 table = kNoTable) {
    return {0x10B,
            Named(TNetRouteReq{.achDevName = {}, .tRoute = route, .dwTable = table}, name, table == kNoTable ? 80 : 84),
            "ApidOneRouteAdd: OneRouteAdd error!"};
}

Call Del(const char* name, const TNetIpRouteParam& route, u32 table = kNoTable) {
    return {0x10D, Add(name, route, table).payload, "ApidOneRouteDel: OneRouteDel error!"};
}

template <typename Record>
Call Of(u32 type, const Record& record, const char* failure = "") {
    return {type, std::string(Bytes(record)), failure};
}

constexpr u32 kGetAll = 0x113;
constexpr u32 kRuleAdd = 0x123;
constexpr u32 kRuleDel = 0x124;

Call Rule(u32 type, const char* source, i32 pref) {
    return Of(type, TNetIpRule{Address(source), 24, pref, 100, 7});
}

TEST(Route, OneIsAddedDeletedAndChangedInTwoSteps) {
    LoggedTools tools(4);
    tools.Fail({"ip route add 10.9.0.0/16 via 10.0.0.1 metric 5", "ip route del 10.9.0.0/16 via 10.0.0.1"});
    const TNetIpRouteParam inet = Route("10.1.0.0", 16, "10.0.0.1", 5, "ignored");
    const TNetIpRouteParam inet6 = Route("fd00::", 32, "fe80::1", 6);
    const TNetIpRouteParam refused = Route("10.9.0.0", 16, "10.0.0.1", 5);
    const TNetIpRouteParam mixed = Route("10.1.0.0", 16, "fe80::1", 5);
    tools.Check({
        {"no name, a table of 0", Add("", inet, 0), 0, "ip route add 10.1.0.0/16 via 10.0.0.1 metric 5"},
        {"a table", Add("eth0", inet, 100), 0, "ip route add 10.1.0.0/16 via 10.0.0.1 dev eth0 metric 5 table 100",
         "ApidOneRouteAdd: the pchIfaceName is eth0!; OneRouteAddToTable: OneRouteAdd achCmdBuf: $"},
        {"IPv6", Add("eth0", inet6), 0, "ip -6 route add fd00::/32 via fe80::1 dev eth0 metric 6"},
        {"there already", Add("", refused), -1, "ip route add 10.9.0.0/16 via 10.0.0.1 metric 5",
         "ApidOneRouteAdd: the pchIfaceName is NULL!; OneRouteAdd: OneRouteAdd achCmdBuf: $; #OneRouteAdd"},
        {"deletion names no metric", Del("eth0", inet, 100), 0,
         "ip route del 10.1.0.0/16 via 10.0.0.1 dev eth0 table 100"},
        {"delete IPv6", Del("", inet6, 9), 0, "ip -6 route del fd00::/32 via fe80::1 table 9"},
        {"delete fails", Del("", refused), -1, "ip route del 10.9.0.0/16 via 10.0.0.1",
         "ApidOneRouteDel: the pchIfaceName is NULL!; OneRouteDel: OneRouteDel achCmdBuf: $; #OneRouteDel"},
        {"two families", Add("eth0", mixed), -1, ""},
        {"delete, two families", Del("eth0", mixed), -1, "",
         "ApidOneRouteDel: the pchIfaceName is eth0!; OneRouteDel: the tDestIpNet wSinFamily 2 is invalid!; "
         "OneRouteDel achCmdBuf: ; ExecCmd: ; OneRouteDel: ExecCmd error!"},
        {"an unknown family", Del("eth0", Route("none", 16, "none", 5), 100), -1, ""},
        {"an option", Add("-V", inet), -1, "",
         "ApidOneRouteAdd: the pchIfaceName is -V!; OneRouteAdd: the text [-V] is invalid!"},
        {"delete an option", Del("-V", inet6, 9), -1, ""},
    });
    TesselDebugLevelSet(2);
    tools.Fail({"ip route del 10.2.0.0/16 via 10.0.0.1", "ip route add 10.3.0.0/16 via 10.0.0.1 metric 5"});
    const auto change = [](const char* destination, const char* name) {
        return Of(0x114, Route(destination, 16, "10.0.0.1", 5, name), "ApidRouteMetricSet: RouteMetricSet error!");
    };
    tools.Check({
        {"the record's own interface", change("10.1.0.0", "eth0"), 0,
         "ip route del 10.1.0.0/16 via 10.0.0.1 dev eth0; ip route add 10.1.0.0/16 via 10.0.0.1 dev eth0 metric 5"},
        {"an option", change("10.1.0.0", "-V"), -1, ""},
        {"nothing to delete: nothing is added", change("10.2.0.0", ""), -1, "ip route del 10.2.0.0/16 via 10.0.0.1",
         "#OneRouteDel; RouteMetricSet: OneRouteDel error!"},
        {"adding fails", change("10.3.0.0", ""), -1,
         "ip route del 10.3.0.0/16 via 10.0.0.1; ip route add 10.3.0.0/16 via 10.0.0.1 metric 5",
         "#OneRouteAdd; RouteMetricSet: OneRouteAdd error!"},
    });
}

TEST(Rule, TablesAndRules) {
    LoggedTools tools(4);
    tools.Fail({"ip rule add table 0", "ip rule del table 253", "ip rule del pref 31",
                "ip rule add from 10.5.1.0/24 fwmark 7 pref 31 table 100"});
    tools.Check({
        {"the last table", Of(0x120, u32{252}), 0, "ip rule add table 252",
         "RouteTableAdd: RouteTableAdd achCmdBuf: $"},
        {"delete a table", Of(0x121, u32{100}), 0, "ip rule del table 100"},
        {"table 0 causes a warning and is tried", Of(0x120, u32{0}), -1, "ip rule add table 0",
         "ApidRouteTableAdd: the table id 0 is invalid!; RouteTableAdd: RouteTableAdd achCmdBuf: $; #RouteTableAdd; "
         "ApidRouteTableAdd: OneRouteAdd error!"},
        {"so is one of the kernel's", Of(0x121, u32{253}), -1, "ip rule del table 253",
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
    for (const TNetIpRouteParam& route : routes)
        reply.tRoutes.atRoute[reply.tRoutes.dwNum++] = route;
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
