// Detection of other hosts that use one of our addresses or MACs.
//
// It runs as long as the daemon, with two threads for each family: one announces our addresses, the other listens. The
// commands only switch the reports on and off.
#pragma once

#include <atomic>

#include "core/types.h"

// 1: the family's conflicts are reported.
extern std::atomic<i32> g_nIpv4ConflictReport;
extern std::atomic<i32> g_nIpv6ConflictReport;

// Rounds of announcements that are owed after a reported conflict.
extern std::atomic<i32> g_nConflictConfirmCount;

// 1: an address was added or removed since the last IPv4 announcement.
extern std::atomic<i32> g_nIpChangedFlag;

// Builds the table of interfaces and starts the four threads. 0, or -1 with a log line; what was started before the
// failure keeps running.
i32 ConflictCheckInit();

// Switch the reports of a family, 2 or 10. 0, or -1 with a log line for another family.
[[nodiscard]] i32 ConflictCheckStart(u16 wSinFamily);
[[nodiscard]] i32 ConflictCheckStop(u16 wSinFamily);

namespace tessel {

// An address was added or removed: both families announce theirs in the next cycle.
void NoteAddressChange();

}  // namespace tessel
