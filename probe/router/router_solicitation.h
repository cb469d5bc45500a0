// Router Solicitation (RFC 4861): asks the routers on a link to advertise themselves immediately.
#pragma once

#include "core/types.h"

namespace tessel {

constexpr i32 kLinkAddrMax = 256;  // characters

}  // namespace tessel

// Sends one on the interface, from its link-local address and its own MAC. If either is missing, that is logged and
// nothing is sent. Runs two tools.
void SendRsPacket(const char* pchIface);

// Writes the interface's first link-local address as text into `address`, which has room for kLinkAddrMax characters
// and a NUL. 0, or -1 with a log line when there is none.
[[nodiscard]] i32 GetLinkAddr(const char* pchIface, char* address);
