// Signals to programs that keep running for an interface: to nobody whose number a program had before.
#pragma once

#include "core/process.h"

namespace tessel {

// Sends a signal to `pid` if it still is such a process.
void Signal(const InterfaceProcess& wanted, pid_t pid, int signal);

// Ends `pid` with "kill -9" if it still is such a process. 0, or the tool's exit status, or -1.
[[nodiscard]] i32 KillByTool(const InterfaceProcess& wanted, pid_t pid);

}  // namespace tessel
