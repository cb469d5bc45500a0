// Crash diagnostics: a report of what the process was doing when a fatal signal reached it.
//
// The report (thread, time, registers, call traces with function names, memory map) is appended to a pair of rotating
// files; then the signal takes its default effect. What runs in the signal handler allocates nothing, takes no lock and
// does not fault when it reads memory that is gone.
//
// A report names functions only of modules that carry a symbol table: those of a stripped one stay unnamed.
#pragma once

#include <cstddef>
#include <cstdint>

// Of the init functions' flags: no debug thread.
constexpr std::uint32_t kSysdbgNoDebugThread = 0x1000;

// NOLINTBEGIN(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp): names that debugging tools look up

// The crash file and its previous generation, "NAME.0" and "NAME.1". Empty: reports go to standard output.
extern char __crushdump_file[2][128];
// A crash file of this size in KiB or more becomes the previous generation. A positive integer in the environment
// variable "SYSDBG_LOG_LIMIT" takes precedence.
extern std::uint32_t log_file_limit;
extern const char __sysdbg_version[];

// NOLINTEND(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)

// The log path given at initialisation if it was readable and writable, else empty.
extern char sysdbg_log_file[128];

// Installs crash diagnostics: remembers the files, appends the version record to "/proc/veltrac/version", installs the
// handler and starts the debug thread (debug_thread.h) unless `flags` says no. To be called by the main thread before
// it starts others.
//
//   logPath    null or a path; kept in sysdbg_log_file when it can be read and written
//   crashFile  name of the crash files without ".0" and ".1"
//              Null, empty or longer than 125 characters: reports go to standard output.
//   limit      when positive, KiB that both crash files may take together: each gets half
//
// Returns 0, or -1 when the handler could not be installed. Reports a missing version file on standard output.
//
// This one handles the signals that end a process or show that it failed: 1 to 8, 11, 30 and 31.
int SysdbgInit(const char* logPath, const char* crashFile, std::int32_t limit, std::uint32_t flags);
// This one handles one signal.
int SysdbgInitSignal(int signal, const char* logPath, const char* crashFile, std::int32_t limit, std::uint32_t flags);
// This one handles `count` signals.
int SysdbgInitSignals(const int* signals, std::size_t count, const char* logPath, const char* crashFile,
                      std::int32_t limit, std::uint32_t flags);

// Appends text, cut after 1023 bytes, to the crash file, which is opened and closed each time, and first rotated if it
// has reached its limit. Supports the conversions of FormatText (format.h). May run in a signal handler.
[[gnu::format(printf, 1, 2)]] void SysdbgReport(const char* format, ...);
