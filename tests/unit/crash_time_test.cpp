#include <gtest/gtest.h>

#include <ctime>
#include <string>

#include "sysdbg/local_time.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

std::string BigEndian(std::uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift);
    return bytes;
}

// A zone file of version 1 with a transition for each type but the first.
std::string ZoneFile(const std::vector<std::int32_t>& offsets) {
    const auto types = static_cast<std::uint32_t>(offsets.size());
    const std::uint32_t transitions = types > 0 ? types - 1 : 0;
    std::string file = "TZif" + std::string(16, '\0') + BigEndian(0) + BigEndian(0) + BigEndian(0) +
                       BigEndian(transitions) + BigEndian(types) + BigEndian(0);
    file += std::string(std::size_t{5} * transitions, '\7');
    for (const std::int32_t offset : offsets)
        file += BigEndian(static_cast<std::uint32_t>(offset)) + std::string(2, '\0');
    return file;
}

TEST(CrashTime, OffsetIsThatOfTheZoneFilesLastType) {
    const struct {
        const char* description;
        std::string file;
        std::int32_t expected;
    } rows[] = {
        {"one type", ZoneFile({3600}), 3600},
        {"the last of several, west of UTC", ZoneFile({3600, 7200, -12600}), -12600},
        {"no type", ZoneFile({}), 0},
        {"cut within the last type", ZoneFile({3600, 7200}).substr(0, 44 + 5 + 11), 0},
        {"cut within the header", ZoneFile({3600}).substr(0, 40), 0},
        {"counts beyond the file", ZoneFile({3600}).replace(32, 8, std::string(8, '\xff')), 0},
        {"not a zone file", std::string(100, 'x'), 0},
    };
    for (const auto& row : rows) {
        WriteFile("/tmp/zone", row.file);
        EXPECT_EQ(sysdbg::UtcOffsetSeconds("/tmp/zone"), row.expected) << row.description;
    }
    EXPECT_EQ(sysdbg::UtcOffsetSeconds("/no/such/zone"), 0);
}

TEST(CrashTime, CalendarAgreesWithTheCLibrary) {
    constexpr std::int64_t kStep = 13 * 3600 + 1;
    for (std::int64_t seconds = 0; seconds < 120'000 * kStep; seconds += kStep) {
        const auto reference = static_cast<std::time_t>(seconds);
        if (reference != seconds) break;  // 32-bit time ends here
        std::tm expected{};
        gmtime_r(&reference, &expected);
        const sysdbg::CalendarTime actual = sysdbg::BreakDown(seconds);
        ASSERT_EQ(std::tuple(actual.year, actual.month, actual.day, actual.hour, actual.minute, actual.second),
                  std::tuple(expected.tm_year + 1900, expected.tm_mon + 1, expected.tm_mday, expected.tm_hour,
                             expected.tm_min, expected.tm_sec))
            << seconds;
    }
    EXPECT_EQ(sysdbg::BreakDown(-1).year, 1970);
}

}  // namespace
}  // namespace tessel::test
