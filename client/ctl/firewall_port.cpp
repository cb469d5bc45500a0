// Rules by port.
#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "client/ctl/firewall_readback.h"
#include "client/ctl/firewall_session.h"
#include "client/ctl/handlers.h"
#include "client/ctl/port_list.h"
#include "client/libtessel.h"

namespace tessel::ctl {

namespace {

struct PortRules {
    std::string asked;
    bool isAdd;
    std::vector<std::string> protocols;
    bool isSource;
    bool isOut;
    bool isDrop;
    std::string ports;

    [[nodiscard]] std::string Chain() const {
        return isOut ? "OUTPUT" : "INPUT";
    }
    [[nodiscard]] std::string Target() const {
        return isDrop ? "DROP" : "RETURN";
    }
};

PortRules RulesOf(const Arguments& words) {
    const std::string protocol = words.Get("PROTOCOL");
    return {.asked = fmt::format("firewall port {} {}", words.Get("CHANGE"), words.Get("PORTS")),
            .isAdd = words.Get("CHANGE") == "add",
            .protocols = protocol.empty() ? std::vector<std::string>{"tcp", "udp"} : std::vector{protocol},
            .isSource = words.Get("KIND") == "sport",
            .isOut = words.Get("DIRECTION") == "out",
            .isDrop = words.Get("ACTION") == "drop",
            .ports = words.Get("PORTS")};
}

int Send(const PortRules& rules, const Options& options) {
    constexpr u32 kBothProtocols = 0;
    TNetPortFilter filter{};
    filter.eInet = static_cast<u32>(ProtocolsOf(options));
    filter.eProtocol = kBothProtocols;
    if (rules.protocols.size() == 1) {
        filter.eProtocol = rules.protocols[0] == "tcp" ? TESSEL_PORT_TCP : TESSEL_PORT_UDP;
    }
    filter.ePortType = rules.isSource ? TESSEL_PORT_SOURCE : TESSEL_PORT_DESTINATION;
    filter.eAction = static_cast<u32>(TESSEL_PORT_ACCEPT_IN + (rules.isOut ? 2 : 0) + (rules.isDrop ? 1 : 0));
    memcpy(filter.achPorts, rules.ports.data(), std::min(rules.ports.size(), sizeof(filter.achPorts) - 1));
    return tessel_port_filter(rules.isAdd ? TESSEL_PORT_ADD : TESSEL_PORT_DEL, &filter);
}

// The ports behind one of two options, of which multiport has the second; no ports where there is neither.
std::optional<PortList> PortsOf(const SavedRule& rule, const char* option, const char* options) {
    const std::string one = rule.Get(option);
    const std::string text = one.empty() ? rule.Get(options) : one;
    return text.empty() ? PortList() : ParsePorts(text);
}

bool HasRule(const Filter& filter, const PortRules& wanted, const std::string& protocol) {
    const auto ports = ParsePorts(wanted.ports);
    const PortList none;
    return std::any_of(filter.rules.begin(), filter.rules.end(), [&](const SavedRule& rule) {
        return rule.chain == wanted.Chain() && rule.Get("-j") == wanted.Target() && rule.Get("-p") == protocol &&
               rule.Get("-s").empty() && PortsOf(rule, "--sport", "--sports") == (wanted.isSource ? ports : none) &&
               PortsOf(rule, "--dport", "--dports") == (wanted.isSource ? none : ports);
    });
}

// The protocols of which the rule is there, or is not.
std::string Protocols(const Filter& filter, const PortRules& wanted, bool isThere) {
    std::vector<std::string> found;
    std::copy_if(wanted.protocols.begin(), wanted.protocols.end(), std::back_inserter(found),
                 [&](const std::string& protocol) { return HasRule(filter, wanted, protocol) == isThere; });
    return fmt::format("{}", fmt::join(found, " and "));
}

std::string Fault(const Filter& filter, const PortRules& wanted) {
    const std::string protocols = Protocols(filter, wanted, !wanted.isAdd);
    if (protocols.empty()) return "";
    const std::string family = FamilyName(static_cast<u32>(filter.family));
    if (!wanted.isAdd) return fmt::format("{} still has such a rule for {}", family, protocols);
    // For IPv6 the daemon ends at the first rule that it finds.
    const bool isCutShort = filter.family == TESSEL_FAMILY_INET6 && protocols == "udp" && wanted.protocols.size() == 2;
    return fmt::format("{} has no such rule for {}{}", family, protocols,
                       isCutShort ? ": the one for tcp, which was there, ended the command. Name udp" : "");
}

// The rules as they would be.
Filter With(Filter filter, const PortRules& added) {
    for (const std::string& protocol : added.protocols) {
        SavedRule rule;
        rule.chain = added.Chain();
        rule.words = {"-p", protocol, added.isSource ? "--sport" : "--dport", added.ports, "-j", added.Target()};
        filter.rules.push_back(rule);
    }
    return filter;
}

}  // namespace

Outcome FirewallPort(const Invocation& invocation) {
    const PortRules wanted = RulesOf(invocation.words);
    if (wanted.isAdd && wanted.isDrop) {
        for (const Filter& filter : ReadFilters(invocation.options)) {
            auto failure = WhyShutOut(wanted.asked, filter, With(filter, wanted), invocation.options);
            if (failure) return std::move(*failure);
        }
    }
    return ReadBack(
        wanted.asked, Send(wanted, invocation.options), invocation.options,
        [&](const Filter& filter) { return Fault(filter, wanted); },
        [&](const Filter& filter) -> std::string {
            if (wanted.isAdd) return "";
            const std::string missing = Protocols(filter, wanted, false);
            return missing.empty() ? ""
                                   : fmt::format("there was no such {} rule for {}",
                                                 FamilyName(static_cast<u32>(filter.family)), missing);
        });
}

}  // namespace tessel::ctl
