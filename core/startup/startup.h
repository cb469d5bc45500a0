// From a started program to a serving daemon.
#pragma once

#include "core/types.h"

// Detaches from the session that started the program: forks twice, each time ending the parent with 0, and continues in
// "/tmp" with umask 0. Standard input, output and error stay as inherited. Exits with 1 when a fork fails.
void DaemonInit();

// Detaches, sets the signal actions and initialises the modules. 0, or -1 when the active-interface table could not be
// allocated.
i32 TesselDaemonInit();

// Everything from the first log line to serving. Never returns.
[[noreturn]] void TesselDaemonMain();
