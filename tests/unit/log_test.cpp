#include "core/log.h"

#include <sys/prctl.h>
#include <unistd.h>

#include "core/folder_watch.h"
#include "core/log_control.h"
#include "tests/support/files.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

constexpr char kSyslog[] = "/var/log/messages";
constexpr char kDaemonLog[] = "/tmp/tessel_daemon.log";

LogFileCtl Control(u32 code, const char* path) {
    LogFileCtl control{.eCmd = code, .achLibPath = {}, .achDaemonPath = {}};
    strcpy(control.achDaemonPath, path);
    strcpy(control.achLibPath, path);
    return control;
}

i32 Manage(u32 code, const char* path = "", i32 (*manage)(const LogFileCtl*) = &LogDaemonFileManage) {
    const LogFileCtl control = Control(code, path);
    return manage(&control);
}

// All of them leave errno alone.
void OneOfEach(const std::string& mark) {
    errno = EBUSY;
    TESSEL_ERR("error %s", mark.c_str());
    TESSEL_PRT("print %s", mark.c_str());
    TESSEL_DBG("debug %s", mark.c_str());
    TESSEL_PERROR(mark.c_str());
    EXPECT_EQ(errno, EBUSY);
}

// Which of the four forms a destination shows.
std::string FormsIn(const std::string& text, const std::string& mark) {
    const std::pair<char, std::string> lines[] = {
        {'e', "error " + mark}, {'p', "print " + mark}, {'d', "debug " + mark}, {'P', mark + "{errno"}};
    std::string forms;
    for (const auto& [form, line] : lines)
        forms += text.find(line) != std::string::npos ? form : '-';
    return forms;
}

TEST(FolderWatch, NoticesEveryNameThatComesOrGoes) {
    std::filesystem::create_directory("/tmp/watched");
    FolderWatch watch("/tmp/watched");
    const auto isNoticedOnce = [&](u64 tick) { return !watch.IsUnchanged(tick) && watch.IsUnchanged(tick); };
    EXPECT_TRUE(isNoticedOnce(1)) << "nothing is known yet";
    WriteFile("/tmp/watched/one", "");
    EXPECT_TRUE(isNoticedOnce(1));
    WriteFile("/tmp/watched/one", "more");
    EXPECT_TRUE(watch.IsUnchanged(2)) << "its names are the same";
    EXPECT_EQ(rename("/tmp/watched/one", "/tmp/watched/two"), 0);
    EXPECT_TRUE(isNoticedOnce(2));
    EXPECT_EQ(unlink("/tmp/watched/two"), 0);
    EXPECT_TRUE(isNoticedOnce(2));
    EXPECT_TRUE(watch.IsUnchanged(1001));
    EXPECT_TRUE(isNoticedOnce(1002)) << "another file system may be in its place";
    EXPECT_EQ(rmdir("/tmp/watched"), 0);
    EXPECT_FALSE(watch.IsUnchanged(1002));
    EXPECT_FALSE(watch.IsUnchanged(1002)) << "there is nothing to be watched";
}

TEST(Log, ASwitchCountsAtOnceAlsoWhereItsFolderIsWatched) {
    FolderWatch watch(kLogSwitchFolder);
    for (int round = 0; round < 6; ++round) {
        if (round % 2 == 0) WriteFile("/tmp/tesseldebug", "");
        const LogSwitchMemory memory(&watch);
        EXPECT_EQ(LogWanted(LogKind::kDebug), round % 2 == 0) << round;
        std::filesystem::remove("/tmp/tesseldebug");
    }
}

