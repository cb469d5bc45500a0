#include "client/event_names.h"

#include <algorithm>
#include <iterator>

#include "client/libtessel.h"

namespace {

// Names with the same first part, up to the end or the next '_'.
struct EventRow {
    std::string_view socketFamily;
    u32 type;
    tessel::EventName event;
};

constexpr EventRow kEvents[] = {
    {TESSEL_SOCKET_PING, TESSEL_PING_REPLY, {TESSEL_EVENT_PING_REPLY, "ping_reply"}},
    {TESSEL_SOCKET_PING, TESSEL_PING_NO_REPLY, {TESSEL_EVENT_PING_NO_REPLY, "ping_no_reply"}},
    {TESSEL_SOCKET_PING, TESSEL_PING_NO_OUTPUT, {TESSEL_EVENT_PING_NO_OUTPUT, "ping_no_output"}},
    {TESSEL_SOCKET_PING, TESSEL_PING_UNREACHABLE, {TESSEL_EVENT_PING_UNREACHABLE, "ping_unreachable"}},
    {TESSEL_SOCKET_TRACEROUTE, TESSEL_TRACE_ERROR, {TESSEL_EVENT_TRACE_ERROR, "trace_error"}},
    {TESSEL_SOCKET_TRACEROUTE, TESSEL_TRACE_NO_REPLY, {TESSEL_EVENT_TRACE_NO_REPLY, "trace_no_reply"}},
    {TESSEL_SOCKET_TRACEROUTE, TESSEL_TRACE_HOP, {TESSEL_EVENT_TRACE_HOP, "trace_hop"}},
    {TESSEL_SOCKET_TRACEROUTE, TESSEL_TRACE_REACHED, {TESSEL_EVENT_TRACE_REACHED, "trace_reached"}},
    {TESSEL_SOCKET_TRACEROUTE, TESSEL_TRACE_UNREACHABLE, {TESSEL_EVENT_TRACE_UNREACHABLE, "trace_unreachable"}},
    {TESSEL_SOCKET_TRACEROUTE, TESSEL_TRACE_REFUSED, {TESSEL_EVENT_TRACE_REFUSED, "trace_refused"}},
    {TESSEL_SOCKET_DHCPC, TESSEL_DHCPC_LEASE, {TESSEL_EVENT_DHCP_LEASE, "dhcp_lease"}},
    {TESSEL_SOCKET_DHCPC, TESSEL_DHCPC_FAILED, {TESSEL_EVENT_DHCP_FAILED, "dhcp_failed"}},
    {TESSEL_SOCKET_DHCPC, TESSEL_DHCPC_DECONFIGURED, {TESSEL_EVENT_DHCP_DECONFIGURED, "dhcp_deconfigured"}},
    {TESSEL_SOCKET_DHCPCV6, TESSEL_DHCPC_LEASE, {TESSEL_EVENT_DHCP_LEASE, "dhcp_lease"}},
    {TESSEL_SOCKET_DHCPCV6, TESSEL_DHCPC_FAILED, {TESSEL_EVENT_DHCP_FAILED, "dhcp_failed"}},
    {TESSEL_SOCKET_DHCPCV6, TESSEL_DHCPC_DECONFIGURED, {TESSEL_EVENT_DHCP_DECONFIGURED, "dhcp_deconfigured"}},
    {TESSEL_SOCKET_NTP, TESSEL_NTPC_SYNCED, {TESSEL_EVENT_NTP_SYNCED, "ntp_synced"}},
    {TESSEL_SOCKET_NTP, TESSEL_NTPC_FAILED, {TESSEL_EVENT_NTP_FAILED, "ntp_failed"}},
    {TESSEL_SOCKET_NTPV6, TESSEL_NTPC_SYNCED, {TESSEL_EVENT_NTP_SYNCED, "ntp_synced"}},
    {TESSEL_SOCKET_NTPV6, TESSEL_NTPC_FAILED, {TESSEL_EVENT_NTP_FAILED, "ntp_failed"}},
    {TESSEL_SOCKET_IP_CONFLICT, TESSEL_CONFLICT_IP, {TESSEL_EVENT_IP_CONFLICT, "ip_conflict"}},
    {TESSEL_SOCKET_IP_CONFLICT, TESSEL_CONFLICT_MAC, {TESSEL_EVENT_MAC_CONFLICT, "mac_conflict"}},
    {TESSEL_SOCKET_IPV6_CONFLICT, TESSEL_CONFLICT_IP, {TESSEL_EVENT_IP_CONFLICT, "ip_conflict"}},
    {TESSEL_SOCKET_IPV6_CONFLICT, TESSEL_CONFLICT_MAC, {TESSEL_EVENT_MAC_CONFLICT, "mac_conflict"}},
    {TESSEL_SOCKET_ROUTER_NOTIFY, TESSEL_ROUTER_CHANGED, {TESSEL_EVENT_RA_CHANGED, "ra_changed"}},
    {TESSEL_SOCKET_STAT, TESSEL_STAT_BANDWIDTH, {TESSEL_EVENT_TRAFFIC, "traffic"}},
};

bool IsOfFamily(std::string_view socketName, std::string_view family) {
    if (!socketName.starts_with(family)) return false;
    return socketName.size() == family.size() || socketName[family.size()] == '_';
}

}  // namespace

namespace tessel {

EventName FindEventName(std::string_view socketName, u32 type) {
    const auto* const found = std::find_if(std::begin(kEvents), std::end(kEvents), [&](const EventRow& row) {
        return row.type == type && IsOfFamily(socketName, row.socketFamily);
    });
    return found == std::end(kEvents) ? EventName{TESSEL_EVENT_UNKNOWN, "unknown"} : found->event;
}

}  // namespace tessel
