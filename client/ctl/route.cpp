// Static routes. The daemon's listing holds only part of them: the kernel is asked whether a change happened.
#include "client/ctl/device.h"
#include "client/ctl/perform.h"

namespace tessel::ctl {

namespace {

bool IsSame(const Json& one, const Json& other, std::initializer_list<const char*> keys) {
    return std::all_of(keys.begin(), keys.end(), [&](const char* key) { return one.at(key) == other.at(key); });
}

// As much of a route of the kernel as the daemon reports of its own.
Json Known(const Json& route) {
    Json known;
    for (const char* key : {"destination", "gateway", "interface", "metric", "table", "family"})
        known[key] = route.at(key);
    return known;
}

// The daemon reads no gateway of the other family (RFC 5549), and reports none then.
bool IsReported(const Json& route, const Json& reported) {
    return std::any_of(reported.begin(), reported.end(), [&](const Json& one) {
        return IsSame(one, route, {"destination", "interface", "metric", "family"}) &&
               (one.at("gateway").is_null() || one.at("gateway") == route.at("gateway"));
    });
}

Outcome ShowRoute(const Invocation& invocation) {
    const int family = FamilyOf(invocation.options);
    Outcome outcome;
    outcome.document = DaemonRoutes(invocation.asked, family);
    Json& routes = outcome.document["routes"];
    for (Json& route : routes)
        route["reported_by"] = "daemon";
    const std::string foreign = invocation.options.kernel ? ForeignKernel() : "";
    if (!foreign.empty()) outcome.notes.push_back("the kernel was not asked: " + foreign);
    if (invocation.options.kernel && foreign.empty()) {
        const Json reported = routes;
        for (const Json& route : KernelRoutes(family)) {
            if (IsReported(route, reported)) continue;
            routes.push_back(Known(route));
            routes.back()["reported_by"] = "kernel";
        }
        outcome.document["truncated"] = false;
    }
    if (outcome.document["truncated"] == true)
        outcome.notes.emplace_back("10 routes are shown, there may be more (--kernel shows all)");
    return outcome;
}

// The route that the words describe, as a record and as the kernel would show it; a null interface: whichever.
struct MeantRoute {
    MeantRoute(const Invocation& invocation, const char* metricKey);

    // The kernel's routes to the destination, and those that go the same way: they differ by their metric only, and the
    // lowest one comes first, as the kernel takes them.
    [[nodiscard]] std::vector<Json> ToDestination() const;
    [[nodiscard]] std::vector<Json> Alike() const;
    [[nodiscard]] bool IsSameWay(const Json& other) const {
        return IsSame(route, other, {"gateway"}) && (name.empty() || IsSame(route, other, {"interface"}));
    }
    // The kernel has one route to a destination of each metric, whatever its gateway (net/ipv4/fib_trie.c); null: none.
    [[nodiscard]] Json InTheWay() const {
        return FindIn(ToDestination(), "metric", route.at("metric"));
    }
    [[nodiscard]] std::string WhyMissing() const;

