#include <fmt/format.h>

#include <algorithm>

#include "client/ctl/addresses.h"
#include "client/ctl/gateways.h"
#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/ctl/optional_json.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

// The default routes of an interface and a family, put together from daemon and kernel.
struct Found {
    ToldGateway told;
    std::optional<KernelRoute> route;  // the kernel's, of the gateway that is told
    std::vector<KernelRoute> further;  // the kernel's others
    std::optional<i32> priority;
};

Found Compared(const GatewayPlace& place, int family, const ToldGateway& told) {
    Found found{.told = told, .route = {}, .further = KernelDefaults(place, family), .priority = {}};
    const auto same = std::find_if(found.further.begin(), found.further.end(), [&](const KernelRoute& route) {
        return !told.text.empty() && route.gateway == told.text;
    });
    if (same == found.further.end()) return found;
    found.route = *same;
    found.further.erase(same);
    // Of other tables than the main one the daemon does not tell this.
    found.told.isLearnt = told.isLearnt || found.route->isLearnt;
    return found;
}

ordered_json FurtherJson(const std::vector<KernelRoute>& routes) {
    ordered_json list = ordered_json::array();
    for (const KernelRoute& route : routes) {
        list.push_back({{"gateway", NullIfEmpty(route.gateway)}, {"learnt", route.isLearnt}, {"metric", route.metric}});
    }
    return list;
}

Cell MarksOf(const Found& found) {
    if (found.told.isLearnt) return {"learnt"};
    const bool differs = found.route && found.priority && std::cmp_not_equal(found.route->metric, *found.priority);
    if (!differs) return {};
    return {fmt::format("priority {} is not in effect", *found.priority), Style::kBad};
}

void AddFound(const GatewayPlace& place, int family, const Found& found, Outcome& outcome) {
    const std::string& name = place.interfaceName;
    const std::string gateway =
        found.told.text.empty() ? fmt::format("none ({})", FamilyName(static_cast<u32>(family))) : found.told.text;
    outcome.table.rows.push_back(
        {{name}, {gateway}, {found.route ? std::to_string(found.route->metric) : "-"}, MarksOf(found)});
    for (const KernelRoute& route : found.further) {
        outcome.table.rows.push_back({{name},
                                      {route.gateway.empty() ? "(on the link)" : route.gateway},
                                      {std::to_string(route.metric)},
                                      {"further default route: the daemon does not tell it", Style::kBad}});
    }
    outcome.document.push_back({{"interface", name},
                                {"family", FamilyName(static_cast<u32>(family))},
                                {"gateway", NullIfEmpty(found.told.text)},
                                {"learnt", found.told.isLearnt},
                                {"metric", found.route ? ordered_json(found.route->metric) : ordered_json()},
                                {"priority", OrNull(found.priority)},
                                {"table", KernelTable(place)},
                                {"further", FurtherJson(found.further)}});
}

std::vector<std::string> NamesToShow(const std::string& named) {
    if (!named.empty()) return {named};
    std::vector<std::string> names;
    for (const KernelLink& link : KernelLinks()) {
        if (link.name != "lo") names.push_back(link.name);
    }
    return names;
}

}  // namespace

Outcome GatewayShow(const Invocation& invocation) {
    Outcome outcome;
    outcome.document = ordered_json::array();
    outcome.table.header = {"INTERFACE", "GATEWAY", "METRIC", "MARKS"};
    const GatewayPlace asked = PlaceOf(invocation.words);
    // They concern IPv4 alone.
    TNetPrioParamList priorities{};
    if (HasFamily(invocation.options, TESSEL_FAMILY_INET)) {
        const int error = tessel_priority_get(&priorities);
        if (error != TESSEL_OK && error != kPlanned) return CallFailed("gateway show, priorities", error);
    }
    for (const std::string& name : NamesToShow(asked.interfaceName)) {
        const GatewayPlace place{.interfaceName = name, .table = asked.table};
        for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
            if (!HasFamily(invocation.options, family)) continue;
            ToldGateway told;
            const int error = AskForGateway(place, family, told);
            if (error == kPlanned) continue;
            if (error != TESSEL_OK)
                return CallFailed("gateway show" + PlaceWords(place), error, MissingInterface(name));
            Found found = Compared(place, family, told);
            if (family == TESSEL_FAMILY_INET) found.priority = PriorityOf(priorities, name);
            const bool hasOne = !found.told.text.empty() || !found.further.empty();
            if (hasOne || !asked.interfaceName.empty()) AddFound(place, family, found, outcome);
        }
    }
    return outcome;
}

}  // namespace tessel::ctl
