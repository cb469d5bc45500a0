// Documents: what every command makes, and what tables, fields and JSON are rendered from. No key comes and goes: what
// is missing is null.
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace tessel::ctl {

using Json = nlohmann::ordered_json;

inline Json NullIfEmpty(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

template <typename Value>
Json OrNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json();
}

// The text of a member; empty when it is missing or no text.
inline std::string TextOf(const Json& record, const char* key) {
    const auto found = record.find(key);
    return found != record.end() && found->is_string() ? found->get<std::string>() : "";
}

// The number of a member; 0 when it is missing or no number.
inline long long NumberOf(const Json& record, const char* key) {
    const auto found = record.find(key);
    return found != record.end() && found->is_number() ? found->get<long long>() : 0;
}

}  // namespace tessel::ctl
