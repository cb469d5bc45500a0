// What other programs do to addresses and default routes, and what becomes of it.
#include <gmock/gmock.h>
#include <linux/if_ether.h>
#include <linux/rtnetlink.h>
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <set>
#include <string>
#include <thread>

#include "tessel/priority.h"
#include "tests/support/arp.h"
#include "tests/support/daemon.h"
#include "tests/support/far.h"
#include "tests/support/files.h"
#include "tests/support/lines.h"

namespace tessel::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Of eth0, eth1 ...
void SetPriorities(std::initializer_list<i32> priorities) {
    TNetPrioParamList list{};
    for (const i32 priority : priorities) {
        TNetPrioParam& entry = list.atPrio[list.dwNum];
        strcpy(entry.achDevName, ("eth" + std::to_string(list.dwNum++)).c_str());
        entry.nPriority = priority;
    }
    ASSERT_EQ(RequestStatus(0x11C, Bytes(list)), 0);
}

// The IPv4 default routes of the main table, rebuilt from each message of the kernel.
class DefaultRoutes {
  public:
    // Begins without any.
    DefaultRoutes() : fd_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
        sockaddr_nl address{};
        address.nl_family = AF_NETLINK;
        address.nl_groups = RTMGRP_IPV4_ROUTE;
        EXPECT_EQ(bind(fd_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    }

    // Routes of an interface now, as "192.168.1.1 metric 10; 192.168.1.2 metric 0".
    std::string Of(const char* interfaceName) {
        ReadAll();
        const std::set<std::string>& routes = routes_[if_nametoindex(interfaceName)];
        return Joined({routes.begin(), routes.end()});
    }

    // The least number of routes that an interface had between two calls, after each message.
    std::size_t FewestOf(const char* interfaceName) {
        ReadAll();
        const u32 index = if_nametoindex(interfaceName);
        return std::exchange(fewest_[index], routes_[index].size());
    }

  private:
    void ReadAll() {
        alignas(nlmsghdr) char buffer[8192];
        for (ssize_t size = 0; (size = recv(fd_.Get(), buffer, sizeof(buffer), MSG_DONTWAIT)) > 0;) {
            for (auto* message = reinterpret_cast<const nlmsghdr*>(buffer); NLMSG_OK(message, size);
                 message = NLMSG_NEXT(message, size))
                Take(message);
        }
        EXPECT_EQ(errno, EAGAIN);
    }

    void Take(const nlmsghdr* message) {
        const auto* const route = static_cast<const rtmsg*>(NLMSG_DATA(message));
        if (route->rtm_table != RT_TABLE_MAIN || route->rtm_dst_len != 0) return;
        u32 index = 0;
        u32 metric = 0;
        in_addr gateway{};
        ssize_t size = RTM_PAYLOAD(message);
        for (const rtattr* attribute = RTM_RTA(route); RTA_OK(attribute, size); attribute = RTA_NEXT(attribute, size)) {
            if (attribute->rta_type == RTA_OIF) memcpy(&index, RTA_DATA(attribute), sizeof(index));
            if (attribute->rta_type == RTA_PRIORITY) memcpy(&metric, RTA_DATA(attribute), sizeof(metric));
            if (attribute->rta_type == RTA_GATEWAY) memcpy(&gateway, RTA_DATA(attribute), sizeof(gateway));
        }
        const std::string suffix = " metric " + std::to_string(metric);
        std::set<std::string>& routes = routes_[index];
        if ((message->nlmsg_flags & NLM_F_REPLACE) != 0)
            std::erase_if(routes, [&](const std::string& text) { return text.ends_with(suffix); });
        routes.erase(inet_ntoa(gateway) + suffix);
        if (message->nlmsg_type == RTM_NEWROUTE) routes.insert(inet_ntoa(gateway) + suffix);
        fewest_[index] = std::min(fewest_[index], routes.size());
    }

    UniqueFd fd_;
    std::map<u32, std::set<std::string>> routes_;
    std::map<u32, std::size_t> fewest_;
};

// True when the daemon defends the address against another host's claim.
bool IsDefended(const FarLink& peer, const std::string& ip) {
    peer.Send(Frame(kBroadcast, kPeerMac, Arp(1, kPeerMac, ip, kNoMac, ip)));
    const auto deadline = steady_clock::now() + milliseconds(200);
    while (steady_clock::now() < deadline) {
        const std::string frame = peer.Next(50);
        if (frame.size() >= 32 && frame[21] == 2 && frame.compare(28, 4, ip) == 0) return true;
    }
    return false;
}

const std::string kAdded = "\xc0\xa8\x01\x16";  // 192.168.1.22

TEST(NetlinkLab, ADefaultRouteGetsItsMetricAndIsNeverLost) {
    RunOnDevice("for i in 0 1 2; do ip addr add 192.168.$i.20/24 dev eth$i; done; ip link set eth1 down");
    const Daemon daemon;
    const FarLink peer("far1", ETH_P_ARP);
    EXPECT_TRUE(Eventually([&] { return IsDefended(peer, kFirst); }))
        << "a wired interface that is down at the start is brought up and takes part";
    DefaultRoutes routes;
    RunOnDevice("ip route add 10.0.0.0/8 via 192.168.0.1 && ip route add default via 192.168.0.1 table 100");
    RunOnDevice("ip route add default via 192.168.0.1 dev eth0");
    std::this_thread::sleep_for(milliseconds(2500));
    EXPECT_EQ(routes.Of("eth0"), "192.168.0.1 metric 0") << "without priorities nothing is touched";
    RunOnDevice("ip route del default");
    SetPriorities({10, 11, 12});
    // Each within the two seconds that are waited. Here a command gives the route its metric.
    RunOnDevice("ip route add default via 192.168.2.1 dev eth2");
    SetPriorities({10, 11, 22});
    RunOnDevice("ip route add default via 192.168.1.1 dev eth1 && ip route replace default via 192.168.1.2 dev eth1");
    RunOnDevice("ip route append default via 192.168.0.1 dev eth0 && ip route del default dev eth0");
    RunOnDevice("ip route append default via 192.168.0.1 dev eth0");
    for (const char* const name : {"eth0", "eth1", "eth2"}) {
        EXPECT_EQ(Split(routes.Of(name)).size(), 1U);
        (void)routes.FewestOf(name);
    }
    std::this_thread::sleep_for(std::chrono::seconds(5));
    EXPECT_EQ(routes.Of("eth0"), "192.168.0.1 metric 10");
    EXPECT_EQ(routes.Of("eth1"), "192.168.1.2 metric 11");
    EXPECT_EQ(routes.Of("eth2"), "192.168.2.1 metric 22");
    for (const char* const name : {"eth0", "eth1", "eth2"})
        EXPECT_EQ(routes.FewestOf(name), 1U) << name << " was without one";
    EXPECT_EQ(OutputOf("ip route show 10.0.0.0/8; ip route show table 100"),
              "10.0.0.0/8 via 192.168.0.1 dev eth0 \ndefault via 192.168.0.1 dev eth0 \n");
}

TEST(NetlinkLab, WhatAnOverrunLosesIsLookedUp) {
    RunOnDevice("ip addr add 192.168.1.20/24 dev eth0");
    const Daemon daemon;
    const FarLink peer("far0", ETH_P_ARP);
    SetPriorities({10});
    kill(daemon.Pid(), SIGSTOP);
    RunOnDevice(
        "for i in $(seq 1 3000); do echo addr add 10.9.$((i/250)).$((i%250+1))/32 dev eth0; echo addr del "
        "10.9.$((i/250)).$((i%250+1))/32 dev eth0; done | ip -batch -");
    DefaultRoutes routes;
    RunOnDevice("ip addr add 192.168.1.22/24 dev eth0 && ip route add default via 192.168.1.1 dev eth0");
    kill(daemon.Pid(), SIGCONT);
    const auto start = steady_clock::now();
    EXPECT_TRUE(Request(0x112, std::string("lo") + std::string(14, '\0')).has_value());
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(2)) << "requests do not wait for it";
    EXPECT_TRUE(Eventually([&] { return IsDefended(peer, kAdded); }));
    EXPECT_FALSE(IsDefended(peer, "\x0a\x09\x01\x02"));
    EXPECT_TRUE(IsLogged("netlink messages were lost")) << "the burst was too short for this test";
    EXPECT_TRUE(Eventually([&] { return routes.Of("eth0") == "192.168.1.1 metric 10"; }));
}

