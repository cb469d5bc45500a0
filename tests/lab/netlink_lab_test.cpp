// What other programs do to addresses and default routes, and what becomes of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/if_ether.h>

#include <chrono>
#include <string>
#include <thread>

#include "tessel/priority.h"
#include "tests/support/daemon.h"
#include "tests/support/far.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

using testing::HasSubstr;

std::string DefaultRoutes() {
    return OutputOf("ip route show default");
}

TEST(NetlinkLab, ADefaultRouteWithoutMetricGetsItsInterfaces) {
    RunOnDevice("ip addr add 192.168.1.20/24 dev eth0; ip addr add 192.168.2.20/24 dev eth1; ip link set eth1 down");
    const Daemon daemon;
    ASSERT_TRUE(Eventually([] { return OutputOf("ip -br link show eth1").find(" UP ") != std::string::npos; }))
        << "a wired interface that is down at the start is brought up";
    RunOnDevice("ip route add default via 192.168.1.1 dev eth0");
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    EXPECT_EQ(DefaultRoutes(), "default via 192.168.1.1 dev eth0 \n") << "without priorities nothing is touched";
    RunOnDevice("ip route del default");

    const TNetPrioParamList priorities{
        .dwNum = 2, .atPrio = {{.achDevName = "eth0", .nPriority = 10}, {.achDevName = "eth1", .nPriority = 0}}};
    ASSERT_EQ(RequestStatus(0x11C, Bytes(priorities)), 0);
    RunOnDevice("ip -o monitor route >/tmp/monitor & echo $! >/tmp/monitor.pid; sleep 0.2");
    RunOnDevice("ip route add 10.0.0.0/8 via 192.168.1.1 && ip route add default via 192.168.1.1 table 100");
    RunOnDevice("ip route add default via 192.168.1.1 dev eth0");
    EXPECT_TRUE(Eventually([] { return DefaultRoutes() == "default via 192.168.1.1 dev eth0 metric 10 \n"; }));
    RunOnDevice("kill $(cat /tmp/monitor.pid)");
    const std::string seen = ReadFile("/tmp/monitor");
    const auto added = seen.find("default via 192.168.1.1 dev eth0 metric 10");
    const auto deleted = seen.find("Deleted default via 192.168.1.1 dev eth0 \n");
    EXPECT_NE(added, std::string::npos);
    EXPECT_NE(deleted, std::string::npos);
    EXPECT_LT(added, deleted) << "never without one";
    EXPECT_THAT(OutputOf("ip route show"), HasSubstr("10.0.0.0/8 via 192.168.1.1 dev eth0 \n"));
    EXPECT_EQ(OutputOf("ip route show table 100"), "default via 192.168.1.1 dev eth0 \n");

    RunOnDevice("ip route add default via 192.168.2.1 dev eth1");
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    EXPECT_THAT(DefaultRoutes(), HasSubstr("default via 192.168.2.1 dev eth1 \n")) << "a priority of 0 is none";
}

// True when the daemon defends the address against another host's claim.
bool IsDefended(const FarLink& peer, const std::string& ip) {
    const std::string claim =
        std::string("\0\x01\x08\0\x06\x04\0\x01\x02\0\0\0\x01\x77", 14) + ip + std::string(6, '\0') + ip;
    peer.Send(std::string(6, '\xff') + std::string("\x02\0\0\0\x01\x77\x08\x06", 8) + claim);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
    while (std::chrono::steady_clock::now() < deadline) {
        const std::string frame = peer.Next(50);
        if (frame.size() >= 32 && frame[21] == 2 && frame.compare(28, 4, ip) == 0) return true;
    }
    return false;
}

TEST(NetlinkLab, ABurstIsFollowedToItsEnd) {
    RunOnDevice("ip addr add 192.168.1.20/24 dev eth0");
    const Daemon daemon;
    const FarLink peer("far0", ETH_P_ARP);
    RunOnDevice(
        "for i in $(seq 1 1000); do echo addr add 10.9.$((i/250)).$((i%250+1))/32 dev eth0; echo addr del "
        "10.9.$((i/250)).$((i%250+1))/32 dev eth0; done | ip -batch -");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(Request(0x112, std::string("lo") + std::string(14, '\0')).has_value());
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2)) << "requests do not wait for it";
    RunOnDevice("ip addr add 192.168.1.22/24 dev eth0");
    EXPECT_TRUE(Eventually([&] { return IsDefended(peer, "\xc0\xa8\x01\x16"); }, std::chrono::seconds(60)));
    EXPECT_FALSE(IsDefended(peer, "\x0a\x09\x01\x02"));
}

}  // namespace
}  // namespace tessel::test
