// Crash reports as they stand in the daemon's crash files.
#pragma once

#include "client/ctl/command.h"

namespace tessel::ctl {

// In the file's order: the newest is the last one. What a report was cut short of is null or empty.
//   {"time": RFC 3339, "local_time": as it was written, "signal", "signal_name", "thread", "thread_id",
//    "registers": ["PC:0x1234"],
//    "frames": from the faulting function outwards, by the method that got further:
//       [{"frame", "function": null where the module has no symbols, "source": null, "module": path, null outside of
//         any, "offset": into the function, or into the module, "address"}]}
[[nodiscard]] Json ParseCrashReports(std::string_view text);

// Names the functions of frames that have none, by addr2line and the unstripped file of their module: DIRECTORY/PATH,
// as below a device's root, or DIRECTORY/NAME; it must be the very build that crashed. What did not help is returned, a
// line each.
[[nodiscard]] std::vector<std::string> AddSymbols(const std::string& directory, Json& frames);

}  // namespace tessel::ctl
