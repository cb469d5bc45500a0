// The one owner of a descriptor.
#pragma once

#include <pthread.h>
#include <unistd.h>

#include <utility>

namespace tessel {

// close() is a cancellation point and a destructor is noexcept: a cancellation delivered there would abort the process.
// Code in destructors that closes, writes, waits or logs holds one of these.
class CancellationOff {
  public:
    CancellationOff() {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous_);
    }
    ~CancellationOff() {
        pthread_setcancelstate(previous_, nullptr);
    }
    CancellationOff(const CancellationOff&) = delete;
    CancellationOff& operator=(const CancellationOff&) = delete;

  private:
    int previous_ = PTHREAD_CANCEL_ENABLE;
};

class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.Release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) Reset(other.Release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd() {
        Reset();
    }

    [[nodiscard]] int Get() const {
        return fd_;
    }
    [[nodiscard]] bool IsOpen() const {
        return fd_ >= 0;
    }
    // Gives the descriptor to the caller, who closes it.
    [[nodiscard]] int Release() {
        return std::exchange(fd_, -1);
    }
    // Closes what is held and takes over `fd` (-1: nothing). Leaves errno alone when close succeeds.
    void Reset(int fd = -1) {
        if (fd_ >= 0) {
            const CancellationOff guard;
            close(fd_);
        }
        fd_ = fd;
    }

  private:
    int fd_ = -1;
};

}  // namespace tessel
