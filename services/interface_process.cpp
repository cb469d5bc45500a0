#include "services/interface_process.h"

#include <csignal>

#include "core/exec.h"

namespace tessel {

namespace {

// Every line this file runs: the program, then its argument vector.
constexpr char kKill[] = "kill kill -9 %d";

}  // namespace

void Signal(const InterfaceProcess& wanted, pid_t pid, int signal) {
    if (wanted.Is(pid)) (void)kill(pid, signal);
}

i32 KillByTool(const InterfaceProcess& wanted, pid_t pid) {
    if (!wanted.Is(pid)) return 0;  // what is to be ended is gone
    CommandLine line;
    return ComposeCommand(line, kKill, pid) ? RunForStatus(line) : -1;
}

}  // namespace tessel
