// Static routes; rules, and those without conditions that bring a table into play (the daemon makes them for IPv4
// only). The daemon lists few routes and no rules: the kernel is asked whether a change happened.
#include "client/ctl/device.h"
#include "client/ctl/perform.h"

namespace tessel::ctl {

namespace {

// The network as text. Throws a Failure for one with bits beyond its length.
std::string RequireNetwork(const Invocation& invocation, const Network& network) {
    std::string text = NetworkText(network);
    const std::string meant = NetworkText(Masked(network));
    if (meant != text) throw Refused(invocation.asked, Format("{} is not a network but an address in {}", text, meant));
    return text;
}

// As much of the kernel's routes as the daemon reports of its own; those to the same destination by metric.
Json RoutesIn(int family, u32 table) {
    Json routes = KernelRoutes(family, table);
    for (Json& route : routes)
        route.erase("learnt");
    return routes;
}

// {"routes": [{"interface" or null, "destination", "gateway" or null, "metric", "family", "table", "reported_by"}],
//  "truncated"}
Outcome ShowRoute(const Invocation& invocation) {
    const int family = FamilyOf(invocation.options);
    TNetRouteGetAllReply reply{};
    Require(invocation.asked, tessel_route_get_all(family, &reply.tRoutes));
    Json routes = Decoded(TESSEL_CMD_ROUTE_GET_ALL, reply)["routes"];
    for (Json& route : routes)
        route.update({{"table", kMainTable}, {"reported_by", "daemon"}});
    Outcome outcome;
    const Json reported = routes;
    const std::string foreign = invocation.options.kernel ? ForeignKernel() : "";
    if (!foreign.empty()) outcome.notes.push_back("the kernel was not asked: " + foreign);
    const bool isWhole = invocation.options.kernel && foreign.empty();
    const bool isCut = !isWhole && reported.size() == TESSEL_ROUTES_MAX;
    for (Json& route : isWhole ? RoutesIn(family, kMainTable) : Json::array()) {
        // The daemon reads no gateway of the other family (RFC 5549), and reports none then.
        Json withoutGateway = route;
        withoutGateway["gateway"] = nullptr;
        if (!FindIn(reported, route).is_null() || !FindIn(reported, withoutGateway).is_null()) continue;
        route["reported_by"] = "kernel";
        routes.push_back(route);
    }
    if (isCut) outcome.notes.emplace_back("10 routes are shown; there may be more (--kernel shows all)");
    if (routes.empty()) outcome.notes.emplace_back("there are no such routes (default routes: gateway)");
    outcome.document = {{"routes", routes}, {"truncated", isCut}};
    return outcome;
}

struct MeantRoute {
    explicit MeantRoute(const Invocation& invocation)
        : name(invocation.words.Text("dev")),
          table(invocation.words.Get<u32>("table", kMainTable)),
          gateway(invocation.words.Get<Network>("via")) {
        constexpr u32 kInet6Default = 1024;  // IPv6 has none of 0 (IP6_RT_PRIO_USER)
        const auto& network = invocation.words.Get<Network>("A/L");
        const std::string text = RequireNetwork(invocation, network);
        u32 metric = invocation.words.Get<u32>(invocation.words.Has("N") ? "N" : "metric", 0);
        if (gateway.family != network.family) throw Refused(invocation.asked, "route and gateway differ in family");
        memcpy(record.achDevName, name.data(), name.size());
        record.tDestIpNet = GatewayOf(network);
        record.tGateway = GatewayOf(gateway);
        record.nPrefixLen = static_cast<i32>(network.length);
        record.nMetric = static_cast<i32>(metric);
        if (network.family == TESSEL_FAMILY_INET6 && metric == 0) metric = kInet6Default;
        way = {{"destination", network.length == 0 ? "default" : text}, {"gateway", HostText(gateway)}};
        inTheWay = {{"destination", way["destination"]}, {"metric", metric}};
        if (!name.empty()) way["interface"] = name;
        itself = way;
        itself["metric"] = metric;
    }
    [[nodiscard]] Json Kernel() const {
        return RoutesIn(gateway.family, table);
    }
    // Why the daemon's -1 when the kernel has none that goes this way.
    [[nodiscard]] std::string WhyMissing() const {
        std::string missing = MissingInterface(name);
        if (!missing.empty()) return missing;
        const Json other = FindIn(Kernel(), "destination", way.at("destination"));
        return other.is_null() ? "there is no such route" : "there is only " + RouteText(other);
    }

