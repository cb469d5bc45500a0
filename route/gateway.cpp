#include "route/gateway.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "core/exec.h"
#include "core/family.h"
#include "core/log.h"
#include "core/text.h"
#include "route/clause.h"
#include "route/priority_table.h"

using tessel::AddressFamily;
using tessel::AddressText;
using tessel::CallSite;
using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::ComposePlace;
using tessel::NamedFor;
using tessel::PlaceClauses;
using tessel::RunChange;
using tessel::ToolOutput;

namespace {

// Every line this file runs: the program, then its argument vector. " dev NAME" and " table N" are optional.
constexpr char kAddV4[] = "ip ip route add default via %s%s metric %d%s";
constexpr char kAddV6[] = "ip ip -6 route add default via %s%s%s";
constexpr char kReplaceV6[] = "ip ip -6 route replace default via %s%s";
constexpr char kDelV4[] = "ip ip -4 route del default%s%s";
constexpr char kDelV6[] = "ip ip -6 route del default%s%s";
constexpr char kFlushV6[] = "ip ip -6 route flush default%s";  // "del" would need an interface
constexpr char kShow[] = "ip ip %s route show%s default%s";

// The names that lines are logged under, deletions included.
constexpr char kNameV4[] = "GatewaySetV4";
constexpr char kNameV6[] = "GatewaySetV6";

constexpr char kAbsentRoute[] = "No such process";  // what `ip` prints for ESRCH
constexpr u32 kDeleteOutputBytes = 256;

constexpr char kViaKey[] = "default via ";
constexpr char kMetricKey[] = "metric ";
constexpr i32 kWordMax = 256;

bool IsZero(const TNetGateway& gateway) {
    const u8* const end = gateway.abyAddr + (gateway.wSinFamily == TESSEL_FAMILY_INET ? 4 : sizeof(gateway.abyAddr));
    return std::all_of(gateway.abyAddr, end, [](u8 byte) { return byte == 0; });
}

// Lists default routes.
i32 List(const AddressFamily& family, const char* interfaceName, u32 table, ToolOutput& output, CallSite where) {
    PlaceClauses clauses;
    CommandLine command(where);
    if (!ComposePlace(clauses, interfaceName, table, where) ||
        !ComposeCommand(command, kShow, family.option, clauses.dev.text, clauses.table.text)) {
        return -1;
    }
    TESSEL_DBG_AT(where, "GetGateWayV%c cmd : %s", family.code == TESSEL_FAMILY_INET6 ? '6' : '4', command.text);
    return tessel::RunReader(command, output);
}

// Reads the first gateway that is listed; the zero address when there is none.
i32 Read(const AddressFamily& family, const char* interfaceName, u32 table, TNetGateway* gateway, ToolOutput& output,
         CallSite where) {
    if (gateway == nullptr) {
        TESSEL_ERR_AT(where, "pchIfaceName or ptNetIfaceIp is NULL!");
        return -1;
    }
    const i32 result = List(family, interfaceName, table, output, where);
    if (result != 0) return result;
    *gateway = {};
    gateway->wSinFamily = family.code;
    char word[kWordMax + 1];
    if (TesselFindStrMatchHead(output.text, kViaKey, ' ', word, kWordMax) != 0) return 0;
    word[strcspn(word, "\n")] = '\0';
    (void)inet_pton(family.code, word, gateway->abyAddr);
    return 0;
}

}  // namespace

i32 GatewaySet(const char* pchIfaceName, const TNetGateway* ptNetGateway, u32 dwTable) {
    const bool isRemoval = dwTable == 0 && IsZero(*ptNetGateway);
    switch (ptNetGateway->wSinFamily) {
        case TESSEL_FAMILY_INET:
            if (!isRemoval) return GatewaySetV4(pchIfaceName, ptNetGateway, dwTable);
            TESSEL_PRT("remove the ipv4 gateway!");
            return DelGateWayV4(pchIfaceName);
        case TESSEL_FAMILY_INET6:
            if (!isRemoval) return GatewaySetV6(pchIfaceName, ptNetGateway, dwTable);
            TESSEL_PRT("remove the ipv6 gateway!");
            return DelGateWayV6(pchIfaceName);
        default:
            TESSEL_ERR_AT(NamedFor(dwTable, "GatewaySetToTable"), "GatewaySet wSinFamily %d is invalid!",
                          ptNetGateway->wSinFamily);
            return -1;
    }
}

