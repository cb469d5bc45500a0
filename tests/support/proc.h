// What processes have, counted in "/proc".
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/support/files.h"

namespace tessel::test {

inline std::ptrdiff_t Descriptors(pid_t pid = getpid()) {
    return std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd"), {});
}

// Entries of a folder whose file `file` has `part`, blanks for the ends of words.
inline std::ptrdiff_t CountWith(const std::string& folder, const char* file, const std::string& part) {
    return std::count_if(std::filesystem::directory_iterator(folder), {}, [&](const auto& entry) {
        std::string text = ReadFile(entry.path() / file);
        std::replace(text.begin(), text.end(), '\0', ' ');
        return text.find(part) != std::string::npos;
    });
}

inline std::ptrdiff_t Threads(pid_t pid = getpid(), const std::string& name = "") {
    return CountWith("/proc/" + std::to_string(pid) + "/task", "comm", name);
}

}  // namespace tessel::test
