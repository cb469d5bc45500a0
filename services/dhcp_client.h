// DHCP client sessions of both families: which interfaces want leases, and which application hears of them.
//
// A session is a client program (udhcpc, udhcpc6), whose helper script writes a result file after each event, and a
// worker that reads this file and reports to the application that asked for the session. Commands come one at a time;
// the worker uses only its own record.
//
// Names are checked: what the kernel would not accept for an interface is refused before it goes into a path or a line.
#pragma once

#include <sys/types.h>

#include <atomic>

#include "core/types.h"
#include "core/worker.h"
#include "tessel/dhcp.h"

// The client program is not running.
constexpr i32 kDhcpcNotRunning = 1108;

struct TDhcpcInfo {
    TDhcpcInfo* next = nullptr;       // in the registry
    TDhcpcInfo* nextOwned = nullptr;  // among all existing sessions
    u16 wSinFamily = 0;               // 0: a placeholder
    std::atomic<i32> isRunning{0};    // wanted; the worker clears it when it fails
    std::atomic<i32> nApipid{0};      // of the application that is reported to
    std::atomic<u16> wDnsDynmic{0};   // 0: without DNS servers
    TNetDhcpcLease tLease{};          // the worker's while it runs, except for the name
    tessel::Worker worker;
};

// The first session of the registry; null when that is empty.
extern TDhcpcInfo* g_ptDaeDhcpCInfo;

// Makes a registry of two placeholders, which no look-up finds. 0, or -1 with a log line.
i32 DaemonDhcpcInit();

// Starts a session (family 2 or 10), or takes over the running one: its client is asked to renew the lease, and reports
// go to `nPid` from now on. Takes some seconds if the client does not come up. 0, or -1 with a log line.
[[nodiscard]] i32 DhcpcStart(const char* achDevName, u16 wSinFamily, u16 wDnsDynmic, i32 nPid);

// Ends the session and its client, or a client without a session. 0, kDhcpcNotRunning for an IPv4 session whose client
// had died, or -1 with a log line.
[[nodiscard]] i32 DhcpcStop(const char* achDevName, u16 wSinFamily);

// Always -1, with a log line: a repeated start renews.
[[nodiscard]] i32 DhcpcRenew(const char* achDevName, u16 wSinFamily);

// The running session of that family and interface, null when there is none. Its sessions that no longer run are
// removed.
[[nodiscard]] TDhcpcInfo* DaeFamilyMapDhcpcInfoExt(u16 wSinFamily, const char* achDevName);

// Takes a record out of the registry. The registry then begins with the record's predecessor: what came before that one
// can no longer be found, and without a predecessor nothing can. It has always been so.
void remove_node(TDhcpcInfo** head, TDhcpcInfo* record);

namespace tessel {

// Takes a session out of the registry for good. Its worker is asked to end; it is freed with a later command.
void RemoveSession(TDhcpcInfo& info);

}  // namespace tessel
