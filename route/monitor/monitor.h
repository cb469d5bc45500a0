// Following the kernel: addresses and default routes that other programs change.
#pragma once

#include "core/types.h"

// Brings the wired interfaces up and starts the two threads that follow the kernel and its driver for the daemon's
// life. 0, or -1 with a log line when a thread cannot be started.
i32 NetlinkInit();

// Body of the thread that follows addresses and routes. Ends when its socket cannot be created.
void RouteMonitorThread(void* unused);

namespace tessel {

// Starts noting changes; called before the first look at the interfaces. The monitor, which starts listening later,
// looks again if there were any.
void NoteChangesFromNowOn();

}  // namespace tessel
