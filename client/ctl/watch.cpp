#include "client/ctl/watch.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "client/ctl/kernel.h"
#include "client/ctl/output.h"
#include "client/ctl/perform.h"
#include "client/ctl/processes.h"

namespace tessel::ctl {

namespace {

using std::chrono::milliseconds;

struct Source {
    const WatchedSocket& socket;
    std::optional<ListeningProcess> takenFrom;  // what is sent was started by that one
    std::unique_ptr<tessel_listener, decltype(&tessel_listener_close)> listener;
    bool isStarted = false;  // perhaps
};

// The daemon that runs, by its socket; nothing: none does. What was switched on in one daemon is off in the next.
std::optional<std::array<long, 3>> DaemonNow() {
    struct stat file {};
    if (tessel_daemon_is_listening() == 0) return std::nullopt;
    (void)lstat(TESSEL_SOCKET_DIRECTORY TESSEL_SOCKET_API, &file);
    return {{static_cast<long>(file.st_ino), file.st_ctim.tv_sec, file.st_ctim.tv_nsec}};
}

class Watcher {
  public:
    // Listens: under all names or none.
    Watcher(const Invocation& invocation, const Watch& watch) : invocation_(invocation), watch_(watch) {
        for (const WatchedSocket& socket : watch.sockets) {
            if (socket.start && !daemon_) throw CallFailed(invocation.asked, TESSEL_E_NOT_RUNNING);
            const auto other = FindListeningProcess(socket.name);
            tessel_listener* listener = nullptr;
            const int error = tessel_listener_open(
                socket.name.c_str(), invocation.options.take ? unsigned{TESSEL_LISTEN_TAKE} : 0, &listener);
            if (error == TESSEL_E_IN_USE) {
                const std::string who = Format("{} is listening on {}", ListeningText(other), socket.name);
                throw Refused(invocation.asked, who + " (--take listens in its place: it then gets no more events)");
            }
            Require(Format("{}, {}", invocation.asked, socket.name), error);
            sources_.push_back({socket, other, {listener, &tessel_listener_close}});
        }
        if (watch.followsKernel) kernel_.emplace();
    }

    Outcome Run() {
        Outcome outcome;
        try {
            SwitchOn();
            outcome.signal = Follow();
        } catch (const Failure& failure) {
            outcome.signal = signals_.Take();
            if (outcome.signal == 0) outcome.failure = failure;
        }
        SwitchOff(outcome);
        for (const Source& source : sources_)
            notEvents_ += tessel_listener_malformed(source.listener.get());
        if (notEvents_ > 0) outcome.notes.push_back(Format("connections that brought no event: {}", notEvents_));
        return outcome;
    }

  private:
    void SwitchOn() {
        for (Source& source : sources_) {
            if (!source.socket.start) continue;
            if (source.takenFrom) {
                ShowNote(invocation_, Format("{} was listening on {}: nothing is started or stopped here",
                                             ListeningText(source.takenFrom), source.socket.name));
                continue;
            }
            source.isStarted = true;
            Require(invocation_.asked, source.socket.start(), source.socket.cause);
        }
    }

    // Until the last event or a signal, which it returns; SIGPIPE also when nobody reads any more.
    int Follow() {
        // Nothing is asked of the output: poll(2) always reports that its reader is gone.
        std::vector<pollfd> waited = {{signals_.Fd(), POLLIN, 0}, {fileno(invocation_.out), 0, 0}};
        for (const Source& source : sources_)
            waited.push_back({tessel_listener_fd(source.listener.get()), POLLIN, 0});
        if (kernel_) waited.push_back({kernel_->Fd(), POLLIN, 0});
        lastEvent_ = Clock::now();
        if (!watch_.onEvent && isatty(fileno(invocation_.err)) != 0)
            ShowNote(invocation_, daemon_ ? "listening; Ctrl-C ends this" : "waiting for a daemon; Ctrl-C ends this");
        while (true) {
            Look();
            if (!ShowNext()) return 0;
            milliseconds wait{1000};  // at most, between looks at the daemon and at our names
            if (watch_.deadline.count() > 0) {
                wait = std::min(wait, std::chrono::ceil<milliseconds>(lastEvent_ + watch_.deadline - Clock::now()));
                if (wait.count() <= 0) return 0;
            }
            (void)poll(waited.data(), waited.size(), static_cast<int>(wait.count()));
            if (const int signal = signals_.Take(); signal != 0) return signal;
            if (waited[1].revents != 0 || std::ferror(invocation_.out) != 0) return SIGPIPE;
        }
    }

