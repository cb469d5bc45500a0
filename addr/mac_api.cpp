#include "addr/mac.h"
#include "core/api_reply.h"
#include "core/log.h"
#include "core/text.h"
#include "tessel/mac.h"

using tessel::ApiRequest;
using tessel::FieldText;

i32 ApidMacaddrSet(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetMacaddrSetReq>(payload, size);
    const i32 result = MacaddrSet(FieldText(request.achDevName).Get(), request.abyMac);
    return tessel::ApiReplyStatus(fd, type, result, "MacaddrSet error!");
}

i32 ApidMacaddrGet(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetMacaddrGetReq>(payload, size);
    TNetMacaddrGetReply reply{};
    if (MacaddrGet(FieldText(request.achDevName).Get(), reply.abyMac) != 0) {
        TESSEL_ERR("MacaddrSet error!");  // the setter's words
        reply.nResult = TESSEL_RESULT_FAILED;
    }
    return tessel::ApiReply(fd, type, reply);
}
