// The tool from its arguments to its exit status.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "client/ctl/command.h"

namespace tessel::ctl {

// `arguments` without the program's name.
[[nodiscard]] int RunTool(const std::vector<std::string>& arguments, std::FILE* out, std::FILE* err);

// A command from within another (apply, try, trace): its words and options as typed. The outer options for output and
// time stay as they are. What fails stands in the outcome, and a table that it would show, as text.
[[nodiscard]] Outcome RunInner(const std::vector<std::string>& arguments, const Invocation& outer);

// What an outcome prints, by the options. Returns the exit status.
[[nodiscard]] int ShowOutcome(const Outcome& outcome, const Command& command, const Options& options, std::FILE* out,
                              std::FILE* err);

}  // namespace tessel::ctl
