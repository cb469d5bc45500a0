// What happens to echo requests.
#pragma once

#include "core/types.h"

// Replaces the rules of the chain "icmppacket" with those of a TESSEL_ICMP_... Returns the result of the last tool run;
// -1 with a log line for an unknown type.
[[nodiscard]] i32 IcmpFilterManage(u32 type);
