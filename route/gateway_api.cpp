#include "core/api_reply.h"
#include "core/log.h"
#include "core/text.h"
#include "route/gateway.h"
#include "route/priority_table.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;
using tessel::CallSite;
using tessel::LogKind;

namespace {

using InterfaceField = tessel::FieldText<TESSEL_NAME_SIZE>;

// The interface that a request names; null when it names none.
const char* NameOrNull(const InterfaceField& name, LogKind kind, CallSite where = CallSite::Current()) {
    if (name.IsEmpty()) {
        TESSEL_LOG_AT(kind, where, "the achDevName is empty!");
        return nullptr;
    }
    TESSEL_LOG_AT(kind, where, "the achDevName is %s!", name.Get());
    return name.Get();
}

}  // namespace

i32 ApidGatewaySet(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetGatewaySetReq>(payload, size);
    const InterfaceField name(request.achDevName);
    const std::lock_guard lock(tessel::g_defaultRouteLock);
    const i32 result = GatewaySet(NameOrNull(name, LogKind::kPrint), &request.tGateway, request.dwTable);
    return ApiReplyStatus(fd, type, result, "GatewaySet error!");
}

i32 ApidGatewayDel(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetGatewayReq>(payload, size);
    const InterfaceField name(request.achDevName);
    const std::lock_guard lock(tessel::g_defaultRouteLock);
    const i32 result = GatewayDel(request.wSinFamily, NameOrNull(name, LogKind::kPrint), request.dwTable);
    return ApiReplyStatus(fd, type, result, "GatewaySet error!");  // the setter's words
}

i32 ApidGatewayGet(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetGatewayReq>(payload, size);
    const InterfaceField name(request.achDevName);
    TNetGatewayGetReply reply{};
    const i32 result =
        GatewayGet(NameOrNull(name, LogKind::kDebug), request.wSinFamily, &reply.tGateway, request.dwTable);
    if (result != 0) TESSEL_ERR("GatewayGet error!");  // for a learnt gateway as well
    reply.nResult = result == 0 || result == TESSEL_RESULT_LEARNT ? result : TESSEL_RESULT_FAILED;
    return tessel::ApiReply(fd, type, reply);
}
