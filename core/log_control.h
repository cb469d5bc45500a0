// What governs the log: the level and the two log files.
#pragma once

#include <sys/socket.h>

#include "core/types.h"
#include "tessel/log.h"

// The words for syslog's levels. Packet filter rules with a LOG target take the third.
extern const char g_achLogLevel[4][16];

// Sets the log level; any value is accepted. Initially 2. Returns 0.
i32 TesselDebugLevelSet(i32 level);

// Opens (1, 5) or closes (2, 6) the library's log file as ctl->eCmd says; 3 and 4 do nothing. Opening truncates;
// closing takes a second. Returns 0, or -1 with a log line: null, a code outside 1 to 6, or a file that cannot be
// opened. Links, files with several names and files of users other than this process's are not opened.
i32 LogLibFileManage(const LogFileCtl* ctl);

// The same for the daemon's log file: 3 and 5 open, 4 and 6 close, 1 and 2 do nothing.
i32 LogDaemonFileManage(const LogFileCtl* ctl);

namespace tessel {

// The same on behalf of a client: except for the default file, it opens or creates only what the client itself could,
// and the file may be the client's own.
i32 ManageDaemonLogFile(const LogFileCtl& ctl, const ucred& client);

}  // namespace tessel
