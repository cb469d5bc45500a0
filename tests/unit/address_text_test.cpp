#include "addr/address_text.h"

#include "addr/address.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

// As printed by `ip addr show dev eth0`.
constexpr char kEth0[] =
    R"(2: eth0@if3: <BROADCAST,MULTICAST,UP,LOWER_UP> mtu 1500 qdisc noqueue state UP group default qlen 1000
    link/ether 72:23:f2:8d:c7:80 brd ff:ff:ff:ff:ff:ff link-netns far
    inet 192.168.1.20/24 brd 192.168.1.255 scope global eth0
       valid_lft forever preferred_lft forever
    inet 169.254.7.7/16 scope link eth0
    inet6 2001:db8::5/64 scope global dynamic mngtmpaddr
       valid_lft 86390sec preferred_lft 14390sec
    inet6 fe80::7023:f2ff:fe8d:c780/64 scope link tentative
    inet6 2001:db8::6/64 scope global deprecated noprefixroute nodad home dynamic
)";

std::string TextOf(const TNetIfaceIp& list) {
    std::string text;
    for (const TNetIpAddr& address : AddressesOf(list)) {
        text += std::string(text.empty() ? "" : "; ") + AddressText(address.wSinFamily, &address.abyAddr).text + "/" +
                std::to_string(address.dwPrefixLen) + " scope " + std::to_string(address.dwScope) +
                (address.bTentative != 0 ? " tentative" : "") + (address.bDynamic != 0 ? " dynamic" : "");
    }
    return text;
}

bool Append(const std::string& output, const AddressFamily& family, TNetIfaceIp& list) {
    return AppendAddresses(output.c_str(), family, true, list, CallSite::Current());
}

bool ReadShow(const std::string& output, ipaddr_show_info& info) {
    return ReadShowInfo(output.c_str(), info, CallSite::Current());
}

TEST(AddressText, IsReadByFamily) {
    TNetIfaceIp list{};
    ASSERT_TRUE(Append(kEth0, kInet, list));
    ASSERT_TRUE(Append(kEth0, kInet6, list));
    EXPECT_EQ(TextOf(list),
              "192.168.1.20/24 scope 4; 169.254.7.7/16 scope 2; 2001:db8::5/64 scope 4 dynamic; "
              "fe80::7023:f2ff:fe8d:c780/64 scope 2 tentative; 2001:db8::6/64 scope 4")
        << "the last one's \"dynamic\" stands too far behind \"scope\"";
}

TEST(AddressText, PointToPointAndUnreadable) {
    const std::pair<std::string, const char*> rows[] = {
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
        EXPECT_EQ(Append(output, kInet, list) ? TextOf(list) : "failed" + TextOf(list), expected) << output;
    }
}

TEST(ShowInfo, NeedsMtuAndEthernetAddress) {
    ipaddr_show_info info{};
    for (const char* output : {"1: lo: mtu 65536\n    link/loopback 00:00:00:00:00:00\n    inet 127.0.0.1/8\n",
                               "2: eth0:\n    link/ether 00:11:22:33:44:55 brd\n",
                               "2: eth0: mtu 1500\n    link/ether 00:11:22:33:44:55:66:77 brd\n"})
        EXPECT_FALSE(ReadShow(output, info)) << output;
    EXPECT_EQ(info.num, 0U);
    ASSERT_TRUE(ReadShow(kEth0, info));
    EXPECT_EQ(info.mtu, 1500);
    EXPECT_STREQ(info.mac, "72:23:f2:8d:c7:80");
    ASSERT_EQ(info.num, 5U);
    for (const auto& [index, text, prefixBits, family] :
         {std::tuple{1, "169.254.7.7", 16, 0}, {2, "2001:db8::5", 64, 1}}) {
        EXPECT_STREQ(info.addr[index].addr, text);
        EXPECT_EQ(std::pair(int(info.addr[index].prefix_len), int(info.addr[index].family)),
                  std::pair(prefixBits, family))
            << text;
    }
}

TEST(AddressText, AreSixteenAtMost) {
    std::string output = "mtu 1500 \nlink/ether 00:11:22:33:44:55 \n";
    for (int i = 1; i <= 10; ++i)
        output += "    inet 10.0.0." + std::to_string(i) +
                  "/8 scope global eth0\n    inet6 2001:db8::" + std::to_string(i) + "/64 scope global \n";
    TNetIfaceIp list{};
    for (const auto& family : {kInet, kInet6, kInet})
        ASSERT_TRUE(Append(output, family, list));
    EXPECT_EQ(list.dwNum, 16U);
    EXPECT_THAT(TextOf(list), testing::EndsWith("; 2001:db8::6/64 scope 4"));
    ipaddr_show_info info{};
    ASSERT_TRUE(ReadShow(output, info));
    EXPECT_EQ(info.num, 16U);
    EXPECT_STREQ(info.addr[15].addr, "2001:db8::6");
}

}  // namespace
}  // namespace tessel::test
