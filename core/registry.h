// The command registry: which handler serves which command code.
//
// A handler is called on the server's thread with the accepted connection, the code, the payload (behind the header, in
// the server's buffer, which the next request reuses) and the header's payload size (0 to 3072): that much of it was
// sent or is zero; what follows means nothing. It replies itself and does not close the connection. Its result is
// ignored.
#pragma once

#include <glib.h>
#include <semaphore.h>

#include "core/types.h"

using ApiHandler = i32(int fd, u32 type, const void* payload, i32 size);
using IpcApiHandler = ApiHandler*;

struct IpcApiCommonHead {
    GList* list;      // of IpcApiNode, in the order of registration
    sem_t semaphore;  // held for every walk and change of the list
};

struct IpcApiNode {
    u32 type;
    IpcApiHandler handler;
};

// The daemon's registry.
extern IpcApiCommonHead g_tIpcApiCommonHead;

// Makes `head` an empty registry.
void IpcApiInit(IpcApiCommonHead* head);

// Adds a handler at the end. 0, or -1 with a log line when the code has one already (the first stays) or there is no
// memory.
i32 IpcApiRegister(IpcApiCommonHead* head, u32 type, IpcApiHandler handler);

// Removes the code's handler, whichever it is. 0, or -1 with a log line when it has none.
i32 IpcApiUnRegister(IpcApiCommonHead* head, u32 type, IpcApiHandler handler);

// The first node of that code, null when there is none. The registry owns it until it is unregistered.
IpcApiNode* IpcApiFindNode(IpcApiCommonHead* head, u32 type);

// IpcApiRegister on the daemon's registry.
i32 IpcApiRegisterOne(u32 type, IpcApiHandler handler);
