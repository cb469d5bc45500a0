// What the daemon watches on the links, and how far it sees.
#include <cstring>

#include "client/call.h"
#include "client/libtessel.h"
#include "client/request_fields.h"

using tessel::CallWithRecords;

namespace {

int SwitchConflictReports(u32 code, int family) {
    if (!tessel::IsFamily(family)) return TESSEL_E_ARGUMENT;
    const TNetConflictReq request{.wSinFamily = static_cast<u16>(family)};
    TNetStatusReply reply;
    return CallWithRecords(code, request, reply);
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
    TNetStatusReply reply;
    return CallWithRecords(TESSEL_CMD_BROADCAST_ARP_START, request, reply);
}

int tessel_arp_announce_stop(void) {
    return tessel::CallForStatus(TESSEL_CMD_BROADCAST_ARP_STOP);
}

int tessel_traceroute_start(const TNetGateway* target, uint32_t max_hops, int32_t id) {
    if (!tessel::IsFamily(target->wSinFamily)) return TESSEL_E_ARGUMENT;
    const TNetTracerouteStartReq request{.tTarget = *target, .dwMaxHops = max_hops, .nUserId = id};
    TNetStatusReply reply;
    return CallWithRecords(TESSEL_CMD_TRACEROUTE_START, request, reply);
}

int tessel_traceroute_stop(int32_t id) {
    const TNetTracerouteStopReq request{.nUserId = id};
    TNetStatusReply reply;
    return CallWithRecords(TESSEL_CMD_TRACEROUTE_STOP, request, reply);
}

int tessel_event_trace(const tessel_event* event, TNetTracerouteResult* result) {
    const bool isTrace = event->kind >= TESSEL_EVENT_TRACE_ERROR && event->kind <= TESSEL_EVENT_TRACE_REFUSED;
    if (!isTrace || event->size != sizeof(*result)) return TESSEL_E_ARGUMENT;
    memcpy(result, event->payload, sizeof(*result));
    return TESSEL_OK;
}
