#include "client/ctl/files.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>

#include "core/unique_fd.h"

namespace tessel::ctl {

namespace {

// An ordinary user's PATH seldom has the directories where the packet filter's tools are.
std::string FindProgram(const std::string& name) {
    for (const char* directory : {"/usr/sbin/", "/sbin/", "/usr/local/sbin/"}) {
        std::string path = directory + name;
        if (access(path.c_str(), X_OK) == 0) return path;
    }
    return name;
}

// False: not all of it could be written, and errno says why.
bool WriteAll(int fd, std::string_view text) {
    for (ssize_t count = 0; !text.empty(); text.remove_prefix(static_cast<std::size_t>(count))) {
        count = write(fd, text.data(), text.size());
        if (count == 0) errno = ENOSPC;
        if (count <= 0) return false;
    }
    return true;
}

// A file without a name that holds `text`, to be read from its start. Unlike a pipe it takes any amount at once.
UniqueFd Holding(std::string_view text) {
    UniqueFd file(memfd_create("text", MFD_CLOEXEC));
    if (file.IsOpen() && (!WriteAll(file.Get(), text) || lseek(file.Get(), 0, SEEK_SET) != 0)) file.Reset();
    return file;
}

std::string TextOfFile(const UniqueFd& file) {
    lseek(file.Get(), 0, SEEK_SET);
    return ReadToEnd(file.Get()).value_or("");
}

// The first line, where the tools say what is wrong; the next ones advise to read their manual.
std::string ProblemOf(const std::string& name, const std::string& errors) {
    const std::string line = errors.substr(0, errors.find('\n'));
    if (line.empty()) return name + " failed";
    return line.starts_with(name) ? line : name + ": " + line;
}

int Spawn(const std::vector<std::string>& words, const std::array<int, 3>& streams, pid_t& child) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));  // posix_spawn writes to none of them
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int i = 0; i < static_cast<int>(streams.size()); ++i)
        posix_spawn_file_actions_adddup2(&actions, streams[static_cast<std::size_t>(i)], i);
    const int error = posix_spawnp(&child, FindProgram(words[0]).c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return error;
}

}  // namespace

std::optional<std::string> ReadToEnd(int fd) {
    std::string text;
    std::array<char, 4096> block;
    ssize_t count = 0;
    while ((count = read(fd, block.data(), block.size())) > 0)
        text.append(block.data(), static_cast<std::size_t>(count));
    return count < 0 ? std::nullopt : std::optional(std::move(text));
}

std::string ReadWholeFile(std::string_view asked, const std::string& path) {
    const UniqueFd file(path == "-" ? dup(STDIN_FILENO) : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    auto text = file.IsOpen() ? ReadToEnd(file.Get()) : std::nullopt;
    if (!text) throw Refused(asked, Format("cannot read {}: {}", path, strerror(errno)));
    return std::move(*text);
}

void ReplaceFile(std::string_view asked, const std::string& path, const std::string& text) {
    struct stat before = {};
    const bool isThere = stat(path.c_str(), &before) == 0;
    const bool isInPlace = isThere && !S_ISREG(before.st_mode);  // a device or a pipe stays what it is
    const std::unique_ptr<char, decltype(&free)> target(isThere ? realpath(path.c_str(), nullptr) : nullptr, &free);
    const std::string goal = target == nullptr ? path : target.get();  // for a link, the file that it leads to
    std::string name = goal + ".XXXXXX";
    const UniqueFd file(isInPlace ? open(goal.c_str(), O_WRONLY | O_CLOEXEC) : mkostemp(name.data(), O_CLOEXEC));
    constexpr mode_t kNewMode = 0644;
    bool isWritten = file.IsOpen() && WriteAll(file.Get(), text);
    if (isWritten && !isInPlace) {
        (void)!fchown(file.Get(), isThere ? before.st_uid : geteuid(), isThere ? before.st_gid : getegid());
        isWritten = fchmod(file.Get(), isThere ? before.st_mode : kNewMode) == 0 && fsync(file.Get()) == 0 &&
                    rename(name.c_str(), goal.c_str()) == 0;
    }
    if (isWritten) return;
    const int error = errno;
    if (file.IsOpen() && !isInPlace) unlink(name.c_str());
    throw Failed(asked, Format("{}: {}", path, strerror(error)));
}

CapturedTool CaptureTool(const std::vector<std::string>& words, std::string_view input) {
    CapturedTool result;
    const UniqueFd in = Holding(input);
    const UniqueFd out = Holding("");
    const UniqueFd err = Holding("");
    if (!in.IsOpen() || !out.IsOpen() || !err.IsOpen()) {
        result.problem = strerror(errno);
        return result;
    }
    pid_t child = 0;
    const int error = Spawn(words, {in.Get(), out.Get(), err.Get()}, child);
    if (error != 0) {
        result.problem = Format("{}: {}", words[0], strerror(error));
        return result;
    }
    int status = 0;
    result.isDone = waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    result.text = TextOfFile(out);
    if (!result.isDone) result.problem = ProblemOf(words[0], TextOfFile(err));
    return result;
}

}  // namespace tessel::ctl
