// Sockets to the kernel over netlink, and the messages that come through them.
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <span>

#include "core/call_site.h"
#include "core/types.h"
#include "core/unique_fd.h"

// Puts a pointer to each attribute of a type up to `max` into its slot of `table` (max + 1 entries). A later one of the
// same type wins; the walk ends at an attribute that is longer than what remains.
void ParseRtAttr(const rtattr** table, u32 max, const rtattr* first, i32 length);

namespace tessel {

// Bound to `groups`; portId 0 lets the kernel choose. Closed, with a log line, when that fails.
[[nodiscard]] UniqueFd OpenNetlink(int protocol, u32 portId, u32 groups, CallSite where = CallSite::Current());

// Takes the first whole message off `bytes`, which are aligned as the kernel aligns them. Null at the end, and at a
// message that is shorter than its header or longer than what is left.
[[nodiscard]] const nlmsghdr* NextMessage(std::span<const u8>& bytes);

// The kernel's IPv4 routes, of all tables. A failure to ask is logged in the caller's name and yields none.
class RouteDump {
  public:
    explicit RouteDump(CallSite where = CallSite::Current());

    // The next route as a message like that of a new one, valid until the next call; null at the end.
    [[nodiscard]] const nlmsghdr* Next();

    // False when the kernel could not be asked at all.
    [[nodiscard]] bool IsOpen() const {
        return fd_.IsOpen();
    }

    // Whether Next has yielded all routes and come to the end. False also when routes changed meanwhile and the kernel
    // may have left some out.
    [[nodiscard]] bool IsComplete() const {
        return isDone_ && !isInterrupted_;
    }

  private:
    bool isDone_ = false;
    bool isInterrupted_ = false;
    UniqueFd fd_;
    std::span<const u8> rest_;
    alignas(nlmsghdr) u8 buffer_[8192];  // netlink(7): the kernel fills no more at a time
};

}  // namespace tessel
