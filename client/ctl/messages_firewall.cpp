#include <algorithm>
#include <cstring>

#include "client/ctl/addresses.h"
#include "client/ctl/firewall_rules.h"
#include "client/ctl/messages.h"
#include "client/ctl/next_hop.h"
#include "client/ctl/optional_json.h"
#include "client/ctl/record_text.h"
#include "tessel/command.h"
#include "tessel/firewall.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

std::string ProtocolsName(u32 protocols) {
    switch (protocols) {
        case TESSEL_PROTOCOL_IPV4:
            return "inet";
        case TESSEL_PROTOCOL_IPV6:
            return "inet6";
        default:
            return "both";
    }
}

// From types that count list by list through the families: IPv4, IPv6, both.
std::string FamilyOfType(u32 type) {
    return ProtocolsName((type + 1) / 2);
}

template <typename Head>
std::string TextBehind(std::span<const u8> bytes) {
    if (bytes.size() <= sizeof(Head)) return "";
    const auto text = bytes.subspan(sizeof(Head));
    return std::string(text.begin(), std::find(text.begin(), text.end(), u8{0}));
}

ordered_json DescribeOperation(u32 operation) {
    const bool isWhite = operation <= TESSEL_LIST_WHITE_DEL;
    return {{"list", isWhite ? kWhitelist : kBlacklist},
            {"change", operation % 2 == 1 ? "add" : "del"},
            {"target", isWhite ? "RETURN" : "DROP"}};
}

ordered_json DescribeIpFilter(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetIpFilterReq>(bytes);
    const TNetIpFilter& filter = request.tFilter;
    TNetGateway end = filter.tEnd;
    end.wSinFamily = filter.tStart.wSinFamily;
    const std::string last = HostText(end);
    AddressBytes start;
    memcpy(start.data(), filter.tStart.abyAddr, start.size());
    ordered_json description = DescribeOperation(request.eCmd);
    description["family"] = FamilyName(filter.tStart.wSinFamily);
    const std::string everything = filter.tStart.wSinFamily == TESSEL_FAMILY_INET ? "0.0.0.0/0" : "::/0";
    const std::string source = SourceText(filter.tStart.wSinFamily, start, filter.dwPrefixLen);
    description["source"] = last.empty() ? ordered_json(source.empty() ? everything : source) : ordered_json();
    description["range"] = last.empty() ? ordered_json() : ordered_json(HostText(filter.tStart) + "-" + last);
    return description;
}

ordered_json DescribeMacFilter(std::span<const u8> bytes) {
    ordered_json description = DescribeOperation(ReadRecord<TNetMacFilterReq>(bytes).eCmd);
    description["mac"] = TextBehind<TNetMacFilterReq>(bytes);
    return description;
}

ordered_json DescribeIpMacFilter(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetIpMacFilterReq>(bytes);
    const std::string address = TextBehind<TNetIpMacFilterReq>(bytes);
    ordered_json description = DescribeOperation(request.eCmd);
    description["family"] = address.find(':') == std::string::npos ? "inet" : "inet6";
    description["mac"] = TextOf(request.achMac);
    description["address"] = address;
    return description;
}

ordered_json DescribeSwitch(std::span<const u8> bytes) {
    const u32 type = ReadRecord<TNetFilterSwitchReq>(bytes).eType;
    return {{"list", type % 2 == 1 ? kWhitelist : kBlacklist}, {"family", FamilyOfType(type)}};
}

ordered_json DescribeChain(std::span<const u8> bytes) {
    return {{"chain", TextBehind<TNetChainAddReq>(bytes)},
            {"family", ProtocolsName(ReadRecord<TNetChainAddReq>(bytes).wIpType)}};
}

ordered_json DescribeIcmp(std::span<const u8> bytes) {
    const u32 type = ReadRecord<TNetIcmpFilterReq>(bytes).eType;
    return {{"echo", type % 2 == 1 ? "allow" : "drop"}, {"family", FamilyOfType(type)}};
}

