#include "route/route.h"

#include "core/exec.h"
#include "core/log.h"
#include "route/clause.h"

using tessel::CallSite;
using tessel::Clause;
using tessel::CommandLine;
using tessel::ComposeCommand;
using tessel::GatewayText;
using tessel::PlaceClauses;
using tessel::RoutePlace;

namespace {

// The line this file runs for a change: the program, then its argument vector. " -6", " dev NAME", " metric N" and
// " table N" are there or not.
constexpr char kChange[] = "ip ip%s route %s %s/%d via %s%s%s%s";

// True when both addresses are of one family that is served.
bool IsOfOneFamily(const TNetIpRouteParam& route, CallSite where) {
    const u16 family = route.tDestIpNet.wSinFamily;
    if ((family == TESSEL_FAMILY_INET || family == TESSEL_FAMILY_INET6) && route.tGateway.wSinFamily == family) {
        return true;
    }
    TESSEL_ERR_AT(where, "the tDestIpNet wSinFamily %d is invalid!", family);
    return false;
}

// What is done to a route.
struct Action {
    const char* word;
    const char* logName;  // whatever the table
    bool namesMetric;
};
constexpr Action kAdd{.word = "add", .logName = "OneRouteAdd", .namesMetric = true};
constexpr Action kDel{.word = "del", .logName = "OneRouteDel", .namesMetric = false};

i32 Change(const Action& action, const RoutePlace& place, const TNetIpRouteParam& route,
           CallSite where = CallSite::Current()) {
    CommandLine command(where);
    PlaceClauses clauses;
    if (!tessel::ComposePlace(clauses, place, where)) return -1;
    const Clause metric = action.namesMetric ? tessel::NumberClause("metric", route.nMetric) : Clause{};
    const char* const option = route.tDestIpNet.wSinFamily == TESSEL_FAMILY_INET6 ? " -6" : "";
    // With two families the line stays empty, and running that is the failure.
    if (IsOfOneFamily(route, where) &&
        !ComposeCommand(command, kChange, option, action.word, GatewayText(route.tDestIpNet).text, route.nPrefixLen,
                        GatewayText(route.tGateway).text, clauses.dev.text, metric.text, clauses.table.text)) {
        return -1;
    }
    return tessel::RunChange(command, {.name = action.logName});
}

}  // namespace

i32 OneRouteAdd(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam) {
    return Change(kAdd, {.interfaceName = pchIfaceName, .table = {}}, *ptNetIpRouteParam);
}

i32 OneRouteAddToTable(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam, u32 dwTable) {
    return Change(kAdd, {.interfaceName = pchIfaceName, .table = dwTable}, *ptNetIpRouteParam);
}

i32 OneRouteDel(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam) {
    return Change(kDel, {.interfaceName = pchIfaceName, .table = {}}, *ptNetIpRouteParam);
}

i32 OneRouteDelFromTable(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam, u32 dwTable) {
    return Change(kDel, {.interfaceName = pchIfaceName, .table = dwTable}, *ptNetIpRouteParam);
}
