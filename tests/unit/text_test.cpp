#include "core/text.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/family.h"
#include "core/ipv4.h"

namespace {

TEST(FindStrMatchHead, TakesTheWordBehindTheKey) {
    const struct {
        const char* description;
        const char* text;
        const char* key;
        i32 room;
        const char* expected;  // null: refused
    } rows[] = {
        {"one separator behind the key is skipped", "eth0 mtu 1500 qdisc", "mtu", 20, "1500"},
        {"a second one makes an empty word", "mtu  1500", "mtu", 20, ""},
        {"the key may touch its value", "addr:1.2.3.4 Bcast", "addr", 20, ":1.2.3.4"},
        {"no key: the start", "first second", nullptr, 20, "first"},
        {"the end of the text ends the word", "dev eth0", "dev", 20, "eth0"},
        {"a key at the very end", "dev", "dev", 20, ""},
        {"a word that just fits", "dev eth0", "dev", 4, "eth0"},
        {"a word that does not", "dev eth0", "dev", 3, nullptr},
        {"key not there", "dev eth0", "via", 20, nullptr},
        {"no text", nullptr, "via", 20, nullptr},
    };
    for (const auto& row : rows) {
        char word[21] = "untouched";
        EXPECT_EQ(TesselFindStrMatchHead(row.text, row.key, ' ', word, row.room), row.expected == nullptr ? -1 : 0)
            << row.description;
        EXPECT_STREQ(word, row.expected == nullptr ? "untouched" : row.expected) << row.description;
    }
}

TEST(StrToU8, ReadsSeparatedHexadecimalBytes) {
    const struct {
        std::string text;
        std::vector<u8> expected;  // empty: refused
    } rows[] = {
        {"00:1a:2B:ff:0:5", {0x00, 0x1a, 0x2b, 0xff, 0x00, 0x05}},
        {"7f", {0x7f}},
        {"0g:11", {}},
        {"11:0g", {}},
        {"100:11", {}},
        {"ffffffffffffffffffff", {}},
        {"1:2:3:4:5:6:7", {}},
    };
    for (auto row : rows) {
        const std::string text = row.text;
        std::vector<u8> bytes(6, 0xEE);
        EXPECT_EQ(StrToU8WitchoutSepchar(row.text.data(), ':', bytes.data(), 6), row.expected.empty() ? -1 : 0) << text;
        if (row.expected.empty()) continue;
        row.expected.resize(6, 0xEE);
        EXPECT_EQ(bytes, row.expected) << text;
    }
    u8 byte = 0;
    EXPECT_EQ(StrToU8WitchoutSepchar(nullptr, ':', &byte, 1), -1);
}

TEST(LineWord, IsOneWordAndNoOption) {
    EXPECT_TRUE(tessel::IsLineWord("eth0"));
    EXPECT_TRUE(tessel::IsLineWord("a-b"));
    EXPECT_FALSE(tessel::IsLineWord(nullptr));
    for (const char* text : {"", " ", "eth0 down", "eth0 ", " eth0", "-V", "--", "eth0\n", "et\th0", "eth\x7f"})
        EXPECT_FALSE(tessel::IsLineWord(text)) << text;
}

TEST(AddressesAndMacs, AreNothingElse) {
    for (const char* mac : {"00:11:22:33:44:ff", "0:a:B:3:4:5"})
        EXPECT_TRUE(tessel::IsMacText(mac)) << mac;
    for (const char* mac : {"", "00:11:22:33:44", "00:11:22:33:44:55:66", "00:11:22:33:44:", "00:11:22:33:44:5g",
                            "00:11:22:33:44:555", ":00:11:22:33:44", "host"})
        EXPECT_FALSE(tessel::IsMacText(mac)) << mac;
    EXPECT_TRUE(tessel::IsAddressText(tessel::kInet, "10.0.0.1"));
    EXPECT_TRUE(tessel::IsAddressText(tessel::kInet6, "fe80::1"));
    for (const char* address : {"", "host", "10.0.0.1/8", "10.0.1", "fe80::1"})
        EXPECT_FALSE(tessel::IsAddressText(tessel::kInet, address)) << address;
    for (const char* address : {"10.0.0.1", "fe80::1%eth0", "fe80::1/64"})
        EXPECT_FALSE(tessel::IsAddressText(tessel::kInet6, address)) << address;
}

TEST(Ipv4, MasksAndPrefixes) {
    for (const auto& [text, bits] :
         {std::pair{"255.255.255.0", 24U}, {"255.255.0.255", 16U}, {"0.0.0.0", 0U}, {"255.255.255.255", 32U}}) {
        u32 mask = inet_addr(text);
        u32 prefix = 99;
        EXPECT_EQ(MaskConvertIpv4(&mask, &prefix, 0), 0);
        EXPECT_EQ(prefix, bits) << text;
    }
    for (const auto& [bits, text] :
         {std::pair{0U, "0.0.0.0"}, {1U, "128.0.0.0"}, {25U, "255.255.255.128"}, {32U, "255.255.255.255"}}) {
        u32 mask = 0;
        u32 prefix = bits;
        EXPECT_EQ(MaskConvertIpv4(&mask, &prefix, 1), 0);
        EXPECT_EQ(mask, inet_addr(text));
    }
    u32 mask = 0;
    u32 prefix = 33;
    for (const i32 direction : {1, 2})
        EXPECT_EQ(MaskConvertIpv4(&mask, &prefix, direction), -1) << direction;
    EXPECT_EQ(MaskIsContiguous(inet_addr("255.255.240.0")), 0);
    EXPECT_EQ(MaskIsContiguous(inet_addr("255.0.255.0")), -1);
}

TEST(Ipv4, Classes) {
    const struct {
        const char* address;
        i32 expected;
    } rows[] = {{"0.1.2.3", 1305},   {"1.0.0.0", 1301},         {"126.255.255.255", 1301}, {"127.0.0.1", 1305},
                {"128.0.0.0", 1302}, {"191.255.255.255", 1302}, {"192.0.0.0", 1303},       {"223.255.255.255", 1303},
                {"224.0.0.0", 1304}, {"239.255.255.255", 1304}, {"240.0.0.0", 1305}};
    for (const auto& row : rows)
        EXPECT_EQ(IpAddrClassGet(inet_addr(row.address)), row.expected) << row.address;
}

TEST(Ipv4, GatewayAndHostAddress) {
    const u32 address = inet_addr("192.168.1.20");
    const u32 mask = inet_addr("255.255.255.0");
    EXPECT_EQ(GatewayInSubnetCheck(address, mask, inet_addr("192.168.1.1")), 0);
    EXPECT_EQ(GatewayInSubnetCheck(address, mask, 0), 0);
    EXPECT_EQ(GatewayInSubnetCheck(address, mask, inet_addr("192.168.2.1")), 1111);
    EXPECT_EQ(HostAddrCheck(address, mask), 0);
    EXPECT_EQ(HostAddrCheck(inet_addr("192.168.1.0"), mask), -1);
    EXPECT_EQ(HostAddrCheck(inet_addr("192.168.1.255"), mask), -1);
}

}  // namespace
