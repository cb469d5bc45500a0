// The machine's clocks, as far as a sandbox lets anybody reach them.
#include "services/clock.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "tests/support/files.h"

namespace tessel::test {
namespace {

TEST(Clock, IsReadAndAHardwareClockThatIsNoneIsRefused) {
    EXPECT_NEAR(static_cast<double>(ClockNow().seconds), static_cast<double>(time(nullptr)), 2);
    const tm utc{};
    EXPECT_EQ(NtpcTimeSyncSysToRtc(&utc), -1);
    EXPECT_TRUE(IsLogged("Open /dev/rtc0 error!"));
    WriteFile("/dev/rtc0", "");
    EXPECT_EQ(NtpcTimeSyncSysToRtc(&utc), -1);
    EXPECT_TRUE(IsLogged("RTC ioctl RTC_SET_TIME error!"));
    remove("/dev/rtc0");
}

}  // namespace
}  // namespace tessel::test
