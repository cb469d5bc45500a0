#include <fmt/format.h>

#include <algorithm>
#include <ctime>

#include "client/ctl/addresses.h"
#include "client/ctl/firewall_rules.h"
#include "client/ctl/gateways.h"
#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/ctl/optional_json.h"
#include "client/ctl/processes.h"
#include "client/ctl/time_text.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

// Asked to learn who answers: it changes nothing, runs no tool, and every network has it.
constexpr char kHarmlessInterface[] = "lo";

WallTime WallTimeOf(std::time_t time) {
    return std::chrono::system_clock::from_time_t(time);
}

ordered_json DaemonJson(int pid, const ProcessFacts& facts) {
    const bool isRunning = pid != 0;
    ordered_json since;
    if (facts.since) since = JsonTime(WallTimeOf(*facts.since));
    return {{"running", isRunning},
            {"pid", isRunning ? ordered_json(pid) : ordered_json()},
            {"since", since},
            {"resident_kib", OrNull(facts.residentKib)},
            {"same_network", OrNull(facts.sharesOurNetwork)}};
}

std::string DaemonText(int pid, const ProcessFacts& facts) {
    std::string text = fmt::format("running, pid {}", pid);
    if (facts.since) {
        text += fmt::format(", since {} ({})", DateText(WallTimeOf(*facts.since)),
                            HumanDuration(std::max<long>(std::time(nullptr) - *facts.since, 0)));
    }
    if (facts.residentKib) text += ", " + HumanKib(*facts.residentKib);
    if (facts.sharesOurNetwork == false) text += ", in another network namespace";
    return text;
}

std::vector<ShownAddress> AddressesOf(const KernelLink& link, bool askDaemon) {
    TNetIfaceIp list{};
    if (!askDaemon || tessel_addr_get(link.name.c_str(), TESSEL_FAMILY_BOTH, &list) != TESSEL_OK) return link.addresses;
    return ShowAddresses(list);
}

// A default route of an interface.
struct Uplink {
    std::string gateway;
    std::string family;
    std::optional<u32> metric;  // none: the kernel has no such route
    bool isPreferred = false;   // no route of this family comes before it
};

std::optional<Uplink> UplinkOf(const std::string& interfaceName, int family) {
    ToldGateway told;
    if (AskForGateway({.interfaceName = interfaceName, .table = 0}, family, told) != TESSEL_OK || told.text.empty()) {
        return std::nullopt;
    }
    Uplink uplink{.gateway = told.text, .family = FamilyName(static_cast<u32>(family)), .metric = {}};
    const auto routes = KernelDefaults({}, family);
    const auto own = std::find_if(routes.begin(), routes.end(), [&](const KernelRoute& route) {
        return route.interfaceName == interfaceName && route.gateway == told.text;
    });
    if (own == routes.end()) return uplink;
    uplink.metric = own->metric;
    // Of equal ones the first counts.
    const auto preferred = std::min_element(
        routes.begin(), routes.end(), [](const auto& one, const auto& other) { return one.metric < other.metric; });
    uplink.isPreferred = preferred == own;
    return uplink;
}

// Its IPv4 and its IPv6 one, as far as there are any.
std::vector<Uplink> UplinksOf(const KernelLink& link, bool askDaemon) {
    std::vector<Uplink> uplinks;
    for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        const auto uplink = askDaemon && link.name != kHarmlessInterface ? UplinkOf(link.name, family) : std::nullopt;
        if (uplink) uplinks.push_back(*uplink);
    }
    return uplinks;
}

std::string UplinkText(const std::vector<Uplink>& uplinks) {
    std::string text;
    for (const Uplink& uplink : uplinks) {
        text += fmt::format("{}gateway {}", text.empty() ? "" : "   ", uplink.gateway);
        if (uplink.metric) text += fmt::format("  metric {}", *uplink.metric);
        if (uplink.isPreferred) text += "  <- default route";
    }
    return text;
}

ordered_json UplinkJson(const std::vector<Uplink>& uplinks) {
    ordered_json list = ordered_json::array();
    for (const Uplink& uplink : uplinks) {
        list.push_back({{"gateway", uplink.gateway},
                        {"family", uplink.family},
                        {"metric", OrNull(uplink.metric)},
                        {"preferred", uplink.isPreferred}});
    }
    return list;
}

void AddLink(const KernelLink& link, bool askDaemon, Outcome& outcome) {
    const std::string state = LinkState(link);
    const auto addresses = AddressesOf(link, askDaemon);
    const auto uplinks = UplinksOf(link, askDaemon);
    outcome.table.rows.push_back({{link.name},
                                  {state, state == "up" ? Style::kGood : Style::kBad},
                                  {AddressText(addresses)},
                                  {UplinkText(uplinks)}});
    outcome.document["interfaces"].push_back({{"interface", link.name},
                                              {"state", state},
                                              {"addresses", AddressJson(addresses)},
                                              {"gateways", UplinkJson(uplinks)}});
}

// Which list each family's packets pass. Left out where it cannot be read, as by anybody but root.
void AddFirewall(Outcome& outcome) {
    std::string text;
    ordered_json families = ordered_json::array();
    for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        const Filter filter = ReadFilter(family);
        if (!filter.problem.empty()) return;
        const std::string_view list = filter.HookedList();
        const std::string name = FamilyName(static_cast<u32>(family));
        const std::size_t entries = list.empty() ? 0 : filter.Entries(list).size();
        text += fmt::format("{}{} ", text.empty() ? "" : "   ", name);
        text += list.empty() ? "off" : fmt::format("{} on ({} {})", list, entries, entries == 1 ? "entry" : "entries");
        families.push_back(
            {{"family", name}, {"list", list.empty() ? ordered_json() : ordered_json(list)}, {"entries", entries}});
    }
    outcome.table.rows.push_back({{"firewall"}, {}, {text}});
    outcome.document["firewall"] = std::move(families);
}

}  // namespace

Outcome Status(const Invocation& invocation) {
    u32 mtu = 0;
    const int error = tessel_mtu_get(kHarmlessInterface, &mtu);
    if (error == kPlanned) return CallFailed("status", error);
    Outcome outcome;
    // Any answer will do; a daemon that is busy or broken is there all the same.
    const int pid = tessel_daemon_pid();
    const ProcessFacts facts = pid == 0 ? ProcessFacts{} : LookAtProcess(pid);
    const bool answers = error == TESSEL_OK || error == TESSEL_E_FAILED;
    if (!answers) outcome.failure = CallFailed("status", error);
    outcome.document = {{"daemon", DaemonJson(pid, facts)}, {"interfaces", ordered_json::array()}};
    const bool isRunning = error != TESSEL_E_NOT_RUNNING;
    outcome.table.preamble = {
        {"tessel_daemon"},
        {isRunning ? DaemonText(pid, facts) : "not running", isRunning ? Style::kGood : Style::kBad}};

    const auto named = invocation.words.Find("IF");
    if (named && !FindKernelLink(*named)) return Refused("status " + *named, MissingInterface(*named));
    // The daemon's interfaces are others than ours when its network is another.
    const bool askDaemon = answers && facts.sharesOurNetwork != false;
    for (const KernelLink& link : KernelLinks()) {
        if (!named || link.name == *named) AddLink(link, askDaemon, outcome);
    }
    outcome.document["firewall"] = ordered_json::array();
    if (!named && facts.sharesOurNetwork != false) AddFirewall(outcome);
    return outcome;
}

}  // namespace tessel::ctl
