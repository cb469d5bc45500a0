// A child process that crashes, and what it leaves behind.
#pragma once

#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "sysdbg/sysdbg.h"
#include "tests/support/files.h"

namespace tessel::test {

inline constexpr char kCrashFile[] = "/tmp/crash";

struct CrashResult {
    pid_t process;
    int status;
    std::string report;
};

// Runs `crash` in a child that has crash diagnostics installed.
inline CrashResult Crash(const std::function<void()>& crash, const char* crashFile = kCrashFile) {
    for (const char* path : {"/tmp/crash.0", "/tmp/crash.1"})
        std::filesystem::remove(path);
    CrashResult result{.process = fork(), .status = 0, .report = ""};
    if (result.process == 0) {
        alarm(60);
        if (SysdbgInit(nullptr, crashFile, 2 * 512, kSysdbgNoDebugThread) == 0) crash();
        _exit(111);
    }
    waitpid(result.process, &result.status, 0);
    result.report = ReadFile("/tmp/crash.0");
    return result;
}

// The text between two others; empty when one is missing.
inline std::string Between(const std::string& text, const std::string& begin, const std::string& end) {
    const std::size_t from = text.find(begin);
    const std::size_t to = text.find(end, from == std::string::npos ? from : from + begin.size());
    if (from == std::string::npos || to == std::string::npos) return "";
    return text.substr(from + begin.size(), to - from - begin.size());
}

}  // namespace tessel::test
