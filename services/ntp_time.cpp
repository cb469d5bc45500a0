#include "services/ntp_time.h"

#include <climits>

#include "core/log.h"

using tessel::ClockTime;

namespace {

// In local time. What 32 bits cannot hold is outside the accepted years and stays an impossible time: 1900 without a
// day.
tm LocalTime(i64 seconds) {
    tm local{};
    if (seconds < 0 || seconds > INT32_MAX) return local;
    const auto time = static_cast<time_t>(seconds);
    (void)localtime_r(&time, &local);
    return local;
}

i32 SetHardwareClock(const ClockTime& time) {
    const auto seconds = static_cast<time_t>(time.seconds);
    tm utc{};
    (void)gmtime_r(&seconds, &utc);
    return NtpcTimeSyncSysToRtc(&utc);
}

bool IsWithin(int value, int least, int most) {
    return value >= least && value <= most;
}

}  // namespace

i32 NtpcTimeCheck(const tm* time) {
    if (time == nullptr) {
        TESSEL_ERR("NtpcTimeCheck param is null.");
        return -1;
    }
    if (!IsWithin(time->tm_year, 2000 - 1900, 2037 - 1900)) {
        TESSEL_ERR("Input  param is invalidate(year:2000-2037).");
        return -1;
    }
    if (!IsWithin(time->tm_mon, 0, 11)) {
        TESSEL_ERR("Input  param is invalidate(monthy:1-12).");
        return -1;
    }
    if (!IsWithin(time->tm_mday, 1, 31)) {
        TESSEL_ERR("Input  param is invalidate(day:1-31).");
        return -1;
    }
    if (!IsWithin(time->tm_hour, 0, 23)) {
        TESSEL_ERR("Input  param is invalidate(hour:0-23).");
        return -1;
    }
    if (!IsWithin(time->tm_min, 0, 59)) {
        TESSEL_ERR("Input  param is invalidate(minute:0-59).");
        return -1;
    }
    if (!IsWithin(time->tm_sec, 0, 59)) {
        TESSEL_ERR("Input  param is invalidate(second:0-59).");
        return -1;
    }
    return 0;
}

std::atomic<u32> tessel::g_clockSteps{0};

i32 NtpcSetTime(const ClockTime& time) {
    const tm local = LocalTime(time.seconds);
    if (NtpcTimeCheck(&local) != 0) return -1;
    if (!ClockSet(time)) {
        TESSEL_PERROR("sync time fail\n");
        return -1;
    }
    ++tessel::g_clockSteps;
    if (SetHardwareClock(time) != 0) {
        TESSEL_ERR("sync to rtc fail");
        return -1;
    }
    return 0;
}

namespace tessel {

i32 _ntpc_adj_time(const ClockTime& time, const ClockTime& offset) {
    const tm local = LocalTime(time.seconds);
    if (NtpcTimeCheck(&local) != 0) return -1;
    ClockTime former;
    if (!ClockSlew(offset, former)) {
        TESSEL_PERROR("adjtime failed.");
        return -1;
    }
    TESSEL_PRT("offset.sec = %d, offset.usec = %d, olddelta.sec = %d, olddelta.usec = %d ",
               static_cast<i32>(offset.seconds), offset.microseconds, static_cast<i32>(former.seconds),
               former.microseconds);
    return SetHardwareClock(time);
}

}  // namespace tessel
