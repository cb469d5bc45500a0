// Runs tools.
#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <optional>

#include "core/exec_seam.h"
#include "core/log.h"
#include "core/unique_fd.h"
#include "core/wait.h"
#include "core/worker.h"

namespace tessel {

using std::chrono::milliseconds;

milliseconds g_toolLimit = std::chrono::seconds(60);

namespace {

constexpr int kExecFailedStatus = 255;

#ifndef SYS_pidfd_open
#define SYS_pidfd_open 434  // the same on every processor
#endif
#ifndef SYS_close_range
#define SYS_close_range 436
#endif

// What exec would leave ignored; it gives caught signals their default action. Looked up for the first tool, not for
// each: the daemon ignores signals as it starts, and never later.
const sigset_t& IgnoredSignals() {
    static const sigset_t kIgnored = [] {
        sigset_t ignored;
        sigemptyset(&ignored);
        struct sigaction action {};
        for (int signal = 1; signal < NSIG; ++signal) {
            if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) sigaddset(&ignored, signal);
        }
        return ignored;
    }();
    return kIgnored;
}

// Only async-signal-safe calls: the caller borrows another process's memory.
void ResetSignals(const sigset_t& ignored, const sigset_t& blocked) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal) {
        if (sigismember(&ignored, signal) == 1) sigaction(signal, &action, nullptr);
    }
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
}

// A pipe through which a child that cannot become a program reports errno. It closes when the child becomes one.
class ExecReport {
  public:
    ExecReport() {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) return;
        readEnd_.Reset(ends[0]);
        writeEnd_.Reset(ends[1]);
    }
    [[nodiscard]] bool IsOpen() const {
        return readEnd_.IsOpen();
    }
    [[nodiscard]] int WriteEnd() const {
        return writeEnd_.Get();
    }
    // Called once the child exists, which has an end of its own.
    void CloseWriteEnd() {
        writeEnd_.Reset();
    }
    // Logs what has arrived. Waits for a child that has neither become a program nor ended yet.
    void Log(CallSite where) {
        int error = 0;
        if (read(readEnd_.Get(), &error, sizeof(error)) != sizeof(error)) return;
        errno = error;
        LogPerror(where, "exec error:");
    }

  private:
    UniqueFd readEnd_;
    UniqueFd writeEnd_;
};

[[noreturn]] void BecomeProgram(const Tool& tool, int reportFd) {
    execvp(tool.file, tool.argv);
    const int error = errno;
    (void)!write(reportFd, &error, sizeof(error));
    _exit(kExecFailedStatus);
}

// Starts the tool in a process group of its own. With outputFd 0 or above its standard output and error go there. -1,
// with errno set, when it cannot be started.
pid_t Spawn(const Tool& tool, int outputFd, int reportFd) {
    sigset_t none;
    sigemptyset(&none);
    const sigset_t& ignored = IgnoredSignals();
    // The child borrows this process's memory until it becomes the program: only async-signal-safe calls in between.
    const pid_t pid = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork): fork would copy the page tables
    if (pid != 0) return pid;
    // NOLINTBEGIN(clang-analyzer-unix.Vfork): system calls alone, on this process's own tables
    setpgid(0, 0);
    ResetSignals(ignored, none);
    if (outputFd >= 0) {
        dup2(outputFd, STDOUT_FILENO);
        dup2(outputFd, STDERR_FILENO);
    }
    BecomeProgram(tool, reportFd);
    // NOLINTEND(clang-analyzer-unix.Vfork)
}

// Keeps the first bytes of a tool's output and drops the rest.
class OutputReader {
  public:
    OutputReader(int pipe, ToolOutput& output) : pipe_(pipe), output_(output) {}

    // Readable when there is something or the end has come; -1 after that.
    [[nodiscard]] int Fd() const {
        return pipe_;
    }
    [[nodiscard]] bool HasEnded() const {
        return pipe_ < 0;
    }
    // Reads once, without waiting. False when nothing was there.
    bool ReadOnce() {
        char dropped[4096];
        const u32 room = output_.limit - output_.length;
        const ssize_t count =
            read(pipe_, room > 0 ? output_.text + output_.length : dropped, room > 0 ? room : sizeof(dropped));
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) return false;
        if (count <= 0) {
            pipe_ = -1;
            return false;
        }
        if (room == 0) {
            output_.isCut = true;
            return true;
        }
        output_.length += static_cast<u32>(count);
        output_.text[output_.length] = '\0';
        return true;
    }

    // What has been written so far, as far as it matters.
    void ReadRest() {
        while (!output_.isCut && !HasEnded() && ReadOnce()) {
        }
    }

  private:
    int pipe_;
    ToolOutput& output_;
};

