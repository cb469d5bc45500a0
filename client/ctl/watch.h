// Shows events as they come, until somebody has had enough: listens first, has them sent, and does the reverse on the
// way out, also on SIGINT, SIGTERM and SIGHUP, or when nobody reads any more.
#pragma once

#include <sys/signalfd.h>

#include <csignal>

#include "client/call.h"
#include "client/ctl/command.h"
#include "core/unique_fd.h"

namespace tessel::ctl {

// A notice of the daemon, or a change in the kernel.
struct ShownEvent {    // NOLINT(bugprone-exception-escape): moving one throws nothing
    Json document;     // time, event, source, and the fields
    std::string line;  // "10:04:11.204  conflict  eth0  ..."
    std::string text;  // what follows the interface or the id there: "seq 0  ttl 64  0.41 ms"
    int kind = 0;      // enum tessel_event_kind; 0: the kernel's
};

// Nothing: the message is not an event of a known kind, or too short.
[[nodiscard]] std::optional<ShownEvent> ShowEvent(const tessel_event& event, std::string_view source, WallTime time);

// A change in the kernel, as FromKernel gives it.
[[nodiscard]] ShownEvent ShowKernelEvent(const Json& change, WallTime time);

// "0.41 ms", "12.3 ms"; "0.41" for lists of them.
[[nodiscard]] std::string MillisecondsText(long long microseconds, std::string_view unit = " ms");

// One socket of the daemon's notices, and the requests that switch them on and off (both may be empty: only listening).
struct WatchedSocket {
    std::string name;  // "ipc_ntp"
    std::function<int()> start = {};
    std::function<int()> stop = {};
    std::string cause = {};  // why the daemon may answer -1 to the start
};

struct Watch {
    std::vector<WatchedSocket> sockets;
    bool followsKernel = false;
    // A notice, decoded. False: that was the last one. Without it every event is shown by ShowLine.
    std::function<bool(const ShownEvent& event)> onEvent = {};
    std::chrono::milliseconds deadline{0};  // without an event, which ends it; 0: none
    // What is switched on is switched on again when the daemon has been restarted. Not for ping and traceroute.
    bool survivesTheDaemon = true;
};

// Refuses names that somebody listens under, unless --take; with it, neither starts nor stops what that listener has
// started, and says so. With --dry-run: says what would be listened under and makes the requests.
[[nodiscard]] Outcome RunWatch(const Invocation& invocation, const Watch& watch);

// An event in the form that the options ask for, immediately. Throws a Failure for a field that does not exist.
void ShowLine(const Invocation& invocation, const ShownEvent& event);

// What ends the tool from outside.
inline constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};

// While one lives, those wait in a descriptor: none is lost between a look and a wait. They end the waiting for an
// answer of the daemon or for one of the user (Agree), so that whoever asked puts everything in order. Those that the
// caller of the tool had ignored (nohup does) stay so. SIGPIPE is ignored from then on: writes fail instead.
class HeldSignals {
  public:
    HeldSignals() {
        (void)signal(SIGPIPE, SIG_IGN);
        sigset_t held;
        sigemptyset(&held);
        for (const int ending : kEndingSignals) {
            // The kernel keeps a blocked signal even if it is ignored, and would hand it to the descriptor.
            struct sigaction action {};
            if (sigaction(ending, nullptr, &action) != 0 || action.sa_handler != SIG_IGN) sigaddset(&held, ending);
        }
        pthread_sigmask(SIG_BLOCK, &held, &previous_);
        fd_.Reset(signalfd(-1, &held, SFD_CLOEXEC | SFD_NONBLOCK));
        outerFd_ = EndCallsAt(Fd());
    }
    ~HeldSignals() {
        // What came twice has been obeyed: it must not end the process after all.
        while (Take() != 0) {
        }
        (void)EndCallsAt(outerFd_);
        pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
    }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    // Readable when one came.
    [[nodiscard]] int Fd() const {
        return fd_.Get();
    }
    // The next one; 0: none came. After one, what is sent to put things in order waits five seconds for its answer.
    [[nodiscard]] int Take() const {
        signalfd_siginfo info;
        if (read(fd_.Get(), &info, sizeof(info)) != sizeof(info)) return 0;
        (void)tessel_set_timeout_ms(5000);
        (void)EndCallsAt(-1);
        return static_cast<int>(info.ssi_signo);
    }

  private:
    sigset_t previous_{};
    UniqueFd fd_;
    int outerFd_ = -1;
};

}  // namespace tessel::ctl
