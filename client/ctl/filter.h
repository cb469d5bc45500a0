// The packet filter as a value: read from the kernel, changed by the lines that the daemon would run, and judged.
#pragma once

#include <map>

#include "client/ctl/guard.h"

namespace tessel::ctl {

// What the save tools leave out for a table that nobody has touched.
constexpr char kNoFilterRules[] = "*filter\n:INPUT ACCEPT [0:0]\n:FORWARD ACCEPT [0:0]\n:OUTPUT ACCEPT [0:0]\nCOMMIT\n";
constexpr std::string_view kWhitelist = "whitelist";
constexpr std::string_view kBlacklist = "blacklist";

struct FilterRule {
    std::string chain;
    std::vector<std::string> words;  // behind the chain: "-s", "10.0.0.0/8", "-j", "RETURN"
    u64 packets = 0;

    // The word behind an option; empty: it has none.
    [[nodiscard]] std::string Get(std::string_view option) const;
    [[nodiscard]] std::string Text() const;
};

// What a line of a tool does ("iptables -A whitelist -s 10.0.0.0/8 -j RETURN").
struct FilterLine {
    int family = 0;
    std::string operation;  // "-A", "-I", "-D", "-C"; "-F" and "-N" have a chain alone
    FilterRule rule;
};
// Nothing: a line of another tool.
[[nodiscard]] std::optional<FilterLine> ParseFilterLine(const std::string& line);

struct Filter {
    int family = 0;
    std::map<std::string, std::string> policies;  // by chain; "-" for those that are not the kernel's own
    std::vector<FilterRule> rules;
    std::string problem;  // it could not be read: one line; everything else is empty then

    [[nodiscard]] bool HasChain(std::string_view chain) const {
        return policies.count(std::string(chain)) != 0;
    }
    // Whether INPUT jumps to the chain.
    [[nodiscard]] bool IsHooked(std::string_view chain) const;
    // The rules of a list that are entries: RETURN of the whitelist, DROP of the blacklist.
    [[nodiscard]] std::vector<FilterRule> Entries(std::string_view list) const;

    // In whatever form it is written.
    [[nodiscard]] bool Has(const FilterRule& rule) const;

    // As after this line; one of the other family changes nothing. False: the tool would refuse it, or, for "-C", the
    // rule is not there.
    bool Apply(const FilterLine& line);
};

// From what iptables-save prints.
[[nodiscard]] Filter ParseFilter(std::string_view text, int family);
// The kernel's, of one family; of those that the options ask for.
[[nodiscard]] Filter ReadFilter(int family);
[[nodiscard]] std::vector<Filter> ReadFilters(const Options& options);

// Whether the packets of a session reach the device (INPUT, destination port) and its answers leave it (OUTPUT, source
// port). What cannot be judged does not match.
[[nodiscard]] bool LetsThrough(const Filter& filter, const Session& session);

// Whether a rule covers every address of a network, whatever else the packet is.
[[nodiscard]] bool CoversNetwork(const FilterRule& rule, const Network& network);

// "iptables", "ip6tables".
[[nodiscard]] std::string ToolOf(int family);
// A line of saved rules as words, quotes and backslashes undone; nothing: a quote is open.
[[nodiscard]] std::optional<std::vector<std::string>> SplitSavedLine(std::string_view line);

}  // namespace tessel::ctl
