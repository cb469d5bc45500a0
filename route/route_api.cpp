#include "core/api_reply.h"
#include "core/log.h"
#include "core/text.h"
#include "route/route.h"
#include "route/route_list.h"
#include "route/rule.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;
using tessel::CallSite;

namespace {

using InterfaceField = tessel::FieldText<TESSEL_NAME_SIZE>;

// The interface that a request names; null when it names none.
const char* NameOrNull(const InterfaceField& name, CallSite where = CallSite::Current()) {
    if (name.IsEmpty()) {
        TESSEL_ERR_AT(where, "the pchIfaceName is NULL!");
        return nullptr;
    }
    TESSEL_PRT_AT(where, "the pchIfaceName is %s!", name.Get());
    return name.Get();
}

// Above these are the kernel's own tables. Only a warning: the tool decides.
void WarnOfTable(u32 table, CallSite where = CallSite::Current()) {
    constexpr u32 kTableMax = 252;
    if (table == 0 || table > kTableMax) TESSEL_ERR_AT(where, "the table id %d is invalid!", static_cast<i32>(table));
}

}  // namespace

i32 ApidOneRouteAdd(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetRouteReq>(payload, size);
    const InterfaceField name(request.achDevName);
    const i32 result = OneRouteAdd(NameOrNull(name), &request.tRoute, request.dwTable);
    return ApiReplyStatus(fd, type, result, "OneRouteAdd error!");
}

i32 ApidOneRouteDel(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetRouteReq>(payload, size);
    const InterfaceField name(request.achDevName);
    const i32 result = OneRouteDel(NameOrNull(name), &request.tRoute, request.dwTable);
    return ApiReplyStatus(fd, type, result, "OneRouteDel error!");
}

i32 ApidAllRouteGet(int fd, u32 type, const void* payload, i32 size) {
    const auto request = ApiRequest<TNetRouteGetAllReq>(payload, size);
    TNetRouteGetAllReply reply{};
    if (AllRoutesGet(request.wSinFamily, &reply.tRoutes) != 0) {
        TESSEL_ERR("AllRoutesGet error!");
        reply.nResult = TESSEL_RESULT_FAILED;
    }
    return tessel::ApiReply(fd, type, reply);
}

i32 ApidRouteMetricSet(int fd, u32 type, const void* payload, i32 size) {
    const auto route = ApiRequest<TNetIpRouteParam>(payload, size);
    return ApiReplyStatus(fd, type, RouteMetricSet(&route), "RouteMetricSet error!");
}

i32 ApidRouteTableAdd(int fd, u32 type, const void* payload, i32 size) {
    const u32 table = ApiRequest<TNetRouteTableReq>(payload, size).dwTable;
    WarnOfTable(table);
    return ApiReplyStatus(fd, type, RouteTableAdd(table), "OneRouteAdd error!");
}

i32 ApidRouteTableDel(int fd, u32 type, const void* payload, i32 size) {
    const u32 table = ApiRequest<TNetRouteTableReq>(payload, size).dwTable;
    WarnOfTable(table);
    return ApiReplyStatus(fd, type, RouteTableDel(table), "OneRouteAdd error!");  // the adder's words
}

i32 ApidIpRuleAdd(int fd, u32 type, const void* payload, i32 size) {
    const auto rule = ApiRequest<TNetIpRule>(payload, size);
    return ApiReplyStatus(fd, type, IpRuleAdd(&rule), "IpRuleAdd error!");
}

i32 ApidIpRuleDel(int fd, u32 type, const void* payload, i32 size) {
    const auto rule = ApiRequest<TNetIpRule>(payload, size);
    return ApiReplyStatus(fd, type, IpRuleDel(&rule), "IpRuleDel error!");
}
