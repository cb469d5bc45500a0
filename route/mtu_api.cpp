#include "core/api_reply.h"
#include "core/log.h"
#include "core/text.h"
#include "route/mtu.h"
#include "tessel/mtu.h"

using tessel::ApiRequest;
using tessel::FieldText;

i32 ApidMtuSet(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetMtuSetReq>(payload, size);
    const FieldText interfaceName(request.achDevName);
    TESSEL_PRT("ApidMtuSet achDevName : %s, dwMtu : %d ", interfaceName.Get(), static_cast<i32>(request.dwMtu));
    const i32 result = MtuSet(interfaceName.Get(), request.dwMtu);
    return tessel::ApiReplyStatus(fd, type, result, "MtuSet error!");
}

i32 ApidMtuGet(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetMtuGetReq>(payload, size);
    u32 mtu = 0;
    const i32 result = MtuGet(FieldText(request.achDevName).Get(), &mtu);
    if (result != 0) TESSEL_ERR("MtuGet error!");
    return tessel::ApiReply(fd, type, TNetMtuGetReply{.nResult = result, .dwMtu = mtu});
}
