#include "addr/address_api.h"

#include "addr/address.h"
#include "core/api_reply.h"
#include "core/ipc.h"
#include "core/log.h"
#include "core/text.h"

using tessel::ApiRequest;
using tessel::FieldText;

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
