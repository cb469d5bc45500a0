#include "core/api_reply.h"
#include "core/log.h"
#include "core/text.h"
#include "route/gateway.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;
using tessel::CallSite;
using tessel::FieldText;
using tessel::LogKind;

namespace {

using InterfaceField = FieldText<TESSEL_NAME_SIZE>;

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
    const InterfaceField field(request.achDevName);
    const char* const name = NameOrNull(field, LogKind::kPrint);
    const TNetGateway gateway = request.tGateway;
    const i32 result =
        request.dwTable == 0 ? GatewaySet(name, &gateway) : GatewaySetToTable(name, &gateway, request.dwTable);
    if (result != 0) TESSEL_ERR("GatewaySet error!");
    return ApiReplyStatus(fd, type, result);
}

i32 ApidGatewayDel(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetGatewayReq>(payload, size);
    const InterfaceField field(request.achDevName);
    const char* const name = NameOrNull(field, LogKind::kPrint);
    const u16 family = request.wSinFamily;
    const i32 result =
        request.dwTable == 0 ? GatewayDel(family, name) : GatewayDelFromTable(family, name, request.dwTable);
    if (result != 0) TESSEL_ERR("GatewaySet error!");  // the setter's words
    return ApiReplyStatus(fd, type, result);
}

i32 ApidGatewayGet(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetGatewayReq>(payload, size);
    const InterfaceField field(request.achDevName);
    const char* const name = NameOrNull(field, LogKind::kDebug);
    const u16 family = request.wSinFamily;
    TNetGateway gateway{};
    const i32 result = request.dwTable == 0 ? GatewayGet(name, family, &gateway)
                                            : GatewayGetFromTable(name, family, &gateway, request.dwTable);
    if (result != 0) TESSEL_ERR("GatewayGet error!");  // for a learnt gateway as well
    const bool isAnswer = result == 0 || result == TESSEL_RESULT_LEARNT;
    return tessel::ApiReply(fd, type, TNetGatewayGetReply{.nResult = isAnswer ? result : -1, .tGateway = gateway});
}
