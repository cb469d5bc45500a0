// A lease from the real server, got by the real client with the script that devices are given: a daemon runs the server
// behind eth0, and a second one, a device of its own behind far0, the client.
#include <gmock/gmock.h>
#include <sys/mount.h>

#include <filesystem>

#include "core/family.h"
#include "tests/support/dhcp_server.h"
#include "tests/support/far.h"
#include "tests/support/listener.h"

namespace tessel::test {
namespace {

using testing::HasSubstr;

// The next lease; empty when none came in time.
TNetDhcpcLease NextLease(Listener& listener) {
    TNetDhcpcLease lease{};
    while (listener.Next(20000) >= 0 && listener.event.kind != TESSEL_EVENT_DHCP_LEASE) {
    }
    EXPECT_EQ(tessel_event_lease(&listener.event, &lease), TESSEL_OK);
    return lease;
}

TEST(DhcpLab, ALeaseReachesTheApplicationUntilTheServerIsStopped) {
    std::filesystem::copy_file(TESSEL_DEVICE_FOLDER "/udhcpc.script", "/etc/scripts/udhcpc.script");
    RunOnDevice("ip addr add 10.9.0.1/24 dev eth0");
    const Daemon server;
    const TNetDhcpsConf conf = ServerConf(24, {"1.2.3.4", "5.6.7.8"});
    ASSERT_EQ(tessel_dhcpd_start("eth0", &conf), TESSEL_OK);
    // The client's device has files of its own below /tmp.
    OnFarSide([&] {
        ASSERT_EQ(unshare(CLONE_FS | CLONE_NEWNS), 0);
        ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
        ASSERT_EQ(mount("none", "/tmp", "tmpfs", 0, nullptr), 0);
        const Daemon daemon;
        Listener listener("ipc_dhcpc_far0_42");
        ASSERT_EQ(tessel_dhcpc_start(TESSEL_FAMILY_INET, "far0", 1, 42), TESSEL_OK);
        const TNetDhcpcLease lease = NextLease(listener);
        const std::string address = AddressText(AF_INET, &lease.tAddr.abyAddr).text;
        EXPECT_THAT(address, testing::MatchesRegex("10.9.0.2[01]"));
        EXPECT_STREQ(AddressText(AF_INET, &lease.tRouter.abyAddr).text, "10.9.0.1");
        EXPECT_TRUE(lease.dwPrefixLen == 24 && lease.dwLeaseTime == 86400 && lease.dwDnsNum == 2);
        EXPECT_STREQ(AddressText(AF_INET, &lease.atDns[1].abyAddr).text, "5.6.7.8");
        // The script has configured the interface before.
        EXPECT_THAT(OutputOf("ip -4 addr show dev far0"), HasSubstr("inet " + address + "/24"));
        EXPECT_THAT(OutputOf("ip -4 route show default"), HasSubstr("default via 10.9.0.1 dev far0"));
        EXPECT_EQ(tessel_dhcpc_stop(TESSEL_FAMILY_INET, "far0"), TESSEL_OK);
        ASSERT_EQ(tessel_dhcpc_start(TESSEL_FAMILY_INET, "far0", 0, 42), TESSEL_OK);
        EXPECT_EQ(NextLease(listener).dwDnsNum, 0U) << "without DNS servers";
        EXPECT_EQ(tessel_dhcpc_stop(TESSEL_FAMILY_INET, "far0"), TESSEL_OK);
        EXPECT_EQ(OutputOf("pgrep -r S,R,D udhcpc"), "");
    });
    EXPECT_EQ(tessel_dhcpd_stop("eth0"), TESSEL_OK);
    EXPECT_EQ(OutputOf("pgrep -r S,R,D udhcpd; ls /usr/etc/*.pid 2>&1 | grep -v cannot"), "");
}

}  // namespace
}  // namespace tessel::test
