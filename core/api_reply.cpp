#include "core/api_reply.h"

#include "core/ipc.h"
#include "core/log.h"

namespace tessel {

ApiText::ApiText(const void* payload, i32 size, std::size_t recordBytes, CallSite where)
    : hasText_(static_cast<std::size_t>(size) >= recordBytes), text_{} {
    if (!hasText_) {
        TESSEL_ERR_AT(where, "the size is error:size=%d", size);
        return;
    }
    const std::size_t textBytes = std::min(static_cast<std::size_t>(size) - recordBytes, sizeof(text_) - 1);
    memcpy(text_, static_cast<const char*>(payload) + recordBytes, textBytes);
}

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

i32 ApiReplyStatus(int fd, u32 type, i32 result, const char* failure, CallSite where) {
    if (result != 0 && failure != nullptr) TESSEL_ERR_AT(where, "%s", failure);
    const TNetStatusReply reply{.nResult = result == 0 ? TESSEL_RESULT_OK : TESSEL_RESULT_FAILED};
    return ApiReply(fd, type, reply, where);
}

}  // namespace tessel
