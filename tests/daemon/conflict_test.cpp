// Conflict detection without other hosts: the commands, and what packets make of a table.
#include "probe/conflict/conflict.h"

#include "probe/conflict/arp_conflict.h"
#include "tests/support/arp.h"
#include "tests/support/logged.h"

namespace tessel::test {
namespace {

TEST(Conflict, ReportsAreSwitched) {
    LoggedTools tools(4);
    const auto call = [](u32 type, u16 family) { return Call{type, std::string(Bytes(family))}; };
    tools.Check({
        {"on", call(0x119, 2), 0, "", "ApidConflictCheckStart: wSinFamily : 2"},
        {"neither", call(0x119, 11), -1, "",
         "ApidConflictCheckStart: wSinFamily : 11; ConflictCheckStart: the wSinFamily 11 is invalid!; "
         "ApidConflictCheckStart: dhcpc_start error!"},
        {"off", call(0x11A, 2), 0, "", "ApidConflictCheckStop: wSinFamily : 2"},
        {"neither, off", call(0x11A, 0), -1, "",
         "ApidConflictCheckStop: wSinFamily : 0; ConflictCheckStop: the wSinFamily 0 is invalid!; "
         "ApidConflictCheckStop: ConflictCheckStop error!"},
    });
}

const std::string kInet6 = "\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x20"s;

ether_arp PacketOf(const std::string& bytes) {
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

// Which packets are a conflict, and what is answered, is seen on a real link. Here: their lines, and what cannot come.
TEST(Conflict, ArpPacketsAgainstATable) {
    TNetdevMember table{};
    table.atRecord[table.dwNum++] = Eth0();
    const std::string ip = "ArpIpIsConflict: interface[eth0]:Conflicted IP[192.168.1.20] The other side MAC"s;
    const std::string mac = "ArpMacIsConflict: interface[eth0]:Conflicted MAC[02:00:00:00:00:00]\r"s;
    const std::string part = kInet6.substr(0, 4);
    const std::tuple<const char*, ether_arp, i32, i32, std::string> rows[] = {
        {"probed for by a reply", PacketOf(Arp(2, kPeerMac, kNoIp, kNoMac, kFirst)), 0, 3,
         ip + "[02:00:00:00:01:77]\r; ArpIpIsConflict: arp op is wrong"},
        {"the own MAC and address", PacketOf(Arp(2, kOwnMac, kFirst, kNoMac, kFirst)), 1, 2,
         ip + "[02:00:00:00:00:00]\r; CheckIpConflict: the ip conflict ip : 192.168.1.20; " + mac + "; " + mac},
        {"the first bytes of the IPv6 address", PacketOf(Arp(2, kPeerMac, part, kNoMac, part)), 0, 3, ""},
    };
    LoggedLines log(2);
    TNetConflictReport report{};
    for (const auto& [description, arp, ipResult, macResult, lines] : rows) {
        EXPECT_EQ(CheckIpConflict(&table, "eth0", &arp, &report), ipResult) << description;
        EXPECT_EQ(CheckMacConflict(&table, "eth0", &arp, &report), macResult) << description;
        EXPECT_EQ(Joined(log.Take()), lines) << description;
    }
    const ether_arp arp = PacketOf(Arp(2, kOwnMac, kFirst, kNoMac, kFirst));
    EXPECT_EQ(CheckIpConflict(&table, "eth1", &arp, &report), 0) << "another interface's";
    table.atRecord[0].bActive = 0;
    EXPECT_EQ(CheckMacConflict(&table, "eth0", &arp, &report), 0) << "a record that is not active";
    table.dwNum = 0xffffffff;  // a count beyond the table
    table.atRecord[1] = Eth0();
    table.atRecord[1].tIfaceIp = {.dwNum = 99, .atIp = {}};
    EXPECT_EQ(CheckMacConflict(&table, "eth0", &arp, &report), 0) << "no address that is IPv4";
}

}  // namespace
}  // namespace tessel::test
