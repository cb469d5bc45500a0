// Finding processes in "/proc". `dir` ends with '/' (callers pass "/proc/").
//
// The first three return the pid of the first match, 0 when none matches, -1 with a log line when `dir` cannot be read.
#pragma once

#include <sys/types.h>

#include "core/types.h"

// The process whose command name (the first line of its status file) contains `name`.
i32 GetServicePid(const char* dir, const char* name);

// The process whose command line contains `name` and, unless it is null, `name2`. Words are joined by blanks; 999 bytes
// are looked at.
i32 GetServicePidFromCmdline(const char* dir, const char* name, const char* name2);

// The same, leaving out command lines that contain `except`; -1 when that is null.
i32 GetServicePidFromCmdline2(const char* dir, const char* name, const char* name2, const char* except);

namespace tessel {

// A program that keeps running for an interface, found again among all processes. Its texts are not owned.
struct InterfaceProcess {
    const char* pattern;           // what its command line contains
    const char* word;              // one of its words: as a mere part, "eth1" would find what belongs to eth10
    const char* except = nullptr;  // what it does not contain; null: no such condition

    // The first such process; 0 when there is none or `word` is empty.
    [[nodiscard]] pid_t Find() const;
    // True if `pid` still is such a process: it may have ended, and its number may now be another's.
    [[nodiscard]] bool Is(pid_t pid) const;
};

// The process that is called `program`, whatever its command line says, and has `word` as one of its words there; 0
// when there is none.
[[nodiscard]] i32 FindProgram(const char* program, const char* word);

}  // namespace tessel

// 1 when the command name of process `pid` contains `name`, 0 when it does not, or with a log line when there is no
// such process; -1 with a log line when that cannot be found out.
i32 CheckCmdByPid(i32 pid, const char* name);
