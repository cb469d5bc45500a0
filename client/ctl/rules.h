// Rules as they are shown.
#pragma once

#include <string>

#include "client/ctl/kernel_routes.h"
#include <nlohmann/json_fwd.hpp>

namespace tessel::ctl {

// "pref 30 from 192.168.1.0/24 fwmark 0x10 table 100"
[[nodiscard]] std::string RuleText(const KernelRule& rule);

// pref from prefix_length fwmark table family other_conditions
[[nodiscard]] nlohmann::ordered_json RuleJson(const KernelRule& rule);

}  // namespace tessel::ctl
