// The requests and replies behind the commands: names, records, and how they read in words.
#pragma once

#include <array>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/types.h"
#include <nlohmann/json.hpp>

namespace tessel::ctl {

// A line that the daemon runs for a request. {key} stands for that value of the described request. Where a value is
// absent or null, the part in brackets that needs it is left out, or the whole line.
struct ToolLine {
    std::string_view family;  // "inet", "inet6": only for requests of that family or of both; empty: always
    std::string_view text;
    std::string_view without = {};  // only for requests that leave this value out
};

struct Message {
    u32 code;
    std::string_view name;  // in "raw" and in what -v shows
    std::string_view requestRecord;
    std::size_t requestBytes;
    std::string_view replyRecord;
    std::size_t replyBytes;
    // From bytes, of which missing ones read as 0, to what people call them.
    nlohmann::ordered_json (*describeRequest)(std::span<const u8> bytes);
    nlohmann::ordered_json (*describeReply)(std::span<const u8> bytes);
    std::array<ToolLine, 4> runs;
};

[[nodiscard]] std::span<const Message> Messages();

// The rows of a group of objects.
[[nodiscard]] std::span<const Message> AddressMessages();
[[nodiscard]] std::span<const Message> GatewayMessages();
[[nodiscard]] std::span<const Message> FirewallMessages();
[[nodiscard]] std::span<const Message> DeviceMessages();
[[nodiscard]] std::span<const Message> RouteMessages();
[[nodiscard]] std::span<const Message> ProbeMessages();

// Null: not known.
[[nodiscard]] const Message* FindMessage(u32 code);
[[nodiscard]] const Message* FindMessage(std::string_view name);

// The lines with the values of this request in them.
[[nodiscard]] std::vector<std::string> ToolLinesFor(const Message& message, const nlohmann::ordered_json& request);

// "interface eth0   mtu 1400".
[[nodiscard]] std::string DescriptionText(const nlohmann::ordered_json& description);

}  // namespace tessel::ctl
