// The transport: one message, or one message and its reply, over a Unix-domain stream socket under "/tmp/".
//
// Nothing here keeps state between calls; any thread may call at any time. Failures are logged where they happen.
// Results are those of tessel/ipc.h. IpcApiSendAndRecv and IpcCallbackSendAndRecv have three more, which callers know:
// a message that could not be written within the time counts as 0, although no reply was stored; a reply that is too
// short, or whose header gives another size, makes the result the number of bytes read (0 when the peer closed).
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <optional>

#include "core/call_site.h"
#include "core/types.h"
#include "tessel/ipc.h"

// Binds `fd` to the name, replacing any file of that name, and listens. Returns 0, or -1 when the path is too long. A
// bind or listen that fails is only logged: accept on `fd` then fails. `fd` stays the caller's in every case.
i32 MakeAddrServer(int fd, const char* name, struct sockaddr_un* addr, socklen_t* addrlen);

// Waits up to 5 seconds for the socket file of that name and connects `fd` to it, trying three times, a second apart,
// while nobody listens. Returns 0, or -1 with a log line.
i32 MakeAddrClient(int fd, const char* name, struct sockaddr_un* addr, socklen_t* addrlen);

// Writes one message on a connected socket, which stays open. `data` and `size` are both set or both null and 0; there
// is no size limit. 0, -1, or TESSEL_IPC_WRITE_TIMEOUT after 60 seconds.
i32 IpcApiSendMsg(int fd, u32 type, const void* data, i32 size, u32 flag);

// Sends one request to the daemon and, when `reply` is set, reads one reply of exactly replySize payload bytes. `data`
// and `size` (at most 3072), `reply` and `replySize` are each both set or both null and 0. It waits 60 seconds for the
// reply.
i32 IpcApiSendAndRecv(u32 type, const void* data, i32 size, void* reply, i32 replySize);

// The same to the socket `name`, which may be no link: a notification, when `reply` is null. Connecting takes 8 seconds
// at most.
i32 IpcCallbackSendAndRecv(const char* name, u32 type, const void* data, i32 size, void* reply, i32 replySize);

namespace tessel {

constexpr int kIpcTimeoutMs = 60000;

// IpcApiSendAndRecv with a time limit of its own for connecting, for writing and for reading. Unless `peer` is null, it
// stores the process that answered there (nothing when there was no connection). It ends, with TESSEL_IPC_ERROR, as
// soon as `stopFd` (-1: none) is readable: what has been written by then reaches the daemon all the same.
[[nodiscard]] i32 IpcApiSendAndRecvWithin(u32 type, const void* data, i32 size, void* reply, i32 replySize,
                                          int timeoutMs, ucred* peer, int stopFd = -1);

// Whether a socket file of this owner and group may be connected to.
using SocketJudge = bool (*)(uid_t owner, gid_t group);

// A notification that ends, with TESSEL_IPC_ERROR, as soon as `stopFd` (-1: none) is readable. It goes only to a socket
// that `mayConnect` allows, never through a link.
[[nodiscard]] i32 IpcCallbackSend(const char* name, u32 type, const void* data, i32 size, int stopFd,
                                  SocketJudge mayConnect);

// What a socket file is created with.
struct SocketAccess {
    mode_t mode;
    gid_t group;  // -1: the process's
};

// MakeAddrServer; the file has the access of `clients`, if there is one, before anybody can connect.
i32 MakeAddrServerFor(const std::optional<SocketAccess>& clients, int fd, const char* name, sockaddr_un* addr,
                      socklen_t* addrlen, CallSite where = CallSite::Current());

// Fills `addr` for the name. False when the path is too long.
[[nodiscard]] bool FormSocketAddress(const char* name, sockaddr_un& addr);

}  // namespace tessel
