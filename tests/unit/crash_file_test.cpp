// The report writer: its two files, their limit, its format, and its time.
#include <unistd.h>

#include <ctime>

#include "sysdbg/format.h"
#include "sysdbg/local_time.h"
#include "sysdbg/sysdbg.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

constexpr char kCrashFile[] = "/tmp/crash";
constexpr char kCurrent[] = "/tmp/crash.0";
constexpr char kPrevious[] = "/tmp/crash.1";

class CrashFile : public testing::Test {
  protected:
    CrashFile() {
        umask(0);
        // SIGURG does nothing by default and nobody sends it here.
        EXPECT_EQ(SysdbgInitSignal(SIGURG, nullptr, kCrashFile, 4, kSysdbgNoDebugThread), 0);
        RemoveFiles();
    }
    static void RemoveFiles() {
        for (const char* path : {kCurrent, kPrevious})
            std::filesystem::remove(path);
    }
};

TEST_F(CrashFile, RotatesAtExactlyItsLimit) {
    EXPECT_EQ(log_file_limit, 2U) << "half of what both files may take";
    const std::string justBelow(2047, 'a');
    WriteFile(kCurrent, justBelow);
    SysdbgReport("%s", "b");
    EXPECT_EQ(ReadFile(kCurrent), justBelow + "b");
    SysdbgReport("%s", "c");
    EXPECT_EQ(ReadFile(kCurrent), "c");
    EXPECT_EQ(ReadFile(kPrevious), justBelow + "b");
    EXPECT_EQ(std::filesystem::status(kPrevious).permissions(), std::filesystem::perms{0666});
    // The previous generation is replaced, and has whole pieces up to their first NUL.
    WriteFile(kCurrent, std::string(10, '1') + '\0' + std::string(1013, '1') + std::string(1024, '2') + "3");
    SysdbgReport("%s|", std::string(1022, 'x').c_str());
    EXPECT_EQ(ReadFile(kPrevious), std::string(10, '1') + std::string(1024, '2'));
    SysdbgReport("%s", std::string(5000, 'y').c_str());
    EXPECT_EQ(ReadFile(kCurrent), std::string(1022, 'x') + "|" + std::string(1023, 'y')) << "cut at the buffer's end";
}

TEST_F(CrashFile, EnvironmentSetsTheLimitAtEveryWrite) {
    for (const char* limit : {"1", "2", "0", "-1", "1x", "", "99999999999"}) {
        WriteFile(kCurrent, std::string(1024, 'a'));
        setenv("SYSDBG_LOG_LIMIT", limit, 1);
        SysdbgReport("b");
        EXPECT_EQ(ReadFile(kCurrent).size(), limit == "1"s ? 1U : 1025U) << limit;
    }
    unsetenv("SYSDBG_LOG_LIMIT");
}

// Where somebody else has put something, reports go to standard output.
TEST_F(CrashFile, NothingButItsOwnFilesAreWritten) {
    const std::string full(2048, 'k');
    const std::pair<const char*, bool (*)(const char* path)> rows[] = {
        {"a link", [](const char* path) { return symlink("/tmp/precious", path) == 0; }},
        {"another name", [](const char* path) { return link("/tmp/precious", path) == 0; }},
        {"another user's",
         [](const char* path) { return rename("/tmp/precious", path) == 0 && chown(path, 1000, 1000) == 0; }},
    };
    for (const auto& [description, put] : rows) {
        WriteFile("/tmp/precious", full);
        if (!put(kCurrent)) GTEST_SKIP() << "there is no other user in this namespace";
        testing::internal::CaptureStdout();
        SysdbgReport("report");
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "report") << description;
        EXPECT_EQ(ReadFile(kCurrent), full) << description;
        EXPECT_FALSE(std::filesystem::exists(kPrevious)) << description;
        RemoveFiles();

        WriteFile("/tmp/precious", "kept");
        WriteFile(kCurrent, full);
        EXPECT_TRUE(put(kPrevious));
        SysdbgReport("report");
        EXPECT_EQ(ReadFile(kCurrent), "report") << description;
        EXPECT_EQ(ReadFile(kPrevious), "kept") << description;
        RemoveFiles();
    }
}

