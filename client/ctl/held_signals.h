// Signals that would end the tool before it has put things in order.
#pragma once

#include <sys/signalfd.h>

#include <csignal>

#include "core/unique_fd.h"

namespace tessel::ctl {

// What ends the tool from outside.
inline constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP};

// While one lives, those wait in a descriptor: none is lost between a look and a wait. Those that
// the caller of the tool had ignored (nohup does) stay so. SIGPIPE is ignored from then on: writes fail instead.
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
    }
    ~HeldSignals() {
        // What came twice has been obeyed: it must not end the process after all.
        while (Take() != 0) {
        }
        pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
    }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    // Readable when one came.
    [[nodiscard]] int Fd() const {
        return fd_.Get();
    }
    // The next one; 0: none came.
    [[nodiscard]] int Take() const {
        signalfd_siginfo info;
        return read(fd_.Get(), &info, sizeof(info)) == sizeof(info) ? static_cast<int>(info.ssi_signo) : 0;
    }

  private:
    sigset_t previous_{};
    UniqueFd fd_;
};

}  // namespace tessel::ctl
