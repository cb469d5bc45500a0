// Waiting for descriptors, by the monotonic clock: the daemon sets the other one.
#pragma once

#include <chrono>

namespace tessel {

// A point in time that a wait, or several in a row, must not go beyond.
class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds time) : end_(Clock::now() + time) {}

    // Milliseconds that are left, rounded up; 0 when it has passed. At most a day, which poll(2) can count.
    [[nodiscard]] int LeftMs() const;

    [[nodiscard]] bool HasPassed() const {
        return LeftMs() == 0;
    }

  private:
    using Clock = std::chrono::steady_clock;
    Clock::time_point end_;
};

enum class Wait {
    kReady,
    kTimeout,
    kStopped,  // the stop descriptor became readable first
    kFailed,   // errno says why
};

// Waits until `fd` (-1: nothing) is ready for `events` or broken, which the next read or write then reports. `stopFd`
// (-1: none) is looked at first. Signals do not lengthen it.
[[nodiscard]] Wait WaitReady(int fd, short events, const Deadline& deadline, int stopFd = -1);

// Waits until the deadline. False when stopFd became readable first.
[[nodiscard]] bool SleepUntil(const Deadline& deadline, int stopFd = -1);

}  // namespace tessel
