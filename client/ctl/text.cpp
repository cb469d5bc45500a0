#include "client/ctl/text.h"

#include <fmt/format.h>

#include <ctime>
#include <sstream>

namespace tessel::ctl {

namespace {

// "2026-11-21T10:04:11", in this place's time or in UTC.
std::string TimeText(WallTime time, bool isLocal) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    (void)(isLocal ? localtime_r(&seconds, &parts) : gmtime_r(&seconds, &parts));
    char text[sizeof("2026-11-21T10:04:11")];
    return {text, strftime(text, sizeof(text), "%FT%T", &parts)};
}

// ".204", of the seconds.
std::string Part(WallTime time) {
    const auto part = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() % 1000;
    return Format(".{:03}", part);
}

}  // namespace

std::string FormatArguments(fmt::string_view pattern, fmt::format_args arguments) {
    return fmt::vformat(pattern, arguments);
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (std::size_t at = 0; at <= text.size() && !text.empty();) {
        const std::size_t end = std::min(text.find(separator, at), text.size());
        pieces.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return pieces;
}

std::vector<std::string> WordsIn(const std::string& line) {
    std::istringstream words(line);
    return {std::istream_iterator<std::string>(words), {}};
}

std::string JsonTime(WallTime time) {
    return TimeText(time, false) + Part(time) + "Z";
}

std::string DateText(WallTime time) {
    std::string text = TimeText(time, true);
    text[text.find('T')] = ' ';
    return text;
}

std::string ClockText(WallTime time) {
    const std::string text = TimeText(time, true);
    return text.substr(text.find('T') + 1) + Part(time);
}

}  // namespace tessel::ctl
