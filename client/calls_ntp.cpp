// The NTP client.

#include "client/call.h"
#include "client/libtessel.h"
#include "client/request_fields.h"

using tessel::CallForStatus;

int tessel_ntp_start(const TNetGateway* server, uint32_t interval) {
    if (server == nullptr || !tessel::IsFamily(server->wSinFamily) || interval == 0) return TESSEL_E_ARGUMENT;
    const TNetNtpcStartReq request{
        .wSinFamily = server->wSinFamily, .tServer = *server, .dwSyncTimeInterval = interval};
    return CallForStatus(TESSEL_CMD_NTPC_START, request);
}

int tessel_ntp_stop(int family) {
    if (!tessel::IsFamily(family)) return TESSEL_E_ARGUMENT;
    const TNetNtpcStopReq request{.wSinFamily = static_cast<u16>(family)};
    return CallForStatus(TESSEL_CMD_NTPC_STOP, request);
}

int tessel_ntp_check(const TNetGateway* server) {
    if (server == nullptr || !tessel::IsFamily(server->wSinFamily)) return TESSEL_E_ARGUMENT;
    const TNetNtpcCheckReq request{.tServer = *server};
    return CallForStatus(TESSEL_CMD_NTPC_CHECK, request);
}

int tessel_event_ntp(const tessel_event* event, int32_t* deviation) {
    if (deviation == nullptr) return TESSEL_E_ARGUMENT;
    TNetNtpcSynced synced;
    const int error = tessel::ReadEvent(event, TESSEL_EVENT_NTP_SYNCED, TESSEL_EVENT_NTP_SYNCED, &synced);
    if (error == TESSEL_OK) *deviation = synced.nTimeDeviation;
    return error;
}
