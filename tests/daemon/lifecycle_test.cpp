// From the start of the program to serving, and what happens to its socket.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <regex>
#include <sstream>
#include <thread>

#include "tests/support/daemon.h"
#include "tests/support/files.h"
#include "tests/support/lines.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

// The messages of the daemon in the system log, without what differs from run to run.
std::vector<std::string> SyslogMessages() {
    std::istringstream log(ReadFile("/var/log/messages"));
    std::vector<std::string> messages;
    for (std::string line; std::getline(log, line);) {
        std::smatch parts;
        if (std::regex_search(line, parts, std::regex("\\[TESSEL_ERR\\]:.*\\([0-9]+\\): (.*)")))
            messages.push_back(parts[1]);
    }
    return messages;
}

// How often the system log has this text.
std::size_t Logged(const std::string& text) {
    return Split(' ' + ReadFile("/var/log/messages"), text).size() - 1;
}

TEST(Lifecycle, DaemonDetachesAndTellsItsStart) {
    umask(077);
    const Daemon daemon;
    const std::string proc = "/proc/" + std::to_string(daemon.Pid());
    EXPECT_EQ(std::filesystem::read_symlink(proc + "/cwd"), "/tmp");
    EXPECT_THAT(ReadFile(proc + "/status"), HasSubstr("\nUmask:\t0000\n"));
    EXPECT_NE(getsid(daemon.Pid()), getsid(0));
    EXPECT_NE(getsid(daemon.Pid()), daemon.Pid()) << "not the session's leader: it never gets a terminal";
    for (const int ignored : {SIGHUP, SIGINT, SIGPIPE})
        kill(daemon.Pid(), ignored);
    EXPECT_TRUE(Serves());
    struct stat socketFile {};
    ASSERT_EQ(stat("/tmp/api_daemon", &socketFile), 0);
    EXPECT_EQ(socketFile.st_mode & 0777U, 0777U) << "unmasked";

    EXPECT_TRUE(Eventually([] { return SyslogMessages().size() >= 9; }));
    EXPECT_THAT(
        SyslogMessages(),
        testing::IsSupersetOf({MatchesRegex("\\[TESSEL_DAEMON\\]: sysdbg init done"),
                               MatchesRegex("\\[TESSEL_DAEMON\\]: TESSEL_DAEMON INIT ... .. .... ..:..:.."),
                               MatchesRegex("\\[TESSEL_DAEMON\\]: Tessels Module Version: V2.0.6.4a7a76ab .*")}));
    std::vector<std::string> later = SyslogMessages();
    later.erase(later.begin(), later.begin() + 3);
    later.resize(6);
    EXPECT_THAT(later, ElementsAre("[TESSEL_DAEMON]: daemon init done", "/proc/veltrac/version did not exist!",
                                   "[TESSEL_DAEMON]: conflict check start done", "[TESSEL_DAEMON]: netlink start done",
                                   "[TESSEL_DAEMON]: api register done", "[TESSEL_DAEMON]: api daemon start"));
}

// A fork beside a thread that is just starting takes the locks which that one holds along: nobody would release them.
TEST(Lifecycle, WorkersRunAfterEveryStart) {
    for (int start = 0; start < 15; ++start) {
        const Daemon daemon;
        // Four that watch for conflicts and the one that follows the kernel; the driver's listener may have ended.
        EXPECT_TRUE(Eventually([&] { return Threads(daemon.Pid(), "Tessel") >= 5; })) << start;
    }
}

// Running out of descriptors says nothing about the listening socket: who waits in its queue is served afterwards.
TEST(Lifecycle, AShortageOfDescriptorsIsWaitedOut) {
    const Daemon daemon;
    struct stat before {};
    ASSERT_EQ(stat("/tmp/api_daemon", &before), 0);
    rlimit usual{};
    ASSERT_EQ(prlimit(daemon.Pid(), RLIMIT_NOFILE, nullptr, &usual), 0);
    const rlimit none{.rlim_cur = 3, .rlim_max = usual.rlim_max};
    ASSERT_EQ(prlimit(daemon.Pid(), RLIMIT_NOFILE, &none, nullptr), 0);
    std::thread client([] { EXPECT_TRUE(Serves()); });
    EXPECT_TRUE(IsLogged("accept error"));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    ASSERT_EQ(prlimit(daemon.Pid(), RLIMIT_NOFILE, &usual, nullptr), 0);
    client.join();
    struct stat after {};
    ASSERT_EQ(stat("/tmp/api_daemon", &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino) << "the same socket";
    EXPECT_EQ(Logged("socket error!"), 0U);
}

TEST(Lifecycle, CrashLeavesAReport) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    ASSERT_EQ(std::system(TESSEL_DAEMON_PATH), 0);
    pid_t daemon = 0;
    ASSERT_TRUE(Eventually([&] { return (daemon = ServingPid()) != 0; }));
    syscall(SYS_tgkill, daemon, daemon, SIGSEGV);  // to that thread: any that does not block it may take the process's
    int status = 0;
    // It is this process's child once the one in between has ended.
    ASSERT_TRUE(Eventually([&] { return waitpid(daemon, &status, 0) == daemon; }));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
    const std::string report = ReadFile("/usr/tessel_crash.log.0");
    EXPECT_THAT(report,
                HasSubstr("\nThread id: " + std::to_string(daemon) + "\nThread name:tessel_daemon\nSignal num: 11\n"));
    EXPECT_THAT(report, HasSubstr("] Maps-------\n"));
}

TEST(Lifecycle, ASecondStartTakesTheSocketOver) {
    WriteFile("/tmp/api_daemon", "left behind by a crash");
    const Daemon first;
    ASSERT_EQ(std::system(TESSEL_DAEMON_PATH), 0);
    EXPECT_TRUE(Eventually([&] { return ServingPid() != 0 && ServingPid() != first.Pid(); }));
    EXPECT_TRUE(Serves());
}

// A path that cannot be bound is tried again once a second, and served once it can be; the log says so once a minute.
TEST(Lifecycle, SocketThatCannotBeBoundIsRetried) {
    std::filesystem::create_directory("/tmp/api_daemon");
    ASSERT_EQ(std::system(TESSEL_DAEMON_PATH), 0);
    ASSERT_TRUE(IsLogged("creat unix domain server fail, sleep a while!"));
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    for (const auto& [text, times] : {std::pair{"bind error", 3U}, {"accept error", 2U}, {"creat unix domain", 1U}})
        EXPECT_EQ(Logged(text), times) << text;
    EXPECT_EQ(Logged("Bad file descriptor"), 0U) << "a descriptor was closed twice";
    std::filesystem::remove("/tmp/api_daemon");
    EXPECT_TRUE(Eventually([] { return Serves(); }));
    EXPECT_TRUE(RequestStatus(0x702, "") == -1 && IsLogged("the size is error:size=0")) << "not silent any more";
}

}  // namespace
}  // namespace tessel::test
