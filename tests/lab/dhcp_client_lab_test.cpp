// A lease from the real server, got by the real client with the script that devices are given: the daemon runs the
// server behind eth0, and a second daemon, a device of its own behind far0, the client.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "client/libtessel.h"
#include "tests/support/daemon.h"
#include "tests/support/far.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

using testing::HasSubstr;

std::string TextOf(const TNetGateway& address) {
    char text[INET_ADDRSTRLEN] = "";
    u8 bytes[4];
    memcpy(bytes, address.abyAddr, sizeof(bytes));
    inet_ntop(AF_INET, bytes, text, sizeof(text));
    return text;
}

// Does something as a device behind far0, with files of its own below /tmp.
template <typename Work>
void AsFarDevice(Work work) {
    std::thread([&] {
        ASSERT_EQ(unshare(CLONE_FS | CLONE_NEWNS), 0);
        ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0);
        ASSERT_EQ(mount("none", "/tmp", "tmpfs", 0, nullptr), 0);
        const UniqueFd space(open("/run/netns/far", O_RDONLY | O_CLOEXEC));
        ASSERT_EQ(setns(space.Get(), CLONE_NEWNET), 0);
        work();
    }).join();
}

TEST(DhcpClientLab, ALeaseReachesTheApplication) {
    std::filesystem::copy_file(TESSEL_DEVICE_FOLDER "/udhcpc.script", "/etc/scripts/udhcpc.script");
    WriteFile("/usr/etc/udhcpd.conf",
              "start 10.9.0.20\nend 10.9.0.21\ninterface eth0\noption dns 1.2.3.4 5.6.7.8\n"
              "option subnet 255.255.255.0\noption router 10.9.0.1\noption lease 864\n"
              "lease_file /usr/etc/leases\npidfile /usr/etc/udhcpd.pid\n");
    RunOnDevice("ip addr add 10.9.0.1/24 dev eth0; touch /usr/etc/leases; udhcpd -S /usr/etc/udhcpd.conf");
    AsFarDevice([] {
        const Daemon daemon;
        tessel_listener* listener = nullptr;
        ASSERT_EQ(tessel_listener_open("ipc_dhcpc_far0_42", 0, &listener), TESSEL_OK);
        ASSERT_EQ(tessel_dhcpc_start(TESSEL_FAMILY_INET, "far0", 1, 42), TESSEL_OK);
        tessel_event event{};
        TNetDhcpcLease lease{};
        ASSERT_EQ(tessel_listener_next(listener, &event, 20000), TESSEL_OK);
        ASSERT_EQ(tessel_event_lease(&event, &lease), TESSEL_OK);
        EXPECT_EQ(event.kind, TESSEL_EVENT_DHCP_LEASE);
        EXPECT_THAT(TextOf(lease.tAddr), testing::MatchesRegex("10.9.0.2[01]"));
        EXPECT_EQ(TextOf(lease.tRouter), "10.9.0.1");
        EXPECT_EQ(lease.dwPrefixLen, 24U);
        EXPECT_EQ(lease.dwLeaseTime, 864U);
        ASSERT_EQ(lease.dwDnsNum, 2U);
        EXPECT_EQ(TextOf(lease.atDns[1]), "5.6.7.8");
        // The script has configured the interface before.
        EXPECT_THAT(OutputOf("ip -4 addr show dev far0"), HasSubstr("inet " + TextOf(lease.tAddr) + "/24"));
        EXPECT_THAT(OutputOf("ip -4 route show default"), HasSubstr("default via 10.9.0.1 dev far0"));
        // Without DNS servers, after a new start.
        EXPECT_EQ(tessel_dhcpc_stop(TESSEL_FAMILY_INET, "far0"), TESSEL_OK);
        ASSERT_EQ(tessel_dhcpc_start(TESSEL_FAMILY_INET, "far0", 0, 42), TESSEL_OK);
        do {
            ASSERT_EQ(tessel_listener_next(listener, &event, 20000), TESSEL_OK);
        } while (event.kind != TESSEL_EVENT_DHCP_LEASE);
        ASSERT_EQ(tessel_event_lease(&event, &lease), TESSEL_OK);
        EXPECT_EQ(lease.dwDnsNum, 0U);
        EXPECT_EQ(tessel_dhcpc_stop(TESSEL_FAMILY_INET, "far0"), TESSEL_OK);
        EXPECT_EQ(OutputOf("pgrep -r S,R,D udhcpc"), "");
        tessel_listener_close(listener);
    });
}

}  // namespace
}  // namespace tessel::test
