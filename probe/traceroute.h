// Traceroute: for each client at most one trace at a time, whose results go to "ipc_traceroute_ID".
#pragma once

#include "core/types.h"
#include "tessel/traceroute.h"

namespace tessel {
class TraceroutePool;
}

// All traces that have not been stopped; null until it is made. It has its own lock.
extern tessel::TraceroutePool* g_ptDaeTraceroute;

// Makes the pool. Without memory there is none, which is logged, and every start fails.
void DaemonTracerouteInit();

// Starts a trace of one id. 0, or -1 with a log line: a trace of that id has not been stopped yet, ten have not, or no
// thread can be started. What goes wrong afterwards is only logged.
[[nodiscard]] i32 TracerouteStart(const TNetGateway& target, u32 maxHops, i32 userId);

// Ends the trace of that id, whatever it waits for, and makes room for another. Always 0, also when there is none.
i32 TracerouteStop(i32 userId);
