// The signal handler: who writes the report, and what becomes of the signal.
#pragma once

#include <cstddef>

namespace sysdbg {

// Installs the handler for `count` signals. 0, or -1 when one of them cannot be handled.
int InstallHandler(const int* signals, std::size_t count);

}  // namespace sysdbg
