// Sockets to the kernel over netlink, and the messages that come through them.
#pragma once

#include <linux/netlink.h>

#include <optional>
#include <span>

#include "core/call_site.h"
#include "core/types.h"
#include "core/unique_fd.h"

namespace tessel {

// Bound to `groups`; portId 0 lets the kernel choose. Closed, with a log line, when that fails.
[[nodiscard]] UniqueFd OpenNetlink(int protocol, u32 portId, u32 groups, CallSite where = CallSite::Current());

// The first whole message of `bytes`, which are aligned as the kernel aligns them, cut off from them. Nothing at the
// end, and at a message that is shorter than its header or longer than what is there.
[[nodiscard]] const nlmsghdr* NextMessage(std::span<const u8>& bytes);

}  // namespace tessel