    // What there is, at most one event from each socket. False: that was the last one.
    bool ShowNext() {
        for (const Source& source : sources_) {
            tessel_event event;
            const int error = tessel_listener_next(source.listener.get(), &event, 0);
            if (error == TESSEL_E_TIMEOUT) continue;
            Require(source.socket.name, error);
            const auto shown = ShowEvent(event, source.socket.name, std::chrono::system_clock::now());
            if (!shown) {
                ++notEvents_;
                continue;
            }
            lastEvent_ = Clock::now();
            if (!watch_.onEvent) ShowLine(invocation_, *shown);
            if (watch_.onEvent && !watch_.onEvent(*shown)) return false;
        }
        if (!kernel_) return true;
        bool isCut = false;
        for (const Json& change : kernel_->Next(isCut))
            ShowLine(invocation_, ShowKernelEvent(change, std::chrono::system_clock::now()));
        if (isCut) ShowNote(invocation_, "changes in the kernel came too fast: some are missing");
        return true;
    }

    void Look() {
        for (const Source& source : sources_) {
            if (tessel_listener_has_name(source.listener.get()) != 0) continue;
            throw Failed(invocation_.asked,
                         Format("{} is listening on {} now", ListeningText(FindListeningProcess(source.socket.name)),
                                source.socket.name));
        }
        const auto daemon = DaemonNow();
        if (daemon == daemon_) return;
        daemon_ = daemon;
        const std::string then = watch_.survivesTheDaemon ? "; waiting for the next one" : "";
        const Failure ended{kExitNotRunning, "not_running", invocation_.asked + ": the daemon has ended" + then};
        if (!watch_.survivesTheDaemon) throw Failure(ended);
        if (!daemon) {
            // Nothing has ended here, so this is not a result.
            (void)std::fputs(RenderFailure(ended, invocation_.options.json).c_str(), invocation_.err);
            return;
        }
        // Whatever somebody else had started, the new daemon knows nothing of it.
        for (Source& source : sources_)
            source.takenFrom.reset();
        SwitchOn();
        ShowNote(invocation_, "a new daemon is running; continuing with it");
    }

    // Leaves alone what somebody else started who still runs. The sockets stay open until everything is answered.
    void SwitchOff(Outcome& outcome) {
        for (const Source& source : sources_) {
            const auto& other = source.takenFrom;
            const bool isOurs = other ? other->pid && ProcessName(*other->pid) != other->name : source.isStarted;
            if (!source.socket.stop || !isOurs || tessel_listener_has_name(source.listener.get()) == 0) continue;
            const int error = source.socket.stop();
            if (error == TESSEL_OK || error == TESSEL_E_NOT_RUNNING || outcome.failure) continue;
            const Failure failure = CallFailed(Format("{}, switching off", invocation_.asked), error);
            if (outcome.signal == 0) outcome.failure = failure;
            if (outcome.signal != 0) outcome.notes.push_back(failure.message);
        }
    }

    const Invocation& invocation_;
    const Watch& watch_;
    const HeldSignals signals_;  // until the sockets are gone
    std::vector<Source> sources_;
    std::optional<KernelFollower> kernel_;
    std::optional<std::array<long, 3>> daemon_ = DaemonNow();
    Clock::time_point lastEvent_;
    unsigned long notEvents_ = 0;
};

}  // namespace

Outcome RunWatch(const Invocation& invocation, const Watch& watch) {
    if (!invocation.options.dryRun) return Watcher(invocation, watch).Run();
    Outcome outcome;
    for (const WatchedSocket& socket : watch.sockets) {
        outcome.planned.push_back(Format("listens on {}", socket.name));
        if (socket.start) (void)socket.start();
    }
    for (const WatchedSocket& socket : watch.sockets)
        if (socket.stop) (void)socket.stop();
    if (watch.followsKernel) outcome.planned.emplace_back("follows the kernel");
    return outcome;
}

void ShowLine(const Invocation& invocation, const ShownEvent& event) {
    std::string text = event.line + "\n";
    if (invocation.options.json) text = event.document.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    if (!invocation.options.fields.empty()) {
        const auto fields = RenderFields(event.document, invocation.options.fields);
        if (!fields) throw Refused("--get", "no such field (--json shows them)");
        text = *fields;
    }
    // Whether somebody reads is checked before the next wait.
    const bool isWritten = std::fputs(text.c_str(), invocation.out) >= 0 && std::fflush(invocation.out) == 0;
    if (!isWritten && errno != EPIPE) throw Failed(invocation.asked, Format("standard output: {}", strerror(errno)));
}

}  // namespace tessel::ctl
