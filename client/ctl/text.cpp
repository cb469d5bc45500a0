#include "client/ctl/text.h"

#include <fmt/format.h>

#include <ctime>

namespace tessel::ctl {

namespace {

std::tm Parts(WallTime time, bool isLocal) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    if (isLocal) {
        localtime_r(&seconds, &parts);
    } else {
        gmtime_r(&seconds, &parts);
    }
    return parts;
}

std::string Date(const std::tm& parts) {
    constexpr int kFirstYear = 1900;
    return Format("{}-{:02}-{:02}", parts.tm_year + kFirstYear, parts.tm_mon + 1, parts.tm_mday);
}

std::string TimeOfDay(const std::tm& parts) {
    return Format("{:02}:{:02}:{:02}", parts.tm_hour, parts.tm_min, parts.tm_sec);
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

std::string JsonTime(WallTime time) {
    const std::tm parts = Parts(time, false);
    return Format("{}T{}{}Z", Date(parts), TimeOfDay(parts), Part(time));
}

std::string DateText(WallTime time) {
    const std::tm parts = Parts(time, true);
    return Format("{} {}", Date(parts), TimeOfDay(parts));
}

std::string ClockText(WallTime time) {
    return TimeOfDay(Parts(time, true)) + Part(time);
}

}  // namespace tessel::ctl
