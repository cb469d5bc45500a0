#include "client/ctl/addresses.h"
#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

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

ordered_json EntryJson(const TNetIpAddr& entry) {
    ordered_json json = AddressJson(ShowAddress(entry));
    json["scope"] = ScopeName(entry.dwScope);
    json["dynamic"] = entry.bDynamic != 0;
    json["tentative"] = entry.bTentative != 0;
    return json;
}

std::vector<Cell> EntryRow(const std::string& interfaceName, const TNetIpAddr& entry) {
    const bool isTentative = entry.bTentative != 0;
    std::string marks = entry.bDynamic != 0 ? "dynamic" : "";
    if (isTentative) marks += marks.empty() ? "tentative" : " tentative";
    return {{interfaceName},
            {AddressText(ShowAddress(entry))},
            {ScopeName(entry.dwScope)},
            {marks, isTentative ? Style::kBad : Style::kPlain}};
}

// The kernel's addresses, of which more is not asked.
void AddFromKernel(const std::string& interfaceName, const std::vector<ShownAddress>& beside, ordered_json& addresses,
                   Outcome& outcome) {
    for (const ShownAddress& address : beside) {
        ordered_json json = AddressJson(address);
        json["scope"] = json["dynamic"] = json["tentative"] = nullptr;
        addresses.push_back(std::move(json));
        outcome.table.rows.push_back({{interfaceName}, {AddressText(address)}, {"-"}, {"reported by the kernel only"}});
    }
}

// Adds one interface. False when going on to the next makes no sense.
bool AddInterface(const std::string& interfaceName, const Options& options, Outcome& outcome) {
    const int family = FamilyOf(options);
    TNetIfaceIp list{};
    const int error = tessel_addr_get(interfaceName.c_str(), family, &list);
    if (error != TESSEL_OK) {
        outcome.failure = CallFailed("addr show dev " + interfaceName, error, MissingInterface(interfaceName));
        return error == TESSEL_E_FAILED || error == kPlanned;
    }
    const std::string foreign = options.kernel ? ForeignKernel() : "";
    const auto link = options.kernel && foreign.empty() ? FindKernelLink(interfaceName) : std::nullopt;
    const bool isCut = list.dwNum == TESSEL_ADDRESSES_MAX && !link;
    ordered_json addresses = ordered_json::array();
    for (u32 i = 0; i < list.dwNum; ++i) {
        addresses.push_back(EntryJson(list.atIp[i]));
        outcome.table.rows.push_back(EntryRow(interfaceName, list.atIp[i]));
    }
    if (link) AddFromKernel(interfaceName, AddressesBeside(ShowAddresses(list), *link, family), addresses, outcome);
    if (!foreign.empty()) outcome.notes.push_back("the kernel was not asked: " + foreign);
    if (isCut)
        outcome.notes.push_back(interfaceName + ": 16 addresses are shown, there may be more (--kernel shows all)");
    outcome.document.push_back({{"interface", interfaceName}, {"addresses", addresses}, {"truncated", isCut}});
    return true;
}

}  // namespace

Outcome AddrShow(const Invocation& invocation) {
    Outcome outcome;
    outcome.table.header = {"INTERFACE", "ADDRESS", "SCOPE", "MARKS"};
    std::vector<std::string> names;
    if (const auto named = invocation.words.Find("dev")) {
        names = {*named};
    } else {
        for (const KernelLink& link : KernelLinks())
            names.push_back(link.name);
        outcome.document = ordered_json::array();
    }
    for (const std::string& name : names) {
        if (!AddInterface(name, invocation.options, outcome)) return *outcome.failure;
    }
    return outcome;
}

}  // namespace tessel::ctl
