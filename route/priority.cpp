#include "route/priority.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <mutex>

#include "core/log.h"
#include "core/text.h"
#include "route/gateway.h"
#include "route/priority_table.h"

using tessel::CallSite;
using tessel::FieldText;

namespace {

void StoreInterfaces(std::span<const TNetPrioParam> entries, CallSite where) {
    u32 index = 0;
    for (const TNetPrioParam& entry : entries) {
        tessel::StorePriority(index++, entry);
        TESSEL_PRT_AT(where, "interface %s, priority %d", FieldText(entry.achDevName).Get(), entry.nPriority);
    }
}

void ChangeMetric(const TNetPrioParam& wanted, CallSite where) {
    const FieldText wantedName(wanted.achDevName);
    const TNetPrioParamList table = tessel::PriorityTable();
    // Names are compared over the length of the wanted one: "eth" finds "eth0".
    const auto* const found = std::find_if(std::begin(table.atPrio), std::end(table.atPrio), [&](const auto& entry) {
        return strncmp(FieldText(entry.achDevName).Get(), wantedName.Get(), strlen(wantedName.Get())) == 0;
    });
    if (found == std::end(table.atPrio)) {
        TESSEL_ERR_AT(where, "%s not found", wantedName.Get());
        return;
    }
    if (found->achDevName[0] == '\0' || found->nPriority == wanted.nPriority) return;
    TESSEL_PRT_AT(where, "interface %s priority has been changed, from %d to %d", FieldText(found->achDevName).Get(),
                  found->nPriority, wanted.nPriority);
    TNetPrioParam changed = *found;
    changed.nPriority = wanted.nPriority;
    tessel::StorePriority(static_cast<u32>(found - table.atPrio), changed);
}

// A default route that is to receive another metric.
struct Reinstalled {
    TNetGatewayMetric route;
    i32 metric;
};

// True when the interface has a default route with a metric other than the entry's.
bool NeedsMetric(const TNetPrioParam& entry, TNetGatewayMetric& route, CallSite where) {
    route = {};
    memcpy(route.achDevName, entry.achDevName, sizeof(route.achDevName));
    if (entry.achDevName[0] == '\0') return false;
    (void)GetGateWayV4WithMetric(&route);  // after a failure there is no gateway
    constexpr u8 kNoGateway[4] = {};
    if (route.nMetric == entry.nPriority || memcmp(route.tGateway.abyAddr, kNoGateway, sizeof(kNoGateway)) == 0) {
        return false;
    }
    TESSEL_PRT_AT(where, "interface %s exist gateway , old metric %d, new metric %d", FieldText(entry.achDevName).Get(),
                  route.nMetric, entry.nPriority);
    return true;
}

}  // namespace

void PrioritySet(std::span<const TNetPrioParam> entries, CallSite where) {
    if (g_nRoutedetectE == 0 && entries.empty()) {
        TESSEL_ERR_AT(where, "the list is empty!");
        return;
    }
    if (g_nRoutedetectE == 0) {
        StoreInterfaces(entries, where);
        g_nRoutedetectE = 1;
    } else {
        for (const TNetPrioParam& entry : entries)
            ChangeMetric(entry, where);
    }
    (void)ActivePriority();
}

i32 ActivePriority() {
    TESSEL_PRT("active the priority rule");
    const std::lock_guard lock(tessel::g_defaultRouteLock);
    const TNetPrioParamList table = tessel::PriorityTable();
    Reinstalled kept[TESSEL_PRIORITIES_MAX];
    std::size_t count = 0;
    for (const TNetPrioParam& entry : table.atPrio) {
        if (!NeedsMetric(entry, kept[count].route, CallSite::Current())) continue;
        kept[count].metric = entry.nPriority;
        ++count;
    }
    // All of them first: a swap of two metrics would collide with the other interface's route.
    for (const Reinstalled& each : std::span(kept, count)) {
        const FieldText name(each.route.achDevName);
        (void)GatewayDel(TESSEL_FAMILY_INET, name.Get());
        TESSEL_PRT("del original %s gateway", name.Get());
    }
    for (const Reinstalled& each : std::span(kept, count)) {
        const FieldText name(each.route.achDevName);
        (void)GatewaySetV4(name.Get(), &each.route.tGateway);
        TESSEL_PRT("add %s gateway with new metric %d", name.Get(), each.metric);
    }
    return 0;
}
