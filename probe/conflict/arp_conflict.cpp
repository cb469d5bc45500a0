#include "probe/conflict/arp_conflict.h"

#include <net/if.h>
#include <netpacket/packet.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "core/family.h"
#include "core/log.h"
#include "core/unique_fd.h"
#include "probe/conflict/announcer.h"
#include "probe/conflict/arp.h"
#include "probe/conflict/conflict.h"
#include "probe/conflict/report.h"

using tessel::AddressText;
using tessel::CallSite;
using tessel::MacText;

namespace {

constexpr std::size_t kReceiveBytes = 2048;

// The other result of ArpMacIsConflict than TESSEL_CONFLICT_MAC.
constexpr i32 kNoMacConflict = 3;

// Raw, as on the wire.
u32 LoadAddress(const u8* bytes) {
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

void LogIpConflict(const char* name, u32 ip, const ether_arp& arp, CallSite where) {
    TESSEL_ERR_AT(where, "interface[%s]:Conflicted IP[%s] The other side MAC[%s]\r", name,
                  AddressText(TESSEL_FAMILY_INET, &ip).text, MacText(arp.arp_sha).text);
}

// Calls visit(record, entry, ip) for every IPv4 address of the active records of this name. Stops when it returns true.
template <typename Visit>
void VisitAddresses(const TNetdevMember& table, const char* name, Visit visit) {
    for (const TNetdevRecord& record : tessel::RecordsOf(table)) {
        if (record.bActive == 0 || strcmp(record.achDevName, name) != 0) continue;
        for (const TNetIpAddr& entry : tessel::AddressesOf(record)) {
            if (entry.wSinFamily == TESSEL_FAMILY_INET && visit(record, entry, LoadAddress(entry.abyAddr))) return;
        }
    }
}

// Sends a gratuitous ARP for every IPv4 address.
void Announce(const TNetdevRecord& record) {
    for (const TNetIpAddr& entry : tessel::AddressesOf(record)) {
        if (entry.wSinFamily != TESSEL_FAMILY_INET) continue;
        SendArpPacket(record.achDevName, LoadAddress(entry.abyAddr), record.abyMac, kArpGratuitous);
    }
}

// Answers, and composes the reports, while the table is locked; sends them without it, so that a listener that does not
// accept them holds up only this thread.
void TakePacket(const char* interfaceName, const ether_arp& arp, CallSite where) {
    TNetConflictReport ipReport{};
    TNetConflictReport macReport{};
    i32 ipResult = 0;
    i32 macResult = 0;
    {
        const tessel::NetdevTableLock lock;
        ipResult = CheckIpConflict(g_ptNetdevMember, interfaceName, &arp, &ipReport);
        macResult = CheckMacConflict(g_ptNetdevMember, interfaceName, &arp, &macReport);
        const bool isConflict = ipResult == TESSEL_CONFLICT_IP || macResult == TESSEL_CONFLICT_MAC;
        if (isConflict && g_nIpv4ConflictReport != 0) g_nConflictConfirmCount = tessel::kConfirmRounds;
    }
    if (ipResult == TESSEL_CONFLICT_IP && g_nIpv4ConflictReport != 0)
        tessel::SendReport(TESSEL_SOCKET_IP_CONFLICT, TESSEL_CONFLICT_IP, ipReport, where);
    if (macResult == TESSEL_CONFLICT_MAC && g_nIpv4ConflictReport != 0)
        tessel::SendReport(TESSEL_SOCKET_IP_CONFLICT, TESSEL_CONFLICT_MAC, macReport, where);
}

// False for what is not an ARP packet of an Ethernet-like link.
bool IsOfInterest(const sockaddr_ll& source, ssize_t size, const ether_arp& arp) {
    if (size < static_cast<ssize_t>(sizeof(arp))) return false;
    if (source.sll_pkttype > PACKET_OTHERHOST && source.sll_hatype != ARPHRD_ETHER) return false;
    return IsValidateArp(arp) != 0;
}

}  // namespace

i32 ArpIpIsConflict(const char* name, u32 ip, const u8* ownMac, const ether_arp& arp) {
    const u32 sender = LoadAddress(arp.arp_spa);
    const u32 target = LoadAddress(arp.arp_tpa);
    if (sender == ip && target == ip) {  // announced
        LogIpConflict(name, ip, arp, CallSite::Current());
        if (IsRequest(arp)) ReplyArpPacket(name, ip, ownMac, arp.arp_sha, kArpDefend);
        return IsRequest(arp) || IsReply(arp) ? i32{TESSEL_CONFLICT_IP} : 0;
    }
    if (sender == 0 && target == ip && arp.arp_tha[0] == 0) {  // probed for: answered and not reported
        LogIpConflict(name, ip, arp, CallSite::Current());
        if (IsRequest(arp)) {
            ReplyArpPacket(name, ip, ownMac, arp.arp_sha, kArpAnswerProbe);
        } else {
            TESSEL_ERR("arp op is wrong");
        }
        return 0;
    }
    if (sender == ip && target == 0) {  // the answer to a probe
        LogIpConflict(name, ip, arp, CallSite::Current());
        return IsReply(arp) ? i32{TESSEL_CONFLICT_IP} : 0;
    }
    return 0;
}

i32 ArpMacIsConflict(const char* name, u32 ip, const u8* ownMac, const ether_arp& arp) {
    if (memcmp(arp.arp_sha, ownMac, sizeof(arp.arp_sha)) != 0) return kNoMacConflict;
    TESSEL_ERR("interface[%s]:Conflicted MAC[%s]\r", name, MacText(arp.arp_sha).text);
    if (IsRequest(arp)) {
        ReplyArpPacket(name, ip, ownMac, arp.arp_sha, kArpDefend);
    } else if (!IsReply(arp)) {
        TESSEL_ERR("arp op is wrong");
    }
    return TESSEL_CONFLICT_MAC;
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
        const bool isConflict = result == TESSEL_CONFLICT_IP;
        if (isConflict) tessel::FillReport(*ptReport, record, entry);
        return isConflict;
    });
    if (result == TESSEL_CONFLICT_IP) TESSEL_ERR("the ip conflict ip : %s", AddressText(ptReport->tAddr).text);
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
        if (result == TESSEL_CONFLICT_MAC) tessel::FillReport(*ptReport, record, entry);
        return false;
    });
    return result;
}

