// Single static routes, in the main table or a numbered one, and their listing.
//
// Every operation returns 0, or -1 or the executor's result with a log line.
#pragma once

#include "core/types.h"
#include "tessel/route.h"

// Add or delete one route. The family is that of destination and gateway; where they differ nothing is run and the
// result is a failure. pchIfaceName is one word, or null: the tool chooses. The name inside the route is not looked at,
// nor the metric when deleting.
[[nodiscard]] i32 OneRouteAdd(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam);
[[nodiscard]] i32 OneRouteAddToTable(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam, u32 dwTable);
[[nodiscard]] i32 OneRouteDel(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam);
[[nodiscard]] i32 OneRouteDelFromTable(const char* pchIfaceName, const TNetIpRouteParam* ptNetIpRouteParam,
                                       u32 dwTable);

// Append the routes of the main table that have a gateway, default routes left out, until the list is full.
[[nodiscard]] i32 AllRoutesGetV4(TNetAllRouteInfo* ptAllRouteInfo);
[[nodiscard]] i32 AllRoutesGetV6(TNetAllRouteInfo* ptAllRouteInfo);

// Family 2, 10, or 11: IPv6 after IPv4, and only if that succeeded. Any other is a success with nothing read.
[[nodiscard]] i32 AllRoutesGet(u16 wSinFamily, TNetAllRouteInfo* ptAllRouteInfo);
