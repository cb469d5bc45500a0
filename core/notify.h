// Notifications: an event's code and record, sent to a socket that an application listens on.
#pragma once

#include "core/types.h"
#include "core/wire_record.h"
#include "tessel/ipc.h"

namespace tessel {

// The name of an application's socket, composed by printf's rules. One that is too long is refused when it is sent to.
struct NoticeSocket {
    [[gnu::format(printf, 2, 3)]] explicit NoticeSocket(const char* format, ...);
    char name[TESSEL_SOCKET_PATH_MAX + 1];
};

// Delivers one notification, at most TESSEL_PAYLOAD_MAX bytes. Returns TESSEL_IPC_OK or another result of tessel/ipc.h;
// failures are logged, apart from the sender's own words. Takes up to 8 seconds to connect while nobody accepts; in a
// worker (core/worker.h) it ends as soon as that is asked to end. This is not a failure: nobody waits for it any more.
[[nodiscard]] i32 NotifyBytes(const NoticeSocket& socket, u32 event, const void* data, i32 size);

template <WireRecord Record>
[[nodiscard]] i32 Notify(const NoticeSocket& socket, u32 event, const Record& record) {
    return NotifyBytes(socket, event, &record, sizeof(record));
}

}  // namespace tessel
