// When a family's addresses are announced.
#pragma once

#include <atomic>

#include "core/call_site.h"
#include "core/types.h"
#include "probe/conflict/netdev_table.h"

namespace tessel {

// Rounds that are owed after a reported conflict.
constexpr i32 kConfirmRounds = 3;

// What one family's announcing thread and its listener share.
struct Announcer {
    std::atomic<i32>& addressesChanged;             // set by whoever sees it, cleared by the announcer
    std::atomic<i32>& roundsOwed;                   // set by the listener, counted down by the announcer
    void (*announce)(const TNetdevRecord& record);  // sends for every address of the family; the table is locked
};

// Every five seconds: announces when the number of interfaces has changed, when addresses have, and while rounds are
// owed. Log lines are in the caller's name.
[[noreturn]] void AnnounceForEver(const Announcer& announcer, CallSite where = CallSite::Current());

}  // namespace tessel
