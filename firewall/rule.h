// The rules of the packet filter: what one consists of, and how it is added or deleted.
//
//   iptables -A blacklist -s 10.0.0.0/8 -j LOG --log-prefix "***BLACKLIST***" --log-level notice
//   iptables -A blacklist -s 10.0.0.0/8 -j DROP
//   program  operation+chain  match     target
#pragma once

#include <cstddef>
#include <optional>
#include <span>

#include "core/call_site.h"
#include "core/exec.h"
#include "core/types.h"
#include "tessel/firewall.h"

namespace tessel {

// Its texts from outside have been checked: each is one word.
struct Rule {
    const char* program;    // "iptables" or "ip6tables"
    const char* operation;  // "-A", "-I" or "-D"
    const char* chain;
    const char* match;  // options with a blank in front; empty: every packet
    const char* target;
};

// Only a rule to be added is looked for first; whether one can be deleted is left to the tool.
[[nodiscard]] bool IsDeletion(const Rule& rule);

// The rule beside another that logs what both match.
struct LogRule {
    const char* prefix;   // the whole option. Its quotation marks reach the tool: there is no shell to remove them
    const char* failure;  // logged when it cannot be added or deleted, which stops nothing else
};

// What is logged when a line fails, unless a feature has its own words.
constexpr char kCommandFailed[] = "ExecCmd error!";

// The rows of a table, IPv4's and IPv6's, that a protocol type stands for. None for a type that is not a
// TESSEL_PROTOCOL_...
template <typename Row>
constexpr std::span<const Row> RowsOf(const Row (&rows)[2], u32 ipType) {
    if (ipType < TESSEL_PROTOCOL_IPV4 || ipType > TESSEL_PROTOCOL_BOTH) return {};
    const std::size_t first = ipType == TESSEL_PROTOCOL_IPV6 ? 1 : 0;
    return std::span(rows).subspan(first, ipType == TESSEL_PROTOCOL_BOTH ? 2 : 1);
}

// The row that a code counted from 1 stands for; null when there is none.
template <typename Row, std::size_t kRows>
constexpr const Row* FindRow(const Row (&rows)[kRows], u32 code) {
    return code >= 1 && code <= kRows ? &rows[code - 1] : nullptr;
}

// The six types of filter lists and those of ICMP filters are alike: allow and refuse for IPv4, for IPv6, for both.
constexpr bool IsFilterType(u32 type) {
    return type >= 1 && type <= 6;
}
constexpr u32 ProtocolsOf(u32 filterType) {
    return (filterType + 1) / 2;
}
constexpr bool Refuses(u32 filterType) {
    return filterType % 2 == 0;
}

// False, with a log line, when the line does not fit.
[[nodiscard]] bool ComposeRule(CommandLine& line, const Rule& rule);

// Adds or deletes the LOG rule of `rule`. 0, or -1 with a log line.
[[nodiscard]] i32 RunLogRule(const Rule& rule, const LogRule& log, CallSite where = CallSite::Current());

// Adds or deletes a rule, after its LOG rule where there is one. 0, or -1 with `failure` logged; nothing when a rule to
// be added already exists: its LOG rule is then left alone too.
[[nodiscard]] std::optional<i32> RunRule(const Rule& rule, const char* failure = kCommandFailed,
                                         const LogRule* log = nullptr, CallSite where = CallSite::Current());

}  // namespace tessel

// -1 when the rule that this line would add exists, 0 when it does not or the tool cannot say. The line's first option
// is the operation.
[[nodiscard]] i32 RuleCheck(const char* rule);
