// The real `ip` tool and the real kernel.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "core/family.h"
#include "tessel/address.h"
#include "tessel/mac.h"
#include "tests/support/daemon.h"
#include "tests/support/far.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

TNetIpaddrGetReply AddressesOf(u16 family, const char* interfaceName) {
    return ReplyTo<TNetIpaddrGetReply>(0x115, std::string(Bytes(family)) + Padded(interfaceName, 16));
}

std::string TextOf(const TNetIpAddr& address) {
    return AddressText(address.wSinFamily, &address.abyAddr).text + ("/" + std::to_string(address.dwPrefixLen));
}

std::string TextsOf(const TNetIpaddrGetReply& reply) {
    std::string texts;
    for (u32 i = 0; i < reply.tIfaceIp.dwNum; ++i)
        texts += TextOf(reply.tIfaceIp.atIp[i]) + " ";
    return texts;
}

void Append(TNetIpaddrSetReq& set, u16 family, const std::string& text, u32 prefix) {
    TNetIpAddr entry{};
    entry.wSinFamily = family;
    entry.dwPrefixLen = prefix;
    ASSERT_EQ(inet_pton(family, text.c_str(), entry.abyAddr), 1) << text;
    set.tIfaceIp.atIp[set.tIfaceIp.dwNum] = entry;
    set.tIfaceIp.dwNum = set.tIfaceIp.dwNum + 1;
}

// Setting and flushing both families keep what the kernel made itself and what a router gave.
TEST(AddressLab, WhatTheKernelHasIsReadSetAndFlushed) {
    RunOnDevice("ip addr add 192.168.1.20/24 dev eth0 && ip addr add 10.0.0.1 peer 10.0.0.2/32 dev eth0");
    RunOnDevice("ip addr add 2001:db8::20/64 dev eth0 nodad");
    AdvertiseRouter("far0", "2001:db8:5::");
    const std::string learnt = "2001:db8:5::ff:fe00:0/64";
    ASSERT_TRUE(Eventually([&] { return OutputOf("ip -6 addr show dev eth0").find(learnt) != std::string::npos; }));
    const Daemon daemon;
    const TNetIpaddrGetReply reply = AddressesOf(11, "eth0");
    EXPECT_EQ(TextsOf(reply), "192.168.1.20/24 10.0.0.1/32 " + learnt + " 2001:db8::20/64 fe80::ff:fe00:0/64 ");
    EXPECT_EQ(reply.tIfaceIp.atIp[3].dwScope, 4U);
    EXPECT_EQ(reply.tIfaceIp.atIp[4].dwScope, 2U);
    EXPECT_EQ(AddressesOf(11, "eth9").nResult, -1);
    const auto shown = ReplyTo<TNetIpaddrShowReply>(0x11B, Padded("eth0", 16));
    EXPECT_EQ(shown.tInfo.mac + std::string("\n"), ReadFile("/sys/class/net/eth0/address"));
    EXPECT_EQ(shown.tInfo.num, 5U);

    TNetIpaddrSetReq set{.wSinFamily = 11, .achDevName = "eth0", .tIfaceIp = {}};
    Append(set, 2, "192.168.1.21", 24);
    Append(set, 10, "2001:db8::21", 64);
    Append(set, 2, "10.0.0.1", 8);
    for (const char* round : {"first", "the same again"}) {
        ASSERT_EQ(RequestStatus(0x105, Bytes(set)), 0) << round;
        EXPECT_EQ(TextsOf(AddressesOf(11, "eth0")),
                  "192.168.1.21/24 10.0.0.1/8 2001:db8::21/64 " + learnt + " fe80::ff:fe00:0/64 ");
    }
    EXPECT_EQ(RequestStatus(0x104, Bytes(TNetIpaddrFlushReq{.wSinFamily = 11, .achDevName = "eth0"})), 0);
    EXPECT_EQ(TextsOf(AddressesOf(11, "eth0")), learnt + " fe80::ff:fe00:0/64 ");

    EXPECT_EQ(RequestStatus(0x106, Bytes(TNetMacaddrSetReq{.achDevName = "eth1", .abyMac = {2, 0xaa, 0, 0, 0, 9}})), 0);
    EXPECT_EQ(ReadFile("/sys/class/net/eth1/address"), "02:aa:00:00:00:09\n");
}

// The longest texts that addresses have, still marked as tentative, and the link-local one behind them: more than is
// kept of the tool's output.
TEST(AddressLab, SixteenLongAddressesAreSetTwiceAndRead) {
    const Daemon daemon;
    TNetIpaddrSetReq set{.wSinFamily = 10, .achDevName = "eth0", .tIfaceIp = {}};
    for (int i = 10; i < 26; ++i)
        Append(set, 10, "2001:1db8:1111:2222:3333:4444:5555:66" + std::to_string(i), 128);
    for (const char* round : {"first", "again"}) {
        ASSERT_EQ(RequestStatus(0x105, Bytes(set)), 0) << round;
        const TNetIpaddrGetReply reply = AddressesOf(10, "eth0");
        EXPECT_EQ(reply.tIfaceIp.atIp[15].bTentative, 1U) << round;
        std::set<std::string> wanted, read;
        for (int i = 0; i < 16; ++i) {
            wanted.insert(TextOf(set.tIfaceIp.atIp[i]));
            read.insert(TextOf(reply.tIfaceIp.atIp[i]));
        }
        EXPECT_EQ(read, wanted) << round;
        EXPECT_EQ(ReplyTo<TNetIpaddrShowReply>(0x11B, Padded("eth0", 16)).tInfo.num, 16U) << round;
    }
    EXPECT_EQ(OutputOf("ip -6 addr show dev eth0 scope global | grep -c inet6"), "16\n");
}

}  // namespace
}  // namespace tessel::test
