// The daemon's log: its level and file, the switch for debug lines, the lines as they come, those of one command.
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "client/ctl/files.h"
#include "client/ctl/output.h"
#include "client/ctl/perform.h"
#include "client/ctl/tesselctl.h"
#include "client/ctl/watch.h"
#include "core/unique_fd.h"

namespace tessel::ctl {

namespace {

constexpr char kDebugSwitchFile[] = "/tmp/tesseldebug";
// The daemon's own, and those of the system, of which it has some lines.
constexpr const char* kLogs[] = {"/tmp/tessel_daemon.log", "/var/log/messages", "/var/log/syslog"};
constexpr char kDaemonMark[] = "[TESSEL_";  // every line of the daemon has it
constexpr std::size_t kPathMax = sizeof(LogFileCtl::achDaemonPath) - 1;
constexpr std::pair<std::string_view, u32> kLevels[] = {{"off", 0}, {"error", 2}, {"info", 4}, {"debug", 5}};

Outcome SetLevel(const Invocation& invocation) {
    const u32* number = invocation.words.If<u32>("LEVEL");
    u32 level = number != nullptr ? *number : 0;
    for (const auto& [name, value] : kLevels)
        if (name == invocation.words.Text("LEVEL")) level = value;
    const auto read = [&] { return Json{{"level", level}}; };
    return Perform(invocation, {.send = [&] { return tessel_log_level_set(static_cast<i32>(level)); },
                                .read = read,
                                .done = Format("log level {} (it cannot be read back)", level)});
}

// Seen through the daemon's own root directory, which may be a different one.
bool IsMissingForDaemon(const std::string& path) {
    const std::string root = Format("/proc/{}/root", tessel_daemon_pid());
    if (access((root + "/").c_str(), F_OK) != 0) return false;
    return access((root + path).c_str(), F_OK) != 0 && errno == ENOENT;
}

Outcome SetFile(const Invocation& invocation) {
    const std::string path = invocation.words.Text("TARGET");
    const bool isOff = path == "off";
    if (!isOff && !path.starts_with('/'))
        throw Refused(invocation.asked, "the daemon has a directory of its own: give the whole path");
    if (path.size() > kPathMax) throw Refused(invocation.asked, Format("longer than {} characters", kPathMax));
    struct stat status {};
    if (!isOff && stat(path.c_str(), &status) == 0 && status.st_size > 0)
        Agree(invocation, Format("Empty {} ({} bytes)", path, status.st_size),
              Format("the file has {} bytes and would be emptied", status.st_size));
    Change change;
    change.send = [&] {
        return isOff ? tessel_log_file(TESSEL_LOG_CLOSE_DAEMON, nullptr, nullptr)
                     : tessel_log_file(TESSEL_LOG_OPEN_DAEMON, nullptr, path.c_str());
    };
    change.cause = [&] { return isOff ? "" : "the daemon cannot create the file"; };
    change.read = [&] { return Json{{"file", isOff || IsMissingForDaemon(path) ? Json() : Json(path)}}; };
    change.wrong = [&](const Json& now) { return !isOff && now["file"].is_null() ? "there is no such file" : ""; };
    change.done = isOff ? "no log file any more" : "the daemon logs to " + path;
    return Perform(invocation, change);
}

// A file of this side: the daemon is not asked.
Outcome SetDebug(const Invocation& invocation) {
    const bool isOn = invocation.words.Text("SWITCH") == "on";
    Outcome outcome{.document = {{"debug", isOn}, {"file", kDebugSwitchFile}}};
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

// Of "[TESSEL_PRT]:PID[7]:TID[7]:[GatewaySet](88): remove the ipv4 gateway!" or "[TESSEL_DBG]PID[7]TID[7]:[...".
Json LineJson(const std::string& line) {
    char kind[16] = "";
    char function[64] = "";
    int text = 0;
    (void)sscanf(line.c_str(), "[TESSEL_%15[A-Z]]%*[^T]TID[%*d]:[%63[^]]](%*d): %n", kind, function, &text);
    return {{"kind", kind}, {"function", function}, {"text", line.substr(static_cast<std::size_t>(text))}};
}

// Until a signal ends the process, or nobody reads any more.
Outcome Follow(const Invocation& invocation) {
    constexpr int kPollMs = 200;
    constexpr off_t kTailBytes = 65536;
    std::string path = invocation.words.Text("FILE");
    for (const char* log : kLogs)
        if (path.empty() && access(log, R_OK) == 0) path = log;
    if (path.empty())
        throw Failed(invocation.asked, Format("cannot read {} (name a FILE, or use journalctl -f -t tessel_daemon)",
                                              Joined(kLogs, ", ")));
    const bool isSystems = std::find(kLogs + 1, std::end(kLogs), path) != std::end(kLogs);
    if (invocation.options.dryRun) return {.document = nullptr, .planned = {"follows " + path}};
    if (access(path.c_str(), R_OK) != 0) throw Failed(invocation.asked, Format("{}: {}", path, strerror(errno)));
    struct stat seen {};  // of the log as far as it was read
    // The whole lines that are new in a log that grows, is emptied, or makes room for another file of its name.
    const auto newLines = [&] {
        struct stat now {};
        const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
        if (fstat(file.Get(), &now) != 0) return std::string();
        const bool isAnother = now.st_ino != seen.st_ino || now.st_size < seen.st_size;
        const bool isCut = seen.st_ino == 0 && now.st_size > kTailBytes;
        const off_t from = isCut ? now.st_size - kTailBytes : seen.st_size;
        now.st_size = lseek(file.Get(), isAnother && !isCut ? 0 : from, SEEK_SET);
        std::string text = ReadToEnd(file.Get()).value_or("");
        text.erase(text.rfind('\n') + 1);
        now.st_size += static_cast<off_t>(text.size());
        seen = now;
        return isCut ? text.substr(text.find('\n') + 1) : text;
    };
    // What has just happened, and then everything.
    for (std::ptrdiff_t most = 10; ferror(invocation.out) == 0; most = PTRDIFF_MAX) {
        const std::string text = newLines();
        std::vector<std::string_view> lines = Split(text, '\n');
        if (!lines.empty()) lines.pop_back();  // behind the last line's end
        std::erase_if(lines, [&](auto line) { return isSystems && line.find(kDaemonMark) == line.npos; });
        lines.erase(lines.begin(), lines.end() - std::min(std::ssize(lines), most));
        for (const std::string_view line : lines) {
            Json document{{"line", line}};
            document.update(LineJson(std::string(line.substr(std::min(line.find(kDaemonMark), line.size())))));
            ShowLine(invocation, {.document = document, .line = std::string(line), .text = {}});
        }
        poll(nullptr, 0, kPollMs);
    }
    return {};
}

constexpr Command kLogCommands[] = {
    Row("level", "LEVEL=off|error|info|debug|N:0-2147483647", &SetLevel, "what the daemon logs", "log level info")
        .Sends(TESSEL_CMD_LOG_LEVEL)
        .More("off is 0, error 2, info 4, debug 5. The level cannot be read back."),
    Row("file", "TARGET=off|PATH", &SetFile, "start or stop writing the daemon's log to a file as well",
        "log file /tmp/tessel_daemon.log")
        .Sends(TESSEL_CMD_LOG_FILE)
        .More("An existing file is emptied: asks first on a terminal, needs --yes in scripts. Closing takes a second."),
    Row("debug", "SWITCH=on|off", &SetDebug, "log everything, whatever the level, in every program that uses libtessel",
        "log debug on")
        .More("Creates or removes /tmp/tesseldebug, which every log line looks for."),
    Row("follow", "[FILE]", &Follow, "show the end of the daemon's log, and new lines as they come", "log follow")
        .More("Reads /tmp/tessel_daemon.log, else the daemon's lines in /var/log/messages or /var/log/syslog; starts "
              "with the last 10 (of 64 KiB)."),
};

// The lines of a log; text may span several. How requests come in and answers go out is left out.
Json LinesOf(std::string_view log) {
    Json lines = Json::array();
    while (!log.empty()) {
        const std::size_t end = std::min(log.find("\n[TESSEL_"), log.size() - 1);
        const Json line = LineJson(std::string(log.substr(0, end)));
        if (!TextOf(line, "function").starts_with("Ipc")) lines.push_back(line);
        log.remove_prefix(end + 1);
    }
    return lines;
}

Outcome TraceCommand(const Invocation& invocation) {
    const std::string& asked = invocation.asked;
    const auto arguments = invocation.words.All<std::string>("COMMAND");
    (void)ParseWords(ParseOptions(arguments).words);
    char directory[] = "/tmp/tesselctl-trace.XXXXXX";
    if (mkdtemp(directory) == nullptr) throw Failed(asked, strerror(errno));
    const std::string path = std::string(directory) + "/log";
    const HeldSignals signals;  // everything is put back first
    Outcome outcome;
    std::string log;
    int error = tessel_log_file(TESSEL_LOG_OPEN_DAEMON, nullptr, path.c_str());
    const int systemError = errno;
    if (error == TESSEL_OK) {
        error = tessel_log_level_set(5);  // everything
        outcome = RunInner(arguments, invocation);
    }
    if (const int signal = signals.Take(); signal != 0) outcome = {.document = nullptr, .signal = signal};
    if (error == TESSEL_OK || error == TESSEL_E_TIMEOUT) {  // without an answer it may still be carried out
        (void)tessel_log_level_set(2);                      // the level of a daemon that was just started
        (void)tessel_log_file(TESSEL_LOG_CLOSE_DAEMON, nullptr, nullptr);
        if (access(path.c_str(), R_OK) == 0) log = ReadWholeFile(asked, path);
    }
    (void)unlink(path.c_str());
    (void)rmdir(directory);
    errno = systemError;
    if (outcome.signal == 0) Require(asked, error);
    if (invocation.options.dryRun) return outcome;
    const Json lines = LinesOf(log);
    outcome.text = RenderTable(lines, " {kind}| {function}| {text}", false, false) +
                   (outcome.done.empty() ? outcome.text : outcome.done + "\n");
    outcome.document = {{"lines", lines}, {"outcome", outcome.document}};
    outcome.notes.emplace_back(
        "the log level is 2 now: it cannot be read back. The daemon's log file is closed (see \"log file\")");
    return outcome;
}

constexpr Command kTraceCommands[] = {
    Row("", "COMMAND...", &TraceCommand, "run a command and show what the daemon logs for it",
        "trace -- addr add 192.168.1.21/24 dev eth0")
        .Sends(TESSEL_CMD_LOG_LEVEL, TESSEL_CMD_LOG_FILE)
        .More("Shows other programs' requests as well. The command's own --dry-run shows the tools it would run."),
};

}  // namespace

extern const Object kLog = {.name = "log", .summary = "the daemon's log", .commands = kLogCommands};

extern const Object kTrace = {
    .name = "trace", .summary = "what the daemon runs and logs for a command", .commands = kTraceCommands};

}  // namespace tessel::ctl
