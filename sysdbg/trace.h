// Call traces of the report.
#pragma once

#include <sys/types.h>
#include <ucontext.h>

namespace sysdbg {

enum TraceMethod : unsigned {
    kTraceExtbl = 1,         // the unwind library, from the handler's own frame on
    kTraceUnwind = 2,        // by this module alone, from the saved registers on
    kTraceFramePointer = 4,  // the chain of frame pointers
};

// Loads the unwind library, which inside a signal handler would be too late. Without it "extbl" finds no frames.
void PrepareTraces();

// Appends a trace of up to 50 frames by each of the methods to the report. Loads the memory map.
void WriteTraces(const ucontext_t& context, pid_t thread, unsigned methods);

}  // namespace sysdbg
