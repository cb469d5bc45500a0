#include "core/notify.h"

#include <cstdarg>
#include <cstdio>

#include "core/client_group.h"
#include "core/ipc.h"
#include "core/worker.h"

namespace tessel {

NoticeSocket::NoticeSocket(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(name, sizeof(name), format, arguments);
    va_end(arguments);
}

i32 NotifyBytes(const NoticeSocket& socket, u32 event, const void* data, i32 size) {
    const Worker* const worker = Worker::Current();
    const int stopFd = worker != nullptr ? worker->StopFd() : -1;
    const i32 result = IpcCallbackSend(socket.name, event, data, size, stopFd, &MayBeNotified);
    return worker != nullptr && !worker->IsWanted() ? TESSEL_IPC_OK : result;
}

}  // namespace tessel