ordered_json DescribePort(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetPortFilterReq>(bytes);
    const TNetPortFilter& filter = request.tFilter;
    const bool isOneProtocol = filter.eProtocol == TESSEL_PORT_TCP || filter.eProtocol == TESSEL_PORT_UDP;
    return {{"change", request.eCmd == TESSEL_PORT_ADD ? "add" : "del"},
            {"protocol",
             isOneProtocol ? ordered_json(filter.eProtocol == TESSEL_PORT_TCP ? "tcp" : "udp") : ordered_json()},
            {"kind", filter.ePortType == TESSEL_PORT_SOURCE ? "sport" : "dport"},
            {"ports", TextOf(filter.achPorts)},
            {"direction", filter.eAction <= TESSEL_PORT_DROP_IN ? "in" : "out"},
            {"action", filter.eAction % 2 == 1 ? "accept" : "drop"},
            {"family", ProtocolsName(filter.eInet)}};
}

ordered_json DescribeFile(std::span<const u8> bytes) {
    return {{"path", TextBehind<TNetFirewallFileReq>(bytes)},
            {"family", ProtocolsName(ReadRecord<TNetFirewallFileReq>(bytes).eIpType)}};
}

ordered_json DescribeArp(std::span<const u8> bytes) {
    const auto request = ReadRecord<ArpEntryInfo>(bytes);
    return {{"address", TextOf(request.achIp)},
            {"mac", NullIfEmpty(TextOf(request.achMac))},
            {"interface", NullIfEmpty(TextOf(request.achDevName))}};
}

// Lists, ICMP and ports depend on which rules are there already: no fixed lines.
constexpr Message kMessages[] = {
    {TESSEL_CMD_IP_FILTER,
     "ip_filter",
     TESSEL_RECORD(TNetIpFilterReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeIpFilter,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_MAC_FILTER,
     "mac_filter",
     TESSEL_RECORD(TNetMacFilterReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeMacFilter,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_IP_AND_MAC_FILTER,
     "ip_mac_filter",
     TESSEL_RECORD(TNetIpMacFilterReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeIpMacFilter,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_FILTER_ENABLE,
     "filter_enable",
     TESSEL_RECORD(TNetFilterSwitchReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeSwitch,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_FILTER_DISABLE,
     "filter_disable",
     TESSEL_RECORD(TNetFilterSwitchReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeSwitch,
     &DescribeStatus,
     {{{"inet", "iptables -D INPUT -j {list}"},
       {"inet", "iptables -t filter -F {list}"},
       {"inet6", "ip6tables -D INPUT -j {list}"},
       {"inet6", "ip6tables -t filter -F {list}"}}}},
    {TESSEL_CMD_CHAIN_ADD,
     "chain_add",
     TESSEL_RECORD(TNetChainAddReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeChain,
     &DescribeStatus,
     {{{"inet", "iptables -t filter -N {chain}"}, {"inet6", "ip6tables -t filter -N {chain}"}}}},
    {TESSEL_CMD_ICMP_FILTER,
     "icmp_filter",
     TESSEL_RECORD(TNetIcmpFilterReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeIcmp,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_PORT_FILTER,
     "port_filter",
     TESSEL_RECORD(TNetPortFilterReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribePort,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_FIREWALL_SAVE,
     "firewall_save",
     TESSEL_RECORD(TNetFirewallFileReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeFile,
     &DescribeStatus,
     {{{"inet", "iptables-save > {path}-4"}, {"inet6", "ip6tables-save > {path}-6"}}}},
    {TESSEL_CMD_FIREWALL_RESTORE,
     "firewall_restore",
     TESSEL_RECORD(TNetFirewallFileReq),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeFile,
     &DescribeStatus,
     {{{"inet", "iptables-restore < {path}-4"}, {"inet6", "ip6tables-restore < {path}-6"}}}},
    {TESSEL_CMD_ARP_ADD,
     "arp_add",
     TESSEL_RECORD(ArpEntryInfo),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeArp,
     &DescribeStatus,
     {{{"", "arp -s -i {interface} {address} {mac}"}, {"", "arp -s {address} {mac}", "interface"}}}},
    {TESSEL_CMD_ARP_DEL,
     "arp_del",
     TESSEL_RECORD(ArpEntryInfo),
     TESSEL_RECORD(TNetStatusReply),
     &DescribeArp,
     &DescribeStatus,
     {{{"", "arp -d {address}[ -i {interface}]"}}}},
};

}  // namespace

std::span<const Message> FirewallMessages() {
    return kMessages;
}

}  // namespace tessel::ctl
