#include <cstddef>

#include "core/api_reply.h"
#include "core/ipc.h"
#include "core/log.h"
#include "core/text.h"
#include "services/dhcp_server.h"

using tessel::ApiReply;
using tessel::ApiReplyStatus;
using tessel::ApiRequest;
using tessel::FieldText;

namespace {

// False when a payload ends before the DNS servers that it announces. Which number is too large is decided elsewhere.
bool HasItsDnsServers(const TNetDhcpsStartReq& request, i32 size) {
    const u64 servers = request.tConf.dwDnsNum;
    const u64 wanted = offsetof(TNetDhcpsStartReq, tConf.atDns) + servers * sizeof(TNetGateway);
    return servers == 0 || static_cast<u64>(size) >= wanted;
}

}  // namespace

i32 ApidDhcpsStart(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetDhcpsStartReq>(payload, size);
    const FieldText name(request.achDevName);
    TESSEL_PRT("the achDevname : %s, wSinFamily : %d", name.Get(), request.wSinFamily);
    const bool isWhole = HasItsDnsServers(request, size);
    if (!isWhole) TESSEL_ERR("the size is error:size=%d", size);
    const i32 result = isWhole ? DhcpsStart(name.Get(), request.wSinFamily, &request.tConf) : -1;
    if (result != 0) TESSEL_ERR("DhcpsStart error!");
    const TNetStatusReply reply{.nResult = result};
    const i32 sent = IpcApiSendMsg(fd, type, &reply, sizeof(reply), 0);
    if (sent == TESSEL_IPC_WRITE_TIMEOUT) {
        TESSEL_ERR("send msg timeout!");
    } else if (sent != TESSEL_IPC_OK) {
        TESSEL_ERR("send msg error: %d!", sent);
    } else if (result == 0) {
        TESSEL_PRT("dhcps start sucessfully!");
    }
    return sent == TESSEL_IPC_OK ? 0 : -1;
}

i32 ApidDhcpsStop(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetDhcpsReq>(payload, size);
    const FieldText name(request.achDevName);
    TESSEL_PRT("the achDevname : %s, wSinFamily : %d", name.Get(), request.wSinFamily);
    return ApiReplyStatus(fd, type, DhcpsStop(name.Get(), request.wSinFamily), "dhcps stop error!");
}

i32 ApidDhcpsGetStatus(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetDhcpsReq>(payload, size);
    const FieldText name(request.achDevName);
    TESSEL_PRT("the achDevname : %s, wSinFamily : %d", name.Get(), request.wSinFamily);
    TNetStatusReply reply{};
    if (DhcpsGetStatus(name.Get(), request.wSinFamily, &reply.nResult) != 0) {
        TESSEL_ERR("DhcpsGetState error");
        return -1;
    }
    if (ApiReply(fd, type, reply) != 0) return -1;
    TESSEL_DBG("get %s state successfully!", name.Get());
    return 0;
}

i32 ApidDhcpsStopAll(int fd, u32 type, const void* /*payload*/, i32 /*size*/) {
    return ApiReplyStatus(fd, type, DhcpsStopAll(), "dhcps stop error!");
}
