#include "route/route.h"

#include "core/exec.h"
#include "core/family.h"
#include "core/log.h"
#include "core/text.h"
#include "route/clause.h"

using tessel::AddressText;
using tessel::CallSite;
using tessel::Clause;
using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::ComposePlace;
using tessel::PlaceClauses;

namespace {

// Every line this file runs: the program, then its argument vector. " -6", " dev NAME", " metric N" (when adding) and
// " table N" are optional.
constexpr char kChange[] = "ip ip%s route %s %s/%d via %s%s%s%s";

// The option for a route's family; null, with a log line, unless both addresses are of the same supported family.
const char* FamilyOption(const TNetIpRouteParam& route, CallSite where) {
    const u16 family = route.tDestIpNet.wSinFamily;
    if (tessel::FindFamily(family) != nullptr && route.tGateway.wSinFamily == family)
        return family == TESSEL_FAMILY_INET6 ? " -6" : "";
    TESSEL_ERR_AT(where, "the tDestIpNet wSinFamily %d is invalid!", family);
    return nullptr;
}

i32 ChangeRoute(const char* verb, const char* interfaceName, const TNetIpRouteParam& route, u32 table,
                const Clause& metric, const char* tableName, CallSite caller) {
    const CallSite where = tessel::NamedFor(table, tableName, caller);
    CommandLine command(where);
    PlaceClauses clauses;
    if (!ComposePlace(clauses, interfaceName, table, where)) return -1;
    const char* const option = FamilyOption(route, where);
    // With two families the line stays empty, and running it fails.
    if (option != nullptr &&
        !ComposeCommand(command, kChange, option, verb, AddressText(route.tDestIpNet).text, route.nPrefixLen,
                        AddressText(route.tGateway).text, clauses.dev.text, metric.text, clauses.table.text)) {
        return -1;
    }
    return tessel::RunChange(command, {.name = caller.function});
}

}  // namespace

i32 OneRouteAdd(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam, u32 dwTable) {
    return ChangeRoute("add", pchIfaceName, *ptNetIpRouteParam, dwTable,
                       tessel::NumberClause("metric", ptNetIpRouteParam->nMetric), "OneRouteAddToTable",
                       CallSite::Current());
}

i32 OneRouteDel(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam, u32 dwTable) {
    return ChangeRoute("del", pchIfaceName, *ptNetIpRouteParam, dwTable, {}, "OneRouteDelFromTable",
                       CallSite::Current());
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
