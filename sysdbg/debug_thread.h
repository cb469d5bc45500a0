// A thread that calls a function on request, for developers who look into a running program.
//
// It waits on a System V message queue for the address of a function and calls it. Whoever may write to the queue has a
// debugger's power over the process: the queue belongs to its user, and one that others may write to is not used. The
// thread ends with the process that initialised crash diagnostics. A daemon that forks afterwards continues without it:
// its thread serves only the start-up.
#pragma once

namespace sysdbg {

// Starts the detached thread unless it was started before. Requests that are already in the queue are dropped: they
// were meant for another process, to which their addresses belong. Does nothing when no private queue is available.
void StartDebugThread();

// Makes the debug thread of a process of this program and user call function(). True when the request was sent.
bool SendToDebugThread(void (*function)());

}  // namespace sysdbg
