// Router watch: what an interface learns from router advertisements, its global IPv6 addresses and the default gateway,
// is reported to the application that asked for it whenever it changes.
//
// Five interfaces are watched at a time, each by a worker of its own that looks every two seconds. Names are checked:
// what the kernel would not accept for an interface is not watched.
#pragma once

#include <chrono>

#include "core/types.h"
#include "tessel/router.h"

namespace tessel {
class RouterWatchPool;

// From one look to the next: two seconds, unless a test shortens it.
extern std::chrono::milliseconds g_routerCycle;
}  // namespace tessel

// The interfaces that are watched; null until the pool is made. It has its own lock.
extern tessel::RouterWatchPool* g_ptDaeRouterNotifyInfo;

// Makes the pool. Without memory there is none, which is logged, and every start fails.
void DaemonRouterNotifyInit();

// Watches an interface for the user and process that name the socket of the reports, and sends one Router Solicitation.
// If it is already watched, reports go to the new process, beginning with one of what is known now. 0, or -1 with a log
// line.
[[nodiscard]] i32 RouterAdvertiseStart(const char* pchIfaceName, i32 userId, i32 pid);

// Ends it; nothing is reported afterwards. 0, also when the interface is not watched; -1 for a null name.
[[nodiscard]] i32 RouterAdvertiseStop(const char* pchIfaceName);

// 0 when both lists have the same number of entries and every entry of the second one is in the first, in any order;
// else 1.
[[nodiscard]] i32 NetAddrCmp(const TNetIfaceIp* ptSrcAllIp, const TNetIfaceIp* ptDstAllIp);

// Fills the list with the interface's global addresses that were learnt from router advertisements. 0, or -1 with a log
// line.
[[nodiscard]] i32 GetGlobalIpaddrV6(const char* pchIfaceName, TNetIfaceIp* ptNetIfaceIp);

// Reads the IPv6 default gateway, of every interface when the name is null. 0, or -1 when there is none: the gateway is
// then the zero address.
[[nodiscard]] i32 GetRaGateWayV6(const char* pchIfaceName, TNetGateway* ptNetGateway);
