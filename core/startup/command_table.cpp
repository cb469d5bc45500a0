#include "core/startup/command_table.h"

#include <algorithm>
#include <array>

#include "tessel/command.h"

// Addressing and routing
ApiHandler ApidIpaddrAdd;
ApiHandler ApidIpaddrDel;
ApiHandler ApidIpaddrFlush;
ApiHandler ApidIpaddrSet;
ApiHandler ApidIpaddrGet;
ApiHandler apid_ipaddr_show_filter;
ApiHandler ApidGatewaySet;
ApiHandler ApidGatewayDel;
ApiHandler ApidGatewayGet;
ApiHandler ApidPrioritySet;
ApiHandler ApidPriorityGet;
ApiHandler ApidMacaddrSet;
ApiHandler ApidMacaddrGet;
ApiHandler ApidMtuSet;
ApiHandler ApidMtuGet;
ApiHandler ApidOneRouteAdd;
ApiHandler ApidOneRouteDel;
ApiHandler ApidAllRouteGet;
ApiHandler ApidRouteMetricSet;
ApiHandler ApidRouteTableAdd;
ApiHandler ApidRouteTableDel;
ApiHandler ApidIpRuleAdd;
ApiHandler ApidIpRuleDel;
ApiHandler ApidServiceStop;

// Address conflict detection
ApiHandler ApidConflictCheckStart;
ApiHandler ApidConflictCheckStop;

// DHCP client
ApiHandler ApidDhcpcStart;
ApiHandler ApidDhcpcStartEx;
ApiHandler ApidDhcpcStop;
ApiHandler ApidDhcpcRenew;

// DHCP server
ApiHandler ApidDhcpsStart;
ApiHandler ApidDhcpsStop;
ApiHandler ApidDhcpsGetStatus;
ApiHandler ApidDhcpsStopAll;

// NTP client
ApiHandler ApidNtpcStart;
ApiHandler ApidNtpcStop;
ApiHandler ApidNtpcCheck;

// PPPoE client
ApiHandler ApidPppoeStart;
ApiHandler ApidPppoeStop;

// Web server
ApiHandler apid_webs_start;
ApiHandler apid_webs_stop;

// Ping
ApiHandler ApidPingStart;
ApiHandler ApidPingStop;

// Traceroute
ApiHandler ApidTracerouteStart;
ApiHandler ApidTracerouteStop;

// Router solicitation
ApiHandler ApidRouterAdvertiseStart;
ApiHandler ApidRouterAdvertiseStop;

// Bonding
ApiHandler ApidBondStart;
ApiHandler ApidBondStop;

// Firewall
ApiHandler ApidIpFilterListManage;
ApiHandler ApidMacFilterListManage;
ApiHandler ApidIpAndMacFilterListManage;
ApiHandler ApidFilterEnable;
ApiHandler ApidFilterDisable;
ApiHandler ApidAddChain;
ApiHandler ApidIcmpManage;
ApiHandler ApidPortFilterManage;
ApiHandler ApidFirewallSave;
ApiHandler ApidFirewallRestore;
ApiHandler ApidAddArp;
ApiHandler ApidDelArp;

// Broadcast ARP
ApiHandler ApidBroadcastArpStart;
ApiHandler ApidBroadcastArpStop;

// Logs and statistics
ApiHandler ApidLogFileManage;
ApiHandler ApidLogSwitch;
ApiHandler ApidStatStart;
ApiHandler ApidStatStop;

