// Shows a growing log: of its own, or the daemon's lines in the system's.
#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>

#include "client/ctl/handlers.h"

namespace tessel::ctl {

namespace {

constexpr char kDaemonLog[] = "/tmp/tessel_daemon.log";
constexpr char kSystemLog[] = "/var/log/messages";
constexpr char kDaemonMark[] = "[TESSEL_";  // every line of the daemon has it
constexpr int kPollMs = 200;

struct Position {
    ino_t inode = 0;
    off_t size = 0;
};

std::optional<Position> PositionOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return Position{.inode = status.st_ino, .size = status.st_size};
}

void PrintNewLines(std::ifstream& file, std::string& unfinished, bool onlyDaemon, std::FILE* out) {
    char block[4096];
    file.clear();
    while (file.read(block, sizeof(block)) || file.gcount() > 0) {
        unfinished.append(block, static_cast<std::size_t>(file.gcount()));
        file.clear();
        for (std::size_t end = unfinished.find('\n'); end != std::string::npos; end = unfinished.find('\n')) {
            const std::string line = unfinished.substr(0, end + 1);
            unfinished.erase(0, end + 1);
            if (!onlyDaemon || line.find(kDaemonMark) != std::string::npos) fmt::print(out, "{}", line);
        }
    }
    fflush(out);
}

// Until a signal ends the process, or nobody reads any more.
Outcome Follow(const std::string& path, bool onlyDaemon, std::FILE* out) {
    std::ifstream file(path);
    if (!file) return Failed("log follow " + path, strerror(errno));
    auto seen = PositionOf(path);
    std::string unfinished;
    // People want what happens from now on of a log that holds everybody's lines, and all of the daemon's own.
    if (onlyDaemon) file.seekg(0, std::ios::end);
    while (ferror(out) == 0) {
        PrintNewLines(file, unfinished, onlyDaemon, out);
        poll(nullptr, 0, kPollMs);
        const auto now = PositionOf(path);
        if (!now) continue;
        // Opening a log empties it, and rotation puts another file in its place.
        if (!seen || now->inode != seen->inode || now->size < seen->size) {
            file.close();
            file.open(path);
            unfinished.clear();
        }
        seen = now;
    }
    return {};
}

}  // namespace

Outcome LogFollow(const Invocation& invocation) {
    const bool hasOwnLog = PositionOf(kDaemonLog).has_value();
    const std::string path = invocation.words.Find("FILE").value_or(hasOwnLog ? kDaemonLog : kSystemLog);
    if (!invocation.options.dryRun) return Follow(path, path == kSystemLog, invocation.out);
    Outcome outcome;
    outcome.planned = {"follows " + path};
    return outcome;
}

}  // namespace tessel::ctl
