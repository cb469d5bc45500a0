#include "core/api_reply.h"
#include "core/log.h"
#include "stat/traffic.h"

using tessel::ApiReplyStatus;

i32 ApidStatStart(int fd, u32 type, const void* payload, i32 size) {
    const u32 interval = tessel::ApiRequest<TNetStatStartReq>(payload, size).dwInterval;
    TESSEL_PRT("stat nInterval is %d", static_cast<i32>(interval));
    // Without a length a period has no rate.
    const i32 result = interval != 0 ? stat_start(interval) : -1;
    return ApiReplyStatus(fd, type, result, "stat_start error!");
}

i32 ApidStatStop(int fd, u32 type, const void* /*payload*/, i32 /*size*/) {
    return ApiReplyStatus(fd, type, stat_stop(), "stat_stop error!");
}
