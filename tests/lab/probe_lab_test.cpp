// Ping and router watch with the real tools, between the device and a host that is a router as well.
#include <linux/if_ether.h>

#include <algorithm>

#include "core/family.h"
#include "tests/support/conversation.h"
#include "tests/support/far.h"
#include "tests/support/lines.h"
#include "tests/support/listener.h"

namespace tessel::test {
namespace {

using namespace std::string_literals;

TEST(PingLab, BothFamilies) {
    RunOnDevice("ip addr add 10.9.0.1/24 dev eth0; ip addr add 2001:db8:9::1/64 dev eth0 nodad");
    RunOnDevice("ip -n far addr add 10.9.0.2/24 dev far0; ip -n far addr add 2001:db8:9::2/64 dev far0 nodad");
    const Daemon daemon;
    const struct {
        const char* target;
        i64 expectedType;
    } rows[] = {{"10.9.0.2", 0},      {"2001:db8:9::2", 0}, {"10.9.0.3", 1},
                {"2001:db8:9::3", 1}, {"203.0.113.1", 3},   {"2001:db8:a::1", 3}};
    for (const auto& row : rows) {
        Listener listener("ipc_ping_7");
        const TNetPingStartReq ping{
            .tTarget = Address(row.target), .dwPacketSize = 0, .dwTimeout = 1, .dwTtl = 64, .dwCount = 2, .nUserId = 7};
        ASSERT_TRUE(Eventually([&] { return tessel_ping_start(&ping) == TESSEL_OK; })) << row.target;
        for (u32 sequence = 0; sequence < 2; ++sequence) {
            TNetPingResult result{};
            ASSERT_EQ(listener.Next(30000), row.expectedType) << row.target;
            ASSERT_EQ(tessel_event_ping(&listener.event, &result), TESSEL_OK);
            EXPECT_EQ(u32{result.dwSeq}, sequence) << row.target;
            EXPECT_EQ(u32{result.dwLast}, sequence) << row.target;
            EXPECT_EQ(u32{result.dwTtl}, row.expectedType == 0 ? 64U : 0U) << row.target;
            EXPECT_EQ(result.dwTime > 0, row.expectedType == 0) << row.target;
        }
    }
}

// Waits for a report of these addresses and this gateway; those in between may come earlier.
void ExpectReport(Listener& listener, const std::vector<std::string>& prefixes, const std::string& gateway) {
    std::string text;
    TNetRouterNotify report{};
    do {
        ASSERT_EQ(listener.Next(20000), 0) << Joined(prefixes) << " " << gateway << ", but last " << text;
        ASSERT_EQ(tessel_event_router(&listener.event, &report), TESSEL_OK);
        std::vector<std::string> found;
        for (u32 i = 0; i < report.tIfaceIp.dwNum; ++i) {
            const std::string address = AddressText(10, &report.tIfaceIp.atIp[i].abyAddr).text;
            found.push_back(address.substr(0, address.rfind("::") != std::string::npos ? address.rfind("::") : 13));
        }
        std::sort(found.begin(), found.end());
        text = Joined(found) + " " + AddressText(report.tGateway).text;
    } while (text != Joined(prefixes) + " " + gateway);
}

TEST(RouterLab, WhatRoutersAdvertise) {
    for (const char* name : {"accept_ra", "forwarding"})
        WriteFile(std::string("/proc/sys/net/ipv6/conf/eth0/") + name, name[0] == 'a' ? "2" : "0");
    const std::string router = "fe80::ff:fe00:100";
    const FarLink link("far0", ETH_P_IPV6);
    const Daemon daemon;
    Listener listener("ipc_router_notify_eth0_7_1");
    ASSERT_EQ(tessel_router_start("eth0", 7, 1), TESSEL_OK);
    std::string frame;
    while (!(frame = link.Next()).empty() && (frame.size() != 62 || frame[54] != '\x85')) {
    }
    EXPECT_EQ(frame.substr(0, 14), "\x33\x33\0\0\0\x02\x02\0\0\0\0\0\x86\xdd"s);
    AdvertiseRouter("far0", "2001:db8:1::");
    ExpectReport(listener, {"2001:db8:1"}, router);
    AdvertiseRouter("far0", "2001:db8:2::", 1800, 8);
    ExpectReport(listener, {"2001:db8:1", "2001:db8:2"}, router);
    AdvertiseRouter("far0", "2001:db8:1::", 0);
    ExpectReport(listener, {"2001:db8:1"}, "::");
    AdvertiseRouter("far0", "2001:db8:1::");
    ExpectReport(listener, {"2001:db8:1"}, router);
    EXPECT_EQ(tessel_router_stop("eth0"), TESSEL_OK);
}

}  // namespace
}  // namespace tessel::test
