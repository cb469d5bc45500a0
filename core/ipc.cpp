#include "core/ipc.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <span>

#include "core/file_rights.h"
#include "core/log.h"
#include "core/unique_fd.h"
#include "core/wait.h"

using std::chrono::milliseconds;
using tessel::CallSite;
using tessel::Deadline;
using tessel::UniqueFd;
using tessel::Wait;

namespace tessel {

bool FormSocketAddress(const char* name, sockaddr_un& addr) {
    addr = {};
    addr.sun_family = AF_UNIX;
    const int length = snprintf(addr.sun_path, sizeof(addr.sun_path), "%s%s", TESSEL_SOCKET_DIRECTORY, name);
    return length >= 0 && length <= TESSEL_SOCKET_PATH_MAX;
}

}  // namespace tessel

namespace {

constexpr int kBacklog = 100;
constexpr int kFileWaitRounds = 5;
constexpr int kConnectAttempts = 3;
constexpr milliseconds kRetry = std::chrono::seconds(1);

// For a notification: five seconds for the socket's file, three for a listener there.
constexpr int kCallbackConnectMs = 8000;

// Header and payload in one block; what a request may carry fits without the heap.
class MessageBuffer {
  public:
    explicit MessageBuffer(std::size_t payloadBytes) : bytes_(sizeof(IpcMsgHead) + payloadBytes) {
        if (bytes_ > sizeof(inline_)) heap_.reset(new (std::nothrow) char[bytes_]);
    }
    // Null when there is no memory.
    [[nodiscard]] char* Get() {
        return bytes_ > sizeof(inline_) ? heap_.get() : inline_;
    }
    [[nodiscard]] std::size_t Bytes() const {
        return bytes_;
    }

