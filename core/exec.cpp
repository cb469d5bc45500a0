#include "core/exec.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <span>

#include "core/log.h"
#include "core/unique_fd.h"

using tessel::CallSite;
using tessel::UniqueFd;

namespace tessel {

bool ComposeCommand(CommandLine& line, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line.text, sizeof(line.text), format, arguments);
    va_end(arguments);
    if (length >= 0 && static_cast<u32>(length) < sizeof(line.text)) return true;
    TESSEL_ERR("the command is too long:%d,the max length is %u: %s", length, kCommandLineBytes - 1, line.text);
    return false;
}

i32 RunChange(CommandLine& line, CallSite where) {
    return RunChangeAs(where.function, line, where);
}

i32 RunChangeAs(const char* name, CommandLine& line, CallSite where) {
    TESSEL_PRT_AT(where, "%s achCmdBuf: %s", name, line.text);
    const i32 result = ExecCmd(line.text, sizeof(line.text), 0);
    if (result != 0) TESSEL_ERR_AT(where, "ExecCmd error!");
    return result;
}

i32 RunReader(CommandLine& line, ToolOutput& output, CallSite where) {
    const i32 result = TesselExecCmdAndGetOutput(line.text, sizeof(line.text), output.text, kToolOutputBytes);
    if (result != 0) TESSEL_ERR_AT(where, "ExecCmdAndGetOutput error!");
    return result;
}

}  // namespace tessel

namespace {

constexpr int kExecFailedStatus = 255;

// How often a tool whose pipe stays open is looked after. A tool that ends and leaves nothing behind closes its pipe,
// and is noticed at once.
constexpr int kReapCheckMs = 20;

// Waiting for a child needs SIGCHLD at its default action.
class DefaultSigchld {
  public:
    DefaultSigchld() {
        struct sigaction defaultAction {};
        defaultAction.sa_handler = SIG_DFL;
        sigaction(SIGCHLD, &defaultAction, &previous_);
    }
    ~DefaultSigchld() {
        sigaction(SIGCHLD, &previous_, nullptr);
    }
    DefaultSigchld(const DefaultSigchld&) = delete;
    DefaultSigchld& operator=(const DefaultSigchld&) = delete;

  private:
    struct sigaction previous_ {};
};

// Starts `file`. With outputFd 0 or above its standard output and error go there. -1, with errno set, when it cannot be
// started; *execError tells why a started child could not become the program.
pid_t StartProgram(const char* file, char** argv, int outputFd, volatile int* execError) {
    sigset_t noSignals;
    sigemptyset(&noSignals);
    // The child borrows this process's memory until it becomes the program: only async-signal-safe calls in between.
    const pid_t pid = vfork();  // NOLINT(clang-analyzer-security.insecureAPI.vfork): fork would copy the page tables
    if (pid != 0) return pid;
    // NOLINTBEGIN(clang-analyzer-unix.Vfork): system calls alone, on this process's own tables
    // Tools start with the signals of a login shell, whatever the thread that runs them has blocked.
    sigprocmask(SIG_SETMASK, &noSignals, nullptr);
    signal(SIGPIPE, SIG_DFL);
    if (outputFd >= 0) {
        dup2(outputFd, STDOUT_FILENO);
        dup2(outputFd, STDERR_FILENO);
    }
    // NOLINTEND(clang-analyzer-unix.Vfork)
    execvp(file, argv);
    *execError = errno;
    _exit(kExecFailedStatus);
}

void LogExecError(int execError, CallSite where) {
    if (execError == 0) return;
    errno = execError;
    tessel::LogPerror(where, "exec error:");
}

// Waits for the child `pid`: its exit status, or -1 with a log line.
i32 WaitForExit(pid_t pid, CallSite where) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno == EINTR) continue;
        tessel::LogPerror(where, "wait error");
        return -1;
    }
    return WEXITSTATUS(status);
}

// Keeps the first bytes of a tool's output and drops the rest.
class OutputReader {
  public:
    OutputReader(int pipe, std::span<char> kept) : pipe_(pipe), kept_(kept) {}

    enum class Outcome { kRead, kNothingThere, kEnd };

    // Reads once, without waiting.
    Outcome ReadOnce() {
        char dropped[4096];
        const std::span<char> free = kept_.subspan(keptBytes_);
        const std::span<char> target = free.empty() ? std::span<char>(dropped) : free;
        const ssize_t count = read(pipe_, target.data(), target.size());
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) return Outcome::kNothingThere;
        if (count <= 0) return Outcome::kEnd;
        if (!free.empty()) keptBytes_ += static_cast<std::size_t>(count);
        return Outcome::kRead;
    }

    [[nodiscard]] bool IsFull() const {
        return keptBytes_ == kept_.size();
    }
    [[nodiscard]] std::size_t KeptBytes() const {
        return keptBytes_;
    }

  private:
    int pipe_;
    std::span<char> kept_;
    std::size_t keptBytes_ = 0;
};

bool HasEnded(pid_t pid) {
    siginfo_t ended{};
    return waitid(P_PID, static_cast<id_t>(pid), &ended, WEXITED | WNOHANG | WNOWAIT) != 0 || ended.si_pid != 0;
}