i32 GatewaySetV4(const char* pchIfaceName, const TNetGateway* ptNetGateway, u32 dwTable) {
    const bool hasMetric = pchIfaceName != nullptr && (dwTable != 0 || g_nRoutedetectE != 0);
    const i32 metric = hasMetric ? tessel::MetricOfInterface(pchIfaceName) : 0;
    PlaceClauses clauses;
    CommandLine command(NamedFor(dwTable, "GatewaySetV4ToTable"));
    if (!ComposePlace(clauses, pchIfaceName, dwTable, command.where) ||
        !ComposeCommand(command, kAddV4, AddressText(*ptNetGateway).text, clauses.dev.text, metric,
                        clauses.table.text)) {
        return -1;
    }
    return RunChange(command, {.name = kNameV4});
}

i32 GatewaySetV6(const char* pchIfaceName, const TNetGateway* ptNetGateway, u32 dwTable) {
    const bool isMainTable = dwTable == 0;
    if (isMainTable && pchIfaceName == nullptr) {
        TESSEL_ERR(" pchIfaceName is null!");
        return -1;
    }
    if (isMainTable) TESSEL_PRT("pchIfaceName : %s", pchIfaceName);
    const AddressText gateway(*ptNetGateway);
    PlaceClauses clauses;
    CommandLine command(NamedFor(dwTable, "GatewaySetV6ToTable"));
    if (!ComposePlace(clauses, pchIfaceName, dwTable, command.where)) return -1;
    if (!(isMainTable ? ComposeCommand(command, kReplaceV6, gateway.text, clauses.dev.text)
                      : ComposeCommand(command, kAddV6, gateway.text, clauses.dev.text, clauses.table.text))) {
        return -1;
    }
    if (isMainTable && CheckGateWay(pchIfaceName, gateway.text) == 0) {
        TESSEL_PRT("gateway %s maybe has been configed by ra", gateway.text);
        return 0;
    }
    return RunChange(command, {.name = kNameV6});
}

i32 CheckGateWay(const char* pchIfaceName, const char* pchGateWay) {
    if (pchIfaceName == nullptr || pchGateWay == nullptr) {
        TESSEL_ERR("pchGateWay NULL!");
        return -1;
    }
    ToolOutput output;
    if (List(tessel::kInet6, pchIfaceName, 0, output, CallSite::Current()) != 0) return -1;
    char word[kWordMax + 1];
    if (TesselFindStrMatchHead(output.text, kViaKey, ' ', word, kWordMax) != 0) {
        TESSEL_ERR("FindStrMatchHead error!");
        TESSEL_ERR("FindStrMatchHead outbuf : %s!", output.text);
        return -1;
    }
    // Any part of the word counts: the gateway "fe80::1" is also found in a route through "fe80::12".
    if (strstr(word, pchGateWay) == nullptr) return -1;
    TESSEL_PRT("found gateway %s", pchGateWay);
    return 0;
}

i32 GatewayDel(u16 wSinFamily, const char* pchIfaceName, u32 dwTable) {
    if (wSinFamily == TESSEL_FAMILY_INET) return DelGateWayV4(pchIfaceName, dwTable);
    if (wSinFamily == TESSEL_FAMILY_INET6) return DelGateWayV6(pchIfaceName, dwTable);
    TESSEL_ERR_AT(NamedFor(dwTable, "GatewayDelFromTable"), "the wSinFamily %d is not supportted!", wSinFamily);
    return 0;  // clients rely on success here
}

i32 DelGateWayV4(const char* pchIfaceName, u32 dwTable) {
    PlaceClauses clauses;
    CommandLine command(NamedFor(dwTable, "DelGateWayV4FromTable"));
    if (!ComposePlace(clauses, pchIfaceName, dwTable, command.where) ||
        !ComposeCommand(command, kDelV4, clauses.dev.text, clauses.table.text)) {
        return -1;
    }
    return RunChange(command, {.name = kNameV4});
}

