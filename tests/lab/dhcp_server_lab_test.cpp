// The real DHCP server on a real link, and a client of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "client/libtessel.h"
#include "tests/support/dhcp_server.h"
#include "tests/support/far.h"

namespace tessel::test {
namespace {

constexpr char kPidFile[] = "/usr/etc/udhcpd4_eth0.pid";
constexpr char kScript[] = "#!/bin/sh\necho \"$1 $interface $ip $subnet $router $dns $lease $serverid\"\n";

// What a client behind eth0 gets in a few seconds.
std::string Lease() {
    return OutputOf("ip netns exec far udhcpc -i far0 -fqn -t 5 -T 1 -s /tmp/script 2> /dev/null | grep bound");
}

int IsServing() {
    int isServing = -1;
    EXPECT_EQ(tessel_dhcpd_status("eth0", &isServing), TESSEL_OK);
    return isServing;
}

TEST(DhcpServerLab, ServesUntilItIsStopped) {
    WriteFile("/tmp/script", kScript);
    RunOnDevice("chmod +x /tmp/script; ip addr add 10.9.0.1/24 dev eth0");
    const Daemon daemon;
    const TNetDhcpsConf conf = ServerConf(24, {"1.2.3.4", "5.6.7.8"});
    const auto start = [&] {
        ASSERT_EQ(tessel_dhcpd_start("eth0", &conf), TESSEL_OK);
        EXPECT_EQ(IsServing(), 1);
        EXPECT_TRUE(Eventually([] { return std::filesystem::exists(kPidFile); }));
    };
    EXPECT_EQ(IsServing(), 0);
    start();
    EXPECT_EQ(tessel_dhcpd_start("eth0", &conf), TESSEL_E_FAILED);
    EXPECT_THAT(Lease(), testing::MatchesRegex("bound far0 10.9.0.2[01] 255.255.255.0 10.9.0.1 1.2.3.4 5.6.7.8 86400 "
                                               "10.9.0.1\n"));
    EXPECT_EQ(tessel_dhcpd_stop("eth0"), TESSEL_OK);
    EXPECT_EQ(IsServing(), 0);
    EXPECT_FALSE(std::filesystem::exists(kPidFile));
    EXPECT_EQ(Lease(), "");
    start();
    RunOnDevice("killall -9 udhcpd");
    EXPECT_EQ(IsServing(), 1) << "not noticed";
    EXPECT_EQ(tessel_dhcpd_stop_all(), TESSEL_OK);
    EXPECT_EQ(IsServing(), 0);
    EXPECT_FALSE(std::filesystem::exists(kPidFile));
}

}  // namespace
}  // namespace tessel::test
