#include "core/wait.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>

namespace tessel {

int Deadline::LeftMs() const {
    using std::chrono::milliseconds;
    constexpr milliseconds kMost = std::chrono::hours(24);
    const auto left = std::chrono::ceil<milliseconds>(end_ - Clock::now());
    return static_cast<int>(std::clamp(left, milliseconds(0), kMost).count());
}

Wait WaitReady(int fd, short events, const Deadline& deadline, int stopFd) {
    pollfd waited[] = {{.fd = stopFd, .events = POLLIN, .revents = 0}, {.fd = fd, .events = events, .revents = 0}};
    while (true) {
        const int ready = poll(waited, 2, deadline.LeftMs());
        if (ready < 0 && errno == EINTR) continue;
        if (ready < 0) return Wait::kFailed;
        if (waited[0].revents != 0) return Wait::kStopped;
        if (waited[1].revents != 0) return Wait::kReady;
        if (deadline.HasPassed()) return Wait::kTimeout;
    }
}

bool SleepUntil(const Deadline& deadline, int stopFd) {
    return WaitReady(-1, 0, deadline, stopFd) != Wait::kStopped;
}

}  // namespace tessel
