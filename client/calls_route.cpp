// Gateways, uplink priorities, routes, tables and rules.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "client/call.h"
#include "client/libtessel.h"
#include "client/request_fields.h"
#include "core/text.h"

using tessel::Call;
using tessel::CallForStatus;
using tessel::CallWithRecords;
using tessel::IsFamily;
using tessel::IsFamilyOrBoth;
using tessel::PrefixLengthMax;
using tessel::StoreName;
using tessel::StoreOptionalName;

namespace {

// The daemon writes table numbers with a sign.
constexpr u32 kTableMax = 0x7fffffff;

bool IsZero(const TNetGateway& gateway) {
    return std::all_of(gateway.abyAddr, gateway.abyAddr + sizeof(gateway.abyAddr), [](u8 byte) { return byte == 0; });
}

bool IsPrefixLength(i32 length, int family) {
    return length >= 0 && static_cast<u32>(length) <= PrefixLengthMax(family);
}

bool IsSendable(const TNetIpRouteParam& route) {
    const u16 family = route.tDestIpNet.wSinFamily;
    return IsFamily(family) && route.tGateway.wSinFamily == family && IsPrefixLength(route.nPrefixLen, family) &&
           route.nMetric >= 0;
}

// Leaving out the number that ends these requests means the main table.
template <typename Request>
int CallForTable(u32 code, Request& request, u32 table) {
    if (table > kTableMax) return TESSEL_E_ARGUMENT;
    request.dwTable = table;
    return CallForStatus(code, request, table == 0 ? offsetof(Request, dwTable) : sizeof(request));
}

int ChangeRoute(u32 code, const char* interface, const TNetIpRouteParam* route, u32 table) {
    TNetRouteReq request{};
    if (route == nullptr || !IsSendable(*route) || !StoreOptionalName(request.achDevName, interface)) {
        return TESSEL_E_ARGUMENT;
    }
    request.tRoute = *route;
    return CallForTable(code, request, table);
}

int ChangeTable(u32 code, u32 table) {
    if (table == 0 || table > kTableMax) return TESSEL_E_ARGUMENT;
    const TNetRouteTableReq request{.dwTable = table};
    return CallForStatus(code, request);
}

int ChangeRule(u32 code, const TNetIpRule* rule) {
    if (rule == nullptr || rule->tSrcIpNet.wSinFamily != TESSEL_FAMILY_INET ||
        !IsPrefixLength(rule->nPrefixLen, TESSEL_FAMILY_INET) || rule->nPref < 0 || rule->nTable < 0 ||
        rule->nFwmark < 0) {
        return TESSEL_E_ARGUMENT;
    }
    return CallForStatus(code, *rule);
}

bool IsNamedTwice(const TNetPrioParamList& list, u32 index) {
    const TNetPrioParam* const end = list.atPrio + index;
    return std::any_of(list.atPrio, end, [&](const TNetPrioParam& earlier) {
        return memcmp(earlier.achDevName, end->achDevName, sizeof(end->achDevName)) == 0;
    });
}

}  // namespace

int tessel_gateway_get(const char* interface, int family, uint32_t table, TNetGateway* gateway, int* learnt) {
    TNetGatewayReq request{};
    if (gateway == nullptr || !IsFamily(family) || table > kTableMax ||
        !StoreOptionalName(request.achDevName, interface)) {
        return TESSEL_E_ARGUMENT;
    }
    request.wSinFamily = static_cast<u16>(family);
    request.dwTable = table;
    TNetGatewayGetReply reply{};
    const std::size_t size = table == 0 ? offsetof(TNetGatewayReq, dwTable) : sizeof(request);
    const int error = CallWithRecords(TESSEL_CMD_GATEWAY_GET, request, reply, size);
    const bool isLearnt = error == TESSEL_E_FAILED && reply.nResult == TESSEL_RESULT_LEARNT;
    if (error != TESSEL_OK && !isLearnt) return error;
    *gateway = reply.tGateway;
    if (learnt != nullptr) *learnt = isLearnt ? 1 : 0;
    return TESSEL_OK;
}

