// DHCP clients and servers.
#include <algorithm>

#include "client/call.h"
#include "client/libtessel.h"
#include "client/request_fields.h"

using tessel::CallForStatus;
using tessel::StoreName;

namespace {

// Each of these requests has a family and a name among its fields.
template <typename Request>
int Send(u32 code, int family, const char* interface, Request request) {
    if (!tessel::IsFamily(family) || !StoreName(request.achDevName, interface)) return TESSEL_E_ARGUMENT;
    request.wSinFamily = static_cast<u16>(family);
    return CallForStatus(code, request);
}

}  // namespace

int tessel_dhcpc_start(int family, const char* interface, int with_dns, int32_t pid) {
    if (with_dns < 0) {
        TNetDhcpcStartReq request{};
        request.nPid = pid;
        return Send(TESSEL_CMD_DHCPC_START, family, interface, request);
    }
    TNetDhcpcStartExReq request{};
    request.wDnsDynmic = with_dns != 0 ? 1 : 0;
    request.nPid = pid;
    return Send(TESSEL_CMD_DHCPC_START_EX, family, interface, request);
}

int tessel_dhcpc_renew(int family, const char* interface) {
    return Send(TESSEL_CMD_DHCPC_RENEW, family, interface, TNetDhcpcReq{});
}

int tessel_dhcpc_stop(int family, const char* interface) {
    return Send(TESSEL_CMD_DHCPC_STOP, family, interface, TNetDhcpcReq{});
}

int tessel_event_lease(const tessel_event* event, TNetDhcpcLease* lease) {
    const int error = tessel::ReadEvent(event, TESSEL_EVENT_DHCP_LEASE, TESSEL_EVENT_DHCP_DECONFIGURED, lease);
    if (error == TESSEL_OK) lease->dwDnsNum = std::min<u32>(lease->dwDnsNum, TESSEL_DHCP_DNS_MAX);
    return error;
}

int tessel_dhcpd_start(const char* interface, const TNetDhcpsConf* conf) {
    TNetDhcpsStartReq request{.achDevName = {}, .wSinFamily = TESSEL_FAMILY_INET, .tConf = {}};
    if (conf == nullptr || !StoreName(request.achDevName, interface) ||
        conf->dwPrefixLen > tessel::PrefixLengthMax(TESSEL_FAMILY_INET) || conf->dwDnsNum > TESSEL_DHCP_DNS_MAX) {
        return TESSEL_E_ARGUMENT;
    }
    request.tConf = *conf;
    return CallForStatus(TESSEL_CMD_DHCPS_START, request);
}

int tessel_dhcpd_stop(const char* interface) {
    TNetDhcpsReq request{.achDevName = {}, .wSinFamily = TESSEL_FAMILY_INET};
    if (!StoreName(request.achDevName, interface)) return TESSEL_E_ARGUMENT;
    return CallForStatus(TESSEL_CMD_DHCPS_STOP, request);
}

int tessel_dhcpd_status(const char* interface, int* is_serving) {
    TNetDhcpsReq request{.achDevName = {}, .wSinFamily = TESSEL_FAMILY_INET};
    if (is_serving == nullptr || !StoreName(request.achDevName, interface)) return TESSEL_E_ARGUMENT;
    TNetStatusReply reply;
    const int error = tessel::Call(TESSEL_CMD_DHCPS_GET_STATUS, &request, sizeof(request), &reply, sizeof(reply));
    if (error == TESSEL_OK) *is_serving = reply.nResult != 0 ? 1 : 0;
    return error;
}

int tessel_dhcpd_stop_all(void) {
    return CallForStatus(TESSEL_CMD_DHCPS_STOP_ALL);
}