    TNetIpRouteParam record{};
    std::string name;
    u32 table;
    Network gateway;
    Json way;       // members of routes that differ by their metric only
    Json itself;    // with the metric
    Json inTheWay;  // the kernel has one route to a destination of each metric (net/ipv4/fib_trie.c)
};

// A change of one of several that go the same way leaves the others alone.
void NoteOthers(const MeantRoute& meant, Outcome& outcome) {
    if (outcome.failure || outcome.document.is_null()) return;
    for (const Json& route : meant.Kernel()) {
        const bool isOther = HasAll(route, meant.way) && route != outcome.document;
        if (isOther) outcome.notes.push_back("still there: " + RouteText(route));
    }
}

template <bool kIsAdded>
Outcome ChangeRoute(const Invocation& invocation) {
    const MeantRoute meant(invocation);
    const bool isExact = kIsAdded || invocation.words.Has("metric");
    const auto list = [&] { return meant.Kernel(); };
    const auto send = [&] {
        const char* const name = NameOrNull(meant.name);
        return (kIsAdded ? tessel_route_add : tessel_route_del)(name, &meant.record, WireTable(meant.table));
    };
    const auto cause = [&] { return kIsAdded ? WhyUnreachable(meant.gateway, meant.name) : meant.WhyMissing(); };
    Outcome outcome =
        PerformEntry(invocation, {kIsAdded, "route", list, &RouteText, send, isExact ? meant.itself : meant.way,
                                  kIsAdded ? meant.inTheWay : meant.way, cause});
    if (!kIsAdded) NoteOthers(meant, outcome);
    return outcome;
}

Outcome SetMetric(const Invocation& invocation) {
    const MeantRoute meant(invocation);
    const Json before = FindIn(meant.Kernel(), meant.way);
    Change change{.send = [&] { return tessel_route_metric_set(&meant.record); }, .readsKernel = true};
    change.guard = [&] {
        const Json other = FindIn(meant.Kernel(), meant.inTheWay);
        if (other.is_null() || before.is_null() || before == other) return std::string();
        return Format("there is {}: the route would be deleted and not added again", RouteText(other));
    };
    change.cause = [&] {
        if (!ForeignKernel().empty()) return std::string();
        if (before.is_null()) return meant.WhyMissing();
        const bool isLost = FindIn(meant.Kernel(), before).is_null();
        return std::string(isLost ? "the route was deleted and could not be added again" : "");
    };
    change.read = [&] { return FindIn(meant.Kernel(), meant.itself); };
    change.wrong = [](const Json& now) { return now.is_null() ? "the kernel has no such route" : ""; };
    change.done = RouteText(meant.itself) + "   set";
    Outcome outcome = Perform(invocation, change);
    NoteOthers(meant, outcome);
    return outcome;
}

// "pref 30 from 192.168.1.0/24 fwmark 0x10 table 100"
std::string RuleText(const Json& rule) {
    std::string text = Format("pref {} from {}", NumberOf(rule, "pref"), TextOf(rule, "from"));
    if (!rule.at("fwmark").is_null()) text += Format(" fwmark {:#x}", NumberOf(rule, "fwmark"));
    if (rule.at("other_conditions") == true) text += " and more";
    return NumberOf(rule, "table") == 0 ? text : Format("{} table {}", text, NumberOf(rule, "table"));
}

Json Ipv4Rules() {
    return KernelRules(TESSEL_FAMILY_INET);
}

template <bool kIsAdded>
Outcome ChangeTable(const Invocation& invocation) {
    const auto table = invocation.words.Get<u32>("N");
    const auto send = [&] { return (kIsAdded ? tessel_route_table_add : tessel_route_table_del)(table); };
    const Json rule{{"from", "all"}, {"fwmark", nullptr}, {"table", table}, {"other_conditions", false}};
    const Json matched = kIsAdded ? rule : Json{{"table", table}};
    Outcome outcome = PerformEntry(invocation, {kIsAdded, "rule", &Ipv4Rules, &RuleText, send, rule, matched});
    if (table >= kMainTable - 1 && table <= kMainTable + 1)
        outcome.notes.push_back(Format("table {} is one of the kernel's own (253 to 255)", table));
    return outcome;
}

Outcome ShowRule(const Invocation& invocation) {
    Outcome outcome{.document = KernelRules(FamilyOf(invocation.options))};
    if (invocation.options.json || !invocation.options.fields.empty()) return outcome;
    for (Json& rule : outcome.document)
        if (!rule["fwmark"].is_null()) rule["fwmark"] = Format("{:#x}", NumberOf(rule, "fwmark"));
    return outcome;
}

template <bool kIsAdded>
Outcome ChangeRule(const Invocation& invocation) {
    const Words& words = invocation.words;
    const auto source = words.Get<Network>("from", Network{.family = TESSEL_FAMILY_INET});
    const auto mark = words.Get<u32>("fwmark", 0);
    const auto preference = words.Get<u32>("pref", 0);
    const auto table = words.Get<u32>("table", 0);
    if (source.family != TESSEL_FAMILY_INET) throw Refused(invocation.asked, "the daemon makes IPv4 rules only");
    const std::string from = kIsAdded ? RequireNetwork(invocation, source) : NetworkText(source);
    TNetIpRule record{};
    record.tSrcIpNet = GatewayOf(source);
    record.nPrefixLen = static_cast<i32>(source.length);
    record.nPref = static_cast<i32>(preference);
    record.nTable = static_cast<i32>(table);
    record.nFwmark = static_cast<i32>(mark);
    Json meant = Json::object();
    if (words.Has("from")) meant = {{"from", source.length == 0 ? "all" : from}, {"table", table}};
    if (mark != 0) meant["fwmark"] = mark;
    // The kernel does not compare a source of length 0.
    Json matched = meant;
    if (source.length == 0) matched.erase("from");
    if (preference != 0) meant["pref"] = preference;
    // A preference is sent alone.
    if (preference != 0) matched = {{"pref", preference}};
    // A rule with a mark or further conditions is another one.
    if (kIsAdded) meant.update({{"fwmark", mark == 0 ? Json() : Json(mark)}, {"other_conditions", false}});
    if (kIsAdded) matched = meant;
    const auto send = [&] { return (kIsAdded ? tessel_rule_add : tessel_rule_del)(&record); };
    return PerformEntry(invocation, {kIsAdded, "rule", &Ipv4Rules, &RuleText, send, meant, matched});
}

constexpr Command kRouteCommands[] = {
    FamilyRow("show", "", &ShowRoute, "routes through a gateway, default routes left out", "route show -4")
        .Sends(TESSEL_CMD_ROUTE_GET_ALL)
        .Columns("DESTINATION {destination}|GATEWAY {gateway}|INTERFACE {interface}|METRIC {metric}|REPORTED BY "
                 "{reported_by}")
        .More("At most ten of the main table, IPv4 first. --kernel adds the others, default routes and direct routes."),
    Row("add", "A/L via A [dev IF] [metric N:0-2147483647] [table N:1-2147483647]", &ChangeRoute<true>,
        "add a route, and check for it in the kernel", "route add 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5")
        .Sends(TESSEL_CMD_ROUTE_ADD)
        .More("The metric defaults to 0 (IPv6: 1024). A destination can have one route per metric."),
    Row("metric", "A/L N:0-2147483647 via A dev IF", &SetMetric, "delete a route and add it again with this metric",
        "route metric 10.1.0.0/16 via 192.168.1.254 dev eth0 30")
        .Sends(TESSEL_CMD_ROUTE_METRIC_SET)
        .More("Of several such routes, changes the one with the lowest metric. Main table only."),
    Row("del", "A/L via A [dev IF] [metric N:0-2147483647] [table N:1-2147483647]", &ChangeRoute<false>,
        "delete a route", "route del 10.1.0.0/16 via 192.168.1.254 dev eth0")
        .Sends(TESSEL_CMD_ROUTE_DEL)
        .More("Of several such routes, deletes the one with the lowest metric unless a metric is given."),
};

constexpr Command kTableCommands[] = {
    Row("add", "N:1-2147483647", &ChangeTable<true>, "make all IPv4 traffic use a routing table", "table add 100")
        .Sends(TESSEL_CMD_ROUTE_TABLE_ADD)
        .More("Adds a rule without conditions before the existing ones. Tables 253 to 255 are the kernel's."),
    Row("del", "N:1-2147483647", &ChangeTable<false>, "delete the rule that \"table add\" made", "table del 100")
        .Sends(TESSEL_CMD_ROUTE_TABLE_DEL)
        .More("The table's routes stay. Deleting the rule for table 254 cuts the device off."),
};

constexpr Command kRuleCommands[] = {
    FamilyRow("show", "", &ShowRule, "the kernel's rules, in the order in which they apply", "rule show -4")
        .Columns("PREF {pref}|FROM {from}|FWMARK {fwmark}|TABLE {table}|FAMILY {family}|MARKS {other_conditions}"),
    Row("add", "from A/L [fwmark N:0-2147483647] [pref N:1-2147483647] table N:1-2147483647", &ChangeRule<true>,
        "make a source network use a routing table", "rule add from 192.168.1.0/24 fwmark 0x10 pref 30 table 100")
        .Sends(TESSEL_CMD_RULE_ADD)
        .More("IPv4 only. Without fwmark, or with 0, it matches any mark; without pref it comes first."),
    Row("del", "from A/L [fwmark N:0-2147483647] [pref N:1-2147483647] table N:1-2147483647", &ChangeRule<false>,
        "delete a rule by its words", "rule del from 192.168.2.0/24 table 100")
        .Sends(TESSEL_CMD_RULE_DEL)
        .More("Deletes the first rule with these words, whatever else it has; with pref, the first with that."),
    Row("del", "pref N:1-2147483647", &ChangeRule<false>, "delete a rule by its preference", "rule del pref 30")
        .Sends(TESSEL_CMD_RULE_DEL),
};

}  // namespace

extern const Object kRoute = {.name = "route", .summary = "routes through a gateway", .commands = kRouteCommands};
extern const Object kTable = {.name = "table", .summary = "tables that all traffic uses", .commands = kTableCommands};
extern const Object kRule = {.name = "rule", .summary = "rules that select a routing table", .commands = kRuleCommands};

}  // namespace tessel::ctl
