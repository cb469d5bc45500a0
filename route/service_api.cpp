#include "core/api_reply.h"
#include "core/text.h"
#include "route/service.h"
#include "tessel/service.h"

i32 ApidServiceStop(int fd, u32 type, const void* payload, i32 size) {
    const auto request = tessel::ApiRequest<TNetServiceStopReq>(payload, size);
    const i32 result = ServiceStop(tessel::FieldText(request.achServiceName).Get());
    return tessel::ApiReplyStatus(fd, type, result, "ExecCmd Service Stop error!");
}