TEST(Log, GoesWhereLevelAndSwitchFilesSay) {
    constexpr char kConsole[] = "/tmp/tessellog";
    constexpr char kDebug[] = "/tmp/tesseldebug";
    constexpr char kNoFile[] = "";
    // The level, a switch file, and what is then in the system log and the daemon's file, and on standard output.
    const std::tuple<i32, const char*, const char*, const char*> rows[] = {
        {1, kConsole, "----", "ep-P"}, {2, kNoFile, "e--P", "----"}, {3, kConsole, "e--P", "ep-P"},
        {4, kNoFile, "ep-P", "----"},  {5, kNoFile, "epdP", "--d-"}, {5, kConsole, "epdP", "epdP"},
        {0, kDebug, "--d-", "--d-"},
    };
    ASSERT_EQ(Manage(TESSEL_LOG_OPEN_DAEMON), 0);
    std::string mark = "M0";
    for (const auto& [level, switchFile, inLogs, onStandardOutput] : rows) {
        WriteFile(switchFile, "");
        TesselDebugLevelSet(level);
        testing::internal::CaptureStdout();
        OneOfEach(mark);
        EXPECT_EQ(FormsIn(testing::internal::GetCapturedStdout(), mark), onStandardOutput) << mark;
        EXPECT_EQ(FormsIn(ReadFile(kDaemonLog), mark), inLogs) << mark;
        EXPECT_TRUE(Eventually([&, wanted = inLogs] { return FormsIn(ReadFile(kSyslog), mark) == wanted; })) << mark;
        std::filesystem::remove(switchFile);
        ++mark[1];
    }
    TesselDebugLevelSet(2);
    // 179, 182 and 183: local6 with err, info and debug.
    const std::string id = "PID\\[" + std::to_string(getpid()) + "\\]";
    const std::string where = "TID\\[[0-9]+\\]:\\[OneOfEach\\]\\([0-9]+\\): ";
    EXPECT_THAT(
        ReadFile(kSyslog),
        testing::ContainsRegex(
            "<179>[^<]*\\[TESSEL_ERR\\]:" + id + ":" + where + "error M4\n<182>[^<]*\\[TESSEL_PRT\\]:" + id + ":" +
            where + "print M4\n<183>[^<]*\\[TESSEL_DBG\\]" + id + where + "debug M4\n<179>[^<]*\\[TESSEL_PERROR\\]" +
            id + ":TID\\[[0-9]+\\]:OneOfEach\\([0-9]+\\):M4\\{errno\\(16\\):Device or resource busy\\}\n"));
}

TEST(LogControl, OpensClosesAndRefuses) {
    EXPECT_EQ(LogDaemonFileManage(nullptr), -1);
    EXPECT_EQ(LogLibFileManage(nullptr), -1);
    ASSERT_EQ(mkfifo("/tmp/fifo", 0666), 0);
    WriteFile("/tmp/precious", "kept");
    std::filesystem::create_symlink("/tmp/precious", "/tmp/link");
    for (const char* path : {"/tmp/no/such", "/tmp/fifo", "/dev/null", "/tmp/link"})
        EXPECT_EQ(Manage(TESSEL_LOG_OPEN_DAEMON, path), -1) << path;
    EXPECT_EQ(ReadFile("/tmp/precious"), "kept");
    EXPECT_EQ(Manage(TESSEL_LOG_OPEN_BOTH, "/tmp/one.log"), 0);
    EXPECT_EQ(Manage(TESSEL_LOG_CLOSE_BOTH), 0);
    EXPECT_EQ(Manage(TESSEL_LOG_CLOSE_DAEMON), 0) << "closing what is closed";
    EXPECT_EQ(Manage(TESSEL_LOG_OPEN_LIB, "", &LogLibFileManage), 0);
    TESSEL_ERR("to the library's file");
    EXPECT_THAT(ReadFile("/tmp/tessel_lib.log"), HasSubstr("to the library's file\n"));
    EXPECT_EQ(ReadFile("/tmp/one.log"), "");

    ASSERT_EQ(Manage(TESSEL_LOG_OPEN_DAEMON), 0);
    WriteFile(kDaemonLog, "old\n");
    const auto before = Descriptors();
    EXPECT_EQ(Manage(TESSEL_LOG_OPEN_DAEMON), 0);
    EXPECT_EQ(ReadFile(kDaemonLog), "") << "opening truncates";
    EXPECT_EQ(Descriptors(), before) << "and closes what was open";
}

