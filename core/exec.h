// Running the device's tools.
//
// A command line is one text: the program, then its complete argument vector, argv[0] included ("ip ip addr show"). It
// is split at blanks, there is no quoting, and nothing goes through a shell. The program is looked up along PATH.
//
// A tool killed by a signal counts as successful: only bits 8 to 15 of its wait status are looked at.
// A program that cannot be run counts as exit status 255.
#pragma once

#include <sys/types.h>

#include "core/call_site.h"
#include "core/types.h"

namespace tessel {

constexpr u32 kCommandLineBytes = 1000;  // NUL included
constexpr u32 kToolOutputBytes = 2000;   // of a tool's output that is kept
constexpr i32 kCommandWordsMax = 64;     // a line with that many words is refused

// A composed command line.
struct CommandLine {
    char text[kCommandLineBytes];
};

// A reader's buffer for a tool's output, always terminated.
struct ToolOutput {
    char text[kToolOutputBytes + 1] = {};
};

// Composes a command line by printf's rules. False, with a log line, when it does not fit: it is then not run.
[[nodiscard, gnu::format(printf, 2, 3)]] bool ComposeCommand(CommandLine& line, const char* format, ...);

// Logs "<function> achCmdBuf: <line>" at print level and runs the line. 0, or the executor's result with a log line.
[[nodiscard]] i32 RunChange(CommandLine& line, CallSite where = CallSite::Current());
// The same where the line is logged under another name than its function's.
[[nodiscard]] i32 RunChangeAs(const char* name, CommandLine& line, CallSite where = CallSite::Current());

// Runs a line for its output. 0, or the executor's result with a log line.
[[nodiscard]] i32 RunReader(CommandLine& line, ToolOutput& output, CallSite where = CallSite::Current());

}  // namespace tessel

// Splits `cmd` in place at runs of `sep`; a separator at the start makes an empty first word. argv takes up to maxArgs
// words and a null behind them: it has maxArgs + 1 entries. `maxLen` is the bound of cmd, NUL included. Returns 0, or
// -1 with a log line (text longer than the bound, maxArgs words or more).
i32 TesselBufToArgv(char* cmd, char** argv, i32 maxArgs, u32 maxLen, char sep);

// Runs a program and waits for it; its output goes where the daemon's goes. Its pid is stored in *pid. Returns its exit
// status (0 to 255), or -1 with a log line.
i32 TesselExecShellProcess(const char* file, char** argv, pid_t* pid);

// The same with standard output and error captured: the first `len` bytes are stored in `buf`, without a NUL, their
// number in *outLen; the rest is read and dropped, so that the tool is never blocked. What the tool leaves running with
// the pipe open is not waited for.
i32 TesselExecShellPrcPipe(const char* file, char** argv, char* buf, u32 len, i32* outLen);

// Splits `cmd` (bound maxLen, NUL included) and runs it. 0 when it exited with 0; else -1, and the log has the
// program's name and its output. `reserved` is 0.
i32 ExecCmd(char* cmd, u32 maxLen, i32 reserved);

// The same with up to outLen bytes of output in `out`, which is zeroed first: an output of outLen bytes or more fills
// it without a NUL. The output stays there after a failure, which is logged at debug level.
i32 TesselExecCmdAndGetOutput(char* cmd, u32 maxLen, char* out, u32 outLen);
