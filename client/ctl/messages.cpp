#include "client/ctl/messages.h"

#include <fmt/format.h>

#include <algorithm>

namespace tessel::ctl {

using nlohmann::ordered_json;

namespace {

std::string ValueText(const ordered_json& value) {
    if (value.is_null()) return "";
    if (value.is_array()) return fmt::format("{}", fmt::join(value.get<std::vector<std::string>>(), " "));
    return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string FillIn(std::string_view line, const ordered_json& values) {
    std::string text(line);
    for (const auto& [key, value] : values.items()) {
        const std::string place = "{" + key + "}";
        const std::size_t position = text.find(place);
        if (position != std::string::npos && !value.is_null()) text.replace(position, place.size(), ValueText(value));
    }
    return text;
}

// Without the bracketed parts that still wait for a value, and without the brackets of the others.
std::string WithoutUnfilled(std::string text) {
    for (std::size_t open = text.find('['); open != std::string::npos; open = text.find('[', open)) {
        const std::size_t close = text.find(']', open);
        if (close == std::string::npos) break;
        std::string part = text.substr(open + 1, close - open - 1);
        if (part.find('{') != std::string::npos) part.clear();
        text.replace(open, close - open + 1, part);
    }
    return text;
}

std::vector<Message> JoinedMessages() {
    std::vector<Message> messages;
    for (const auto rows :
         {AddressMessages(), GatewayMessages(), RouteMessages(), FirewallMessages(), DeviceMessages(), ProbeMessages()})
        messages.insert(messages.end(), rows.begin(), rows.end());
    return messages;
}

template <typename Predicate>
const Message* FindIf(Predicate matches) {
    const std::span<const Message> messages = Messages();
    const auto found = std::find_if(messages.begin(), messages.end(), matches);
    return found == messages.end() ? nullptr : &*found;
}

}  // namespace

std::span<const Message> Messages() {
    static const std::vector<Message> messages = JoinedMessages();
    return messages;
}

const Message* FindMessage(u32 code) {
    return FindIf([&](const Message& message) { return message.code == code; });
}

const Message* FindMessage(std::string_view name) {
    return FindIf([&](const Message& message) { return message.name == name; });
}

std::vector<std::string> ToolLinesFor(const Message& message, const ordered_json& request) {
    const std::string family = request.contains("family") ? request["family"].get<std::string>() : "";
    std::vector<std::string> lines;
    for (const ToolLine& line : message.runs) {
        const bool isMeant = line.family.empty() || family == "both" || line.family == family;
        const bool isExcluded = request.contains(line.without) && !request[line.without].is_null();
        if (line.text.empty() || !isMeant || isExcluded) continue;
        const std::string text = WithoutUnfilled(FillIn(line.text, request));
        if (text.find('{') == std::string::npos) lines.push_back(text);
    }
    return lines;
}

std::string DescriptionText(const ordered_json& description) {
    std::string text;
    for (const auto& [key, value] : description.items()) {
        const std::string word = ValueText(value);
        if (!word.empty()) text += fmt::format("{}{} {}", text.empty() ? "" : "   ", key, word);
    }
    return text;
}

}  // namespace tessel::ctl