// The daemon empties and makes for a client what that one could itself, and its own default file; nobody else's.
TEST(LogControl, OpensWithTheRightsOfTheClient) {
    constexpr uid_t kClient = 1000;
    constexpr uid_t kOther = 1001;
    std::filesystem::create_directory("/tmp/closed");
    chmod("/tmp/closed", 0700);
    // The file's owner and mode (0: there is none), its path, the client, and what it gets.
    const std::tuple<const char*, uid_t, mode_t, const char*, uid_t, i32> rows[] = {
        {"a new file where the client may make one", 0, 0, "/tmp/new.log", kClient, 0},
        {"a new file where it may not", 0, 0, "/tmp/closed/new.log", kClient, -1},
        {"the same for root", 0, 0, "/tmp/closed/roots.log", 0, 0},
        {"its own file", kClient, 0600, "/tmp/own.log", kClient, 0},
        {"root's, which it may write", 0, 0666, "/tmp/shared.log", kClient, 0},
        {"root's, which it may not write", 0, 0644, "/tmp/roots.log", kClient, -1},
        {"another user's that everybody may write", kOther, 0666, "/tmp/others.log", kClient, -1},
        {"another user's, for root", kOther, 0666, "/tmp/others.log", 0, -1},
        {"the default file, which is root's", 0, 0600, kDaemonLog, kClient, 0},
        {"the default file in somebody else's hands", kOther, 0666, kDaemonLog, 0, -1},
    };
    const int dumpable = prctl(PR_GET_DUMPABLE);
    for (const auto& [description, owner, mode, path, client, expected] : rows) {
        SCOPED_TRACE(description);
        std::filesystem::remove(path);
        if (mode != 0) {
            WriteFile(path, "kept");
            chmod(path, mode);
            if (chown(path, owner, owner) != 0) GTEST_SKIP() << "there is no other user in this namespace";
        }
        EXPECT_EQ(ManageDaemonLogFile(Control(TESSEL_LOG_OPEN_DAEMON, path), {.pid = 1, .uid = client, .gid = client}),
                  expected);
        EXPECT_EQ(ReadFile(path), mode != 0 && expected != 0 ? "kept" : "");
        EXPECT_EQ(std::filesystem::exists(path), mode != 0 || expected == 0);
    }
    EXPECT_TRUE(IsLogged("/tmp/others.log is somebody else's"));
    EXPECT_EQ(prctl(PR_GET_DUMPABLE), dumpable);
    std::filesystem::remove(kDaemonLog);
    WriteFile("/tmp/closed/precious", "kept");  // this process's own rights are back
    std::filesystem::create_hard_link("/tmp/closed/precious", "/tmp/second");
    EXPECT_EQ(Manage(TESSEL_LOG_OPEN_DAEMON, "/tmp/second"), -1) << "another name of a file";
    EXPECT_EQ(ReadFile("/tmp/closed/precious"), "kept");
}

// What a client sends, or a host on the link does, neither looks like other lines nor fills the disk.
TEST(Log, KeepsWhatComesFromOutsideInItsPlace) {
    ASSERT_EQ(Manage(TESSEL_LOG_OPEN_DAEMON), 0);
    TESSEL_ERR("name [%s] of %s\r", "a\n[TESSEL_ERR]:forged\x1b[31m\x7f", "\xc3\xa9\tz\nsecond");
    EXPECT_THAT(ReadFile(kDaemonLog),
                testing::EndsWith("name [a [TESSEL_ERR]:forged [31m ] of \xc3\xa9\tz\nsecond\r\n"));

    const auto written = [] { return std::ranges::count(ReadFile(kDaemonLog), '\n'); };
    auto before = written();
    {
        LogLimit limit(2, 1h);
        TESSEL_PRT("goes nowhere, and does not count");
        for (int i = 0; i < 5; ++i)
            TESSEL_ERR("line %d", i);
        std::thread([] { TESSEL_ERR("another thread's"); }).join();
        EXPECT_EQ(written() - before, 3);
    }
    TESSEL_ERR("no limit any more");
    EXPECT_EQ(written() - before, 4);
    EXPECT_THAT(ReadFile(kDaemonLog), HasSubstr("line 1\n"));
    LogLimit limit(1, 200ms);
    before = written();
    EXPECT_TRUE(Eventually([&] {
        TESSEL_ERR("again");
        return written() - before >= 3;
    }));
    EXPECT_THAT(ReadFile(kDaemonLog),
                testing::MatchesRegex("(.|\n)*again\n[^\n]* [0-9]+ lines were left out\n(.|\n)*"));
}

// For the thread sanitizer: the file is closed and opened under the feet of writers.
TEST(LogControl, IsSafeWhileOthersWrite) {
    const auto write = [](const std::stop_token& isOver) {
        while (!isOver.stop_requested())
            TESSEL_ERR("line");
    };
    const std::jthread writers[] = {std::jthread(write), std::jthread(write)};
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(Manage(TESSEL_LOG_OPEN_DAEMON), 0);
    EXPECT_EQ(Manage(TESSEL_LOG_CLOSE_DAEMON), 0);
}

}  // namespace
}  // namespace tessel::test
