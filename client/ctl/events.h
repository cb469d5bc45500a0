// Notifications as they are shown: one line each, for people or as JSON.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/ctl/time_text.h"
#include "client/libtessel.h"
#include <nlohmann/json.hpp>

namespace tessel::ctl {

struct ShownEvent {                   // NOLINT(bugprone-exception-escape): a promise of the JSON library, kept by it
    nlohmann::ordered_json document;  // time, event and source, then the fields of its kind
    std::string line;                 // without the line's end
};

// `source` is the name of the socket that it came to. Nothing for a kind that is not known, and for a payload that is
// not its record.
[[nodiscard]] std::optional<ShownEvent> ShowEvent(const tessel_event& event, std::string_view source, WallTime time);

}  // namespace tessel::ctl
