// The IPv6 side of conflict detection: by neighbour discovery.
//
// Whenever the IPv4 side announces, this side asks for every own address as if it were new: a host that has it too
// answers with an advertisement. The kernel defends addresses itself, so nothing is answered here.
#pragma once

#include <atomic>

#include "core/types.h"
#include "probe/conflict/ndp.h"
#include "probe/conflict/netdev_table.h"
#include "tessel/conflict.h"

// 1: an address was added or removed since the last IPv6 announcement.
extern std::atomic<i32> g_nIpv6ChangedFlag;

// Bodies of the two threads.
void RecvNetPacketV6(void* unused);
[[noreturn]] void SendNetPacketV6(void* unused);

namespace tessel {

// TESSEL_CONFLICT_IP for an advertisement of an own address with another host's MAC, TESSEL_CONFLICT_MAC for a message
// with the own MAC, 0 for neither; fills in the report. The caller holds the table's lock.
[[nodiscard]] u32 CheckNeighbour(const TNetdevRecord& record, const NeighbourMessage& message,
                                 TNetConflictReport& report);

}  // namespace tessel
