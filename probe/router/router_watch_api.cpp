#include "core/api_reply.h"
#include "core/log.h"
#include "core/text.h"
#include "probe/router/router_watch.h"
#include "tessel/router.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;
using tessel::FieldText;

i32 ApidRouterAdvertiseStart(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetRouterStartReq>(payload, size);
    const FieldText name(request.achDevName);
    TESSEL_PRT("ApidRouterAdvertiseStart devname : %s, nUserId : %d, nPid : %d", name.Get(), request.nUserId,
               request.nPid);
    const i32 result = RouterAdvertiseStart(name.Get(), request.nUserId, request.nPid);
    if (result != 0) TESSEL_ERR("RouterAdvertiseStart error!");
    TESSEL_PRT("ApidRouterAdvertiseStart, nErrid = %d", result);
    return ApiReplyStatus(fd, type, result);
}

i32 ApidRouterAdvertiseStop(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetRouterStopReq>(payload, size);
    const FieldText name(request.achDevName);
    TESSEL_PRT("ApidRouterAdvertiseStop devname : %s", name.Get());
    const i32 result = RouterAdvertiseStop(name.Get());
    if (result != 0) TESSEL_ERR("RouterAdvertiseStart error!");  // the start's words
    TESSEL_PRT("ApidRouterAdvertiseStop, nErrid = %d", result);
    return ApiReplyStatus(fd, type, result);
}
