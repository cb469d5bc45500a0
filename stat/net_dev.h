// Reading the counters of interfaces from "/proc/net/dev".
#pragma once

#include <cstdio>

#include "core/types.h"
#include "tessel/traffic.h"

namespace tessel {

struct ByteCounters {
    u64 received;
    u64 sent;
    bool isThere;  // the interface has a line
};

// Those of eth0, eth1 and eth2.
struct CounterSample {
    ByteCounters interfaces[TESSEL_TRAFFIC_INTERFACES];
};

// Reads the file from its beginning, in any of the three forms that kernels give it: without byte counters (they read
// as 0), with them, and with counters of compressed packets beside them. A name counts by its first four characters:
// "eth0.5" is taken for eth0, and the last one that matches wins.
[[nodiscard]] CounterSample ReadCounters(std::FILE* file);

}  // namespace tessel
