#include "core/server.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "core/ipc.h"
#include "core/log.h"
#include "core/registry.h"
#include "core/unique_fd.h"

using tessel::UniqueFd;

namespace {

// How long a client may be connected without having written its request. It is the only one served meanwhile.
constexpr timeval kRequestTimeout{.tv_sec = 5, .tv_usec = 0};

constexpr unsigned kRebuildSeconds = 1;

// Binds a new listening socket. Closed, with a log line, when no socket can be made.
UniqueFd MakeListener(tessel::CallSite where = tessel::CallSite::Current()) {
    UniqueFd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener.IsOpen()) {
        tessel::LogPerror(where, "socket error!");
        return listener;
    }
    sockaddr_un address{};
    socklen_t addressLength = 0;
    if (MakeAddrServer(listener.Get(), TESSEL_SOCKET_API, &address, &addressLength) != 0) {
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
    request = {};
    setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &kRequestTimeout, sizeof(kRequestTimeout));
    const ssize_t count = read(connection, &request, sizeof(request));
    if (count < 0 && errno == EAGAIN) {
        TESSEL_ERR("no request within %ld seconds!", static_cast<long>(kRequestTimeout.tv_sec));
        return false;
    }
    if (count < 0) {
        TESSEL_ERR("read error!");
        return false;
    }
    if (request.head.size > TESSEL_PAYLOAD_MAX) {
        TESSEL_ERR("the sended data is too long!");
        return false;
    }
    if (request.head.size < 0) {
        TESSEL_ERR("the size is error:size=%d", request.head.size);
        return false;
    }
    return true;
}

void ServeConnection(int connection, Request& request) {
    const tessel::LogSwitchMemory switchMemory;
    if (!ReadRequest(connection, request)) return;
    TESSEL_DBG("%s:%d:type=%x", __func__, __LINE__, request.head.type);
    const IpcApiNode* node = IpcApiFindNode(&g_tIpcApiCommonHead, request.head.type);
    if (node == nullptr) {
        TESSEL_ERR("invalid type: %x!", request.head.type);
        return;
    }
    (void)node->handler(connection, request.head.type, request.payload.data(), request.head.size);
}

// The next client; closed when the listening socket is broken.
UniqueFd AcceptClient(int listener) {
    while (true) {
        UniqueFd connection(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
        // A signal, or a client that has gone already, says nothing about the listening socket.
        if (connection.IsOpen() || (errno != EINTR && errno != ECONNABORTED)) return connection;
    }
}

}  // namespace

i32 IpcApiDaemonInit() {
    UniqueFd listener = MakeListener();
    if (!listener.IsOpen()) return -1;
    Request request;
    TESSEL_ERR("[TESSEL_DAEMON]: api daemon start");

    bool isRebuilt = false;
    while (true) {
        const UniqueFd connection = AcceptClient(listener.Get());
        if (connection.IsOpen()) {
            isRebuilt = false;
            ServeConnection(connection.Get(), request);
            continue;
        }
        TESSEL_PERROR("accept error");
        // A socket that could not be bound shows only here; what hinders it may last.
        if (isRebuilt) {
            TESSEL_ERR("creat unix domain server fail, sleep a while!");
            sleep(kRebuildSeconds);
        }
        listener.Reset();
        listener = MakeListener();
        if (!listener.IsOpen()) return -1;
        isRebuilt = true;
    }
}
