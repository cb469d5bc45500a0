// The chains of the packet filter, and which of the two list chains is in force.
#pragma once

#include "core/types.h"

// Make INPUT jump to a list's chain (TESSEL_FILTER_...), after unhooking and emptying the other list of the protocol;
// and the reverse for that chain itself. 0, or -1 with a log line: what was done before the failure stays.
[[nodiscard]] i32 FilterEnable(u32 listType);
[[nodiscard]] i32 FilterDisable(u32 listType);

// Creates a chain for a TESSEL_PROTOCOL_... Returns the result of the last line run: a failure for IPv4 alone is only
// in the log. -1 for a null name and when nothing was run.
[[nodiscard]] i32 AddChain(u16 ipType, const char* name);
