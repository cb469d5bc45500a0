// What the packet filter of the kernel is, and the commands that are one request.
#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "client/ctl/firewall_rules.h"
#include "client/ctl/handlers.h"
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

bool IsEchoDrop(const SavedRule& rule) {
    return rule.chain == kIcmpChain && rule.Get("-j") == "DROP";
}

ordered_json RulesJson(const std::vector<SavedRule>& rules) {
    ordered_json list = ordered_json::array();
    for (const SavedRule& rule : rules)
        list.push_back({{"chain", rule.chain}, {"rule", rule.Text()}, {"packets", rule.packets}});
    return list;
}

void AddRules(Outcome& outcome, const std::string& family, const std::vector<SavedRule>& rules) {
    for (const SavedRule& rule : rules)
        outcome.table.rows.push_back(
            {{family}, {rule.chain}, {rule.Text()}, {fmt::format("{} packets", rule.packets)}});
}

void AddFilter(Outcome& outcome, const Filter& filter) {
    const std::string family = FamilyName(static_cast<u32>(filter.family));
    const bool isWhite = filter.IsHooked(kWhitelist);
    const std::string list(isWhite ? kWhitelist : filter.IsHooked(kBlacklist) ? kBlacklist : "");
    const auto policy = filter.policies.find("INPUT");
    const std::string policyText = policy == filter.policies.end() ? "ACCEPT" : policy->second;
    const bool dropsEcho = filter.IsHooked(kIcmpChain) && !RulesOf(filter, &IsEchoDrop).empty();
    std::vector<SavedRule> entries = filter.Entries(kWhitelist);
    const auto denied = filter.Entries(kBlacklist);
    entries.insert(entries.end(), denied.begin(), denied.end());
    const auto ports = RulesOf(filter, &IsPortRule);
    outcome.document.push_back({{"family", family},
                                {"list", list.empty() ? ordered_json() : ordered_json(list)},
                                {"policy", policyText},
                                {"echo_dropped", dropsEcho},
                                {"entries", RulesJson(entries)},
                                {"ports", RulesJson(ports)}});
    outcome.table.rows.push_back({{family},
                                  {list.empty() ? "off" : list + " on"},
                                  {fmt::format("policy {}, echo requests {}", policyText,
                                               dropsEcho ? "dropped" : "not dropped by the firewall")}});
    AddRules(outcome, family, entries);
    AddRules(outcome, family, ports);
    if (isWhite && !ports.empty()) {
        outcome.notes.push_back(
            fmt::format("{}: rules by port stand behind the whitelist and open nothing that it closes", family));
    }
}

int ProtocolsOf(const Options& options) {
    switch (FamilyOf(options)) {
        case TESSEL_FAMILY_INET:
            return TESSEL_PROTOCOL_IPV4;
        case TESSEL_FAMILY_INET6:
            return TESSEL_PROTOCOL_IPV6;
        default:
            return TESSEL_PROTOCOL_BOTH;
    }
}

// Commands whose effect is left to "firewall show".
Outcome Answered(const std::string& asked, int error, const Options& options, std::string_view cause) {
    if (error != TESSEL_OK) return CallFailed(asked, error, cause);
    Outcome outcome;
    outcome.document = {{"done", asked}, {"family", FamilyName(static_cast<u32>(FamilyOf(options)))}};
    outcome.done = asked + "   done";
    return outcome;
}

}  // namespace

Outcome FirewallShow(const Invocation& invocation) {
    Outcome outcome;
    outcome.document = ordered_json::array();
    for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        if (!HasFamily(invocation.options, family)) continue;
        const Filter filter = ReadFilter(family);
        if (!filter.problem.empty()) return Failed("firewall show", filter.problem);
        AddFilter(outcome, filter);
    }
    return outcome;
}

Outcome FirewallChainAdd(const Invocation& invocation) {
    const std::string name = invocation.words.Get("add");
    return Answered("firewall chain add " + name, tessel_chain_add(ProtocolsOf(invocation.options), name.c_str()),
                    invocation.options, "the chain is there already");
}

Outcome FirewallIcmp(const Invocation& invocation) {
    const std::string word = invocation.words.Get("ECHO");
    // Two types a protocol: allow, then drop.
    const int type = 2 * ProtocolsOf(invocation.options) - (word == "allow" ? 1 : 0);
    return Answered("firewall icmp " + word, tessel_icmp_filter(type), invocation.options,
                    "there is no chain icmppacket (tesselctl firewall chain add icmppacket)");
}

Outcome FirewallPort(const Invocation& invocation) {
    const Arguments& words = invocation.words;
    const std::string change = words.Get("CHANGE");
    const std::string protocol = words.Get("PROTOCOL");
    const std::string ports = words.Get("PORTS");
    const bool isOut = words.Get("DIRECTION") == "out";
    const bool isDrop = words.Get("ACTION") == "drop";
    constexpr u32 kBothProtocols = 0;
    TNetPortFilter filter{};
    filter.eInet = static_cast<u32>(ProtocolsOf(invocation.options));
    if (protocol.empty()) {
        filter.eProtocol = kBothProtocols;
    } else {
        filter.eProtocol = protocol == "tcp" ? TESSEL_PORT_TCP : TESSEL_PORT_UDP;
    }
    filter.ePortType = words.Get("KIND") == "sport" ? TESSEL_PORT_SOURCE : TESSEL_PORT_DESTINATION;
    filter.eAction = static_cast<u32>(TESSEL_PORT_ACCEPT_IN + (isOut ? 2 : 0) + (isDrop ? 1 : 0));
    memcpy(filter.achPorts, ports.data(), std::min(ports.size(), sizeof(filter.achPorts) - 1));
    return Answered(fmt::format("firewall port {} {}", change, ports),
                    tessel_port_filter(change == "add" ? TESSEL_PORT_ADD : TESSEL_PORT_DEL, &filter),
                    invocation.options, change == "add" ? "" : "there is no such rule");
}

constexpr std::string_view kRedirection =
    "\">\" and \"<\" reach the tool as words, which it refuses; no file was touched. Use iptables-save and "
    "iptables-restore in a shell";

Outcome FirewallSave(const Invocation& invocation) {
    const std::string path = invocation.words.Get("PATH");
    return Answered("firewall save " + path, tessel_firewall_save(ProtocolsOf(invocation.options), path.c_str()),
                    invocation.options, kRedirection);
}

Outcome FirewallRestore(const Invocation& invocation) {
    const std::string path = invocation.words.Get("PATH");
    return Answered("firewall restore " + path, tessel_firewall_restore(ProtocolsOf(invocation.options), path.c_str()),
                    invocation.options, kRedirection);
}

}  // namespace tessel::ctl
