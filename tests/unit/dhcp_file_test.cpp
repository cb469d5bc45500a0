// The result files of the DHCP clients.
#include <unistd.h>

#include "core/family.h"
#include "services/dhcp_client.h"
#include "services/dhcp_v4.h"
#include "services/dhcp_v6.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

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
        {"the shortest mask", "leasesuccess\nsubnet=128.0.0.0\n", "1 0.0.0.0 0/1 via 0.0.0.0 0, 0,"},
        {"a mask with a gap", "leasesuccess\nsubnet=255.0.255.0\n", "1 0.0.0.0 0/-1 via 0.0.0.0 0, 0,"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ReadV4(row.text, row.before), row.expected) << row.description;
    std::string servers = "leasesuccess\n";
    for (int i = 0; i < 200; ++i)
        servers += "dns=10.0.0." + std::to_string(i) + "\n";
    EXPECT_THAT(ReadV4(servers), testing::EndsWith(" 10.0.0.63 0"));
    EXPECT_THAT(ReadV4("leasesuccess\nleasetime=5\n" + std::string(70'000, 'x') + "\nleasetime=6\n"), HasSubstr(", 5,"))
        << "what lies behind 64 KiB is not read";
}

TEST(DhcpFile, LinesOfIpv6) {
    const std::string nothing = ":: 0/0 via :: 0, 0,";
    const std::tuple<std::string, u32, std::string> rows[] = {
        {"a nak", 4, nothing},
        {"prefix  64 more", 0, ":: 0/64 via :: 0, 0,"},
        {"dnsserver 2001:db8::53", 0, nothing + " 2001:db8::53 10"},
        {"route fe80::1", 0, ":: 0/0 via fe80::1 10, 0,"},
        {"route", 0, nothing},
        {"local", 0, nothing},
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
