// Programs that keep running for an interface, found again among all processes.
#pragma once

#include <sys/types.h>

#include "core/types.h"

namespace tessel {

struct InterfaceProcess {
    const char* pattern;           // what its command line contains
    const char* word;              // one of its words: as a mere part, "eth1" would find what belongs to eth10
    const char* except = nullptr;  // what it does not contain; null: no such condition

    // The first such process; 0 when there is none.
    [[nodiscard]] pid_t Find() const;
    // Sends a signal to `pid` if it still is such a process. Never to 0 or less.
    void Signal(pid_t pid, int signal) const;
    // Ends `pid` with "kill -9" if it still is such a process. 0, or the tool's exit status, or -1.
    [[nodiscard]] i32 Kill(pid_t pid) const;
};

}  // namespace tessel
