#include <cstring>

#include "core/api_reply.h"
#include "core/log.h"
#include "services/dhcp_client.h"
#include "tessel/dhcp.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;

namespace {

// An interface's name, of which a session keeps no more than 15 characters: it is looked up by the same ones.
struct CutInterfaceName {
    explicit CutInterfaceName(const char (&field)[TESSEL_NAME_SIZE]) {
        memcpy(text, field, sizeof(text) - 1);
    }
    char text[TESSEL_NAME_SIZE] = {};
};

}  // namespace

i32 ApidDhcpcStart(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetDhcpcStartReq>(payload, size);
    const CutInterfaceName name(request.achDevName);
    TESSEL_PRT("wSinFamily : %d, achDevName : %s, nPid %d", request.wSinFamily, name.text, request.nPid);
    constexpr u16 kWithDns = 1;
    const i32 result = DhcpcStart(name.text, request.wSinFamily, kWithDns, request.nPid);
    return ApiReplyStatus(fd, type, result, "dhcpc_start error!");
}

i32 ApidDhcpcStartEx(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetDhcpcStartExReq>(payload, size);
    const CutInterfaceName name(request.achDevName);
    TESSEL_PRT("wSinFamily : %d, achDevName : %s wDnsDynmic:%d nPid = %d", request.wSinFamily, name.text,
               request.wDnsDynmic, request.nPid);
    const i32 result = DhcpcStart(name.text, request.wSinFamily, request.wDnsDynmic, request.nPid);
    return ApiReplyStatus(fd, type, result, "dhcpc_start error!");
}

i32 ApidDhcpcStop(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetDhcpcReq>(payload, size);
    const CutInterfaceName name(request.achDevName);
    TESSEL_PRT("achDevName : %s, wSinFamily : %d", name.text, request.wSinFamily);
    return ApiReplyStatus(fd, type, DhcpcStop(name.text, request.wSinFamily),
                          "webs stop error!");  // another module's words
}

i32 ApidDhcpcRenew(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetDhcpcReq>(payload, size);
    const CutInterfaceName name(request.achDevName);
    TESSEL_PRT("wSinFamily : %d, achDevName : %s", request.wSinFamily, name.text);
    return ApiReplyStatus(fd, type, DhcpcRenew(name.text, request.wSinFamily), "dhcpc_start error!");
}
