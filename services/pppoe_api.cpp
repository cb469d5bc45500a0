#include "core/api_reply.h"
#include "core/log.h"
#include "services/pppoe.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;

i32 ApidPppoeStart(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetPppoeStartReq>(payload, size);
    TESSEL_PRT("wSinFamily : %d", request.wSinFamily);
    return ApiReplyStatus(fd, type, PppoeClientStart(request.wSinFamily, request.tConf), "pppoe start error!");
}

i32 ApidPppoeStop(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetPppoeStopReq>(payload, size);
    TESSEL_PRT("wSinFamily : %d", request.wSinFamily);
    return ApiReplyStatus(fd, type, PppoeClientStop(request.wSinFamily), "PppoeClientStop error!");
}
