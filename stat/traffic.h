// Traffic statistics: the bandwidth of eth0, eth1 and eth2 in each period, sent to TESSEL_SOCKET_STAT.
#pragma once

#include <cstdio>

#include "core/call_site.h"
#include "core/types.h"
#include "stat/net_dev.h"
#include "tessel/traffic.h"

// "/proc/net/dev" while it is read, else null. Guarded by the mutex of statistics.
extern std::FILE* g_fpNetDev;

// Starts sampling every `interval` seconds (1 and more). While an earlier start still samples, even if it was asked to
// stop but has not noticed yet, it continues with its own interval. 0, or -1 with a log line.
[[nodiscard]] i32 stat_start(u32 interval);

// Ends sampling with the current period, which is still reported. Returns 0.
[[nodiscard]] i32 stat_stop();

namespace tessel {

// The rates between two samples `interval` seconds apart, logged in the caller's name.
[[nodiscard]] TNetBandwidthReport BandwidthBetween(const CounterSample& previous, const CounterSample& current,
                                                   u32 interval, CallSite where = CallSite::Current());

}  // namespace tessel
