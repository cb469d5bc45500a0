// Static ARP entries.
#pragma once

#include "core/types.h"
#include "tessel/firewall.h"

// 0, or -1 with a log line. Adding needs an IPv4 address and a MAC, deleting only the address.
[[nodiscard]] i32 AddArpEntry(const ArpEntryInfo* info);
[[nodiscard]] i32 DelArpEntry(const ArpEntryInfo* info);
