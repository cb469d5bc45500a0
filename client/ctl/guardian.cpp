#include "client/ctl/guardian.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include "client/ctl/files.h"
#include "client/ctl/filter.h"
#include "client/ctl/state.h"

namespace tessel::ctl {

namespace {

// In /tmp for those who may not write to /run.
const char* LockFile() {
    return access("/run", W_OK) == 0 ? "/run/tesselctl-try.lock" : "/tmp/tesselctl-try.lock";
}

// Without what changes by itself: comments and counters. A kernel without rules may have no table to show.
std::optional<std::string> SavedFilter(int family) {
    const CapturedTool tool = CaptureTool({ToolOf(family) + "-save", "-t", "filter"});
    if (!tool.isDone) return std::nullopt;
    std::string text;
    for (std::size_t at = 0; at < tool.text.size();) {
        const std::size_t end = std::min(tool.text.find('\n', at), tool.text.size());
        const std::string line = tool.text.substr(at, end - at);
        if (line.starts_with(':')) {
            text += line.substr(0, line.find('[')) + "[0:0]\n";
        } else if (!line.starts_with('#')) {
            text += line + "\n";
        }
        at = end + 1;
    }
    return text.empty() ? kNoFilterRules : text;
}

void Write(int file, const Json& document) {
    const std::string text = document.dump() + "\n";
    if (ftruncate(file, 0) != 0 || pwrite(file, text.data(), text.size(), 0) < 0)
        syslog(LOG_ERR, "%s", strerror(errno));
}

Json ResultRow(const std::string& setting, bool isAsBefore) {
    return {{"setting", setting},
            {"was", nullptr},
            {"wanted", nullptr},
            {"now", nullptr},
            {"result", isAsBefore ? "as before" : "not as before"}};
}

// A row for each setting that was changed, as BringTo makes it.
Json TakeBack(const Invocation& outer, const Saved& saved, std::vector<std::string>& problems) {
    Json rows = Json::array();
    for (const auto& [family, text] : saved.filters) {
        if (SavedFilter(family) == text) continue;
        (void)CaptureTool({ToolOf(family) + "-restore"}, text);
        rows.push_back(ResultRow("firewall " + FamilyName(family), SavedFilter(family) == text));
    }
    // A daemon that is being restarted is waited for.
    constexpr int kTries = 30;
    for (int i = 0; i < kTries; ++i) {
        try {
            const Json others = BringTo(saved.state, outer, {"--yes", "--force"}, "before", problems);
            rows.insert(rows.end(), others.begin(), others.end());
            return rows;
        } catch (const Failure& failure) {
            problems = {failure.message};
            sleep(1);
        }
    }
    rows.push_back(ResultRow("everything else", false));
    return rows;
}

// The guardian's life, in a process of its own.
void Guard(const Invocation& outer, const Saved& saved, u32 seconds, int file, Json document) {
    constexpr timespec kLook{.tv_sec = 0, .tv_nsec = 100'000'000};
    sigset_t orders;
    sigemptyset(&orders);
    for (const int order : {Guardian::kKeep, Guardian::kTakeBack, Guardian::kBegin})
        sigaddset(&orders, order);
    auto deadline = Clock::now() + std::chrono::milliseconds(outer.options.timeoutMs) + std::chrono::seconds(seconds);
    int order = 0;
    while (order != Guardian::kKeep && order != Guardian::kTakeBack && Clock::now() < deadline) {
        order = sigtimedwait(&orders, nullptr, &kLook);
        if (order != Guardian::kBegin) continue;
        deadline = Clock::now() + std::chrono::seconds(seconds);
        document["state"] = "waiting";
        document["until"] = JsonTime(std::chrono::system_clock::now() + std::chrono::seconds(seconds));
        Write(file, document);
    }
    document["state"] = "ending";
    Write(file, document);
    std::vector<std::string> problems;
    document["state"] = order == Guardian::kKeep ? kKept : kTakenBack;
    document["results"] = order == Guardian::kKeep ? Json::array() : TakeBack(outer, saved, problems);
    document["problems"] = problems;
    Write(file, document);
    if (order != Guardian::kKeep) {
        syslog(LOG_NOTICE, "%s: taken back, %s", TextOf(document, "command").c_str(),
               IsAllAs(document["results"]) ? "everything is as before" : "not everything is as before");
    }
    (void)unlink(LockFile());
}

// Keeps the lock alone of what this process has open.
void Detach(int file) {
    const int nowhere = open("/dev/null", O_RDWR);
    for (int fd = 0; fd <= STDERR_FILENO; ++fd)
        (void)dup2(nowhere, fd);
    constexpr int kFdsMax = 1024;
    for (int fd = STDERR_FILENO + 1; fd < kFdsMax; ++fd) {
        if (fd != file) (void)close(fd);
    }
    openlog("tesselctl", LOG_PID, LOG_DAEMON);
}

}  // namespace

Saved SaveSettings(const std::string& asked) {
    Saved saved{.state = ReadState(asked), .filters = {}};
    for (const int family : {TESSEL_FAMILY_INET, TESSEL_FAMILY_INET6}) {
        if (const auto text = SavedFilter(family)) saved.filters.emplace_back(family, *text);
    }
    return saved;
}

std::optional<Guardian> Guardian::Find() {
    Guardian guardian(open(LockFile(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    const bool isOwn = fstat(guardian.file_.Get(), &status) == 0 && status.st_uid == geteuid();
    if (!isOwn) return std::nullopt;
    if (guardian.IsOver()) {
        (void)unlink(LockFile());  // a dead one's
        return std::nullopt;
    }
    guardian.Read();
    return guardian;
}

Guardian Guardian::Start(const Invocation& outer, const Saved& saved, u32 seconds, const std::string& command) {
    if (const auto other = Find()) {
        throw Refused(outer.asked, Format("\"{}\" waits to be confirmed (tesselctl try confirm, or try cancel)",
                                          TextOf(other->Document(), "command")));
    }
    UniqueFd file(open(LockFile(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!file.IsOpen() || flock(file.Get(), LOCK_EX | LOCK_NB) != 0)
        throw Failed(outer.asked, Format("{}: {}", LockFile(), strerror(errno)));
    (void)fflush(nullptr);
    sigset_t all;
    sigset_t previous;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &previous);  // what is sent to the guardian before it looks is not lost
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        const pid_t grandchild = fork();
        Json document{{"pid", grandchild}, {"command", command}, {"state", "running"}, {"until", nullptr}};
        if (grandchild != 0) {
            Write(file.Get(), document);
            _exit(grandchild < 0 ? kExitFailed : kExitDone);
        }
        document["pid"] = getpid();
        Detach(file.Get());
        Guard(outer, saved, seconds, file.Get(), document);
        _exit(kExitDone);
    }
    int status = -1;
    if (child > 0) (void)waitpid(child, &status, 0);
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    file.Reset();
    auto guardian = status == 0 ? Find() : std::nullopt;
    if (!guardian) throw Failed(outer.asked, "no process can be started that would take it back");
    return std::move(*guardian);
}

void Guardian::Send(Order order) const {
    if (!IsOver()) (void)kill(static_cast<pid_t>(NumberOf(document_, "pid")), order);
}

bool Guardian::IsOver() const {
    return flock(file_.Get(), LOCK_SH | LOCK_NB) == 0;
}

const Json& Guardian::LastDocument() {
    constexpr int kPollMs = 50;
    while (!IsOver())
        poll(nullptr, 0, kPollMs);
    Read();
    return document_;
}

void Guardian::Read() {
    char text[65536];
    const ssize_t count = pread(file_.Get(), text, sizeof(text), 0);
    document_ = Json::parse(text, text + std::max<ssize_t>(count, 0), nullptr, false);
}

}  // namespace tessel::ctl
