#include "client/call.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>

#include "core/ipc.h"
#include "core/unique_fd.h"
#include "core/wait.h"

namespace {

// Fills a reply before the call. The transport reports some failures as success and leaves the reply alone: a reply
// that still looks like this was never stored.
constexpr i32 kPoisonResult = 0x7fffffff;
constexpr u8 kPoisonByte = 0xA5;

std::atomic<int> g_timeoutMs{tessel::kIpcTimeoutMs};
std::atomic<int> g_stopFd{-1};
std::atomic<tessel::Transport> g_transport{&tessel::CallDaemon};
thread_local int t_daemonPid = 0;

u8 PoisonAt(std::size_t position) {
    u8 result[sizeof(kPoisonResult)];
    memcpy(result, &kPoisonResult, sizeof(result));
    return position < sizeof(result) ? result[position] : kPoisonByte;
}

void Poison(u8* reply, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i)
        reply[i] = PoisonAt(i);
}

bool IsPoison(const u8* reply, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) {
        if (reply[i] != PoisonAt(i)) return false;
    }
    return true;
}

// What errno says about a connection that did not work.
int ErrorOfErrno() {
    switch (errno) {
        case ECONNREFUSED:
        case ENOENT:
            return TESSEL_E_NOT_RUNNING;
        case EPIPE:
        case ECONNRESET:
            return TESSEL_E_NO_REPLY;
        case EAGAIN:  // the daemon's queue stayed full
            return TESSEL_E_TIMEOUT;
        default:
            return TESSEL_E_SYSTEM;
    }
}

// The transport's results other than "a reply was stored".
int ErrorOfTransport(i32 result, bool timeIsUp) {
    switch (result) {
        case TESSEL_IPC_OK:  // the request could not be written in time, or the daemon closed without a word
            return timeIsUp ? TESSEL_E_TIMEOUT : TESSEL_E_NO_REPLY;
        case TESSEL_IPC_READ_TIMEOUT:
            return TESSEL_E_TIMEOUT;
        case TESSEL_IPC_ERROR:
        case TESSEL_IPC_WRITE_FAILED:
            return ErrorOfErrno();
        default:
            return TESSEL_E_PROTOCOL;
    }
}

bool IsStopped(int stopFd) {
    return stopFd >= 0 && !tessel::SleepUntil(tessel::Deadline(std::chrono::milliseconds(0)), stopFd);
}

bool IsBuffer(const void* data, std::size_t size, std::size_t sizeMax) {
    return (data == nullptr) == (size == 0) && size <= sizeMax;
}

}  // namespace

namespace tessel {

bool SomebodyListens(const char* socketName) {
    sockaddr_un address{};
    const UniqueFd probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!probe.IsOpen() || !FormSocketAddress(socketName, address)) return false;
    // Success means that a datagram socket is there, which serves nobody.
    if (connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0) return false;
    // Without the right to connect it remains unknown; the call itself will tell.
    return errno == EPROTOTYPE || errno == EACCES;
}

int CallDaemon(u32 code, const void* request, std::size_t size, void* reply, std::size_t replySize) {
    t_daemonPid = 0;
    if (!IsBuffer(request, size, TESSEL_PAYLOAD_MAX) || !IsBuffer(reply, replySize, INT_MAX - sizeof(IpcMsgHead))) {
        return TESSEL_E_ARGUMENT;
    }
    if (!SomebodyListens(TESSEL_SOCKET_API)) return TESSEL_E_NOT_RUNNING;

    auto* replyBytes = static_cast<u8*>(reply);
    Poison(replyBytes, replySize);
    const int timeoutMs = g_timeoutMs.load(std::memory_order_relaxed);
    const int stopFd = StopOfCalls();
    if (IsStopped(stopFd)) return TESSEL_E_TIMEOUT;
    const Deadline deadline{std::chrono::milliseconds(timeoutMs)};
    ucred peer{};
    errno = 0;
    const i32 result = IpcApiSendAndRecvWithin(code, request, static_cast<i32>(size), reply,
                                               static_cast<i32>(replySize), timeoutMs, &peer, stopFd);
    t_daemonPid = peer.pid;
    const bool timeIsUp = deadline.HasPassed();
    const bool isStored = replySize == 0 ? !timeIsUp : !IsPoison(replyBytes, replySize);
    if (result == TESSEL_IPC_OK && isStored) return TESSEL_OK;
    if (IsStopped(stopFd)) return TESSEL_E_TIMEOUT;
    return ErrorOfTransport(result, timeIsUp);
}

int EndCallsAt(int stopFd) {
    return g_stopFd.exchange(stopFd, std::memory_order_relaxed);
}

int StopOfCalls() {
    return g_stopFd.load(std::memory_order_relaxed);
}

void UseTransport(Transport transport) {
    g_transport.store(transport, std::memory_order_relaxed);
}

int Call(u32 code, const void* request, std::size_t size, void* reply, std::size_t replySize) {
    return g_transport.load(std::memory_order_relaxed)(code, request, size, reply, replySize);
}

int CallWithStatus(u32 code, const void* request, std::size_t size, void* reply, std::size_t replySize) {
    const int error = Call(code, request, size, reply, replySize);
    if (error != TESSEL_OK) return error;
    i32 status = 0;
    memcpy(&status, reply, sizeof(status));
    return status == TESSEL_RESULT_OK ? TESSEL_OK : TESSEL_E_FAILED;
}

}  // namespace tessel

const char* tessel_strerror(int error) {
    switch (error) {
        case TESSEL_OK:
            return "success";
        case TESSEL_E_FAILED:
            return "the daemon answered -1";
        case TESSEL_E_NOT_RUNNING:
            return "the daemon is not running";
        case TESSEL_E_TIMEOUT:
            return "no answer in time";
        case TESSEL_E_NO_REPLY:
            return "the daemon closed the connection without an answer";
        case TESSEL_E_PROTOCOL:
            return "the answer was cut or of another size";
        case TESSEL_E_ARGUMENT:
            return "refused before anything was sent";
        case TESSEL_E_SYSTEM:
            return "a system call failed";
        case TESSEL_E_IN_USE:
            return "somebody else listens under that name";
        default:
            return "unknown error";
    }
}

int tessel_set_timeout_ms(int timeout_ms) {
    if (timeout_ms <= 0) return TESSEL_E_ARGUMENT;
    g_timeoutMs.store(timeout_ms, std::memory_order_relaxed);
    return TESSEL_OK;
}

int tessel_daemon_pid() {
    return t_daemonPid;
}

int tessel_daemon_is_listening() {
    return tessel::SomebodyListens(TESSEL_SOCKET_API) ? 1 : 0;
}

int tessel_raw(uint32_t code, const void* request, size_t size, void* reply, size_t reply_size) {
    return tessel::Call(code, request, size, reply, reply_size);
}
