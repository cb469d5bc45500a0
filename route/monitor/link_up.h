// Bringing the wired interfaces up.
#pragma once

#include "core/types.h"

// Interfaces whose name contains "eth", as BringUpInterface counted them.
extern i32 count;

// Sets every listed interface up that is down and has "eth" in its name. 0, or -1 with a log line.
[[nodiscard]] i32 BringUpInterface();

// 1 when the interface is down or cannot be queried, 2 when it is up and has a carrier, 0 when it is up without one; -1
// when there is no socket to ask with.
[[nodiscard]] i32 InterfaceCheckState(const char* name);
