// Which way a packet would take, by the kernel's own lookup, and which other routes could have carried it.
#include <linux/rtnetlink.h>

#include "client/ctl/device.h"
#include "client/ctl/output.h"

namespace tessel::ctl {

namespace {

i64 LengthOf(const Json& route) {
    const auto network = ParseNetwork(TextOf(route, "destination"));
    return network ? network->length : 0;
}

// The rule by which the table was looked into, with "note": what came of those before it. Null: none is known.
Json RuleFor(const Network& target, const Network* from, u32 mark, const Json& route) {
    std::string note = "no earlier rule matches";
    for (Json& rule : KernelRules(target.family)) {
        const auto source = ParseNetwork(TextOf(rule, "from"));
        const bool matches = (!source || (from != nullptr && Covers(*source, *from))) &&
                             (rule["fwmark"].is_null() || NumberOf(rule, "fwmark") == mark);
        if (matches && rule["table"] == route["table"]) {
            rule["note"] = note;
            return std::move(rule);
        }
        // Every lookup begins with the device's own addresses.
        if (matches && rule["table"] != u32{RT_TABLE_LOCAL}) note = "what matches earlier has no route there";
    }
    return {};
}

// Why a route is used rather than the next one; with the daemon's priority, if it made the metric and can be asked.
std::string WhyBefore(const Json& route, const Json& next) {
    if (LengthOf(route) != LengthOf(next)) return ": longest prefix";
    std::string why = ": lowest metric";
    if (TextOf(route, "destination") != "default" || TextOf(route, "family") != "inet") return why;
    try {
        const Json priority = FindIn(DaemonPriorities(""), "interface", route["interface"]);
        if (!priority.is_null()) why += FillTemplate(" (priority {interface} = {metric})", priority);
    } catch (const Failure&) {
    }
    return why;
}

// What leads to the target in the table of its route, the best one first, each with "note": why it is or is not used.
Json RoutesTo(const Network& target, const Json& route) {
    Json routes = Json::array();
    for (Json& one : KernelRoutes(target.family, static_cast<u32>(NumberOf(route, "table")))) {
        const auto network = ParseNetwork(TextOf(one, "destination"));
        if (network && !Covers(*network, target)) continue;
        one.update({{"chosen", false}, {"note", nullptr}});
        routes.push_back(std::move(one));
    }
    const auto rank = [](const Json& one) { return std::pair(-LengthOf(one), NumberOf(one, "metric")); };
    std::stable_sort(routes.begin(), routes.end(), [&](auto& one, auto& other) { return rank(one) < rank(other); });
    const auto chosen = std::find_if(routes.begin(), routes.end(), [&](const Json& one) {
        return one["interface"] == route["interface"] && one["gateway"] == route["gateway"];
    });
    if (chosen == routes.end()) return routes;
    (*chosen)["chosen"] = true;
    (*chosen)["note"] = "chosen";
    if (const auto next = chosen + 1; next != routes.end()) {
        (*chosen)["note"] = "chosen" + WhyBefore(*chosen, *next);
        (*next)["note"] = Format("next if {} loses its route", TextOf(route, "interface"));
    }
    return routes;
}

std::string TableText(long long table) {
    return table == kMainTable ? "main" : Format("{}", table);
}

std::string WayText(const Json& way) {
    const std::string target = TextOf(way, "target");
    if (way["local"] == true) return target + " is an address of this device\n";
    std::string text = target + FillTemplate(" leaves through {interface}", way);
    text += way["gateway"].is_null() ? ", on the link" : " via " + TextOf(way, "gateway");
    text += FillTemplate(", source {source}", way) + ", table " + TableText(NumberOf(way, "table")) + "\n";
    Rows rows;
    if (const Json& rule = way["rule"]; !rule.is_null()) {
        const std::string words = FillTemplate("  rule {pref}: from {from}", rule);
        rows.push_back({words + FillTemplate(" fwmark {fwmark}", rule) + " lookup " + TableText(rule["table"]),
                        TextOf(rule, "note")});
    }
    for (const Json& route : way["routes"])
        rows.push_back(
            {"  " + RouteText(route), FillTemplate(route["chosen"] == true ? "<- {note}" : "   {note}", route)});
    return text + RenderRows(rows);
}

Outcome Why(const Invocation& invocation) {
    const auto& target = invocation.words.Get<Network>("A");
    const auto* from = invocation.words.If<Network>("from");
    const u32 mark = invocation.words.Get<u32>("fwmark", 0);
    if (from != nullptr && from->family != target.family) throw Refused(invocation.asked, "addresses of two families");
    std::string problem;
    const Json route = KernelRouteTo(target, from, mark == 0 ? std::nullopt : std::optional(mark), problem);
    if (route.is_null()) throw Failure{kExitFailed, "unreachable", invocation.asked + ": " + problem};
    Json way{{"target", HostText(target)}};
    for (const char* key : {"interface", "gateway", "source", "table", "family", "local"})
        way[key] = route[key];
    if (from != nullptr) way["source"] = HostText(*from);
    way["rule"] = RuleFor(target, from, mark, route);
    way["routes"] = RoutesTo(target, route);
    return {.document = way, .text = WayText(way)};
}

constexpr Command kWhyCommands[] = {
    Row("", "A [from A] [fwmark N]", &Why, "the route, rule and gateway a packet to A would take", "why 192.168.1.1")
        .Sends(TESSEL_CMD_PRIORITY_GET)
        .More("Asks the kernel, not the daemon; \"from\" takes an address of this device."),
};

}  // namespace

extern const Object kWhy = {.name = "why", .summary = "which way a packet takes", .commands = kWhyCommands};

}  // namespace tessel::ctl
