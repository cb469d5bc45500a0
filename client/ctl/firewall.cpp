// The packet filter: its lists, echo requests, ports.
#include "client/ctl/firewall.h"

namespace tessel::ctl {

namespace {

// TESSEL_FILTER_... and TESSEL_ICMP_...: IPv4's, IPv6's, both; of each, what allows and what refuses.
int FilterType(const Options& options, bool refuses) {
    return 2 * ProtocolsOf(options) - (refuses ? 0 : 1);
}

std::vector<std::string> WhitelistWarnings(const std::vector<Filter>& filters) {
    std::vector<std::string> lines{
        "a whitelist keeps out answers to the device's own connections (NTP, DNS, DHCP), too"};
    for (const Filter& filter : filters) {
        if (filter.Entries(kWhitelist).empty())
            lines.push_back(ChainText(filter.family, kWhitelist) + ": no entry, so that nothing but loopback gets in");
        for (const std::string& missing : MissingEntries(filter))
            lines.push_back(Format("{}: missing: {}", ChainText(filter.family, kWhitelist), missing));
    }
    return lines;
}

Outcome Enable(const Invocation& invocation) {
    const std::string list = invocation.words.Text("LIST");
    const int type = FilterType(invocation.options, list == kBlacklist);
    FilterChange change{
        .send = [=] { return tessel_filter_enable(type); }, .done = list + "   enabled", .isEnabling = true};
    if (list == kWhitelist) change.warnings = &WhitelistWarnings;
    return PerformFilterChange(invocation, change);
}

Outcome Disable(const Invocation& invocation) {
    const std::string list = invocation.words.Text("LIST");
    const int type = FilterType(invocation.options, list == kBlacklist);
    return PerformFilterChange(invocation,
                               {.send = [=] { return tessel_filter_disable(type); }, .done = list + "   disabled"});
}

Outcome AddChain(const Invocation& invocation) {
    const std::string name = invocation.words.Text("add");
    const int protocols = ProtocolsOf(invocation.options);
    return PerformFilterChange(invocation, {.send = [=] { return tessel_chain_add(protocols, name.c_str()); },
                                            .done = "chain " + name + "   added"});
}

Outcome SwitchEchoes(const Invocation& invocation) {
    const std::string echo = invocation.words.Text("ECHO");
    const int type = FilterType(invocation.options, echo == "drop");
    return PerformFilterChange(invocation,
                               {.send = [=] { return tessel_icmp_filter(type); }, .done = "echo requests   " + echo});
}

// The shape of an entry chooses the request.
int SendEntry(const Words& words, int operation) {
    if (const Mac* mac = words.If<Mac>("M"))
        return tessel_ip_mac_filter(operation, mac->data(), HostText(words.Get<Network>("ENTRY")).c_str());
    if (const Mac* mac = words.If<Mac>("ENTRY")) return tessel_mac_filter(operation, mac->data());
    TNetIpFilter entry{};
    if (const Range* range = words.If<Range>("ENTRY")) {
        entry.tStart = GatewayOf(range->first);
        entry.tEnd = GatewayOf(range->last);
    } else {
        const auto& network = words.Get<Network>("ENTRY");
        entry.tStart = GatewayOf(network);
        entry.dwPrefixLen = network.length;
    }
    return tessel_ip_filter(operation, &entry);
}

Outcome ChangeList(const Invocation& invocation, bool isWhite, bool isAdd) {
    const Words& words = invocation.words;
    const Network* network = words.If<Network>("ENTRY");
    if (words.Has("M") && (network == nullptr || !network->IsHost()))
        throw Refused(invocation.asked, "a MAC may stand behind the address of a host only");
    if (network != nullptr && Masked(*network) != *network) {
        throw Refused(invocation.asked, Format("{} is a host with a length: write {} or {}", NetworkText(*network),
                                               NetworkText(Masked(*network)), HostText(*network)));
    }
    const int white = isAdd ? TESSEL_LIST_WHITE_ADD : TESSEL_LIST_WHITE_DEL;
    const int black = isAdd ? TESSEL_LIST_BLACK_ADD : TESSEL_LIST_BLACK_DEL;
    const std::string entry = words.Text("ENTRY") + (words.Has("M") ? " " + words.Text("M") : "");
    const std::string_view list = isWhite ? kWhitelist : kBlacklist;
    Outcome outcome =
        PerformFilterChange(invocation, {.send = [&] { return SendEntry(words, isWhite ? white : black); },
                                         .done = Format("{}   {} {}", list, entry, isAdd ? "added" : "deleted")});
    if (words.Has("M") && network->family == TESSEL_FAMILY_INET6)
        outcome.notes.emplace_back(
            "with an IPv6 address and a MAC the entry is for the whole /32 network of the address");
    return outcome;
}

Outcome Allow(const Invocation& invocation) {
    return ChangeList(invocation, true, true);
}

Outcome Deny(const Invocation& invocation) {
    return ChangeList(invocation, false, true);
}

Outcome Delete(const Invocation& invocation) {
    return ChangeList(invocation, invocation.words.Text("LIST") == "allow", false);
}

Outcome ChangePort(const Invocation& invocation) {
    const Words& words = invocation.words;
    const bool isAdd = words.Text("CHANGE") == "add";
    const std::string ports = words.Text("PORTS");
    TNetPortFilter filter{};
    filter.eInet = static_cast<u32>(ProtocolsOf(invocation.options));
    filter.ePortType = words.Text("KIND") == "sport" ? TESSEL_PORT_SOURCE : TESSEL_PORT_DESTINATION;
    filter.eAction = static_cast<u32>(TESSEL_PORT_ACCEPT_IN + (words.Text("DIRECTION") == "out" ? 2 : 0) +
                                      (words.Text("ACTION") == "drop" ? 1 : 0));
    ports.copy(filter.achPorts, sizeof(filter.achPorts) - 1);
    // One request for both transports would do, but ends at a TCP rule of IPv6 that is there already.
    const auto send = [&] {
        int error = TESSEL_OK;
        for (const auto& [protocol, name] : {std::pair(TESSEL_PORT_TCP, "tcp"), {TESSEL_PORT_UDP, "udp"}}) {
            filter.eProtocol = static_cast<u32>(protocol);
            const bool isMeant = !words.Has("PROTOCOL") || words.Text("PROTOCOL") == name;
            if (isMeant && error == TESSEL_OK)
                error = tessel_port_filter(isAdd ? TESSEL_PORT_ADD : TESSEL_PORT_DEL, &filter);
        }
        return error;
    };
    return PerformFilterChange(invocation,
                               {.send = send, .done = Format("ports {}   {}", ports, isAdd ? "added" : "deleted")});
}

constexpr std::string_view kListBackground =
    "Needs the list's chain (firewall chain add). RETURN in the whitelist is not ACCEPT: the further rules of INPUT "
    "and its policy decide. A MAC goes to both families; an IPv6 address with a MAC stands for its whole /32 network.";

constexpr Command kFirewallCommands[] = {
    Row("chain", "add CHAIN", &AddChain, "create a chain: whitelist, blacklist, icmppacket; comes first",
        "firewall chain add whitelist")
        .Sends(TESSEL_CMD_CHAIN_ADD)
        .OfFamily()
        .More("icmppacket is hooked at once, for both families."),
    Row("show", "", &FirewallShow, "which list is hooked, entries, echo requests, ports, your session",
        "firewall show -4")
        .OfFamily()
        .Columns("FAMILY {family}|LIST {list}|POLICY {policy}|ECHO REQUESTS {echo_requests}|CHAIN {chain}|PACKETS "
                 "{packets}|RULE {rule}")
        .More("The kernel is asked; that takes root."),
    Row("allow", "ENTRY=A/L|A|A-A|M [M]", &Allow, "whitelist a host (and its MAC), a network, a range or a MAC",
        "firewall allow 192.168.1.0/24")
        .Sends(TESSEL_CMD_IP_FILTER, TESSEL_CMD_MAC_FILTER, TESSEL_CMD_IP_AND_MAC_FILTER)
        .More(kListBackground),
    Row("deny", "ENTRY=A/L|A|A-A|M [M]", &Deny, "blacklist one: its packets are logged and dropped",
        "firewall deny 10.0.0.10-10.0.0.20")
        .Sends(TESSEL_CMD_IP_FILTER, TESSEL_CMD_MAC_FILTER, TESSEL_CMD_IP_AND_MAC_FILTER)
        .More(kListBackground),
    Row("delete", "LIST=allow|deny ENTRY=A/L|A|A-A|M [M]", &Delete, "delete an entry of a list",
        "firewall delete allow 192.168.1.77 02:00:00:00:00:77")
        .Sends(TESSEL_CMD_IP_FILTER, TESSEL_CMD_MAC_FILTER, TESSEL_CMD_IP_AND_MAC_FILTER),
    Row("enable", "LIST=whitelist|blacklist", &Enable, "let packets pass through a list; empties the other one",
        "firewall enable blacklist -4")
        .Sends(TESSEL_CMD_FILTER_ENABLE)
        .OfFamily()
        .More("The whitelist lets in its entries and loopback alone, not even answers to the device's own "
              "connections or IPv6 neighbour discovery: what is missing is listed before."),
    Row("disable", "LIST=whitelist|blacklist", &Disable, "unhook a list, and empty it; asks before",
        "firewall disable blacklist -4")
        .Sends(TESSEL_CMD_FILTER_DISABLE)
        .OfFamily(),
    Row("icmp", "ECHO=allow|drop", &SwitchEchoes, "what becomes of echo requests; needs the chain icmppacket",
        "firewall icmp allow -4")
        .Sends(TESSEL_CMD_ICMP_FILTER)
        .OfFamily(),
    Row("port", "CHANGE=add|del [PROTOCOL=tcp|udp] KIND=sport|dport PORTS DIRECTION=in|out ACTION=accept|drop",
        &ChangePort, "add or delete rules by port, of tcp and udp unless one is named",
        "firewall port add tcp dport 80,443 in drop -4")
        .Sends(TESSEL_CMD_PORT_FILTER)
        .OfFamily()
        .More("Appended behind the jump to a list: \"accept\" opens no port that the whitelist closes."),
    Row("export", "FILE", &FirewallExport, "write the rules of every table to a file; - is standard output",
        "firewall export /tmp/rules")
        .OfFamily()
        .More("Done here, by the tools of the device. The file is there whole or not at all."),
    Row("import", "FILE", &FirewallImport, "replace the rules by those of a file; asks before",
        "firewall import /tmp/rules")
        .OfFamily()
        .More("Takes what \"firewall export\" wrote and, with -4 or -6, what a save tool printed. Checked before "
              "anything is changed; put back when a tool fails. Tables that the file does not have stay."),
    Row("save", "PATH", &FirewallSave, "have the daemon save the rules, which fails: use export",
        "firewall save /tmp/rules")
        .Sends(TESSEL_CMD_FIREWALL_SAVE)
        .OfFamily()
        .Hidden()
        .More("The daemon hands \"> PATH-4\" to iptables-save as two words, which it refuses: -1, and no file."),
    Row("restore", "PATH", &FirewallRestore, "have the daemon restore the rules, which fails: use import",
        "firewall restore /tmp/rules")
        .Sends(TESSEL_CMD_FIREWALL_RESTORE)
        .OfFamily()
        .Hidden()
        .More("\"<\" reaches the tool as a word, as with \"firewall save\"."),
};

}  // namespace

extern const Object kFirewall = {
    .name = "firewall", .summary = "the packet filter: lists, echo requests, ports", .commands = kFirewallCommands};

}  // namespace tessel::ctl
