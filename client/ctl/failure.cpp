#include "client/ctl/failure.h"

#include <unistd.h>

namespace tessel::ctl {

namespace {

constexpr char kSocketPath[] = TESSEL_SOCKET_DIRECTORY TESSEL_SOCKET_API;

Failure With(Exit status, const char* error, std::string_view asked, std::string_view why) {
    return {status, error, Format("{}: {}", asked, why)};
}

}  // namespace

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
                        "the daemon closed the connection without an answer (an unknown request, or it ended)");
        case TESSEL_E_PROTOCOL:
            return With(kExitFailed, "protocol", asked,
                        "the answer was cut or of another size (daemon and tesselctl differ in version?)");
        case TESSEL_E_ARGUMENT:
            return Refused(asked, "these values cannot be sent");
        case TESSEL_E_SYSTEM:
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
