#include "client/ctl/failure.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>

#include "client/libtessel.h"
#include <nlohmann/json.hpp>

namespace tessel::ctl {

namespace {

constexpr char kNotRunning[] = "the daemon is not running (no socket " TESSEL_SOCKET_DIRECTORY TESSEL_SOCKET_API
                               "). Start it with \"service tessel start\", or wait with --wait.";

std::string Sentence(std::string_view asked, std::string_view why) {
    return fmt::format("{}: {}", asked, why);
}

}  // namespace

Failure Refused(std::string_view asked, std::string_view why) {
    return {.exit = kExitRefused, .error = "refused", .message = Sentence(asked, why)};
}

Failure NotApplied(std::string_view asked, std::string_view why) {
    return {.exit = kExitNotApplied, .error = "not_applied", .message = Sentence(asked, why)};
}

Failure Failed(std::string_view asked, std::string_view why) {
    return {.exit = kExitFailed, .error = "failed", .message = Sentence(asked, why)};
}

Failure CallFailed(std::string_view asked, int error, std::string_view cause) {
    const int systemError = errno;
    switch (error) {
        case kPlanned:
            return {.exit = kExitDone, .error = "planned", .message = Sentence(asked, "not sent")};
        case TESSEL_E_FAILED:
            if (cause.empty()) return Failed(asked, "the daemon answered -1 (its log says why: tesselctl log follow)");
            return Failed(asked, fmt::format("the daemon answered -1. Probable cause: {}.", cause));
        case TESSEL_E_NOT_RUNNING:
            return {.exit = kExitNotRunning, .error = "not_running", .message = kNotRunning};
        case TESSEL_E_TIMEOUT:
            return {
                .exit = kExitTimeout,
                .error = "timeout",
                .message = Sentence(asked, "no answer in time (it may still be carried out; --timeout waits longer)")};
        case TESSEL_E_NO_REPLY:
            return {.error = "no_reply",
                    .message = Sentence(asked,
                                        "the daemon closed the connection without an answer (it does not know this "
                                        "request, or ended)")};
        case TESSEL_E_PROTOCOL:
            return {.error = "protocol",
                    .message = Sentence(asked,
                                        "the answer was cut or of another size (daemon and tesselctl differ in "
                                        "version?)")};
        case TESSEL_E_ARGUMENT:
            return Refused(asked, "these values cannot be sent");
        case TESSEL_E_SYSTEM:
            return {.error = "system", .message = Sentence(asked, strerror(systemError))};
        default:
            return {.error = "system", .message = Sentence(asked, tessel_strerror(error))};
    }
}

std::string RenderFailure(const Failure& failure, bool asJson) {
    if (!asJson) return fmt::format("tesselctl: {}\n", failure.message);
    const nlohmann::ordered_json document{
        {"error", failure.error}, {"message", failure.message}, {"exit", static_cast<int>(failure.exit)}};
    return document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace tessel::ctl
