#include "addr/address_text.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>

#include "addr/address.h"

namespace {

using tessel::AppendAddresses;
using tessel::CallSite;
using tessel::kInet;
using tessel::kInet6;
using tessel::ReadShowInfo;

// As printed by `ip addr show dev eth0`.
constexpr char kEth0[] =
    R"(2: eth0@if3: <BROADCAST,MULTICAST,UP,LOWER_UP> mtu 1500 qdisc noqueue state UP group default qlen 1000
    link/ether 72:23:f2:8d:c7:80 brd ff:ff:ff:ff:ff:ff link-netns far
    inet 192.168.1.20/24 brd 192.168.1.255 scope global eth0
       valid_lft forever preferred_lft forever
    inet 169.254.7.7/16 scope link eth0
       valid_lft forever preferred_lft forever
    inet6 2001:db8::5/64 scope global dynamic mngtmpaddr
       valid_lft 86390sec preferred_lft 14390sec
    inet6 fe80::7023:f2ff:fe8d:c780/64 scope link tentative
       valid_lft forever preferred_lft forever
    inet6 2001:db8::6/64 scope global deprecated noprefixroute nodad home dynamic
       valid_lft forever preferred_lft forever
)";

std::string TextOf(const TNetIpAddr& address) {
    char text[INET6_ADDRSTRLEN];
    inet_ntop(address.wSinFamily, address.abyAddr, text, sizeof(text));
    return std::string(text) + "/" + std::to_string(address.dwPrefixLen) + " scope " + std::to_string(address.dwScope) +
           (address.bTentative != 0 ? " tentative" : "") + (address.bDynamic != 0 ? " dynamic" : "");
}

TEST(AddressText, IsReadByFamily) {
    TNetIfaceIp list{};
    ASSERT_TRUE(AppendAddresses(kEth0, kInet, true, list, CallSite::Current()));
    ASSERT_EQ(list.dwNum, 2U);
    EXPECT_EQ(TextOf(list.atIp[0]), "192.168.1.20/24 scope 4");
    EXPECT_EQ(TextOf(list.atIp[1]), "169.254.7.7/16 scope 2");

    ASSERT_TRUE(AppendAddresses(kEth0, kInet6, true, list, CallSite::Current()));
    ASSERT_EQ(list.dwNum, 5U) << "appended";
    EXPECT_EQ(TextOf(list.atIp[2]), "2001:db8::5/64 scope 4 dynamic");
    EXPECT_EQ(TextOf(list.atIp[3]), "fe80::7023:f2ff:fe8d:c780/64 scope 2 tentative");
    EXPECT_EQ(TextOf(list.atIp[4]), "2001:db8::6/64 scope 4") << "\"dynamic\" stands too far behind \"scope\"";

    TNetIfaceIp unmarked{};
    ASSERT_TRUE(AppendAddresses(kEth0, kInet6, false, unmarked, CallSite::Current()));
    EXPECT_EQ(TextOf(unmarked.atIp[1]), "fe80::7023:f2ff:fe8d:c780/64 scope 2");
}

TEST(AddressText, ListTakesSixteenInAll) {
    std::string output;
    for (int i = 1; i <= 10; ++i)
        output += "    inet 10.0.0." + std::to_string(i) + "/8 scope global eth0\n";
    for (int i = 1; i <= 10; ++i)
        output += "    inet6 2001:db8::" + std::to_string(i) + "/64 scope global \n";
    TNetIfaceIp list{};
    ASSERT_TRUE(AppendAddresses(output.c_str(), kInet, true, list, CallSite::Current()));
    ASSERT_TRUE(AppendAddresses(output.c_str(), kInet6, true, list, CallSite::Current()));
    ASSERT_EQ(list.dwNum, 16U);
    EXPECT_EQ(TextOf(list.atIp[15]), "2001:db8::6/64 scope 4");

    TNetIfaceIp full{};
    full.dwNum = 16;
    EXPECT_TRUE(AppendAddresses(output.c_str(), kInet, true, full, CallSite::Current()));
    EXPECT_EQ(full.dwNum, 16U);
}

