// What a whitelist shuts out that the device itself needs.
#pragma once

#include <string>

#include "client/ctl/firewall_rules.h"

namespace tessel::ctl {

// A sentence, and the commands that add what is missing in these families' lists, as far as it can be found out.
[[nodiscard]] std::string ShutOutText(const std::vector<Filter>& filters);

}  // namespace tessel::ctl
