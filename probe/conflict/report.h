// Conflict reports to the application that listens for them.
#pragma once

#include "core/call_site.h"
#include "core/log.h"
#include "core/types.h"
#include "probe/conflict/netdev_table.h"
#include "tessel/conflict.h"

namespace tessel {

// Fills in the own address and MAC, and the interface's name.
void FillReport(TNetConflictReport& report, const TNetdevRecord& record, const TNetIpAddr& entry);

// Sends a notification of type TESSEL_CONFLICT_... to a socket of tessel/ipc.h. Takes up to 8 seconds when nobody
// accepts it: the caller holds no lock.
void SendReport(const char* socketName, u32 type, const TNetConflictReport& report,
                CallSite where = CallSite::Current());

// While one lives, its thread logs at most a hundred lines in ten seconds: any host on the link can send what causes
// them, thousands of times a second.
class ConflictLogLimit : public LogLimit {
  public:
    ConflictLogLimit() : LogLimit(100, std::chrono::seconds(10)) {}
};

// A MAC as it is logged with conflicts.
struct MacText {
    explicit MacText(const u8* mac);
    char text[18];
};

}  // namespace tessel
