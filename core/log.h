// The four log forms. A line goes to syslog (facility local6), to the log files that are open and to standard output,
// each as the level and the switch files decide:
//
//   form     syslog and log files            standard output
//   ERR      level above 1                   when "/tmp/tessellog" exists
//   PRT      level above 3                   when "/tmp/tessellog" exists
//   DBG      level 5 and above, or when "/tmp/tesseldebug" exists; then everywhere
//   PERROR   as ERR; adds errno and its text
//
// No form fails its caller or changes errno. A line that goes nowhere does not evaluate its arguments. Control
// characters in text from a client, a tool or a host become blanks, except for tabs, and for line breaks unless a log
// line would seem to begin after them.
#pragma once

#include <chrono>

#include "core/call_site.h"
#include "core/types.h"

namespace tessel {

class FolderWatch;

constexpr char kLogSwitchFolder[] = "/tmp";

enum class LogKind { kError, kPrint, kDebug };

// True when a line of this kind reaches at least one destination now. Keeps errno.
[[nodiscard]] bool LogWanted(LogKind kind);

// While one lives, its thread looks each switch file up once, and again after every tick of the system's clock, instead
// of once per line: a request that logs a dozen lines to nowhere costs two look-ups. The server holds one for each
// request.
//
// With a watch over kLogSwitchFolder even these are saved: what was known when the last one ended stays valid until the
// watch notices something. The watch belongs to this thread alone and lives as long as the thread.
class LogSwitchMemory {
  public:
    explicit LogSwitchMemory(FolderWatch* watch = nullptr);
    ~LogSwitchMemory();
    LogSwitchMemory(const LogSwitchMemory&) = delete;
    LogSwitchMemory& operator=(const LogSwitchMemory&) = delete;

  private:
    bool outerRemembers_;
};

// While one lives, its thread logs at most so many lines per period: for what an outsider can trigger at will. The
// number of lines left out is logged with the first line of a later period.
class LogLimit {
  public:
    LogLimit(u32 lines, std::chrono::milliseconds period);
    ~LogLimit();
    LogLimit(const LogLimit&) = delete;
    LogLimit& operator=(const LogLimit&) = delete;

    // Counts one line. True when it may be written.
    [[nodiscard]] bool Take();

  private:
    LogLimit* outer_;
    u32 lines_;
    u64 periodMs_;
    u64 beginTick_;
    u32 taken_ = 0;
    u32 leftOut_ = 0;
};

// Writes one line, which `format` ends with '\n'. Usually called through the macros below; helpers that log in their
// caller's name call it with the caller's CallSite.
[[gnu::format(printf, 3, 4)]] void LogLine(LogKind kind, CallSite where, const char* format, ...);

// Writes one line with `message`, errno and errno's text, at error level.
void LogPerror(CallSite where, const char* message);

}  // namespace tessel

#define TESSEL_LOG_AT(kind, where, format, ...)                                     \
    do {                                                                            \
        if (::tessel::LogWanted(kind)) {                                            \
            ::tessel::LogLine(kind, where, format "\n" __VA_OPT__(, ) __VA_ARGS__); \
        }                                                                           \
    } while (false)

#define TESSEL_ERR_AT(where, ...) TESSEL_LOG_AT(::tessel::LogKind::kError, where, __VA_ARGS__)
#define TESSEL_PRT_AT(where, ...) TESSEL_LOG_AT(::tessel::LogKind::kPrint, where, __VA_ARGS__)
#define TESSEL_DBG_AT(where, ...) TESSEL_LOG_AT(::tessel::LogKind::kDebug, where, __VA_ARGS__)

#define TESSEL_ERR(...)        TESSEL_ERR_AT(::tessel::CallSite::Current(), __VA_ARGS__)
#define TESSEL_PRT(...)        TESSEL_PRT_AT(::tessel::CallSite::Current(), __VA_ARGS__)
#define TESSEL_DBG(...)        TESSEL_DBG_AT(::tessel::CallSite::Current(), __VA_ARGS__)
#define TESSEL_PERROR(message) ::tessel::LogPerror(::tessel::CallSite::Current(), message)