void SendNetPacket(void* /*unused*/) {
    tessel::AnnounceForEver({g_nIpChangedFlag, g_nConflictConfirmCount, &Announce});
}

void RecvNetPacket(void* /*unused*/) {
    const tessel::UniqueFd listener(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, htons(ETH_P_ARP)));
    if (!listener.IsOpen()) {
        TESSEL_PERROR("socket error!");
        return;
    }
    tessel::ConflictLogLimit limit;
    ifreq interface {};  // keeps the last name: an interface that has just gone counts as the one before
    while (true) {
        alignas(ether_arp) u8 packet[kReceiveBytes] = {};
        sockaddr_ll source{};
        socklen_t sourceSize = sizeof(source);
        const ssize_t size =
            recvfrom(listener.Get(), packet, sizeof(packet), 0, reinterpret_cast<sockaddr*>(&source), &sourceSize);
        if (size <= 0) {
            TESSEL_ERR("Failed to recv packet.");
            sleep(1);  // a lasting error would fill the log
            continue;
        }
        ether_arp arp;
        memcpy(&arp, packet, sizeof(arp));
        if (!IsOfInterest(source, size, arp)) continue;
        interface.ifr_ifindex = source.sll_ifindex;
        if (ioctl(listener.Get(), SIOCGIFNAME, &interface) != 0) {
            TESSEL_PERROR("ioctl error");
        }
        TakePacket(interface.ifr_name, arp, CallSite::Current());
    }
}
