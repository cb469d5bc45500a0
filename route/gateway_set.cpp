// Setting and deleting default gateways.
#include <algorithm>
#include <cstring>
#include <iterator>

#include "core/exec.h"
#include "core/log.h"
#include "route/clause.h"
#include "route/gateway.h"
#include "route/priority_table.h"

using tessel::CallSite;
using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::ComposePlace;
using tessel::FamilyOption;
using tessel::GatewayText;
using tessel::PlaceClauses;
using tessel::RoutePlace;
using tessel::RunChange;

namespace {

// Every line this file runs: the program, then its argument vector. " dev NAME" and " table N" are there or not.
constexpr char kAddV4[] = "ip ip route add default via %s%s metric %d%s";
constexpr char kAddV6[] = "ip ip -6 route add default via %s%s%s";
constexpr char kReplaceV6[] = "ip ip -6 route replace default via %s%s";
constexpr char kDel[] = "ip ip %s route del default%s%s";
constexpr char kFlushV6[] = "ip ip -6 route flush default%s";  // "del" would need an interface

// The names that lines are logged under, deletions included.
constexpr char kNameV4[] = "GatewaySetV4";
constexpr char kNameV6[] = "GatewaySetV6";

constexpr char kAbsentRoute[] = "No such process";  // what `ip` prints for ESRCH
constexpr u32 kDeleteOutputBytes = 256;

bool IsZero(const TNetGateway& gateway) {
    const u8* const end = gateway.abyAddr + (gateway.wSinFamily == TESSEL_FAMILY_INET ? 4 : sizeof(gateway.abyAddr));
    return std::all_of(gateway.abyAddr, end, [](u8 byte) { return byte == 0; });
}

i32 AddV4(const RoutePlace& place, const TNetGateway& gateway, i32 metric, CallSite where) {
    PlaceClauses clauses;
    CommandLine command(where);
    if (!ComposePlace(clauses, place, where) ||
        !ComposeCommand(command, kAddV4, GatewayText(gateway).text, clauses.dev.text, metric, clauses.table.text)) {
        return -1;
    }
    return RunChange(command, {.name = kNameV4});
}

bool ComposeDelete(CommandLine& command, u16 family, const RoutePlace& place, CallSite where) {
    PlaceClauses clauses;
    if (!ComposePlace(clauses, place, where)) return false;
    if (family == TESSEL_FAMILY_INET6 && place.interfaceName == nullptr) {
        return ComposeCommand(command, kFlushV6, clauses.table.text);
    }
    return ComposeCommand(command, kDel, FamilyOption(family), clauses.dev.text, clauses.table.text);
}

i32 Delete(u16 family, const RoutePlace& place, CallSite where = CallSite::Current()) {
    CommandLine command(where);
    if (!ComposeDelete(command, family, place, where)) return -1;
    return RunChange(command, {.name = family == TESSEL_FAMILY_INET6 ? kNameV6 : kNameV4});
}

}  // namespace

i32 GatewaySetV4(const char* pchIfaceName, const TNetGateway* ptNetGateway) {
    const bool hasMetric = g_nRoutedetectE != 0 && pchIfaceName != nullptr;
    const i32 metric = hasMetric ? tessel::MetricOfInterface(pchIfaceName) : 0;
    return AddV4({.interfaceName = pchIfaceName, .table = {}}, *ptNetGateway, metric, CallSite::Current());
}

i32 GatewaySetV4ToTable(const char* pchIfaceName, const TNetGateway* ptNetGateway, u32 dwTable) {
    // Unlike in the main table the metric is there with priority routing switched off too.
    const i32 metric = pchIfaceName != nullptr ? tessel::MetricOfInterface(pchIfaceName) : 0;
    return AddV4({.interfaceName = pchIfaceName, .table = dwTable}, *ptNetGateway, metric, CallSite::Current());
}

