#include "client/ctl/tool_output.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "core/unique_fd.h"

namespace tessel::ctl {

namespace {

// An ordinary user's PATH seldom has the directories where the packet filter's tools lie.
std::string FindProgram(const std::string& name) {
    for (const char* directory : {"/usr/sbin/", "/sbin/", "/usr/local/sbin/"}) {
        std::string path = directory + name;
        if (access(path.c_str(), X_OK) == 0) return path;
    }
    return name;
}

std::string ReadAll(int fd) {
    std::string text;
    std::array<char, 4096> buffer;
    for (ssize_t count = 0; (count = read(fd, buffer.data(), buffer.size())) > 0;)
        text.append(buffer.data(), static_cast<std::size_t>(count));
    return text;
}

int Spawn(const std::vector<std::string>& words, int outputFd, pid_t& child) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));  // posix_spawn writes to none of them
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, outputFd, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const int error = posix_spawnp(&child, FindProgram(words[0]).c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

}  // namespace

CapturedTool CaptureTool(const std::vector<std::string>& words) {
    CapturedTool result;
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        result.problem = strerror(errno);
        return result;
    }
    const UniqueFd reader(ends[0]);
    UniqueFd writer(ends[1]);
    pid_t child = 0;
    const int error = Spawn(words, writer.Get(), child);
    if (error != 0) {
        result.problem = fmt::format("{}: {}", words[0], strerror(error));
        return result;
    }
    writer.Reset();
    result.text = ReadAll(reader.Get());
    int status = 0;
    result.isDone = waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (!result.isDone) {
        result.problem = fmt::format("{} failed{}", words[0], geteuid() == 0 ? "" : " (only root can read the rules)");
    }
    return result;
}

}  // namespace tessel::ctl
