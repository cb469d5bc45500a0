// The metrics that the interfaces' IPv4 default routes are to carry.
//
// Read by the netlink monitor's thread while the server's writes: every function holds the table's lock while it
// copies.
#pragma once

#include <atomic>
#include <mutex>

#include "core/types.h"
#include "tessel/priority.h"

// Not 0: priority routing is on. The first priority list switches it on, nothing switches it off.
extern std::atomic<i32> g_nRoutedetectE;

// The metric of the last entry with exactly this name; 0 when there is none, -1 while priority routing is off.
[[nodiscard]] i32 PriorityMetricGet(const char* pchIfaceName);

namespace tessel {

// The same, whether priority routing is on or off.
[[nodiscard]] i32 MetricOfInterface(const char* interfaceName);

// Held while default routes are replaced, and by requests that set or delete one: what a thread has looked at must not
// change before it deletes or adds. Taken before the table's lock, never after it.
extern std::mutex g_defaultRouteLock;

// A copy of the table; positions without a name are zero. dwNum counts the others.
[[nodiscard]] TNetPrioParamList PriorityTable();

// Puts an entry at a position below TESSEL_PRIORITIES_MAX. What the sender left after the name's NUL is not kept, nor
// anything of an entry without a name.
void StorePriority(u32 index, const TNetPrioParam& entry);

}  // namespace tessel
