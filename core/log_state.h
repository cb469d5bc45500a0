// State that the log forms read and log control writes.
#pragma once

#include <atomic>
#include <cstdio>
#include <mutex>

#include "core/types.h"

// The two log files, null while closed. Guarded by tessel::g_logFileLock.
extern std::FILE* pLogLibFd;
extern std::FILE* pLogDaemonFd;

// 1 while the file is to be written. Read before the lock is taken, so that a closed file costs a line nothing;
// relaxed, because the lock orders everything else.
extern std::atomic<i32> nLogLibFlag;
extern std::atomic<i32> nLogDaemonFlag;

namespace tessel {

// The threshold. Relaxed: a line may still follow the old level while the level is being changed.
extern std::atomic<i32> g_logLevel;

// Held while a line is written to a file and while a file is opened or closed: no line meets a closed file.
extern std::mutex g_logFileLock;

}  // namespace tessel
