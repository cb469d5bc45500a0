#include <fmt/format.h>

#include <algorithm>

#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/ctl/routes.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

constexpr std::string_view kFromDaemon = "daemon";
constexpr std::string_view kFromKernel = "kernel";

// The daemon reads no gateway of the other family (RFC 5549), and tells an empty one then.
bool IsTold(const KernelRoute& route, const std::vector<KernelRoute>& told) {
    return std::any_of(told.begin(), told.end(), [&](const KernelRoute& one) {
        return one.family == route.family && one.destination == route.destination &&
               one.interfaceName == route.interfaceName && one.metric == route.metric &&
               (one.gateway == route.gateway || one.gateway.empty());
    });
}

void AddRoute(const KernelRoute& route, std::string_view source, bool showsSource, Outcome& outcome) {
    ordered_json json = RouteJson(route);
    json["source"] = source;
    outcome.document["routes"].push_back(std::move(json));
    outcome.table.rows.push_back({{route.destination.empty() ? "default" : route.destination},
                                  {route.gateway.empty() ? "-" : route.gateway},
                                  {route.interfaceName.empty() ? "-" : route.interfaceName},
                                  {std::to_string(route.metric)}});
    if (showsSource) outcome.table.rows.back().push_back({std::string(source)});
}

}  // namespace

Outcome RouteShow(const Invocation& invocation) {
    const int family = FamilyOf(invocation.options);
    TNetAllRouteInfo list{};
    const int error = tessel_route_get_all(family, &list);
    if (error != TESSEL_OK) return CallFailed("route show", error);
    const bool asksKernel = invocation.options.kernel;
    const std::string foreign = asksKernel ? ForeignKernel() : "";
    const bool isComplete = asksKernel && foreign.empty();
    const bool isCut = list.dwNum == TESSEL_ROUTES_MAX && !isComplete;
    Outcome outcome;
    outcome.document = {{"routes", ordered_json::array()}, {"truncated", isCut}};
    outcome.table.header = {"DESTINATION", "GATEWAY", "INTERFACE", "METRIC"};
    if (asksKernel) outcome.table.header.emplace_back("SOURCE");
    std::vector<KernelRoute> told;
    for (u32 i = 0; i < list.dwNum; ++i) {
        told.push_back(ShowRoute(list.atRoute[i], kMainTable));
        AddRoute(told.back(), kFromDaemon, asksKernel, outcome);
    }
    if (isComplete) {
        for (const KernelRoute& route : KernelRoutes(family, kMainTable)) {
            if (!IsTold(route, told)) AddRoute(route, kFromKernel, asksKernel, outcome);
        }
    }
    if (!foreign.empty()) outcome.notes.push_back("the kernel was not asked: " + foreign);
    if (isCut) outcome.notes.emplace_back("10 routes are shown, there may be more (--kernel shows all)");
    return outcome;
}

}  // namespace tessel::ctl
