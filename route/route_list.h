// The static routes of the main table, as the `ip` tool prints them.
//
// The readers append to the list, at most 10 entries in all, and never clear it. They return 0, or -1 or the executor's
// result with a log line.
#pragma once

#include "core/types.h"
#include "tessel/route.h"

// Append the routes that have a gateway, default routes left out.
[[nodiscard]] i32 AllRoutesGetV4(TNetAllRouteInfo* ptAllRouteInfo);
[[nodiscard]] i32 AllRoutesGetV6(TNetAllRouteInfo* ptAllRouteInfo);

// Family 2, 10, or 11: IPv6 after IPv4, and only if that succeeded. Any other is a success with nothing read.
[[nodiscard]] i32 AllRoutesGet(u16 wSinFamily, TNetAllRouteInfo* ptAllRouteInfo);
