// Blocking reads that end in time, without a system call for each one's time limit.
#pragma once

#include <semaphore.h>
#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <mutex>

#include "core/types.h"

namespace tessel {

// For one thread, which reads from one socket after the other. A second thread ends what lasts too long: it looks once
// a second while there are reads, and otherwise sleeps.
class ReadGuard {
  public:
    // Starts the second thread, which uses this object as long as the process lives. If it cannot be started, which is
    // logged, a read takes more system calls.
    explicit ReadGuard(std::chrono::seconds limit);

    // Like recv(2) from a connected stream socket that blocks. -1 with errno EAGAIN when nothing has come within the
    // limit or up to a second more: nothing can be read from this connection afterwards. Signals do not end it.
    [[nodiscard]] ssize_t Receive(int socket, void* buffer, std::size_t size);

  private:
    [[noreturn]] static void Watch(void* self);
    [[nodiscard]] bool Tick();  // false: no read is in progress

    std::chrono::seconds limit_;
    bool isWatched_ = false;
    std::mutex lock_;  // of all below
    sem_t wake_{};     // posted when ticking begins
    bool isTicking_ = false;
    int socket_ = -1;     // is being read from; -1: none
    i32 ticks_ = 0;       // since the read began
    bool isCut_ = false;  // the read has lasted too long
};

}  // namespace tessel
