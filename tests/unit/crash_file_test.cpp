// The report writer: its two files, their limit, and its format.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>

#include "sysdbg/format.h"
#include "tests/unit/crash_child.h"

namespace tessel::test {
namespace {

constexpr char kCurrent[] = "/tmp/crash.0";
constexpr char kPrevious[] = "/tmp/crash.1";

class CrashFile : public testing::Test {
  protected:
    CrashFile() {
        unsetenv("SYSDBG_LOG_LIMIT");
        umask(0);
        // SIGURG does nothing by default and nobody sends it here.
        EXPECT_EQ(SysdbgInitSignal(SIGURG, nullptr, kCrashFile, 4, kSysdbgNoDebugThread), 0);
        for (const char* path : {kCurrent, kPrevious})
            std::filesystem::remove(path);
    }
    ~CrashFile() override {
        unsetenv("SYSDBG_LOG_LIMIT");
    }
};

TEST_F(CrashFile, RotatesAtExactlyItsLimit) {
    EXPECT_EQ(log_file_limit, 2U) << "half of what both files may take";
    const std::string justBelow(2047, 'a');
    WriteFile(kCurrent, justBelow);
    SysdbgReport("%s", "b");
    EXPECT_EQ(ReadFile(kCurrent), justBelow + "b");
    EXPECT_FALSE(std::filesystem::exists(kPrevious));

    SysdbgReport("%s", "c");
    EXPECT_EQ(ReadFile(kCurrent), "c");
    EXPECT_EQ(ReadFile(kPrevious), justBelow + "b");
    struct stat file {};
    EXPECT_EQ(stat(kPrevious, &file), 0);
    EXPECT_EQ(file.st_mode & 0777U, 0666U);
}

TEST_F(CrashFile, PreviousGenerationHasWholePiecesUpToTheirFirstNul) {
    WriteFile(kPrevious, std::string(9000, 'o'));
    std::string full = std::string(1024, '1') + std::string(100, '2') + '\0' + std::string(923, '2') +
                       std::string(1024, '3') + std::string(1023, '4');
    WriteFile(kCurrent, full);
    SysdbgReport("new");
    EXPECT_EQ(ReadFile(kPrevious), std::string(1024, '1') + std::string(100, '2') + std::string(1024, '3'));
    EXPECT_EQ(ReadFile(kCurrent), "new");
}

TEST_F(CrashFile, EnvironmentSetsTheLimitAtEveryWrite) {
    const struct {
        const char* environment;
        bool isRotated;
    } rows[] = {{"1", true},   {"2", false}, {"0", false},          {"-1", false},
                {"1x", false}, {"", false},  {"99999999999", false}};
    for (const auto& row : rows) {
        WriteFile(kCurrent, std::string(1024, 'a'));
        setenv("SYSDBG_LOG_LIMIT", row.environment, 1);
        SysdbgReport("b");
        EXPECT_EQ(ReadFile(kCurrent).size(), row.isRotated ? 1U : 1025U) << row.environment;
    }
}

// Where somebody else has put something, reports go to standard output.
TEST_F(CrashFile, NothingButItsOwnFilesAreWritten) {
    const std::string full(2048, 'k');
    const std::pair<const char*, void (*)(const char* path)> rows[] = {
        {"a link", [](const char* path) { std::filesystem::create_symlink("/tmp/precious", path); }},
        {"another name", [](const char* path) { std::filesystem::create_hard_link("/tmp/precious", path); }},
        {"another user's", [](const char* path) { rename("/tmp/precious", path), (void)!chown(path, 1000, 1000); }},
    };
    for (const auto& [description, put] : rows) {
        WriteFile("/tmp/precious", full);
        put(kCurrent);
        struct stat status {};
        if (put == rows[2].second && stat(kCurrent, &status) == 0 && status.st_uid == 0)
            continue;  // no other user here
        testing::internal::CaptureStdout();
        SysdbgReport("report");
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "report") << description;
        EXPECT_EQ(ReadFile(kCurrent), full) << description;
        EXPECT_FALSE(std::filesystem::exists(kPrevious)) << description;
        std::filesystem::remove(kCurrent);

        WriteFile("/tmp/precious", "kept");
        WriteFile(kCurrent, full);
        put(kPrevious);
        SysdbgReport("report");
        EXPECT_EQ(ReadFile(kCurrent), "report") << description;
        EXPECT_EQ(ReadFile(kPrevious), "kept") << description;
        std::filesystem::remove(kCurrent);
        std::filesystem::remove(kPrevious);
    }
}

TEST_F(CrashFile, NamesAndLogPathAreTakenWhenTheyFit) {
    const std::string longest(125, 'n');
    WriteFile("/tmp/log", "");
    for (const auto& [name, expected] : {std::pair{longest, longest + ".1"}, {longest + "n", std::string()}}) {
        EXPECT_EQ(SysdbgInitSignal(SIGURG, "/tmp/log", name.c_str(), 0, kSysdbgNoDebugThread), 0);
        EXPECT_EQ(__crushdump_file[1], expected);
    }
    EXPECT_STREQ(sysdbg_log_file, "/tmp/log");
    EXPECT_EQ(log_file_limit, 2U) << "no limit given: as it was";
    EXPECT_EQ(SysdbgInitSignal(SIGURG, "/no/such/log", kCrashFile, 0, kSysdbgNoDebugThread), 0);
    EXPECT_STREQ(sysdbg_log_file, "");
}

TEST_F(CrashFile, TextIsCutAtTheBuffersEnd) {
    SysdbgReport("%s|", std::string(1022, 'x').c_str());
    SysdbgReport("%s", std::string(5000, 'y').c_str());
    EXPECT_EQ(ReadFile(kCurrent), std::string(1022, 'x') + "|" + std::string(1023, 'y'));
}

// The C library is the reference.
#define EXPECT_FORMATS_LIKE_PRINTF(...)                          \
    do {                                                         \
        char expected[64];                                       \
        char actual[64];                                         \
        snprintf(expected, sizeof(expected), __VA_ARGS__);       \
        sysdbg::FormatText(actual, sizeof(actual), __VA_ARGS__); \
        EXPECT_STREQ(actual, expected);                          \
    } while (false)

TEST(CrashFormat, FollowsPrintf) {
    EXPECT_FORMATS_LIKE_PRINTF("%04d-%02d-%02d|%d|%d", 2026, 1, 31, -5, 0);
    EXPECT_FORMATS_LIKE_PRINTF("%d %05d %5d %zd %ld", std::numeric_limits<int>::min(), -12, -12, ssize_t{-1},
                               std::numeric_limits<long>::min());
    EXPECT_FORMATS_LIKE_PRINTF("%u %lx %p %p %%", ~0U, ~0UL, reinterpret_cast<void*>(0xabcdef01), nullptr);
}

}  // namespace
}  // namespace tessel::test