  private:
    std::size_t bytes_;
    char inline_[sizeof(IpcMsgHead) + TESSEL_PAYLOAD_MAX];
    std::unique_ptr<char[]> heap_;
};

enum class Progress { kComplete, kBlocked, kFailed };

// Sends what fits without waiting, from `rest` on, which is then what is left.
Progress SendSome(int fd, std::span<const char>& rest) {
    while (!rest.empty()) {
        const ssize_t count = send(fd, rest.data(), rest.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno == EAGAIN ? Progress::kBlocked : Progress::kFailed;
        rest = rest.subspan(static_cast<std::size_t>(count));
    }
    return Progress::kComplete;
}

// How long an exchange may take, and with whom.
struct Limits {
    int connectMs = tessel::kIpcTimeoutMs;
    int exchangeMs = tessel::kIpcTimeoutMs;    // for writing, and again for reading
    int stopFd = -1;                           // readable: it ends immediately. -1: none
    tessel::SocketJudge mayConnect = nullptr;  // null: anything of that name, or a link to it
};

// Sends the whole message. It tries first and waits only when the socket is full: a reply nearly always fits. 0, -1
// (`failure` logged, or the wait failed) or TESSEL_IPC_WRITE_TIMEOUT; writeFailed is what a failed write yields.
i32 SendMessage(int fd, const IpcMsgHead& head, const void* data, const Limits& limits, const char* failure,
                i32 writeFailed, CallSite where) {
    MessageBuffer message(static_cast<std::size_t>(head.size));
    if (message.Get() == nullptr) {
        tessel::LogPerror(where, "XMALLOC error");
        return TESSEL_IPC_ERROR;
    }
    memcpy(message.Get(), &head, sizeof(head));
    if (head.size > 0) memcpy(message.Get() + sizeof(head), data, static_cast<std::size_t>(head.size));
    std::span<const char> rest(message.Get(), message.Bytes());
    std::optional<Deadline> deadline;  // from the first time it does not fit
    while (true) {
        const Progress progress = SendSome(fd, rest);
        if (progress == Progress::kComplete) return TESSEL_IPC_OK;
        if (progress == Progress::kFailed) {
            TESSEL_ERR_AT(where, "%s", failure);
            return writeFailed;
        }
        if (!deadline) deadline.emplace(milliseconds(limits.exchangeMs));
        switch (tessel::WaitReady(fd, POLLOUT, *deadline, limits.stopFd)) {
            case Wait::kReady:
                break;
            case Wait::kTimeout:
                TESSEL_ERR_AT(where, "wait time out for writing!");
                return TESSEL_IPC_WRITE_TIMEOUT;
            case Wait::kStopped:
                return TESSEL_IPC_ERROR;
            case Wait::kFailed:
                TESSEL_ERR_AT(where, "select error");
                return TESSEL_IPC_ERROR;
        }
    }
}

// One exchange: with whom, what is sent, where the reply goes, and the words in which failures are logged.
struct Exchange {
    const char* socketName;
    IpcMsgHead head;
    const void* data;
    void* reply;
    i32 replySize;
    Limits limits;
    ucred* peer;
    const char* socketFailure;
    const char* connectFailure;
    const char* writeFailure;
};

i32 ReceiveReply(int fd, const Exchange& exchange, CallSite where) {
    MessageBuffer buffer(static_cast<std::size_t>(exchange.replySize));
    if (buffer.Get() == nullptr) {
        tessel::LogPerror(where, "XMALLOC error");
        // Like every positive result, a number of bytes: those of the request.
        return static_cast<i32>(sizeof(IpcMsgHead)) + exchange.head.size;
    }
    switch (tessel::WaitReady(fd, POLLIN, Deadline(milliseconds(exchange.limits.exchangeMs)), exchange.limits.stopFd)) {
        case Wait::kReady:
            break;
        case Wait::kTimeout:
            TESSEL_ERR_AT(where, "wait time out for reading!");
            return TESSEL_IPC_READ_TIMEOUT;
        case Wait::kStopped:
            return TESSEL_IPC_ERROR;
        case Wait::kFailed:
            TESSEL_ERR_AT(where, "select error");
            return TESSEL_IPC_ERROR;
    }
    const ssize_t count = read(fd, buffer.Get(), buffer.Bytes());
    if (count != static_cast<ssize_t>(buffer.Bytes())) {
        TESSEL_ERR_AT(where, "fail to receive message!");
        return static_cast<i32>(count);
    }
    IpcMsgHead head;
    memcpy(&head, buffer.Get(), sizeof(head));
    TESSEL_DBG_AT(where, "%s:%d:recv:0x%x:size%d:flag=0x%x", where.function, where.line, head.type, head.size,
                  head.flag);
    if (head.size != exchange.replySize) {
        TESSEL_ERR_AT(where, "received message's head is error!");
        return static_cast<i32>(count);
    }
    memcpy(exchange.reply, buffer.Get() + sizeof(head), static_cast<std::size_t>(exchange.replySize));
    return TESSEL_IPC_OK;
}

// False, with errno ECANCELED, when it was stopped.
bool Pause(milliseconds time, int stopFd) {
    if (tessel::SleepUntil(Deadline(time), stopFd)) return true;
    errno = ECANCELED;
    return false;
}

// connect() on a non-blocking socket fails while the listener's queue is full: tried again until there is room.
bool ConnectOnce(int fd, const sockaddr_un& address, const Deadline& deadline, int stopFd) {
    constexpr milliseconds kLongestPause(100);
    for (milliseconds pause(1);; pause = std::min(pause * 2, kLongestPause)) {
        if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return true;
        if (errno == EINTR) continue;
        if (errno != EAGAIN || deadline.HasPassed()) return false;
        if (!Pause(std::min(pause, milliseconds(deadline.LeftMs())), stopFd)) return false;
    }
}

// The same for a socket that anybody may have put there: it is opened without following a link, judged, and then
// connected to by its descriptor, so that nobody can swap it in between.
bool ConnectJudged(int fd, const sockaddr_un& address, const Deadline& deadline, const Limits& limits, CallSite where) {
    const UniqueFd file(open(address.sun_path, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) return false;
    if (S_ISLNK(status.st_mode) || !limits.mayConnect(status.st_uid, status.st_gid)) {
        TESSEL_ERR_AT(where, "%s is a link or somebody else's", address.sun_path);
        errno = EPERM;
        return false;
    }
    sockaddr_un opened{.sun_family = AF_UNIX, .sun_path = {}};
    snprintf(opened.sun_path, sizeof(opened.sun_path), "/proc/self/fd/%d", file.Get());
    return ConnectOnce(fd, opened, deadline, limits.stopFd);
}

i32 ConnectWithin(int fd, const sockaddr_un& address, const Limits& limits, CallSite where) {
    const Deadline deadline{milliseconds(limits.connectMs)};
    const auto pause = [&] { return Pause(std::min(kRetry, milliseconds(deadline.LeftMs())), limits.stopFd); };
    for (int round = 0; round < kFileWaitRounds && access(address.sun_path, F_OK) != 0; ++round) {
        if (!pause()) return -1;
    }
    const auto connectOnce = [&] {
        return limits.mayConnect != nullptr ? ConnectJudged(fd, address, deadline, limits, where)
                                            : ConnectOnce(fd, address, deadline, limits.stopFd);
    };
    for (int attempt = 1; !connectOnce(); ++attempt) {
        if (errno == ECANCELED) return -1;
        if (errno != ECONNREFUSED && errno != ENOENT) {
            TESSEL_ERR_AT(where, "connect error");
            return -1;
        }
        if (attempt == kConnectAttempts) {
            TESSEL_ERR_AT(where, "connect error, do not try, will return");
            return -1;
        }
        TESSEL_ERR_AT(where, "connect error, do more try");
        if (!pause()) return -1;
    }
    return 0;
}

// Connects `fd` to the name. 0, or -1: with a log line, or with errno ECANCELED when it was stopped.
i32 ConnectTo(int fd, const char* name, sockaddr_un& address, const Limits& limits) {
    constexpr CallSite kWhere = CallSite::Current("MakeAddrClient");
    if (tessel::FormSocketAddress(name, address)) return ConnectWithin(fd, address, limits, kWhere);
    TESSEL_ERR_AT(kWhere, "the name is too long!");
    errno = ENAMETOOLONG;  // the caller's may be anything
    return -1;
}

bool BothOrNeither(const void* data, i32 size) {
    return (data == nullptr) == (size == 0);
}

i32 SendAndReceive(const Exchange& exchange, CallSite where) {
    const tessel::LogSwitchMemory switchMemory;
    const i32 size = exchange.head.size;
    if (!BothOrNeither(exchange.data, size) || !BothOrNeither(exchange.reply, exchange.replySize) || size < 0 ||
        exchange.replySize < 0) {
        TESSEL_ERR_AT(where, "the parameters is invalid");
        return TESSEL_IPC_ERROR;
    }
    if (size > TESSEL_PAYLOAD_MAX) {
        TESSEL_ERR_AT(where, "the send buf is too long:%d,the max capacity is %d!", size, TESSEL_PAYLOAD_MAX);
        return TESSEL_IPC_ERROR;
    }
    const UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.IsOpen()) {
        tessel::LogPerror(where, exchange.socketFailure);
        return TESSEL_IPC_ERROR;
    }
    sockaddr_un address{};
    if (ConnectTo(fd.Get(), exchange.socketName, address, exchange.limits) != 0) {
        if (errno != ECANCELED) TESSEL_ERR_AT(where, "%s", exchange.connectFailure);
        return TESSEL_IPC_ERROR;
    }
    if (exchange.peer != nullptr) *exchange.peer = tessel::PeerOf(fd.Get());
    TESSEL_DBG_AT(where, "%s:%d:path=%s", where.function, where.line, address.sun_path);
    TESSEL_DBG_AT(where, "%s:%d:send:0x%x:size=%d:flag=0x%x", where.function, where.line, exchange.head.type, size,
                  exchange.head.flag);
    const i32 sent = SendMessage(fd.Get(), exchange.head, exchange.data, exchange.limits, exchange.writeFailure,
                                 TESSEL_IPC_WRITE_FAILED, where);
    // Reported as success: callers rely on it, and recognise it by the untouched reply.
    if (sent == TESSEL_IPC_WRITE_TIMEOUT) return TESSEL_IPC_OK;
    if (sent != TESSEL_IPC_OK || exchange.reply == nullptr) return sent;
    return ReceiveReply(fd.Get(), exchange, where);
}

Exchange ApiExchange(u32 type, const void* data, i32 size, void* reply, i32 replySize) {
    return {.socketName = TESSEL_SOCKET_API,
            .head = {.type = type, .size = size, .flag = 0},
            .data = data,
            .reply = reply,
            .replySize = replySize,
            .limits = {},
            .peer = nullptr,
            .socketFailure = "socket error",
            .connectFailure = "MakeAddrClient error!",
            .writeFailure = "write message failed"};
}

}  // namespace

i32 MakeAddrServer(int fd, const char* name, sockaddr_un* addr, socklen_t* addrlen) {
    return tessel::MakeAddrServerFor(std::nullopt, fd, name, addr, addrlen);
}

i32 tessel::MakeAddrServerFor(const std::optional<SocketAccess>& clients, int fd, const char* name, sockaddr_un* addr,
                              socklen_t* addrlen, CallSite where) {
    if (!FormSocketAddress(name, *addr)) {
        TESSEL_ERR_AT(where, "the name is too long!");
        return -1;
    }
    // The path without its NUL: family, then the characters.
    *addrlen = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + strlen(addr->sun_path));
    while (access(addr->sun_path, R_OK | W_OK) == 0 && unlink(addr->sun_path) == 0) {
    }
    unlink(addr->sun_path);
    // The file gets the descriptor's mode. Until it listens, nobody can connect.
    const bool isMade = (!clients || fchmod(fd, clients->mode) == 0) &&
                        bind(fd, reinterpret_cast<sockaddr*>(addr), *addrlen) == 0 &&
                        (!clients || lchown(addr->sun_path, static_cast<uid_t>(-1), clients->group) == 0);
    if (!isMade) {
        LogPerror(where, "bind error");
        unlink(addr->sun_path);
        return 0;
    }
    if (listen(fd, kBacklog) != 0) {
        TESSEL_ERR_AT(where, "listen error!");
        unlink(addr->sun_path);
    }
    return 0;
}