std::size_t Reads() {
    return ReadFile("/tmp/reads").size();
}

TEST(NetlinkLab, ChangesAreGathered) {
    // Nothing but IPv4: addresses of the other family come by themselves, a second or two after an interface.
    RunOnDevice("for i in 0 1 2; do echo 1 >/proc/sys/net/ipv6/conf/eth$i/disable_ipv6; done");
    RunOnDevice("ip addr add 192.168.1.20/24 dev eth0");
    // An `ip` in front of the real one notes each reading of eth0's addresses, and behind the first adds one.
    std::string real = OutputOf("command -v ip");
    real.pop_back();
    mkdir("/tmp/noting", 0755);
    WriteFile("/tmp/noting/ip", "#!/bin/sh\n" + real +
                                    " \"$@\"\nstatus=$?\n[ \"$*\" != '-4 addr show dev eth0' ] || {\n" +
                                    "[ -e /tmp/reads ] || " + real +
                                    " addr add 192.168.1.22/24 dev eth0\necho >>/tmp/reads\n}\nexit $status\n");
    chmod("/tmp/noting/ip", 0755);
    setenv("PATH", (std::string("/tmp/noting:") + getenv("PATH")).c_str(), 1);
    const Daemon daemon;
    const FarLink peer("far0", ETH_P_ARP);
    EXPECT_TRUE(Eventually([&] { return IsDefended(peer, kAdded); })) << "one that came while the table was built";
    std::this_thread::sleep_for(milliseconds(1300));
    EXPECT_EQ(Reads(), 2U) << "the start";

    WriteFile("/tmp/tesseldebug", "");
    RunOnDevice(
        "for i in $(seq 1 100); do echo addr add 10.9.0.$i/32 dev eth0; echo addr del 10.9.0.$i/32 dev eth0; done | "
        "ip -batch -");
    const auto noted = [] {
        return Split(ReadFile("/var/log/messages"), "TesselRouteMonitorThread detect ip change").size() - 1;
    };
    EXPECT_TRUE(Eventually([&] { return noted() >= 200U; })) << "each change is noted at once: " << noted();
    std::this_thread::sleep_for(milliseconds(500));
    EXPECT_THAT(Reads(), testing::AllOf(testing::Ge(3U), testing::Le(5U))) << "a burst";

    const std::size_t before = Reads();
    RunOnDevice(
        "for i in $(seq 1 70); do ip addr add 10.9.0.1/32 dev eth0; ip addr del 10.9.0.1/32 dev eth0; sleep 0.03; "
        "done");
    EXPECT_GE(Reads(), before + 2) << "changes that do not pause";

    SetPriorities({10});
    DefaultRoutes routes;
    RunOnDevice("ip route add default via 192.168.1.1 dev eth0 && ip addr add 192.168.1.23/24 dev eth0");
    const auto start = steady_clock::now();
    EXPECT_TRUE(Eventually([&] { return IsDefended(peer, "\xc0\xa8\x01\x17"); }));
    EXPECT_LT(steady_clock::now() - start, milliseconds(1700)) << "no route holds it up";
    EXPECT_TRUE(Eventually([&] { return routes.Of("eth0") == "192.168.1.1 metric 10"; }));
}

}  // namespace
}  // namespace tessel::test
