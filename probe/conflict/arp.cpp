#include "probe/conflict/arp.h"

#include <arpa/inet.h>

#include <cstring>

#include "core/log.h"
#include "probe/packet_socket.h"

using tessel::CallSite;
using tessel::PacketSocket;

static_assert(sizeof(ether_arp) == 28, "RFC 826 with Ethernet and IPv4 addresses");

namespace {

constexpr u32 kNoAddress = 0;
constexpr u8 kNoMac[ETH_ALEN] = {};

ether_arp MakeArp(u16 operation, const u8* senderMac, u32 senderIp, const u8* targetMac, u32 targetIp) {
    ether_arp arp{};
    arp.ea_hdr.ar_hrd = htons(ARPHRD_ETHER);
    arp.ea_hdr.ar_pro = htons(ETHERTYPE_IP);
    arp.ea_hdr.ar_hln = ETH_ALEN;
    arp.ea_hdr.ar_pln = sizeof(u32);
    arp.ea_hdr.ar_op = htons(operation);
    memcpy(arp.arp_sha, senderMac, sizeof(arp.arp_sha));
    memcpy(arp.arp_spa, &senderIp, sizeof(arp.arp_spa));
    memcpy(arp.arp_tha, targetMac, sizeof(arp.arp_tha));
    memcpy(arp.arp_tpa, &targetIp, sizeof(arp.arp_tpa));
    return arp;
}

bool Broadcast(const PacketSocket& sender, const ether_arp& arp) {
    return sender.Send(tessel::kBroadcastMac, PACKET_BROADCAST, &arp, sizeof(arp));
}

}  // namespace

void SendArpPacket(const char* name, u32 ip, const u8* mac, i32 kind) {
    const PacketSocket sender(name, ETH_P_ARP, CallSite::Current());
    if (!sender.IsOpen()) return;
    if (kind != kArpProbe && !Broadcast(sender, MakeArp(ARPOP_REQUEST, mac, ip, kNoMac, ip))) {
        TESSEL_ERR("Failed to send gratuious arp packet!");
        return;
    }
    if (kind != kArpGratuitous && !Broadcast(sender, MakeArp(ARPOP_REQUEST, mac, kNoAddress, kNoMac, ip))) {
        TESSEL_ERR("Failed to send latest arp packet!");
    }
}

void ReplyArpPacket(const char* name, u32 ip, const u8* ownMac, const u8* peerMac, i32 kind) {
    const PacketSocket sender(name, ETH_P_ARP, CallSite::Current());
    if (!sender.IsOpen()) return;
    if (kind != kArpDefend && kind != kArpAnswerProbe) TESSEL_ERR("ipconflict type error");
    const ether_arp arp = MakeArp(ARPOP_REPLY, ownMac, ip, peerMac, kind == kArpDefend ? ip : kNoAddress);
    u8 destination[ETH_ALEN];
    memcpy(destination, peerMac, sizeof(destination));
    if (!sender.Send(destination, PACKET_OTHERHOST, &arp, sizeof(arp))) TESSEL_ERR("Failed to send arp packet!");
}

i32 IsValidateArp(const ether_arp& arp) {
    if (arp.ea_hdr.ar_hrd != htons(ARPHRD_ETHER) || arp.ea_hdr.ar_pro != htons(ETHERTYPE_IP) ||
        arp.ea_hdr.ar_hln != ETH_ALEN || arp.ea_hdr.ar_pln != sizeof(u32)) {
        return 0;
    }
    if (arp.ea_hdr.ar_op == htons(ARPOP_REQUEST) || arp.ea_hdr.ar_op == htons(ARPOP_REPLY)) return 1;
    TESSEL_DBG("Unsupport options, ignored");
    return 0;
}
