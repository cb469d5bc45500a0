// Lists of ports, as people and the packet filter's tools write them.
#pragma once

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "core/types.h"

namespace tessel::ctl {

// First and last ports.
using PortList = std::vector<std::pair<u32, u32>>;

// From "80,443" or "1000:2000", also with an end left out: ":1000". Nothing for anything else. Empty when every port is
// meant, which the tools write by leaving the option out.
[[nodiscard]] std::optional<PortList> ParsePorts(std::string_view text);

[[nodiscard]] bool HasPort(const PortList& ports, u32 port);

}  // namespace tessel::ctl
