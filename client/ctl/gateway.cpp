// Default gateways. The daemon reports the first default route of an interface only: the kernel knows the others.
#include "client/ctl/device.h"
#include "client/ctl/perform.h"
#include "client/ctl/watch.h"

namespace tessel::ctl {

namespace {

struct Place {
    [[nodiscard]] Json Ask(int family) const {
        return DaemonGateway(invocation.asked, name, family, table);
    }
    [[nodiscard]] Json Kernel(int family) const {
        return DefaultRoutes(name, family, table);
    }
    [[nodiscard]] int Set(const Network& gateway) const {
        const TNetGateway record = GatewayOf(gateway);
        return tessel_gateway_set(NameOrNull(name), &record, WireTable(table));
    }
    [[nodiscard]] int Delete(int family) const {
        return tessel_gateway_del(NameOrNull(name), family, WireTable(table));
    }

    const Invocation& invocation;
    std::string name = invocation.words.Text("dev");  // empty: any interface
    u32 table = invocation.words.Get<u32>("table", kMainTable);
    std::string owner = name.empty() ? "the device" : name;
};

// For each interface and family, the default route that the daemon reports, then the kernel's others.
Outcome ShowGateway(const Invocation& invocation) {
    Place place{invocation};
    const bool isNamed = !place.name.empty();
    const Json priorities = DaemonPriorities(invocation.asked);
    Outcome outcome{.document = Json::array()};
    const auto add = [&](int family, const Json& route, const Json& priority, const Json& problem) {
        outcome.document.push_back({{"interface", place.name},
                                    {"family", FamilyName(family)},
                                    {"gateway", route.at("gateway")},
                                    {"metric", route.value("metric", Json())},
                                    {"priority", priority},
                                    {"table", place.table},
                                    {"learnt", route.at("learnt")},
                                    {"problem", problem}});
    };
    ForEachInterface(place.name, outcome, [&](const std::string& name) {
        place.name = name;
        for (const int family : FamiliesOf(invocation.options)) {
            const Json reported = place.Ask(family);
            const Json routes = place.Kernel(family);
            const bool isInet = family == TESSEL_FAMILY_INET;
            const Json priority = isInet ? FindIn(priorities, "interface", name)["metric"] : Json();
            const bool hasOne = !reported.at("gateway").is_null();
            const Json own = hasOne ? FindIn(routes, "gateway", reported.at("gateway")) : Json();
            const bool differs = !own.is_null() && !priority.is_null() && own.at("metric") != priority;
            if (hasOne || (isNamed && routes.empty()))
                add(family, own.is_null() ? reported : own, priority,
                    differs ? Json("its priority is not in effect") : Json());
            for (const Json& route : routes)
                if (route != own) add(family, route, priority, "another default route: the daemon does not report it");
        }
    });
    if (outcome.document.empty() && !outcome.failure) outcome.notes = {"there is no default gateway"};
    return outcome;
}

// Why the daemon's -1 to setting a gateway; empty: not known. In the kernel's order: first whether the gateway can be
// reached, then whether the route is new.
std::string WhyNotSet(const Place& place, const Network& gateway) {
    std::string why = WhyUnreachable(gateway, place.name);
    // What the daemon runs for IPv6 in the main table replaces what is there.
    const bool isInet6 = gateway.family == TESSEL_FAMILY_INET6;
    if (!why.empty() || (isInet6 && place.table == kMainTable)) return why;
    const Json own = place.Kernel(gateway.family);
    if (!own.empty()) {
        const std::string old = TextOf(own[0], "gateway");
        return Format("{} already has {} (use \"gateway replace\")", place.owner,
                      old.empty() ? "a default route" : old);
    }
    const auto metric = NumberOf(FindIn(DaemonPriorities(place.invocation.asked), "interface", place.name), "metric");
    const Json other = FindIn(DefaultRoutes("", gateway.family, place.table), "metric", metric);
    if (isInet6 || other.is_null()) return "";
    return Format("the default route of {} has metric {}, too (see \"priority\")", TextOf(other, "interface"), metric);
}

template <bool kReplaces>
Outcome SetGateway(const Invocation& invocation) {
    const Place place{invocation};
    const auto& gateway = invocation.words.Get<Network>("A");
    const std::string text = HostText(gateway);
    const bool isInet6 = gateway.family == TESSEL_FAMILY_INET6;
    if (isInet6 && place.name.empty()) throw Refused(invocation.asked, "an IPv6 gateway needs its interface (dev IF)");
    const std::string old = kReplaces ? TextOf(place.Ask(gateway.family), "gateway") : "";
    const std::string why = !kReplaces && invocation.options.dryRun ? WhyNotSet(place, gateway) : "";
    const auto send = [&] {
        std::optional<HeldSignals> held;  // there is no gateway in between
        if (!old.empty()) held.emplace();
        if (held) (void)EndCallsAt(-1);
        if (held) Require(invocation.asked, place.Delete(gateway.family));
        const int error = place.Set(gateway);
        if (error == TESSEL_OK || old.empty()) return error;
        const Failure failure = CallFailed(invocation.asked, error, WhyNotSet(place, gateway));
        // Without an answer it is not certain what there is now.
        const bool isBack = error == TESSEL_E_FAILED && place.Set(*ParseHost(old)) == TESSEL_OK;
        const std::string left = isBack ? Format("The old gateway {} is set again", old) : old + " was deleted before";
        throw Failure{failure.exit, failure.error, Format("{} ({})", failure.message, left)};
    };
    Change change{.send = send, .guard = [&] { return CutsSessionOn(invocation.options, place.name); }};
    change.done = Format("{}   gateway {} set", place.owner, text);
    change.cause = [&] { return WhyNotSet(place, gateway); };
    change.read = [&] {
        Json now = place.Ask(gateway.family);
        if (!FindIn(place.Kernel(gateway.family), "gateway", text).is_null()) now["gateway"] = text;
        return now;
    };
    change.wrong = [&](const Json& now) {
        const std::string has = TextOf(now, "gateway");
        if (has == text) return std::string();
        const std::string other = Format("{} has {}", place.owner, has.empty() ? "no gateway" : has);
        const bool isMistaken = isInet6 && has.starts_with(text);
        return isMistaken ? other + R"(, which the daemon takes for the same ("gateway replace" does it))" : other;
    };
    Outcome outcome = Perform(invocation, change);
    const std::size_t routes = place.Kernel(gateway.family).size();
    if (!why.empty()) outcome.notes.push_back("it will fail: " + why);
    if (!old.empty()) outcome.notes.push_back(Format("two steps: {} is deleted, then {} added", old, text));
    if (routes > 1 && !place.name.empty())
        outcome.notes.push_back(Format("{} has {} default routes of this family now", place.name, routes));
    return outcome;
}

Outcome DelGateway(const Invocation& invocation) {
    const Place place{invocation};
    Outcome all{.document = Json::array()};
    std::vector<std::string> deleted;
    for (const int family : FamiliesOf(invocation.options)) {
        const std::string old = TextOf(place.Ask(family), "gateway");
        if (old.empty() && place.Kernel(family).empty()) continue;
        Change change{.send = [&] { return place.Delete(family); },
                      .guard = [&] { return CutsSessionOn(invocation.options, place.name); }};
        change.read = [&] { return place.Ask(family); };
        change.wrong = [&](const Json& now) {
            const bool isThere = !old.empty() && now.at("gateway") == old;
            return isThere ? Format("{} still has {}", place.owner, old) : "";
        };
        const Outcome one = Perform(invocation, change);
        if (one.failure) all.failure = one.failure;
        all.document.push_back(one.document);
        deleted.push_back(old.empty() ? "default route" : "gateway " + old);
        const std::string left = TextOf(one.document, "gateway");
        if (!left.empty() && left != old)
            all.notes.push_back(Format("{} still has another default route, via {}", place.owner, left));
    }
    if (deleted.empty()) throw Failed(invocation.asked, Format("nothing to delete, {} has no gateway", place.owner));
    all.done = Format("{}   {} deleted", place.owner, Joined(deleted, ", "));
    return all;
}

constexpr Command kGatewayCommands[] = {
    FamilyRow("show", "[dev IF] [table N:1-2147483647]", &ShowGateway,
              "default gateways, with the metrics of their routes", "gateway show dev eth0 -4")
        .Sends(TESSEL_CMD_GATEWAY_GET, TESSEL_CMD_PRIORITY_GET)
        .Columns("INTERFACE {interface}|FAMILY {family}|GATEWAY {gateway}|METRIC {metric}|MARKS {learnt} {problem}")
        .More("Metrics and further default routes come from the kernel: the daemon reports only the first."),
    Row("set", "A [dev IF] [table N:1-2147483647]", &SetGateway<false>, "add a default route, and read it back",
        "gateway set 192.168.1.1 dev eth0")
        .Sends(TESSEL_CMD_GATEWAY_SET, TESSEL_CMD_GATEWAY_GET)
        .More("The metric is the interface's priority: IPv4 fails if another route has it (use \"gateway replace\"). "
              "IPv6 needs the interface and replaces the one in the main table."),
    FamilyRow("del", "[dev IF] [table N:1-2147483647]", &DelGateway, "delete default routes", "gateway del dev eth0 -4")
        .Sends(TESSEL_CMD_GATEWAY_DEL, TESSEL_CMD_GATEWAY_GET)
        .More("Without an interface: the first IPv4 one, and all IPv6 ones."),
    Row("replace", "A dev IF [table N:1-2147483647]", &SetGateway<true>,
        "delete the default route of an interface, then add a new one", "gateway replace 192.168.1.1 dev eth0")
        .Sends(TESSEL_CMD_GATEWAY_DEL, TESSEL_CMD_GATEWAY_SET, TESSEL_CMD_GATEWAY_GET)
        .More("Two steps, with no default route in between. If the second fails, the old gateway is set again."),
};

}  // namespace

extern const Object kGateway = {.name = "gateway", .summary = "default gateways", .commands = kGatewayCommands};

}  // namespace tessel::ctl
