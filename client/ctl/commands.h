// Everything that the tool can do.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tessel::ctl {

struct Command;

// Object by object; commands of one object stand together.
[[nodiscard]] std::span<const Command> Commands();

// The objects, each once, in the table's order.
[[nodiscard]] std::vector<std::string> ObjectNames();

// Half a line on what an object is about.
[[nodiscard]] std::string_view ObjectSummary(std::string_view object);

}  // namespace tessel::ctl
