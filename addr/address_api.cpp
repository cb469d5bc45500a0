#include "addr/address.h"
#include "addr/address_change.h"
#include "core/api_reply.h"
#include "core/ipc.h"
#include "core/log.h"
#include "core/text.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;
using tessel::FieldText;

i32 ApidIpaddrAdd(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIpaddrChangeReq>(payload, size);
    const i32 result = IpaddrAdd(FieldText(request.achDevName).Get(), &request.tIp);
    return ApiReplyStatus(fd, type, result, "IpaddrAdd error!");
}

i32 ApidIpaddrDel(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIpaddrChangeReq>(payload, size);
    const i32 result = IpaddrDel(FieldText(request.achDevName).Get(), &request.tIp);
    return ApiReplyStatus(fd, type, result, "IpaddrDel error!");
}

i32 ApidIpaddrFlush(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIpaddrFlushReq>(payload, size);
    const i32 result = IpaddrFlush(FieldText(request.achDevName).Get(), request.wSinFamily);
    if (result != 0) TESSEL_ERR("IpaddrFlush error!");
    TESSEL_ERR("IpaddrFlush nErrid : %d", result == 0 ? 0 : -1);  // at error level even for success
    return ApiReplyStatus(fd, type, result);
}

i32 ApidIpaddrSet(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIpaddrSetReq>(payload, size);
    const std::size_t listEnd =
        offsetof(TNetIpaddrSetReq, tIfaceIp.atIp) + tessel::AddressesOf(request.tIfaceIp).size_bytes();
    // What is missing from a list that was cut short would be removed from the interface.
    if (static_cast<std::size_t>(size) < listEnd) {
        TESSEL_ERR("the size is error:size=%d", size);
        return ApiReplyStatus(fd, type, -1);
    }
    const i32 result = IpaddrSet(FieldText(request.achDevName).Get(), request.wSinFamily, &request.tIfaceIp);
    return ApiReplyStatus(fd, type, result, "IpaddrSet error!");
}

i32 ApidIpaddrGet(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIpaddrGetReq>(payload, size);
    TNetIpaddrGetReply reply{};
    if (IpaddrGet(FieldText(request.achDevName).Get(), request.wSinFamily, &reply.tIfaceIp) != 0) {
        TESSEL_ERR("IpaddrGet error!");
        reply.nResult = TESSEL_RESULT_FAILED;
    }
    return tessel::ApiReply(fd, type, reply);
}

i32 apid_ipaddr_show_filter(int fd, u32 type, const void* payload, i32 size) {
    if (size != sizeof(TNetIpaddrShowReq)) {
        TESSEL_ERR("the size is error:size=%d", size);
        return -1;
    }
    const auto request = ApiRequest<TNetIpaddrShowReq>(payload, size);
    TNetIpaddrShowReply reply{};
    if (ipaddr_show_filter(FieldText(request.achDevName).Get(), &reply.tInfo) != 0) {
        TESSEL_ERR("api_ipaddr_show_filter error!");
        reply.nResult = TESSEL_RESULT_FAILED;
    }
    // A reply that times out is not logged here, unlike everywhere else.
    if (IpcApiSendMsg(fd, type, &reply, sizeof(reply), 0) >= 0) return 0;
    TESSEL_ERR("send msg error!");
    return -1;
}
