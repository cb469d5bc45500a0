// Traffic statistics: the bandwidth of eth0, eth1 and eth2 in each period, sent to TESSEL_SOCKET_STAT.
#pragma once

#include <cstdio>

#include "core/call_site.h"
#include "core/types.h"
#include "stat/net_dev.h"
#include "tessel/traffic.h"

// "/proc/net/dev" while it is read, else null. Guarded by the mutex of statistics.
extern std::FILE* g_fpNetDev;

// Starts sampling every `interval` seconds (1 and more). While a former start samples, also when it was asked to stop
// and has not noticed yet, it goes on with its own interval. 0, or -1 with a log line.
[[nodiscard]] i32 stat_start(u32 interval);

// Lets sampling end with the period that runs, which is still reported. Returns 0.
[[nodiscard]] i32 stat_stop();

namespace tessel {

// The rates between two samples `interval` seconds apart, logged in the caller's name.
[[nodiscard]] TNetBandwidthReport BandwidthBetween(const CounterSample& previous, const CounterSample& current,
                                                   u32 interval, CallSite where = CallSite::Current());

}  // namespace tessel