    TNetIpRouteParam record{};
    std::string name;
    u32 table;
    Network gateway;
    Json route;
};

MeantRoute::MeantRoute(const Invocation& invocation, const char* metricKey)
    : name(invocation.words.Text("dev")),
      table(invocation.words.Get<u32>("table", kMainTable)),
      gateway(invocation.words.Get<Network>("via")) {
    constexpr u32 kInet6Default = 1024;  // IPv6 has none of 0 (IP6_RT_PRIO_USER)
    const auto& network = invocation.words.Get<Network>("A/L");
    const auto metric = invocation.words.Get<u32>(metricKey, 0);
    if (gateway.family != network.family)
        throw Refused(invocation.asked, "destination and gateway are of two families");
    if (Masked(network) != network)
        throw Refused(invocation.asked, Format("{} is no network but an address in {}", NetworkText(network),
                                               NetworkText(Masked(network))));
    memcpy(record.achDevName, name.data(), name.size());
    record.tDestIpNet = GatewayOf(network);
    record.tGateway = GatewayOf(gateway);
    record.nPrefixLen = static_cast<i32>(network.length);
    record.nMetric = static_cast<i32>(metric);
    route = {{"destination", network.length == 0 ? "default" : NetworkText(network)},
             {"gateway", HostText(gateway)},
             {"interface", NullIfEmpty(name)},
             {"metric", network.family == TESSEL_FAMILY_INET6 && metric == 0 ? kInet6Default : metric},
             {"table", table},
             {"family", FamilyName(network.family)}};
}

std::vector<Json> MeantRoute::ToDestination() const {
    std::vector<Json> routes;
    for (const Json& one : KernelRoutes(gateway.family, table)) {
        if (IsSame(route, one, {"destination"})) routes.push_back(Known(one));
    }
    return routes;
}

std::vector<Json> MeantRoute::Alike() const {
    auto routes = ToDestination();
    std::erase_if(routes, [&](const Json& one) { return !IsSameWay(one); });
    std::stable_sort(routes.begin(), routes.end(), [](const Json& one, const Json& other) {
        return NumberOf(one, "metric") < NumberOf(other, "metric");
    });
    return routes;
}

// Why the daemon's -1 to a change of a route that is not there; empty: not known.
std::string MeantRoute::WhyMissing() const {
    if (!ForeignKernel().empty() || !Alike().empty()) return "";
    std::string missing = MissingInterface(name);
    if (!missing.empty()) return missing;
    const auto others = ToDestination();
    return others.empty() ? "there is no such route" : "there is only " + RouteText(others.front());
}

// Performs a change after which the route should be there.
Outcome PerformSetRoute(const Invocation& invocation, const MeantRoute& meant, Change change) {
    change.readsKernel = true;
    change.done = Format("{}   {}", RouteText(meant.route), invocation.words.Has("N") ? "set" : "added");
    change.read = [&] {
        return ForeignKernel().empty() ? FindIn(meant.Alike(), "metric", meant.route.at("metric")) : meant.route;
    };
    change.wrong = [](const Json& now) { return now.is_null() ? "the kernel has no such route" : ""; };
    return Perform(invocation, change);
}

Outcome AddRoute(const Invocation& invocation) {
    const MeantRoute meant(invocation, "metric");
    Change change{
        .send = [&] { return tessel_route_add(NameOrNull(meant.name), &meant.record, WireTable(meant.table)); }};
    change.cause = [&] {
        if (!ForeignKernel().empty()) return std::string();
        const Json inTheWay = meant.InTheWay();
        if (!inTheWay.is_null()) return "there is already " + RouteText(inTheWay);
        return WhyUnreachable(meant.gateway, meant.name);
    };
    return PerformSetRoute(invocation, meant, std::move(change));
}

// The further ones, which a change of the first leaves alone.
void NoteOthers(const std::vector<Json>& routes, std::size_t first, Outcome& outcome) {
    std::vector<std::string> texts;
    for (std::size_t i = first; i < routes.size(); ++i)
        texts.push_back(RouteText(routes[i]));
    if (!texts.empty()) outcome.notes.push_back("still there: " + Joined(texts, ", "));
}

Outcome DelRoute(const Invocation& invocation) {
    const MeantRoute meant(invocation, "metric");
    const auto before = meant.Alike();
    std::vector<Json> after;
    Change change{
        .send = [&] { return tessel_route_del(NameOrNull(meant.name), &meant.record, WireTable(meant.table)); }};
    change.guard = [&] {
        const bool isFirst = before.empty() || IsSame(before.front(), meant.route, {"metric"});
        if (isFirst || !invocation.words.Has("metric")) return std::string();
        return Format("the daemon names no metric, and the kernel would delete the one of metric {}",
                      NumberOf(before.front(), "metric"));
    };
    change.cause = [&] { return meant.WhyMissing(); };
    change.readsKernel = true;
    change.read = [&] {
        after = meant.Alike();
        return before.empty() ? meant.route : before.front();
    };
    change.wrong = [&](const Json& /*gone*/) {
        return !after.empty() && after.size() >= before.size() ? "the route is still there" : "";
    };
    change.done = RouteText(before.empty() ? meant.route : before.front()) + "   deleted";
    Outcome outcome = Perform(invocation, change);
    if (!outcome.failure && ForeignKernel().empty()) NoteOthers(after, 0, outcome);
    return outcome;
}

Outcome SetMetric(const Invocation& invocation) {
    const MeantRoute meant(invocation, "N");
    const auto before = meant.Alike();
    Change change{.send = [&] { return tessel_route_metric_set(&meant.record); }};
    change.guard = [&] {
        const Json inTheWay = meant.InTheWay();
        if (inTheWay.is_null() || before.empty() || before.front() == inTheWay) return std::string();
        return Format("there is {}: the route would be deleted and not added again", RouteText(inTheWay));
    };
    change.cause = [&] {
        const bool isLost = ForeignKernel().empty() && meant.Alike().size() < before.size();
        return isLost ? "the route was deleted and could not be added again" : meant.WhyMissing();
    };
    Outcome outcome = PerformSetRoute(invocation, meant, std::move(change));
    NoteOthers(before, 1, outcome);
    return outcome;
}

constexpr Command kRouteCommands[] = {
    Row("show", "", &ShowRoute, "routes through a gateway, default routes left out", "route show -4")
        .Sends(TESSEL_CMD_ROUTE_GET_ALL)
        .OfFamily()
        .Columns("DESTINATION {destination}|GATEWAY {gateway}|INTERFACE {interface}|METRIC {metric}|REPORTED BY "
                 "{reported_by}")
        .More("The daemon reports 10 routes of the main table at most, IPv4 first; a full list is marked. --kernel "
              "adds the others: further ones, default routes, and networks on the link."),
    Row("add", "A/L via A [dev IF] [metric N:0-2147483647] [table N:1-2147483647]", &AddRoute,
        "add a route, and look for it in the kernel", "route add 10.1.0.0/16 via 192.168.1.254 dev eth0 metric 5")
        .Sends(TESSEL_CMD_ROUTE_ADD)
        .More("Without a metric it is 0, which the kernel makes 1024 for IPv6. There may be one route to a "
              "destination of each metric."),
    Row("metric", "A/L N:0-2147483647 via A dev IF", &SetMetric, "delete a route and add it again with this metric",
        "route metric 10.1.0.0/16 via 192.168.1.254 dev eth0 30")
        .Sends(TESSEL_CMD_ROUTE_METRIC_SET)
        .More("Of several such routes that of the lowest metric is meant. Main table only."),
    Row("del", "A/L via A [dev IF] [metric N:0-2147483647] [table N:1-2147483647]", &DelRoute, "delete a route",
        "route del 10.1.0.0/16 via 192.168.1.254 dev eth0")
        .Sends(TESSEL_CMD_ROUTE_DEL)
        .More("The metric is not sent: of several such routes that of the lowest metric goes. A metric typed here "
              "only makes sure that this is the one."),
};

}  // namespace

extern const Object kRoute = {
    .name = "route", .summary = "static routes through a gateway", .commands = kRouteCommands};

}  // namespace tessel::ctl
