// The broadcast ARP announcer: every few minutes it asks everybody behind eth0 for an address that an application
// chose, which makes the device's own addresses known there.
#pragma once

#include "core/types.h"

namespace tessel {
class Worker;
}

// Starts the announcer, of which there is at most one, with the address to ask for (network byte order). While it runs,
// another start changes nothing and is a success. 0, or -1 with a log line.
[[nodiscard]] i32 BroadcastArpStart(u32 targetIp);

// Ends it, even within a burst. 0, also when none runs, or -1 with a log line when it does not end.
[[nodiscard]] i32 BroadcastArpStop();

// One burst on interface "eth%d": three frames with its current address and MAC, and a second after each. 0, or -1 with
// a log line, or without one when the worker was asked to end meanwhile.
[[nodiscard]] i32 SendBroadcastArp(i32 ethernetNumber, u32 targetIp, const tessel::Worker& self);

namespace tessel {

// How many seconds to wait from one burst to the next: 180 to 240, at random. Changes `seed`.
[[nodiscard]] unsigned BroadcastArpGap(unsigned& seed);

}  // namespace tessel
