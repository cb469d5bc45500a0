// What the kernel has by itself, and what others do to addresses and default routes: what becomes of it.
#include <linux/if_ether.h>

#include "tessel/address.h"
#include "tessel/gateway.h"
#include "tessel/priority.h"
#include "tests/support/arp.h"
#include "tests/support/daemon.h"
#include "tests/support/far.h"

namespace tessel::test {
namespace {

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

// True when the daemon defends the address against another host's claim.
bool IsDefended(const FarLink& peer, const std::string& ip) {
    peer.Send(Frame(kBroadcast, kPeerMac, Arp(1, kPeerMac, ip, kNoMac, ip)));
    const auto deadline = steady_clock::now() + 200ms;
    while (steady_clock::now() < deadline) {
        const std::string frame = peer.Next(50);
        if (frame.size() >= 32 && frame[21] == 2 && frame.compare(28, 4, ip) == 0) return true;
    }
    return false;
}

bool HasMetric10() {
    return OutputOf("ip route show default dev eth0") == "default via 192.168.1.1 metric 10 \n";
}

const std::string kAdded = "\xc0\xa8\x01\x16";  // 192.168.1.22

TEST(NetlinkLab, ADefaultRouteGetsItsMetricAndIsNeverLost) {
    RunOnDevice("for i in 0 1 2; do ip addr add 192.168.$i.20/24 dev eth$i; done; ip link set eth1 down");
    RunOnDevice("ip monitor route >/tmp/routes &");
    const Daemon daemon;
    const FarLink peer("far1", ETH_P_ARP);
    EXPECT_TRUE(Eventually([&] { return IsDefended(peer, kFirst); }))
        << "a wired interface that is down at the start is brought up and takes part";
    RunOnDevice("ip route add 10.0.0.0/8 via 192.168.0.1 && ip route add default via 192.168.0.1 table 100");
    RunOnDevice("ip route add default via 192.168.0.1 dev eth0");
    std::this_thread::sleep_for(2500ms);
    RunOnDevice("ip route del default");
    SetPriorities({10, 11, 12});
    // Each within the two seconds that are waited. Here a command gives the route its metric.
    RunOnDevice("ip route add default via 192.168.2.1 dev eth2");
    SetPriorities({10, 11, 22});
    RunOnDevice("ip route add default via 192.168.1.1 dev eth1 && ip route replace default via 192.168.1.2 dev eth1");
    RunOnDevice("ip route append default via 192.168.0.1 dev eth0 && ip route del default dev eth0");
    RunOnDevice("ip route append default via 192.168.0.1 dev eth0");
    std::this_thread::sleep_for(5s);
    // The one with a metric is there before the other goes. Without priorities nothing was touched.
    const std::pair<std::string, const char*> rows[] = {
        {"eth0", "192.168.0.1 -192.168.0.1 192.168.0.1 -192.168.0.1 192.168.0.1 192.168.0.1 10 -192.168.0.1 "},
        {"eth1", "192.168.1.1 192.168.1.2 192.168.1.2 11 -192.168.1.2 "},
        {"eth2", "192.168.2.1 -192.168.2.1 192.168.2.1 22 "},
    };
    const std::string read = "sed -n '/default/!d; /table/d; s/default via //; s/Deleted /-/; s/dev ";
    for (const auto& [name, changes] : rows)
        EXPECT_EQ(OutputOf(read + name + " *\\(metric \\)*//p' /tmp/routes | tr -d '\\n'"), changes) << name;
    EXPECT_EQ(OutputOf("ip route show 10.0.0.0/8; ip route show table 100"),
              "10.0.0.0/8 via 192.168.0.1 dev eth0 \ndefault via 192.168.0.1 dev eth0 \n");
}

TEST(NetlinkLab, WhatAnOverrunLosesIsLookedUp) {
    const Daemon daemon;
    const FarLink peer("far0", ETH_P_ARP);
    SetPriorities({10});
    RunOnDevice("ip addr add 192.168.1.20/24 dev eth0");
    ASSERT_TRUE(Eventually([&] { return IsDefended(peer, kFirst); })) << "the monitor listens";
    kill(daemon.Pid(), SIGSTOP);
    RunOnDevice(
        "for i in $(seq 1 3000); do echo addr add 10.9.$((i/250)).$((i%250+1))/32 dev eth0; echo addr del "
        "10.9.$((i/250)).$((i%250+1))/32 dev eth0; done | ip -batch -");
    RunOnDevice("ip addr add 192.168.1.22/24 dev eth0 && ip route add default via 192.168.1.1 dev eth0");
    kill(daemon.Pid(), SIGCONT);
    EXPECT_LT(TimeOf([] { EXPECT_TRUE(Serves()); }), 2s) << "requests do not wait for it";
    EXPECT_TRUE(Eventually([&] { return IsDefended(peer, kAdded); }));
    EXPECT_FALSE(IsDefended(peer, "\x0a\x09\x01\x02"));
    EXPECT_TRUE(IsLogged("netlink messages were lost")) << "the burst was too short for this test";
    EXPECT_TRUE(Eventually(&HasMetric10));
}

TEST(NetlinkLab, ChangesAreGathered) {
    // Nothing but IPv4: addresses of the other family come by themselves, a second or two after an interface.
    RunOnDevice("for i in 0 1 2; do echo 1 >/proc/sys/net/ipv6/conf/eth$i/disable_ipv6; done");
    RunOnDevice("ip addr add 192.168.1.20/24 dev eth0");
    // An `ip` in front of the real one notes each reading of eth0's addresses, and behind the first adds one.
    WriteProgram(MakeProgramFolder() + "/ip", R"(#!/bin/sh
PATH=${PATH#*:}
ip "$@"
status=$?
[ "$*" != '-4 addr show dev eth0' ] || {
    [ -e /tmp/reads ] || ip addr add 192.168.1.22/24 dev eth0
    echo >>/tmp/reads
}
exit $status)");
    const auto reads = [] { return ReadFile("/tmp/reads").size(); };
    const Daemon daemon;
    const FarLink peer("far0", ETH_P_ARP);
    EXPECT_TRUE(Eventually([&] { return IsDefended(peer, kAdded); })) << "one that came while the table was built";
    std::this_thread::sleep_for(1300ms);
    EXPECT_EQ(reads(), 2U) << "the start";

    WriteFile("/tmp/tesseldebug", "");
    RunOnDevice(
        "for i in $(seq 1 100); do echo addr add 10.9.0.$i/32 dev eth0; echo addr del 10.9.0.$i/32 dev eth0; done | "
        "ip -batch -");
    const auto noted = [] {
        return Split(ReadFile("/var/log/messages"), "TesselRouteMonitorThread detect ip change").size() - 1;
    };
    EXPECT_TRUE(Eventually([&] { return noted() >= 200U; })) << "each change is noted at once: " << noted();
    std::this_thread::sleep_for(500ms);
    EXPECT_THAT(reads(), testing::AllOf(testing::Ge(3U), testing::Le(5U))) << "a burst";

    const std::size_t before = reads();
    RunOnDevice(
        "for i in $(seq 1 70); do ip addr add 10.9.0.1/32 dev eth0; ip addr del 10.9.0.1/32 dev eth0; sleep 0.03; "
        "done");
    EXPECT_GE(reads(), before + 2) << "changes that do not pause";

    SetPriorities({10});
    RunOnDevice("ip route add default via 192.168.1.1 dev eth0 && ip addr add 192.168.1.23/24 dev eth0");
    const auto awaitDefence = [&] { EXPECT_TRUE(Eventually([&] { return IsDefended(peer, "\xc0\xa8\x01\x17"); })); };
    EXPECT_LT(TimeOf(awaitDefence), 1700ms) << "no route holds it up";
    EXPECT_TRUE(Eventually(&HasMetric10));
}

TEST(NetlinkLab, ALearntGatewayIsKept) {
    const Daemon daemon;
    AdvertiseRouter("far0", "2001:db8:5::");
    const std::string ofEth0 = std::string(Bytes(u16{10})) + Padded("eth0", 16);
    TNetGatewayGetReply learnt{};
    ASSERT_TRUE(Eventually([&] {
        learnt = ReplyTo<TNetGatewayGetReply>(0x110, ofEth0);
        return learnt.nResult == TESSEL_RESULT_LEARNT;
    }));
    const auto set = [&] { return RequestStatus(0x10F, Padded("eth0", 16) + std::string(Bytes(learnt.tGateway))); };
    EXPECT_EQ(set(), 0) << "as it is";
    EXPECT_THAT(OutputOf("ip -6 route show default"), HasSubstr("expires"));
    learnt.tGateway.abyAddr[15] ^= 1;
    EXPECT_EQ(set(), 0);
    for (int i = 0; i < 3; ++i)  // one set, one learnt, none: an absent one is a success
        EXPECT_EQ(RequestStatus(0x116, ofEth0), 0) << i;
    EXPECT_EQ(RequestStatus(0x110, ofEth0), 0);
}

// The longest texts that addresses have, still marked as tentative, have room in what is kept of a tool's output.
TEST(NetlinkLab, SixteenLongAddressesAreSetTwiceAndRead) {
    const Daemon daemon;
    TNetIpaddrSetReq set{.wSinFamily = 10, .achDevName = "eth0", .tIfaceIp = {.dwNum = 16, .atIp = {}}};
    for (int i = 0; i < 16; ++i) {
        TNetIpAddr& entry = set.tIfaceIp.atIp[i];
        entry.wSinFamily = 10;
        entry.dwPrefixLen = 128;
        inet_pton(AF_INET6, ("2001:1db8:1111:2222:3333:4444:5555:66" + std::to_string(10 + i)).c_str(), entry.abyAddr);
    }
    for (const char* round : {"first", "again"}) {
        ASSERT_EQ(RequestStatus(0x105, Bytes(set)), 0) << round;
        const auto read = ReplyTo<TNetIpaddrGetReply>(0x115, std::string(Bytes(u16{10})) + Padded("eth0", 16)).tIfaceIp;
        EXPECT_TRUE(read.dwNum == 16 && read.atIp[15].bTentative == 1) << round << read.dwNum;
        EXPECT_EQ(ReplyTo<TNetIpaddrShowReply>(0x11B, Padded("eth0", 16)).tInfo.num, 16U) << round;
    }
    EXPECT_EQ(OutputOf("ip -6 addr show dev eth0 scope global | grep -c inet6"), "16\n");
}

}  // namespace
}  // namespace tessel::test
