// Crash reports as they stand in the daemon's crash files.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tessel::ctl {

struct CrashFrame {
    std::string module;    // path; empty outside of any
    std::string function;  // empty where the module has no symbols
    std::string offset;    // into the function, or into the module
    std::string address;

    // The module without its directory.
    [[nodiscard]] std::string ModuleName() const {
        return module.substr(module.rfind('/') + 1);
    }
};

// What a report was cut short of is empty.
struct CrashReport {
    std::string time;
    std::string signal;  // number
    std::string threadId;
    std::string threadName;
    std::vector<std::string> registers;  // "PC:0x1234"
    // From the faulting function outwards, by the method that got further.
    std::vector<CrashFrame> frames;
};

// A function's name as people wrote it.
[[nodiscard]] std::string Demangled(const std::string& name);

// In the file's order: the newest is the last one.
[[nodiscard]] std::vector<CrashReport> ParseCrashReports(std::string_view text);

}  // namespace tessel::ctl
