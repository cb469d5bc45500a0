#include "addr/address.h"
#include "addr/address_change.h"
#include "core/api_reply.h"
#include "core/ipc.h"
#include "core/log.h"
#include "core/text.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;
using tessel::CallSite;
using tessel::FieldText;

namespace {

using AddressOperation = i32 (*)(const char* interfaceName, const TNetIpAddr* entry);

i32 Change(int fd, u32 type, const void* payload, i32 size, AddressOperation operation, const char* failure,
           CallSite where = CallSite::Current()) {
    const auto request = ApiRequest<TNetIpaddrChangeReq>(payload, size);
    const TNetIpAddr entry = request.tIp;
    const i32 result = operation(FieldText(request.achDevName).Get(), &entry);
    if (result != 0) TESSEL_ERR_AT(where, "%s", failure);
    return ApiReplyStatus(fd, type, result, nullptr, where);
}

}  // namespace

i32 ApidIpaddrAdd(int fd, u32 type, const void* payload, i32 size) {
    return Change(fd, type, payload, size, &IpaddrAdd, "IpaddrAdd error!");
}

i32 ApidIpaddrDel(int fd, u32 type, const void* payload, i32 size) {
    return Change(fd, type, payload, size, &IpaddrDel, "IpaddrDel error!");
}

i32 ApidIpaddrFlush(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIpaddrFlushReq>(payload, size);
    const i32 result = IpaddrFlush(FieldText(request.achDevName).Get(), request.wSinFamily);
    if (result != 0) TESSEL_ERR("IpaddrFlush error!");
    TESSEL_ERR("IpaddrFlush nErrid : %d", result == 0 ? 0 : -1);  // at error level whatever came of it
    return ApiReplyStatus(fd, type, result);
}

i32 ApidIpaddrSet(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetIpaddrSetReq>(payload, size);
    const TNetIfaceIp list = request.tIfaceIp;
    const i32 result = IpaddrSet(FieldText(request.achDevName).Get(), request.wSinFamily, &list);
    if (result != 0) TESSEL_ERR("IpaddrSet error!");
    return ApiReplyStatus(fd, type, result);
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
