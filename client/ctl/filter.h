// The packet filter as a value: read from the kernel, changed by the lines that the daemon would run, and judged.
#pragma once

#include <map>

#include "client/ctl/command.h"

namespace tessel::ctl {

// What the save tools leave out for a table that nobody touched.
constexpr char kNoFilterRules[] = "*filter\n:INPUT ACCEPT [0:0]\n:FORWARD ACCEPT [0:0]\n:OUTPUT ACCEPT [0:0]\nCOMMIT\n";
constexpr std::string_view kWhitelist = "whitelist";
constexpr std::string_view kBlacklist = "blacklist";

struct FilterRule {
    std::string chain;
    std::vector<std::string> words;  // after the chain: "-s", "10.0.0.0/8", "-j", "RETURN"
    u64 packets = 0;

    // The word after an option; empty: it has none.
    [[nodiscard]] std::string Get(std::string_view option) const;
    [[nodiscard]] std::string Text() const;
};
// As saved, perhaps with packets and bytes: "[12:3456] -A whitelist -s 10.0.0.0/8 -j RETURN". Nothing: no rule.
[[nodiscard]] std::optional<FilterRule> ParseRule(const std::string& line);

struct Filter {
    int family = 0;
    std::map<std::string, std::string> policies;  // by chain; "-" for those that are not the kernel's own
    std::vector<FilterRule> rules = {};
    std::string problem = {};  // it could not be read: one line; everything else is empty then

    // "inet whitelist".
    [[nodiscard]] std::string NameOf(std::string_view chain) const {
        return Format("{} {}", FamilyName(family), chain);
    }
    // Whether INPUT jumps to the chain.
    [[nodiscard]] bool IsHooked(std::string_view chain) const;
    // The rules of a list that are entries: RETURN of the whitelist, DROP of the blacklist.
    [[nodiscard]] std::vector<FilterRule> Entries(std::string_view list) const;
    // In whatever form it is written.
    [[nodiscard]] bool Has(const FilterRule& rule) const;
    // As after "-A", "-I", "-D" or "-C" with a rule, "-F" or "-N" with a chain alone. Returns why the tool refuses it.
    [[nodiscard]] std::string Apply(const std::string& operation, const FilterRule& rule);
};

// The filters of the families that a change affects, as they are and as they will be.
struct FilterPlan {
    std::map<int, Filter> now = {};
    std::map<int, Filter> then = {};
    std::string refusal = {};              // why the tool refuses the line that the daemon answers for: the last one
    std::vector<std::string> losses = {};  // "3 entries of the inet blacklist would be deleted"

    // As after a line such as "iptables -A whitelist -j RETURN". False: the tool fails. Nothing: it is another tool's.
    std::optional<bool> Apply(const std::string& line);
};

// From what iptables-save prints; the kernel's.
[[nodiscard]] Filter ParseFilter(std::string_view text, int family);
[[nodiscard]] Filter ReadFilter(int family);

[[nodiscard]] inline std::string ToolOf(int family) {
    return family == TESSEL_FAMILY_INET6 ? "ip6tables" : "iptables";
}
// A line of saved rules as words, quotes and backslashes undone; nothing: a quote is open.
[[nodiscard]] std::optional<std::vector<std::string>> SplitSavedLine(const std::string& line);

}  // namespace tessel::ctl
