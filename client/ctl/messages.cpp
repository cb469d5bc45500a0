// The table of requests, and the command that sends any of them by its bytes.
#include "client/ctl/fields.h"
#include "client/ctl/files.h"
#include "client/ctl/records.h"

// Declared one by one: they have no header, because the command table is their only other user.
tessel::ctl::Handler ApidIpaddrAdd, ApidIpaddrDel, ApidIpaddrFlush, ApidIpaddrSet, ApidIpaddrGet,
    apid_ipaddr_show_filter, ApidMacaddrSet, ApidMacaddrGet;
tessel::ctl::Handler ApidGatewaySet, ApidGatewayDel, ApidGatewayGet, ApidPrioritySet, ApidOneRouteAdd, ApidOneRouteDel,
    ApidAllRouteGet, ApidRouteMetricSet, ApidRouteTableAdd, ApidRouteTableDel, ApidIpRuleAdd, ApidIpRuleDel;
tessel::ctl::Handler ApidIpFilterListManage, ApidMacFilterListManage, ApidIpAndMacFilterListManage, ApidFilterEnable,
    ApidFilterDisable, ApidAddChain, ApidIcmpManage, ApidPortFilterManage, ApidFirewallSave, ApidFirewallRestore,
    ApidAddArp, ApidDelArp;
tessel::ctl::Handler ApidServiceStop, ApidDhcpsStopAll, ApidPppoeStop, ApidBondStart, apid_webs_start, apid_webs_stop;

