// The IPv4 side of conflict detection: by ARP.
//
// IPv4 addresses are in network byte order, MACs have 6 bytes. The caller of a check holds the table's lock.
#pragma once

#include <netinet/if_ether.h>

#include "core/types.h"
#include "probe/conflict/netdev_table.h"
#include "tessel/conflict.h"

// Bodies of the two threads. The listener ends when there is no socket to listen on. While it sends reports, packets
// wait in its socket.
void RecvNetPacket(void* unused);
[[noreturn]] void SendNetPacket(void* unused);

// TESSEL_CONFLICT_IP when the packet says that another host uses `ip`, else 0. Announcements and probes for it are
// answered, whatever the result.
[[nodiscard]] i32 ArpIpIsConflict(const char* name, u32 ip, const u8* ownMac, const ether_arp& arp);

// TESSEL_CONFLICT_MAC when the packet's sender has our own MAC (a request is then answered); else 3.
[[nodiscard]] i32 ArpMacIsConflict(const char* name, u32 ip, const u8* ownMac, const ether_arp& arp);

// Check a packet that came in on interface `name` against the IPv4 addresses of the table's records of that name, and
// fill in the report. IP: TESSEL_CONFLICT_IP at the first conflict, 0 for none. MAC: the result for the last address, 0
// without an address, -1 with a log line for a null argument.
[[nodiscard]] i32 CheckIpConflict(const TNetdevMember* ptMember, const char* name, const ether_arp* ptArp,
                                  TNetConflictReport* ptReport);
[[nodiscard]] i32 CheckMacConflict(const TNetdevMember* ptMember, const char* name, const ether_arp* ptArp,
                                   TNetConflictReport* ptReport);
