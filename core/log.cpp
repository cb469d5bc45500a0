#include "core/log.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>

#include "core/folder_watch.h"
#include "core/log_state.h"
#include "core/unique_fd.h"
#include "core/wait.h"

std::FILE* pLogLibFd = nullptr;
std::FILE* pLogDaemonFd = nullptr;
std::atomic<i32> nLogLibFlag{0};
std::atomic<i32> nLogDaemonFlag{0};

namespace tessel {

std::atomic<i32> g_logLevel{2};
std::mutex g_logFileLock;

namespace {

// A switch file and, while its thread holds a LogSwitchMemory, whether it was there when last looked up.
struct LogSwitch {
    const char* path;
    bool exists = false;
    u64 seenAtTick = 0;  // 0: not seen yet
};
thread_local LogSwitch t_consoleSwitch{.path = "/tmp/tessellog"};
thread_local LogSwitch t_debugSwitch{.path = "/tmp/tesseldebug"};
thread_local bool t_remembersSwitches = false;
thread_local FolderWatch* t_switchWatch = nullptr;  // may be null
thread_local u64 t_watchedAtTick = 0;               // when it was asked; 0: not in this LogSwitchMemory's time
thread_local LogLimit* t_limit = nullptr;

constexpr i32 kErrorAbove = 1;
constexpr i32 kPrintAbove = 3;
constexpr i32 kDebugAbove = 4;

class ErrnoKeeper {
  public:
    ErrnoKeeper() = default;
    ~ErrnoKeeper() {
        errno = saved_;
    }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

