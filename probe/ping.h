// Ping: the device's `ping` tool is run once for each echo, and what it prints is reported to the client that asked.
//
// Ten clients are served at a time, each under a user id of its own and by a worker of its own. A session ends with its
// last echo, or when it is stopped; one that cannot continue (an unknown family, no process available) reports nothing
// more and must be stopped.
#pragma once

#include "core/exec.h"
#include "core/types.h"
#include "tessel/ping.h"

namespace tessel {
class PingPool;
}

// The sessions; null until they are made. They have their own lock.
extern tessel::PingPool* g_ptDaePing;

// Makes the pool. Without memory there is none, which is logged, and every start fails.
void DaemonPingInit();

// Starts `count` echoes to the target (family 2 or 10): packets with `packetSize` data bytes, at least 56, and this
// time to live, `timeout` seconds to wait for the reply of each. 0, or -1 with a log line: the user has a session
// already, or ten users have.
[[nodiscard]] i32 PingStart(const TNetGateway* target, u32 packetSize, u32 timeout, u32 ttl, u32 count, i32 userId);

// Ends a user's session and the tool that runs for it; nothing is reported afterwards. Always 0.
i32 PingStop(i32 userId);

// Reads time to live and time from what the tool printed about a reply. 0, or -1 with a log line when one of them is
// missing or the time is not within 100 seconds.
[[nodiscard]] i32 PingBufToMsg(const char* output, TNetPingResult* result);

namespace tessel {

// The line of one echo to a target of family 2 or 10; fewer than 56 data bytes count as 56. False, with a log line,
// when it is too long.
[[nodiscard]] bool ComposePing(CommandLine& command, const TNetPingStartReq& ping);

// How an echo ended, by what the tool printed: TESSEL_PING_...
[[nodiscard]] u32 PingClass(const char* output);

}  // namespace tessel
