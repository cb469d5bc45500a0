// Addresses, hardware addresses, MTU.
#include <algorithm>
#include <cstring>

#include "client/call.h"
#include "client/libtessel.h"
#include "client/request_fields.h"

using tessel::CallForStatus;
using tessel::CallWithRecords;
using tessel::IsFamily;
using tessel::IsFamilyOrBoth;
using tessel::PrefixLengthMax;
using tessel::StoreName;

namespace {

// An entry that the daemon would act on.
bool IsSendable(const TNetIpAddr& address) {
    return IsFamily(address.wSinFamily) && address.dwPrefixLen <= PrefixLengthMax(address.wSinFamily) &&
           address.dwScope <= TESSEL_SCOPE_GLOBAL;
}

int ChangeAddress(u32 code, const char* interface, const TNetIpAddr* address) {
    TNetIpaddrChangeReq request{};
    if (address == nullptr || !IsSendable(*address) || !StoreName(request.achDevName, interface)) {
        return TESSEL_E_ARGUMENT;
    }
    request.tIp = *address;
    return CallForStatus(code, request);
}

}  // namespace

int tessel_addr_get(const char* interface, int family, TNetIfaceIp* list) {
    TNetIpaddrGetReq request{};
    if (list == nullptr || !IsFamilyOrBoth(family) || !StoreName(request.achDevName, interface))
        return TESSEL_E_ARGUMENT;
    request.wSinFamily = static_cast<u16>(family);
    TNetIpaddrGetReply reply;
    const int error = CallWithRecords(TESSEL_CMD_IPADDR_GET, request, reply);
    if (error != TESSEL_OK) return error;
    *list = reply.tIfaceIp;
    list->dwNum = std::min<u32>(list->dwNum, TESSEL_ADDRESSES_MAX);
    return TESSEL_OK;
}

int tessel_addr_add(const char* interface, const TNetIpAddr* address) {
    return ChangeAddress(TESSEL_CMD_IPADDR_ADD, interface, address);
}

int tessel_addr_del(const char* interface, const TNetIpAddr* address) {
    return ChangeAddress(TESSEL_CMD_IPADDR_DEL, interface, address);
}

int tessel_addr_flush(const char* interface, int family) {
    TNetIpaddrFlushReq request{};
    if (!IsFamilyOrBoth(family) || !StoreName(request.achDevName, interface)) return TESSEL_E_ARGUMENT;
    request.wSinFamily = static_cast<u16>(family);
    return CallForStatus(TESSEL_CMD_IPADDR_FLUSH, request);
}

int tessel_addr_set(const char* interface, int family, const TNetIfaceIp* list) {
    TNetIpaddrSetReq request{};
    if (list == nullptr || list->dwNum > TESSEL_ADDRESSES_MAX || !IsFamilyOrBoth(family) ||
        !StoreName(request.achDevName, interface)) {
        return TESSEL_E_ARGUMENT;
    }
    for (u32 i = 0; i < list->dwNum; ++i) {
        const bool isOfFamily = family == TESSEL_FAMILY_BOTH || list->atIp[i].wSinFamily == family;
        if (!isOfFamily || !IsSendable(list->atIp[i])) return TESSEL_E_ARGUMENT;
    }
    request.wSinFamily = static_cast<u16>(family);
    request.tIfaceIp = *list;
    return CallForStatus(TESSEL_CMD_IPADDR_SET, request);
}

int tessel_addr_show(const char* interface, ipaddr_show_info* info) {
    TNetIpaddrShowReq request{};
    if (info == nullptr || !StoreName(request.achDevName, interface)) return TESSEL_E_ARGUMENT;
    TNetIpaddrShowReply reply;
    const int error = CallWithRecords(TESSEL_CMD_IPADDR_SHOW, request, reply);
    if (error != TESSEL_OK) return error;
    *info = reply.tInfo;
    info->num = std::min<u32>(info->num, TESSEL_ADDRESSES_MAX);
    return TESSEL_OK;
}

int tessel_mac_get(const char* interface, uint8_t mac[6]) {
    TNetMacaddrGetReq request{};
    if (mac == nullptr || !StoreName(request.achDevName, interface)) return TESSEL_E_ARGUMENT;
    TNetMacaddrGetReply reply;
    const int error = CallWithRecords(TESSEL_CMD_MACADDR_GET, request, reply);
    if (error == TESSEL_OK) memcpy(mac, reply.abyMac, sizeof(reply.abyMac));
    return error;
}

int tessel_mac_set(const char* interface, const uint8_t mac[6]) {
    TNetMacaddrSetReq request{};
    if (mac == nullptr || !StoreName(request.achDevName, interface)) return TESSEL_E_ARGUMENT;
    memcpy(request.abyMac, mac, sizeof(request.abyMac));
    return CallForStatus(TESSEL_CMD_MACADDR_SET, request);
}

int tessel_mtu_get(const char* interface, uint32_t* mtu) {
    TNetMtuGetReq request{};
    if (mtu == nullptr || !StoreName(request.achDevName, interface)) return TESSEL_E_ARGUMENT;
    TNetMtuGetReply reply;
    const int error = CallWithRecords(TESSEL_CMD_MTU_GET, request, reply);
    if (error == TESSEL_OK) *mtu = reply.dwMtu;
    return error;
}

int tessel_mtu_set(const char* interface, uint32_t mtu) {
    TNetMtuSetReq request{};
    if (!StoreName(request.achDevName, interface)) return TESSEL_E_ARGUMENT;
    request.dwMtu = mtu;
    return CallForStatus(TESSEL_CMD_MTU_SET, request);
}
