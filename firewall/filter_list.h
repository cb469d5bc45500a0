// Entries of the white and the black list.
//
// Every operation takes a TESSEL_LIST_... and returns 0, also when an entry to be added already exists, or -1 with a
// log line.
#pragma once

#include "core/types.h"
#include "tessel/firewall.h"

[[nodiscard]] i32 IpFilterListManage(u32 operation, const TNetIpFilter& entry);

// For IPv4, then for IPv6: what was done for IPv4 stays when IPv6 fails.
[[nodiscard]] i32 MacFilterListManage(u32 operation, const char* mac);

// For the protocol of the address.
[[nodiscard]] i32 IpMacFilterListManage(u32 operation, const char* mac, const char* ip);
