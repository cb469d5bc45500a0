// Points in time as they are shown.
#pragma once

#include <chrono>
#include <string>

namespace tessel::ctl {

using WallTime = std::chrono::system_clock::time_point;

// RFC 3339 with milliseconds: "2026-11-21T10:04:11.204Z".
[[nodiscard]] std::string JsonTime(WallTime time);

// Where this process is: "2026-11-21 10:04:11", and "10:04:11.204" for what happens now.
[[nodiscard]] std::string DateText(WallTime time);
[[nodiscard]] std::string ClockText(WallTime time);

}  // namespace tessel::ctl