i32 GatewaySetV6(const char* pchIfaceName, const TNetGateway* ptNetGateway) {
    if (pchIfaceName == nullptr) {
        TESSEL_ERR(" pchIfaceName is null!");
        return -1;
    }
    TESSEL_PRT("pchIfaceName : %s", pchIfaceName);
    const GatewayText gateway(*ptNetGateway);
    PlaceClauses clauses;
    CommandLine command;
    if (!ComposePlace(clauses, {.interfaceName = pchIfaceName, .table = {}}, CallSite::Current()) ||
        !ComposeCommand(command, kReplaceV6, gateway.text, clauses.dev.text)) {
        return -1;
    }
    if (CheckGateWay(pchIfaceName, gateway.text) == 0) {
        TESSEL_PRT("gateway %s maybe has been configed by ra", gateway.text);
        return 0;
    }
    return RunChange(command, {.name = kNameV6});
}

i32 GatewaySetV6ToTable(const char* pchIfaceName, const TNetGateway* ptNetGateway, u32 dwTable) {
    PlaceClauses clauses;
    CommandLine command;
    if (!ComposePlace(clauses, {.interfaceName = pchIfaceName, .table = dwTable}, CallSite::Current()) ||
        !ComposeCommand(command, kAddV6, GatewayText(*ptNetGateway).text, clauses.dev.text, clauses.table.text)) {
        return -1;
    }
    return RunChange(command, {.name = kNameV6});
}

i32 GatewaySet(const char* pchIfaceName, const TNetGateway* ptNetGateway) {
    switch (ptNetGateway->wSinFamily) {
        case TESSEL_FAMILY_INET:
            if (!IsZero(*ptNetGateway)) return GatewaySetV4(pchIfaceName, ptNetGateway);
            TESSEL_PRT("remove the ipv4 gateway!");
            return DelGateWayV4(pchIfaceName);
        case TESSEL_FAMILY_INET6:
            if (!IsZero(*ptNetGateway)) return GatewaySetV6(pchIfaceName, ptNetGateway);
            TESSEL_PRT("remove the ipv6 gateway!");
            return DelGateWayV6(pchIfaceName);
        default:
            TESSEL_ERR("GatewaySet wSinFamily %d is invalid!", ptNetGateway->wSinFamily);
            return -1;
    }
}

i32 GatewaySetToTable(const char* pchIfaceName, const TNetGateway* ptNetGateway, u32 dwTable) {
    switch (ptNetGateway->wSinFamily) {
        case TESSEL_FAMILY_INET:
            return GatewaySetV4ToTable(pchIfaceName, ptNetGateway, dwTable);
        case TESSEL_FAMILY_INET6:
            return GatewaySetV6ToTable(pchIfaceName, ptNetGateway, dwTable);
        default:
            TESSEL_ERR("GatewaySet wSinFamily %d is invalid!", ptNetGateway->wSinFamily);
            return -1;
    }
}

i32 DelGateWayV4(const char* pchIfaceName) {
    return Delete(TESSEL_FAMILY_INET, {.interfaceName = pchIfaceName, .table = {}});
}

i32 DelGateWayV6(const char* pchIfaceName) {
    CommandLine command;
    const RoutePlace place{.interfaceName = pchIfaceName, .table = {}};
    if (!ComposeDelete(command, TESSEL_FAMILY_INET6, place, CallSite::Current())) return -1;
    TESSEL_PRT("%s achCmdBuf: %s", kNameV6, command.text);
    tessel::ToolOutput output(kDeleteOutputBytes);
    const i32 result = tessel::Run(command, output);
    if (result == 0) return 0;
    TESSEL_ERR("ExecCmd error!");
    return strstr(output.text, kAbsentRoute) != nullptr ? 0 : result;
}

i32 GatewayDel(u16 wSinFamily, const char* pchIfaceName) {
    if (wSinFamily == TESSEL_FAMILY_INET) return DelGateWayV4(pchIfaceName);
    if (wSinFamily == TESSEL_FAMILY_INET6) return DelGateWayV6(pchIfaceName);
    TESSEL_ERR("the wSinFamily %d is not supportted!", wSinFamily);
    return 0;  // clients rely on success here
}

i32 GatewayDelFromTable(u16 wSinFamily, const char* pchIfaceName, u32 dwTable) {
    if (wSinFamily == TESSEL_FAMILY_INET || wSinFamily == TESSEL_FAMILY_INET6) {
        return Delete(wSinFamily, {.interfaceName = pchIfaceName, .table = dwTable});
    }
    TESSEL_ERR("the wSinFamily %d is not supportted!", wSinFamily);
    return 0;  // clients rely on success here
}
