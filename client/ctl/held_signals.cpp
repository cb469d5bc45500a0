#include "client/ctl/held_signals.h"

#include <pthread.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace tessel::ctl {

namespace {

constexpr int kEnding[] = {SIGINT, SIGTERM, SIGHUP};

bool IsIgnored(int signal) {
    struct sigaction action {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

HeldSignals::HeldSignals() {
    (void)signal(SIGPIPE, SIG_IGN);
    sigset_t held;
    sigemptyset(&held);
    for (const int ending : kEnding) {
        // The kernel keeps a blocked signal even if it is ignored, and would hand it to the descriptor.
        if (!IsIgnored(ending)) sigaddset(&held, ending);
    }
    pthread_sigmask(SIG_BLOCK, &held, &previous_);
    fd_.Reset(signalfd(-1, &held, SFD_CLOEXEC | SFD_NONBLOCK));
}

HeldSignals::~HeldSignals() {
    // What came twice has been obeyed: it must not end the process after all.
    while (Take() != 0) {
    }
    pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

int HeldSignals::Take() const {
    signalfd_siginfo info;
    return read(fd_.Get(), &info, sizeof(info)) == sizeof(info) ? static_cast<int>(info.ssi_signo) : 0;
}

}  // namespace tessel::ctl
