// Values that may be missing: null in a document, so that no key comes and goes.
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace tessel::ctl {

inline nlohmann::ordered_json NullIfEmpty(const std::string& text) {
    return text.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(text);
}

template <typename Value>
nlohmann::ordered_json OrNull(const std::optional<Value>& value) {
    return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json();
}

}  // namespace tessel::ctl
