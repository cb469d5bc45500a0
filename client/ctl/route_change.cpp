// Changing routes. The daemon's listing holds only part of them: the kernel is asked whether it happened.
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <variant>

#include "client/ctl/addresses.h"
#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/ctl/routes.h"
#include "client/ctl/values.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

struct RouteChange {
    TNetIpRouteParam record{};
    KernelRoute wanted;                 // an empty interface: whichever
    std::optional<std::string> metric;  // as typed
    std::string asked;

    [[nodiscard]] const char* InterfaceName() const {
        return wanted.interfaceName.empty() ? nullptr : wanted.interfaceName.c_str();
    }
    // On the wire, 0 is the main table.
    [[nodiscard]] u32 WireTable() const {
        return wanted.table == kMainTable ? 0 : wanted.table;
    }
};

// What is wrong with the numbers; empty: nothing.
std::string ProblemOfNumbers(const std::optional<std::string>& metric, const std::optional<std::string>& table) {
    if (metric && ParseNumber(*metric).value_or(0) > kNumberMax) {
        return fmt::format("a metric is a number from 0 to {}", kNumberMax);
    }
    if (!table) return "";
    const u32 number = ParseNumber(*table).value_or(0);
    return number == 0 || number > kNumberMax ? fmt::format("a table is a number from 1 to {}", kNumberMax) : "";
}

std::variant<RouteChange, Failure> ReadChange(const Arguments& words, std::string_view verb, const char* metricWord) {
    const TNetIpAddr destination = *ParsePrefixedAddress(words.Get("A/L"));
    const TNetGateway gateway = *ParseHost(words.Get("via"));
    const auto table = words.Find("table");
    RouteChange change;
    change.metric = words.Find(metricWord);
    change.record.tDestIpNet.wSinFamily = destination.wSinFamily;
    AddressBytes bytes;
    memcpy(bytes.data(), destination.abyAddr, bytes.size());
    const AddressBytes network = NetworkAddress(bytes, destination.dwPrefixLen);
    memcpy(change.record.tDestIpNet.abyAddr, network.data(), network.size());
    change.record.tGateway = gateway;
    change.record.nPrefixLen = static_cast<i32>(destination.dwPrefixLen);
    const std::string interfaceName = words.Get("dev");
    memcpy(change.record.achDevName, interfaceName.data(),
           std::min(interfaceName.size(), sizeof(change.record.achDevName) - 1));
    const std::string problem = ProblemOfNumbers(change.metric, table);
    if (problem.empty()) change.record.nMetric = static_cast<i32>(ParseNumber(change.metric.value_or("0")).value_or(0));
    change.wanted = ShowRoute(change.record, table ? ParseNumber(*table).value_or(0) : kMainTable);
    change.asked = fmt::format("route {} {}", verb, RouteText(change.wanted));
    if (!problem.empty()) return Refused(change.asked, problem);
    if (gateway.wSinFamily != destination.wSinFamily) {
        return Refused(change.asked, "destination and gateway are of two families");
    }
    if (network != bytes) {
        return Refused(change.asked, fmt::format("{} is no network but an address in {}", words.Get("A/L"),
                                                 NetworkText(change.record.tDestIpNet, change.record.nPrefixLen)));
    }
    return change;
}

// The metric that the kernel gives: IPv6 has none of 0 (IP6_RT_PRIO_USER).
u32 KernelMetric(const KernelRoute& route) {
    constexpr u32 kInet6Default = 1024;
    return route.family == TESSEL_FAMILY_INET6 && route.metric == 0 ? kInet6Default : route.metric;
}

std::vector<KernelRoute> RoutesTo(const KernelRoute& wanted) {
    auto routes = KernelRoutes(wanted.family, wanted.table);
    std::erase_if(routes, [&](const KernelRoute& route) { return route.destination != wanted.destination; });
    return routes;
}

bool IsThrough(const KernelRoute& route, const KernelRoute& wanted) {
    return route.gateway == wanted.gateway &&
           (wanted.interfaceName.empty() || route.interfaceName == wanted.interfaceName);
}

// Those that differ from what is wanted by their metric only, the lowest one first, as the kernel takes them.
std::vector<KernelRoute> RoutesLike(const KernelRoute& wanted) {
    auto routes = RoutesTo(wanted);
    std::erase_if(routes, [&](const KernelRoute& route) { return !IsThrough(route, wanted); });
    std::stable_sort(routes.begin(), routes.end(),
                     [](const KernelRoute& one, const KernelRoute& other) { return one.metric < other.metric; });
    return routes;
}

// The kernel has one route to a destination of each metric, whatever its gateway (net/ipv4/fib_trie.c).
std::optional<KernelRoute> InTheWay(const KernelRoute& wanted) {
    const auto routes = RoutesTo(wanted);
    const auto found = std::find_if(routes.begin(), routes.end(),
                                    [&](const KernelRoute& route) { return route.metric == KernelMetric(wanted); });
    if (found == routes.end()) return std::nullopt;
    return *found;
}

// Why the daemon's -1; empty: not known.
std::string WhyNotAdded(const RouteChange& change, int error) {
    if (error != TESSEL_E_FAILED || !ForeignKernel().empty()) return "";
    const auto inTheWay = InTheWay(change.wanted);
    if (inTheWay) return "there is already " + RouteText(*inTheWay);
    return WhyUnreachable(change.record.tGateway, change.wanted.interfaceName);
}

