// Running the device's tools.
//
// A command line is one text: the program, then its complete argument vector, argv[0] included ("ip ip addr show"). It
// is split at blanks, there is no quoting, and nothing goes through a shell. The program is looked up along PATH.
//
// A tool killed by a signal counts as successful, with a log line: only bits 8 to 15 of its wait status count. A
// program that cannot be run counts as exit status 255. One that exceeds its time limit, or whose worker
// (core/worker.h) is asked to end, is killed with its process group and counts as failed. Tools start with an empty
// signal mask and every signal at its default action.
//
// Everything here ends in the seam (core/exec_seam.h): a program links either the file behind it that runs tools or the
// one that only notes what would be run.
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <chrono>
#include <initializer_list>

#include "core/call_site.h"
#include "core/types.h"

namespace tessel {

constexpr u32 kCommandLineBytes = 1000;  // NUL included
constexpr i32 kCommandWordsMax = 64;     // a line with that many words is refused
constexpr u32 kToolOutputBytes = 2000;   // of a tool's output that is kept, unless a reader wants more or less
constexpr u32 kToolOutputBytesMax = 4000;

// A composed command line, and the function in whose name it is logged: the one that declares it.
struct CommandLine {
    explicit CommandLine(CallSite caller = CallSite::Current()) : where(caller) {
        text[0] = '\0';
    }
    CallSite where;
    char text[kCommandLineBytes];
};

// What a tool prints, standard error included.
struct ToolOutput {
    // kToolOutputBytesMax at most are kept, whatever is asked for.
    explicit ToolOutput(u32 bytes = kToolOutputBytes) : limit(std::min(bytes, kToolOutputBytesMax)) {
        text[0] = '\0';
    }
    u32 limit;                               // bytes that are kept
    u32 length = 0;                          // bytes that are there
    bool isCut = false;                      // there were more
    bool wasStarted = false;                 // the tool ran, though it may have been killed
    bool hasDied = false;                    // of a signal that it was not sent here: its status says nothing
    std::chrono::milliseconds timeLimit{0};  // how long the tool may run; 0: a minute
    char text[kToolOutputBytesMax + 1];      // terminated
};

// Composes a line by printf's rules. False, with a log line, when it does not fit: it is then empty.
[[nodiscard, gnu::format(printf, 2, 3)]] bool ComposeCommand(CommandLine& line, const char* format, ...);

// Runs a line. Its exit status (0 to 255), or -1 with a log line: no word or too many, not started, killed here.
[[nodiscard]] i32 RunForStatus(const CommandLine& line, ToolOutput* output = nullptr);

// Runs a line for what it does. 0, or -1 with the program's name and its output in the log.
[[nodiscard]] i32 Run(const CommandLine& line);

// Runs a line for its output. 0, or -1 with the line and the output in the log at debug level; the output stays.
[[nodiscard]] i32 Run(const CommandLine& line, ToolOutput& output);

// Runs a line in the shell: its exit status, or -1 with a log line.
[[nodiscard]] i32 RunShell(const char* line);

// The words in which a change is logged.
struct ChangeWords {
    const char* name = nullptr;  // in front of the line; null: the function's; empty: none
    const char* failure = "ExecCmd error!";
};

// Logs "<name> achCmdBuf: <line>" at print level and runs the line. 0, or -1 with `failure` logged.
[[nodiscard]] i32 RunChange(const CommandLine& line, const ChangeWords& words = {});

// Runs a line for its output. 0, or -1 with "ExecCmdAndGetOutput error!" logged.
[[nodiscard]] i32 RunReader(const CommandLine& line, ToolOutput& output);

// Starts a program that outlives the call and is nobody's child afterwards. It inherits no descriptor but standard ones
// on "/dev/null". It starts with the signals in `blocked` blocked. 0, or -1 with a log line; a program that cannot be
// run is also logged, but is a success: it was started.
[[nodiscard]] i32 StartDetached(const CommandLine& line, std::initializer_list<int> blocked = {});
// The same through the shell.
[[nodiscard]] i32 StartDetachedShell(const char* line, CallSite where = CallSite::Current());

}  // namespace tessel

// Splits `cmd` in place at runs of `sep`; a separator at the start makes an empty first word. argv takes up to maxArgs
// words and a null after them: it has maxArgs + 1 entries. `maxLen` is the bound of cmd, NUL included. Returns 0, or -1
// with a log line (text longer than the bound, maxArgs words or more).
i32 TesselBufToArgv(char* cmd, char** argv, i32 maxArgs, u32 maxLen, char sep);

// Runs a program and waits for it; its output goes where the daemon's goes. Its pid is stored in *pid. Returns its exit
// status (0 to 255), or -1 with a log line.
i32 TesselExecShellProcess(const char* file, char** argv, pid_t* pid);

// The same with standard output and error captured: the first `len` bytes (at most kToolOutputBytesMax) are stored in
// `buf`, without a NUL, their number in *outLen; the rest is read and dropped, so the tool never blocks. Processes that
// the tool leaves running with the pipe open are not waited for.
i32 TesselExecShellPrcPipe(const char* file, char** argv, char* buf, u32 len, i32* outLen);

// Splits `cmd` (bound maxLen, NUL included) and runs it. 0 when it exited with 0; else -1, and the log has the
// program's name and its output. `reserved` is 0.
i32 ExecCmd(char* cmd, u32 maxLen, i32 reserved);

// The same with up to outLen bytes of output in `out`, which is zeroed first: an output of outLen bytes or more fills
// it without a NUL. The output stays there after a failure, which is logged at debug level.
i32 TesselExecCmdAndGetOutput(char* cmd, u32 maxLen, char* out, u32 outLen);
