#include "core/api_reply.h"
#include "core/log.h"
#include "core/text.h"
#include "route/route.h"
#include "route/rule.h"

using tessel::ApiReplyStatus;
using tessel::ApiRequest;
using tessel::CallSite;

namespace {

// What is done to a route: in the main table, in another one, and the text of a failure.
struct RouteOperation {
    i32 (*inMainTable)(const char* interfaceName, const TNetIpRouteParam* route);
    i32 (*inTable)(const char* interfaceName, const TNetIpRouteParam* route, u32 table);
    const char* failure;
};

i32 ChangeRoute(int fd, u32 type, const void* payload, i32 size, const RouteOperation& operation,
                CallSite where = CallSite::Current()) {
    const auto request = ApiRequest<TNetRouteReq>(payload, size);
    const tessel::FieldText field(request.achDevName);
    const char* const name = field.IsEmpty() ? nullptr : field.Get();
    if (name == nullptr) {
        TESSEL_ERR_AT(where, "the pchIfaceName is NULL!");
    } else {
        TESSEL_PRT_AT(where, "the pchIfaceName is %s!", name);
    }
    const TNetIpRouteParam route = request.tRoute;
    const i32 result =
        request.dwTable == 0 ? operation.inMainTable(name, &route) : operation.inTable(name, &route, request.dwTable);
    if (result != 0) TESSEL_ERR_AT(where, "%s", operation.failure);
    return ApiReplyStatus(fd, type, result, nullptr, where);
}

i32 ChangeTable(int fd, u32 type, const void* payload, i32 size, i32 (*operation)(u32 table),
                CallSite where = CallSite::Current()) {
    constexpr u32 kTableMax = 252;  // the kernel has its own above
    const u32 table = ApiRequest<TNetRouteTableReq>(payload, size).dwTable;
    // A warning alone: the tool decides.
    if (table == 0 || table > kTableMax) TESSEL_ERR_AT(where, "the table id %d is invalid!", static_cast<i32>(table));
    const i32 result = operation(table);
    if (result != 0) TESSEL_ERR_AT(where, "OneRouteAdd error!");
    return ApiReplyStatus(fd, type, result, nullptr, where);
}

i32 ChangeRule(int fd, u32 type, const void* payload, i32 size, i32 (*operation)(const TNetIpRule* rule),
               const char* failure, CallSite where = CallSite::Current()) {
    const auto rule = ApiRequest<TNetIpRule>(payload, size);
    const i32 result = operation(&rule);
    if (result != 0) TESSEL_ERR_AT(where, "%s", failure);
    return ApiReplyStatus(fd, type, result, nullptr, where);
}

}  // namespace

i32 ApidOneRouteAdd(int fd, u32 type, const void* payload, i32 size) {
    return ChangeRoute(fd, type, payload, size, {&OneRouteAdd, &OneRouteAddToTable, "OneRouteAdd error!"});
}

i32 ApidOneRouteDel(int fd, u32 type, const void* payload, i32 size) {
    return ChangeRoute(fd, type, payload, size, {&OneRouteDel, &OneRouteDelFromTable, "OneRouteDel error!"});
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

i32 ApidRouteTableAdd(int fd, u32 type, const void* payload, i32 size) {
    return ChangeTable(fd, type, payload, size, &RouteTableAdd);
}

i32 ApidRouteTableDel(int fd, u32 type, const void* payload, i32 size) {
    return ChangeTable(fd, type, payload, size, &RouteTableDel);
}

i32 ApidIpRuleAdd(int fd, u32 type, const void* payload, i32 size) {
    return ChangeRule(fd, type, payload, size, &IpRuleAdd, "IpRuleAdd error!");
}

i32 ApidIpRuleDel(int fd, u32 type, const void* payload, i32 size) {
    return ChangeRule(fd, type, payload, size, &IpRuleDel, "IpRuleDel error!");
}