TEST_F(CrashFile, NamesAndLogPathAreTakenWhenTheyFit) {
    const std::string longest(125, 'n');
    WriteFile("/tmp/log", "");
    for (const auto& [name, expected] : {std::pair{longest, longest + ".1"}, {longest + "n", ""s}}) {
        EXPECT_EQ(SysdbgInitSignal(SIGURG, "/tmp/log", name.c_str(), 0, kSysdbgNoDebugThread), 0);
        EXPECT_EQ(__crushdump_file[1], expected);
    }
    EXPECT_STREQ(sysdbg_log_file, "/tmp/log");
    EXPECT_EQ(log_file_limit, 2U) << "no limit given: as it was";
    EXPECT_EQ(SysdbgInitSignal(SIGURG, "/no/such/log", kCrashFile, 0, kSysdbgNoDebugThread), 0);
    EXPECT_STREQ(sysdbg_log_file, "");
}

// The C library is the reference.
#define FORMATTED_BY(format, text)                                                                           \
    format(text, sizeof(text), "%04d-%02d|%d|%d %05d %5d %zd %ld %u %lx %p %p %%", 2026, 1, -5, 0, -12, -12, \
           ssize_t{-1}, std::numeric_limits<long>::min(), ~0U, ~0UL, reinterpret_cast<void*>(0xabcdef01), nullptr)

TEST(CrashFormat, FollowsPrintf) {
    char expected[200];
    char actual[200];
    FORMATTED_BY(snprintf, expected);
    FORMATTED_BY(sysdbg::FormatText, actual);
    EXPECT_STREQ(actual, expected);
}

// A zone file of version 1 with so many types, whose last one has this offset, and transitions.
std::string ZoneFile(char types, const std::string& lastOffset, char transitions) {
    return "TZif" + std::string(28, '\0') + "\0\0\0"s + transitions + "\0\0\0"s + types + std::string(4, '\0') +
           std::string(5U * static_cast<unsigned>(transitions) + 6U * static_cast<unsigned>(types - 1), '\7') +
           lastOffset + "\0\0"s;
}

TEST(CrashTime, OffsetIsThatOfTheZoneFilesLastType) {
    const std::string east = "\0\0\x0e\x10"s;
    const std::tuple<const char*, std::string, std::int32_t> rows[] = {
        {"one type", ZoneFile(1, east, 0), 3600},
        {"the last of several, west of UTC", ZoneFile(3, "\xff\xff\xce\xc8", 2), -12600},
        {"no type", ZoneFile(1, east, 0).replace(39, 1, 1, '\0'), 0},
        {"cut within the last type", ZoneFile(2, east, 1).substr(0, 44 + 5 + 11), 0},
        {"cut within the header", ZoneFile(1, east, 0).substr(0, 40), 0},
        {"counts beyond the file", ZoneFile(1, east, 0).replace(32, 8, std::string(8, '\xff')), 0},
        {"not a zone file", std::string(100, 'x'), 0},
    };
    for (const auto& [description, file, expected] : rows) {
        WriteFile("/tmp/zone", file);
        EXPECT_EQ(sysdbg::UtcOffsetSeconds("/tmp/zone"), expected) << description;
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
        const auto [year, month, day, hour, minute, second] = sysdbg::BreakDown(seconds);
        ASSERT_EQ(std::tuple(year - 1900, month - 1, day, hour, minute, second),
                  std::tuple(expected.tm_year, expected.tm_mon, expected.tm_mday, expected.tm_hour, expected.tm_min,
                             expected.tm_sec))
            << seconds;
    }
    EXPECT_EQ(sysdbg::BreakDown(-1).year, 1970);
}

}  // namespace
}  // namespace tessel::test
