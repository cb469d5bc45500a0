// Conflict detection without other hosts: the commands, and what packets make of a table.
#include "probe/conflict/conflict.h"

#include <linux/if_ether.h>

#include "probe/conflict/arp.h"
#include "probe/conflict/arp_conflict.h"
#include "probe/conflict/neighbour_conflict.h"
#include "tests/support/far.h"
#include "tests/support/noted.h"

namespace tessel::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

using namespace std::string_literals;

template <typename Record>
std::string BytesOf(const Record& record) {
    return {reinterpret_cast<const char*>(&record), sizeof(record)};
}

TEST(Conflict, ReportsAreSwitchedByFamily) {
    NotedTools tools;
    const struct {
        const char* description;
        u32 type;
        u16 family;
        i32 expectedStatus;
        std::vector<std::string> expectedLines;
        i32 inet, inet6;  // the switches afterwards
    } rows[] = {
        {"IPv4 on", 0x119, 2, 0, {"ApidConflictCheckStart: wSinFamily : 2"}, 1, 0},
        {"once more", 0x119, 2, 0, {"ApidConflictCheckStart: wSinFamily : 2"}, 1, 0},
        {"IPv6 on", 0x119, 10, 0, {"ApidConflictCheckStart: wSinFamily : 10"}, 1, 1},
        {"no family to start",
         0x119,
         11,
         -1,
         {"ApidConflictCheckStart: wSinFamily : 11", "ConflictCheckStart: the wSinFamily 11 is invalid!",
          "ApidConflictCheckStart: dhcpc_start error!"},
         1,
         1},
        {"no family to stop",
         0x11A,
         0,
         -1,
         {"ApidConflictCheckStop: wSinFamily : 0", "ConflictCheckStop: the wSinFamily 0 is invalid!",
          "ApidConflictCheckStop: ConflictCheckStop error!"},
         1,
         1},
        {"IPv4 off", 0x11A, 2, 0, {"ApidConflictCheckStop: wSinFamily : 2"}, 0, 1},
        {"IPv6 off", 0x11A, 10, 0, {"ApidConflictCheckStop: wSinFamily : 10"}, 0, 0},
    };
    LoggedLines log(4);
    for (const auto& row : rows) {
        EXPECT_EQ(tools.Status(row.type, BytesOf(row.family)), row.expectedStatus) << row.description;
        EXPECT_THAT(log.Take(), ElementsAreArray(row.expectedLines)) << row.description;
        EXPECT_EQ(g_nIpv4ConflictReport, row.inet) << row.description;
        EXPECT_EQ(g_nIpv6ConflictReport, row.inet6) << row.description;
    }
}

const std::string kOwnMac = "\x02\0\0\0\0\0"s;
const std::string kPeerMac = "\x02\0\0\0\x01\x77"s;
const std::string kNoMac(6, '\0');
const std::string kNoIp(4, '\0');
const std::string kFirst = "\xc0\xa8\x01\x14"s;   // 192.168.1.20
const std::string kSecond = "\xc0\xa8\x01\x15"s;  // 192.168.1.21
const std::string kInet6 = "\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x20"s;

ether_arp Arp(char operation, const std::string& senderMac, const std::string& senderIp, const std::string& targetMac,
              const std::string& targetIp) {
    const std::string bytes = "\0\x01\x08\0\x06\x04\0"s + operation + senderMac + senderIp + targetMac + targetIp;
    ether_arp arp{};
    memcpy(&arp, bytes.data(), sizeof(arp));
    return arp;
}

// eth0 with two IPv4 addresses and, behind them, an IPv6 one.
TNetdevRecord Eth0() {
    TNetdevRecord record{};
    strcpy(record.achDevName, "eth0");
    record.bActive = 1;
    memcpy(record.abyMac, kOwnMac.data(), sizeof(record.abyMac));
    for (const std::string& address : {kFirst, kSecond, kInet6}) {
        TNetIpAddr& entry = record.tIfaceIp.atIp[record.tIfaceIp.dwNum++];
        entry.wSinFamily = address.size() == 4 ? TESSEL_FAMILY_INET : TESSEL_FAMILY_INET6;
        memcpy(entry.abyAddr, address.data(), address.size());
    }
    return record;
}

std::string ReportOf(const std::string& ip) {
    return "eth0"s + std::string(12, '\0') + "\x02\0\0\0"s + ip + std::string(12, '\0') + kOwnMac;
}

