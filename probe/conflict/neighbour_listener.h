// Listening to neighbour discovery on every active interface.
#pragma once

#include "probe/conflict/ndp.h"

namespace tessel {

// Hands over every valid solicitation and advertisement from outside, with the name of the interface it came in on.
// Follows the table of interfaces. Returns, with a log line, where the kernel has no IPv6.
void ListenToNeighbours(void (*take)(const char* interfaceName, const NeighbourMessage& message));

}  // namespace tessel
