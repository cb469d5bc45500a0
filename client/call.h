// One request to the daemon, with an error for everything that can go wrong.
#pragma once

#include <cstddef>
#include <cstring>

#include "client/libtessel.h"
#include "core/types.h"

namespace tessel {

// Sends and receives; results are those of tessel_raw.
using Transport = int (*)(u32 code, const void* request, std::size_t size, void* reply, std::size_t replySize);

// Over the daemon's socket.
[[nodiscard]] int CallDaemon(u32 code, const void* request, std::size_t size, void* reply, std::size_t replySize);

// Puts another transport below all calls of this process: one that shows, withholds or answers them. Its results reach
// the callers unchanged. To be called before other threads exist.
void UseTransport(Transport transport);

// From now on CallDaemon ends, with TESSEL_E_TIMEOUT, as soon as this descriptor is readable, and sends nothing when it
// already is; -1: none. The daemon may still carry out what it was sent. Returns the one before, which StopOfCalls
// gives until then.
int EndCallsAt(int stopFd);
[[nodiscard]] int StopOfCalls();

// Through the transport in use.
[[nodiscard]] int Call(u32 code, const void* request, std::size_t size, void* reply, std::size_t replySize);

// True when a process listens for streams under this path. A datagram socket asks: the kernel turns it away, so the
// listener has nothing to accept. (An empty connection would occupy the daemon until it gave up on it.)
[[nodiscard]] bool SomebodyListens(const char* socketName);

// As Call, and the status at the start of the reply becomes the result.
[[nodiscard]] int CallWithStatus(u32 code, const void* request, std::size_t size, void* reply, std::size_t replySize);

// A record each way, for the request its first `requestBytes` bytes.
template <typename Reply, typename Request>
[[nodiscard]] int CallWithRecords(u32 code, const Request& request, Reply& reply,
                                  std::size_t requestBytes = sizeof(Request)) {
    static_assert(offsetof(Reply, nResult) == 0 && sizeof(reply.nResult) == sizeof(i32), "begins with its status");
    return CallWithStatus(code, &request, requestBytes, &reply, sizeof(reply));
}

// The first `requestBytes` bytes of a record, to a command that answers with only a status.
template <typename Request>
[[nodiscard]] int CallForStatus(u32 code, const Request& request, std::size_t requestBytes = sizeof(Request)) {
    TNetStatusReply reply;
    return CallWithRecords(code, request, reply, requestBytes);
}

// The same without a record.
[[nodiscard]] inline int CallForStatus(u32 code) {
    TNetStatusReply reply;
    return CallWithStatus(code, nullptr, 0, &reply, sizeof(reply));
}

// The record of an event of one of the kinds from `first` to `last`. TESSEL_E_ARGUMENT for any other event, and
// for null.
template <typename Record>
[[nodiscard]] int ReadEvent(const tessel_event* event, int first, int last, Record* record) {
    if (event == nullptr || record == nullptr || event->kind < first || event->kind > last ||
        event->size != sizeof(*record)) {
        return TESSEL_E_ARGUMENT;
    }
    memcpy(record, event->payload, sizeof(*record));
    return TESSEL_OK;
}

}  // namespace tessel
