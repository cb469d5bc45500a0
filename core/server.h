// The API server: one connection at a time, one request each, on the thread that calls.
#pragma once

#include "core/types.h"

// Serves "api_daemon" with the handlers of g_tIpcApiCommonHead. Returns only when this system has no such sockets (-1):
// a shortage of descriptors or memory is waited out.
i32 IpcApiDaemonInit();