// Notices the end of a child.
class ChildWatch {
  public:
    explicit ChildWatch(pid_t pid) : pid_(pid), pidFd_(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))) {}

    // Readable once the child has ended; -1 before Linux 5.3, where the child is checked now and then instead.
    [[nodiscard]] int Fd() const {
        return pidFd_.Get();
    }
    [[nodiscard]] bool HasEnded() const {
        siginfo_t ended{};
        return waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 || ended.si_pid != 0;
    }
    // How long to wait for the next look: at first briefly, as most tools end soon; -1 when Fd() says when to look.
    [[nodiscard]] int NextLookMs() {
        if (pidFd_.IsOpen()) return -1;
        constexpr int kMostMs = 100;
        return lookMs_ = std::min(lookMs_ * 2, kMostMs);
    }
    // The output has ended: nearly always, so has the tool.
    void LookSoon() {
        lookMs_ = 1;
    }

  private:
    pid_t pid_;
    UniqueFd pidFd_;
    int lookMs_ = 1;
};

enum class End { kExited, kTooLong, kStopped };

// Waits until the child has ended, the time is over or the worker is asked to end, and reads the output (null: none is
// wanted) meanwhile. The end of the output says little: a tool may close it and continue, and a program that it left
// running may hold it open, or write into it, for ever.
End AwaitEnd(pid_t pid, OutputReader* reader, milliseconds limit) {
    // What most tools print fits into the pipe, and then they end: reading it only then avoids earlier wake-ups.
    constexpr milliseconds kUnread(10);
    constexpr u32 kReadsPerLook = 64;
    const Worker* const worker = Worker::Current();
    const Deadline deadline(limit);
    const Deadline unreadEnd(std::min(limit, kUnread));
    ChildWatch child(pid);
    for (u32 round = 0;; ++round) {
        const bool hasOutput = reader != nullptr && !reader->HasEnded();
        const int unreadMs = hasOutput && child.Fd() >= 0 ? unreadEnd.LeftMs() : 0;
        enum { kOutput, kChild, kStop, kWaited };
        pollfd waited[kWaited] = {
            {.fd = hasOutput && unreadMs == 0 ? reader->Fd() : -1, .events = POLLIN, .revents = 0},
            {.fd = child.Fd(), .events = POLLIN, .revents = 0},
            {.fd = worker != nullptr ? worker->StopFd() : -1, .events = POLLIN, .revents = 0}};
        const int lookMs = unreadMs > 0 ? unreadMs : child.NextLookMs();
        const int leftMs = deadline.LeftMs();
        (void)poll(waited, kWaited, lookMs < 0 ? leftMs : std::min(lookMs, leftMs));

        const bool isReadable = hasOutput && waited[kOutput].revents != 0;
        if (isReadable && !reader->ReadOnce() && reader->HasEnded()) child.LookSoon();
        const bool mayHaveEnded = waited[kChild].revents != 0 || child.Fd() < 0;
        // While something was there, there is probably more: it comes first, except for a look now and then.
        const bool isTimeToLook = !isReadable || reader->HasEnded() || round % kReadsPerLook == 0;
        if (mayHaveEnded && isTimeToLook && child.HasEnded()) {
            if (reader != nullptr) reader->ReadRest();
            return End::kExited;
        }
        if (waited[kStop].revents != 0) return End::kStopped;
        if (leftMs == 0) return End::kTooLong;
    }
}

// Waits for a child that has ended or is about to. False with a log line.
bool Reap(pid_t pid, int& status, CallSite where) {
    while (waitpid(pid, &status, 0) < 0) {
        if (errno == EINTR) continue;
        LogPerror(where, "wait error");
        return false;
    }
    return true;
}

i32 Finish(pid_t pid, const Tool& tool, ToolOutput* output, End end, milliseconds limit, CallSite where) {
    if (end != End::kExited && kill(-pid, SIGKILL) != 0) kill(pid, SIGKILL);
    int status = 0;
    if (!Reap(pid, status, where)) return -1;
    switch (end) {
        case End::kExited:
            if (!WIFSIGNALED(status)) return WEXITSTATUS(status);
            TESSEL_ERR_AT(where, "%s died of signal %d", tool.argv[0], WTERMSIG(status));
            if (output != nullptr) output->hasDied = true;
            return 0;
        case End::kTooLong:
            TESSEL_ERR_AT(where, "%s was killed after %lld seconds", tool.argv[0],
                          static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(limit).count()));
            return -1;
        case End::kStopped:
            TESSEL_PRT_AT(where, "%s was killed, it is not wanted any more", tool.argv[0]);
            return -1;
    }
    return -1;
}

