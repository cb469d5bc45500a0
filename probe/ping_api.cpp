#include "core/api_reply.h"
#include "core/log.h"
#include "probe/ping.h"
#include "tessel/ping.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;

i32 ApidPingStart(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetPingStartReq>(payload, size);
    TESSEL_PRT("PingStart user %d begin", request.nUserId);
    const i32 result = PingStart(&request.tTarget, request.dwPacketSize, request.dwTimeout, request.dwTtl,
                                 request.dwCount, request.nUserId);
    return ApiReplyStatus(fd, type, result, "ping start error!");
}

i32 ApidPingStop(int fd, u32 type, const void* payload, i32 size) {
    const i32 userId = ApiRequest<TNetPingStopReq>(payload, size).nUserId;
    TESSEL_PRT("PingStop user %d begin", userId);
    return ApiReplyStatus(fd, type, PingStop(userId), "ping start error!");  // the start's words
}
