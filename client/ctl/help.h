// Help at every level, made from the command table.
#pragma once

#include <string>
#include <vector>

#include "client/ctl/command.h"

namespace tessel::ctl {

// On what the words name: everything, an object, or one command.
[[nodiscard]] std::string HelpText(const std::vector<std::string>& words);

}  // namespace tessel::ctl
