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

// The rows of a group of objects. A new command is a row there, its handler, and for a new code a row among the
// messages (messages.h).
[[nodiscard]] std::span<const Command> AddressCommands();
[[nodiscard]] std::span<const Command> GatewayCommands();
[[nodiscard]] std::span<const Command> RouteCommands();
[[nodiscard]] std::span<const Command> FirewallCommands();
[[nodiscard]] std::span<const Command> DeviceCommands();
[[nodiscard]] std::span<const Command> ProbeCommands();
[[nodiscard]] std::span<const Command> ToolCommands();

// Half a line on what an object is about.
[[nodiscard]] std::string_view ObjectSummary(std::string_view object);

}  // namespace tessel::ctl
