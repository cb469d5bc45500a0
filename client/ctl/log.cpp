// The daemon's log: its level and file, the switch for debug lines, and the lines as they come.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "client/ctl/perform.h"
#include "core/unique_fd.h"

namespace tessel::ctl {

namespace {

constexpr char kDebugSwitchFile[] = "/tmp/tesseldebug";
constexpr char kDaemonLog[] = "/tmp/tessel_daemon.log";
constexpr char kSystemLog[] = "/var/log/messages";
constexpr char kDaemonMark[] = "[TESSEL_";  // every line of the daemon has it
constexpr std::size_t kPathMax = sizeof(LogFileCtl::achDaemonPath) - 1;
constexpr std::pair<std::string_view, u32> kLevels[] = {{"off", 0}, {"error", 2}, {"info", 4}, {"debug", 5}};

Outcome SetLevel(const Invocation& invocation) {
    const u32* number = invocation.words.If<u32>("LEVEL");
    const std::string word = invocation.words.Text("LEVEL");
    const auto* const named =
        std::find_if(std::begin(kLevels), std::end(kLevels), [&](const auto& level) { return level.first == word; });
    const u32 level = number != nullptr ? *number : named->second;
    return Perform(invocation, {.send = [&] { return tessel_log_level_set(static_cast<i32>(level)); },
                                .read =
                                    [&] {
                                        return Json{{"level", level}};
                                    },
                                .done = Format("log level {} (it cannot be read back)", level)});
}

// Seen through the daemon's own root directory, which may be another.
bool IsMissingForDaemon(const std::string& path) {
    struct stat status {};
    const std::string root = Format("/proc/{}/root", tessel_daemon_pid());
    if (stat((root + "/").c_str(), &status) != 0) return false;
    return stat((root + path).c_str(), &status) != 0 && errno == ENOENT;
}

Outcome SetFile(const Invocation& invocation) {
    const std::string path = invocation.words.Text("TARGET");
    if (path == "off") {
        return Perform(invocation, {.send = [] { return tessel_log_file(TESSEL_LOG_CLOSE_DAEMON, nullptr, nullptr); },
                                    .read =
                                        [] {
                                            return Json{{"file", nullptr}};
                                        },
                                    .done = "no log file any more"});
    }
    if (!path.starts_with('/'))
        throw Refused(invocation.asked, "the daemon has a directory of its own: give the whole path");
    if (path.size() > kPathMax) throw Refused(invocation.asked, Format("longer than {} characters", kPathMax));
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && status.st_size > 0) {
        Agree(invocation, Format("Empty {} ({} bytes)", path, status.st_size),
              Format("the file has {} bytes and would be emptied", status.st_size));
    }
    return Perform(invocation,
                   {.send = [&] { return tessel_log_file(TESSEL_LOG_OPEN_DAEMON, nullptr, path.c_str()); },
                    .cause = [] { return "the daemon cannot create the file"; },
                    .read =
                        [&] {
                            return Json{{"file", IsMissingForDaemon(path) ? Json() : Json(path)}};
                        },
                    .wrong = [](const Json& now) { return now["file"].is_null() ? "there is no such file" : ""; },
                    .done = "the daemon logs to " + path});
}

// A file of this side: the daemon is not asked.
Outcome SetDebug(const Invocation& invocation) {
    const bool isOn = invocation.words.Text("SWITCH") == "on";
    Outcome outcome;
    outcome.document = {{"debug", isOn}, {"file", kDebugSwitchFile}};
    outcome.done = isOn ? "every program that uses libtessel logs everything" : "debug lines are off";
    if (invocation.options.dryRun) {
        outcome.planned = {Format("{} {}", isOn ? "creates" : "removes", kDebugSwitchFile)};
        return outcome;
    }
    // The directory is everybody's: a link that somebody put there is not followed.
    const UniqueFd file(isOn ? open(kDebugSwitchFile, O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0644) : -1);
    const bool isDone = isOn ? file.IsOpen() : unlink(kDebugSwitchFile) == 0 || errno == ENOENT;
    if (!isDone) throw Failed(invocation.asked, strerror(errno));
    return outcome;
}

// A log that grows, is emptied, or makes room for another file of its name.
class GrowingLog {
  public:
    GrowingLog(std::string path, bool onlyDaemon) : path_(std::move(path)), onlyDaemon_(onlyDaemon) {}