TEST(AddressText, PointToPointAndUnreadable) {
    struct Case {
        const char* description;
        std::string output;
        const char* expected;  // null: the call fails
    };
    const Case cases[] = {
        {"the peer carries the prefix", "inet 10.0.0.1 peer 10.0.0.2/32 scope global ppp0", "10.0.0.1/32 scope 4"},
        {"no prefix at all", "inet 10.0.0.1 scope global eth0", nullptr},
        {"no scope", "inet 10.0.0.1/24 brd 10.0.0.255", nullptr},
        {"no word", "inet ", nullptr},
        {"unknown scope", "inet 10.0.0.1/24 scope universe eth0", "10.0.0.1/24 scope 0"},
        {"site", "inet 10.0.0.1/24 scope site", "10.0.0.1/24 scope 3"},
        {"no address", "inet hello/24 scope host lo", "0.0.0.0/24 scope 1"},
        {"256 characters", "inet " + std::string(253, '1') + "/24 scope link", "0.0.0.0/24 scope 2"},
        {"257 characters", "inet " + std::string(254, '1') + "/24 scope link", nullptr},
        {"a scope of 21 characters", "inet 10.0.0.1/24 scope " + std::string(21, 'g'), nullptr},
    };
    for (const Case& row : cases) {
        TNetIfaceIp list{};
        EXPECT_EQ(AppendAddresses(row.output.c_str(), kInet, true, list, CallSite::Current()), row.expected != nullptr)
            << row.description;
        if (row.expected == nullptr) {
            EXPECT_EQ(list.dwNum, 0U) << row.description;
        } else {
            EXPECT_EQ(TextOf(list.atIp[0]), row.expected) << row.description;
        }
    }
}

TEST(ShowInfo, HoldsLinkAndAddresses) {
    ipaddr_show_info info{};
    ASSERT_TRUE(ReadShowInfo(kEth0, info, CallSite::Current()));
    EXPECT_EQ(info.mtu, 1500);
    EXPECT_STREQ(info.mac, "72:23:f2:8d:c7:80");
    ASSERT_EQ(info.num, 5U);
    EXPECT_STREQ(info.addr[1].addr, "169.254.7.7");
    EXPECT_EQ(info.addr[1].prefix_len, 16);
    EXPECT_EQ(info.addr[1].family, 0U);
    EXPECT_STREQ(info.addr[2].addr, "2001:db8::5");
    EXPECT_EQ(info.addr[2].family, 1U);
}

TEST(ShowInfo, NeedsMtuAndEthernetAddress) {
    ipaddr_show_info info{};
    EXPECT_FALSE(ReadShowInfo("1: lo: mtu 65536\n    link/loopback 00:00:00:00:00:00\n    inet 127.0.0.1/8\n", info,
                              CallSite::Current()));
    EXPECT_EQ(info.num, 0U);
    EXPECT_FALSE(ReadShowInfo("2: eth0:\n    link/ether 00:11:22:33:44:55 brd\n", info, CallSite::Current()));
    EXPECT_FALSE(
        ReadShowInfo("2: eth0: mtu 1500\n    link/ether 00:11:22:33:44:55:66:77 brd\n", info, CallSite::Current()));
    std::string many = "mtu 1500 \nlink/ether 00:11:22:33:44:55 \n";
    for (int i = 0; i < 20; ++i)
        many += "inet 10.0.0.1/8 scope\n";
    ipaddr_show_info full{};
    ASSERT_TRUE(ReadShowInfo((many + "inet6 ::1/128 ").c_str(), full, CallSite::Current()));
    EXPECT_EQ(full.num, 16U);
    EXPECT_EQ(full.addr[15].family, 0U);
}

}  // namespace
