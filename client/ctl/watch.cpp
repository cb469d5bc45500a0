#include "client/ctl/watch.h"

#include <poll.h>

#include "client/ctl/events.h"

namespace tessel::ctl {

namespace {

constexpr int kLookMs = 1000;

std::optional<Failure> Print(const ShownEvent& event, const Invocation& invocation) {
    std::string text = event.line + "\n";
    if (!invocation.options.fields.empty()) {
        const auto fields = RenderFields(event.document, invocation.options.fields);
        if (!fields) return Refused("--get", "no such field (--json shows them)");
        text = *fields;
    } else if (invocation.options.json) {
        text = RenderJson(event.document);
    }
    // Whether somebody reads is looked at before the next wait.
    (void)std::fputs(text.c_str(), invocation.out);
    (void)std::fflush(invocation.out);
    return std::nullopt;
}

// Shows what a source has, one event at most, and counts what is none.
std::optional<Failure> ShowNext(const EventSource& source, const Invocation& invocation, WatchEnd& end) {
    tessel_event event;
    const int error = tessel_listener_next(source.listener.get(), &event, 0);
    if (error == TESSEL_E_TIMEOUT) return std::nullopt;
    if (error != TESSEL_OK) return CallFailed(source.name, error);
    const auto shown = ShowEvent(event, source.name, std::chrono::system_clock::now());
    if (shown) return Print(*shown, invocation);
    ++end.notEvents;
    return std::nullopt;
}

}  // namespace

WatchEnd ShowEvents(const std::vector<const EventSource*>& sources, const HeldSignals& signals,
                    const Invocation& invocation, const std::function<std::optional<Failure>()>& look) {
    // The output is asked for nothing: poll(2) tells that its reader has gone, even before there is something to write.
    std::vector<pollfd> waited = {{.fd = signals.Fd(), .events = POLLIN, .revents = 0},
                                  {.fd = fileno(invocation.out), .events = 0, .revents = 0}};
    for (const EventSource* source : sources)
        waited.push_back({.fd = tessel_listener_fd(source->listener.get()), .events = POLLIN, .revents = 0});
    WatchEnd end;
    while (end.signal == 0 && !end.failure) {
        end.failure = look();
        for (const EventSource* source : sources) {
            if (!end.failure) end.failure = ShowNext(*source, invocation, end);
        }
        if (!end.failure) (void)poll(waited.data(), waited.size(), kLookMs);
        end.signal = signals.Take();
        const bool isReaderGone = waited[1].revents != 0 || std::ferror(invocation.out) != 0;
        if (end.signal == 0 && isReaderGone) end.signal = SIGPIPE;
    }
    for (const EventSource* source : sources)
        end.notEvents += tessel_listener_malformed(source->listener.get());
    return end;
}

DaemonChange DaemonPresence::Look() {
    struct stat file {};
    (void)lstat(TESSEL_SOCKET_DIRECTORY TESSEL_SOCKET_API, &file);
    const bool wasThere = isThere_;
    isThere_ = tessel_daemon_is_listening() != 0;
    if (!isThere_) return wasThere ? DaemonChange::kGone : DaemonChange::kNone;
    const bool isSame = wasThere && file.st_ino == socketFile_.st_ino && file.st_dev == socketFile_.st_dev &&
                        file.st_ctim.tv_sec == socketFile_.st_ctim.tv_sec &&
                        file.st_ctim.tv_nsec == socketFile_.st_ctim.tv_nsec;
    socketFile_ = file;
    return isSame ? DaemonChange::kNone : DaemonChange::kBack;
}

}  // namespace tessel::ctl
