// Telling the application that listens about a conflict.
#pragma once

#include "core/call_site.h"
#include "core/types.h"
#include "probe/netdev_table.h"
#include "tessel/conflict.h"

namespace tessel {

// Fills in the own address and MAC, and the interface's name.
void FillReport(TNetConflictReport& report, const TNetdevRecord& record, const TNetIpAddr& entry);

// Sends a notification of type TESSEL_CONFLICT_... to a socket of tessel/ipc.h. Takes some seconds when nobody listens.
void SendReport(const char* socketName, u32 type, const TNetConflictReport& report,
                CallSite where = CallSite::Current());

}  // namespace tessel
