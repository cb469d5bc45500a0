// Routers that advertise themselves, and default routes that are not there, with the real `ip` tool and kernel.
#include <gmock/gmock.h>

#include <set>

#include "core/family.h"
#include "tests/support/conversation.h"
#include "tests/support/far.h"
#include "tests/support/listener.h"

namespace tessel::test {
namespace {

std::string GatewayRequest(u16 family, const std::string& name, u32 table) {
    return std::string(Bytes(family)) + Padded(name, 16) + Number(table);
}

TNetGatewayGetReply Gateway(u16 family, const std::string& name, u32 table = 0) {
    return ReplyTo<TNetGatewayGetReply>(0x110, GatewayRequest(family, name, table));
}

i32 DeleteGateway(u16 family, const std::string& name, u32 table = 0) {
    return RequestStatus(0x116, GatewayRequest(family, name, table));
}

TEST(RoutingLab, ALearntGatewayIsKept) {
    const Daemon daemon;
    AdvertiseRouter("far0", "2001:db8:5::");
    TNetGatewayGetReply learnt{};
    ASSERT_TRUE(Eventually([&] {
        learnt = Gateway(10, "eth0");
        return learnt.nResult == TESSEL_RESULT_LEARNT;
    }));
    const auto set = [&] { return RequestStatus(0x10F, Padded("eth0", 16) + std::string(Bytes(learnt.tGateway))); };
    EXPECT_EQ(set(), 0) << "as it is";
    EXPECT_THAT(OutputOf("ip -6 route show default"), testing::HasSubstr("expires"));
    learnt.tGateway.abyAddr[15] ^= 1;
    EXPECT_EQ(set(), 0);
    for (int i = 0; i < 3; ++i)  // one set, one learnt, none: an absent one is a success
        EXPECT_EQ(DeleteGateway(10, "eth0"), 0) << i;
    EXPECT_EQ(Gateway(10, "eth0").nResult, 0);
}

// But for IPv6, where an absent route counts as deleted unless it is one interface's in a numbered table.
TEST(RoutingLab, WhatIsNotThereCannotBeDeleted) {
    RunOnDevice("ip addr add 192.168.1.20/24 dev eth0 && ip addr add 2001:db8::20/64 dev eth0 nodad");
    RunOnDevice("ip route add 10.0.0.0/8 via 192.168.1.1 table 77");
    RunOnDevice("ip -6 route add 2001:db8:1::/64 via 2001:db8::1 table 77");
    const Daemon daemon;
    for (const u16 family : {u16{2}, u16{10}}) {
        const i32 ofInet6 = family == 10 ? 0 : -1;
        const TNetGatewayGetReply none{.nResult = 0, .tGateway = {.wSinFamily = family, .wReserved = 0, .abyAddr = {}}};
        for (const auto& [name, table, status] :
             {std::tuple("eth0", 0, ofInet6), {"", 0, ofInet6}, {"eth0", 77, -1}, {"", 77, ofInet6}})
            EXPECT_EQ(DeleteGateway(family, name, static_cast<u32>(table)), status) << family << name << table;
        EXPECT_EQ(Bytes(Gateway(family, "eth0", 77)), Bytes(none));
        for (const char* name : {"eth0", ""}) {
            EXPECT_EQ(DeleteGateway(family, name, 78), -1) << "a table that is not there";
            EXPECT_EQ(Gateway(family, name, 78).nResult, -1);
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

TEST(RoutingLab, WhatRoutersAdvertiseIsReported) {
    const Daemon daemon;
    Listener listener("ipc_router_notify_eth0_7_1");
    ASSERT_EQ(tessel_router_start("eth0", 7, 1), TESSEL_OK);
    const std::string router = "fe80::ff:fe00:100";
    AdvertiseRouter("far0", "2001:db8:1::");
    ExpectReport(listener, {"2001:db8:1:"}, router);
    AdvertiseRouter("far0", "2001:db8:2::", 1800, 8);
    ExpectReport(listener, {"2001:db8:1:", "2001:db8:2:"}, router);
    AdvertiseRouter("far0", "2001:db8:1::", 0);  // gone, which is reported with the next change of addresses
    ExpectReport(listener, {"2001:db8:1:"}, "::");
    AdvertiseRouter("far0", "2001:db8:1::");
    ExpectReport(listener, {"2001:db8:1:"}, router);
}

}  // namespace
}  // namespace tessel::test
