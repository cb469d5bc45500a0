#include "addr/address_text.h"

#include "addr/address.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

std::string TextOf(const TNetIfaceIp& list) {
    std::string text;
    for (const TNetIpAddr& address : AddressesOf(list)) {
        text += std::string(text.empty() ? "" : "; ") + AddressText(address.wSinFamily, &address.abyAddr).text + "/" +
                std::to_string(address.dwPrefixLen) + " scope " + std::to_string(address.dwScope) +
                (address.bTentative != 0 ? " tentative" : "") + (address.bDynamic != 0 ? " dynamic" : "");
    }
    return text;
}

// Of both families, as the whole tool prints them, they are read in the handlers' tests.
TEST(AddressText, IsReadAsFarAsItMakesSense) {
    const std::pair<std::string, const char*> rows[] = {
        // The mark stands too far behind.
        {"inet6 2001:db8::6/64 scope global deprecated noprefixroute nodad home dynamic", "2001:db8::6/64 scope 4"},
        {"inet 10.0.0.1 peer 10.0.0.2/32 scope global ppp0", "10.0.0.1/32 scope 4"},
        {"inet 10.0.0.1 scope global eth0", "failed"},
        {"inet 10.0.0.1/24 brd 10.0.0.255", "failed"},
        {"inet ", "failed"},
        {"inet 10.0.0.1/24 scope universe eth0", "10.0.0.1/24 scope 0"},
        {"inet 10.0.0.1/24 scope site", "10.0.0.1/24 scope 3"},
        {"inet hello/24 scope host lo", "0.0.0.0/24 scope 1"},
        {"inet " + std::string(253, '1') + "/24 scope link", "0.0.0.0/24 scope 2"},  // 256 characters
        {"inet " + std::string(254, '1') + "/24 scope link", "failed"},
        {"inet 10.0.0.1/24 scope " + std::string(21, 'g'), "failed"},
    };
    for (const auto& [output, expected] : rows) {
        TNetIfaceIp list{};
        const AddressFamily& family = output.starts_with("inet6") ? kInet6 : kInet;
        const bool isRead = AppendAddresses(output.c_str(), family, true, list, CallSite::Current());
        EXPECT_EQ((isRead ? "" : "failed") + TextOf(list), expected) << output;
    }
}

TEST(AddressText, NeedsMtuAndMacToBeShownAndIsSixteenLinesAtMost) {
    ipaddr_show_info info{};
    for (const char* output : {"2: eth0:\n    link/ether 00:11:22:33:44:55 brd\n",
                               "2: eth0: mtu 1500\n    link/ether 00:11:22:33:44:55:66:77 brd\n"})
        EXPECT_FALSE(ReadShowInfo(output, info, CallSite::Current())) << output;
    std::string output = "2: eth0: mtu 1500 \n    link/ether 00:11:22:33:44:55 \n";
    for (int i = 1; i <= 10; ++i)
        output += "    inet 10.0.0." + std::to_string(i) +
                  "/8 scope global eth0\n    inet6 2001:db8::" + std::to_string(i) + "/64 scope global \n";
    TNetIfaceIp list{};
    for (const auto& family : {kInet, kInet6, kInet})
        ASSERT_TRUE(AppendAddresses(output.c_str(), family, true, list, CallSite::Current()));
    EXPECT_EQ(list.dwNum, 16U);
    EXPECT_THAT(TextOf(list), testing::EndsWith("; 2001:db8::6/64 scope 4"));
    ASSERT_TRUE(ReadShowInfo(output.c_str(), info, CallSite::Current()));
    EXPECT_EQ(info.mtu, 1500);
    EXPECT_STREQ(info.mac, "00:11:22:33:44:55");
    EXPECT_EQ(info.num, 16U);
    for (const auto& [index, text, prefixBits, family] :
         {std::tuple{9, "10.0.0.10", 8, 0U}, {15, "2001:db8::6", 64, 1U}}) {
        EXPECT_STREQ(info.addr[index].addr, text);
        EXPECT_TRUE(info.addr[index].prefix_len == prefixBits && info.addr[index].family == family) << text;
    }
}

}  // namespace
}  // namespace tessel::test
