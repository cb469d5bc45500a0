// What underlies everything that runs a tool. core/exec_run.cpp runs it, core/exec_note.cpp only notes what would be
// run: programs link one of the two.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <csignal>

#include "core/call_site.h"
#include "core/exec.h"
#include "core/types.h"

namespace tessel {

// A split line. Nothing in it is owned.
struct Tool {
    const char* file;   // looked up along PATH
    char* const* argv;  // ends with a null
};

// Runs the tool and waits for it. Its exit status, or -1 with a log line when it could not be started or was killed
// here. Without `output`, its output goes where the daemon's goes; `pid` may be null too.
[[nodiscard]] i32 RunTool(const Tool& tool, ToolOutput* output, pid_t* pid);

// How long a tool may run unless its ToolOutput says otherwise: a minute, or less in tests.
extern std::chrono::milliseconds g_toolLimit;

// Starts the tool detached (StartDetached). 0, or -1 with a log line in the name of `where`.
[[nodiscard]] i32 StartTool(const Tool& tool, const sigset_t& blocked, CallSite where);

}  // namespace tessel
