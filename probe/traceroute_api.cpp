#include "core/api_reply.h"
#include "core/log.h"
#include "probe/traceroute.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;

i32 ApidTracerouteStart(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetTracerouteStartReq>(payload, size);
    const i32 userId = request.nUserId;
    TESSEL_PRT("TracerouteStart user %d begin!", userId);
    const i32 result = TracerouteStart(request.tTarget, request.dwMaxHops, userId);
    return ApiReplyStatus(fd, type, result, "traceroute_start error!");
}

i32 ApidTracerouteStop(int fd, u32 type, const void* payload, i32 size) {
    const i32 userId = ApiRequest<TNetTracerouteStopReq>(payload, size).nUserId;
    TESSEL_PRT("TracerouteStop user %d begin!", userId);
    return ApiReplyStatus(fd, type, TracerouteStop(userId), "traceroute stop error!");
}
