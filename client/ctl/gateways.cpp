#include "client/ctl/gateways.h"

#include <fmt/format.h>
#include <linux/rtnetlink.h>

#include <algorithm>

#include "client/ctl/kernel.h"
#include "client/ctl/next_hop.h"
#include "client/ctl/processes.h"
#include "client/ctl/values.h"
#include "client/libtessel.h"
#include "core/text.h"

namespace tessel::ctl {

namespace {

// The kernel takes none of its own addresses for a gateway. Empty: it is none.
std::string WhyOwn(const TNetGateway& gateway) {
    const std::string text = HostText(gateway);
    for (const KernelLink& link : KernelLinks()) {
        const bool isOwn = std::any_of(link.addresses.begin(), link.addresses.end(),
                                       [&](const ShownAddress& address) { return address.text == text; });
        if (isOwn) return fmt::format("{} is {}'s own address", text, link.name);
    }
    return "";
}

// A default route that is in the way: the interface's own, or another one of the same metric.
std::string WhyTaken(const GatewayPlace& place, int family) {
    const auto own = KernelDefaults(place, family);
    if (!own.empty()) {
        return fmt::format("{} already has {}", OwnerText(place),
                           own[0].gateway.empty() ? "a default route" : own[0].gateway);
    }
    TNetPrioParamList priorities{};
    if (family != TESSEL_FAMILY_INET || tessel_priority_get(&priorities) != TESSEL_OK) return "";
    const auto metric = static_cast<u32>(PriorityOf(priorities, place.interfaceName).value_or(0));
    for (const KernelRoute& route : KernelDefaults({.interfaceName = {}, .table = place.table}, family)) {
        if (route.metric != metric) continue;
        return fmt::format("the default route of {} has the same metric {} (see \"priority\")", route.interfaceName,
                           metric);
    }
    return "";
}

}  // namespace

GatewayPlace PlaceOf(const Arguments& words) {
    return {.interfaceName = words.Get("dev"), .table = ParseNumber(words.Get("table")).value_or(0)};
}

std::string PlaceWords(const GatewayPlace& place) {
    std::string text = place.interfaceName.empty() ? "" : " dev " + place.interfaceName;
    if (place.table != 0) text += fmt::format(" table {}", place.table);
    return text;
}

std::string OwnerText(const GatewayPlace& place) {
    return place.interfaceName.empty() ? "the device" : place.interfaceName;
}

u32 KernelTable(const GatewayPlace& place) {
    return place.table == 0 ? u32{RT_TABLE_MAIN} : place.table;
}

std::string MissingAt(const GatewayPlace& place) {
    return place.interfaceName.empty() ? "" : MissingInterface(place.interfaceName);
}

int AskForGateway(const GatewayPlace& place, int family, ToldGateway& told) {
    const char* name = place.interfaceName.empty() ? nullptr : place.interfaceName.c_str();
    int learnt = 0;
    const int error = tessel_gateway_get(name, family, place.table, &told.record, &learnt);
    // The tool fails on a table without routes; an interface that is missing has to stay a failure.
    if (error == TESSEL_E_FAILED && place.table != 0 && MissingAt(place).empty()) return TESSEL_OK;
    if (error != TESSEL_OK) return error;
    told.text = HostText(told.record);
    told.isLearnt = learnt != 0;
    return TESSEL_OK;
}

std::vector<KernelRoute> KernelDefaults(const GatewayPlace& place, int family) {
    const int daemon = tessel_daemon_pid();
    if (daemon != 0 && SharesOurNetwork(daemon) == false) return {};
    auto routes = KernelRoutes(family, KernelTable(place));
    std::erase_if(routes, [&](const KernelRoute& route) {
        return !route.destination.empty() ||
               (!place.interfaceName.empty() && route.interfaceName != place.interfaceName);
    });
    return routes;
}

std::optional<i32> PriorityOf(const TNetPrioParamList& list, const std::string& name) {
    std::optional<i32> priority;
    // The last one of a name counts.
    for (const TNetPrioParam& entry : list.atPrio) {
        if (!name.empty() && FieldText(entry.achDevName).Get() == name) priority = entry.nPriority;
    }
    return priority;
}

std::string WhyNotSet(const GatewayPlace& place, const TNetGateway& gateway) {
    // In the kernel's order: first whether the gateway can be reached, then whether the route is new.
    std::string why = WhyUnreachable(gateway, place.interfaceName);
    if (why.empty()) why = WhyOwn(gateway);
    return why.empty() ? WhyTaken(place, gateway.wSinFamily) : why;
}

}  // namespace tessel::ctl
