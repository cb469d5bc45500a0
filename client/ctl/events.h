// Events as they are shown: notices of the daemon, and changes in the kernel.
#pragma once

#include "client/ctl/command.h"

namespace tessel::ctl {

struct ShownEvent {
    Json document;     // time, event, source, and the fields
    std::string line;  // "10:04:11.204  conflict  eth0  ..."
    std::string text;  // what stands behind the interface or the id there: "seq 0  ttl 64  0.41 ms"
    int kind = 0;      // enum tessel_event_kind; 0: the kernel's
};

// Nothing: the message is no event of a known kind, or too short.
[[nodiscard]] std::optional<ShownEvent> ShowEvent(const tessel_event& event, std::string_view source, WallTime time);

// A change in the kernel, as FromKernel gives it.
[[nodiscard]] ShownEvent ShowKernelEvent(const Json& change, WallTime time);

// "0.41 ms", "12.3 ms"; "0.41" for lists of them.
[[nodiscard]] std::string MillisecondsText(long long microseconds, std::string_view unit = " ms");

}  // namespace tessel::ctl
