// Crash diagnostics: a report of what the process was doing when a fatal signal reached it.
//
// The report (thread, time, registers, call traces with function names, memory map) is appended to a pair of rotating
// files; then the signal takes its default effect. Everything that runs in the signal handler allocates nothing, takes
// no lock and reads memory that may be gone without touching it.
//
// In a report, names are found only for modules that carry a symbol table: a stripped one has its functions unnamed.
#pragma once

#include <cstddef>
#include <cstdint>

// Of the init functions' flags: no debug thread.
constexpr std::uint32_t kSysdbgNoDebugThread = 0x1000;

// NOLINTBEGIN(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp): names that debugging tools look up

// The crash file and its previous generation, "NAME.0" and "NAME.1". Empty: reports go to standard output.
extern char __crushdump_file[2][128];
// Size in KiB from which on the crash file becomes the previous generation. A positive integer in the environment
// variable "SYSDBG_LOG_LIMIT" takes its place.
extern std::uint32_t log_file_limit;
extern const char __sysdbg_version[];

// NOLINTEND(bugprone-reserved-identifier, cert-dcl37-c, cert-dcl51-cpp)

// The log path given at the start, when it was readable and writable; else empty.
extern char sysdbg_log_file[128];

// Installs crash diagnostics: remembers the files, appends the version record to "/proc/veltrac/version", installs the
// handler and starts the debug thread (debug_thread.h) unless `flags` says no. To be called by the main thread before
// there are others.
//
//   logPath    null or a path; kept in sysdbg_log_file when it can be read and written
//   crashFile  name of the crash files without ".0" and ".1". Null, empty or longer than 125 characters: standard
//   output limit      when positive, twice the KiB that the crash file may have: it counts for both files
//
// Returns 0, or -1 when no handler could be installed. A missing version file is told on standard output.
//
// For signals that end a process or tell that it has failed: 1 to 8, 11, 30 and 31.
int SysdbgInit(const char* logPath, const char* crashFile, std::int32_t limit, std::uint32_t flags);
// For one signal.
int SysdbgInitSignal(int signal, const char* logPath, const char* crashFile, std::int32_t limit, std::uint32_t flags);
// For `count` signals.
int SysdbgInitSignals(const int* signals, std::size_t count, const char* logPath, const char* crashFile,
                      std::int32_t limit, std::uint32_t flags);

// Appends text to the crash file, which is opened and closed for it and rotated before when it has reached its limit.
// Cut after 1023 bytes. The format knows what FormatText (format.h) knows. May run in a signal handler.
[[gnu::format(printf, 1, 2)]] void SysdbgReport(const char* format, ...);
