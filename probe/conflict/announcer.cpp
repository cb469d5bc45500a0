#include "probe/conflict/announcer.h"

#include <unistd.h>

#include "core/log.h"

namespace tessel {

namespace {

constexpr unsigned kCycleSeconds = 5;

// True when addresses are to be announced in this cycle. The table is locked.
bool IsDue(const Announcer& announcer, u32& announcedCount, CallSite where) {
    const u32 count = g_ptNetdevMember->dwNum;
    if (count != announcedCount) {
        TESSEL_PRT_AT(where, "maybe some interface up or down, dev number has changed, old = %d, new = %d",
                      static_cast<i32>(announcedCount), static_cast<i32>(count));
        announcedCount = count;
        announcer.addressesChanged = 0;
    } else if (announcer.roundsOwed == 0) {
        if (announcer.addressesChanged.exchange(0) == 0) {
            TESSEL_DBG_AT(where, "dev number not change, so sleep a while, dev num = %d", static_cast<i32>(count));
            return false;
        }
        TESSEL_PRT_AT(where, "ip has changed, so send arp gratuitous packet to check");
    }
    if (announcer.roundsOwed > 0 && --announcer.roundsOwed == 0) {
        TESSEL_PRT_AT(where, "conflict maybe has been clear, send gratuious again to confirm");
    }
    return true;
}

}  // namespace

void AnnounceForEver(const Announcer& announcer, CallSite where) {
    TESSEL_PRT_AT(where, "tessel inner thread %s begin !", where.function);
    u32 announcedCount = 0;
    {
        const NetdevTableLock lock;
        announcedCount = g_ptNetdevMember->dwNum;
    }
    while (true) {
        {
            const NetdevTableLock lock;
            if (IsDue(announcer, announcedCount, where)) {
                for (const TNetdevRecord& record : RecordsOf(*g_ptNetdevMember)) {
                    TESSEL_PRT_AT(where, "the active interface %s", record.achDevName);
                    announcer.announce(record);
                }
            }
        }
        sleep(kCycleSeconds);
    }
}

}  // namespace tessel
