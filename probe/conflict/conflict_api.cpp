#include "core/api_reply.h"
#include "core/log.h"
#include "probe/conflict/conflict.h"
#include "tessel/conflict.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;

i32 ApidConflictCheckStart(int fd, u32 type, const void* payload, i32 size) {
    const u16 family = ApiRequest<TNetConflictReq>(payload, size).wSinFamily;
    TESSEL_PRT("wSinFamily : %d", family);
    return ApiReplyStatus(fd, type, ConflictCheckStart(family), "dhcpc_start error!");  // another module's words
}

i32 ApidConflictCheckStop(int fd, u32 type, const void* payload, i32 size) {
    const u16 family = ApiRequest<TNetConflictReq>(payload, size).wSinFamily;
    TESSEL_PRT("wSinFamily : %d", family);
    return ApiReplyStatus(fd, type, ConflictCheckStop(family), "ConflictCheckStop error!");
}
