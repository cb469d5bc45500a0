// The packet filter: its lists, echo requests, ports.
#include <fstream>

#include "client/ctl/filter.h"
#include "client/ctl/perform.h"

namespace tessel::ctl {

namespace {

bool IsPortRule(const FilterRule& rule) {
    constexpr const char* kOptions[] = {"--sport", "--dport", "--sports", "--dports"};
    return (rule.chain == "INPUT" || rule.chain == "OUTPUT") && rule.Get("-j") != "LOG" &&
           std::any_of(std::begin(kOptions), std::end(kOptions), [&](auto one) { return !rule.Get(one).empty(); });
}

std::string EchoText(const Filter& filter) {
    constexpr char kChain[] = "icmppacket";
    const bool isInet = filter.family == TESSEL_FAMILY_INET;
    std::ifstream file("/proc/sys/net/ipv4/icmp_echo_ignore_all");
    if (isInet && file.peek() > '0') return "ignored by the kernel";
    const char* const request = isInet ? "-p icmp --icmp-type 8" : "-p icmpv6 --icmpv6-type 128";
    const auto rule = ParseRule(Format("-A {} {} -j DROP", kChain, request));
    return filter.IsHooked(kChain) && filter.Has(*rule) ? "dropped" : "answered";
}

Outcome Show(const Invocation& invocation) {
    Outcome outcome{.document = Json::array()};
    const auto session = GuardedSession(invocation.options);
    for (const int family : FamiliesOf(invocation.options)) {
        const Filter filter = ReadFilter(family);
        if (!filter.problem.empty()) throw Failed(invocation.asked, filter.problem);
        const auto note = [&](const std::string& text) { outcome.notes.push_back(FamilyName(family) + ": " + text); };
        const auto add = [](Json& rules, const FilterRule& rule) {
            rules.push_back({{"chain", rule.chain}, {"rule", rule.Text()}, {"packets", rule.packets}});
        };
        Json shown{{"family", FamilyName(family)}, {"list", "off"}, {"policy", filter.policies.at("INPUT")}};
        shown.update({{"echo_requests", EchoText(filter)}, {"entries", Json::array()}, {"ports", Json::array()}});
        shown["session"] = nullptr;
        for (const std::string_view list : {kWhitelist, kBlacklist}) {
            if (shown["list"] == "off" && filter.IsHooked(list)) shown["list"] = list;
            for (const FilterRule& rule : filter.Entries(list))
                add(shown["entries"], rule);
        }
        for (const FilterRule& rule : filter.rules)
            if (IsPortRule(rule)) add(shown["ports"], rule);
        if (session && session->peer.family == family) {
            const bool passes = LetsThrough(filter, *session);
            shown["session"] = {{"text", session->text}, {"peer", HostText(session->peer)}, {"let_through", passes}};
            note(Format("{}, which {}", session->text,
                        passes ? "the rules let through" : "no rule is known to let through in both directions"));
        }
        // What the rules do not say by themselves.
        if (!shown["entries"].empty())
            note(Format("RETURN is not ACCEPT: packets continue after the list, and the policy of INPUT ({}) decides",
                        TextOf(shown, "policy")));
        if (filter.IsHooked(kWhitelist) && !shown["ports"].empty())
            note("port rules come after the whitelist and open nothing that it closes");
        outcome.document.push_back(std::move(shown));
    }
    return outcome;
}

// TESSEL_PROTOCOL_... for -4 and -6.
int ProtocolsOf(const Options& options) {
    return (HasFamily(options, TESSEL_FAMILY_INET) ? TESSEL_PROTOCOL_IPV4 : 0) +
           (HasFamily(options, TESSEL_FAMILY_INET6) ? TESSEL_PROTOCOL_IPV6 : 0);
}

// TESSEL_FILTER_... and TESSEL_ICMP_...: of each of those, what lets in and what keeps out.
int FilterType(const Options& options, bool keepsOut) {
    return 2 * ProtocolsOf(options) - (keepsOut ? 0 : 1);
}

template <bool kEnables>
Outcome SwitchList(const Invocation& invocation) {
    const std::string list = invocation.words.Text("LIST");
    const int type = FilterType(invocation.options, list == kBlacklist);
    const auto send = [=] { return kEnables ? tessel_filter_enable(type) : tessel_filter_disable(type); };
    return ChangeFilter(invocation, list + (kEnables ? "   enabled" : "   disabled"), send, kEnables ? list : "");
}

Outcome SwitchEchoes(const Invocation& invocation) {
    const std::string echo = invocation.words.Text("ECHO");
    const int type = FilterType(invocation.options, echo == "drop");
    return ChangeFilter(invocation, "echo requests   " + echo, [=] { return tessel_icmp_filter(type); });
}

Outcome AddChain(const Invocation& invocation) {
    const std::string name = invocation.words.Text("add");
    const auto send = [&] { return tessel_chain_add(ProtocolsOf(invocation.options), name.c_str()); };
    return ChangeFilter(invocation, "chain " + name + "   added", send);
}

// The shape of an entry chooses the request.
int SendEntry(const Words& words, int operation) {
    if (const Mac* mac = words.If<Mac>("M"))
        return tessel_ip_mac_filter(operation, mac->data(), HostText(words.Get<Network>("ENTRY")).c_str());
    if (const Mac* mac = words.If<Mac>("ENTRY")) return tessel_mac_filter(operation, mac->data());
    const Range* range = words.If<Range>("ENTRY");
    const Network& start = range == nullptr ? words.Get<Network>("ENTRY") : range->first;
    TNetIpFilter entry{};
    entry.tStart = GatewayOf(start);
    entry.tEnd = range == nullptr ? TNetGateway{} : GatewayOf(range->last);
    entry.dwPrefixLen = range == nullptr ? start.length : 0;
    return tessel_ip_filter(operation, &entry);
}

template <int kOperation>
Outcome ChangeList(const Invocation& invocation) {
    const Words& words = invocation.words;
    const bool hasMac = words.Has("M");
    const Network* network = words.If<Network>("ENTRY");
    if (hasMac && (network == nullptr || !network->IsHost()))
        throw Refused(invocation.asked, "a MAC can only be combined with the address of a host");
    if (network != nullptr && Masked(*network) != *network)
        throw Refused(invocation.asked, Format("write {} or {}", NetworkText(Masked(*network)), HostText(*network)));
    const bool isWhite = kOperation == TESSEL_LIST_WHITE_ADD || kOperation == TESSEL_LIST_WHITE_DEL;
    const bool isAdd = kOperation == TESSEL_LIST_WHITE_ADD || kOperation == TESSEL_LIST_BLACK_ADD;
    const std::string done = Format("{}   {}{} {}", isWhite ? kWhitelist : kBlacklist, words.Text("ENTRY"),
                                    hasMac ? " " + words.Text("M") : "", isAdd ? "added" : "deleted");
    Outcome outcome = ChangeFilter(invocation, done, [&] { return SendEntry(words, kOperation); });
    if (hasMac && network->family == TESSEL_FAMILY_INET6)
        outcome.notes.emplace_back("with a MAC, an IPv6 entry covers the whole /32 network of the address");
    return outcome;
}

Outcome Delete(const Invocation& invocation) {
    const bool isWhite = invocation.words.Text("LIST") == "allow";
    return isWhite ? ChangeList<TESSEL_LIST_WHITE_DEL>(invocation) : ChangeList<TESSEL_LIST_BLACK_DEL>(invocation);
}

Outcome ChangePort(const Invocation& invocation) {
    const Words& words = invocation.words;
    const bool isAdd = words.Text("CHANGE") == "add";
    const auto& ports = words.Get<std::string>("PORTS");
    TNetPortFilter filter{};
    filter.eInet = static_cast<u32>(ProtocolsOf(invocation.options));
    filter.ePortType = words.Text("KIND") == "sport" ? TESSEL_PORT_SOURCE : TESSEL_PORT_DESTINATION;
    filter.eAction = static_cast<u32>(TESSEL_PORT_ACCEPT_IN + (words.Text("DIRECTION") == "out" ? 2 : 0) +
                                      (words.Text("ACTION") == "drop" ? 1 : 0));
    ports.copy(filter.achPorts, sizeof(filter.achPorts) - 1);
    const auto sendFor = [&](u32 protocol) {
        filter.eProtocol = protocol;
        return tessel_port_filter(isAdd ? TESSEL_PORT_ADD : TESSEL_PORT_DEL, &filter);
    };
    // One request for both transports would do, but ends at an IPv6 TCP rule that already exists.
    const std::string only = words.Text("PROTOCOL");
    const auto send = [&] {
        const int error = only == "udp" ? TESSEL_OK : sendFor(TESSEL_PORT_TCP);
        return error != TESSEL_OK || only == "tcp" ? error : sendFor(TESSEL_PORT_UDP);
    };
    return ChangeFilter(invocation, Format("ports {}   {}", ports, isAdd ? "added" : "deleted"), send);
}

// The daemon's tools refuse what it asks them for.
template <bool kSaves>
Outcome AskDaemon(const Invocation& invocation) {
    const std::string path = invocation.words.Text("PATH");
    const auto call = kSaves ? &tessel_firewall_save : &tessel_firewall_restore;
    const auto send = [&] { return call(ProtocolsOf(invocation.options), path.c_str()); };
    const auto cause = [] { return Format("use \"tesselctl firewall {} FILE\"", kSaves ? "export" : "import"); };
    return Perform(invocation, {.send = send, .cause = cause, .done = invocation.asked + "   done"});
}

constexpr std::string_view kListBackground =
    "Needs the list's chain (firewall chain add). RETURN in the whitelist is not ACCEPT: the remaining rules of INPUT "
    "and its policy decide. A MAC applies to both families; an IPv6 address with a MAC covers its whole /32 network.";

constexpr Command kFirewallCommands[] = {
    FamilyRow("chain", "add CHAIN", &AddChain, "create a chain (whitelist, blacklist, icmppacket); needed first",
              "firewall chain add whitelist")
        .Sends(TESSEL_CMD_CHAIN_ADD)
        .More("icmppacket is hooked immediately, for both families."),
    FamilyRow("show", "", &Show, "which list is hooked, entries, echo requests, ports, session", "firewall show -4")
        .Columns("FAMILY {family}|LIST {list}|POLICY {policy}|ECHO REQUESTS {echo_requests}|CHAIN {chain}|PACKETS "
                 "{packets}|RULE {rule}")
        .More("Asks the kernel, which takes root."),
    Row("allow", "ENTRY=A/L|A|A-A|M [M]", &ChangeList<TESSEL_LIST_WHITE_ADD>,
        "whitelist a host (and its MAC), a network, a range or a MAC", "firewall allow 192.168.1.0/24")
        .Sends(TESSEL_CMD_IP_FILTER, TESSEL_CMD_MAC_FILTER, TESSEL_CMD_IP_AND_MAC_FILTER)
        .More(kListBackground),
    Row("deny", "ENTRY=A/L|A|A-A|M [M]", &ChangeList<TESSEL_LIST_BLACK_ADD>,
        "blacklist one: its packets are logged and dropped", "firewall deny 10.0.0.10-10.0.0.20")
        .Sends(TESSEL_CMD_IP_FILTER, TESSEL_CMD_MAC_FILTER, TESSEL_CMD_IP_AND_MAC_FILTER)
        .More(kListBackground),
    Row("delete", "LIST=allow|deny ENTRY=A/L|A|A-A|M [M]", &Delete, "delete an entry of a list",
        "firewall delete allow 192.168.1.77 02:00:00:00:00:77")
        .Sends(TESSEL_CMD_IP_FILTER, TESSEL_CMD_MAC_FILTER, TESSEL_CMD_IP_AND_MAC_FILTER),
    FamilyRow("enable", "LIST=whitelist|blacklist", &SwitchList<true>,
              "let packets pass through a list; empties the other one", "firewall enable blacklist -4")
        .Sends(TESSEL_CMD_FILTER_ENABLE)
        .More("The whitelist admits only its entries and loopback, not even answers to the device's own connections or "
              "IPv6 neighbour discovery. Missing entries are listed first."),
    FamilyRow("disable", "LIST=whitelist|blacklist", &SwitchList<false>, "unhook a list and empty it; asks first",
              "firewall disable blacklist -4")
        .Sends(TESSEL_CMD_FILTER_DISABLE),
    FamilyRow("icmp", "ECHO=allow|drop", &SwitchEchoes, "accept or drop echo requests; needs the chain icmppacket",
              "firewall icmp allow -4")
        .Sends(TESSEL_CMD_ICMP_FILTER),
    FamilyRow("port", "CHANGE=add|del [PROTOCOL=tcp|udp] KIND=sport|dport PORTS DIRECTION=in|out ACTION=accept|drop",
              &ChangePort, "add or delete rules by port, for both tcp and udp unless one is named",
              "firewall port add tcp dport 80,443 in drop -4")
        .Sends(TESSEL_CMD_PORT_FILTER)
        .More("Appended after the jump to a list: \"accept\" opens no port that the whitelist closes."),
    FamilyRow("export", "FILE", &FirewallExport, "write the rules of every table to a file; - is standard output",
              "firewall export /tmp/rules")
        .More("Done by tesselctl with the device's tools. The file is written completely or not at all."),
    FamilyRow("import", "FILE", &FirewallImport,
              "replace the rules with those of a file (-: standard input); asks first", "firewall import /tmp/rules")
        .More("Accepts what \"firewall export\" wrote and, with -4 or -6, the output of a save tool. Checked before "
              "anything is changed, and undone if a tool fails. Tables that are not in the file stay."),
    FamilyRow("save", "PATH", &AskDaemon<true>, "have the daemon save the rules, which fails: use export",
              "firewall save /tmp/rules")
        .Sends(TESSEL_CMD_FIREWALL_SAVE),
    FamilyRow("restore", "PATH", &AskDaemon<false>, "have the daemon restore the rules, which fails: use import",
              "firewall restore /tmp/rules")
        .Sends(TESSEL_CMD_FIREWALL_RESTORE),
};

}  // namespace

extern const Object kFirewall = {
    .name = "firewall", .summary = "the packet filter: lists, echo requests, ports", .commands = kFirewallCommands};

}  // namespace tessel::ctl
