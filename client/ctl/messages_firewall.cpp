#include <array>
#include <string_view>

#include "client/ctl/messages.h"
#include "client/ctl/next_hop.h"
#include "client/ctl/optional_json.h"
#include "client/ctl/record_text.h"
#include "tessel/command.h"
#include "tessel/firewall.h"

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

constexpr std::array<std::string_view, 5> kListOperations = {"", "add to white list", "delete from white list",
                                                             "add to black list", "delete from black list"};
constexpr std::array<std::string_view, 7> kLists = {
    "", "white inet", "black inet", "white inet6", "black inet6", "white both", "black both"};
constexpr std::array<std::string_view, 7> kEchoes = {"",           "allow inet", "drop inet", "allow inet6",
                                                     "drop inet6", "allow both", "drop both"};
constexpr std::array<std::string_view, 4> kProtocols = {"", "inet", "inet6", "both"};
constexpr std::array<std::string_view, 3> kPortOperations = {"", "add", "delete"};
constexpr std::array<std::string_view, 3> kPortKinds = {"", "source", "destination"};
constexpr std::array<std::string_view, 5> kPortActions = {"", "accept in", "drop in", "accept out", "drop out"};

// The word for a code; the number for one that has none.
template <std::size_t kWords>
ordered_json WordFor(const std::array<std::string_view, kWords>& words, u32 code) {
    if (code == 0 || code >= kWords) return code;
    return words[code];
}

// The text behind a record, up to a NUL.
std::string TextBehind(std::span<const u8> bytes, std::size_t recordBytes) {
    if (bytes.size() <= recordBytes) return "";
    const auto text = bytes.subspan(recordBytes);
    return {text.begin(), std::find(text.begin(), text.end(), u8{0})};
}

ordered_json DescribeIpFilter(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetIpFilterReq>(bytes);
    TNetGateway end = request.tFilter.tEnd;
    end.wSinFamily = request.tFilter.tStart.wSinFamily;
    return {{"operation", WordFor(kListOperations, request.eCmd)},
            {"start", HostText(request.tFilter.tStart)},
            {"prefix_length", request.tFilter.dwPrefixLen},
            {"end", NullIfEmpty(HostText(end))}};
}

ordered_json DescribeMacFilter(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetMacFilterReq>(bytes);
    return {{"operation", WordFor(kListOperations, request.eCmd)}, {"mac", TextBehind(bytes, sizeof(request))}};
}

ordered_json DescribeIpMacFilter(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetIpMacFilterReq>(bytes);
    return {{"operation", WordFor(kListOperations, request.eCmd)},
            {"mac", TextOf(request.achMac)},
            {"address", TextBehind(bytes, sizeof(request))}};
}

ordered_json DescribeFilterSwitch(std::span<const u8> bytes) {
    return {{"list", WordFor(kLists, ReadRecord<TNetFilterSwitchReq>(bytes).eType)}};
}

ordered_json DescribeChain(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetChainAddReq>(bytes);
    return {{"family", WordFor(kProtocols, request.wIpType)}, {"chain", TextBehind(bytes, sizeof(request))}};
}

ordered_json DescribeEcho(std::span<const u8> bytes) {
    return {{"echo_requests", WordFor(kEchoes, ReadRecord<TNetIcmpFilterReq>(bytes).eType)}};
}

ordered_json DescribePorts(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetPortFilterReq>(bytes);
    const TNetPortFilter& filter = request.tFilter;
    constexpr std::array<std::string_view, 3> kTransports = {"", "tcp", "udp"};
    const bool isOne = filter.eProtocol == TESSEL_PORT_TCP || filter.eProtocol == TESSEL_PORT_UDP;
    return {{"operation", WordFor(kPortOperations, request.eCmd)},
            {"family", WordFor(kProtocols, filter.eInet)},
            {"protocol", isOne ? kTransports[filter.eProtocol] : std::string_view("tcp and udp")},
            {"side", WordFor(kPortKinds, filter.ePortType)},
            {"action", WordFor(kPortActions, filter.eAction)},
            {"ports", TextOf(filter.achPorts)}};
}

ordered_json DescribeFile(std::span<const u8> bytes) {
    const auto request = ReadRecord<TNetFirewallFileReq>(bytes);
    return {{"family", WordFor(kProtocols, request.eIpType)}, {"path", TextBehind(bytes, sizeof(request))}};
}

ordered_json DescribeArp(std::span<const u8> bytes) {
    const auto request = ReadRecord<ArpEntryInfo>(bytes);
    return {{"interface", NullIfEmpty(TextOf(request.achDevName))},
            {"address", TextOf(request.achIp)},
            {"mac", NullIfEmpty(TextOf(request.achMac))}};
}

#define TESSEL_STATUS_REPLY TESSEL_RECORD(TNetStatusReply)

// What the daemon runs depends on the rules that are there already; it is told for the ARP entries alone.
constexpr Message kMessages[] = {
    {TESSEL_CMD_IP_FILTER,
     "ip_filter",
     TESSEL_RECORD(TNetIpFilterReq),
     TESSEL_STATUS_REPLY,
     &DescribeIpFilter,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_MAC_FILTER,
     "mac_filter",
     TESSEL_RECORD(TNetMacFilterReq),
     TESSEL_STATUS_REPLY,
     &DescribeMacFilter,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_IP_AND_MAC_FILTER,
     "ip_and_mac_filter",
     TESSEL_RECORD(TNetIpMacFilterReq),
     TESSEL_STATUS_REPLY,
     &DescribeIpMacFilter,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_FILTER_ENABLE,
     "filter_enable",
     TESSEL_RECORD(TNetFilterSwitchReq),
     TESSEL_STATUS_REPLY,
     &DescribeFilterSwitch,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_FILTER_DISABLE,
     "filter_disable",
     TESSEL_RECORD(TNetFilterSwitchReq),
     TESSEL_STATUS_REPLY,
     &DescribeFilterSwitch,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_CHAIN_ADD,
     "chain_add",
     TESSEL_RECORD(TNetChainAddReq),
     TESSEL_STATUS_REPLY,
     &DescribeChain,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_ICMP_FILTER,
     "icmp_filter",
     TESSEL_RECORD(TNetIcmpFilterReq),
     TESSEL_STATUS_REPLY,
     &DescribeEcho,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_PORT_FILTER,
     "port_filter",
     TESSEL_RECORD(TNetPortFilterReq),
     TESSEL_STATUS_REPLY,
     &DescribePorts,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_FIREWALL_SAVE,
     "firewall_save",
     TESSEL_RECORD(TNetFirewallFileReq),
     TESSEL_STATUS_REPLY,
     &DescribeFile,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_FIREWALL_RESTORE,
     "firewall_restore",
     TESSEL_RECORD(TNetFirewallFileReq),
     TESSEL_STATUS_REPLY,
     &DescribeFile,
     &DescribeStatus,
     {}},
    {TESSEL_CMD_ARP_ADD,
     "arp_add",
     TESSEL_RECORD(ArpEntryInfo),
     TESSEL_STATUS_REPLY,
     &DescribeArp,
     &DescribeStatus,
     {{{"", "arp -s[ -i {interface}] {address} {mac}"}}}},
    {TESSEL_CMD_ARP_DEL,
     "arp_del",
     TESSEL_RECORD(ArpEntryInfo),
     TESSEL_STATUS_REPLY,
     &DescribeArp,
     &DescribeStatus,
     {{{"", "arp -d {address}[ -i {interface}]"}}}},
};

}  // namespace

std::span<const Message> FirewallMessages() {
    return kMessages;
}

}  // namespace tessel::ctl
