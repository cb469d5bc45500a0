// What a crash report says, in its order.
#pragma once

#include <ucontext.h>

namespace sysdbg {

// Writes the report of `signal`, which found the calling thread in `context`. Runs in the signal handler; one thread at
// a time.
void WriteReport(int signal, const ucontext_t& context);

}  // namespace sysdbg
