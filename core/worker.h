// One thread with one owner, who starts it, asks it to end, and joins it exactly once.
//
// Nothing is ever cancelled: every wait of a body ends when it is asked to end. The owner's calls (Start, End,
// AwaitEnd, the destructor) are made one at a time; AskToEnd may come from any thread.
#pragma once

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <mutex>

#include "core/types.h"
#include "core/unique_fd.h"
#include "core/wait.h"

namespace tessel {

class Worker {
  public:
    // `self` is the worker that runs the body, `session` what Start was given. Both outlive it.
    using Body = void (*)(Worker& self, void* session);

    Worker() = default;
    ~Worker() {
        End();
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Runs the body in a thread of that name (a literal). A previous body that ended by itself is joined first. False
    // when one is still running, or, with a log line, when no thread or descriptor is available.
    [[nodiscard]] bool Start(const char* name, Body body, void* session);

    // Wakes every wait of the body; from any thread, even twice, even when it does not run.
    void AskToEnd();

    // Asks the body to end and joins it, however long that takes. Immediate when none was started.
    void End();

    // Joins the body. False: it is still busy. True immediately when none was started.
    [[nodiscard]] bool AwaitEnd(std::chrono::milliseconds limit);

    // True from a successful Start until the body has ended, joined or not.
    [[nodiscard]] bool IsRunning() const {
        return isRunning_;
    }

    // The worker whose body makes the call; null in any other thread. Tools that it runs and notices that it sends end
    // when it is asked to end.
    [[nodiscard]] static const Worker* Current();

    // For the body.

    [[nodiscard]] bool IsWanted() const {
        return isWanted_;
    }
    // The only sleep of a worker. False: no longer wanted.
    [[nodiscard]] bool Sleep(std::chrono::milliseconds time) const;
    // Waits until `fd` is ready for `events` (POLLIN ...), the time is over or it is asked to end.
    [[nodiscard]] Wait WaitFor(int fd, short events, std::chrono::milliseconds time) const;
    // Readable once it is asked to end: waited on beside sockets and pipes. Never read.
    [[nodiscard]] int StopFd() const {
        return stopFd_.Get();
    }

  private:
    static void Run(void* self);
    void Join();
    void SetEnded();

    pthread_t thread_ = 0;  // 0: nothing to join
    Body body_ = nullptr;
    void* session_ = nullptr;
    std::atomic<bool> isWanted_{false};
    std::atomic<bool> isRunning_{false};
    std::mutex lock_;  // held while a descriptor is opened, written and closed: several threads may do so
    UniqueFd stopFd_;  // eventfd, like the next; open while the body runs
    UniqueFd endFd_;   // becomes readable when the body ends; open while the owner waits for that
};

}  // namespace tessel
