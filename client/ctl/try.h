// A change that is undone unless somebody confirms it.
#pragma once

#include <string>
#include <vector>

#include "client/ctl/command.h"

namespace tessel::ctl {

// Runs a command (its arguments as typed, without "tesselctl") and undoes it after `seconds` unless it is confirmed.
[[nodiscard]] Outcome TryCommand(const Invocation& outer, u32 seconds, const std::vector<std::string>& arguments);

}  // namespace tessel::ctl
