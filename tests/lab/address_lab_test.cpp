// Addresses and what routers give, with the real `ip` tool and the real kernel.
#include <gmock/gmock.h>

#include <span>

#include "core/family.h"
#include "tessel/address.h"
#include "tests/support/conversation.h"
#include "tests/support/far.h"

namespace tessel::test {
namespace {

std::vector<std::string> TextsOf(const TNetIfaceIp& list) {
    std::vector<std::string> texts;
    for (const TNetIpAddr& entry : std::span(list.atIp, list.dwNum))
        texts.push_back(AddressText(entry.wSinFamily, &entry.abyAddr).text + ("/" + std::to_string(entry.dwPrefixLen)));
    return texts;
}

TNetIfaceIp ListOf(u16 family) {
    return ReplyTo<TNetIpaddrGetReply>(0x115, std::string(Bytes(family)) + Padded("eth0", 16)).tIfaceIp;
}

void Append(TNetIpaddrSetReq& set, const std::string& text, u32 prefix) {
    const TNetGateway address = Address(text.c_str());
    TNetIpAddr& entry = set.tIfaceIp.atIp[set.tIfaceIp.dwNum++];
    entry.wSinFamily = address.wSinFamily;
    entry.dwPrefixLen = prefix;
    memcpy(entry.abyAddr, address.abyAddr, sizeof(entry.abyAddr));
}

// Setting and flushing both families keep what the kernel made itself and what a router gave.
TEST(AddressLab, WhatTheKernelHasIsReadSetAndFlushed) {
    RunOnDevice("ip addr add 192.168.1.20/24 dev eth0 && ip addr add 10.0.0.1 peer 10.0.0.2/32 dev eth0");
    RunOnDevice("ip addr add 2001:db8::20/64 dev eth0 nodad");
    AdvertiseRouter("far0", "2001:db8:5::");
    const std::string learnt = "2001:db8:5::ff:fe00:0/64";
    const std::string own = "fe80::ff:fe00:0/64";
    ASSERT_TRUE(Eventually([&] { return OutputOf("ip -6 addr show dev eth0").find(learnt) != std::string::npos; }));
    const Daemon daemon;
    const auto expect = [](std::vector<std::string> texts) { EXPECT_EQ(TextsOf(ListOf(11)), texts); };
    expect({"192.168.1.20/24", "10.0.0.1/32", learnt, "2001:db8::20/64", own});
    const TNetIfaceIp read = ListOf(10);
    EXPECT_TRUE(read.atIp[0].bDynamic == 1 && read.atIp[1].dwScope == 4 && read.atIp[2].dwScope == 2);
    TNetIpaddrSetReq set{.wSinFamily = 11, .achDevName = "eth0", .tIfaceIp = {}};
    Append(set, "192.168.1.21", 24);
    Append(set, "2001:db8::21", 64);
    Append(set, "10.0.0.1", 8);
    for (const char* round : {"first", "the same again"}) {
        ASSERT_EQ(RequestStatus(0x105, Bytes(set)), 0) << round;
        expect({"192.168.1.21/24", "10.0.0.1/8", "2001:db8::21/64", learnt, own});
    }
    EXPECT_EQ(RequestStatus(0x104, Bytes(TNetIpaddrFlushReq{.wSinFamily = 11, .achDevName = "eth0"})), 0);
    expect({learnt, own});
}

TEST(AddressLab, ALearntGatewayIsKept) {
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
    EXPECT_THAT(OutputOf("ip -6 route show default"), testing::HasSubstr("expires"));
    learnt.tGateway.abyAddr[15] ^= 1;
    EXPECT_EQ(set(), 0);
    for (int i = 0; i < 3; ++i)  // one set, one learnt, none: an absent one is a success
        EXPECT_EQ(RequestStatus(0x116, ofEth0), 0) << i;
    EXPECT_EQ(RequestStatus(0x110, ofEth0), 0);
}

// The longest texts that addresses have, still marked as tentative, and the link-local one behind them: more than is
// kept of the tool's output.
TEST(AddressLab, SixteenLongAddressesAreSetTwiceAndRead) {
    const Daemon daemon;
    TNetIpaddrSetReq set{.wSinFamily = 10, .achDevName = "eth0", .tIfaceIp = {}};
    for (int i = 10; i < 26; ++i)
        Append(set, "2001:1db8:1111:2222:3333:4444:5555:66" + std::to_string(i), 128);
    const std::vector<std::string> wanted = TextsOf(set.tIfaceIp);
    for (const char* round : {"first", "again"}) {
        ASSERT_EQ(RequestStatus(0x105, Bytes(set)), 0) << round;
        const TNetIfaceIp list = ListOf(10);
        EXPECT_EQ(list.atIp[15].bTentative, 1U) << round;
        std::vector<std::string> read = TextsOf(list);
        std::sort(read.begin(), read.end());
        EXPECT_EQ(read, wanted) << round;
        EXPECT_EQ(ReplyTo<TNetIpaddrShowReply>(0x11B, Padded("eth0", 16)).tInfo.num, 16U) << round;
    }
    EXPECT_EQ(OutputOf("ip -6 addr show dev eth0 scope global | grep -c inet6"), "16\n");
}

}  // namespace
}  // namespace tessel::test
