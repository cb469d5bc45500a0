// What the packet filter of the kernel is, its chains, and echo requests.
#include <fmt/format.h>

#include <algorithm>
#include <fstream>

#include "client/ctl/firewall_readback.h"
#include "client/ctl/firewall_session.h"
#include "client/ctl/handlers.h"
#include "client/ctl/next_hop.h"
#include "client/libtessel.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

std::vector<SavedRule> RulesOf(const Filter& filter, bool (*isMeant)(const SavedRule& rule)) {
    std::vector<SavedRule> rules;
    std::copy_if(filter.rules.begin(), filter.rules.end(), std::back_inserter(rules), isMeant);
    return rules;
}

bool IsPortRule(const SavedRule& rule) {
    constexpr std::string_view kOptions[] = {"--sport", "--dport", "--sports", "--dports"};
    const bool isBuiltIn = rule.chain == "INPUT" || rule.chain == "OUTPUT";
    return isBuiltIn && rule.Get("-j") != "LOG" &&
           std::any_of(std::begin(kOptions), std::end(kOptions),
                       [&](std::string_view option) { return !rule.Get(option).empty(); });
}

// What becomes of echo requests in their chain; empty: nothing is said about them.
std::string EchoTarget(const Filter& filter) {
    for (const SavedRule& rule : filter.rules) {
        const bool isEcho = rule.Get("--icmp-type") == "8" || rule.Get("--icmpv6-type") == "128";
        if (rule.chain == kIcmpChain && isEcho && rule.Get("-j") != "LOG") return rule.Get("-j");
    }
    return "";
}

bool DropsEcho(const Filter& filter) {
    return filter.IsHooked(kIcmpChain) && EchoTarget(filter) == "DROP";
}

ordered_json RulesJson(const std::vector<SavedRule>& rules) {
    ordered_json list = ordered_json::array();
    for (const SavedRule& rule : rules)
        list.push_back({{"chain", rule.chain}, {"rule", rule.text}, {"packets", rule.packets}});
    return list;
}

void AddRules(Outcome& outcome, const std::string& family, const std::vector<SavedRule>& rules) {
    for (const SavedRule& rule : rules)
        outcome.table.rows.push_back({{family}, {rule.chain}, {rule.text}, {fmt::format("{} packets", rule.packets)}});
}

// The guard's opinion of the rules; null without a session of this family.
ordered_json SessionJson(const Filter& filter, const Options& options) {
    const auto session = GuardedSession(options);
    if (!session || session->peer.wSinFamily != filter.family) return nullptr;
    return {{"peer", HostText(session->peer)},
            {"let_in", LetsIn(filter, *session)},
            {"on_whitelist", IsAllowed(filter, session->peer)}};
}

std::string SessionLine(const ordered_json& session, bool isWhite) {
    const bool isLetIn = session["let_in"].get<bool>();
    const bool isListed = session["on_whitelist"].get<bool>();
    std::string line = fmt::format("session from {} {}", session["peer"].get<std::string>(),
                                   isLetIn ? "is let in" : "is not let in by any rule that tells it from others");
    if (!isWhite && !isListed) line += "; not on the whitelist, which would shut it out";
    return line;
}

// What the rules do not say by themselves.
void AddWarnings(Outcome& outcome, const Filter& filter, const std::vector<SavedRule>& entries, bool hasPorts) {
    const std::string family = FamilyName(static_cast<u32>(filter.family));
    const bool isWhite = filter.IsHooked(kWhitelist);
    if (!entries.empty() || hasPorts) {
        outcome.notes.push_back(
            fmt::format("{}: RETURN is not ACCEPT: packets go on behind the list, and INPUT's "
                        "policy ({}) decides in the end",
                        family, filter.Policy()));
    }
    if (isWhite && hasPorts) {
        outcome.notes.push_back(
            fmt::format("{}: rules by port stand behind the whitelist and open nothing that it closes", family));
    }
    for (const SavedRule& rule : entries) {
        const std::string source = rule.Get("-s");
        if (rule.Get("--mac-source").empty() || !source.ends_with("/32") || source.find(':') == std::string::npos)
            continue;
        outcome.notes.push_back(
            fmt::format("{}: the entry of {} is for the whole of {}", family, rule.Get("--mac-source"), source));
    }
}

