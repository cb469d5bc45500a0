// Default gateways. The daemon reports the first default route of an interface only: the kernel knows the others.
#include "client/ctl/device.h"
#include "client/ctl/guard.h"
#include "client/ctl/perform.h"

namespace tessel::ctl {

namespace {

// Where a default route is meant to be, and through which gateway.
struct Place {
    explicit Place(const Invocation& invocation)
        : asked(invocation.asked),
          name(invocation.words.Text("dev")),
          owner(name.empty() ? "the device" : name),
          table(invocation.words.Get<u32>("table", kMainTable)) {}

    [[nodiscard]] Json Ask(int family) const {
        return DaemonGateway(asked, name, family, table);
    }
    [[nodiscard]] Json Kernel(int family) const {
        return DefaultRoutes(name, family, table);
    }
    [[nodiscard]] int Set(const Network& gateway) const {
        const TNetGateway record = GatewayOf(gateway);
        return tessel_gateway_set(NameOrNull(name), &record, WireTable(table));
    }

    std::string asked;
    std::string name;  // empty: whichever interface
    std::string owner;
    u32 table;
};

// An interface's default routes of one family: the one that the daemon reports, then the kernel's further ones.
void AddGateways(const Place& place, int family, const Json& priorities, bool showsNone, Json& document) {
    const Json reported = place.Ask(family);
    const Json routes = place.Kernel(family);
    const Json entry = family == TESSEL_FAMILY_INET ? FindIn(priorities, "interface", place.name) : Json();
    const Json priority = entry.is_null() ? entry : entry.at("metric");
    const Json none{{"metric", nullptr}, {"learnt", reported.at("learnt")}};
    const auto add = [&](const Json& gateway, const Json& route, const Json& problem) {
        document.push_back({{"interface", place.name},
                            {"family", FamilyName(family)},
                            {"gateway", gateway},
                            {"metric", route.at("metric")},
                            {"priority", priority},
                            {"table", place.table},
                            {"learnt", route.at("learnt")},
                            {"problem", problem}});
    };
    const Json& gateway = reported.at("gateway");
    const Json own = gateway.is_null() ? Json() : FindIn(routes, "gateway", gateway);
    const bool differs = !own.is_null() && !priority.is_null() && own.at("metric") != priority;
    if (!gateway.is_null() || (showsNone && routes.empty()))
        add(gateway, own.is_null() ? none : own, differs ? Json("its priority is not in effect") : Json());
    for (const Json& route : routes) {
        if (route != own) add(route.at("gateway"), route, "a further default route: the daemon does not report it");
    }
}

Outcome ShowGateway(const Invocation& invocation) {
    const Place asked(invocation);
    const Json priorities = DaemonPriorities(invocation.asked);
    Outcome outcome;
    outcome.document = Json::array();
    ForEachInterface(asked.name, outcome, [&](const std::string& name) {
        Place place = asked;
        place.name = name;
        for (const int family : FamiliesOf(invocation.options))
            AddGateways(place, family, priorities, !asked.name.empty(), outcome.document);
    });
    return outcome;
}

// Why the daemon's -1 to setting a gateway; empty: not known. In the kernel's order: first whether the gateway can be
// reached, then whether the route is new.
std::string WhyNotSet(const Place& place, const Network& gateway) {
    std::string why = WhyUnreachable(gateway, place.name);
    if (!why.empty()) return why;
    // What the daemon runs for IPv6 in the main table takes the place of what is there.
    if (gateway.family == TESSEL_FAMILY_INET6 && place.table == kMainTable) return "";
    const Json own = place.Kernel(gateway.family);
    if (!own.empty()) {
        const std::string old = TextOf(own[0], "gateway");
        return Format("{} already has {} (\"gateway replace\" takes its place)", place.owner,
                      old.empty() ? "a default route" : old);
    }
    const Json priority = FindIn(DaemonPriorities(place.asked), "interface", place.name);
    const Json metric = priority.is_null() ? Json(0) : priority.at("metric");
    const Json other = FindIn(DefaultRoutes("", gateway.family, place.table), "metric", metric);
    if (gateway.family == TESSEL_FAMILY_INET6 || other.is_null()) return "";
    return Format("the default route of {} has the same metric {} (see \"priority\")", TextOf(other, "interface"),
                  metric.get<int>());
}

// Completes a change whose `send` sets a gateway, and performs it.
Outcome PerformSetGateway(const Invocation& invocation, const Place& place, const Network& gateway, Change change) {
    const std::string text = HostText(gateway);
    change.done = Format("{}   gateway {} set", place.owner, text);
    change.guard = [&] { return CutsSessionOn(place.name); };
    change.read = [&] {
        Json now = place.Ask(gateway.family);
        if (!FindIn(place.Kernel(gateway.family), "gateway", text).is_null()) now["gateway"] = text;
        return now;
    };
    change.wrong = [&](const Json& now) {
        const std::string has = TextOf(now, "gateway");
        if (has == text) return std::string();
        const bool isMistaken = gateway.family == TESSEL_FAMILY_INET6 && has.starts_with(text);
        return Format("{} has {}{}", place.owner, has.empty() ? "no gateway" : has,
                      isMistaken ? R"(, which the daemon takes for the same ("gateway replace" does it))" : "");
    };
    Outcome outcome = Perform(invocation, change);
    const std::size_t routes = place.Kernel(gateway.family).size();
    if (routes > 1 && !place.name.empty())
        outcome.notes.push_back(Format("{} has {} default routes of this family now", place.name, routes));
    return outcome;
}

Outcome SetGateway(const Invocation& invocation) {
    const Place place(invocation);
    const auto& gateway = invocation.words.Get<Network>("A");
    if (gateway.family == TESSEL_FAMILY_INET6 && place.name.empty())
        throw Refused(invocation.asked, "an IPv6 gateway needs its interface (dev IF)");
    const std::string why = invocation.options.dryRun ? WhyNotSet(place, gateway) : "";
    Change change{.send = [&] { return place.Set(gateway); }};
    change.cause = [&] { return WhyNotSet(place, gateway); };
    Outcome outcome = PerformSetGateway(invocation, place, gateway, std::move(change));
    if (!why.empty()) outcome.notes.push_back("it will fail: " + why);
    return outcome;
}

Outcome ReplaceGateway(const Invocation& invocation) {
    const Place place(invocation);
    const auto& gateway = invocation.words.Get<Network>("A");
    const std::string old = TextOf(place.Ask(gateway.family), "gateway");
    std::string why;
    std::string left;
    Change change;
    change.send = [&] {
        int error = old.empty() ? TESSEL_OK
                                : tessel_gateway_del(NameOrNull(place.name), gateway.family, WireTable(place.table));
        if (error != TESSEL_OK) return error;
        error = place.Set(gateway);
        if (error == TESSEL_OK) return error;
        why = WhyNotSet(place, gateway);
        left = old.empty() ? "" : old + " was deleted before";
        // Without an answer it is not certain what there is now.
        if (error == TESSEL_E_FAILED && !old.empty() && place.Set(*ParseHost(old)) == TESSEL_OK)
            left = Format("The old gateway {} is set again", old);
        return error;
    };
    change.cause = [&] { return why; };
    try {
        Outcome outcome = PerformSetGateway(invocation, place, gateway, std::move(change));
        if (!old.empty())
            outcome.notes.push_back(Format("two steps: {} is deleted, then {} added", old, HostText(gateway)));
        return outcome;
    } catch (Failure& failure) {
        AddSentence(failure, left);
        throw;
    }
}

Outcome DelGateway(const Invocation& invocation) {
    const Place place(invocation);
    Outcome all;
    all.document = Json::array();
    std::vector<std::string> deleted;
    for (const int family : FamiliesOf(invocation.options)) {
        const std::string old = TextOf(place.Ask(family), "gateway");
        if (old.empty() && place.Kernel(family).empty()) continue;
        Change change{
            .send = [&] { return tessel_gateway_del(NameOrNull(place.name), family, WireTable(place.table)); }};
        change.guard = [&] { return CutsSessionOn(place.name); };
        change.read = [&] { return place.Ask(family); };
        change.wrong = [&](const Json& now) {
            const bool isThere = !old.empty() && TextOf(now, "gateway") == old;
            return isThere ? Format("{} still has {}", place.owner, old) : "";
        };
        const Outcome one = Perform(invocation, change);
        if (one.failure) all.failure = one.failure;
        all.document.push_back(one.document);
        deleted.push_back(old.empty() ? "default route" : "gateway " + old);
        const std::string left = one.document.is_null() ? "" : TextOf(one.document, "gateway");
        if (!left.empty() && left != old)
            all.notes.push_back(Format("{} has another default route still, via {}", place.owner, left));
    }
    if (deleted.empty()) throw Failed(invocation.asked, Format("nothing to delete, {} has no gateway", place.owner));
    all.done = Format("{}   {} deleted", place.owner, Joined(deleted, ", "));
    return all;
}

constexpr Command kGatewayCommands[] = {
    Row("show", "[dev IF] [table N:1-2147483647]", &ShowGateway, "default gateways, with the metrics of their routes",
        "gateway show dev eth0 -4")
        .Sends(TESSEL_CMD_GATEWAY_GET, TESSEL_CMD_PRIORITY_GET)
        .OfFamily()
        .Columns("INTERFACE {interface}|FAMILY {family}|GATEWAY {gateway}|METRIC {metric}|MARKS {learnt} {problem}")
        .More("The daemon reports the first default route of an interface only; the kernel's further ones are "
              "marked. Metrics are the kernel's."),
    Row("set", "A [dev IF] [table N:1-2147483647]", &SetGateway, "add a default route, and read it back",
        "gateway set 192.168.1.1 dev eth0")
        .Sends(TESSEL_CMD_GATEWAY_SET, TESSEL_CMD_GATEWAY_GET)
        .More("IPv4 fails where there is one of the same metric: use \"gateway replace\". The metric is the "
              "interface's priority. IPv6 needs the interface and takes the place of the one in the main table."),
    Row("del", "[dev IF] [table N:1-2147483647]", &DelGateway, "delete the default route of one family or both",
        "gateway del dev eth0 -4")
        .Sends(TESSEL_CMD_GATEWAY_DEL, TESSEL_CMD_GATEWAY_GET)
        .OfFamily()
        .More("Without an interface: the first IPv4 one, and all IPv6 ones."),
    Row("replace", "A dev IF [table N:1-2147483647]", &ReplaceGateway,
        "delete the default route of an interface, then add this one", "gateway replace 192.168.1.1 dev eth0")
        .Sends(TESSEL_CMD_GATEWAY_DEL, TESSEL_CMD_GATEWAY_SET, TESSEL_CMD_GATEWAY_GET)
        .More("Two steps, with no default route in between. When the second one fails, the old gateway is set again."),
};

}  // namespace

extern const Object kGateway = {.name = "gateway", .summary = "default gateways", .commands = kGatewayCommands};

}  // namespace tessel::ctl
