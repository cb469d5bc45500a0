#include "core/worker.h"

#include <poll.h>
#include <sys/eventfd.h>

#include "core/log.h"
#include "core/thread.h"

namespace tessel {

using std::chrono::milliseconds;

namespace {

thread_local const Worker* t_current = nullptr;

}  // namespace

const Worker* Worker::Current() {
    return t_current;
}

Worker::~Worker() {
    AskToEnd();
    Join();
}

bool Worker::Start(const char* name, Body body, void* session) {
    if (IsRunning()) return false;
    Join();
    body_ = body;
    session_ = session;
    endFd_.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    {
        const std::lock_guard lock(stopLock_);
        stopFd_.Reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        isWanted_ = true;
    }
    if (!stopFd_.IsOpen() || !endFd_.IsOpen()) {
        TESSEL_PERROR("eventfd error");
    } else {
        thread_ = ThreadSpawn(name, &Worker::Run, this, kThreadStackBytes, kThreadPolicy, kThreadPriorityStep);
    }
    if (thread_ == 0) Close();
    return thread_ != 0;
}

void Worker::AskToEnd() {
    const std::lock_guard lock(stopLock_);
    isWanted_ = false;
    if (stopFd_.IsOpen()) (void)eventfd_write(stopFd_.Get(), 1);
}

bool Worker::AwaitEnd(milliseconds limit) {
    if (thread_ == 0) return true;
    if (WaitReady(endFd_.Get(), POLLIN, Deadline(limit)) != Wait::kReady) return false;
    Join();
    return true;
}

bool Worker::IsRunning() const {
    return thread_ != 0 && WaitReady(endFd_.Get(), POLLIN, Deadline(milliseconds(0))) != Wait::kReady;
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
    (void)eventfd_write(worker.endFd_.Get(), 1);
}

void Worker::Join() {
    if (thread_ == 0) return;
    ThreadJoin(thread_);
    thread_ = 0;
    Close();
}

void Worker::Close() {
    const std::lock_guard lock(stopLock_);
    isWanted_ = false;
    stopFd_.Reset();
    endFd_.Reset();
}

}  // namespace tessel
