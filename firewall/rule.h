// The rules of the packet filter: what one consists of, and the one way in which it is added or deleted.
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

// Texts of it that come from outside have passed IsRuleWord.
struct Rule {
    const char* program;    // "iptables" or "ip6tables"
    const char* operation;  // "-A", "-I" or "-D"
    const char* chain;
    const char* match;  // options with a blank in front; empty: every packet
    const char* target;
};

// The rule in front of another that logs what both match.
struct LogRule {
    const char* prefix;   // the whole option. The tool gets the quotation marks, too: no shell takes them away
    const char* failure;  // logged when it cannot be added or deleted, which is no hindrance
};

// What is logged when a line fails, unless a feature has its own words.
constexpr char kCommandFailed[] = "ExecCmd error!";

// The entries, IPv4's and IPv6's, that a protocol type stands for. None for a type that is no TESSEL_PROTOCOL_...
template <typename Entry>
constexpr std::span<const Entry> EntriesOf(const Entry (&entries)[2], u32 ipType) {
    if (ipType < TESSEL_PROTOCOL_IPV4 || ipType > TESSEL_PROTOCOL_BOTH) return {};
    const std::size_t first = ipType == TESSEL_PROTOCOL_IPV6 ? 1 : 0;
    return std::span(entries).subspan(first, ipType == TESSEL_PROTOCOL_BOTH ? 2 : 1);
}

// The six types of filter lists and of ICMP filters are made alike: allow and refuse for IPv4, for IPv6, for both.
constexpr bool IsFilterType(u32 type) {
    return type >= 1 && type <= 6;
}
constexpr u32 ProtocolsOf(u32 filterType) {
    return (filterType + 1) / 2;
}
constexpr bool Refuses(u32 filterType) {
    return filterType % 2 == 0;
}

// True for a text from outside that may stand in a command line: one word, and none that a tool could take for an
// option. False with a log line; false without one for null, the text of a payload that ended too early.
[[nodiscard]] bool IsRuleWord(const char* text, CallSite where = CallSite::Current());

// False, with a log line, when the line does not fit.
[[nodiscard]] bool ComposeRule(CommandLine& line, const Rule& rule);

// Logs the line at print level and runs it. 0, or -1 with `failure` logged.
[[nodiscard]] i32 RunLine(CommandLine& line, const char* failure, CallSite where = CallSite::Current());

// Adds or deletes the LOG rule of `rule`. 0, or -1 with a log line.
[[nodiscard]] i32 RunLogRule(const Rule& rule, const LogRule& log, CallSite where = CallSite::Current());

// Adds or deletes a rule, after its LOG rule where there is one. Nothing when a rule to be added is there already: then
// its LOG rule is left alone as well. Else 0, or -1 with `failure` logged; -1 also, and nothing is run, when one of the
// two does not fit into a command line.
[[nodiscard]] std::optional<i32> RunRule(const Rule& rule, const char* failure = kCommandFailed,
                                         const LogRule* log = nullptr, CallSite where = CallSite::Current());

}  // namespace tessel

// -1 when the rule that this line would add exists, 0 when it does not or cannot be looked for. The line's first option
// is the operation.
[[nodiscard]] i32 RuleCheck(const char* rule);
