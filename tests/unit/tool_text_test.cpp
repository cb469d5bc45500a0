// What tools print and what the scripts of DHCP clients write, as far as it makes sense.
#include "addr/address.h"
#include "addr/address_text.h"
#include "services/dhcp_client.h"
#include "services/dhcp_v4.h"
#include "services/dhcp_v6.h"
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
    EXPECT_TRUE(ReadShowInfo(output.c_str(), info, CallSite::Current()) && info.num == 16U);
    EXPECT_EQ(std::string(info.addr[9].addr) + " " + info.addr[15].addr, "10.0.0.10 2001:db8::6");
}

constexpr char kFile[] = "/tmp/udhcpc.confeth0";

// "address family"
std::string TextOf(u16 family, const TNetGateway& address) {
    return std::string(AddressText(family, &address.abyAddr).text) + ' ' + std::to_string(address.wSinFamily);
}

// "address family/prefix via router family, time, servers"
std::string TextOf(u16 family, const TNetDhcpcLease& lease) {
    std::string text = TextOf(family, lease.tAddr) + '/' + std::to_string(static_cast<i32>(lease.dwPrefixLen)) +
                       " via " + TextOf(family, lease.tRouter) + ", " + std::to_string(lease.dwLeaseTime) + ',';
    for (u32 i = 0; i < lease.dwDnsNum; ++i)
        text += ' ' + TextOf(family, lease.atDns[i]);
    return text;
}

// "event lease"
std::string ReadV4(const std::string& text, u32 event = 0) {
    remove(kFile);  // of another test
    WriteFile(kFile, text);
    TNetDhcpcLease lease{};
    FileIdentity identity;
    EXPECT_EQ(DhcpcReadDhcpcConfFile(&lease, kFile, &event, &identity), 0);
    return std::to_string(event) + ' ' + TextOf(AF_INET, lease);
}

// Looked at once more when it is open: whoever may write to the folder can have exchanged it.
TEST(DhcpFile, OfSomebodyElseIsNotRead) {
    const std::pair<const char*, int (*)(const char*)> rows[] = {
        {"a link", [](const char* path) { return rename(path, "/tmp/lease") + symlink("/tmp/lease", path); }},
        {"a FIFO", [](const char* path) { return unlink(path) + mkfifo(path, 0644); }},
        {"another user's", [](const char* path) { return chown(path, 1000, 1000); }},
    };
    for (const auto& [description, put] : rows) {
        TDhcpcInfo session{};
        strcpy(session.tLease.achDevName, "eth0");
        u32 event = 0;
        FileIdentity identity;
        for (const char* path : {kFile, "/tmp/udhcpc6.confeth0"}) {
            remove(path);
            WriteFile(path, "leasesuccess\n");
            if (put(path) != 0) GTEST_SKIP() << "there is no other user in this namespace";
        }
        EXPECT_EQ(DhcpcReadDhcpcConfFile(&session.tLease, kFile, &event, &identity), -1) << description;
        EXPECT_EQ(DhcpcReadDhcpcConfFileV6(&session, &event, &identity), -1) << description;
        EXPECT_EQ(event, 0U) << description;
    }
}

TEST(DhcpFile, OfIpv4) {
    const std::string nothing = "0.0.0.0 0/0 via 0.0.0.0 0, 0,";
    const struct {
        const char* description;
        std::string text;
        std::string expected;
        u32 before = 0;
    } rows[] = {
        {"items before the event are none, words stand anywhere, one character separates",
         "local=1.1.1.1\nnonsense\nleasesuccess\nmy local 10.0.0.9\nsubnet:255.255.255.255\nleasesuccess\n",
         "1 10.0.0.9 2/31 via 0.0.0.0 0, 0,"},
        {"deconfig leaves the event", "deconfig\n", "1285 " + nothing, 0x505},
        {"nothing leaves it as well", "", "7 " + nothing, 7},
        {"a failure", "leasefail\n", "2 " + nothing},
        {"a refusal", "nak\n", "3 " + nothing},
        {"silence", "timeout\n", "4 " + nothing},
        {"an event with more in its line is none", "leasesuccess \n", "0 " + nothing},
        {"values that are missing", "leasesuccess\nlocal\nsubnet\nrouter=\nleasetime\ndns",
         "1 255.255.255.255 2/0 via 255.255.255.255 0, 0, 255.255.255.255 0"},
        {"of a long line, the rest is the next one",
         "leasesuccess\n" + std::string(450, '\n') + std::string(116, 'x') + "leasetime=56\nlocal=10.0.0.9",
         "1 10.0.0.9 2/0 via 0.0.0.0 0, 5,"},
        {"the shortest mask", "leasesuccess\nsubnet=128.0.0.0\n", "1 0.0.0.0 0/1 via 0.0.0.0 0, 0,"},
        {"a mask with a gap", "leasesuccess\nsubnet=255.0.255.0\n", "1 0.0.0.0 0/-1 via 0.0.0.0 0, 0,"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ReadV4(row.text, row.before), row.expected) << row.description;
    std::string servers = "leasesuccess\n";
    for (int i = 0; i < 200; ++i)
        servers += "dns=10.0.0." + std::to_string(i) + "\n";
    EXPECT_THAT(ReadV4(servers), testing::EndsWith(" 10.0.0.63 0"));
    EXPECT_EQ(ReadV4("leasesuccess\n" + std::string(65536 - 24, '\n') + "leasetime=56\n"),
              "1 0.0.0.0 0/0 via 0.0.0.0 0, 5,")
        << "what lies behind 64 KiB is not read";
}

// Those that a lease has are read in the daemon's tests.
TEST(DhcpFile, OddLinesOfIpv6) {
    const std::string nothing = ":: 0/0 via :: 0, 0,";
    const std::tuple<std::string, u32, std::string> rows[] = {
        {"a nak", 4, nothing}, {"prefix  64 more", 0, ":: 0/64 via :: 0, 0,"},
        {"route", 0, nothing}, {"local", 0, nothing},
        {"", 0, nothing},
    };
    for (const auto& [text, expectedEvent, expected] : rows) {
        std::string line = text;
        TNetDhcpcLease lease{};
        u32 event = 0;
        EXPECT_EQ(ParseAddr(line.data(), &lease, &event), 0) << text;
        EXPECT_EQ(event, expectedEvent) << text;
        EXPECT_EQ(TextOf(AF_INET6, lease), expected) << text;
    }
    EXPECT_EQ(ParseAddr(nullptr, nullptr, nullptr), -1);
}

}  // namespace
}  // namespace tessel::test
