// The MTU of an interface.
#pragma once

#include "core/types.h"

// The kernel answered that the interface is busy.
constexpr i32 kMtuBusy = 3;

// Sets the MTU in bytes. 0, kMtuBusy, or -1; failures are logged.
[[nodiscard]] i32 MtuSet(const char* interfaceName, u32 mtu);

// Stores the MTU in *mtu, which stays as it was on failure. 0, or -1 with a log line.
[[nodiscard]] i32 MtuGet(const char* interfaceName, u32* mtu);
