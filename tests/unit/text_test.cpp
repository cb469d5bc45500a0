#include "core/text.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/family.h"
#include "core/ipv4.h"

namespace {

TEST(FindStrMatchHead, TakesTheWordBehindTheKey) {
    // Text, key, room for the word, and the word; null: refused.
    const std::tuple<const char*, const char*, const char*, i32, const char*> rows[] = {
        {"one separator behind the key is skipped", "eth0 mtu 1500 qdisc", "mtu", 20, "1500"},
        {"a second one makes an empty word", "mtu  1500", "mtu", 20, ""},
        {"the key may touch its value", "addr:1.2.3.4 Bcast", "addr", 20, ":1.2.3.4"},
        {"no key: the start", "first second", nullptr, 20, "first"},
        {"a key at the very end", "dev", "dev", 20, ""},
        {"a word that just fits", "dev eth0", "dev", 4, "eth0"},
        {"a word that does not", "dev eth0", "dev", 3, nullptr},
        {"key not there", "dev eth0", "via", 20, nullptr},
        {"no text", nullptr, "via", 20, nullptr},
    };
    for (const auto& [description, text, key, room, expected] : rows) {
        char word[21] = "untouched";
        EXPECT_EQ(TesselFindStrMatchHead(text, key, ' ', word, room), expected == nullptr ? -1 : 0) << description;
        EXPECT_STREQ(word, expected == nullptr ? "untouched" : expected) << description;
    }
}

TEST(StrToU8, ReadsSeparatedHexadecimalBytes) {
    std::vector<u8> bytes(6, 0xEE);
    EXPECT_EQ(StrToU8WitchoutSepchar(std::string("1a:2B:ff:0:5").data(), ':', bytes.data(), 6), 0);
    EXPECT_EQ(bytes, (std::vector<u8>{0x1a, 0x2b, 0xff, 0, 5, 0xEE})) << "what is not named is left";
    for (std::string text : {"0g:11", "11:0g", "100:11", "ffffffffffffffffffff", "1:2:3:4:5:6:7"})
        EXPECT_EQ(StrToU8WitchoutSepchar(text.data(), ':', bytes.data(), 6), -1) << text;
    EXPECT_EQ(StrToU8WitchoutSepchar(nullptr, ':', bytes.data(), 6), -1);
}

TEST(Words, AreOfTheirKindAndNothingElse) {
    const std::tuple<bool (*)(const char*), std::vector<const char*>, std::vector<const char*>> rows[] = {
        {[](const char* text) { return tessel::IsLineWord(text); },
         {"eth0", "a-b"},
         {"", " ", "eth0 down", "eth0 ", " eth0", "-V", "eth0\n", "et\th0", "eth\x7f"}},
        {&tessel::IsMacText,
         {"00:11:22:33:44:ff", "0:a:B:3:4:5"},
         {"", "00:11:22:33:44", "00:11:22:33:44:55:66", "00:11:22:33:44:", "00:11:22:33:44:5g", "00:11:22:33:44:555",
          ":00:11:22:33:44"}},
        {[](const char* text) { return tessel::IsAddressText(tessel::kInet, text); },
         {"10.0.0.1"},
         {"", "host", "10.0.0.1/8", "10.0.1", "fe80::1"}},
        {[](const char* text) { return tessel::IsAddressText(tessel::kInet6, text); },
         {"fe80::1"},
         {"10.0.0.1", "fe80::1%eth0", "fe80::1/64"}},
    };
    for (const auto& [judge, good, bad] : rows) {
        for (const char* text : good)
            EXPECT_TRUE(judge(text)) << text;
        for (const char* text : bad)
            EXPECT_FALSE(judge(text)) << text;
    }
    EXPECT_FALSE(tessel::IsLineWord(nullptr));
}

TEST(Ipv4, MasksClassesSubnetsAndHosts) {
    u32 mask = 0;
    u32 prefix = 0;
    for (const auto& [text, bits] : {std::pair{"0.0.0.0", 0U}, {"255.255.255.128", 25U}, {"255.255.255.255", 32U}}) {
        mask = inet_addr(text);
        EXPECT_EQ(MaskConvertIpv4(&mask, &prefix, 0), 0);
        EXPECT_EQ(prefix, bits) << text;
        EXPECT_EQ(MaskConvertIpv4(&mask, &prefix, 1), 0);
        EXPECT_EQ(mask, inet_addr(text));
    }
    mask = 0;
    prefix = 33;
    for (const i32 direction : {1, 2})
        EXPECT_EQ(MaskConvertIpv4(&mask, &prefix, direction), -1) << direction;
    EXPECT_EQ(MaskIsContiguous(inet_addr("255.255.240.0")), 0);
    EXPECT_EQ(MaskIsContiguous(inet_addr("255.0.255.0")), -1);
    constexpr std::pair<const char*, i32> kClasses[] = {
        {"0.1.2.3", 1305},   {"1.0.0.0", 1301},   {"126.255.255.255", 1301}, {"127.0.0.1", 1305},
        {"128.0.0.0", 1302}, {"192.0.0.0", 1303}, {"224.0.0.0", 1304},       {"240.0.0.0", 1305}};
    for (const auto& [address, expected] : kClasses)
        EXPECT_EQ(IpAddrClassGet(inet_addr(address)), expected) << address;
    mask = inet_addr("255.255.255.0");
    for (const auto& [gateway, expected] : {std::pair{"192.168.1.1", 0}, {"0.0.0.0", 0}, {"192.168.2.1", 1111}})
        EXPECT_EQ(GatewayInSubnetCheck(inet_addr("192.168.1.20"), mask, inet_addr(gateway)), expected) << gateway;
    for (const auto& [address, expected] : {std::pair{"192.168.1.20", 0}, {"192.168.1.0", -1}, {"192.168.1.255", -1}})
        EXPECT_EQ(HostAddrCheck(inet_addr(address), mask), expected) << address;
}

}  // namespace