namespace {

using tessel::CommandRow;

constexpr auto kCommands = std::to_array<CommandRow>({
    // Addressing and routing
    {TESSEL_CMD_IPADDR_ADD, &ApidIpaddrAdd},
    {TESSEL_CMD_IPADDR_DEL, &ApidIpaddrDel},
    {TESSEL_CMD_IPADDR_FLUSH, &ApidIpaddrFlush},
    {TESSEL_CMD_IPADDR_SET, &ApidIpaddrSet},
    {TESSEL_CMD_IPADDR_GET, &ApidIpaddrGet},
    {TESSEL_CMD_IPADDR_SHOW, &apid_ipaddr_show_filter},
    {TESSEL_CMD_GATEWAY_SET, &ApidGatewaySet},
    {TESSEL_CMD_GATEWAY_DEL, &ApidGatewayDel},
    {TESSEL_CMD_GATEWAY_GET, &ApidGatewayGet},
    {TESSEL_CMD_PRIORITY_SET, &ApidPrioritySet},
    {TESSEL_CMD_PRIORITY_GET, &ApidPriorityGet},
    {TESSEL_CMD_MACADDR_SET, &ApidMacaddrSet},
    {TESSEL_CMD_MACADDR_GET, &ApidMacaddrGet},
    {TESSEL_CMD_MTU_SET, &ApidMtuSet},
    {TESSEL_CMD_MTU_GET, &ApidMtuGet},
    {TESSEL_CMD_ROUTE_ADD, &ApidOneRouteAdd},
    {TESSEL_CMD_ROUTE_DEL, &ApidOneRouteDel},
    {TESSEL_CMD_ROUTE_GET_ALL, &ApidAllRouteGet},
    {TESSEL_CMD_ROUTE_METRIC_SET, &ApidRouteMetricSet},
    {TESSEL_CMD_ROUTE_TABLE_ADD, &ApidRouteTableAdd},
    {TESSEL_CMD_ROUTE_TABLE_DEL, &ApidRouteTableDel},
    {TESSEL_CMD_RULE_ADD, &ApidIpRuleAdd},
    {TESSEL_CMD_RULE_DEL, &ApidIpRuleDel},
    {TESSEL_CMD_SERVICE_STOP, &ApidServiceStop},
    // Address conflict detection
    {TESSEL_CMD_CONFLICT_START, &ApidConflictCheckStart},
    {TESSEL_CMD_CONFLICT_STOP, &ApidConflictCheckStop},
    // DHCP client
    {TESSEL_CMD_DHCPC_START, &ApidDhcpcStart},
    {TESSEL_CMD_DHCPC_START_EX, &ApidDhcpcStartEx},
    {TESSEL_CMD_DHCPC_STOP, &ApidDhcpcStop},
    {TESSEL_CMD_DHCPC_RENEW, &ApidDhcpcRenew},
    // DHCP server
    {TESSEL_CMD_DHCPS_START, &ApidDhcpsStart},
    {TESSEL_CMD_DHCPS_STOP, &ApidDhcpsStop},
    {TESSEL_CMD_DHCPS_GET_STATUS, &ApidDhcpsGetStatus},
    {TESSEL_CMD_DHCPS_STOP_ALL, &ApidDhcpsStopAll},
    // NTP client
    {TESSEL_CMD_NTPC_START, &ApidNtpcStart},
    {TESSEL_CMD_NTPC_STOP, &ApidNtpcStop},
    {TESSEL_CMD_NTPC_CHECK, &ApidNtpcCheck},
    // PPPoE client
    {TESSEL_CMD_PPPOE_START, &ApidPppoeStart},
    {TESSEL_CMD_PPPOE_STOP, &ApidPppoeStop},
    // Web server
    {TESSEL_CMD_WEBS_START, &apid_webs_start},
    {TESSEL_CMD_WEBS_STOP, &apid_webs_stop},
    // Ping
    {TESSEL_CMD_PING_START, &ApidPingStart},
    {TESSEL_CMD_PING_STOP, &ApidPingStop},
    // Traceroute
    {TESSEL_CMD_TRACEROUTE_START, &ApidTracerouteStart},
    {TESSEL_CMD_TRACEROUTE_STOP, &ApidTracerouteStop},
    // Router solicitation
    {TESSEL_CMD_ROUTER_ADVERTISE_START, &ApidRouterAdvertiseStart},
    {TESSEL_CMD_ROUTER_ADVERTISE_STOP, &ApidRouterAdvertiseStop},
    // Bonding
    {TESSEL_CMD_BOND_START, &ApidBondStart},
    {TESSEL_CMD_BOND_STOP, &ApidBondStop},
    // Firewall
    {TESSEL_CMD_IP_FILTER, &ApidIpFilterListManage},
    {TESSEL_CMD_MAC_FILTER, &ApidMacFilterListManage},
    {TESSEL_CMD_IP_AND_MAC_FILTER, &ApidIpAndMacFilterListManage},
    {TESSEL_CMD_FILTER_ENABLE, &ApidFilterEnable},
    {TESSEL_CMD_FILTER_DISABLE, &ApidFilterDisable},
    {TESSEL_CMD_CHAIN_ADD, &ApidAddChain},
    {TESSEL_CMD_ICMP_FILTER, &ApidIcmpManage},
    {TESSEL_CMD_PORT_FILTER, &ApidPortFilterManage},
    {TESSEL_CMD_FIREWALL_SAVE, &ApidFirewallSave},
    {TESSEL_CMD_FIREWALL_RESTORE, &ApidFirewallRestore},
    {TESSEL_CMD_ARP_ADD, &ApidAddArp},
    {TESSEL_CMD_ARP_DEL, &ApidDelArp},
    // Broadcast ARP
    {TESSEL_CMD_BROADCAST_ARP_START, &ApidBroadcastArpStart},
    {TESSEL_CMD_BROADCAST_ARP_STOP, &ApidBroadcastArpStop},
    // Logs and statistics
    {TESSEL_CMD_LOG_FILE, &ApidLogFileManage},
    {TESSEL_CMD_LOG_LEVEL, &ApidLogSwitch},
    {TESSEL_CMD_STAT_START, &ApidStatStart},
    {TESSEL_CMD_STAT_STOP, &ApidStatStop},
});

constexpr bool EveryCodeOccursOnce() {
    return std::all_of(kCommands.begin(), kCommands.end(), [](const CommandRow& row) {
        return std::count_if(kCommands.begin(), kCommands.end(),
                             [&](const CommandRow& other) { return other.type == row.type; }) == 1;
    });
}
static_assert(EveryCodeOccursOnce(), "a code has one handler");

}  // namespace

namespace tessel {

std::span<const CommandRow> ServedCommands() {
    return kCommands;
}

}  // namespace tessel

i32 IpcApiRegisterAll() {
    IpcApiInit(&g_tIpcApiCommonHead);
    for (const CommandRow& row : kCommands)
        (void)IpcApiRegisterOne(row.type, row.handler);
    return 0;
}
