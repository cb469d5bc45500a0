#include "client/ctl/device.h"

#include <fstream>

#include "client/ctl/perform.h"
#include "client/ctl/processes.h"

namespace tessel::ctl {

Json DaemonAddresses(std::string_view asked, const std::string& interfaceName, int family) {
    constexpr const char* kScopes[] = {"global", "host", "link", "site"};  // TESSEL_SCOPE_...
    TNetIfaceIp list{};
    Require(asked, tessel_addr_get(interfaceName.c_str(), family, &list), MissingInterface(interfaceName));
    Json addresses = Json::array();
    for (u32 i = 0; i < list.dwNum; ++i) {
        const TNetIpAddr& entry = list.atIp[i];
        const std::string text = NetworkText(NetworkOf(entry));
        addresses.push_back({{"address", text.substr(0, text.find('/'))},
                             {"prefix_length", u32{entry.dwPrefixLen}},
                             {"family", FamilyName(entry.wSinFamily)},
                             {"scope", kScopes[entry.dwScope < std::size(kScopes) ? entry.dwScope : 0]},
                             {"dynamic", entry.bDynamic != 0},
                             {"tentative", entry.bTentative != 0}});
    }
    return {{"interface", interfaceName}, {"addresses", addresses}, {"truncated", list.dwNum == TESSEL_ADDRESSES_MAX}};
}

Json DaemonGateway(std::string_view asked, const std::string& interfaceName, int family, u32 table) {
    TNetGateway gateway{};
    int learnt = 0;
    const int error = tessel_gateway_get(NameOrNull(interfaceName), family, WireTable(table), &gateway, &learnt);
    const std::string missing = MissingInterface(interfaceName);
    // The tool fails on a table without routes.
    const bool isEmptyTable = error == TESSEL_E_FAILED && WireTable(table) != 0 && missing.empty();
    if (!isEmptyTable) Require(asked, error, missing);
    return {{"interface", NullIfEmpty(interfaceName)},
            {"family", FamilyName(family)},
            {"gateway", NullIfEmpty(HostText(HostOf(gateway)))},
            {"learnt", learnt != 0},
            {"table", table}};
}

Json DaemonPriorities(std::string_view asked) {
    TNetPrioParamList list{};
    Require(asked, tessel_priority_get(&list));
    return Decoded(TESSEL_CMD_PRIORITY_GET, list)["priorities"];
}

Json DefaultRoutes(const std::string& interfaceName, int family, u32 table) {
    Json found = Json::array();
    const int daemon = tessel_daemon_pid();
    if (daemon != 0 && SharesOurNetwork(daemon) == false) return found;
    for (const Json& route : KernelRoutes(family, table)) {
        const bool isThere = interfaceName.empty() || route.at("interface") == interfaceName;
        if (isThere && route.at("destination") == "default") found.push_back(route);
    }
    return found;
}

void ForEachInterface(const std::string& named, Outcome& outcome, const std::function<void(const std::string&)>& add) {
    if (!named.empty()) return add(named);
    for (const std::string& name : InterfaceNames()) {
        try {
            add(name);
        } catch (const Failure& failure) {
            if (failure.error != "failed" && failure.error != "refused") throw;
            outcome.failure = failure;
        }
    }
}

bool HasAll(const Json& record, const Json& members) {
    const auto pairs = members.items();
    return std::all_of(pairs.begin(), pairs.end(), [&](auto& one) { return record.at(one.key()) == one.value(); });
}

Json FindIn(const Json& list, const Json& members) {
    const auto found = std::find_if(list.begin(), list.end(), [&](const Json& one) { return HasAll(one, members); });
    return found == list.end() ? Json() : *found;
}

std::string AddressText(const Json& address) {
    return Format("{}/{}", TextOf(address, "address"), NumberOf(address, "prefix_length"));
}

std::string RouteText(const Json& route) {
    std::string text = TextOf(route, "destination");
    if (!TextOf(route, "gateway").empty()) text += " via " + TextOf(route, "gateway");
    if (!TextOf(route, "interface").empty()) text += " dev " + TextOf(route, "interface");
    if (NumberOf(route, "metric") != 0) text += Format(" metric {}", NumberOf(route, "metric"));
    if (WireTable(static_cast<u32>(NumberOf(route, "table"))) != 0) text += " table " + route.at("table").dump();
    return text;
}

Outcome PerformEntry(const Invocation& invocation, const EntryChange& entry) {
    const Json before = entry.list();
    const Json present = FindIn(before, entry.matched);
    const std::string already = present.is_null() ? "" : "there is already " + entry.text(present);
    Change change{.send = entry.send, .readsKernel = true};
    change.guard = [&] {
        const bool isIt = entry.isAdded || present.is_null() || HasAll(present, entry.meant);
        return isIt ? "" : "the kernel would delete " + entry.text(present);
    };
    change.cause = [&] {
        if (!ForeignKernel().empty()) return std::string();
        if (!present.is_null()) return entry.isAdded ? already : "";
        const std::string why = entry.cause ? entry.cause() : "";
        return why.empty() && !entry.isAdded ? Format("there is no such {}", entry.what) : why;
    };
    change.read = [&]() -> Json {
        // The kernel may have the same rule more than once.
        const Json now = entry.list();
        const Json& more = entry.isAdded ? now : before;
        const Json& less = entry.isAdded ? before : now;
        for (const Json& one : more) {
            const bool isBeyond = std::count(more.begin(), more.end(), one) > std::count(less.begin(), less.end(), one);
            if (isBeyond && HasAll(one, entry.isAdded ? entry.meant : entry.matched)) return one;
        }
        return nullptr;
    };
    change.wrong = [&](const Json& one) {
        if (!one.is_null()) return std::string();
        return entry.isAdded ? Format("no such {} was added", entry.what) : Format("no {} is gone", entry.what);
    };
    Outcome outcome = Perform(invocation, change);
    const std::string done = outcome.document.is_null() ? "" : entry.text(outcome.document);
    outcome.done = done.empty() ? invocation.asked + "   done" : done + (entry.isAdded ? "   added" : "   deleted");
    if (entry.isAdded && !already.empty() && ForeignKernel().empty()) outcome.notes.push_back(already);
    return outcome;
}

Json ReadBond() {
    std::ifstream file("/proc/net/bonding/bond0");
    if (!file) return nullptr;
    Json bond = {{"interface", "bond0"}, {"mode", nullptr}, {"active", nullptr}, {"members", Json::array()}};
    Json& members = bond["members"];
    for (std::string line; std::getline(file, line);) {
        const std::size_t colon = std::min(line.find(": "), line.size());
        const std::string key = line.substr(0, colon);
        const std::string value = line.substr(std::min(colon + 2, line.size()));
        if (key == "Bonding Mode") bond["mode"] = value;
        if (key == "Currently Active Slave" && value != "None") bond["active"] = value;
        if (key == "Slave Interface") members.push_back({{"member", value}, {"link", nullptr}, {"mac", nullptr}});
        if (members.empty()) continue;
        if (key == "MII Status") members.back()["link"] = value;
        if (key == "Permanent HW addr") members.back()["mac"] = value;
    }
    return bond;
}

}  // namespace tessel::ctl
