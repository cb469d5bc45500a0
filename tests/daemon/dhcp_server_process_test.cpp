// The process that serves an interface.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "core/process.h"
#include "tests/support/dhcp_server.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

using testing::HasSubstr;

// Its pid, once it waits.
pid_t Start(const std::string& name) {
    EXPECT_EQ(RequestStatus(kStart, StartRequest(name.c_str())), 0);
    const std::string path = "/usr/etc/udhcpd4_" + name + ".conf";
    EXPECT_TRUE(Eventually([&] { return ReadFile("/tmp/called") == "-fS " + path + " &\n"; }));
    return GetServicePidFromCmdline("/proc/", "udhcpd ", path.c_str());
}

TEST(DhcpServerProcess, IsNobodysChildAndKilledByAStop) {
    const StandInTools tools({"udhcpd"});
    WriteFile(tools.Directory() + "/udhcpd", "#!/bin/sh\necho \"$@\" > /tmp/called\nread -r line < /tmp/never\n");
    ASSERT_EQ(std::system("mkfifo /tmp/never"), 0);
    const Daemon daemon;
    const pid_t tenth = Start("eth10");
    const pid_t first = Start("eth1");
    const std::string status = ReadFile("/proc/" + std::to_string(first) + "/status");
    EXPECT_THAT(status, HasSubstr("\nPPid:\t" + std::to_string(getpid()) + "\n")) << "orphans become this process's";
    EXPECT_THAT(status, HasSubstr("\nSigBlk:\t0000000000004a00\n")) << "SIGUSR1, SIGUSR2 and SIGTERM";
    const std::string children = "ps --ppid " + std::to_string(daemon.Pid()) + " > /dev/null";
    EXPECT_EQ(std::system(children.c_str()), 1 << 8) << "the daemon has none, not even a dead one";
    EXPECT_EQ(RequestStatus(kStop, NameRequest("eth1")), 0);
    int end = 0;
    EXPECT_EQ(waitpid(first, &end, 0), first);
    EXPECT_EQ(end, SIGKILL);
    EXPECT_EQ(waitpid(tenth, &end, WNOHANG), 0) << "eth10 is served on";
    EXPECT_FALSE(std::filesystem::exists("/usr/etc/udhcpd4_eth1.conf"));
    EXPECT_TRUE(std::filesystem::exists("/usr/etc/udhcpd4_eth10.conf"));
    EXPECT_EQ(RequestStatus(kStopAll, ""), 0);
    EXPECT_EQ(waitpid(tenth, &end, 0), tenth);
    EXPECT_EQ(end, SIGKILL);
    EXPECT_FALSE(std::filesystem::exists("/usr/etc/udhcpd4_eth10.conf"));
    EXPECT_TRUE(std::filesystem::exists("/usr/etc/udhcpd4.leases"));
}

}  // namespace
}  // namespace tessel::test