namespace tessel::ctl {

using namespace records;

Handler PlanDhcpcStart, PlanDhcpcStartEx, PlanDhcpcStop, PlanDhcpsStart, PlanDhcpsStop, PlanPppoeStart, PlanBondStop,
    PlanPingStart, PlanRouterAdvertiseStart;

namespace {

constexpr char kClient[] = "asks a running client to renew its lease";

constexpr Message kMessages[] = {
    // Addresses and interfaces
    {TESSEL_CMD_IPADDR_ADD, "addr_add", kAddrChange, kStatus, &ApidIpaddrAdd},
    {TESSEL_CMD_IPADDR_DEL, "addr_del", kAddrChange, kStatus, &ApidIpaddrDel},
    {TESSEL_CMD_IPADDR_FLUSH, "addr_flush", kAddrFlush, kStatus, &ApidIpaddrFlush},
    {TESSEL_CMD_IPADDR_SET, "addr_set", kAddrSet, kStatus, &ApidIpaddrSet},
    {TESSEL_CMD_IPADDR_GET, "addr_get", kAddrGet, kAddrList, &ApidIpaddrGet},
    {TESSEL_CMD_IPADDR_SHOW, "addr_show", kAddrShow, kAddrInfo, &apid_ipaddr_show_filter},
    {TESSEL_CMD_MACADDR_SET, "mac_set", kMacSet, kStatus, &ApidMacaddrSet},
    {TESSEL_CMD_MACADDR_GET, "mac_get", kMacGet, kMac, &ApidMacaddrGet},
    {TESSEL_CMD_MTU_SET, "mtu_set", kMtuSet, kStatus, nullptr, "sets the MTU by ioctl, without a tool"},
    {TESSEL_CMD_MTU_GET, "mtu_get", kMtuGet, kMtu, nullptr, "reads the MTU by ioctl, without a tool"},
    // Routing
    {TESSEL_CMD_GATEWAY_SET, "gateway_set", kGatewaySet, kStatus, &ApidGatewaySet},
    {TESSEL_CMD_GATEWAY_DEL, "gateway_del", kGatewayGet, kStatus, &ApidGatewayDel},
    {TESSEL_CMD_GATEWAY_GET, "gateway_get", kGatewayGet, kGateway, &ApidGatewayGet},
    {TESSEL_CMD_PRIORITY_SET, "priority_set", kPriorities, kStatus, &ApidPrioritySet},
    {TESSEL_CMD_PRIORITY_GET, "priority_get", kNothing, kPriorities, nullptr, "reads its own table"},
    {TESSEL_CMD_ROUTE_ADD, "route_add", kRouteChange, kStatus, &ApidOneRouteAdd},
    {TESSEL_CMD_ROUTE_DEL, "route_del", kRouteChange, kStatus, &ApidOneRouteDel},
    {TESSEL_CMD_ROUTE_GET_ALL, "route_get_all", kRouteGetAll, kRoutes, &ApidAllRouteGet},
    {TESSEL_CMD_ROUTE_METRIC_SET, "route_metric_set", kRoute, kStatus, &ApidRouteMetricSet},
    {TESSEL_CMD_ROUTE_TABLE_ADD, "route_table_add", kTable, kStatus, &ApidRouteTableAdd},
    {TESSEL_CMD_ROUTE_TABLE_DEL, "route_table_del", kTable, kStatus, &ApidRouteTableDel},
    {TESSEL_CMD_RULE_ADD, "rule_add", kRule, kStatus, &ApidIpRuleAdd},
    {TESSEL_CMD_RULE_DEL, "rule_del", kRule, kStatus, &ApidIpRuleDel},
    // Firewall
    {TESSEL_CMD_IP_FILTER, "ip_filter", kIpFilter, kStatus, &ApidIpFilterListManage},
    {TESSEL_CMD_MAC_FILTER, "mac_filter", kMacFilter, kStatus, &ApidMacFilterListManage},
    {TESSEL_CMD_IP_AND_MAC_FILTER, "ip_mac_filter", kIpMacFilter, kStatus, &ApidIpAndMacFilterListManage},
    {TESSEL_CMD_FILTER_ENABLE, "filter_enable", kSwitch, kStatus, &ApidFilterEnable},
    {TESSEL_CMD_FILTER_DISABLE, "filter_disable", kSwitch, kStatus, &ApidFilterDisable},
    {TESSEL_CMD_CHAIN_ADD, "chain_add", kChainAdd, kStatus, &ApidAddChain},
    {TESSEL_CMD_ICMP_FILTER, "icmp_filter", kIcmp, kStatus, &ApidIcmpManage},
    {TESSEL_CMD_PORT_FILTER, "port_filter", kPort, kStatus, &ApidPortFilterManage},
    {TESSEL_CMD_FIREWALL_SAVE, "firewall_save", kRuleFile, kStatus, &ApidFirewallSave},
    {TESSEL_CMD_FIREWALL_RESTORE, "firewall_restore", kRuleFile, kStatus, &ApidFirewallRestore},
    {TESSEL_CMD_ARP_ADD, "arp_add", kArp, kStatus, &ApidAddArp},
    {TESSEL_CMD_ARP_DEL, "arp_del", kArp, kStatus, &ApidDelArp},
    // Services
    {TESSEL_CMD_SERVICE_STOP, "service_stop", kService, kStatus, &ApidServiceStop},
    {TESSEL_CMD_CONFLICT_START, "conflict_start", kConflict, kStatus, nullptr, "switches reports on"},
    {TESSEL_CMD_CONFLICT_STOP, "conflict_stop", kConflict, kStatus, nullptr, "switches reports off"},
    {TESSEL_CMD_DHCPC_START, "dhcpc_start", kDhcpcStart, kStatus, &PlanDhcpcStart, kClient},
    {TESSEL_CMD_DHCPC_START_EX, "dhcpc_start_ex", kDhcpcStartEx, kStatus, &PlanDhcpcStartEx, kClient},
    {TESSEL_CMD_DHCPC_STOP, "dhcpc_stop", kDhcpc, kStatus, &PlanDhcpcStop},
    {TESSEL_CMD_DHCPC_RENEW, "dhcpc_renew", kDhcpc, kStatus, nullptr, "does nothing"},
    {TESSEL_CMD_DHCPS_START, "dhcps_start", kDhcpsStart, kStatus, &PlanDhcpsStart, "writes its configuration first"},
    {TESSEL_CMD_DHCPS_STOP, "dhcps_stop", kDhcps, kStatus, &PlanDhcpsStop, "removes the files of its server"},
    {TESSEL_CMD_DHCPS_GET_STATUS, "dhcps_get_status", kDhcps, kStatus, nullptr, "looks at its own list"},
    {TESSEL_CMD_DHCPS_STOP_ALL, "dhcps_stop_all", kNothing, kStatus, &ApidDhcpsStopAll},
    {TESSEL_CMD_NTPC_START, "ntpc_start", kNtpcStart, kStatus, nullptr, "starts to keep the clock"},
    {TESSEL_CMD_NTPC_STOP, "ntpc_stop", kNtpcStop, kStatus, nullptr, "leaves the clock alone"},
    {TESSEL_CMD_NTPC_CHECK, "ntpc_check", kNtpcCheck, kStatus, nullptr, "asks the server once"},
    {TESSEL_CMD_PPPOE_START, "pppoe_start", kPppoeStart, kStatus, &PlanPppoeStart},
    {TESSEL_CMD_PPPOE_STOP, "pppoe_stop", kPppoeStop, kStatus, &ApidPppoeStop},
    {TESSEL_CMD_WEBS_START, "webs_start", kWebsStart, kStatus, &apid_webs_start},
    {TESSEL_CMD_WEBS_STOP, "webs_stop", kNothing, kStatus, &apid_webs_stop},
    {TESSEL_CMD_BOND_START, "bond_start", kBondStart, kStatus, &ApidBondStart},
    {TESSEL_CMD_BOND_STOP, "bond_stop", kNothing, kStatus, &PlanBondStop, "undoes what it has made itself"},
    {TESSEL_CMD_PING_START, "ping_start", kPingStart, kStatus, &PlanPingStart, "runs this for each echo"},
    {TESSEL_CMD_PING_STOP, "ping_stop", kPingStop, kStatus, nullptr, "ends pinging"},
    {TESSEL_CMD_TRACEROUTE_START, "traceroute_start", kTraceStart, kStatus, nullptr, "starts a trace"},
    {TESSEL_CMD_TRACEROUTE_STOP, "traceroute_stop", kTraceStop, kStatus, nullptr, "ends the trace"},
    {TESSEL_CMD_ROUTER_ADVERTISE_START, "router_advertise_start", kRouterStart, kStatus, &PlanRouterAdvertiseStart,
     "solicits routers, and looks again every 2 s"},
    {TESSEL_CMD_ROUTER_ADVERTISE_STOP, "router_advertise_stop", kRouterStop, kStatus, nullptr, "ends the watch"},
    {TESSEL_CMD_BROADCAST_ARP_START, "broadcast_arp_start", kAnnounce, kStatus, nullptr, "starts the announcer"},
    {TESSEL_CMD_BROADCAST_ARP_STOP, "broadcast_arp_stop", kNothing, kStatus, nullptr, "ends the announcer"},
    {TESSEL_CMD_LOG_FILE, "log_file", kLogFile, kStatus, nullptr, "opens or closes log files"},
    {TESSEL_CMD_LOG_LEVEL, "log_level", kLogLevel, kStatus, nullptr, "changes what it logs"},
    {TESSEL_CMD_STAT_START, "stat_start", kStatStart, kStatus, nullptr, "starts to count"},
    {TESSEL_CMD_STAT_STOP, "stat_stop", kNothing, kStatus, nullptr, "ends counting"},
};

std::vector<u8> DataOf(const std::string& asked, const std::string& word) {
    std::vector<u8> bytes;
    if (word == "-" || word.starts_with('@')) {
        const std::string text = ReadWholeFile(asked, word == "-" ? word : word.substr(1));
        return {text.begin(), text.end()};
    }
    for (std::size_t i = 0; i < word.size(); i += 2) {
        const std::string pair = word.substr(i, 2);
        const auto byte = ParseNumber("0x" + pair);
        if (pair.size() != 2 || !byte) throw Refused(asked, "the data must be pairs of hexadecimal digits, @FILE or -");
        bytes.push_back(static_cast<u8>(*byte));
    }
    return bytes;
}

Outcome Send(const Invocation& invocation) {
    const u32 code = invocation.words.Get<u32>("CODE");
    const Message* const message = FindMessage(code);
    const auto request = DataOf(invocation.asked, invocation.words.Text("DATA"));
    if (request.size() > TESSEL_PAYLOAD_MAX)
        throw Refused(invocation.asked, Format("{} bytes are more than {}", request.size(), +TESSEL_PAYLOAD_MAX));
    const auto& wanted = invocation.options.replyBytes;
    if (!wanted && message == nullptr)
        throw Refused(invocation.asked, "how long is the reply? (--reply N; 0 waits for none)");
    std::vector<u8> reply(wanted ? static_cast<std::size_t>(*wanted) : message->reply.bytes);
    Require(invocation.asked, tessel_raw(code, request.empty() ? nullptr : request.data(), request.size(),
                                         reply.empty() ? nullptr : reply.data(), reply.size()));
    std::string hex;
    for (const u8 byte : reply)
        hex += Format("{:02x}", byte);
    const Json decoded = message == nullptr ? Json() : Decode(message->reply, reply);
    Outcome outcome{.document = {{"code", Format("0x{:X}", code)},
                                 {"name", message == nullptr ? Json() : Json(message->name)},
                                 {"size", reply.size()},
                                 {"reply", hex},
                                 {"decoded", decoded}},
                    .text = hex + "\n"};
    if (message != nullptr) outcome.notes = {DescriptionText(decoded)};
    return outcome;
}

constexpr Command kRawCommands[] = {
    Row("", "CODE [DATA]", &Send, "send any request, show the reply", "raw mtu_get 65746830000000000000000000000000")
        .More("CODE: a number or a name (help protocol). DATA: hex digits, @FILE or -. A number may need --reply."),
};

}  // namespace

std::span<const Message> Messages() {
    return kMessages;
}

const Message* FindMessage(u32 code) {
    const auto* const found = std::ranges::find(kMessages, code, &Message::code);
    return found == std::end(kMessages) ? nullptr : found;
}

const Message* FindMessage(std::string_view name) {
    const auto* const found = std::ranges::find(kMessages, name, &Message::name);
    return found == std::end(kMessages) ? nullptr : found;
}

extern const Object kRaw = {.name = "raw", .summary = "any request, byte for byte", .commands = kRawCommands};

}  // namespace tessel::ctl
