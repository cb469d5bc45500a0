#include <fmt/format.h>

#include <algorithm>

#include "client/ctl/gateways.h"
#include "client/ctl/handlers.h"
#include "client/ctl/optional_json.h"
#include "client/ctl/values.h"
#include "client/libtessel.h"
#include "core/text.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

constexpr char kFixedSet[] =
    "not taken: the set of interfaces is fixed by the first \"priority set\" until the daemon restarts";

struct Pair {
    std::string interfaceName;
    i32 metric;
};

// The pairs as typed.
std::vector<Pair> PairsOf(const Arguments& words) {
    const auto names = words.All("IF");
    const auto metrics = words.All("METRIC");
    std::vector<Pair> pairs;
    for (std::size_t i = 0; i < names.size(); ++i)
        pairs.push_back({names[i], static_cast<i32>(*ParseNumber(metrics[i]))});
    return pairs;
}

// Which other interface would get this one's metric: the daemon takes the first whose name begins with it. Empty: none.
std::string TakenFor(const TNetPrioParamList& list, const std::string& name) {
    for (const TNetPrioParam& entry : list.atPrio) {
        const std::string known = FieldText(entry.achDevName).Get();
        if (known.starts_with(name)) return known == name ? "" : known;
    }
    return "";
}

// Nothing: the list may be sent.
std::optional<std::string> WhyRefused(const std::vector<Pair>& pairs, const TNetPrioParamList& before) {
    if (pairs.size() > TESSEL_PRIORITIES_MAX) return fmt::format("{} interfaces at most", int{TESSEL_PRIORITIES_MAX});
    for (auto pair = pairs.begin(); pair != pairs.end(); ++pair) {
        const bool isTwice = std::any_of(
            pairs.begin(), pair, [&](const Pair& earlier) { return earlier.interfaceName == pair->interfaceName; });
        if (isTwice) return pair->interfaceName + " is named twice";
        const std::string other = TakenFor(before, pair->interfaceName);
        if (other.empty()) continue;
        return fmt::format("the daemon would change {} instead: it takes the first name that begins with \"{}\"", other,
                           pair->interfaceName);
    }
    return std::nullopt;
}

TNetPrioParamList RequestOf(const std::vector<Pair>& pairs) {
    TNetPrioParamList list{};
    for (const Pair& pair : pairs) {
        TNetPrioParam& entry = list.atPrio[list.dwNum];
        memcpy(entry.achDevName, pair.interfaceName.data(), pair.interfaceName.size());
        entry.nPriority = pair.metric;
        list.dwNum = list.dwNum + 1;
    }
    return list;
}

std::vector<KernelRoute> DefaultsOf(const std::string& interfaceName) {
    return KernelDefaults({.interfaceName = interfaceName, .table = 0}, TESSEL_FAMILY_INET);
}

bool HasMetric(const std::vector<KernelRoute>& routes, i32 metric) {
    return std::any_of(routes.begin(), routes.end(),
                       [&](const KernelRoute& route) { return std::cmp_equal(route.metric, metric); });
}

// One pair after the daemon's answer.
struct Result {
    std::optional<i32> previous;
    std::optional<i32> now;
    bool isTaken = false;
    bool hasMoved = false;     // the kernel's default route came to this metric
    std::string routeProblem;  // empty: none
};

Result ResultOf(const Pair& pair, const TNetPrioParamList& before, const TNetPrioParamList& after,
                const std::vector<KernelRoute>& routesBefore) {
    Result result{.previous = PriorityOf(before, pair.interfaceName),
                  .now = PriorityOf(after, pair.interfaceName),
                  .isTaken = false,
                  .hasMoved = false,
                  .routeProblem = {}};
    result.isTaken = result.now == pair.metric;
    if (!result.isTaken) return result;
    const auto routes = DefaultsOf(pair.interfaceName);
    result.hasMoved = HasMetric(routes, pair.metric) && !HasMetric(routesBefore, pair.metric);
    if (routes.empty() && !routesBefore.empty()) {
        result.routeProblem = "its default route is gone";
    } else if (!routes.empty() && !HasMetric(routes, pair.metric)) {
        result.routeProblem = fmt::format("its default route still has metric {}", routes[0].metric);
    }
    return result;
}

std::string ChangeText(const Pair& pair, const Result& result) {
    if (!result.previous) return fmt::format("set to {}", pair.metric);
    if (result.previous == result.now) return fmt::format("{} as before", pair.metric);
    return fmt::format("{} -> {}", *result.previous, pair.metric);
}

