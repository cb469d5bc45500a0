#include "route/route.h"

#include "core/exec.h"
#include "core/family.h"
#include "core/log.h"
#include "core/text.h"
#include "route/clause.h"

using tessel::AddressText;
using tessel::CallSite;
using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::ComposePlace;
using tessel::PlaceClauses;

namespace {

// Every line this file runs: the program, then its argument vector. " -6", " dev NAME" and " table N" are there or not.
constexpr char kAdd[] = "ip ip%s route add %s/%d via %s%s metric %d%s";
constexpr char kDel[] = "ip ip%s route del %s/%d via %s%s%s";

// The option for a route's family; null, with a log line, unless both addresses are of one family that is served.
const char* FamilyOption(const TNetIpRouteParam& route, CallSite where = CallSite::Current()) {
    const u16 family = route.tDestIpNet.wSinFamily;
    if (tessel::FindFamily(family) != nullptr && route.tGateway.wSinFamily == family)
        return family == TESSEL_FAMILY_INET6 ? " -6" : "";
    TESSEL_ERR_AT(where, "the tDestIpNet wSinFamily %d is invalid!", family);
    return nullptr;
}

}  // namespace

i32 OneRouteAdd(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam, u32 dwTable) {
    const TNetIpRouteParam& route = *ptNetIpRouteParam;
    CommandLine command;
    PlaceClauses clauses;
    if (!ComposePlace(clauses, pchIfaceName, dwTable, CallSite::Current())) return -1;
    const char* const option = FamilyOption(route);
    // With two families the line stays empty, and running that is the failure.
    if (option != nullptr &&
        !ComposeCommand(command, kAdd, option, AddressText(route.tDestIpNet).text, route.nPrefixLen,
                        AddressText(route.tGateway).text, clauses.dev.text, route.nMetric, clauses.table.text)) {
        return -1;
    }
    return tessel::RunChange(command);
}

i32 OneRouteDel(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam, u32 dwTable) {
    const TNetIpRouteParam& route = *ptNetIpRouteParam;
    CommandLine command;
    PlaceClauses clauses;
    if (!ComposePlace(clauses, pchIfaceName, dwTable, CallSite::Current())) return -1;
    const char* const option = FamilyOption(route);
    if (option != nullptr &&
        !ComposeCommand(command, kDel, option, AddressText(route.tDestIpNet).text, route.nPrefixLen,
                        AddressText(route.tGateway).text, clauses.dev.text, clauses.table.text)) {
        return -1;
    }
    return tessel::RunChange(command);
}

i32 RouteMetricSet(const TNetIpRouteParam* ptNetIpRouteParam) {
    if (ptNetIpRouteParam == nullptr) {
        TESSEL_ERR("ptNetIpRouteParam is NULL!");
        return -1;
    }
    const tessel::FieldText name(ptNetIpRouteParam->achDevName);
    const char* const interfaceName = name.IsEmpty() ? nullptr : name.Get();
    i32 result = OneRouteDel(interfaceName, ptNetIpRouteParam);
    if (result != 0) {
        TESSEL_ERR("OneRouteDel error!");
        return result;
    }
    result = OneRouteAdd(interfaceName, ptNetIpRouteParam);
    if (result != 0) TESSEL_ERR("OneRouteAdd error!");
    return result;
}
