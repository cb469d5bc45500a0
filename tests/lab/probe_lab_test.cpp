// Ping and router watch with the real tools, between the device and a host that is a router as well.
#include <linux/if_ether.h>

#include <set>

#include "core/family.h"
#include "tests/support/conversation.h"
#include "tests/support/far.h"
#include "tests/support/listener.h"

namespace tessel::test {
namespace {

TEST(PingLab, BothFamilies) {
    RunOnDevice("ip addr add 10.9.0.1/24 dev eth0; ip addr add 2001:db8:9::1/64 dev eth0 nodad");
    RunOnDevice("ip -n far addr add 10.9.0.2/24 dev far0; ip -n far addr add 2001:db8:9::2/64 dev far0 nodad");
    const Daemon daemon;
    Listener listener("ipc_ping_7");
    const std::pair<const char*, i64> rows[] = {{"10.9.0.2", 0},      {"2001:db8:9::2", 0}, {"10.9.0.3", 1},
                                                {"2001:db8:9::3", 1}, {"203.0.113.1", 3},   {"2001:db8:a::1", 3}};
    for (const auto& [target, type] : rows) {
        const TNetPingStartReq request{Address(target), 0, 1, 64, 2, 7};
        ASSERT_TRUE(Eventually([&] { return tessel_ping_start(&request) == TESSEL_OK; })) << target;
        for (u32 sequence = 0; sequence < 2; ++sequence) {
            TNetPingResult result{};
            ASSERT_EQ(listener.Next(30000), type) << target;
            ASSERT_EQ(tessel_event_ping(&listener.event, &result), TESSEL_OK);
            EXPECT_TRUE(result.dwSeq == sequence && result.dwLast == sequence) << target;
            EXPECT_EQ(u32{result.dwTtl}, type == 0 ? 64U : 0U) << target;
            EXPECT_EQ(result.dwTime > 0, type == 0) << target;
        }
    }
}

// Waits for a report of addresses in these networks and this gateway; others may come before it.
void ExpectReport(Listener& listener, const std::set<std::string>& networks, const std::string& gateway) {
    std::set<std::string> found;
    TNetRouterNotify report{};
    do {
        ASSERT_EQ(listener.Next(20000), 0) << networks.size() << " " << gateway;
        ASSERT_EQ(tessel_event_router(&listener.event, &report), TESSEL_OK);
        found.clear();
        for (u32 i = 0; i < report.tIfaceIp.dwNum; ++i)
            found.insert(std::string(AddressText(10, &report.tIfaceIp.atIp[i].abyAddr).text, 11));
    } while (found != networks || AddressText(report.tGateway).text != gateway);
}

TEST(RouterLab, WhatRoutersAdvertise) {
    const FarLink link("far0", ETH_P_IPV6);
    const Daemon daemon;
    Listener listener("ipc_router_notify_eth0_7_1");
    ASSERT_EQ(tessel_router_start("eth0", 7, 1), TESSEL_OK);
    std::string frame;
    while (!(frame = link.Next()).empty() && (frame.size() != 62 || frame[54] != '\x85')) {
    }
    EXPECT_EQ(frame.size(), 62U) << "the kernel's own have an option";
    const std::string router = "fe80::ff:fe00:100";
    AdvertiseRouter("far0", "2001:db8:1::");
    ExpectReport(listener, {"2001:db8:1:"}, router);
    AdvertiseRouter("far0", "2001:db8:2::", 1800, 8);
    ExpectReport(listener, {"2001:db8:1:", "2001:db8:2:"}, router);
    AdvertiseRouter("far0", "2001:db8:1::", 0);  // gone, which is reported with the next change of addresses
    ExpectReport(listener, {"2001:db8:1:"}, "::");
    AdvertiseRouter("far0", "2001:db8:1::");
    ExpectReport(listener, {"2001:db8:1:"}, router);
    EXPECT_EQ(tessel_router_stop("eth0"), TESSEL_OK);
}

}  // namespace
}  // namespace tessel::test
