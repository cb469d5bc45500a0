// The result files of the DHCP clients.
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "core/family.h"
#include "services/dhcp_client.h"
#include "services/dhcp_v4.h"
#include "services/dhcp_v6.h"
#include "tests/support/files.h"

namespace tessel::test {
namespace {

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

struct Read {
    u32 event;
    std::string lease;
};

Read ReadV4(const std::string& text, u32 event = 0) {
    WriteFile("/tmp/udhcpc.confeth0", text);
    TNetDhcpcLease lease{};
    FileIdentity identity;
    EXPECT_EQ(DhcpcReadDhcpcConfFile(&lease, "/tmp/udhcpc.confeth0", &event, &identity), 0);
    return {event, TextOf(AF_INET, lease)};
}

// Looked at once more when it is open: whoever may write to the folder can have exchanged it.
TEST(DhcpFile, OfSomebodyElseIsNotRead) {
    const struct {
        const char* description;
        int (*put)(const char* path);
    } rows[] = {
        {"another user's", [](const char* path) { return chown(path, 1000, 1000); }},
        {"a link", [](const char* path) { return rename(path, "/tmp/lease") + symlink("/tmp/lease", path); }},
        {"a FIFO", [](const char* path) { return unlink(path) + mkfifo(path, 0644); }},
    };
    for (const auto& row : rows) {
        TDhcpcInfo session{};
        strcpy(session.tLease.achDevName, "eth0");
        u32 event = 0;
        FileIdentity identity;
        for (const char* path : {"/tmp/udhcpc.confeth0", "/tmp/udhcpc6.confeth0"}) {
            remove(path);
            WriteFile(path, "leasesuccess\n");
            if (row.put(path) != 0) GTEST_SKIP() << "there is no other user in this namespace";
        }
        EXPECT_EQ(DhcpcReadDhcpcConfFile(&session.tLease, "/tmp/udhcpc.confeth0", &event, &identity), -1)
            << row.description;
        EXPECT_EQ(DhcpcReadDhcpcConfFileV6(&session, &event, &identity), -1) << row.description;
        EXPECT_EQ(event, 0U) << row.description;
        remove("/tmp/udhcpc.confeth0");
        remove("/tmp/udhcpc6.confeth0");
    }
}

TEST(DhcpFile, OfIpv4) {
    constexpr char kNothing[] = "0.0.0.0 0/0 via 0.0.0.0 0, 0,";
    const struct {
        const char* description;
        std::string text;
        u32 before;
        u32 event;
        const char* lease;
    } rows[] = {
        {"a lease",
         "leasesuccess\nlocal=192.168.1.20\nsubnet=255.255.255.0\nrouter=192.168.1.1\ndns=8.8.8.8\ndns=1.1.1.1\n"
         "leasetime=3600\n",
         0, 1, "192.168.1.20 2/24 via 192.168.1.1 0, 3600, 8.8.8.8 0 1.1.1.1 0"},
        {"items before the event are none, words stand anywhere, one character separates",
         "local=1.1.1.1\nnonsense\nleasesuccess\nmy local 10.0.0.9\nsubnet:255.255.255.255\nleasesuccess\n", 0, 1,
         "10.0.0.9 2/31 via 0.0.0.0 0, 0,"},
        {"deconfig leaves the event", "deconfig\n", 0x505, 0x505, kNothing},
        {"nothing leaves it as well", "", 7, 7, kNothing},
        {"a failure", "leasefail\n", 0, 2, kNothing},
        {"a refusal", "nak\n", 0, 3, kNothing},
        {"silence", "timeout\n", 0, 4, kNothing},
        {"an event with more in its line is none", "leasesuccess \n", 0, 0, kNothing},
        {"values that are missing", "leasesuccess\nlocal\nsubnet\nrouter=\nleasetime\ndns", 0, 1,
         "255.255.255.255 2/0 via 255.255.255.255 0, 0, 255.255.255.255 0"},
        {"the shortest mask", "leasesuccess\nsubnet=128.0.0.0\n", 0, 1, "0.0.0.0 0/1 via 0.0.0.0 0, 0,"},
        {"a mask with a gap", "leasesuccess\nsubnet=255.0.255.0\n", 0, 1, "0.0.0.0 0/-1 via 0.0.0.0 0, 0,"},
    };
    for (const auto& row : rows) {
        const Read read = ReadV4(row.text, row.before);
        EXPECT_EQ(read.event, row.event) << row.description;
        EXPECT_EQ(read.lease, row.lease) << row.description;
    }
    std::string servers = "leasesuccess\n";
    for (int i = 0; i < 200; ++i)
        servers += "dns=10.0.0." + std::to_string(i) + "\n";
    EXPECT_THAT(ReadV4(servers).lease, testing::EndsWith(" 10.0.0.63 0"));
    EXPECT_THAT(ReadV4("leasesuccess\nleasetime=5\n" + std::string(70'000, 'x') + "\nleasetime=6\n").lease,
                testing::HasSubstr(", 5,"))
        << "what lies behind 64 KiB is not read";
    FileIdentity identity;
    u32 event = 0;
    EXPECT_EQ(DhcpcReadDhcpcConfFile(nullptr, "/tmp/none", &event, &identity), -1);
}

TEST(DhcpFile, LinesOfIpv6) {
    const std::string nothing = ":: 0/0 via :: 0, 0,";
    const struct {
        const char* line;
        u32 event;
        std::string lease;
    } rows[] = {
        {"leasesuccess", 0x505, nothing},
        {"leasefailbydad", 0x506, nothing},
        {"a nak", 4, nothing},
        {"timeout", 4, nothing},
        {"local 2001:db8::5", 0, "2001:db8::5 10/0 via :: 0, 0,"},
        {"prefix  64 more", 0, ":: 0/64 via :: 0, 0,"},
        {"leasetime 77", 0, ":: 0/0 via :: 0, 77,"},
        {"dnsserver 2001:db8::53", 0, nothing + " 2001:db8::53 10"},
        {"route fe80::1", 0, ":: 0/0 via fe80::1 10, 0,"},
        {"route", 0, nothing},
        {"local", 0, nothing},
        {"", 0, nothing},
    };
    for (const auto& row : rows) {
        std::string line = row.line;
        TNetDhcpcLease lease{};
        u32 event = 0;
        EXPECT_EQ(ParseAddr(line.data(), &lease, &event), 0) << row.line;
        EXPECT_EQ(event, row.event) << row.line;
        EXPECT_EQ(TextOf(AF_INET6, lease), row.lease) << row.line;
    }
    EXPECT_EQ(ParseAddr(nullptr, nullptr, nullptr), -1);
}

}  // namespace
}  // namespace tessel::test
