// What conflict detection asks the kernel about an interface.
#pragma once

#include "core/types.h"

// The interface's index, or -1 with a log line.
[[nodiscard]] i32 FindIndex(const char* name);

// 0 for an interface that is up, resolves addresses and is no loopback; else -1.
[[nodiscard]] i32 InterfaceCheck(const char* name);
