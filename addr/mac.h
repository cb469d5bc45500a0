// The hardware address of an interface.
#pragma once

#include "core/types.h"

// Sets the address. 0, or the executor's result with a log line.
[[nodiscard]] i32 MacaddrSet(const char* pchIfaceName, const u8* pbyMac);

// Reads the 6 bytes, which stay as they were on failure. 0, or -1 with a log line: no such interface, no Ethernet
// address, or one whose first byte is 0x22.
[[nodiscard]] i32 MacaddrGet(const char* pchIfaceName, u8* pbyMac);
