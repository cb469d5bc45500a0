// The application's end of notifications: a socket under "/tmp/" and a lock file beside it.
#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "client/call.h"
#include "client/event_names.h"
#include "client/libtessel.h"
#include "core/ipc.h"
#include "core/unique_fd.h"
#include "core/wait.h"

using tessel::Deadline;
using tessel::UniqueFd;

namespace {

using std::chrono::milliseconds;

constexpr int kBacklog = 100;
constexpr milliseconds kSilentSenderTime{1000};
constexpr char kLockSuffix[] = ".lock";

// A file by what it is, not by its name, which somebody else may have taken over.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileIdentity&) const = default;
};

FileIdentity IdentityOf(const struct stat& status) {
    return {.device = status.st_dev, .inode = status.st_ino};
}

FileIdentity IdentityAt(const char* path) {
    struct stat status {};
    return lstat(path, &status) == 0 ? IdentityOf(status) : FileIdentity{};
}

// True when the name is free afterwards.
bool Remove(const char* path) {
    return unlink(path) == 0 || errno == ENOENT;
}

void UnlinkIfStill(const char* path, const FileIdentity& identity) {
    if (IdentityAt(path) == identity) unlink(path);
}

}  // namespace

struct tessel_listener {
    char name[sizeof(sockaddr_un::sun_path)] = {};
    char path[sizeof(sockaddr_un::sun_path)] = {};
    char lockPath[sizeof(sockaddr_un::sun_path) + sizeof(kLockSuffix)] = {};
    UniqueFd socket;
    UniqueFd lock;
    FileIdentity socketFile;
    FileIdentity lockFile;
    unsigned long malformed = 0;
};

namespace {

// The lock file. One that exists is opened without O_CREAT: with it, the kernel may refuse another user's file below
// "/tmp/" even to root (fs.protected_regular).
UniqueFd OpenLockFile(const char* path) {
    constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_CLOEXEC;
    UniqueFd fd(open(path, kFlags));
    if (!fd.IsOpen() && errno == ENOENT) fd.Reset(open(path, kFlags | O_CREAT | O_EXCL, 0644));
    return fd;
}

// Opens and locks the lock file. Its owner removes it in the end: a lock on a file that is gone is worth nothing, so
// the one locked must be the one that has the name.
int TakeLock(tessel_listener& listener, bool force) {
    while (true) {
        UniqueFd fd = OpenLockFile(listener.lockPath);
        if (!fd.IsOpen()) {
            if (errno == EEXIST || (force && errno == EACCES && Remove(listener.lockPath))) continue;
            return TESSEL_E_SYSTEM;
        }
        struct stat status {};
        if (fstat(fd.Get(), &status) != 0) return TESSEL_E_SYSTEM;
        if (flock(fd.Get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno != EWOULDBLOCK) return TESSEL_E_SYSTEM;
            if (!force) return TESSEL_E_IN_USE;
            if (!Remove(listener.lockPath)) return TESSEL_E_SYSTEM;
            continue;
        }
        if (IdentityAt(listener.lockPath) != IdentityOf(status)) continue;
        listener.lockFile = IdentityOf(status);
        listener.lock = std::move(fd);
        return TESSEL_OK;
    }
}

int Listen(tessel_listener& listener, const sockaddr_un& address) {
    listener.socket.Reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener.socket.IsOpen()) return TESSEL_E_SYSTEM;
    if (!Remove(address.sun_path)) return TESSEL_E_SYSTEM;
    if (bind(listener.socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return errno == EADDRINUSE ? TESSEL_E_IN_USE : TESSEL_E_SYSTEM;
    }
    listener.socketFile = IdentityAt(address.sun_path);
    return listen(listener.socket.Get(), kBacklog) == 0 ? TESSEL_OK : TESSEL_E_SYSTEM;
}

// Reads up to `size` bytes until the deadline; how many came.
std::size_t ReadFully(int connection, void* buffer, std::size_t size, const Deadline& deadline) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t count = recv(connection, static_cast<u8*>(buffer) + done, size - done, MSG_DONTWAIT);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
            continue;
        }
        if (count == 0 || (errno != EAGAIN && errno != EINTR)) break;
        if (tessel::WaitReady(connection, POLLIN, deadline) != tessel::Wait::kReady) break;
    }
    return done;
}

