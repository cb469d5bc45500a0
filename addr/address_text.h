// Reading the text of `ip addr show`. Failures are logged in the caller's name.
#pragma once

#include "core/call_site.h"
#include "core/exec.h"
#include "core/family.h"
#include "core/types.h"
#include "tessel/address.h"

namespace tessel {

// Removes what follows the last newline from output that was cut: half a line reads as half a number.
void DropCutLine(ToolOutput& output);

// Appends the addresses of one family, until the list is full. False at one that cannot be read.
[[nodiscard]] bool AppendAddresses(const char* output, const AddressFamily& family, bool marksTentative,
                                   TNetIfaceIp& list, CallSite where);

// Reads MTU, MAC and the addresses of both families. False, with nothing logged, when MTU or MAC is missing, or at
// something that cannot be read.
[[nodiscard]] bool ReadShowInfo(const char* output, ipaddr_show_info& info, CallSite where);

}  // namespace tessel
