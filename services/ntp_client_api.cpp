#include "core/api_reply.h"
#include "core/log.h"
#include "services/ntp_client.h"
#include "tessel/ntp.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;

i32 ApidNtpcStart(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetNtpcStartReq>(payload, size);
    const u32 interval = request.dwSyncTimeInterval;
    TESSEL_PRT("wSinFamily : %d, dwSyncTimeInterval : %d", request.wSinFamily, static_cast<i32>(interval));
    return ApiReplyStatus(fd, type, NtpcStart(request.tServer, interval), "ntpc_start error!");
}

i32 ApidNtpcStop(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetNtpcStopReq>(payload, size);
    TESSEL_PRT("wSinFamily : %d", request.wSinFamily);
    return ApiReplyStatus(fd, type, NtpcStop(request.wSinFamily), "ntpc stop error!");
}

i32 ApidNtpcCheck(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetNtpcCheckReq>(payload, size);
    return ApiReplyStatus(fd, type, NtpcCheck(request.tServer), "ntpc_check error!");
}
