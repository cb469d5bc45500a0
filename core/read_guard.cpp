#include "core/read_guard.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "core/thread.h"
#include "core/wait.h"

namespace tessel {

ReadGuard::ReadGuard(std::chrono::seconds limit) : limit_(limit) {
    sem_init(&wake_, 0, 0);
    isWatched_ = ThreadSpawnDeatched("TesselReadGuard", &Watch, this, kThreadStackBytes, kThreadPolicy, 0) != 0;
}

ssize_t ReadGuard::Receive(int socket, void* buffer, std::size_t size) {
    if (!isWatched_) {
        (void)WaitReady(socket, POLLIN, Deadline(limit_));
        return recv(socket, buffer, size, MSG_DONTWAIT);
    }
    {
        const std::lock_guard lock(lock_);
        socket_ = socket;
        ticks_ = 0;
        if (!std::exchange(isTicking_, true)) sem_post(&wake_);
    }
    ssize_t count = 0;
    do
        count = recv(socket, buffer, size, 0);
    while (count < 0 && errno == EINTR);
    // From here on the number may become another socket's.
    const std::lock_guard lock(lock_);
    socket_ = -1;
    if (!std::exchange(isCut_, false) || count != 0) return count;
    errno = EAGAIN;
    return -1;
}

bool ReadGuard::Tick() {
    const std::lock_guard lock(lock_);
    if (socket_ < 0) return isTicking_ = false;
    if (++ticks_ > limit_.count()) isCut_ = shutdown(socket_, SHUT_RD) == 0;
    return true;
}

void ReadGuard::Watch(void* self) {
    ReadGuard& guard = *static_cast<ReadGuard*>(self);
    while (true) {
        (void)sem_wait(&guard.wake_);
        do
            sleep(1);
        while (guard.Tick());
    }
}

}  // namespace tessel
