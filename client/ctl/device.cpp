#include "client/ctl/device.h"

#include "client/ctl/processes.h"
#include "core/text.h"

namespace tessel::ctl {

namespace {

const char* ScopeName(u32 scope) {
    switch (scope) {
        case TESSEL_SCOPE_HOST:
            return "host";
        case TESSEL_SCOPE_LINK:
            return "link";
        case TESSEL_SCOPE_SITE:
            return "site";
        default:
            return "global";
    }
}

}  // namespace

Json DaemonAddresses(std::string_view asked, const std::string& interfaceName, int family) {
    TNetIfaceIp list{};
    const int error = tessel_addr_get(interfaceName.c_str(), family, &list);
    if (error != TESSEL_OK) throw CallFailed(asked, error, MissingInterface(interfaceName));
    Json addresses = Json::array();
    for (u32 i = 0; i < list.dwNum; ++i) {
        const TNetIpAddr& entry = list.atIp[i];
        Network host = NetworkOf(entry);
        host.length = host.FullLength();
        const std::string text = NetworkText(host);
        addresses.push_back({{"address", text.substr(0, text.find('/'))},
                             {"prefix_length", u32{entry.dwPrefixLen}},
                             {"family", FamilyName(entry.wSinFamily)},
                             {"scope", ScopeName(entry.dwScope)},
                             {"dynamic", entry.bDynamic != 0},
                             {"tentative", entry.bTentative != 0}});
    }
    return {{"interface", interfaceName}, {"addresses", addresses}, {"truncated", list.dwNum == TESSEL_ADDRESSES_MAX}};
}

Json DaemonGateway(std::string_view asked, const std::string& interfaceName, int family, u32 table) {
    TNetGateway gateway{};
    int learnt = 0;
    const int error = tessel_gateway_get(NameOrNull(interfaceName), family, WireTable(table), &gateway, &learnt);
    const std::string missing = error == TESSEL_E_FAILED ? MissingInterface(interfaceName) : "";
    // The tool fails on a table without routes.
    const bool isEmptyTable = error == TESSEL_E_FAILED && WireTable(table) != 0 && missing.empty();
    if (error != TESSEL_OK && !isEmptyTable) throw CallFailed(asked, error, missing);
    return {{"interface", NullIfEmpty(interfaceName)},
            {"family", FamilyName(family)},
            {"gateway", NullIfEmpty(HostText(HostOf(gateway)))},
            {"learnt", learnt != 0},
            {"table", table}};
}

Json DaemonPriorities(std::string_view asked) {
    TNetPrioParamList list{};
    Require(asked, tessel_priority_get(&list));
    Json priorities = Json::array();
    for (const TNetPrioParam& entry : list.atPrio) {
        const FieldText name(entry.achDevName);
        if (!name.IsEmpty()) priorities.push_back({{"interface", name.Get()}, {"metric", i32{entry.nPriority}}});
    }
    return priorities;
}

Json DaemonRoutes(std::string_view asked, int family) {
    TNetAllRouteInfo list{};
    Require(asked, tessel_route_get_all(family, &list));
    Json routes = Json::array();
    for (u32 i = 0; i < list.dwNum; ++i) {
        const TNetIpRouteParam& route = list.atRoute[i];
        routes.push_back({{"destination", NetworkText(NetworkOf(route.tDestIpNet, route.nPrefixLen))},
                          {"gateway", NullIfEmpty(HostText(HostOf(route.tGateway)))},
                          {"interface", NullIfEmpty(FieldText(route.achDevName).Get())},
                          {"metric", i32{route.nMetric}},
                          {"table", kMainTable},
                          {"family", FamilyName(route.tDestIpNet.wSinFamily)}});
    }
    return {{"routes", routes}, {"truncated", list.dwNum == TESSEL_ROUTES_MAX}};
}

Json DefaultRoutes(const std::string& interfaceName, int family, u32 table) {
    Json found = Json::array();
    const int daemon = tessel_daemon_pid();
    if (daemon != 0 && SharesOurNetwork(daemon) == false) return found;
    for (const Json& route : KernelRoutes(family, table)) {
        const bool isThere = interfaceName.empty() || TextOf(route, "interface") == interfaceName;
        if (isThere && TextOf(route, "destination") == "default") found.push_back(route);
    }
    return found;
}

void ForEachInterface(const std::string& named, Outcome& outcome, const std::function<void(const std::string&)>& add) {
    if (!named.empty()) return add(named);
    for (const std::string& name : InterfaceNames()) {
        try {
            add(name);
        } catch (const Failure& failure) {
            if (failure.error != "failed") throw;
            outcome.failure = failure;
        }
    }
}

Json FindIn(const Json& list, const char* key, const Json& value) {
    const auto found =
        std::find_if(list.begin(), list.end(), [&](const Json& element) { return element.at(key) == value; });
    return found == list.end() ? Json() : *found;
}

std::string AddressText(const Json& address) {
    return Format("{}/{}", TextOf(address, "address"), NumberOf(address, "prefix_length"));
}

std::string AddressesText(const Json& addresses) {
    std::vector<std::string> texts;
    for (const Json& address : addresses)
        texts.push_back(AddressText(address));
    return Joined(texts, "  ");
}

std::string RouteText(const Json& route) {
    std::string text = TextOf(route, "destination");
    if (!route.at("gateway").is_null()) text += " via " + TextOf(route, "gateway");
    if (!route.at("interface").is_null()) text += " dev " + TextOf(route, "interface");
    if (NumberOf(route, "metric") != 0) text += Format(" metric {}", NumberOf(route, "metric"));
    if (NumberOf(route, "table") != kMainTable) text += Format(" table {}", NumberOf(route, "table"));
    return text;
}

void AddSentence(Failure& failure, std::string_view sentence) {
    if (sentence.empty()) return;
    failure.message += Format("{}{}", failure.message.ends_with('.') ? " " : ". ", sentence);
}

}  // namespace tessel::ctl
