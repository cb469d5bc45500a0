// Stopping remote-access services.
#pragma once

#include "core/types.h"

// The process that a service's name stands for on this kind of system ("ssh": "dropbear", or "sshd"), a literal; null:
// the name is a process name itself.
[[nodiscard]] const char* ProcessOfService(const char* serviceName);

// Ends every process of the service with signal 9. "ssh", "telnetd" and "ftpd" stand for the server of this kind of
// system; anything else is a process name. 0, or -1 with a log line, also when no such process runs.
[[nodiscard]] i32 ServiceStop(const char* serviceName);
