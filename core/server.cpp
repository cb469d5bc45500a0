#include "core/server.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>

#include "core/client_group.h"
#include "core/folder_watch.h"
#include "core/ipc.h"
#include "core/log.h"
#include "core/read_guard.h"
#include "core/registry.h"
#include "core/unique_fd.h"
#include "core/wait.h"

using tessel::CallSite;
using tessel::UniqueFd;

namespace {

// How long a client may be connected without having written its request; up to a second more passes until this is
// noticed. Nobody else is served meanwhile.
constexpr std::chrono::seconds kRequestTimeout(5);

constexpr unsigned kRebuildSeconds = 1;

// Something that keeps the socket from being made, such as a folder of its name, may persist. Logged once in this time.
constexpr std::chrono::seconds kComplaintTime(60);

// In whose name the server's lines are logged, whichever of its steps they come from.
constexpr char kServer[] = "IpcApiDaemonInit";

// What `open` opens, however long this process or the whole system is out of descriptors or memory: that passes by
// itself, and is logged once. Closed, with errno set, after any other failure.
template <typename Open>
UniqueFd OpenDespiteShortage(Open open, const char* failure, CallSite where) {
    constexpr useconds_t kPauseUs = 100'000;
    for (bool isKnown = false;; isKnown = true) {
        UniqueFd fd(open());
        const bool isShortage = errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS;
        if (fd.IsOpen() || !isShortage) return fd;
        if (!isKnown) tessel::LogPerror(where, failure);
        usleep(kPauseUs);
    }
}

// A new listening socket, bound. Closed, with a log line, when no socket can be made at all.
UniqueFd MakeListener(CallSite where = CallSite::Current()) {
    constexpr char kFailure[] = "socket error!";
    UniqueFd listener =
        OpenDespiteShortage([] { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }, kFailure, where);
    if (!listener.IsOpen()) {
        tessel::LogPerror(where, kFailure);
        return listener;
    }
    sockaddr_un address{};
    socklen_t addressLength = 0;
    if (tessel::MakeAddrServerFor(tessel::ClientAccess(), listener.Get(), TESSEL_SOCKET_API, &address, &addressLength,
                                  CallSite::Current("MakeAddrServer")) != 0) {
        TESSEL_ERR_AT(where, "error!");
        listener.Reset();
    }
    return listener;
}

struct Request {
    IpcMsgHead head;
    std::array<char, TESSEL_PAYLOAD_MAX> payload;
};
static_assert(sizeof(Request) == sizeof(IpcMsgHead) + TESSEL_PAYLOAD_MAX, "read as one block");

// One read of what the client has written or is about to write. False with a log line.
bool ReadRequest(int connection, Request& request) {
    static tessel::ReadGuard guard(kRequestTimeout);  // its thread never ends
    const ssize_t count = guard.Receive(connection, &request, sizeof(request));
    if (count < 0 && errno == EAGAIN) {
        TESSEL_ERR_AT(CallSite::Current(kServer), "no request within %lld seconds!",
                      static_cast<long long>(kRequestTimeout.count()));
        return false;
    }
    if (count < 0) {
        TESSEL_ERR_AT(CallSite::Current(kServer), "read error!");
        return false;
    }
    // What a client announces but does not send is zero, not what an earlier one sent.
    const auto clearUpTo = [&request, begin = static_cast<std::size_t>(count)](std::size_t end) {
        if (begin < end) memset(reinterpret_cast<char*>(&request) + begin, 0, end - begin);
    };
    clearUpTo(sizeof(request.head));
    if (request.head.size > TESSEL_PAYLOAD_MAX) {
        TESSEL_ERR_AT(CallSite::Current(kServer), "the sended data is too long!");
        return false;
    }
    if (request.head.size < 0) {
        TESSEL_ERR_AT(CallSite::Current(kServer), "the size is error:size=%d", request.head.size);
        return false;
    }
    clearUpTo(sizeof(request.head) + static_cast<std::size_t>(request.head.size));
    return true;
}

void ServeConnection(int connection, Request& request, tessel::FolderWatch& logSwitches) {
    const tessel::LogSwitchMemory switchMemory(&logSwitches);
    if (!ReadRequest(connection, request)) return;
    TESSEL_DBG_AT(CallSite::Current(kServer), "%s:%d:type=%x", kServer, __LINE__, request.head.type);
    const IpcApiNode* node = IpcApiFindNode(&g_tIpcApiCommonHead, request.head.type);
    if (node == nullptr) {
        TESSEL_ERR_AT(CallSite::Current(kServer), "invalid type: %x!", request.head.type);
        return;
    }
    (void)node->handler(connection, request.head.type, request.payload.data(), request.head.size);
}

// The next client, which waits in the queue during a shortage; closed, with errno set, when the socket is broken.
UniqueFd AcceptClient(int listener) {
    const auto accept = [listener] {
        int connection = -1;
        // A signal, or a client that is already gone, says nothing about the listening socket.
        do
            connection = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        while (connection < 0 && (errno == EINTR || errno == ECONNABORTED));
        return connection;
    };
    return OpenDespiteShortage(accept, "accept error", CallSite::Current(kServer));
}

// Serves until the listening socket is broken, and sets errno then. True when there was a client.
bool ServeUntilBroken(int listener, tessel::FolderWatch& logSwitches) {
    Request request;
    for (bool hasServed = false;; hasServed = true) {
        const UniqueFd connection = AcceptClient(listener);
        if (!connection.IsOpen()) return hasServed;
        ServeConnection(connection.Get(), request, logSwitches);
    }
}

}  // namespace

i32 IpcApiDaemonInit() {
    UniqueFd listener = MakeListener();
    if (!listener.IsOpen()) return -1;
    tessel::FolderWatch logSwitches(tessel::kLogSwitchFolder);
    TESSEL_ERR("[TESSEL_DAEMON]: api daemon start");

    tessel::Deadline silence{std::chrono::milliseconds(0)};
    for (bool isRebuilt = false; listener.IsOpen(); isRebuilt = true) {
        const bool hasServed = ServeUntilBroken(listener.Get(), logSwitches);
        // A failure to bind shows only here, and its cause may persist.
        const bool isUseless = isRebuilt && !hasServed;
        std::optional<tessel::LogLimit> mute;  // also covers what is logged while the next one is made
        if (isUseless && !silence.HasPassed()) {
            mute.emplace(0U, kComplaintTime);
        } else if (isUseless) {
            silence = tessel::Deadline(kComplaintTime);
        }
        TESSEL_PERROR("accept error");
        if (isUseless) {
            TESSEL_ERR("creat unix domain server fail, sleep a while!");
            sleep(kRebuildSeconds);
        }
        listener.Reset();
        listener = MakeListener();
    }
    return -1;
}
