// Bringing both clocks to a time that a server gave. All return 0, or -1 with a log line.
#pragma once

#include <atomic>
#include <ctime>

#include "core/types.h"
#include "services/clock.h"

// Whether the fields are those of a time from 2000 to 2037.
[[nodiscard]] i32 NtpcTimeCheck(const tm* time);

// Steps the system clock to the time, which lies within the local years 2000 to 2037, and sets the hardware clock to
// it.
[[nodiscard]] i32 NtpcSetTime(const tessel::ClockTime& time);

namespace tessel {

// How often NtpcSetTime has stepped the system clock. Times from before and after a step tell no difference.
extern std::atomic<u32> g_clockSteps;

// Lets the system clock gain `offset` little by little and sets the hardware clock to `time`, checked as above.
[[nodiscard]] i32 _ntpc_adj_time(const ClockTime& time, const ClockTime& offset);

}  // namespace tessel