  private:
    int saved_ = errno;
};

struct Line {
    char prefix[256];
    const char* message;
};

// Milliseconds of a clock that is read without entering the kernel and advances with the kernel's ticks. Never 0.
u64 CurrentTick() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<u64>(now.tv_sec) * 1000 + static_cast<u64>(now.tv_nsec) / 1000000 + 1;
}

void ForgetSwitches() {
    t_consoleSwitch.seenAtTick = 0;
    t_debugSwitch.seenAtTick = 0;
}

bool IsOn(LogSwitch& logSwitch) {
    if (!t_remembersSwitches) return access(logSwitch.path, F_OK) == 0;
    const u64 tick = CurrentTick();
    if (t_switchWatch != nullptr && t_watchedAtTick != tick) {
        if (!t_switchWatch->IsUnchanged(tick)) ForgetSwitches();
        t_watchedAtTick = tick;
    }
    const bool isKnown = t_switchWatch != nullptr ? logSwitch.seenAtTick != 0 : logSwitch.seenAtTick == tick;
    if (!isKnown) {
        logSwitch.exists = access(logSwitch.path, F_OK) == 0;
        logSwitch.seenAtTick = tick;
    }
    return logSwitch.exists;
}

bool LevelReaches(LogKind kind) {
    const i32 level = g_logLevel.load(std::memory_order_relaxed);
    switch (kind) {
        case LogKind::kError:
            return level > kErrorAbove;
        case LogKind::kPrint:
            return level > kPrintAbove;
        case LogKind::kDebug:
            return level > kDebugAbove;
    }
    return false;
}

int SyslogPriority(LogKind kind) {
    switch (kind) {
        case LogKind::kError:
            break;
        case LogKind::kPrint:
            return LOG_LOCAL6 | LOG_INFO;
        case LogKind::kDebug:
            return LOG_LOCAL6 | LOG_DEBUG;
    }
    return LOG_LOCAL6 | LOG_ERR;
}

// The tags differ in their colons; readers of the log match them as they are.
void ComposePrefix(Line& line, LogKind kind, CallSite where) {
    const int processId = getpid();
    const long threadId = syscall(SYS_gettid);
    switch (kind) {
        case LogKind::kError:
            snprintf(line.prefix, sizeof(line.prefix), "[TESSEL_ERR]:PID[%d]:TID[%ld]:[%s](%d): ", processId, threadId,
                     where.function, where.line);
            break;
        case LogKind::kPrint:
            snprintf(line.prefix, sizeof(line.prefix), "[TESSEL_PRT]:PID[%d]:TID[%ld]:[%s](%d): ", processId, threadId,
                     where.function, where.line);
            break;
        case LogKind::kDebug:
            snprintf(line.prefix, sizeof(line.prefix), "[TESSEL_DBG]PID[%d]TID[%ld]:[%s](%d): ", processId, threadId,
                     where.function, where.line);
            break;
    }
}

// Control characters that are not in the format come from outside. A tool's output may have several lines, but none of
// them may begin like a line of the log.
void KeepLinesApart(char* text, std::size_t length, const char* format) {
    constexpr std::string_view kBeginning = "[TESSEL_";
    const char* const end = format + strlen(format) - 1;  // its newline
    for (std::size_t i = 0; i + 1 < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool isControl = byte < ' ' || byte == 0x7f;
        const bool isBreak = byte == '\n' && strncmp(text + i + 1, kBeginning.data(), kBeginning.size()) != 0;
        if (isControl && byte != '\t' && !isBreak && std::find(format, end, text[i]) == end) text[i] = ' ';
    }
}

void WriteToFile(std::FILE*& file, const std::atomic<i32>& flag, const Line& line) {
    if (flag.load(std::memory_order_relaxed) == 0) return;
    const std::lock_guard lock(g_logFileLock);
    if (file != nullptr) fprintf(file, "%s%s", line.prefix, line.message);
}

// A terminal that is held, a pipe whose reader has stopped or a log daemon that is stuck must not stop this one: each
// is waited for once, for a second, and then left out until it takes text again.
bool TakesText(int fd, std::atomic<bool>& isPatient) {
    constexpr std::chrono::milliseconds kPatience(1000);
    constexpr std::chrono::milliseconds kNone(0);
    const Deadline deadline(isPatient.load(std::memory_order_relaxed) ? kPatience : kNone);
    const bool isReady = WaitReady(fd, POLLOUT, deadline) == Wait::kReady;
    isPatient.store(isReady, std::memory_order_relaxed);
    return isReady;
}

bool StandardOutputIsReady() {
    static std::atomic<bool> isPatient{true};
    return TakesText(STDOUT_FILENO, isPatient);
}

// A socket of its own has room whenever the log daemon's queue has: syslog(3), which would wait for ever, then does
// not.
bool SystemLogIsReady() {
    static std::atomic<bool> isPatient{true};
    constexpr sockaddr_un kSystemLog{.sun_family = AF_UNIX, .sun_path = _PATH_LOG};
    const UniqueFd probe(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const bool isThere =
        probe.IsOpen() && connect(probe.Get(), reinterpret_cast<const sockaddr*>(&kSystemLog), sizeof(kSystemLog)) == 0;
    return !isThere || TakesText(probe.Get(), isPatient);
}

void Emit(LogKind kind, const Line& line) {
    const bool debugging = kind == LogKind::kDebug;  // a debug line that gets this far goes everywhere
    if (debugging || LevelReaches(kind)) {
        if (SystemLogIsReady()) syslog(SyslogPriority(kind), "%s%s", line.prefix, line.message);
        WriteToFile(pLogLibFd, nLogLibFlag, line);
        WriteToFile(pLogDaemonFd, nLogDaemonFlag, line);
    }
    if ((debugging || IsOn(t_consoleSwitch)) && StandardOutputIsReady()) {
        printf("%s%s", line.prefix, line.message);
        fflush(stdout);
    }
}

}  // namespace

LogSwitchMemory::LogSwitchMemory(FolderWatch* watch) : outerRemembers_(t_remembersSwitches) {
    if (outerRemembers_) return;
    if (watch == nullptr) ForgetSwitches();
    t_switchWatch = watch;
    t_watchedAtTick = 0;
    t_remembersSwitches = true;
}

LogSwitchMemory::~LogSwitchMemory() {
    t_remembersSwitches = outerRemembers_;
}

LogLimit::LogLimit(u32 lines, std::chrono::milliseconds period)
    : outer_(t_limit), lines_(lines), periodMs_(static_cast<u64>(period.count())), beginTick_(CurrentTick()) {
    t_limit = this;
}

LogLimit::~LogLimit() {
    t_limit = outer_;
}

bool LogLimit::Take() {
    const u64 tick = CurrentTick();
    if (tick - beginTick_ >= periodMs_) {
        const u32 leftOut = leftOut_;
        beginTick_ = tick;
        taken_ = 0;
        leftOut_ = 0;
        if (leftOut != 0) TESSEL_ERR("%u lines were left out", leftOut);
    }
    if (taken_ < lines_) {
        ++taken_;
        return true;
    }
    ++leftOut_;
    return false;
}

bool LogWanted(LogKind kind) {
    const ErrnoKeeper keeper;
    if (!LevelReaches(kind) && !IsOn(kind == LogKind::kDebug ? t_debugSwitch : t_consoleSwitch)) return false;
    return t_limit == nullptr || t_limit->Take();
}

// Writing is a cancellation point, and on some C libraries a thread that is cancelled there leaves its locks locked.
// The daemon cancels no thread; an application that links the library may.
void LogLine(LogKind kind, CallSite where, const char* format, ...) {
    const ErrnoKeeper keeper;
    const CancellationOff guard;
    char* text = nullptr;
    va_list arguments;
    va_start(arguments, format);
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    if (length < 0) return;
    const std::unique_ptr<char, decltype(&free)> owner(text, &free);
    KeepLinesApart(text, static_cast<std::size_t>(length), format);

    Line line{};
    line.message = text;
    ComposePrefix(line, kind, where);
    Emit(kind, line);
}

void LogPerror(CallSite where, const char* message) {
    const ErrnoKeeper keeper;
    const CancellationOff guard;
    const int error = errno;
    if (!LogWanted(LogKind::kError)) return;
    Line line{};
    snprintf(line.prefix, sizeof(line.prefix), "[TESSEL_PERROR]PID[%d]:TID[%ld]:%s(%d):%s{errno(%d):%s}\n",
             static_cast<int>(getpid()), static_cast<long>(syscall(SYS_gettid)), where.function, where.line, message,
             error, strerror(error));
    line.message = "";
    Emit(LogKind::kError, line);
}

}  // namespace tessel
