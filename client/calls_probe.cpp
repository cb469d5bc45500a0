// What the daemon watches on the links, and how far it sees.
#include <algorithm>

#include "client/call.h"
#include "client/libtessel.h"
#include "client/request_fields.h"

using tessel::CallForStatus;
using tessel::StoreName;

namespace {

int SwitchConflictReports(u32 code, int family) {
    if (!tessel::IsFamily(family)) return TESSEL_E_ARGUMENT;
    const TNetConflictReq request{.wSinFamily = static_cast<u16>(family)};
    return CallForStatus(code, request);
}

}  // namespace

int tessel_conflict_start(int family) {
    return SwitchConflictReports(TESSEL_CMD_CONFLICT_START, family);
}

int tessel_conflict_stop(int family) {
    return SwitchConflictReports(TESSEL_CMD_CONFLICT_STOP, family);
}

int tessel_arp_announce_start(uint32_t target) {
    const TNetBroadcastArpReq request{.dwTargetIp = target};
    return CallForStatus(TESSEL_CMD_BROADCAST_ARP_START, request);
}

int tessel_arp_announce_stop(void) {
    return CallForStatus(TESSEL_CMD_BROADCAST_ARP_STOP);
}

int tessel_ping_start(const TNetPingStartReq* ping) {
    if (ping == nullptr || !tessel::IsFamily(ping->tTarget.wSinFamily)) return TESSEL_E_ARGUMENT;
    return CallForStatus(TESSEL_CMD_PING_START, *ping);
}

int tessel_ping_stop(int32_t user_id) {
    const TNetPingStopReq request{.nUserId = user_id};
    return CallForStatus(TESSEL_CMD_PING_STOP, request);
}

int tessel_event_ping(const tessel_event* event, TNetPingResult* result) {
    return tessel::ReadEvent(event, TESSEL_EVENT_PING_REPLY, TESSEL_EVENT_PING_UNREACHABLE, result);
}

int tessel_router_start(const char* interface, int32_t user_id, int32_t pid) {
    TNetRouterStartReq request{.achDevName = {}, .nUserId = user_id, .nPid = pid};
    if (!StoreName(request.achDevName, interface)) return TESSEL_E_ARGUMENT;
    return CallForStatus(TESSEL_CMD_ROUTER_ADVERTISE_START, request);
}

int tessel_router_stop(const char* interface) {
    TNetRouterStopReq request{};
    if (!StoreName(request.achDevName, interface)) return TESSEL_E_ARGUMENT;
    return CallForStatus(TESSEL_CMD_ROUTER_ADVERTISE_STOP, request);
}

int tessel_event_router(const tessel_event* event, TNetRouterNotify* report) {
    const int error = tessel::ReadEvent(event, TESSEL_EVENT_RA_CHANGED, TESSEL_EVENT_RA_CHANGED, report);
    if (error == TESSEL_OK) report->tIfaceIp.dwNum = std::min<u32>(report->tIfaceIp.dwNum, TESSEL_ADDRESSES_MAX);
    return error;
}

int tessel_traceroute_start(const TNetGateway* target, uint32_t max_hops, int32_t id) {
    if (target == nullptr || !tessel::IsFamily(target->wSinFamily)) return TESSEL_E_ARGUMENT;
    const TNetTracerouteStartReq request{.tTarget = *target, .dwMaxHops = max_hops, .nUserId = id};
    return CallForStatus(TESSEL_CMD_TRACEROUTE_START, request);
}

int tessel_traceroute_stop(int32_t id) {
    const TNetTracerouteStopReq request{.nUserId = id};
    return CallForStatus(TESSEL_CMD_TRACEROUTE_STOP, request);
}

int tessel_event_trace(const tessel_event* event, TNetTracerouteResult* result) {
    return tessel::ReadEvent(event, TESSEL_EVENT_TRACE_ERROR, TESSEL_EVENT_TRACE_REFUSED, result);
}
