// ARP packets (RFC 826, RFC 5227) on one interface. IPv4 addresses are in network byte order, MACs have 6 bytes.
#pragma once

#include <netinet/if_ether.h>

#include "core/types.h"

enum ArpSendKind : i32 {
    kArpGratuitous = 0,
    kArpProbe = 1,
    kArpBoth = 2  // the gratuitous one first
};

// Broadcasts requests about an own address. A failure is logged and ends the call.
void SendArpPacket(const char* name, u32 ip, const u8* mac, i32 kind);

enum ArpReplyKind : i32 {
    kArpDefend = 0,      // to a host that announces our address
    kArpAnswerProbe = 1  // to one that asks whether it may have it: the target address stays 0.0.0.0
};

// Answers a peer that an address is ours. Any other kind is logged and sent as an answer to a probe.
void ReplyArpPacket(const char* name, u32 ip, const u8* ownMac, const u8* peerMac, i32 kind);

// 1 for a request or reply about IPv4 over Ethernet, else 0.
[[nodiscard]] i32 IsValidateArp(const ether_arp& arp);
