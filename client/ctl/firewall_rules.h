// The kernel's packet filter, as its own tools tell it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/ctl/addresses.h"
#include "client/ctl/options.h"
#include "core/types.h"
#include "tessel/gateway.h"

namespace tessel::ctl {

constexpr std::string_view kWhitelist = "whitelist";
constexpr std::string_view kBlacklist = "blacklist";
constexpr std::string_view kIcmpChain = "icmppacket";

struct SavedRule {
    std::string chain;
    std::vector<std::string> words;  // behind the chain's name, without the quotation marks around them
    std::string text;                // the same as it was read
    u64 packets = 0;

    // The word behind an option, such as "-j"; empty: the rule has none.
    [[nodiscard]] std::string Get(std::string_view option) const;
};

struct Filter {
    int family = 0;
    std::string problem;                          // not empty: the rules could not be read
    std::map<std::string, std::string> policies;  // by chain; "-" for those that somebody made
    std::vector<SavedRule> rules;

    [[nodiscard]] bool HasChain(std::string_view chain) const {
        return policies.contains(std::string(chain));
    }
    // Whether INPUT jumps there.
    [[nodiscard]] bool IsHooked(std::string_view chain) const;
    // The list that decides; empty: none.
    [[nodiscard]] std::string_view HookedList() const {
        return IsHooked(kWhitelist) ? kWhitelist : IsHooked(kBlacklist) ? kBlacklist : std::string_view();
    }
    // What somebody put into a list: neither its loopback rule, nor its last one, nor those that only log.
    [[nodiscard]] std::vector<SavedRule> Entries(std::string_view list) const;
    // What becomes of packets that no rule of INPUT decides about: "ACCEPT" or "DROP".
    [[nodiscard]] std::string Policy() const;
};

// The words of a line that a save tool printed. Nothing: a quotation mark is missing.
[[nodiscard]] std::optional<std::vector<std::string>> SplitSavedLine(std::string_view line);

// The table "filter" in the output of iptables-save, with or without -c.
[[nodiscard]] Filter ParseFilter(std::string_view text, int family);

// "iptables-save", "ip6tables-restore".
[[nodiscard]] std::string SaveToolOf(int family);
[[nodiscard]] std::string RestoreToolOf(int family);

[[nodiscard]] Filter ReadFilter(int family);

// Those of the families that -4 and -6 ask for.
[[nodiscard]] std::vector<int> FamiliesOf(const Options& options);
[[nodiscard]] std::vector<Filter> ReadFilters(const Options& options);

// "there is no inet chain "x" (tesselctl firewall chain add x)"; empty: there is one, or that cannot be told.
[[nodiscard]] std::string MissingChain(const Filter& filter, std::string_view chain);

// An address as records carry it.
[[nodiscard]] AddressBytes BytesOf(const u8 (&address)[16]);

// The prefix length that stands for one host.
[[nodiscard]] u32 HostBits(int family);

// "192.168.1.0/24", as the tools show it; empty for every address.
[[nodiscard]] std::string SourceText(int family, const AddressBytes& address, u32 prefixLength);

// True when packets from every host of this network match, whatever their hardware addresses are.
[[nodiscard]] bool CoversNetwork(const SavedRule& rule, const TNetGateway& network, u32 prefixLength);
[[nodiscard]] bool CoversHost(const SavedRule& rule, const TNetGateway& host);

// Whether an entry of the whitelist does.
[[nodiscard]] bool IsAllowed(const Filter& filter, const TNetGateway& host);

}  // namespace tessel::ctl
