#include "core/startup/version.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(Version, BannerNeedsRoomForItsTerminator) {
    char banner[256];
    ASSERT_EQ(NetQueryVersion(banner, sizeof(banner)), 0);
    EXPECT_THAT(banner, testing::MatchesRegex(
                            "Tessels Module Version: V2\\.0\\.6\\.4a7a76ab \\(root@.+\\) Build ... .. .... ..:..:.."));
    const u32 length = static_cast<u32>(strlen(banner));
    std::string small(length, 'x');
    EXPECT_EQ(NetQueryVersion(small.data(), length), -1);
    EXPECT_EQ(small, std::string(length, '\0')) << "zeroed all the same";
    EXPECT_EQ(NetQueryVersion(small.data(), length + 1), 0) << "std::string has room for the terminator";
    EXPECT_EQ(NetQueryVersion(nullptr, 256), -1);
}

}  // namespace
