// The call traces of a report.
#pragma once

#include <sys/types.h>
#include <ucontext.h>

namespace sysdbg {

enum TraceMethod : unsigned {
    kTraceExtbl = 1,         // by the unwind library, from the handler's own frame up
    kTraceUnwind = 2,        // without it, from the saved registers up
    kTraceFramePointer = 4,  // along the chain of frame pointers
};

// Loads the unwind library, which cannot be done in a signal handler. Without it "extbl" finds no frames.
void PrepareTraces();

// Appends a trace of up to 50 frames to the report for each of the `methods`. Loads the memory map.
void WriteTraces(const ucontext_t& context, pid_t thread, unsigned methods);

}  // namespace sysdbg
