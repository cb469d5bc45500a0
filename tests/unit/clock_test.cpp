// The machine's clocks, as far as a sandbox lets anybody reach them.
#include "services/clock.h"

#include <gtest/gtest.h>

#include "tests/support/files.h"

namespace tessel::test {

TEST(Clock, ARefusedHardwareClockIsLogged) {
    const tm utc{};
    EXPECT_EQ(NtpcTimeSyncSysToRtc(&utc), -1);
    EXPECT_TRUE(IsLogged("Open /dev/rtc0 error!"));
    WriteFile("/dev/rtc0", "");
    EXPECT_EQ(NtpcTimeSyncSysToRtc(&utc), -1);
    EXPECT_TRUE(IsLogged("RTC ioctl RTC_SET_TIME error!"));
}

}  // namespace tessel::test
