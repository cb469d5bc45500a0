// What processes have, counted in "/proc", and may have no more of.
#pragma once

#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "core/unique_fd.h"
#include "tests/support/files.h"

namespace tessel::test {

inline std::ptrdiff_t Descriptors(pid_t pid = getpid()) {
    return std::distance(std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd"), {});
}

// While it lives, this process opens nothing more.
struct DescriptorShortage {
    DescriptorShortage() {
        const UniqueFd firstFree(dup(STDERR_FILENO));
        getrlimit(RLIMIT_NOFILE, &usual);
        const rlimit none{.rlim_cur = static_cast<rlim_t>(firstFree.Get()), .rlim_max = usual.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    DescriptorShortage(const DescriptorShortage&) = delete;
    DescriptorShortage& operator=(const DescriptorShortage&) = delete;
    ~DescriptorShortage() {
        setrlimit(RLIMIT_NOFILE, &usual);
    }
    rlimit usual{};
};

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

// A process of the shell, or of a link to it, that has stopped and bears two words in its command line.
struct Process {
    Process(const char* program, const char* word, const char* path = "/bin/sh") {
        const char* const words[] = {strrchr(path, '/') + 1, "-c", "kill -STOP $$", program, word, nullptr};
        EXPECT_EQ(posix_spawn(&pid, path, nullptr, nullptr, const_cast<char**>(words), environ), 0);
        EXPECT_EQ(waitpid(pid, nullptr, WUNTRACED), pid);
    }
    ~Process() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    pid_t pid = 0;
};

}  // namespace tessel::test
