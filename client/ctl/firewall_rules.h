// The kernel's packet filter, as its own tools tell it.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/ctl/addresses.h"
#include "core/types.h"
#include "tessel/gateway.h"

namespace tessel::ctl {

constexpr std::string_view kWhitelist = "whitelist";
constexpr std::string_view kBlacklist = "blacklist";
constexpr std::string_view kIcmpChain = "icmppacket";

struct SavedRule {
    std::string chain;
    std::vector<std::string> words;  // behind the chain's name
    u64 packets = 0;

    // The word behind an option, such as "-j"; empty: the rule has none.
    [[nodiscard]] std::string Get(std::string_view option) const;
    [[nodiscard]] std::string Text() const;
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
    // What somebody put into a list: neither its loopback rule, nor its last one, nor those that only log.
    [[nodiscard]] std::vector<SavedRule> Entries(std::string_view list) const;
};

// From the output of iptables-save -c.
[[nodiscard]] Filter ParseFilter(std::string_view text, int family);

[[nodiscard]] Filter ReadFilter(int family);

// "192.168.1.0/24", as the tools show it; empty for every address.
[[nodiscard]] std::string SourceText(int family, const AddressBytes& address, u32 prefixLength);

// True when packets of this host match, whatever its hardware address is.
[[nodiscard]] bool CoversHost(const SavedRule& rule, const TNetGateway& host);

}  // namespace tessel::ctl
