// Two uplinks, the real `ip` tool and the kernel's choice between them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>
#include <string>

#include "core/unique_fd.h"
#include "tessel/gateway.h"
#include "tessel/priority.h"
#include "tessel/route.h"
#include "tests/support/daemon.h"
#include "tests/support/far.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

using testing::HasSubstr;
using testing::Not;

TNetGateway Inet(u8 a, u8 b, u8 c, u8 d) {
    return {.wSinFamily = 2, .wReserved = 0, .abyAddr = {a, b, c, d}};
}

void AddressBothUplinks() {
    RunOnDevice("ip addr add 192.168.1.20/24 dev eth0 && ip addr add 192.168.2.20/24 dev eth1");
    RunOnDevice("ip -n far addr add 192.168.1.1/24 dev far0 && ip -n far addr add 192.168.2.1/24 dev far1");
}

i32 SetGateway(const char* name, const TNetGateway& gateway, u32 table = 0) {
    TNetGatewaySetReq request{.achDevName = {}, .tGateway = gateway, .dwTable = table};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return RequestStatus(0x10F, Bytes(request));
}

std::string GatewayRequest(u16 family, const char* name, u32 table) {
    TNetGatewayReq request{.wSinFamily = family, .achDevName = {}, .dwTable = table};
    strncpy(request.achDevName, name, sizeof(request.achDevName));
    return std::string(Bytes(request));
}

TNetGatewayGetReply Gateway(u16 family, const char* name, u32 table = 0) {
    return ReplyTo<TNetGatewayGetReply>(0x110, GatewayRequest(family, name, table));
}

i32 DeleteGateway(u16 family, const char* name, u32 table = 0) {
    return RequestStatus(0x116, GatewayRequest(family, name, table));
}

TNetPrioParamList Priorities(i32 eth0, i32 eth1) {
    return {.dwNum = 2,
            .atPrio = {{.achDevName = "eth0", .nPriority = eth0}, {.achDevName = "eth1", .nPriority = eth1}}};
}

std::string ChosenUplink(const std::string& more = "") {
    return OutputOf("ip route get 203.0.113.1 " + more);
}

TEST(RoutingLab, TheKernelFollowsThePriorities) {
    AddressBothUplinks();
    const Daemon daemon;
    ASSERT_EQ(SetGateway("eth0", Inet(192, 168, 1, 1)), 0);
    EXPECT_EQ(SetGateway("eth1", Inet(192, 168, 2, 1)), -1) << "a second one without a metric";
    EXPECT_EQ(SetGateway("eth1", Inet(192, 168, 9, 1)), -1) << "a gateway out of reach";
    RunOnDevice("ip route add default via 192.168.2.1 dev eth1 metric 5");

    ASSERT_EQ(RequestStatus(0x11C, Bytes(Priorities(10, 20))), 0);
    EXPECT_EQ(OutputOf("ip route show default"),
              "default via 192.168.1.1 dev eth0 metric 10 \ndefault via 192.168.2.1 dev eth1 metric 20 \n");
    EXPECT_THAT(ChosenUplink(), HasSubstr("via 192.168.1.1 dev eth0"));
    EXPECT_EQ(*Request(0x11D, ""), Bytes(Priorities(10, 20)));

    ASSERT_EQ(RequestStatus(0x11C, Bytes(Priorities(20, 10))), 0);
    EXPECT_THAT(ChosenUplink(), HasSubstr("via 192.168.2.1 dev eth1"));
    EXPECT_EQ(*Request(0x11D, ""), Bytes(Priorities(20, 10)));
    EXPECT_EQ(Bytes(Gateway(2, "eth1").tGateway), Bytes(Inet(192, 168, 2, 1)));

    ASSERT_EQ(DeleteGateway(2, "eth1"), 0);
    EXPECT_EQ(DeleteGateway(2, "eth1"), -1);
    EXPECT_THAT(ChosenUplink(), HasSubstr("via 192.168.1.1 dev eth0"));
    EXPECT_EQ(SetGateway("eth0", Inet(0, 0, 0, 0)), 0);
    EXPECT_EQ(OutputOf("ip route show default"), "");
}

TEST(RoutingLab, ALearntGatewayIsKept) {
    const Daemon daemon;
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
TEST(RoutingLab, WhatIsNotThereCannotBeDeleted) {
    AddressBothUplinks();
    RunOnDevice("ip addr add 2001:db8::20/64 dev eth0 nodad");
    RunOnDevice("ip route add 10.0.0.0/8 via 192.168.1.1 table 77");
    RunOnDevice("ip -6 route add 2001:db8:1::/64 via 2001:db8::1 table 77");
    const Daemon daemon;
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

// True when a marked datagram from eth0's address arrives behind `farInterface`.
bool MarkedPacketArrives(const std::string& farInterface) {
    const std::string file = "/tmp/arrived-" + farInterface;
    RunOnDevice("ip netns exec far socat -u UDP-RECV:9000,so-bindtodevice=" + farInterface + " OPEN:" + file +
                ",creat,append & echo $! >/tmp/receiver");
    const UniqueFd sender(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const u32 mark = 7;
    sockaddr_in source{};
    source.sin_family = AF_INET;
    inet_pton(AF_INET, "192.168.1.20", &source.sin_addr);
    sockaddr_in target = source;
    target.sin_port = htons(9000);
    inet_pton(AF_INET, "203.0.113.1", &target.sin_addr);
    EXPECT_EQ(setsockopt(sender.Get(), SOL_SOCKET, SO_MARK, &mark, sizeof(mark)), 0);
    EXPECT_EQ(bind(sender.Get(), reinterpret_cast<const sockaddr*>(&source), sizeof(source)), 0);
    const bool arrived = Eventually([&] {
        (void)sendto(sender.Get(), "x", 1, 0, reinterpret_cast<const sockaddr*>(&target), sizeof(target));
        return !ReadFile(file).empty();
    });
    RunOnDevice("kill $(cat /tmp/receiver)");
    return arrived;
}

TEST(RoutingLab, ATableOfItsOwnSteersMarkedPackets) {
    AddressBothUplinks();
    RunOnDevice("ip -n far addr add 203.0.113.1/32 dev lo");
    const Daemon daemon;
    ASSERT_EQ(SetGateway("eth0", Inet(192, 168, 1, 1)), 0);
    ASSERT_EQ(SetGateway("eth1", Inet(192, 168, 2, 1), 100), 0);
    EXPECT_TRUE(MarkedPacketArrives("far0"));

    const TNetIpRule rule{
        .tSrcIpNet = Inet(192, 168, 1, 0), .nPrefixLen = 24, .nPref = 50, .nTable = 100, .nFwmark = 7};
    ASSERT_EQ(RequestStatus(0x123, Bytes(rule)), 0);
    EXPECT_THAT(OutputOf("ip rule show"), HasSubstr("50:\tfrom 192.168.1.0/24 fwmark 0x7 lookup 100"));
    EXPECT_TRUE(MarkedPacketArrives("far1"));
    EXPECT_THAT(ChosenUplink(), HasSubstr("dev eth0")) << "without the mark";

    // A route beside the default one, its metric, and the rule for everything.
    TNetRouteReq route{.achDevName = "eth1", .tRoute = {}, .dwTable = 0};
    route.tRoute = {.achDevName = "eth1",
                    .tDestIpNet = Inet(203, 0, 113, 0),
                    .tGateway = Inet(192, 168, 2, 1),
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
