#include "core/worker.h"

#include <poll.h>
#include <sys/eventfd.h>

#include "core/log.h"
#include "core/thread.h"

namespace tessel {

using std::chrono::milliseconds;

namespace {

thread_local const Worker* t_current = nullptr;

UniqueFd MakeEventFd() {
    return UniqueFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
}

}  // namespace

const Worker* Worker::Current() {
    return t_current;
}

bool Worker::Start(const char* name, Body body, void* session) {
    if (IsRunning()) return false;
    Join();
    body_ = body;
    session_ = session;
    {
        const std::lock_guard lock(lock_);
        stopFd_ = MakeEventFd();
        isWanted_ = true;
        isRunning_ = true;
    }
    if (!stopFd_.IsOpen()) {
        TESSEL_PERROR("eventfd error");
    } else {
        thread_ = ThreadSpawn(name, &Worker::Run, this, kThreadStackBytes, kThreadPolicy, kThreadPriorityStep);
    }
    if (thread_ == 0) SetEnded();
    return thread_ != 0;
}

void Worker::AskToEnd() {
    const std::lock_guard lock(lock_);
    isWanted_ = false;
    if (stopFd_.IsOpen()) (void)eventfd_write(stopFd_.Get(), 1);
}

void Worker::End() {
    AskToEnd();
    Join();
}

bool Worker::AwaitEnd(milliseconds limit) {
    const Deadline deadline(limit);
    {
        const std::lock_guard lock(lock_);
        if (isRunning_) endFd_ = MakeEventFd();
    }
    // Without a descriptor this takes the whole time.
    if (isRunning_) (void)WaitReady(endFd_.Get(), POLLIN, deadline);
    {
        const std::lock_guard lock(lock_);
        endFd_.Reset();
    }
    if (isRunning_) return false;
    Join();
    return true;
}

bool Worker::Sleep(milliseconds time) const {
    return SleepUntil(Deadline(time), StopFd()) && IsWanted();
}

Wait Worker::WaitFor(int fd, short events, milliseconds time) const {
    return WaitReady(fd, events, Deadline(time), StopFd());
}

void Worker::Run(void* self) {
    Worker& worker = *static_cast<Worker*>(self);
    t_current = &worker;
    worker.body_(worker, worker.session_);
    worker.SetEnded();
}

void Worker::Join() {
    if (thread_ == 0) return;
    ThreadJoin(thread_);
    thread_ = 0;
}

// Gives the descriptor back immediately: a worker that ended by itself may wait for ever to be joined.
void Worker::SetEnded() {
    const std::lock_guard lock(lock_);
    isWanted_ = false;
    isRunning_ = false;
    stopFd_.Reset();
    if (endFd_.IsOpen()) (void)eventfd_write(endFd_.Get(), 1);
}

}  // namespace tessel
