// Two uplinks, the real `ip` tool and the kernel's choice between them.
#include <gmock/gmock.h>

#include <string>

#include "tessel/priority.h"
#include "tessel/route.h"
#include "tests/support/conversation.h"
#include "tests/support/far.h"

namespace tessel::test {
namespace {

using testing::HasSubstr;
using testing::Not;

class RoutingLab : public testing::Test {
  protected:
    RoutingLab() {
        RunOnDevice("ip addr add 192.168.1.20/24 dev eth0 && ip addr add 192.168.2.20/24 dev eth1");
    }
    const Daemon daemon_;
};

i32 SetGateway(const std::string& name, const TNetGateway& gateway, u32 table = 0) {
    return RequestStatus(0x10F, Padded(name, 16) + std::string(Bytes(gateway)) + Number(table));
}

std::string GatewayRequest(u16 family, const std::string& name, u32 table) {
    return std::string(Bytes(family)) + Padded(name, 16) + Number(table);
}

TNetGatewayGetReply Gateway(u16 family, const std::string& name, u32 table = 0) {
    return ReplyTo<TNetGatewayGetReply>(0x110, GatewayRequest(family, name, table));
}

i32 DeleteGateway(u16 family, const std::string& name, u32 table = 0) {
    return RequestStatus(0x116, GatewayRequest(family, name, table));
}

// Sets those of eth0 and eth1, and reads them.
void Prioritise(i32 eth0, i32 eth1) {
    const TNetPrioParamList list{2, {{"eth0", eth0}, {"eth1", eth1}}};
    ASSERT_EQ(RequestStatus(0x11C, Bytes(list)), 0);
    EXPECT_EQ(*Request(0x11D, ""), Bytes(list));
}

// The way of a packet from the device, or of one that is like `more`.
std::string ChosenUplink(const std::string& more = "") {
    return OutputOf("ip route get 203.0.113.1 " + more);
}

TEST_F(RoutingLab, TheKernelFollowsThePriorities) {
    ASSERT_EQ(SetGateway("eth0", Address("192.168.1.1")), 0);
    EXPECT_EQ(SetGateway("eth1", Address("192.168.2.1")), -1) << "a second one without a metric";
    EXPECT_EQ(SetGateway("eth1", Address("192.168.9.1")), -1) << "a gateway out of reach";
    RunOnDevice("ip route add default via 192.168.2.1 dev eth1 metric 5");

    Prioritise(10, 20);
    EXPECT_EQ(OutputOf("ip route show default"),
              "default via 192.168.1.1 dev eth0 metric 10 \ndefault via 192.168.2.1 dev eth1 metric 20 \n");
    EXPECT_THAT(ChosenUplink(), HasSubstr("via 192.168.1.1 dev eth0"));
    Prioritise(20, 10);
    EXPECT_THAT(ChosenUplink(), HasSubstr("via 192.168.2.1 dev eth1"));
    EXPECT_EQ(Bytes(Gateway(2, "eth1").tGateway), Bytes(Address("192.168.2.1")));

    ASSERT_EQ(DeleteGateway(2, "eth1"), 0);
    EXPECT_EQ(DeleteGateway(2, "eth1"), -1);
    EXPECT_THAT(ChosenUplink(), HasSubstr("via 192.168.1.1 dev eth0"));
    EXPECT_EQ(SetGateway("eth0", Address("0.0.0.0")), 0);
    EXPECT_EQ(OutputOf("ip route show default"), "");
}

TEST_F(RoutingLab, ALearntGatewayIsKept) {
    AdvertiseRouter("far0", "2001:db8:5::");
    TNetGatewayGetReply learnt{};
    ASSERT_TRUE(Eventually([&] {
        learnt = Gateway(10, "eth0");
        return learnt.nResult == TESSEL_RESULT_LEARNT;
    }));
    EXPECT_EQ(SetGateway("eth0", learnt.tGateway), 0) << "as it is";
    EXPECT_THAT(OutputOf("ip -6 route show default"), HasSubstr("expires"));
    learnt.tGateway.abyAddr[15] ^= 1;
    EXPECT_EQ(SetGateway("eth0", learnt.tGateway), 0);
    for (int i = 0; i < 3; ++i)  // one set, one learnt, none: an absent one is a success
        EXPECT_EQ(DeleteGateway(10, "eth0"), 0) << i;
    EXPECT_EQ(Gateway(10, "eth0").nResult, 0);
}

// But for IPv6, where an absent route counts as deleted unless it is one interface's in a numbered table.
TEST_F(RoutingLab, WhatIsNotThereCannotBeDeleted) {
    RunOnDevice("ip addr add 2001:db8::20/64 dev eth0 nodad");
    RunOnDevice("ip route add 10.0.0.0/8 via 192.168.1.1 table 77");
    RunOnDevice("ip -6 route add 2001:db8:1::/64 via 2001:db8::1 table 77");
    for (const u16 family : {u16{2}, u16{10}}) {
        const i32 ofInet6 = family == 10 ? 0 : -1;
        EXPECT_EQ(DeleteGateway(family, "eth0"), ofInet6);
        EXPECT_EQ(DeleteGateway(family, ""), ofInet6);
        EXPECT_EQ(DeleteGateway(family, "eth0", 77), -1);
        EXPECT_EQ(DeleteGateway(family, "", 77), ofInet6) << "all of a table that is there";
        EXPECT_EQ(Bytes(Gateway(family, "eth0", 77)),
                  Bytes(TNetGatewayGetReply{.nResult = 0,
                                            .tGateway = {.wSinFamily = family, .wReserved = 0, .abyAddr = {}}}));
        for (const char* name : {"eth0", ""}) {
            EXPECT_EQ(DeleteGateway(family, name, 78), -1) << "a table that is not there";
            EXPECT_EQ(Gateway(family, name, 78).nResult, -1);
        }
    }
}

TEST_F(RoutingLab, ATableOfItsOwnSteersMarkedPackets) {
    ASSERT_EQ(SetGateway("eth0", Address("192.168.1.1")), 0);
    ASSERT_EQ(SetGateway("eth1", Address("192.168.2.1"), 100), 0);
    const std::string marked = "from 192.168.1.20 mark 7";
    EXPECT_THAT(ChosenUplink(marked), HasSubstr("dev eth0"));
    const TNetIpRule rule{
        .tSrcIpNet = Address("192.168.1.0"), .nPrefixLen = 24, .nPref = 50, .nTable = 100, .nFwmark = 7};
    ASSERT_EQ(RequestStatus(0x123, Bytes(rule)), 0);
    EXPECT_THAT(OutputOf("ip rule show"), HasSubstr("50:\tfrom 192.168.1.0/24 fwmark 0x7 lookup 100"));
    EXPECT_THAT(ChosenUplink(marked), HasSubstr("via 192.168.2.1 dev eth1"));
    EXPECT_THAT(ChosenUplink(), HasSubstr("dev eth0")) << "without the mark";

    // A route beside the default one, its metric, and the rule for everything.
    TNetRouteReq route{.achDevName = "eth1", .tRoute = {}, .dwTable = 0};
    route.tRoute = {.achDevName = "eth1",
                    .tDestIpNet = Address("203.0.113.0"),
                    .tGateway = Address("192.168.2.1"),
                    .nPrefixLen = 24,
                    .nMetric = 3};
    ASSERT_EQ(RequestStatus(0x10B, Bytes(route)), 0);
    EXPECT_EQ(RequestStatus(0x10B, Bytes(route)), -1) << "there already";
    route.tRoute.nMetric = 9;
    EXPECT_EQ(RequestStatus(0x114, Bytes(route.tRoute)), 0);
    TNetRouteGetAllReply expected{};
    expected.tRoutes.dwNum = 1;
    expected.tRoutes.atRoute[0] = route.tRoute;
    EXPECT_EQ(*Request(0x113, Bytes(u16{2})), Bytes(expected));
    ASSERT_EQ(RequestStatus(0x10D, Bytes(route)), 0);
    EXPECT_THAT(ChosenUplink(), HasSubstr("dev eth0"));

    ASSERT_EQ(RequestStatus(0x124, Bytes(rule)), 0);
    ASSERT_EQ(RequestStatus(0x120, Bytes(u32{100})), 0);
    EXPECT_THAT(ChosenUplink(), HasSubstr("dev eth1 table 100"));
    ASSERT_EQ(RequestStatus(0x121, Bytes(u32{100})), 0);
    EXPECT_THAT(OutputOf("ip rule show"), Not(HasSubstr("lookup 100")));
}

}  // namespace
}  // namespace tessel::test
