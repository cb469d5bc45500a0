// Reading default gateways from what `ip` lists.
#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>

#include "core/exec.h"
#include "core/log.h"
#include "core/text.h"
#include "route/clause.h"
#include "route/gateway.h"

using tessel::CallSite;
using tessel::RoutePlace;
using tessel::ToolOutput;

namespace {

// Every line this file runs: the program, then its argument vector.
constexpr char kShow[] = "ip ip %s route show%s default%s";  // "-4" or "-6", " dev NAME" or not, " table N" or not

constexpr char kViaKey[] = "default via ";
constexpr i32 kWordMax = 256;

i32 List(const RoutePlace& place, u16 family, ToolOutput& output, CallSite where) {
    tessel::PlaceClauses clauses;
    tessel::CommandLine command(where);
    if (!tessel::ComposePlace(clauses, place, where) ||
        !tessel::ComposeCommand(command, kShow, tessel::FamilyOption(family), clauses.dev.text, clauses.table.text)) {
        return -1;
    }
    TESSEL_DBG_AT(where, "GetGateWayV%c cmd : %s", family == TESSEL_FAMILY_INET6 ? '6' : '4', command.text);
    return tessel::RunReader(command, output);
}

// The first gateway of the listing; the zero address when there is none.
void ReadGateway(const ToolOutput& output, u16 family, TNetGateway& gateway) {
    gateway = {};
    gateway.wSinFamily = family;
    char word[kWordMax + 1];
    if (strstr(output.text, kViaKey) == nullptr) return;
    if (TesselFindStrMatchHead(output.text, kViaKey, ' ', word, kWordMax) != 0) return;
    word[strcspn(word, "\n")] = '\0';
    (void)inet_pton(family, word, gateway.abyAddr);
}

i32 Read(const RoutePlace& place, u16 family, TNetGateway* gateway, ToolOutput& output, CallSite where) {
    if (gateway == nullptr) {
        TESSEL_ERR_AT(where, "pchIfaceName or ptNetIfaceIp is NULL!");
        return -1;
    }
    const i32 result = List(place, family, output, where);
    if (result == 0) ReadGateway(output, family, *gateway);
    return result;
}

i32 Read(const RoutePlace& place, u16 family, TNetGateway* gateway, CallSite where = CallSite::Current()) {
    ToolOutput output;
    return Read(place, family, gateway, output, where);
}

i32 FirstMetric(const ToolOutput& output) {
    constexpr char kMetricKey[] = "metric ";
    const char* found = strstr(output.text, kMetricKey);
    return found == nullptr ? 0 : atoi(found + strlen(kMetricKey));
}

}  // namespace

i32 GetGateWayV4(const char* pchIfaceName, TNetGateway* ptNetGateway) {
    return Read({.interfaceName = pchIfaceName, .table = {}}, TESSEL_FAMILY_INET, ptNetGateway);
}

i32 GetGateWayV6(const char* pchIfaceName, TNetGateway* ptNetGateway) {
    return Read({.interfaceName = pchIfaceName, .table = {}}, TESSEL_FAMILY_INET6, ptNetGateway);
}

i32 GetGateWayV6Ex(const char* pchIfaceName, TNetGateway* ptNetGateway, u32* pdwExpires) {
    ToolOutput output;
    const RoutePlace place{.interfaceName = pchIfaceName, .table = {}};
    const i32 result = Read(place, TESSEL_FAMILY_INET6, ptNetGateway, output, CallSite::Current());
    if (result == 0 && strstr(output.text, "expires") != nullptr) *pdwExpires = 1;
    return result;
}

i32 GetGateWayV4WithMetric(TNetGatewayMetric* ptNetGatewayMetric) {
    ToolOutput output;
    TNetGatewayMetric& record = *ptNetGatewayMetric;
    const tessel::FieldText name(record.achDevName);
    const RoutePlace place{.interfaceName = name.Get(), .table = {}};
    const i32 result = Read(place, TESSEL_FAMILY_INET, &record.tGateway, output, CallSite::Current());
    if (result != 0) return result;
    // The first metric of the whole listing, whichever route it belongs to, and none where there is no gateway.
    record.nMetric = strstr(output.text, kViaKey) == nullptr ? 0 : FirstMetric(output);
    return 0;
}

i32 CheckGateWay(const char* pchIfaceName, const char* pchGateWay) {
    if (pchIfaceName == nullptr || pchGateWay == nullptr) {
        TESSEL_ERR("pchGateWay NULL!");
        return -1;
    }
    ToolOutput output;
    const RoutePlace place{.interfaceName = pchIfaceName, .table = {}};
    if (List(place, TESSEL_FAMILY_INET6, output, CallSite::Current()) != 0) return -1;
    char word[kWordMax + 1];
    if (TesselFindStrMatchHead(output.text, kViaKey, ' ', word, kWordMax) != 0) {
        TESSEL_ERR("FindStrMatchHead error!");
        TESSEL_ERR("FindStrMatchHead outbuf : %s!", output.text);
        return -1;
    }
    // As part of the word: the gateway "fe80::1" is found in a route through "fe80::12" too.
    if (strstr(word, pchGateWay) == nullptr) return -1;
    TESSEL_PRT("found gateway %s", pchGateWay);
    return 0;
}

i32 GatewayGet(const char* pchIfaceName, u16 wSinFamily, TNetGateway* ptNetGateway) {
    if (wSinFamily == TESSEL_FAMILY_INET) return GetGateWayV4(pchIfaceName, ptNetGateway);
    if (wSinFamily == TESSEL_FAMILY_INET6) {
        u32 expires = 0;
        const i32 result = GetGateWayV6Ex(pchIfaceName, ptNetGateway, &expires);
        return result == 0 && expires != 0 ? static_cast<i32>(TESSEL_RESULT_LEARNT) : result;
    }
    TESSEL_ERR("wSinFamily %d is not suypportted!\n!", wSinFamily);
    return 0;  // clients rely on success here
}

i32 GatewayGetFromTable(const char* pchIfaceName, u16 wSinFamily, TNetGateway* ptNetGateway, u32 dwTable) {
    if (wSinFamily == TESSEL_FAMILY_INET || wSinFamily == TESSEL_FAMILY_INET6) {
        return Read({.interfaceName = pchIfaceName, .table = dwTable}, wSinFamily, ptNetGateway);
    }
    TESSEL_ERR("wSinFamily %d is not suypportted!\n!", wSinFamily);
    return 0;  // clients rely on success here
}
