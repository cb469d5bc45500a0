// Entries of the whitelist and the blacklist. The shape of an entry chooses the request.
#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <sstream>

#include "client/ctl/firewall_readback.h"
#include "client/ctl/guard.h"
#include "client/ctl/handlers.h"
#include "client/ctl/next_hop.h"
#include "client/ctl/tool_output.h"
#include "client/libtessel.h"

namespace tessel::ctl {

namespace {

struct ListEntry {
    std::string text;
    std::string address;        // with a MAC: as typed
    std::optional<Mac> mac;     // alone, or with an address
    TNetIpFilter filter{};      // where there is no MAC
    std::vector<int> families;  // whose rules it becomes
    SavedRule rule;             // as the kernel's tools show it
};

void AddSource(ListEntry& entry, int family, const AddressBytes& address, u32 prefixLength) {
    entry.families = {family};
    const std::string source = SourceText(family, address, prefixLength);
    if (!source.empty()) entry.rule.words = {"-s", source};
}

ListEntry PairOf(const Arguments& words) {
    // The daemon gives IPv6 addresses the same length as IPv4 ones.
    constexpr u32 kPairPrefix = 32;
    ListEntry entry;
    entry.address = words.Get("A");
    entry.mac = ParseMac(words.Get("M"));
    entry.text = entry.address + " " + words.Get("M");
    const TNetGateway host = *ParseHost(entry.address);
    AddSource(entry, host.wSinFamily, BytesOf(host.abyAddr), kPairPrefix);
    return entry;
}

ListEntry EntryOf(const Arguments& words) {
    ListEntry entry;
    entry.text = words.Get("ENTRY");
    if (entry.text.empty()) {
        entry = PairOf(words);
    } else if (const auto network = ParsePrefixedAddress(entry.text)) {
        entry.filter.tStart.wSinFamily = network->wSinFamily;
        memcpy(entry.filter.tStart.abyAddr, network->abyAddr, sizeof(network->abyAddr));
        entry.filter.dwPrefixLen = network->dwPrefixLen;
        AddSource(entry, network->wSinFamily, BytesOf(network->abyAddr), network->dwPrefixLen);
    } else if (const auto range = ParseRange(entry.text)) {
        entry.filter.tStart = range->first;
        entry.filter.tEnd = range->second;
        entry.families = {range->first.wSinFamily};
        entry.rule.words = {"--src-range", HostText(range->first) + "-" + HostText(range->second)};
    } else {
        entry.mac = ParseMac(entry.text);
        entry.families = {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6};
    }
    return entry;
}

int Send(const ListEntry& entry, int operation) {
    if (!entry.address.empty()) return tessel_ip_mac_filter(operation, entry.mac->data(), entry.address.c_str());
    if (entry.mac) return tessel_mac_filter(operation, entry.mac->data());
    return tessel_ip_filter(operation, &entry.filter);
}

bool IsSame(const SavedRule& rule, const ListEntry& entry) {
    return rule.Get("-s") == entry.rule.Get("-s") && rule.Get("--src-range") == entry.rule.Get("--src-range") &&
           ParseMac(rule.Get("--mac-source")) == entry.mac;
}

bool IsFor(const ListEntry& entry, int family) {
    return std::find(entry.families.begin(), entry.families.end(), family) != entry.families.end();
}

bool HasEntry(const Filter& filter, std::string_view list, const ListEntry& entry) {
    const auto entries = filter.Entries(list);
    return std::any_of(entries.begin(), entries.end(), [&](const SavedRule& rule) { return IsSame(rule, entry); });
}

Outcome Change(const Invocation& invocation, const ListEntry& entry, std::string_view list, bool isAdd,
               const std::string& asked) {
    const bool isWhite = list == kWhitelist;
    const int addition = isWhite ? TESSEL_LIST_WHITE_ADD : TESSEL_LIST_BLACK_ADD;
    const int deletion = isWhite ? TESSEL_LIST_WHITE_DEL : TESSEL_LIST_BLACK_DEL;
    const auto fault = [&](const Filter& filter) -> std::string {
        if (!IsFor(entry, filter.family) || HasEntry(filter, list, entry) == isAdd) return "";
        return fmt::format("the {} {} {}", FamilyName(static_cast<u32>(filter.family)), list,
                           isAdd ? "has no such entry" : "still has such an entry");
    };
    const auto cause = [&](const Filter& filter) -> std::string {
        if (!IsFor(entry, filter.family)) return "";
        const std::string missing = MissingChain(filter, list);
        const bool isAbsent = missing.empty() && !isAdd && !HasEntry(filter, list, entry);
        return isAbsent ? "there is no such entry" : missing;
    };
    Outcome outcome = ReadBack(asked, Send(entry, isAdd ? addition : deletion), invocation.options, fault, cause);
    if (outcome.failure) return outcome;
    outcome.document = {
        {"list", list}, {"entry", entry.text}, {"present", isAdd}, {"read_back", outcome.notes.empty()}};
    outcome.done = fmt::format("{}   {} {}", list, entry.text, isAdd ? "added" : "deleted");
    const std::string source = entry.rule.Get("-s");
    if (isAdd && entry.mac && source.find(':') != std::string::npos) {
        outcome.notes.push_back(fmt::format("with an IPv6 address and a MAC the entry is for the whole of {}", source));
    }
    return outcome;
}

// The hardware address that a host's packets come with, where it is a neighbour.
std::optional<Mac> NeighbourMac(const TNetGateway& host) {
    std::istringstream words(CaptureTool({"ip", "neigh", "show", HostText(host)}).text);
    for (std::string word; words >> word;) {
        if (word == "lladdr" && words >> word) return ParseMac(word);
    }
    return std::nullopt;
}

bool Covers(const ListEntry& entry, const TNetGateway& peer) {
    if (!IsFor(entry, peer.wSinFamily) || !CoversHost(entry.rule, peer)) return false;
    if (!entry.mac) return true;
    const auto mac = NeighbourMac(peer);
    // Not known: the very address may be meant, an IPv6 network around it hardly.
    return mac ? mac == entry.mac : !entry.address.empty() && HostText(peer) == HostText(*ParseHost(entry.address));
}

// While the whitelist is hooked, the session needs one of its entries.
std::optional<Failure> WhyNeeded(const std::string& asked, const ListEntry& entry, const Options& options) {
    const auto session = GuardedSession(options);
    if (!session || MayCutSession(options)) return std::nullopt;
    Filter filter = ReadFilter(session->peer.wSinFamily);
    if (!IsFor(entry, filter.family) || !filter.IsHooked(kWhitelist) || !IsAllowed(filter, session->peer))
        return std::nullopt;
    const auto deleted = std::find_if(filter.rules.begin(), filter.rules.end(), [&](const SavedRule& rule) {
        return rule.chain == kWhitelist && rule.Get("-j") == "RETURN" && IsSame(rule, entry);
    });
    if (deleted != filter.rules.end()) filter.rules.erase(deleted);
    if (IsAllowed(filter, session->peer)) return std::nullopt;
    return Refused(asked, session->text + ", and no other entry of the whitelist covers it (--force does it)");
}

}  // namespace

Outcome FirewallAllow(const Invocation& invocation) {
    const ListEntry entry = EntryOf(invocation.words);
    return Change(invocation, entry, kWhitelist, true, "firewall allow " + entry.text);
}

Outcome FirewallDeny(const Invocation& invocation) {
    const ListEntry entry = EntryOf(invocation.words);
    const std::string asked = "firewall deny " + entry.text;
    const auto session = GuardedSession(invocation.options);
    if (session && !MayCutSession(invocation.options) && Covers(entry, session->peer)) {
        return Refused(asked, session->text + " (--force does it)");
    }
    return Change(invocation, entry, kBlacklist, true, asked);
}

Outcome FirewallDelete(const Invocation& invocation) {
    const ListEntry entry = EntryOf(invocation.words);
    const std::string which = invocation.words.Get("LIST");
    const std::string asked = fmt::format("firewall delete {} {}", which, entry.text);
    const bool isWhite = which == "allow";
    if (isWhite) {
        if (auto failure = WhyNeeded(asked, entry, invocation.options)) return std::move(*failure);
    }
    return Change(invocation, entry, isWhite ? kWhitelist : kBlacklist, false, asked);
}

}  // namespace tessel::ctl
