#include "client/ctl/routes.h"

#include <fmt/format.h>

#include "client/ctl/addresses.h"
#include "client/ctl/optional_json.h"
#include "client/ctl/values.h"
#include "core/text.h"
#include <nlohmann/json.hpp>

namespace tessel::ctl {

using nlohmann::ordered_json;

KernelRoute ShowRoute(const TNetIpRouteParam& record, u32 table) {
    KernelRoute route;
    route.family = record.tDestIpNet.wSinFamily;
    if (record.nPrefixLen != 0) route.destination = NetworkText(record.tDestIpNet, record.nPrefixLen);
    route.gateway = HostText(record.tGateway);
    route.interfaceName = FieldText(record.achDevName).Get();
    route.metric = static_cast<u32>(record.nMetric);
    route.table = table;
    return route;
}

std::string NetworkText(const TNetGateway& network, i32 prefixLength) {
    const std::string address = HostText(network);
    const bool isInet6 = network.wSinFamily == TESSEL_FAMILY_INET6;
    return fmt::format("{}/{}", !address.empty() ? address : isInet6 ? "::" : "0.0.0.0", prefixLength);
}

std::string RouteText(const KernelRoute& route) {
    std::string text = route.destination.empty() ? "default" : route.destination;
    if (!route.gateway.empty()) text += " via " + route.gateway;
    if (!route.interfaceName.empty()) text += " dev " + route.interfaceName;
    if (route.metric != 0) text += fmt::format(" metric {}", route.metric);
    if (route.table != kMainTable) text += fmt::format(" table {}", route.table);
    return text;
}

ordered_json RouteJson(const KernelRoute& route) {
    const SplitNetwork destination = SplitNetworkText(route.destination, route.family);
    return {{"destination", destination.address},
            {"prefix_length", destination.prefixLength},
            {"gateway", NullIfEmpty(route.gateway)},
            {"interface", NullIfEmpty(route.interfaceName)},
            {"metric", route.metric},
            {"family", FamilyName(static_cast<u32>(route.family))}};
}

SplitNetwork SplitNetworkText(const std::string& network, int family) {
    const std::size_t slash = network.find('/');
    if (slash == std::string::npos) return {family == TESSEL_FAMILY_INET6 ? "::" : "0.0.0.0", 0};
    return {network.substr(0, slash), ParseNumber(network.substr(slash + 1)).value_or(0)};
}

}  // namespace tessel::ctl
