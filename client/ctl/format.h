// Text by a pattern that the compiler checks against its arguments. The machinery behind it is compiled once, in
// format.cpp: in every file it would double the time that the tool takes to build.
#pragma once

#include <fmt/core.h>

#include <string>
#include <string_view>
#include <vector>

namespace tessel::ctl {

[[nodiscard]] std::string FormatArguments(fmt::string_view pattern, fmt::format_args arguments);

// Format("{} has {:02x}", name, byte)
template <typename... Arguments>
[[nodiscard]] std::string Format(fmt::format_string<Arguments...> pattern, Arguments&&... arguments) {
    return FormatArguments(pattern, fmt::make_format_args(arguments...));
}

// "a, b, c"
template <typename List>
[[nodiscard]] std::string Joined(const List& list, std::string_view between) {
    std::string text;
    bool isFirst = true;
    for (const auto& element : list) {
        if (!isFirst) text += between;
        isFirst = false;
        text += element;
    }
    return text;
}

}  // namespace tessel::ctl