TEST(Conflict, ArpPacketsAgainstATable) {
    TNetdevMember table{};
    table.atRecord[table.dwNum++] = Eth0();
    const std::string ip = "ArpIpIsConflict: interface[eth0]:Conflicted IP[192.168.1.20] The other side MAC"s;
    const std::string mac = "ArpMacIsConflict: interface[eth0]:Conflicted MAC[02:00:00:00:00:00]\r"s;
    const std::string found = "CheckIpConflict: the ip conflict ip : 192.168.1.20"s;
    const struct {
        const char* description;
        ether_arp arp;
        i32 ipResult, macResult;
        std::vector<std::string> expectedLines;
        std::string report;  // empty: none is filled in
    } rows[] = {
        {"announced by a reply",
         Arp(2, kPeerMac, kFirst, kNoMac, kFirst),
         1,
         3,
         {ip + "[02:00:00:00:01:77]\r", found},
         ReportOf(kFirst)},
        {"probed for by a reply",
         Arp(2, kPeerMac, kNoIp, kNoMac, kFirst),
         0,
         3,
         {ip + "[02:00:00:00:01:77]\r", "ArpIpIsConflict: arp op is wrong"},
         ""},
        {"the own MAC: once for each IPv4 address",
         Arp(2, kOwnMac, kPeerMac.substr(2), kNoMac, kNoIp),
         0,
         2,
         {mac, mac},
         ReportOf(kSecond)},
        {"both",
         Arp(2, kOwnMac, kFirst, kNoMac, kFirst),
         1,
         2,
         {ip + "[02:00:00:00:00:00]\r", found, mac, mac},
         ReportOf(kSecond)},
        {"the first bytes of the IPv6 address",
         Arp(2, kPeerMac, kInet6.substr(0, 4), kNoMac, kInet6.substr(0, 4)),
         0,
         3,
         {},
         ""},
    };
    LoggedLines log(2);
    for (const auto& row : rows) {
        TNetConflictReport report{};
        EXPECT_EQ(CheckIpConflict(&table, "eth0", &row.arp, &report), row.ipResult) << row.description;
        EXPECT_EQ(CheckMacConflict(&table, "eth0", &row.arp, &report), row.macResult) << row.description;
        EXPECT_THAT(log.Take(), ElementsAreArray(row.expectedLines)) << row.description;
        const std::string expected = row.report.empty() ? std::string(sizeof(report), '\0') : row.report;
        EXPECT_EQ(BytesOf(report), expected) << row.description;
    }
    TNetConflictReport report{};
    const ether_arp arp = rows[0].arp;
    EXPECT_EQ(CheckIpConflict(&table, "eth1", &arp, &report), 0) << "another interface's";
    EXPECT_EQ(CheckIpConflict(nullptr, "eth0", &arp, &report), 0);
    EXPECT_EQ(CheckMacConflict(&table, "eth0", nullptr, &report), -1);
    EXPECT_THAT(log.Take(),
                ElementsAre("CheckIpConflict: the param is invalid!", "CheckMacConflict: the param is invalid!"));
    table.atRecord[0].bActive = 0;
    EXPECT_EQ(CheckMacConflict(&table, "eth0", &arp, &report), 0) << "a record that is not active";
    table.dwNum = 0xffffffff;  // a count beyond the table
    table.atRecord[1] = Eth0();
    table.atRecord[1].tIfaceIp = {.dwNum = 99, .atIp = {}};
    EXPECT_EQ(CheckMacConflict(&table, "eth0", &arp, &report), 0) << "no address that is IPv4";
}

TEST(Conflict, AnswersOfAnUnknownKind) {
    const FarLink peer("far0", ETH_P_ARP);
    LoggedLines log(2);
    ReplyArpPacket("eth0", 0x1401a8c0, reinterpret_cast<const u8*>(kOwnMac.data()),
                   reinterpret_cast<const u8*>(kPeerMac.data()), 7);
    EXPECT_EQ(peer.Next(), kPeerMac + kOwnMac + "\x08\x06"s + BytesOf(Arp(2, kOwnMac, kFirst, kPeerMac, kNoIp)));
    EXPECT_THAT(log.Take(), ElementsAre("ReplyArpPacket: ipconflict type error"));
    LoggedLines debug(5);
    EXPECT_EQ(IsValidateArp(Arp(3, kPeerMac, kFirst, kNoMac, kFirst)), 0);
    EXPECT_THAT(debug.Take(), ElementsAre("IsValidateArp: Unsupport options, ignored"));
}

TEST(Conflict, NeighboursAreLogged) {
    const TNetdevRecord record = Eth0();
    NeighbourMessage message{.isAdvertisement = true, .target = {}, .linkAddress = {}};
    memcpy(&message.target, kInet6.data(), kInet6.size());
    LoggedLines log(2);
    for (const std::string& mac : {kPeerMac, kOwnMac}) {
        TNetConflictReport report{};
        message.linkAddress = std::span<const u8, 6>(reinterpret_cast<const u8*>(mac.data()), 6);
        EXPECT_NE(CheckNeighbour(record, message, report), 0U);
    }
    EXPECT_THAT(log.Take(), ElementsAre("CheckNeighbour: interface[eth0]:Conflicted IP[2001:db8::20] The other side "
                                        "MAC[02:00:00:00:01:77]",
                                        "CheckNeighbour: interface[eth0]:Conflicted MAC[2001:db8::20] The other side "
                                        "MAC[02:00:00:00:00:00]"));
}

}  // namespace
}  // namespace tessel::test
