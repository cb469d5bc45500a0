// Stopping remote-access services.
#pragma once

#include "core/types.h"

// Ends every process of the service with signal 9. "ssh", "telnetd" and "ftpd" stand for the server of this kind of
// system; anything else is a process name. 0, or -1 with a log line, also when no such process runs.
[[nodiscard]] i32 ServiceStop(const char* serviceName);
