// The API server: one connection at a time, one request each, on the thread that calls.
#pragma once

#include "core/types.h"

// Serves "api_daemon" with the handlers of g_tIpcApiCommonHead. Returns only when no socket can be made (-1).
i32 IpcApiDaemonInit();
