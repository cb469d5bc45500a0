#include "services/clock.h"

#include <fcntl.h>
#include <linux/rtc.h>
#include <sys/ioctl.h>
#include <sys/time.h>

#include "core/log.h"
#include "core/unique_fd.h"

namespace tessel {

namespace {

timeval Timeval(const ClockTime& time) {
    return {.tv_sec = static_cast<time_t>(time.seconds), .tv_usec = time.microseconds};
}

ClockTime FromTimeval(const timeval& time) {
    return {.seconds = time.tv_sec, .microseconds = static_cast<i32>(time.tv_usec)};
}

}  // namespace

ClockTime ClockNow() {
    timeval now{};
    (void)gettimeofday(&now, nullptr);  // fails only for bad addresses
    return FromTimeval(now);
}

bool ClockSet(const ClockTime& time) {
    const timeval wanted = Timeval(time);
    return settimeofday(&wanted, nullptr) == 0;
}

bool ClockSlew(const ClockTime& gain, ClockTime& notGainedYet) {
    const timeval wanted = Timeval(gain);
    timeval former{};
    if (adjtime(&wanted, &former) != 0) return false;
    notGainedYet = FromTimeval(former);
    return true;
}

}  // namespace tessel

i32 NtpcTimeSyncSysToRtc(const tm* utc) {
    constexpr char kDevice[] = "/dev/rtc0";
    static_assert(RTC_SET_TIME == 0x4024700A, "the same on every processor that the daemon runs on");
    const tessel::UniqueFd device(open(kDevice, O_RDWR | O_CLOEXEC | O_NONBLOCK));
    if (!device.IsOpen()) {
        TESSEL_ERR("Open %s error!", kDevice);
        return -1;
    }
    const rtc_time time{.tm_sec = utc->tm_sec,
                        .tm_min = utc->tm_min,
                        .tm_hour = utc->tm_hour,
                        .tm_mday = utc->tm_mday,
                        .tm_mon = utc->tm_mon,
                        .tm_year = utc->tm_year,
                        .tm_wday = utc->tm_wday,
                        .tm_yday = utc->tm_yday,
                        .tm_isdst = utc->tm_isdst};
    if (ioctl(device.Get(), RTC_SET_TIME, &time) != 0) {
        TESSEL_ERR("RTC ioctl RTC_SET_TIME error!");
        return -1;
    }
    return 0;
}
