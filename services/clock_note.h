// What would be done to the machine's clocks: for programs that link services/clock_note.cpp in place of
// services/clock.cpp.
#pragma once

#include <string>
#include <vector>

#include "services/clock.h"

namespace tessel {

// The noted clock stands still until it is set by this or by ClockSet.
void StopClockAt(const ClockTime& time);

// Makes everything that changes a clock fail from now on, after it has been noted, or succeed again.
void FailClock(bool fails);

// What was done since the last call, in order: "set 1700000000.250000", "slew -0.300000", "rtc 2023-11-14 22:13:20".
// Any thread may do it.
[[nodiscard]] std::vector<std::string> TakeClockLines();

}  // namespace tessel
