// Which uplink is preferred: interface priorities as the metrics of IPv4 default routes.
#pragma once

#include "core/types.h"
#include "tessel/priority.h"
#include "tessel/route.h"

// Takes a list, of which the first 10 entries count, and gives existing default routes their metrics. The first list
// since the start fixes the interfaces; a later entry changes the first of them whose name begins with the entry's.
void PrioritySet(const TNetPrioParamList& list);

// Installs each IPv4 default route again whose metric is not its interface's. Returns 0.
i32 ActivePriority();

// Gives one static route its metric: deletes the route and adds it again, both on the record's interface, if it names
// one. Returns 0, or the executor's result; a route that cannot be deleted is not added.
[[nodiscard]] i32 RouteMetricSet(const TNetIpRouteParam* ptNetIpRouteParam);