std::string ResultText(const Pair& pair, const Result& result, std::size_t width) {
    if (!result.isTaken) return result.now ? fmt::format("not taken: it is {}", *result.now) : kFixedSet;
    const std::string more = result.hasMoved ? "default route moved" : result.routeProblem;
    return more.empty() ? ChangeText(pair, result)
                        : fmt::format("{:<{}}     {}", ChangeText(pair, result), width, more);
}

Outcome ShownResults(const std::string& asked, const std::vector<Pair>& pairs, const std::vector<Result>& results) {
    std::size_t width = 0;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        if (results[i].isTaken) width = std::max(width, ChangeText(pairs[i], results[i]).size());
    }
    Outcome outcome;
    outcome.table.gapBlanks = 3;
    std::vector<std::string> failed;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const Result& result = results[i];
        const bool isDone = result.isTaken && result.routeProblem.empty();
        if (!isDone) failed.push_back(pairs[i].interfaceName);
        outcome.table.rows.push_back(
            {{pairs[i].interfaceName}, {ResultText(pairs[i], result, width), isDone ? Style::kPlain : Style::kBad}});
        outcome.document.push_back({{"interface", pairs[i].interfaceName},
                                    {"previous", OrNull(result.previous)},
                                    {"priority", OrNull(result.now)},
                                    {"taken", result.isTaken},
                                    {"default_route_moved", result.hasMoved}});
    }
    if (!failed.empty()) {
        outcome.failure =
            NotApplied(asked, fmt::format("answered success, but it did not happen for {}", fmt::join(failed, ", ")));
    }
    return outcome;
}

}  // namespace

Outcome PriorityShow(const Invocation& /*invocation*/) {
    TNetPrioParamList list{};
    const int error = tessel_priority_get(&list);
    if (error != TESSEL_OK) return CallFailed("priority show", error);
    Outcome outcome;
    outcome.document = ordered_json::array();
    outcome.table.header = {"INTERFACE", "PRIORITY", "GATEWAY", "METRIC"};
    for (const TNetPrioParam& entry : list.atPrio) {
        const std::string name = FieldText(entry.achDevName).Get();
        if (name.empty()) continue;
        const i32 priority = entry.nPriority;
        const auto routes = DefaultsOf(name);
        const std::string gateway = routes.empty() ? "" : routes[0].gateway;
        const bool differs = !routes.empty() && !HasMetric({routes[0]}, priority);
        outcome.table.rows.push_back(
            {{name},
             {std::to_string(priority)},
             {gateway.empty() ? "-" : gateway},
             {routes.empty() ? "-" : std::to_string(routes[0].metric), differs ? Style::kBad : Style::kPlain}});
        outcome.document.push_back({{"interface", name},
                                    {"priority", priority},
                                    {"gateway", NullIfEmpty(gateway)},
                                    {"metric", routes.empty() ? ordered_json() : ordered_json(routes[0].metric)}});
    }
    if (outcome.document.empty()) outcome.notes.emplace_back("no priorities are set: IPv4 gateways get metric 0");
    return outcome;
}

Outcome PrioritySet(const Invocation& invocation) {
    const std::vector<Pair> pairs = PairsOf(invocation.words);
    std::string asked = "priority set";
    for (const Pair& pair : pairs)
        asked += fmt::format(" {} {}", pair.interfaceName, pair.metric);
    TNetPrioParamList before{};
    const int askError = invocation.options.dryRun ? TESSEL_OK : tessel_priority_get(&before);
    if (askError != TESSEL_OK) return CallFailed(asked, askError);
    if (const auto why = WhyRefused(pairs, before)) return Refused(asked, *why);
    std::vector<std::vector<KernelRoute>> routesBefore;
    routesBefore.reserve(pairs.size());
    for (const Pair& pair : pairs)
        routesBefore.push_back(DefaultsOf(pair.interfaceName));
    const TNetPrioParamList request = RequestOf(pairs);
    const int error = tessel_priority_set(&request);
    if (error != TESSEL_OK) return CallFailed(asked, error);
    TNetPrioParamList after{};
    const int readError = tessel_priority_get(&after);
    if (readError != TESSEL_OK) return CallFailed(asked + ", read back", readError);
    std::vector<Result> results;
    for (std::size_t i = 0; i < pairs.size(); ++i)
        results.push_back(ResultOf(pairs[i], before, after, routesBefore[i]));
    Outcome outcome = ShownResults(asked, pairs, results);
    if (before.dwNum == 0) outcome.notes.emplace_back("the set of interfaces is fixed now until the daemon restarts");
    return outcome;
}

}  // namespace tessel::ctl