// One connection carries one message and gets no answer. False when it brought none.
bool ReadEvent(int connection, const char* socketName, tessel_event& event) {
    const Deadline deadline(kSilentSenderTime);
    IpcMsgHead head{};
    if (ReadFully(connection, &head, sizeof(head), deadline) != sizeof(head)) return false;
    if (head.size < 0 || head.size > TESSEL_PAYLOAD_MAX) return false;
    const auto size = static_cast<std::size_t>(head.size);
    if (ReadFully(connection, event.payload, size, deadline) != size) return false;
    const tessel::EventName found = tessel::FindEventName(socketName, head.type);
    event.kind = found.kind;
    event.name = found.name;
    event.type = head.type;
    event.size = static_cast<u32>(size);
    return true;
}

}  // namespace

int tessel_listener_open(const char* name, unsigned flags, tessel_listener** listener) {
    sockaddr_un address{};
    if (listener == nullptr || name == nullptr || name[0] == '\0' || strchr(name, '/') != nullptr ||
        strcmp(name, TESSEL_SOCKET_API) == 0 || (flags & ~static_cast<unsigned>(TESSEL_LISTEN_TAKE)) != 0 ||
        !tessel::FormSocketAddress(name, address)) {
        return TESSEL_E_ARGUMENT;
    }
    const bool force = (flags & TESSEL_LISTEN_TAKE) != 0;
    auto* const made = new (std::nothrow) tessel_listener;
    if (made == nullptr) {
        errno = ENOMEM;
        return TESSEL_E_SYSTEM;
    }
    std::unique_ptr<tessel_listener, decltype(&tessel_listener_close)> owner(made, &tessel_listener_close);
    snprintf(made->name, sizeof(made->name), "%s", name);
    snprintf(made->path, sizeof(made->path), "%s", address.sun_path);
    snprintf(made->lockPath, sizeof(made->lockPath), "%s%s", address.sun_path, kLockSuffix);

    int error = TakeLock(*made, force);
    // Programs that know nothing of the lock may listen too.
    if (error == TESSEL_OK && !force && tessel::SomebodyListens(name)) error = TESSEL_E_IN_USE;
    if (error == TESSEL_OK) error = Listen(*made, address);
    if (error == TESSEL_OK) *listener = owner.release();
    return error;
}

int tessel_listener_fd(const tessel_listener* listener) {
    return listener->socket.Get();
}

int tessel_listener_has_name(const tessel_listener* listener) {
    return IdentityAt(listener->path) == listener->socketFile ? 1 : 0;
}

int tessel_listener_next(tessel_listener* listener, tessel_event* event, int timeout_ms) {
    if (event == nullptr) return TESSEL_E_ARGUMENT;
    const Deadline deadline(milliseconds(std::max(timeout_ms, 0)));
    while (true) {
        const UniqueFd connection(accept4(listener->socket.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (connection.IsOpen()) {
            if (ReadEvent(connection.Get(), listener->name, *event)) return TESSEL_OK;
            ++listener->malformed;
            continue;
        }
        if (errno == ECONNABORTED) continue;
        if (errno != EAGAIN) return TESSEL_E_SYSTEM;
        // Not WaitReady, which signals do not end.
        pollfd readable{.fd = listener->socket.Get(), .events = POLLIN, .revents = 0};
        const int ready = poll(&readable, 1, timeout_ms < 0 ? -1 : deadline.LeftMs());
        if (ready < 0) return TESSEL_E_SYSTEM;
        if (ready == 0 && deadline.HasPassed()) return TESSEL_E_TIMEOUT;
    }
}

unsigned long tessel_listener_malformed(const tessel_listener* listener) {
    return listener->malformed;
}

void tessel_listener_close(tessel_listener* listener) {
    if (listener == nullptr) return;
    const tessel::CancellationOff guard;
    const int error = errno;
    if (listener->socket.IsOpen() && listener->socketFile != FileIdentity{}) {
        UnlinkIfStill(listener->path, listener->socketFile);
    }
    if (listener->lock.IsOpen()) UnlinkIfStill(listener->lockPath, listener->lockFile);
    delete listener;
    errno = error;
}
