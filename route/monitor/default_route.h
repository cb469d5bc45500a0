// IPv4 default routes that other programs install without a metric get their interface's.
//
// For the one thread that follows the kernel.
#pragma once

#include <linux/netlink.h>

// A route was added. A default route of the main table without a metric is remembered; whoever added it has two seconds
// to finish. `message` is whole: nlmsg_len bytes are there.
void ProcessRtMsg(const nlmsghdr* message);

namespace tessel {

// The same for every route that the kernel has: some may have been added unnoticed.
void ProcessKernelRoutes();

// Milliseconds until a remembered route is due; INT_MAX without one.
[[nodiscard]] int MsUntilDueRoute();

// Installs those that are due with their metric.
void InstallDueRoutes();

}  // namespace tessel
