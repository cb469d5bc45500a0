#include "core/api_reply.h"

#include "core/ipc.h"
#include "core/log.h"

namespace tessel {

i32 ApiReplyBytes(int fd, u32 type, const void* data, i32 size, CallSite where) {
    const i32 sent = IpcApiSendMsg(fd, type, data, size, 0);
    if (sent == TESSEL_IPC_OK) return 0;
    if (sent == TESSEL_IPC_WRITE_TIMEOUT) {
        TESSEL_ERR_AT(where, "send msg timeout!");
    } else {
        TESSEL_ERR_AT(where, "send msg error!");
    }
    return -1;
}

i32 ApiReplyStatus(int fd, u32 type, i32 result, CallSite where) {
    const TNetStatusReply reply{.nResult = result == 0 ? TESSEL_RESULT_OK : TESSEL_RESULT_FAILED};
    return ApiReply(fd, type, reply, where);
}

}  // namespace tessel
