// Messages of rtnetlink(7) as documents.
#pragma once

#include <libmnl/libmnl.h>

#include "client/ctl/json.h"
#include "core/types.h"

namespace tessel::ctl {

// What one header of the kernel's has in bytes, by the type of its messages. 0: not known here.
[[nodiscard]] std::size_t HeaderBytes(u16 type);

// A message of any action, as in kernel.h; routes of every type, with "source" and "local". Null: not known here.
[[nodiscard]] Json DocumentOf(const nlmsghdr* message);

}  // namespace tessel::ctl