int tessel_gateway_set(const char* interface, const TNetGateway* gateway, uint32_t table) {
    TNetGatewaySetReq request{};
    if (gateway == nullptr || !IsFamily(gateway->wSinFamily) || IsZero(*gateway) ||
        !StoreOptionalName(request.achDevName, interface)) {
        return TESSEL_E_ARGUMENT;
    }
    request.tGateway = *gateway;
    return CallForTable(TESSEL_CMD_GATEWAY_SET, request, table);
}

int tessel_gateway_del(const char* interface, int family, uint32_t table) {
    TNetGatewayReq request{};
    if (!IsFamily(family) || !StoreOptionalName(request.achDevName, interface)) return TESSEL_E_ARGUMENT;
    request.wSinFamily = static_cast<u16>(family);
    return CallForTable(TESSEL_CMD_GATEWAY_DEL, request, table);
}

int tessel_priority_get(TNetPrioParamList* list) {
    if (list == nullptr) return TESSEL_E_ARGUMENT;
    TNetPrioParamList reply;
    const int error = Call(TESSEL_CMD_PRIORITY_GET, nullptr, 0, &reply, sizeof(reply));
    if (error == TESSEL_OK) *list = reply;
    return error;
}

int tessel_priority_set(const TNetPrioParamList* list) {
    if (list == nullptr || list->dwNum == 0 || list->dwNum > TESSEL_PRIORITIES_MAX) return TESSEL_E_ARGUMENT;
    TNetPrioParamList request{};
    request.dwNum = list->dwNum;
    for (u32 i = 0; i < list->dwNum; ++i) {
        const tessel::FieldText name(list->atPrio[i].achDevName);
        if (!StoreName(request.atPrio[i].achDevName, name.Get()) || list->atPrio[i].nPriority < 0 ||
            IsNamedTwice(request, i)) {
            return TESSEL_E_ARGUMENT;
        }
        request.atPrio[i].nPriority = list->atPrio[i].nPriority;
    }
    return CallForStatus(TESSEL_CMD_PRIORITY_SET, request);
}

int tessel_route_get_all(int family, TNetAllRouteInfo* list) {
    if (list == nullptr || !IsFamilyOrBoth(family)) return TESSEL_E_ARGUMENT;
    const TNetRouteGetAllReq request{.wSinFamily = static_cast<u16>(family)};
    TNetRouteGetAllReply reply;
    const int error = CallWithRecords(TESSEL_CMD_ROUTE_GET_ALL, request, reply);
    if (error != TESSEL_OK) return error;
    *list = reply.tRoutes;
    list->dwNum = std::min<u32>(list->dwNum, TESSEL_ROUTES_MAX);
    return TESSEL_OK;
}

int tessel_route_add(const char* interface, const TNetIpRouteParam* route, uint32_t table) {
    return ChangeRoute(TESSEL_CMD_ROUTE_ADD, interface, route, table);
}

int tessel_route_del(const char* interface, const TNetIpRouteParam* route, uint32_t table) {
    return ChangeRoute(TESSEL_CMD_ROUTE_DEL, interface, route, table);
}

int tessel_route_metric_set(const TNetIpRouteParam* route) {
    if (route == nullptr || !IsSendable(*route)) return TESSEL_E_ARGUMENT;
    return CallForStatus(TESSEL_CMD_ROUTE_METRIC_SET, *route);
}

int tessel_route_table_add(uint32_t table) {
    return ChangeTable(TESSEL_CMD_ROUTE_TABLE_ADD, table);
}

int tessel_route_table_del(uint32_t table) {
    return ChangeTable(TESSEL_CMD_ROUTE_TABLE_DEL, table);
}

int tessel_rule_add(const TNetIpRule* rule) {
    if (rule == nullptr || rule->nTable == 0) return TESSEL_E_ARGUMENT;
    return ChangeRule(TESSEL_CMD_RULE_ADD, rule);
}

int tessel_rule_del(const TNetIpRule* rule) {
    return ChangeRule(TESSEL_CMD_RULE_DEL, rule);
}
