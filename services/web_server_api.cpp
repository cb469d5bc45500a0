#include "core/api_reply.h"
#include "services/web_server.h"
#include "tessel/web.h"

using tessel::ApiReplyStatus;

i32 apid_webs_start(int fd, u32 type, const void* payload, i32 size) {
    const auto request = tessel::ApiRequest<TNetWebsStartReq>(payload, size);
    return ApiReplyStatus(fd, type, webs_start(request.dwReserved), "webs start error!");
}

i32 apid_webs_stop(int fd, u32 type, const void* /*payload*/, i32 /*size*/) {
    return ApiReplyStatus(fd, type, webs_stop(), "webs stop error!");
}