std::string WhyNotDeleted(const RouteChange& change, int error) {
    if (error != TESSEL_E_FAILED || !ForeignKernel().empty() || !RoutesLike(change.wanted).empty()) return "";
    std::string missing = change.wanted.interfaceName.empty() ? "" : MissingInterface(change.wanted.interfaceName);
    if (!missing.empty()) return missing;
    const auto others = RoutesTo(change.wanted);
    return others.empty() ? "there is no such route" : "there is only " + RouteText(others.front());
}

Outcome Done(const KernelRoute& route, std::string_view what) {
    Outcome outcome;
    outcome.document = RouteJson(route);
    outcome.document["table"] = route.table;
    outcome.done = fmt::format("{}   {}", RouteText(route), what);
    return outcome;
}

Outcome NotReadBack(const KernelRoute& route, std::string_view what, const std::string& foreign) {
    Outcome outcome = Done(route, what);
    outcome.notes.push_back("not read back: " + foreign);
    return outcome;
}

// The outcome of a change after which the route should be there.
Outcome ReadBack(const RouteChange& change, std::string_view what) {
    const std::string foreign = ForeignKernel();
    if (!foreign.empty()) return NotReadBack(change.wanted, what, foreign);
    for (const KernelRoute& route : RoutesLike(change.wanted)) {
        if (route.metric == KernelMetric(change.wanted)) return Done(route, what);
    }
    return NotApplied(change.asked, "answered success, but the kernel has no such route");
}

// The further ones, which a change of the first leaves alone.
std::string OthersNote(std::vector<KernelRoute>::const_iterator from, std::vector<KernelRoute>::const_iterator to) {
    std::string text = "still there:";
    for (; from != to; ++from)
        text += fmt::format("{} {}", text.ends_with(':') ? "" : ",", RouteText(*from));
    return text;
}

}  // namespace

Outcome RouteAdd(const Invocation& invocation) {
    auto read = ReadChange(invocation.words, "add", "metric");
    if (auto* failure = std::get_if<Failure>(&read)) return std::move(*failure);
    const auto& change = std::get<RouteChange>(read);
    const int error = tessel_route_add(change.InterfaceName(), &change.record, change.WireTable());
    if (error != TESSEL_OK) return CallFailed(change.asked, error, WhyNotAdded(change, error));
    return ReadBack(change, "added");
}

Outcome RouteDel(const Invocation& invocation) {
    auto read = ReadChange(invocation.words, "del", "metric");
    if (auto* failure = std::get_if<Failure>(&read)) return std::move(*failure);
    const auto& change = std::get<RouteChange>(read);
    const auto before = RoutesLike(change.wanted);
    const bool isFirst = before.empty() || before.front().metric == KernelMetric(change.wanted);
    if (change.metric && !isFirst && !invocation.options.force) {
        return Refused(change.asked, fmt::format("the daemon names no metric, and the kernel would delete the one of "
                                                 "metric {} (--force does it)",
                                                 before.front().metric));
    }
    const int error = tessel_route_del(change.InterfaceName(), &change.record, change.WireTable());
    if (error != TESSEL_OK) return CallFailed(change.asked, error, WhyNotDeleted(change, error));
    const std::string foreign = ForeignKernel();
    if (!foreign.empty()) return NotReadBack(change.wanted, "deleted", foreign);
    const auto after = RoutesLike(change.wanted);
    if (!after.empty() && after.size() >= before.size()) {
        return NotApplied(change.asked, "answered success, but the route is still there");
    }
    Outcome outcome = Done(before.empty() ? change.wanted : before.front(), "deleted");
    if (!after.empty()) outcome.notes.push_back(OthersNote(after.begin(), after.end()));
    return outcome;
}

Outcome RouteMetric(const Invocation& invocation) {
    auto read = ReadChange(invocation.words, "metric", "N");
    if (auto* failure = std::get_if<Failure>(&read)) return std::move(*failure);
    const auto& change = std::get<RouteChange>(read);
    const auto before = RoutesLike(change.wanted);
    const auto inTheWay = InTheWay(change.wanted);
    const bool isOther = inTheWay && !before.empty() &&
                         (!IsThrough(*inTheWay, change.wanted) || before.front().metric != KernelMetric(change.wanted));
    if (isOther && !invocation.options.force) {
        return Refused(change.asked, fmt::format("there is {}: the route would be deleted and not added again (--force "
                                                 "does it)",
                                                 RouteText(*inTheWay)));
    }
    const int error = tessel_route_metric_set(&change.record);
    if (error != TESSEL_OK) {
        const bool isLost =
            error == TESSEL_E_FAILED && ForeignKernel().empty() && RoutesLike(change.wanted).size() < before.size();
        return CallFailed(change.asked, error,
                          isLost ? "the route was deleted and could not be added again" : WhyNotDeleted(change, error));
    }
    Outcome outcome = ReadBack(change, "set");
    if (before.size() > 1) outcome.notes.push_back(OthersNote(before.begin() + 1, before.end()));
    return outcome;
}

}  // namespace tessel::ctl
