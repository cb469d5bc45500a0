#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "client/ctl/confirm.h"
#include "client/ctl/handlers.h"
#include "client/ctl/values.h"
#include "client/libtessel.h"
#include "core/unique_fd.h"

namespace tessel::ctl {

namespace {

constexpr char kDebugSwitchFile[] = "/tmp/tesseldebug";
constexpr std::size_t kPathMax = sizeof(LogFileCtl::achDaemonPath) - 1;

struct LevelWord {
    std::string_view word;
    u32 level;
};
constexpr LevelWord kLevels[] = {{"off", 0}, {"error", 2}, {"info", 4}, {"debug", 5}};

std::optional<u32> ParseLevel(const std::string& word) {
    for (const LevelWord& level : kLevels) {
        if (level.word == word) return level.level;
    }
    const auto number = ParseNumber(word);
    return number && *number <= INT32_MAX ? number : std::nullopt;
}

// Opening empties the file: somebody has to have agreed.
std::optional<Failure> AgreeToTruncate(const std::string& asked, const std::string& path, const Options& options) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || status.st_size == 0) return std::nullopt;
    return Agree(asked, fmt::format("Empty {} ({} bytes)", path, status.st_size),
                 fmt::format("the file has {} bytes and would be emptied", status.st_size), options);
}

// Seen through the daemon's own root directory, which may be another.
bool IsMissingForDaemon(const std::string& path) {
    struct stat status {};
    const std::string root = fmt::format("/proc/{}/root", tessel_daemon_pid());
    if (stat((root + "/").c_str(), &status) != 0) return false;
    return stat((root + path).c_str(), &status) != 0 && errno == ENOENT;
}

Outcome CloseLogFile(const std::string& asked) {
    const int error = tessel_log_file(TESSEL_LOG_CLOSE_DAEMON, nullptr, nullptr);
    if (error != TESSEL_OK) return CallFailed(asked, error);
    Outcome outcome;
    outcome.document = {{"file", nullptr}};
    outcome.done = "no log file any more";
    return outcome;
}

}  // namespace

Outcome LogLevel(const Invocation& invocation) {
    const std::string word = invocation.words.Get("LEVEL");
    const std::string asked = "log level " + word;
    const auto level = ParseLevel(word);
    if (!level) return Refused(asked, "a level is a number from 0 to 2147483647");
    const int error = tessel_log_level_set(static_cast<i32>(*level));
    if (error != TESSEL_OK) return CallFailed(asked, error);
    Outcome outcome;
    outcome.document = {{"level", *level}};
    outcome.done = fmt::format("log level {} (it cannot be read back)", *level);
    return outcome;
}

Outcome LogFile(const Invocation& invocation) {
    const std::string path = invocation.words.Get("TARGET");
    const std::string asked = "log file " + path;
    if (path == "off") return CloseLogFile(asked);
    if (!path.starts_with('/')) return Refused(asked, "the daemon has a directory of its own: give the whole path");
    if (path.size() > kPathMax) return Refused(asked, fmt::format("longer than {} characters", kPathMax));
    if (auto failure = AgreeToTruncate(asked, path, invocation.options)) return std::move(*failure);
    const int error = tessel_log_file(TESSEL_LOG_OPEN_DAEMON, nullptr, path.c_str());
    if (error != TESSEL_OK) return CallFailed(asked, error, "the daemon cannot create the file");
    if (IsMissingForDaemon(path)) return NotApplied(asked, "answered success, but there is no such file");
    Outcome outcome;
    outcome.document = {{"file", path}};
    outcome.done = "the daemon logs to " + path;
    return outcome;
}

Outcome LogDebug(const Invocation& invocation) {
    const bool isOn = invocation.words.Get("SWITCH") == "on";
    Outcome outcome;
    outcome.document = {{"debug", isOn}, {"file", kDebugSwitchFile}};
    outcome.done = isOn ? "every program that uses libtessel logs everything" : "debug lines are off";
    if (invocation.options.dryRun) {
        outcome.planned = {fmt::format("{} {}", isOn ? "creates" : "removes", kDebugSwitchFile)};
        return outcome;
    }
    // The directory is everybody's: a link that somebody put there is not followed.
    const UniqueFd file(isOn ? open(kDebugSwitchFile, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644) : -1);
    const bool isDone = isOn ? file.IsOpen() : unlink(kDebugSwitchFile) == 0 || errno == ENOENT;
    if (!isDone) return Failed(fmt::format("log debug {}", isOn ? "on" : "off"), strerror(errno));
    return outcome;
}

}  // namespace tessel::ctl