void AddFilter(Outcome& outcome, const Filter& filter, const Options& options) {
    const std::string family = FamilyName(static_cast<u32>(filter.family));
    const bool isWhite = filter.IsHooked(kWhitelist);
    const std::string_view list = filter.HookedList();
    std::vector<SavedRule> entries = filter.Entries(kWhitelist);
    const auto denied = filter.Entries(kBlacklist);
    entries.insert(entries.end(), denied.begin(), denied.end());
    const auto ports = RulesOf(filter, &IsPortRule);
    const ordered_json session = SessionJson(filter, options);
    outcome.document.push_back({{"family", family},
                                {"list", list.empty() ? ordered_json() : ordered_json(list)},
                                {"policy", filter.Policy()},
                                {"echo_dropped", DropsEcho(filter)},
                                {"entries", RulesJson(entries)},
                                {"ports", RulesJson(ports)},
                                {"session", session}});
    outcome.table.rows.push_back({{family},
                                  {list.empty() ? "off" : fmt::format("{} on", list)},
                                  {fmt::format("policy {}, echo requests {}", filter.Policy(),
                                               DropsEcho(filter) ? "dropped" : "not dropped by the firewall")}});
    AddRules(outcome, family, entries);
    AddRules(outcome, family, ports);
    if (!session.is_null()) outcome.table.rows.push_back({{family}, {"guard"}, {SessionLine(session, isWhite)}});
    AddWarnings(outcome, filter, entries, !ports.empty());
}

bool IsIgnoringEchoes() {
    std::ifstream file("/proc/sys/net/ipv4/icmp_echo_ignore_all");
    int value = 0;
    return file >> value && value != 0;
}

std::string EchoFault(const Filter& filter, const std::string& wanted) {
    if (EchoTarget(filter) != wanted) return fmt::format("the chain {} has no such rule", kIcmpChain);
    if (wanted == "DROP" && !filter.IsHooked(kIcmpChain)) {
        return fmt::format("INPUT does not jump to the {} chain {}", FamilyName(static_cast<u32>(filter.family)),
                           kIcmpChain);
    }
    const bool isIgnored = wanted == "RETURN" && filter.family == TESSEL_FAMILY_INET && IsIgnoringEchoes();
    return isIgnored ? "the kernel still ignores every echo request" : "";
}

std::string ChainFault(const Filter& filter, const std::string& name) {
    std::string missing = MissingChain(filter, name);
    if (!missing.empty() || name != kIcmpChain || filter.IsHooked(name)) return missing;
    return "INPUT does not jump to the chain";
}

// `before` are the filters as they were; the daemon answers for the last tool that it ran.
std::string WhyNotAdded(const std::vector<Filter>& before, const std::string& name) {
    for (const Filter& filter : before) {
        if (filter.problem.empty() && filter.HasChain(name)) {
            return fmt::format("there was an {} chain \"{}\" already", FamilyName(static_cast<u32>(filter.family)),
                               name);
        }
    }
    if (name != kIcmpChain || before.size() != 1) return "";
    return "icmppacket is hooked for both families, and the other one has no such chain";
}

}  // namespace

Outcome FirewallShow(const Invocation& invocation) {
    Outcome outcome;
    outcome.document = ordered_json::array();
    for (const Filter& filter : ReadFilters(invocation.options)) {
        if (!filter.problem.empty()) return Failed("firewall show", filter.problem);
        AddFilter(outcome, filter, invocation.options);
    }
    return outcome;
}

Outcome FirewallChainAdd(const Invocation& invocation) {
    const std::string name = invocation.words.Get("add");
    const std::string asked = "firewall chain add " + name;
    const auto before = ReadFilters(invocation.options);
    return ReadBack(
        asked, tessel_chain_add(ProtocolsOf(invocation.options), name.c_str()), invocation.options,
        [&](const Filter& filter) { return ChainFault(filter, name); },
        [&](const Filter& /*filter*/) { return WhyNotAdded(before, name); });
}

Outcome FirewallIcmp(const Invocation& invocation) {
    const std::string word = invocation.words.Get("ECHO");
    const std::string asked = "firewall icmp " + word;
    // Two types a protocol: allow, then drop.
    const int type = 2 * ProtocolsOf(invocation.options) - (word == "allow" ? 1 : 0);
    return ReadBack(
        asked, tessel_icmp_filter(type), invocation.options,
        [&](const Filter& filter) { return EchoFault(filter, word == "allow" ? "RETURN" : "DROP"); },
        [&](const Filter& filter) { return MissingChain(filter, kIcmpChain); });
}

}  // namespace tessel::ctl
