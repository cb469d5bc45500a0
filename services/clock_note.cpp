#include "services/clock_note.h"

#include <cerrno>
#include <cstdio>
#include <mutex>
#include <utility>

namespace {

using tessel::ClockTime;

struct {
    std::mutex mutex;  // guards the rest
    ClockTime now;
    bool fails = false;
    std::vector<std::string> lines;
} g_noted;

// The caller holds the mutex.
bool Note(const char* what, const ClockTime& time) {
    const bool isBelowZero = time.seconds < 0 || time.microseconds < 0;
    const ClockTime size = isBelowZero ? ClockTime{-time.seconds, -time.microseconds} : time;
    char text[64];
    snprintf(text, sizeof(text), "%s %s%lld.%06d", what, isBelowZero ? "-" : "", static_cast<long long>(size.seconds),
             size.microseconds);
    g_noted.lines.emplace_back(text);
    errno = EPERM;
    return !g_noted.fails;
}

}  // namespace

namespace tessel {

void StopClockAt(const ClockTime& time) {
    const std::lock_guard lock(g_noted.mutex);
    g_noted.now = time;
}

void FailClock(bool fails) {
    const std::lock_guard lock(g_noted.mutex);
    g_noted.fails = fails;
}

std::vector<std::string> TakeClockLines() {
    const std::lock_guard lock(g_noted.mutex);
    return std::exchange(g_noted.lines, {});
}

ClockTime ClockNow() {
    const std::lock_guard lock(g_noted.mutex);
    return g_noted.now;
}

bool ClockSet(const ClockTime& time) {
    const std::lock_guard lock(g_noted.mutex);
    const bool isSet = Note("set", time);
    if (isSet) g_noted.now = time;
    return isSet;
}

bool ClockSlew(const ClockTime& gain, ClockTime& notGainedYet) {
    const std::lock_guard lock(g_noted.mutex);
    notGainedYet = {};
    return Note("slew", gain);
}

}  // namespace tessel

i32 NtpcTimeSyncSysToRtc(const tm* utc) {
    char text[64];
    (void)strftime(text, sizeof(text), "rtc %Y-%m-%d %H:%M:%S", utc);
    const std::lock_guard lock(g_noted.mutex);
    g_noted.lines.emplace_back(text);
    return g_noted.fails ? -1 : 0;
}
