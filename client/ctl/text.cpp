#include "client/ctl/text.h"

#include <fmt/format.h>
#include <unistd.h>

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

constexpr char kSocketPath[] = TESSEL_SOCKET_DIRECTORY TESSEL_SOCKET_API;

Failure With(Exit status, const char* error, std::string_view asked, std::string_view why) {
    return {status, error, Format("{}: {}", asked, why)};
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
    return text.replace(text.find('T'), 1, " ");
}

std::string ClockText(WallTime time) {
    const std::string text = TimeText(time, true);
    return text.substr(text.find('T') + 1) + Part(time);
}

Failure Refused(std::string_view asked, std::string_view why) {
    return With(kExitRefused, "refused", asked, why);
}

Failure NotApplied(std::string_view asked, std::string_view why) {
    return With(kExitNotApplied, "not_applied", asked, why);
}

Failure Failed(std::string_view asked, std::string_view why) {
    return With(kExitFailed, "failed", asked, why);
}

Failure CallFailed(std::string_view asked, int error, std::string_view cause) {
    const int systemError = errno;
    switch (error) {
        case TESSEL_E_FAILED:
            if (cause.empty()) return Failed(asked, "the daemon answered -1 (its log says why: tesselctl log follow)");
            return Failed(asked, Format("the daemon answered -1. Probable cause: {}.", cause));
        case TESSEL_E_NOT_RUNNING:
            return {kExitNotRunning, "not_running",
                    Format("the daemon is not running ({} {}). Start it (tessel_daemon), or wait for it with --wait.",
                           access(kSocketPath, F_OK) == 0 ? "nobody listens on the stale socket" : "no socket",
                           kSocketPath)};
        case TESSEL_E_TIMEOUT:
            return With(kExitTimeout, "timeout", asked,
                        "no answer in time (it may still be carried out; --timeout waits longer)");
        case TESSEL_E_NO_REPLY:
            return With(kExitFailed, "no_reply", asked,
                        "the daemon closed the connection without an answer (unknown request, or it exited)");
        case TESSEL_E_PROTOCOL:
            return With(kExitFailed, "protocol", asked,
                        "the answer was cut short or has another size (do daemon and tesselctl differ?)");
        case TESSEL_E_ARGUMENT:
            return Refused(asked, "these values cannot be sent");
        case TESSEL_E_SYSTEM:
            if (systemError == EACCES && access(kSocketPath, W_OK) != 0)
                return {kExitFailed, "not_permitted",
                        Format("only root and the members of its group may use {} (ls -l names it)", kSocketPath)};
            return With(kExitFailed, "system", asked, strerror(systemError));
        default:
            return With(kExitFailed, "system", asked, tessel_strerror(error));
    }
}

void Require(std::string_view asked, int error, std::string_view cause) {
    if (error != TESSEL_OK) throw CallFailed(asked, error, cause);
}

std::string RenderFailure(const Failure& failure, bool asJson) {
    if (!asJson) return Format("tesselctl: {}\n", failure.message);
    const Json document{
        {"error", failure.error}, {"message", failure.message}, {"exit", static_cast<int>(failure.exit)}};
    return document.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace tessel::ctl
