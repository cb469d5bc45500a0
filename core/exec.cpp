#include "core/exec.h"

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "core/exec_seam.h"
#include "core/log.h"

namespace tessel {

namespace {

// A line taken apart. Splitting cuts a copy; the line itself is kept for the log.
class SplitLine {
  public:
    // Logs in the name of `where` when there is nothing to run.
    SplitLine(const char* line, u32 maxLen, CallSite where) {
        snprintf(text_, sizeof(text_), "%s", line);
        isWhole_ = strlen(line) < sizeof(text_) && TesselBufToArgv(text_, words_, kCommandWordsMax, maxLen, ' ') == 0 &&
                   words_[0] != nullptr && words_[1] != nullptr;
        if (!isWhole_) TESSEL_ERR_AT(where, "%s", line);
    }
    [[nodiscard]] bool IsWhole() const {
        return isWhole_;
    }
    [[nodiscard]] Tool Get() const {
        return {.file = words_[0], .argv = words_ + 1};
    }

  private:
    char text_[kCommandLineBytes];
    char* words_[kCommandWordsMax + 1] = {};
    bool isWhole_;
};

// A shell's argument vector for one line.
struct ShellLine {
    explicit ShellLine(const char* line)
        : words{const_cast<char*>("sh"), const_cast<char*>("-c"), const_cast<char*>(line)} {}
    char* words[4];
    [[nodiscard]] Tool Get() const {
        return {.file = "/bin/sh", .argv = words};
    }
};

// This and the next log under the names by which application developers know them, however they were called.
i32 RunLoggingFailure(const char* line, u32 maxLen) {
    const CallSite where = CallSite::Current("ExecCmd");
    const SplitLine split(line, maxLen, where);
    if (!split.IsWhole()) return -1;
    ToolOutput output;
    if (RunTool(split.Get(), &output, nullptr) == 0) return 0;
    TESSEL_ERR_AT(where, "%s", split.Get().file);
    TESSEL_ERR_AT(where, "%s", output.text);
    return -1;
}

i32 RunForOutput(const char* line, u32 maxLen, ToolOutput& output) {
    const CallSite where = CallSite::Current("TesselExecCmdAndGetOutput");
    const SplitLine split(line, maxLen, where);
    if (!split.IsWhole()) return -1;
    if (RunTool(split.Get(), &output, nullptr) == 0) return 0;
    TESSEL_DBG_AT(where, "%s", split.Get().file);
    TESSEL_DBG_AT(where, "%s", output.text);
    return -1;
}

}  // namespace

bool ComposeCommand(CommandLine& line, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(line.text, sizeof(line.text), format, arguments);
    va_end(arguments);
    if (length >= 0 && static_cast<u32>(length) < sizeof(line.text)) return true;
    TESSEL_ERR_AT(line.where, "the command is too long:%d,the max length is %u: %s", length, kCommandLineBytes - 1,
                  line.text);
    line.text[0] = '\0';
    return false;
}

i32 RunForStatus(const CommandLine& line, ToolOutput* output) {
    const SplitLine split(line.text, sizeof(line.text), line.where);
    return split.IsWhole() ? RunTool(split.Get(), output, nullptr) : -1;
}

i32 Run(const CommandLine& line) {
    return RunLoggingFailure(line.text, sizeof(line.text));
}

i32 Run(const CommandLine& line, ToolOutput& output) {
    return RunForOutput(line.text, sizeof(line.text), output);
}

i32 RunShell(const char* line) {
    return RunTool(ShellLine(line).Get(), nullptr, nullptr);
}

i32 RunChange(const CommandLine& line, const ChangeWords& words) {
    const char* const name = words.name != nullptr ? words.name : line.where.function;
    TESSEL_PRT_AT(line.where, "%s%sachCmdBuf: %s", name, name[0] != '\0' ? " " : "", line.text);
    const i32 result = Run(line);
    if (result != 0) TESSEL_ERR_AT(line.where, "%s", words.failure);
    return result;
}

i32 RunReader(const CommandLine& line, ToolOutput& output) {
    const i32 result = Run(line, output);
    if (result != 0) TESSEL_ERR_AT(line.where, "ExecCmdAndGetOutput error!");
    return result;
}

i32 StartDetached(const CommandLine& line, std::initializer_list<int> blocked) {
    const SplitLine split(line.text, sizeof(line.text), line.where);
    if (!split.IsWhole()) return -1;
    sigset_t mask;
    sigemptyset(&mask);
    for (const int signal : blocked)
        sigaddset(&mask, signal);
    return StartTool(split.Get(), mask, line.where);
}

i32 StartDetachedShell(const char* line, CallSite where) {
    sigset_t none;
    sigemptyset(&none);
    return StartTool(ShellLine(line).Get(), none, where);
}

}  // namespace tessel

i32 TesselBufToArgv(char* cmd, char** argv, i32 maxArgs, u32 maxLen, char sep) {
    const std::size_t length = strlen(cmd);
    if (length >= maxLen) {
        TESSEL_ERR("cmd length=%d,the max length is %d", static_cast<i32>(length), static_cast<i32>(maxLen - 1));
        return -1;
    }
    i32 words = 0;
    for (char* position = cmd; *position != '\0' && words < maxArgs;) {
        argv[words++] = position;
        position = strchrnul(position, sep);
        while (*position == sep && *position != '\0')
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
    return tessel::RunTool({.file = file, .argv = argv}, nullptr, pid);
}

i32 TesselExecShellPrcPipe(const char* file, char** argv, char* buf, u32 len, i32* outLen) {
    tessel::ToolOutput output(len);
    const i32 status = tessel::RunTool({.file = file, .argv = argv}, &output, nullptr);
    memcpy(buf, output.text, output.length);
    *outLen = static_cast<i32>(output.length);
    return status;
}

i32 ExecCmd(char* cmd, u32 maxLen, i32 /*reserved*/) {
    if (cmd == nullptr) {
        TESSEL_ERR("ExecCmd pchCmd is NULL!");
        return -1;
    }
    return tessel::RunLoggingFailure(cmd, maxLen);
}

i32 TesselExecCmdAndGetOutput(char* cmd, u32 maxLen, char* out, u32 outLen) {
    if (cmd == nullptr || out == nullptr) {
        TESSEL_ERR("ExecCmd pchCmd is NULL!");
        return -1;
    }
    memset(out, 0, outLen);
    tessel::ToolOutput output(outLen);
    const i32 result = tessel::RunForOutput(cmd, maxLen, output);
    memcpy(out, output.text, output.length);
    return result;
}
