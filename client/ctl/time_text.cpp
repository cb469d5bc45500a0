#include "client/ctl/time_text.h"

#include <fmt/chrono.h>

namespace tessel::ctl {

namespace {

std::time_t Seconds(WallTime time) {
    return std::chrono::system_clock::to_time_t(time);
}

// "10:04:11.204", of the seconds and their part.
std::string WithMilliseconds(const std::string& seconds, WallTime time) {
    const auto part = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() % 1000;
    return fmt::format("{}.{:03}", seconds, part);
}

}  // namespace

std::string JsonTime(WallTime time) {
    return WithMilliseconds(fmt::format("{:%Y-%m-%dT%H:%M:%S}", fmt::gmtime(Seconds(time))), time) + "Z";
}

std::string DateText(WallTime time) {
    return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(Seconds(time)));
}

std::string ClockText(WallTime time) {
    return WithMilliseconds(fmt::format("{:%H:%M:%S}", fmt::localtime(Seconds(time))), time);
}

}  // namespace tessel::ctl
