// The process that serves an interface.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include "tests/support/dhcp.h"
#include "tests/support/dhcp_server.h"

namespace tessel::test {
namespace {

using std::filesystem::exists;
using testing::HasSubstr;

TEST(DhcpServerProcess, IsNobodysChildAndKilledByAStop) {
    StandInClients programs;
    const Daemon daemon;
    const auto start = [&](const std::string& name) {
        EXPECT_EQ(RequestStatus(kStart, StartRequest(name.c_str())), 0);
        const std::string path = "/usr/etc/udhcpd4_" + name + ".conf";
        EXPECT_EQ(programs.Take(1), "udhcpd -fS " + path + " & blocked 10 12 15");
        return StandInClients::PidOf("udhcpd ", path.c_str());
    };
    const pid_t tenth = start("eth10");
    const pid_t first = start("eth1");
    EXPECT_THAT(ReadFile("/proc/" + std::to_string(first) + "/status"),
                HasSubstr("\nPPid:\t" + std::to_string(getpid()) + "\n"))
        << "orphans become this process's";
    const std::string children = "ps --ppid " + std::to_string(daemon.Pid()) + " > /dev/null";
    EXPECT_EQ(std::system(children.c_str()), 1 << 8) << "the daemon has none, not even a dead one";
    EXPECT_EQ(RequestStatus(kStop, NameRequest("eth1")), 0);
    int end = 0;
    EXPECT_EQ(waitpid(first, &end, 0), first);
    EXPECT_EQ(end, SIGKILL);
    EXPECT_EQ(waitpid(tenth, &end, WNOHANG), 0) << "eth10 is served on";
    EXPECT_TRUE(!exists("/usr/etc/udhcpd4_eth1.conf") && exists("/usr/etc/udhcpd4_eth10.conf"));
    EXPECT_EQ(RequestStatus(kStopAll, ""), 0);
    EXPECT_EQ(waitpid(tenth, &end, 0), tenth);
    EXPECT_EQ(end, SIGKILL);
    EXPECT_TRUE(!exists("/usr/etc/udhcpd4_eth10.conf") && exists("/usr/etc/udhcpd4.leases"));
}

}  // namespace
}  // namespace tessel::test
