// The tool from its arguments to its exit status.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "client/ctl/command.h"

namespace tessel::ctl {

// `arguments` without the program's name.
[[nodiscard]] int RunTool(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err);

// What an outcome prints, by the options. Returns the exit status.
[[nodiscard]] int ShowOutcome(const Outcome& outcome, const Options& options, std::FILE* out, std::FILE* err);

}  // namespace tessel::ctl
