// Which event a notification is, by the socket that it came to and its type.
#pragma once

#include <string_view>

#include "core/types.h"

namespace tessel {

struct EventName {
    int kind;          // enum tessel_event_kind
    const char* name;  // terminated
};

// `socketName` is the whole name, with what follows the family ("ipc_ping_4711").
[[nodiscard]] EventName FindEventName(std::string_view socketName, u32 type);

}  // namespace tessel
