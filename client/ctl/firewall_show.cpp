// What the packet filter is, and what becomes of the session in it.
#include <fstream>

#include "client/ctl/firewall.h"

namespace tessel::ctl {

namespace {

constexpr std::string_view kIcmpChain = "icmppacket";

bool IsPortRule(const FilterRule& rule) {
    constexpr std::string_view kOptions[] = {"--sport", "--dport", "--sports", "--dports"};
    return (rule.chain == "INPUT" || rule.chain == "OUTPUT") && rule.Get("-j") != "LOG" &&
           std::any_of(std::begin(kOptions), std::end(kOptions),
                       [&](std::string_view option) { return !rule.Get(option).empty(); });
}

std::string EchoText(const Filter& filter) {
    std::ifstream file("/proc/sys/net/ipv4/icmp_echo_ignore_all");
    int isIgnored = 0;
    if (filter.family == TESSEL_FAMILY_INET && file >> isIgnored && isIgnored != 0) return "ignored by the kernel";
    const bool isDropped = std::any_of(filter.rules.begin(), filter.rules.end(), [&](const FilterRule& rule) {
        const bool isEcho = rule.Get("--icmp-type") == "8" || rule.Get("--icmpv6-type") == "128";
        return rule.chain == kIcmpChain && isEcho && rule.Get("-j") == "DROP" && filter.IsHooked(kIcmpChain);
    });
    return isDropped ? "dropped" : "answered";
}

Json RulesJson(const std::vector<FilterRule>& rules) {
    Json list = Json::array();
    for (const FilterRule& rule : rules)
        list.push_back({{"chain", rule.chain}, {"rule", rule.Text()}, {"packets", rule.packets}});
    return list;
}

// What the rules do not say by themselves.
void AddNotes(Outcome& outcome, const Filter& filter, const std::vector<FilterRule>& entries, bool hasPorts) {
    const auto add = [&](const std::string& text) { outcome.notes.push_back(FamilyName(filter.family) + ": " + text); };
    const Json& shown = outcome.document.back();
    if (!shown["session"].is_null()) {
        add(Format("{}, which {}", TextOf(shown["session"], "text"),
                   shown["session"]["let_through"].get<bool>() ? "the rules let through"
                                                               : "no rule is known to let through in both directions"));
    }
    if (!entries.empty()) {
        add(Format(
            "RETURN is not ACCEPT: packets go on behind the list, and the policy of INPUT ({}) decides in the end",
            TextOf(shown, "policy")));
    }
    if (filter.IsHooked(kWhitelist) && hasPorts)
        add("rules by port stand behind the whitelist and open nothing that it closes");
}

}  // namespace

Outcome FirewallShow(const Invocation& invocation) {
    Outcome outcome;
    outcome.document = Json::array();
    const auto session = GuardedSession(invocation.options);
    for (const Filter& filter : ReadFilters(invocation.options)) {
        if (!filter.problem.empty()) throw Failed(invocation.asked, filter.problem);
        std::vector<FilterRule> entries = filter.Entries(kWhitelist);
        const auto denied = filter.Entries(kBlacklist);
        entries.insert(entries.end(), denied.begin(), denied.end());
        std::vector<FilterRule> ports;
        std::copy_if(filter.rules.begin(), filter.rules.end(), std::back_inserter(ports), &IsPortRule);
        const bool isShown = session && session->peer.family == filter.family;
        outcome.document.push_back({{"family", FamilyName(filter.family)},
                                    {"list", filter.IsHooked(kWhitelist)   ? kWhitelist
                                             : filter.IsHooked(kBlacklist) ? kBlacklist
                                                                           : "off"},
                                    {"policy", filter.policies.at("INPUT")},
                                    {"echo_requests", EchoText(filter)},
                                    {"entries", RulesJson(entries)},
                                    {"ports", RulesJson(ports)},
                                    {"session", isShown ? Json{{"text", session->text},
                                                               {"peer", HostText(session->peer)},
                                                               {"let_through", LetsThrough(filter, *session)}}
                                                        : Json()}});
        AddNotes(outcome, filter, entries, !ports.empty());
    }
    return outcome;
}

}  // namespace tessel::ctl