    [[nodiscard]] bool Open() {
        file_.reset(fopen(path_.c_str(), "re"));
        line_.clear();
        return file_ != nullptr && fstat(fileno(file_.get()), &opened_) == 0;
    }
    void GoToEnd() {
        fseek(file_.get(), 0, SEEK_END);
    }
    void PrintNewLines(std::FILE* out) {
        struct stat now {};
        const bool isThere = stat(path_.c_str(), &now) == 0;
        const bool isAnother =
            isThere && (file_ == nullptr || now.st_ino != opened_.st_ino || now.st_size < ftell(file_.get()));
        if (isAnother) (void)Open();  // nobody may read it
        if (file_ == nullptr) return;
        clearerr(file_.get());
        for (int c = 0; (c = getc(file_.get())) != EOF;) {
            line_ += static_cast<char>(c);
            if (c != '\n') continue;
            if (!onlyDaemon_ || line_.find(kDaemonMark) != std::string::npos) fputs(line_.c_str(), out);
            line_.clear();
        }
        fflush(out);
    }

  private:
    std::string path_;
    bool onlyDaemon_;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_{nullptr, &fclose};
    struct stat opened_ {};
    std::string line_;  // as far as it has been written
};

// Until a signal ends the process, or nobody reads any more.
Outcome Follow(const Invocation& invocation) {
    constexpr int kPollMs = 200;
    const bool hasOwnLog = access(kDaemonLog, F_OK) == 0;
    const std::string named = invocation.words.Text("FILE");
    const std::string path = !named.empty() ? named : hasOwnLog ? kDaemonLog : kSystemLog;
    Outcome outcome;
    if (invocation.options.dryRun) {
        outcome.planned = {"follows " + path};
        return outcome;
    }
    GrowingLog log(path, path == kSystemLog);
    if (!log.Open()) throw Failed(invocation.asked, Format("{}: {}", path, strerror(errno)));
    // People want what happens from now on of a log that holds everybody's lines, and all of the daemon's own.
    if (path == kSystemLog) log.GoToEnd();
    while (ferror(invocation.out) == 0) {
        log.PrintNewLines(invocation.out);
        poll(nullptr, 0, kPollMs);
    }
    return outcome;
}

constexpr Command kLogCommands[] = {
    Row("level", "LEVEL=off|error|info|debug|N:0-2147483647", &SetLevel, "what the daemon logs", "log level info")
        .Sends(TESSEL_CMD_LOG_LEVEL)
        .More("off is 0, error 2, info 4, debug 5. The level cannot be read back."),
    Row("file", "TARGET=off|PATH", &SetFile, "write the daemon's log to a file as well, or no more",
        "log file /tmp/tessel_daemon.log")
        .Sends(TESSEL_CMD_LOG_FILE)
        .More("An existing file is emptied: asked before on a terminal, --yes in scripts. Closing takes a second."),
    Row("debug", "SWITCH=on|off", &SetDebug,
        "everything into the log at any level, of every program that uses libtessel", "log debug on")
        .More("Creates or removes /tmp/tesseldebug, which every log line looks for."),
    Row("follow", "[FILE]", &Follow, "show the daemon's log as it grows", "log follow")
        .More("/tmp/tessel_daemon.log if it exists, else the daemon's lines of /var/log/messages; until "
              "interrupted."),
};

}  // namespace

extern const Object kLog = {.name = "log", .summary = "the daemon's log", .commands = kLogCommands};

}  // namespace tessel::ctl
