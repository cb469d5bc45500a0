#include "core/api_reply.h"
#include "core/log.h"
#include "probe/conflict.h"
#include "tessel/conflict.h"

namespace {

i32 Switch(int fd, u32 type, const void* payload, i32 size, i32 (*operation)(u16 family), const char* failure,
           tessel::CallSite where = tessel::CallSite::Current()) {
    const u16 family = tessel::ApiRequest<TNetConflictReq>(payload, size).wSinFamily;
    TESSEL_PRT_AT(where, "wSinFamily : %d", family);
    const i32 result = operation(family);
    if (result != 0) TESSEL_ERR_AT(where, "%s", failure);
    return tessel::ApiReplyStatus(fd, type, result, nullptr, where);
}

}  // namespace

i32 ApidConflictCheckStart(int fd, u32 type, const void* payload, i32 size) {
    return Switch(fd, type, payload, size, &ConflictCheckStart, "dhcpc_start error!");  // another module's words
}

i32 ApidConflictCheckStop(int fd, u32 type, const void* payload, i32 size) {
    return Switch(fd, type, payload, size, &ConflictCheckStop, "ConflictCheckStop error!");
}
