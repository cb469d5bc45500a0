// Following the kernel: addresses and default routes that other programs change, and the driver's own events.
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include "core/types.h"

// Interfaces whose name contains "eth", as BringUpInterface counted them.
extern i32 count;

// Brings the wired interfaces up and starts the two threads that follow the kernel for the daemon's life. 0, or -1 with
// a log line when a thread cannot be started.
i32 NetlinkInit();

// Sets every listed interface up that is down and has "eth" in its name. 0, or -1 with a log line.
[[nodiscard]] i32 BringUpInterface();

// 1 when the interface is down or cannot be asked for, 2 when it is up and has a carrier, 0 when it is up without one;
// -1 when there is no socket to ask with.
[[nodiscard]] i32 InterfaceCheckState(const char* name);

// Bodies of the two threads. They end when their socket cannot be made; the driver's exists on the device alone.
void RouteMonitorThread(void* unused);
void NetlinkInitThread(void* unused);

// Puts a pointer to each attribute of a type up to `max` into its slot of `table` (max + 1 entries). A later one of the
// same type counts; the walk ends at an attribute that is longer than what remains.
void ParseRtAttr(const rtattr** table, u32 max, const rtattr* first, i32 length);

// A route was added: a default route of the main table without metric gets its interface's. Takes two seconds.
// `message` is whole: nlmsg_len bytes are there.
void ProcessRtMsg(const nlmsghdr* message);
