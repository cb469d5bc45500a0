#include "core/api_reply.h"
#include "core/log.h"
#include "probe/broadcast_arp.h"
#include "tessel/broadcast_arp.h"

using tessel::ApiReplyStatus;

i32 ApidBroadcastArpStart(int fd, u32 type, const void* payload, i32 size) {
    if (size != sizeof(TNetBroadcastArpReq)) {
        TESSEL_ERR("the size is error!");
        return -1;
    }
    const u32 targetIp = tessel::ApiRequest<TNetBroadcastArpReq>(payload, size).dwTargetIp;
    return ApiReplyStatus(fd, type, BroadcastArpStart(targetIp), "BroadcastArpStart error!");
}

i32 ApidBroadcastArpStop(int fd, u32 type, const void* /*payload*/, i32 size) {
    if (size != 0) {
        TESSEL_ERR("the size is error!");
        return -1;
    }
    return ApiReplyStatus(fd, type, BroadcastArpStop(), "BroadcastArpStop error!");
}
