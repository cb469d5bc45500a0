// ARP packets that conflict detection receives, and the table that they are checked against. The first bytes are the
// table's: number of addresses, then those.
#include "fuzz/fuzz.h"
#include "probe/conflict/arp.h"
#include "probe/conflict/arp_conflict.h"
#include "probe/conflict/netdev_table.h"

namespace tessel::fuzz {

std::vector<std::string> Seeds() {
    const std::string front("\1\x0a\0\0\2", 5);
    const std::string ether("\0\1\x08\0\x06\x04\0\1\x02\0\0\0\1\x77\x0a\0\0\2\0\0\0\0\0\0\x0a\0\0\2", 28);
    std::string probe = front + ether;
    std::fill_n(probe.begin() + 5 + 14, 4, '\0');
    std::string reply = front + ether;
    reply[5 + 7] = 2;
    return {front + ether, probe, reply};
}

void TryInput(Input input) {
    constexpr u8 kMac[6] = {2, 0, 0, 0, 0, 0};
    static TNetdevMember table{};
    table = {};
    table.dwNum = 1;
    TNetdevRecord& record = table.atRecord[0];
    strcpy(record.achDevName, "none");  // answers are composed, and there is nowhere to send them to
    record.bActive = 1;
    memcpy(record.abyMac, kMac, sizeof(kMac));
    record.tIfaceIp.dwNum = input.Take<u8>();  // may say more than there is room for
    for (TNetIpAddr& entry : record.tIfaceIp.atIp) {
        entry.wSinFamily = TESSEL_FAMILY_INET;
        const u32 address =
            AddressesOf(record).size() > 1 || input.Left() > sizeof(ether_arp) ? input.Take<u32>() : 0x0200000a;
        memcpy(entry.abyAddr, &address, sizeof(address));
        if (&entry == &record.tIfaceIp.atIp[0] && record.tIfaceIp.dwNum <= 1) break;
    }
    const auto arp = input.Take<ether_arp>();
    if (IsValidateArp(arp) == 0) return;

    TNetConflictReport report{};
    const i32 isConflict = CheckIpConflict(&table, "none", &arp, &report);
    const bool isOwnMac = memcmp(arp.arp_sha, kMac, sizeof(kMac)) == 0;
    Require(isConflict == 0 || isConflict == 1);
    if (isConflict == 1) {
        const auto isReported = [&](const u8(&ip)[4]) { return memcmp(report.tAddr.abyAddr, ip, sizeof(ip)) == 0; };
        Require(isReported(arp.arp_spa) || isReported(arp.arp_tpa));
        Require(memcmp(report.abyMac, kMac, sizeof(kMac)) == 0 && strcmp(report.achDevName, "none") == 0);
    }
    const i32 macResult = CheckMacConflict(&table, "none", &arp, &report);
    Require(macResult == 0 || macResult == 2 || macResult == 3);
    Require((macResult == 2) == (isOwnMac && !AddressesOf(record).empty()) || macResult == 0);
    Require(CheckIpConflict(&table, "other", &arp, &report) == 0);
}

}  // namespace tessel::fuzz