i32 MakeAddrClient(int fd, const char* name, sockaddr_un* addr, socklen_t* addrlen) {
    *addrlen = sizeof(*addr);
    return ConnectTo(fd, name, *addr, {});
}

i32 IpcApiSendMsg(int fd, u32 type, const void* data, i32 size, u32 flag) {
    if (!BothOrNeither(data, size) || size < 0) {
        TESSEL_ERR("the parameters is invalid");
        return TESSEL_IPC_ERROR;
    }
    TESSEL_DBG("%s:%d:type=%x:size=%d:flag=0x%x", __func__, __LINE__, type, size, flag);
    const IpcMsgHead head{.type = type, .size = size, .flag = flag};
    const i32 result = SendMessage(fd, head, data, {}, "fail to send message!", TESSEL_IPC_ERROR, CallSite::Current());
    if (result == TESSEL_IPC_OK) TESSEL_DBG("%s:%d:tMsgHead.size=%d", __func__, __LINE__, size);
    return result;
}

i32 IpcApiSendAndRecv(u32 type, const void* data, i32 size, void* reply, i32 replySize) {
    return SendAndReceive(ApiExchange(type, data, size, reply, replySize), CallSite::Current());
}

namespace {

Exchange CallbackExchange(const char* name, u32 type, const void* data, i32 size, void* reply, i32 replySize) {
    Exchange exchange = ApiExchange(type, data, size, reply, replySize);
    exchange.socketName = name;
    exchange.limits.connectMs = kCallbackConnectMs;
    exchange.limits.mayConnect = [](uid_t, gid_t) { return true; };
    exchange.socketFailure = "socket error:";
    exchange.connectFailure = "make_addr_client error!";
    exchange.writeFailure = "fail to send message!";
    return exchange;
}

constexpr CallSite kCallbackSite = CallSite::Current("IpcCallbackSendAndRecv");

}  // namespace

i32 IpcCallbackSendAndRecv(const char* name, u32 type, const void* data, i32 size, void* reply, i32 replySize) {
    return SendAndReceive(CallbackExchange(name, type, data, size, reply, replySize), kCallbackSite);
}

namespace tessel {

i32 IpcCallbackSend(const char* name, u32 type, const void* data, i32 size, int stopFd, SocketJudge mayConnect) {
    Exchange exchange = CallbackExchange(name, type, data, size, nullptr, 0);
    exchange.limits.stopFd = stopFd;
    exchange.limits.mayConnect = mayConnect;
    return SendAndReceive(exchange, kCallbackSite);
}

i32 IpcApiSendAndRecvWithin(u32 type, const void* data, i32 size, void* reply, i32 replySize, int timeoutMs,
                            ucred* peer, int stopFd) {
    Exchange exchange = ApiExchange(type, data, size, reply, replySize);
    exchange.limits = {.connectMs = timeoutMs, .exchangeMs = timeoutMs, .stopFd = stopFd, .mayConnect = nullptr};
    exchange.peer = peer;
    return SendAndReceive(exchange, CallSite::Current());
}

}  // namespace tessel
