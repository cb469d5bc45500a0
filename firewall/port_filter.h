// What happens to packets from or to TCP and UDP ports.
#pragma once

#include "core/types.h"
#include "tessel/firewall.h"

// Adds or deletes (TESSEL_PORT_ADD, TESSEL_PORT_DEL) an entry. Returns the result of the last rule run, 0 when all
// existed already; -1 with a log line for an entry that makes no sense.
[[nodiscard]] i32 PortFilterManage(u32 operation, const TNetPortFilter& entry);
