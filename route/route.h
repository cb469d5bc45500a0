// Single static routes.
//
// pchIfaceName is one word, or null: the tool chooses. dwTable 0 is the main table. Every operation returns 0, or -1 or
// the executor's result with a log line.
#pragma once

#include "core/types.h"
#include "tessel/route.h"

// Add or delete one route. The family is that of destination and gateway; if they differ, nothing is run and the result
// is a failure. The name inside the route is ignored, and so is the metric when deleting.
[[nodiscard]] i32 OneRouteAdd(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam, u32 dwTable = 0);
[[nodiscard]] i32 OneRouteDel(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam, u32 dwTable = 0);

// Gives one route of the main table its metric: deletes the route and adds it again, both on the record's interface, if
// it names one. A route that cannot be deleted is not added.
[[nodiscard]] i32 RouteMetricSet(const TNetIpRouteParam* ptNetIpRouteParam);

// The names under which the same operations are known for a numbered table.
inline constexpr auto& OneRouteAddToTable = OneRouteAdd;
inline constexpr auto& OneRouteDelFromTable = OneRouteDel;
