// Entries of the whitelist and the blacklist. The shape of an entry chooses the request.
#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "client/ctl/firewall_rules.h"
#include "client/ctl/guard.h"
#include "client/ctl/handlers.h"
#include "client/ctl/kernel.h"
#include "client/ctl/next_hop.h"
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

AddressBytes BytesOf(const u8 (&address)[16]) {
    AddressBytes bytes;
    memcpy(bytes.data(), address, bytes.size());
    return bytes;
}

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

// How many families have the entry. Nothing: the rules cannot be read.
std::optional<std::size_t> CountIn(const ListEntry& entry, std::string_view list) {
    std::size_t count = 0;
    for (const int family : entry.families) {
        const Filter filter = ReadFilter(family);
        if (!filter.problem.empty()) return std::nullopt;
        const auto entries = filter.Entries(list);
        count += std::any_of(entries.begin(), entries.end(), [&](const SavedRule& rule) { return IsSame(rule, entry); })
                     ? 1
                     : 0;
    }
    return count;
}

std::string WhyFailed(const ListEntry& entry, std::string_view list, bool isAdd) {
    for (const int family : entry.families) {
        const Filter filter = ReadFilter(family);
        if (filter.problem.empty() && !filter.HasChain(list)) {
            return fmt::format("there is no {} chain \"{}\" (tesselctl firewall chain add {})",
                               FamilyName(static_cast<u32>(family)), list, list);
        }
    }
    return !isAdd && CountIn(entry, list) != entry.families.size() ? "there is no such entry" : "";
}

Outcome Change(const ListEntry& entry, std::string_view list, bool isAdd, const std::string& asked) {
    const bool isWhite = list == kWhitelist;
    const int addition = isWhite ? TESSEL_LIST_WHITE_ADD : TESSEL_LIST_BLACK_ADD;
    const int deletion = isWhite ? TESSEL_LIST_WHITE_DEL : TESSEL_LIST_BLACK_DEL;
    const int error = Send(entry, isAdd ? addition : deletion);
    const bool isForeign = !ForeignKernel().empty();
    if (error != TESSEL_OK) {
        const bool isTold = error == TESSEL_E_FAILED && !isForeign;
        return CallFailed(asked, error, isTold ? WhyFailed(entry, list, isAdd) : "");
    }
    const auto count = isForeign ? std::nullopt : CountIn(entry, list);
    if (count && isAdd && *count < entry.families.size()) {
        return NotApplied(asked, fmt::format("answered success, but the {} has no such entry", list));
    }
    if (count && !isAdd && *count > 0) {
        return NotApplied(asked, fmt::format("answered success, but the {} still has such an entry", list));
    }
    Outcome outcome;
    outcome.document = {{"list", list}, {"entry", entry.text}, {"present", isAdd}, {"read_back", count.has_value()}};
    outcome.done = fmt::format("{}   {} {}", list, entry.text, isAdd ? "added" : "deleted");
    if (!count) outcome.notes.emplace_back("not read back: the daemon's rules cannot be read from here");
    return outcome;
}

bool Covers(const ListEntry& entry, const TNetGateway& peer) {
    if (!entry.mac) return entry.families[0] == peer.wSinFamily && CoversHost(entry.rule, peer);
    return !entry.address.empty() && HostText(peer) == HostText(*ParseHost(entry.address));
}

}  // namespace

Outcome FirewallAllow(const Invocation& invocation) {
    const ListEntry entry = EntryOf(invocation.words);
    return Change(entry, kWhitelist, true, "firewall allow " + entry.text);
}

Outcome FirewallDeny(const Invocation& invocation) {
    const ListEntry entry = EntryOf(invocation.words);
    const std::string asked = "firewall deny " + entry.text;
    const auto peer = SessionPeer();
    if (peer && !MayCutSession(invocation.options) && Covers(entry, *peer)) {
        return Refused(asked, fmt::format("your session comes from {} (--force does it)", HostText(*peer)));
    }
    return Change(entry, kBlacklist, true, asked);
}

Outcome FirewallDelete(const Invocation& invocation) {
    const ListEntry entry = EntryOf(invocation.words);
    const std::string which = invocation.words.Get("LIST");
    return Change(entry, which == "allow" ? kWhitelist : kBlacklist, false,
                  fmt::format("firewall delete {} {}", which, entry.text));
}

}  // namespace tessel::ctl