// Reads the output until it ends or the child has ended, whichever comes first: a program that the tool left running
// may hold the pipe open, or write into it, for ever. The child's exit status, or -1 with a log line.
i32 ReadUntilExit(pid_t pid, int pipe, OutputReader& reader, CallSite where) {
    constexpr int kReadsPerCheck = 64;
    for (int reads = 1;; ++reads) {
        pollfd readable{.fd = pipe, .events = POLLIN, .revents = 0};
        const bool isReadable = poll(&readable, 1, kReapCheckMs) > 0;
        if (isReadable && reader.ReadOnce() == OutputReader::Outcome::kEnd) break;
        if ((!isReadable || reads % kReadsPerCheck == 0) && HasEnded(pid)) {
            while (!reader.IsFull() && reader.ReadOnce() == OutputReader::Outcome::kRead) {
            }
            break;
        }
    }
    return WaitForExit(pid, where);
}

// Splits a whole command line; false, with a log line, when there is nothing to run.
bool SplitCommand(char* cmd, char** argv, u32 maxLen, CallSite where) {
    if (TesselBufToArgv(cmd, argv, tessel::kCommandWordsMax, maxLen, ' ') == 0 && argv[0] != nullptr &&
        argv[1] != nullptr) {
        return true;
    }
    TESSEL_ERR_AT(where, "%s", cmd);
    return false;
}

}  // namespace

i32 TesselBufToArgv(char* cmd, char** argv, i32 maxArgs, u32 maxLen, char sep) {
    const std::size_t length = strlen(cmd);
    if (length > maxLen - 1) {
        TESSEL_ERR("cmd length=%d,the max length is %d", static_cast<i32>(length), static_cast<i32>(maxLen - 1));
        return -1;
    }
    i32 words = 0;
    char* position = cmd;
    const char* const end = cmd + length;
    while (position < end && words < maxArgs) {
        if (position >= cmd + maxLen) {
            TESSEL_ERR("the buffer is overrun");
            return -1;
        }
        argv[words++] = position;
        position = strchr(position, sep);
        if (position == nullptr) break;
        while (*position == sep && position < end)
            *position++ = '\0';
    }
    argv[words] = nullptr;
    if (words >= maxArgs) {
        TESSEL_ERR("argc=%d,the max parame is %d", words, maxArgs);
        return -1;
    }
    return 0;
}

i32 TesselExecShellProcess(const char* file, char** argv, pid_t* pid) {
    const DefaultSigchld sigchld;
    TESSEL_DBG("%s:%d:[%s]", __func__, __LINE__, argv[0]);
    volatile int execError = 0;
    const pid_t child = StartProgram(file, argv, -1, &execError);
    if (child < 0) {
        TESSEL_PERROR("vfork error");
        return -1;
    }
    *pid = child;
    LogExecError(execError, CallSite::Current());
    return WaitForExit(child, CallSite::Current());
}

i32 TesselExecShellPrcPipe(const char* file, char** argv, char* buf, u32 len, i32* outLen) {
    const DefaultSigchld sigchld;
    TESSEL_DBG("%s:%d:[%s]", __func__, __LINE__, argv[0]);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        TESSEL_PERROR("pipe error!");
        return -1;
    }
    const UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    fcntl(readEnd.Get(), F_SETFL, O_NONBLOCK);

    volatile int execError = 0;
    const pid_t child = StartProgram(file, argv, writeEnd.Get(), &execError);
    if (child < 0) {
        TESSEL_PERROR("vfork error");
        return -1;
    }
    writeEnd.Reset();
    LogExecError(execError, CallSite::Current());

    OutputReader reader(readEnd.Get(), std::span(buf, len));
    const i32 status = ReadUntilExit(child, readEnd.Get(), reader, CallSite::Current());
    *outLen = static_cast<i32>(reader.KeptBytes());
    TESSEL_DBG("%s:%d:[%s]", __func__, __LINE__, argv[0]);
    return status;
}

i32 ExecCmd(char* cmd, u32 maxLen, i32 /*reserved*/) {
    if (cmd == nullptr) {
        TESSEL_ERR("ExecCmd pchCmd is NULL!");
        return -1;
    }
    char* argv[tessel::kCommandWordsMax + 1];
    if (!SplitCommand(cmd, argv, maxLen, CallSite::Current())) return -1;
    char output[tessel::kToolOutputBytes];
    i32 outputBytes = 0;
    if (TesselExecShellPrcPipe(argv[0], argv + 1, output, sizeof(output), &outputBytes) == 0) return 0;
    TESSEL_ERR("%s", cmd);  // after splitting: the program's name
    TESSEL_ERR("%.*s", outputBytes, output);
    return -1;
}

i32 TesselExecCmdAndGetOutput(char* cmd, u32 maxLen, char* out, u32 outLen) {
    if (cmd == nullptr || out == nullptr) {
        TESSEL_ERR("ExecCmd pchCmd is NULL!");
        return -1;
    }
    char* argv[tessel::kCommandWordsMax + 1];
    if (!SplitCommand(cmd, argv, maxLen, CallSite::Current())) return -1;
    memset(out, 0, outLen);
    i32 outputBytes = 0;
    if (TesselExecShellPrcPipe(argv[0], argv + 1, out, outLen, &outputBytes) == 0) return 0;
    TESSEL_DBG("%s", cmd);
    TESSEL_DBG("%.*s", outputBytes, out);
    return -1;
}