i32 DelGateWayV6(const char* pchIfaceName, u32 dwTable) {
    PlaceClauses clauses;
    CommandLine command(NamedFor(dwTable, "DelGateWayV6FromTable"));
    if (!ComposePlace(clauses, pchIfaceName, dwTable, command.where)) return -1;
    if (!(pchIfaceName != nullptr ? ComposeCommand(command, kDelV6, clauses.dev.text, clauses.table.text)
                                  : ComposeCommand(command, kFlushV6, clauses.table.text))) {
        return -1;
    }
    if (dwTable != 0) return RunChange(command, {.name = kNameV6});
    TESSEL_PRT("%s achCmdBuf: %s", kNameV6, command.text);
    ToolOutput output(kDeleteOutputBytes);
    const i32 result = tessel::Run(command, output);
    if (result == 0) return 0;
    TESSEL_ERR("ExecCmd error!");
    return strstr(output.text, kAbsentRoute) != nullptr ? 0 : result;
}

i32 GatewayGet(const char* pchIfaceName, u16 wSinFamily, TNetGateway* ptNetGateway, u32 dwTable) {
    if (wSinFamily == TESSEL_FAMILY_INET) return GetGateWayV4(pchIfaceName, ptNetGateway, dwTable);
    if (wSinFamily != TESSEL_FAMILY_INET6) {
        TESSEL_ERR_AT(NamedFor(dwTable, "GatewayGetFromTable"), "wSinFamily %d is not suypportted!\n!", wSinFamily);
        return 0;  // clients rely on success here
    }
    if (dwTable != 0) return GetGateWayV6(pchIfaceName, ptNetGateway, dwTable);
    u32 expires = 0;
    const i32 result = GetGateWayV6Ex(pchIfaceName, ptNetGateway, &expires);
    return result == 0 && expires != 0 ? static_cast<i32>(TESSEL_RESULT_LEARNT) : result;
}

i32 GetGateWayV4(const char* pchIfaceName, TNetGateway* ptNetGateway, u32 dwTable) {
    ToolOutput output;
    return Read(tessel::kInet, pchIfaceName, dwTable, ptNetGateway, output, NamedFor(dwTable, "GetGateWayV4FromTable"));
}

i32 tessel::ReadGateWayV6(const char* name, TNetGateway* gateway, u32 table, CallSite where) {
    ToolOutput output;
    return Read(kInet6, name, table, gateway, output, where);
}

i32 GetGateWayV6(const char* pchIfaceName, TNetGateway* ptNetGateway, u32 dwTable) {
    return tessel::ReadGateWayV6(pchIfaceName, ptNetGateway, dwTable, NamedFor(dwTable, "GetGateWayV6FromTable"));
}

i32 GetGateWayV6Ex(const char* pchIfaceName, TNetGateway* ptNetGateway, u32* pdwExpires) {
    ToolOutput output;
    const i32 result = Read(tessel::kInet6, pchIfaceName, 0, ptNetGateway, output, CallSite::Current());
    // Anywhere in the listing, but a route without a gateway has not been learnt from one.
    const bool hasGateway = strstr(output.text, kViaKey) != nullptr;
    if (result == 0 && hasGateway && strstr(output.text, "expires") != nullptr) *pdwExpires = 1;
    return result;
}

i32 GetGateWayV4WithMetric(TNetGatewayMetric* ptNetGatewayMetric) {
    ToolOutput output;
    TNetGatewayMetric& record = *ptNetGatewayMetric;
    const tessel::FieldText name(record.achDevName);
    const i32 result = Read(tessel::kInet, name.Get(), 0, &record.tGateway, output, CallSite::Current());
    if (result != 0) return result;
    // The first metric of the whole listing, whichever route it belongs to, and none where there is no gateway.
    const char* const metric = strstr(output.text, kViaKey) != nullptr ? strstr(output.text, kMetricKey) : nullptr;
    record.nMetric = metric != nullptr ? atoi(metric + strlen(kMetricKey)) : 0;
    return 0;
}