// Closes everything from `first` on.
void CloseFrom(int first) {
    if (syscall(SYS_close_range, first, ~0U, 0) == 0) return;
    constexpr rlim_t kUnknown = 1024;
    rlimit limit{};
    const rlim_t end = getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : kUnknown;
    for (rlim_t fd = static_cast<rlim_t>(first); fd < end; ++fd)
        close(static_cast<int>(fd));
}

// In the grandchild. Its report moves to the first descriptor after the standard ones, so that all others can be
// closed.
[[noreturn]] void BecomeDetached(const Tool& tool, const sigset_t& blocked, int nullFd, int reportFd) {
    constexpr int kReportFd = STDERR_FILENO + 1;
    ResetSignals(IgnoredSignals(), blocked);
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
        dup2(nullFd, fd);
    if (reportFd == kReportFd || dup3(reportFd, kReportFd, O_CLOEXEC) == kReportFd) CloseFrom(kReportFd + 1);
    BecomeProgram(tool, kReportFd);
}

}  // namespace

i32 RunTool(const Tool& tool, ToolOutput* output, pid_t* pid) {
    const CallSite where = CallSite::Current(output != nullptr ? "TesselExecShellPrcPipe" : "TesselExecShellProcess");
    TESSEL_DBG_AT(where, "%s:%d:[%s]", where.function, where.line, tool.argv[0]);
    UniqueFd readEnd;
    UniqueFd writeEnd;
    if (output != nullptr) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            LogPerror(where, "pipe error!");
            return -1;
        }
        readEnd.Reset(ends[0]);
        writeEnd.Reset(ends[1]);
        fcntl(readEnd.Get(), F_SETFL, O_NONBLOCK);
        output->length = 0;
        output->isCut = false;
        output->wasStarted = false;
        output->hasDied = false;
        output->text[0] = '\0';
    }
    ExecReport report;
    const pid_t child = Spawn(tool, writeEnd.Get(), report.WriteEnd());
    if (child < 0) {
        LogPerror(where, "vfork error");
        return -1;
    }
    if (pid != nullptr) *pid = child;
    writeEnd.Reset();
    report.CloseWriteEnd();
    milliseconds limit = g_toolLimit;
    std::optional<OutputReader> reader;
    if (output != nullptr) {
        if (output->timeLimit.count() != 0) limit = output->timeLimit;
        output->wasStarted = true;
        reader.emplace(readEnd.Get(), *output);
    }
    const End end = AwaitEnd(child, reader ? &*reader : nullptr, limit);
    const i32 status = Finish(child, tool, output, end, limit, where);
    if (status == kExecFailedStatus) report.Log(where);
    if (output != nullptr) TESSEL_DBG_AT(where, "%s:%d:[%s]", where.function, where.line, tool.argv[0]);
    return status;
}

i32 StartTool(const Tool& tool, const sigset_t& blocked, CallSite where) {
    (void)IgnoredSignals();  // looked up before the child needs them
    ExecReport report;
    const UniqueFd nullFd(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!report.IsOpen() || !nullFd.IsOpen()) {
        LogPerror(where, "fork error");
        return -1;
    }
    // Not vfork: nested ones share a stack, for which neither the C library nor a sanitizer is prepared.
    const pid_t child = fork();
    if (child == 0) {
        // NOLINTBEGIN(clang-analyzer-unix.Vfork, clang-analyzer-security.insecureAPI.vfork)
        const pid_t grandchild = vfork();
        if (grandchild == 0) BecomeDetached(tool, blocked, nullFd.Get(), report.WriteEnd());
        _exit(grandchild < 0 ? errno : 0);
        // NOLINTEND(clang-analyzer-unix.Vfork, clang-analyzer-security.insecureAPI.vfork)
    }
    if (child < 0) {
        LogPerror(where, "fork error");
        return -1;
    }
    report.CloseWriteEnd();
    report.Log(where);
    int status = 0;
    if (!Reap(child, status, where) || WEXITSTATUS(status) == 0) return 0;
    errno = WEXITSTATUS(status);
    LogPerror(where, "fork error");
    return -1;
}

}  // namespace tessel
