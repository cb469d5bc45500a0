// The active-interface table: which Ethernet-like interfaces are up and have a link, with their MAC and addresses.
#pragma once

#include <pthread.h>

#include <algorithm>
#include <span>

#include "addr/address.h"
#include "core/call_site.h"
#include "core/types.h"
#include "tessel/address.h"

constexpr u32 kNetdevMax = 16;

struct TNetdevRecord {
    char achDevName[16];
    u32 bActive;  // records with 0 are skipped
    u8 abyMac[6];
    TNetIfaceIp tIfaceIp;     // IPv4 addresses first
    u32 bV6MacConflict;       // a MAC conflict was reported on the IPv6 side since the table was built
    u32 bV6ConflictReserved;  // cleared with it
};

struct TNetdevMember {
    u32 dwNum;  // filled records
    TNetdevRecord atRecord[kNetdevMax];
    pthread_mutex_t tMutex;  // held for every rebuild and read of the table: NetdevTableLock
};

// Null until NetdevTableInit, and when that failed.
extern TNetdevMember* g_ptNetdevMember;

// Allocates the table, zeroed, and makes its mutex. 0, or -1 with a log line.
[[nodiscard]] i32 NetdevTableInit(tessel::CallSite where = tessel::CallSite::Current());

// Rebuilds the table, whose mutex the caller holds, from what the kernel and `ip` say. 0, or -1 with a log line; the
// records that were filled before a failure stay.
i32 ProbeActiveNetdev(TNetdevMember* ptMember);

// 0 for an interface that is up, resolves addresses and is not a loopback; else -1.
[[nodiscard]] i32 InterfaceCheck(const char* name);

namespace tessel {

// Holds the table's mutex. Whoever waits comes next, before a thread that has just released it: some hold it for
// seconds, again and again.
class NetdevTableLock {
  public:
    NetdevTableLock();
    ~NetdevTableLock();
    NetdevTableLock(const NetdevTableLock&) = delete;
    NetdevTableLock& operator=(const NetdevTableLock&) = delete;
};

// Locks the table and rebuilds it. Does nothing without a table.
void RebuildNetdevTable();

// An eventfd that is written after every rebuild, for one reader; -1 when there is none.
[[nodiscard]] int NetdevRebuildFd();

// The filled records of a table, whose lock the caller holds.
template <typename Table>
[[nodiscard]] auto RecordsOf(Table& table) {
    return std::span(table.atRecord).first(std::min(table.dwNum, kNetdevMax));
}

// The addresses of a record, both families.
[[nodiscard]] inline std::span<const TNetIpAddr> AddressesOf(const TNetdevRecord& record) {
    return AddressesOf(record.tIfaceIp);
}

}  // namespace tessel
