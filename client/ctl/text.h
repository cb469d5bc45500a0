// Text, documents, points in time and failures, with the headers that nearly every file of the tool needs.
#pragma once

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/libtessel.h"
#include "core/types.h"
#include <nlohmann/json.hpp>

namespace tessel::ctl {

// Text by a pattern that the compiler checks against its arguments. The machinery behind it is compiled once, in
// text.cpp: in every file it would double the time that the tool takes to build.
[[nodiscard]] std::string FormatArguments(fmt::string_view pattern, fmt::format_args arguments);

// Format("{} has {:02x}", name, byte)
template <typename... Arguments>
[[nodiscard]] std::string Format(fmt::format_string<Arguments...> pattern, Arguments&&... arguments) {
    return FormatArguments(pattern, fmt::make_format_args(arguments...));
}

// "a, b, c": the elements, or what `text` makes of them.
template <typename List, typename Projection = std::identity>
[[nodiscard]] std::string Joined(const List& list, std::string_view between, Projection text = {}) {
    std::string joined;
    bool isFirst = true;
    for (const auto& element : list) {
        if (!isFirst) joined += between;
        isFirst = false;
        joined += text(element);
    }
    return joined;
}

// "a|b" at '|': "a", "b". Nothing for an empty text; empty pieces are kept.
[[nodiscard]] std::vector<std::string_view> Split(std::string_view text, char separator);

// "a  b" at blanks of any kind: "a", "b".
[[nodiscard]] std::vector<std::string> WordsIn(const std::string& line);

// Documents are what every command makes, and what tables, fields and JSON are rendered from. No key comes and goes:
// what is missing is null.
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

using Clock = std::chrono::steady_clock;
using WallTime = std::chrono::system_clock::time_point;

// RFC 3339 with milliseconds: "2026-11-21T10:04:11.204Z".
[[nodiscard]] std::string JsonTime(WallTime time);

// Where this process is: "2026-11-21 10:04:11", and "10:04:11.204" for what happens now.
[[nodiscard]] std::string DateText(WallTime time);
[[nodiscard]] std::string ClockText(WallTime time);

// What goes wrong, as people read it: one sentence, a word for programs, and the exit status. A failure is thrown where
// it is found and caught once, where a command is run (tesselctl.cpp).
enum Exit : int {
    kExitDone = 0,
    kExitFailed = 1,      // the daemon answered failure, or the answer is "no"
    kExitRefused = 2,     // wrong words, or refused here before anything was sent
    kExitNotRunning = 3,  // no daemon to talk to
    kExitTimeout = 4,     // no answer in time
    kExitNotApplied = 5,  // answered success, but it did not happen
    kExitUndone = 6,      // `try` took it back
    kExitSignal = 128     // and the signal's number: ended by it, after everything was put in order
};

struct Failure {
    Exit exit;
    std::string error;    // "not_running", for programs
    std::string message;  // one line without "tesselctl: "
};

// "ASKED: WHY". Not sent; done without effect; failed on this side (files, for example).
[[nodiscard]] Failure Refused(std::string_view asked, std::string_view why);
[[nodiscard]] Failure NotApplied(std::string_view asked, std::string_view why);
[[nodiscard]] Failure Failed(std::string_view asked, std::string_view why);

// For an error of libtessel. `cause` is added when the daemon answered -1; empty: none is known. Reads errno.
[[nodiscard]] Failure CallFailed(std::string_view asked, int error, std::string_view cause = {});

// Throws CallFailed unless `error` is TESSEL_OK.
void Require(std::string_view asked, int error, std::string_view cause = {});

// The line for standard error.
[[nodiscard]] std::string RenderFailure(const Failure& failure, bool asJson);

}  // namespace tessel::ctl
