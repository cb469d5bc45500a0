// A thread that calls a function on request, for developers who look into a running program.
//
// It waits on a System V message queue for the address of a function and calls it. That gives whoever may write to the
// queue the power over the process that a debugger has: the queue is the process's own user's, and one that others
// could write to is not used. The thread belongs to the process that initialised crash diagnostics and ends with it. A
// daemon that forks afterwards goes on without it: there it serves the start alone.
#pragma once

namespace sysdbg {

// Starts the detached thread unless it was started before. Does nothing when there is no private queue to be had.
void StartDebugThread();

// Has the debug thread of a process of this program and user call function(). True when the request was sent.
bool SendToDebugThread(void (*function)());

}  // namespace sysdbg
