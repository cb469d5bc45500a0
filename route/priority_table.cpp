#include "route/priority_table.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <mutex>

#include "core/text.h"

std::atomic<i32> g_nRoutedetectE{0};

namespace {

std::mutex g_prioParamLock;
TNetPrioParam g_tNetPrioParam[TESSEL_PRIORITIES_MAX];

}  // namespace

namespace tessel {

std::mutex g_defaultRouteLock;

TNetPrioParamList PriorityTable() {
    TNetPrioParamList list{};
    {
        const std::lock_guard lock(g_prioParamLock);
        memcpy(list.atPrio, g_tNetPrioParam, sizeof(g_tNetPrioParam));
    }
    list.dwNum =
        static_cast<u32>(std::count_if(std::begin(list.atPrio), std::end(list.atPrio),
                                       [](const TNetPrioParam& entry) { return entry.achDevName[0] != '\0'; }));
    return list;
}

void StorePriority(u32 index, const TNetPrioParam& entry) {
    TNetPrioParam stored{};
    if (entry.achDevName[0] != '\0') {
        memcpy(stored.achDevName, entry.achDevName, strnlen(entry.achDevName, sizeof(entry.achDevName)));
        stored.nPriority = entry.nPriority;
    }
    const std::lock_guard lock(g_prioParamLock);
    g_tNetPrioParam[index] = stored;
}

i32 MetricOfInterface(const char* interfaceName) {
    i32 metric = 0;
    for (const TNetPrioParam& entry : PriorityTable().atPrio) {
        const FieldText name(entry.achDevName);
        if (!name.IsEmpty() && strcmp(name.Get(), interfaceName) == 0) metric = entry.nPriority;
    }
    return metric;
}

}  // namespace tessel

i32 PriorityMetricGet(const char* pchIfaceName) {
    return g_nRoutedetectE == 0 ? -1 : tessel::MetricOfInterface(pchIfaceName);
}
