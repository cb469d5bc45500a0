// The machine's clocks. Nothing else in the daemon touches them. Tests link services/clock_note.cpp instead of
// clock.cpp.
#pragma once

#include <ctime>

#include "core/types.h"

namespace tessel {

// A time since 1970, or a difference of times, both parts of which then have its sign. 64 bits even where time_t has
// 32.
struct ClockTime {
    i64 seconds = 0;
    i32 microseconds = 0;
};

[[nodiscard]] ClockTime ClockNow();

// Steps the system clock to a time that time_t holds. False with errno.
[[nodiscard]] bool ClockSet(const ClockTime& time);

// Makes the system clock run faster or slower until it has gained `gain`, and stores what an earlier call had not yet
// gained. False with errno.
[[nodiscard]] bool ClockSlew(const ClockTime& gain, ClockTime& notGainedYet);

}  // namespace tessel

// Sets the hardware clock, "/dev/rtc0", to a broken-down time, which is UTC. 0, or -1 with a log line.
[[nodiscard]] i32 NtpcTimeSyncSysToRtc(const tm* utc);
