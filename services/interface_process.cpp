#include "services/interface_process.h"

#include <csignal>

#include "core/exec.h"
#include "core/process.h"

namespace tessel {

namespace {

// Every line this file runs: the program, then its argument vector.
constexpr char kKill[] = "kill kill -9 %d";

// The process may have ended, and its number may now be another's.
bool IsStill(pid_t pid, const InterfaceProcess& wanted) {
    return pid > 0 && IsInterfaceProcess(pid, wanted.pattern, wanted.word, wanted.except);
}

}  // namespace

pid_t InterfaceProcess::Find() const {
    return FindInterfaceProcess(pattern, word, except);
}

void InterfaceProcess::Signal(pid_t pid, int signal) const {
    if (IsStill(pid, *this)) (void)kill(pid, signal);
}

i32 InterfaceProcess::Kill(pid_t pid) const {
    if (!IsStill(pid, *this)) return 0;  // what is to be ended is gone
    CommandLine line;
    return ComposeCommand(line, kKill, pid) ? RunForStatus(line) : -1;
}

}  // namespace tessel
