// From the start of the program to serving, and what happens to its socket.

#include "tests/support/far.h"
#include "tests/support/proc.h"

namespace tessel::test {
namespace {

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

    EXPECT_TRUE(IsLogged("api daemon start") && IsLogged("/proc/veltrac/version did not exist!"));
    EXPECT_EQ(OutputOf("sed -n 's/ \\w\\w\\w .. .... ..:..:..$//; s/ab .*/ab/; s/.*\\[\\(.*\\)](.*TESSEL_DAEMON\\]: "
                       "/\\1 /p' /var/log/messages"),
              "main sysdbg init done\nmain TESSEL_DAEMON INIT\nmain Tessels Module Version: V2.0.6.4a7a76ab\n"
              "main daemon init done\nmain conflict check start done\nmain netlink start done\nmain api register done\n"
              "IpcApiDaemonInit api daemon start\n");
}

// A fork beside a thread that is just starting takes the locks which that one holds along: nobody would release them.
TEST(Lifecycle, WorkersRunAfterEveryStart) {
    for (int start = 0; start < 15; ++start) {
        const Daemon daemon;
        // Four that watch for conflicts, the one that follows the kernel and, as it has been asked something, the one
        // that limits reads; the driver's listener may have ended.
        EXPECT_TRUE(Eventually([&] { return Threads(daemon.Pid(), "Tessel") >= 6; })) << start;
    }
}

// Running out of descriptors says nothing about the listening socket: who waits in its queue is served afterwards.
TEST(Lifecycle, AShortageOfDescriptorsIsWaitedOut) {
    const Daemon daemon;
    const auto socketNode = [] { return OutputOf("stat -c %i /tmp/api_daemon"); };
    const std::string before = socketNode();
    rlimit usual{};
    ASSERT_EQ(prlimit(daemon.Pid(), RLIMIT_NOFILE, nullptr, &usual), 0);
    const rlimit none{.rlim_cur = 3, .rlim_max = usual.rlim_max};
    ASSERT_EQ(prlimit(daemon.Pid(), RLIMIT_NOFILE, &none, nullptr), 0);
    std::thread client([] { EXPECT_TRUE(Serves()); });
    EXPECT_TRUE(IsLogged("accept error"));
    std::this_thread::sleep_for(300ms);
    ASSERT_EQ(prlimit(daemon.Pid(), RLIMIT_NOFILE, &usual, nullptr), 0);
    client.join();
    EXPECT_TRUE(Serves() && socketNode() == before) << "the same socket";
    EXPECT_EQ(Split(ReadFile("/var/log/messages"), "accept error").size(), 2U) << "logged once";
}

// A pipe that is closed, one that is full, as of a terminal that is held, and a log daemon that is stuck.
TEST(Lifecycle, OutputThatNobodyReadsStopsNothing) {
    ASSERT_EQ(std::system("{ sleep 1; " TESSEL_DAEMON_PATH "; } | true"), 0);
    pid_t pid = 0;
    ASSERT_TRUE(Eventually([&] { return (pid = ServingPid()) != 0; }));
    kill(pid, SIGKILL);
    ASSERT_EQ(mkfifo("/tmp/out", 0600), 0);
    const UniqueFd reader(open("/tmp/out", O_RDWR | O_CLOEXEC | O_NONBLOCK));
    ASSERT_EQ(std::system(TESSEL_DAEMON_PATH " > /tmp/out"), 0);
    EXPECT_TRUE(Eventually([] { return Serves(); }));
    while (write(reader.Get(), std::string(4096, 'x').data(), 4096) > 0) {
    }
    WriteFile("/tmp/tessellog", "");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(RequestStatus(0x702, ""), -1) << "logged, but not there";
    const pid_t collector = atoi(OutputOf("pgrep -x socat").c_str());
    ASSERT_GT(collector, 0);
    kill(collector, SIGSTOP);
    for (int i = 0; i < 25; ++i)
        EXPECT_EQ(RequestStatus(0x702, ""), -1);
    kill(collector, SIGCONT);
    const std::string last = "the size is error:size=3";
    EXPECT_TRUE(Eventually([&] {
        return RequestStatus(0x702, "xyz") == -1 && ReadFile("/var/log/messages").find(last) != std::string::npos;
    })) << "goes on";
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
    std::this_thread::sleep_for(2500ms);
    for (const auto& [text, times] : {std::pair{"bind error", 3U},
                                      {"accept error", 2U},
                                      {"creat unix domain", 1U},
                                      {"Bad file descriptor", 0U}})  // of one that was closed twice
        EXPECT_EQ(Split(ReadFile("/var/log/messages"), text).size(), times + 1) << text;
    std::filesystem::remove("/tmp/api_daemon");
    EXPECT_TRUE(Eventually([] { return Serves(); }));
    EXPECT_TRUE(RequestStatus(0x702, "") == -1 && IsLogged("the size is error:size=0")) << "not silent any more";
}

}  // namespace
}  // namespace tessel::test
