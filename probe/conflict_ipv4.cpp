#include "probe/conflict_ipv4.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <span>

#include "core/log.h"
#include "probe/announcer.h"
#include "probe/arp.h"
#include "probe/conflict.h"
#include "probe/conflict_report.h"

namespace {

// Results of ArpMacIsConflict.
constexpr i32 kMacConflict = 2;
constexpr i32 kNoMacConflict = 3;

// Raw, as on the wire.
u32 Ip(const u8* bytes) {
    u32 ip = 0;
    memcpy(&ip, bytes, sizeof(ip));
    return ip;
}

bool IsRequest(const ether_arp& arp) {
    return arp.ea_hdr.ar_op == htons(ARPOP_REQUEST);
}

bool IsReply(const ether_arp& arp) {
    return arp.ea_hdr.ar_op == htons(ARPOP_REPLY);
}

void LogIpConflict(const char* name, u32 ip, const ether_arp& arp, tessel::CallSite where) {
    char text[INET_ADDRSTRLEN] = "";
    (void)inet_ntop(AF_INET, &ip, text, sizeof(text));
    const u8(&mac)[ETH_ALEN] = arp.arp_sha;
    TESSEL_ERR_AT(where, "interface[%s]:Conflicted IP[%s] The other side MAC[%02x:%02x:%02x:%02x:%02x:%02x]\r\n", name,
                  text, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

// Calls visit(record, entry, ip) for every address of the active records of this name, whatever its family: of an IPv6
// address the first four bytes take part. Stops when it returns true.
template <typename Visit>
void VisitAddresses(const TNetdevMember& table, const char* name, Visit visit) {
    for (const TNetdevRecord& record : std::span(table.atRecord, std::min(table.dwNum, kNetdevMax))) {
        if (record.bActive == 0 || strcmp(record.achDevName, name) != 0) continue;
        const std::size_t count = std::min<u32>(record.tIfaceIp.dwNum, TESSEL_ADDRESSES_MAX);
        for (const TNetIpAddr& entry : std::span(record.tIfaceIp.atIp, count)) {
            if (visit(record, entry, Ip(entry.abyAddr))) return;
        }
    }
}

// Sends a gratuitous ARP for every IPv4 address.
void Announce(const TNetdevRecord& record) {
    for (const TNetIpAddr& entry : std::span(record.tIfaceIp.atIp, record.tIfaceIp.dwNum)) {
        if (entry.wSinFamily != TESSEL_FAMILY_INET) continue;
        SendArpPacket(record.achDevName, Ip(entry.abyAddr), record.abyMac, kArpGratuitous);
    }
}

}  // namespace

i32 ArpIpIsConflict(const char* name, u32 ip, const u8* ownMac, const ether_arp& arp) {
    const u32 sender = Ip(arp.arp_spa);
    const u32 target = Ip(arp.arp_tpa);
    if (sender == ip && target == ip) {  // announced
        LogIpConflict(name, ip, arp, tessel::CallSite::Current());
        if (IsRequest(arp)) ReplyArpPacket(name, ip, ownMac, arp.arp_sha, kArpDefend);
        return IsRequest(arp) || IsReply(arp) ? 1 : 0;
    }
    if (sender == 0 && target == ip && arp.arp_tha[0] == 0) {  // probed for: answered and not reported
        LogIpConflict(name, ip, arp, tessel::CallSite::Current());
        if (IsRequest(arp)) {
            ReplyArpPacket(name, ip, ownMac, arp.arp_sha, kArpAnswerProbe);
        } else {
            TESSEL_ERR("arp op is wrong");
        }
        return 0;
    }
    if (sender == ip && target == 0) {  // the answer to a probe
        LogIpConflict(name, ip, arp, tessel::CallSite::Current());
        return IsReply(arp) ? 1 : 0;
    }
    return 0;
}

i32 ArpMacIsConflict(const char* name, u32 ip, const u8* ownMac, const ether_arp& arp) {
    const u8(&mac)[ETH_ALEN] = arp.arp_sha;
    if (memcmp(mac, ownMac, sizeof(mac)) != 0) return kNoMacConflict;
    TESSEL_ERR("interface[%s]:Conflicted MAC[%02x:%02x:%02x:%02x:%02x:%02x]\r\n", name, mac[0], mac[1], mac[2], mac[3],
               mac[4], mac[5]);
    if (IsRequest(arp)) {
        ReplyArpPacket(name, ip, ownMac, mac, kArpDefend);
    } else if (!IsReply(arp)) {
        TESSEL_ERR("arp op is wrong");
    }
    return kMacConflict;
}

i32 CheckIpConflict(const TNetdevMember* ptMember, const char* name, const ether_arp* ptArp,
                    TNetConflictReport* ptReport) {
    if (ptMember == nullptr || name == nullptr || ptArp == nullptr || ptReport == nullptr) {
        TESSEL_ERR("the param is invalid!");
        return 0;
    }
    i32 result = 0;
    VisitAddresses(*ptMember, name, [&](const TNetdevRecord& record, const TNetIpAddr& entry, u32 ip) {
        result = ArpIpIsConflict(name, ip, record.abyMac, *ptArp);
        if (result == 1) tessel::FillReport(*ptReport, record, entry);
        return result == 1;
    });
    if (result == 1) {
        char text[INET_ADDRSTRLEN] = "";
        (void)inet_ntop(AF_INET, ptReport->tAddr.abyAddr, text, sizeof(text));
        TESSEL_ERR("the ip conflict ip : %s", text);
    }
    return result;
}

i32 CheckMacConflict(const TNetdevMember* ptMember, const char* name, const ether_arp* ptArp,
                     TNetConflictReport* ptReport) {
    if (ptMember == nullptr || name == nullptr || ptArp == nullptr || ptReport == nullptr) {
        TESSEL_ERR("the param is invalid!");
        return -1;
    }
    i32 result = 0;
    // All of them: each address is defended.
    VisitAddresses(*ptMember, name, [&](const TNetdevRecord& record, const TNetIpAddr& entry, u32 ip) {
        result = ArpMacIsConflict(name, ip, record.abyMac, *ptArp);
        if (result == kMacConflict) tessel::FillReport(*ptReport, record, entry);
        return false;
    });
    return result;
}

void SendNetPacket(void* /*unused*/) {
    tessel::AnnounceForEver({g_nIpChangedFlag, g_nConflictConfirmCount, &Announce});
}
